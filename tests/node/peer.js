// Socket.IO test peer for the kit's own client: a socket.io 4.8 server with the events the
// tests and the benchmark need. Prints "PORT <n>" once listening.
//
// Usage: node peer.js [--port N] [--eio3] [--tls CERT KEY] [--ping-interval MS]
//                     [--ping-timeout MS] [--max-buffer BYTES]
'use strict';
const fs = require('fs');
const http = require('http');
const https = require('https');
const { Server } = require('socket.io');

const args = process.argv.slice(2);
const opt = { port: 0, eio3: false, tls: null, pingInterval: 25000, pingTimeout: 20000, maxBuffer: 1e8 };
for (let i = 0; i < args.length; i++) {
  switch (args[i]) {
    case '--port': opt.port = Number(args[++i]); break;
    case '--eio3': opt.eio3 = true; break;
    case '--tls': opt.tls = { cert: fs.readFileSync(args[++i]), key: fs.readFileSync(args[++i]) }; break;
    case '--ping-interval': opt.pingInterval = Number(args[++i]); break;
    case '--ping-timeout': opt.pingTimeout = Number(args[++i]); break;
    case '--max-buffer': opt.maxBuffer = Number(args[++i]); break;
    default: console.error('unknown argument', args[i]); process.exit(2);
  }
}

const httpServer = opt.tls ? https.createServer(opt.tls) : http.createServer();
const io = new Server(httpServer, {
  allowEIO3: opt.eio3,
  pingInterval: opt.pingInterval,
  pingTimeout: opt.pingTimeout,
  maxHttpBufferSize: opt.maxBuffer,
  cors: { origin: '*' },
});

// Lets a test check that cookies set by the server come back on later requests.
io.engine.on('initial_headers', (headers) => {
  headers['set-cookie'] = ['peer=sticky; Path=/'];
});

function common(socket) {
  // Answers with exactly what it was sent.
  socket.on('echo', (...a) => { const ack = a.pop(); if (typeof ack === 'function') ack(...a); });
  // Never answers: the client's time-out must fire.
  socket.on('never', () => {});
  // What the server saw of the connection.
  socket.on('handshake', (ack) => ack({
    auth: socket.handshake.auth,
    query: socket.handshake.query,
    cookie: socket.handshake.headers.cookie || '',
    header: socket.handshake.headers['x-parlo-test'] || '',
    nsp: socket.nsp.name,
    transport: socket.conn.transport.name,
  }));
  // The facade's request shape: a status code and a body.
  for (const verb of ['get', 'post', 'put', 'delete']) {
    socket.on(verb, (envelope, ack) => ack({ statusCode: 200, body: { verb, envelope } }));
  }
  // Bytes of the asked size, each byte its index modulo 251.
  socket.on('bytes', (n, ack) => {
    const b = Buffer.alloc(n);
    for (let i = 0; i < n; i++) b[i] = i % 251;
    ack(b);
  });
  // Lengths of what was sent: strings in UTF-16 units, buffers in bytes.
  socket.on('measure', (...a) => {
    const ack = a.pop();
    ack(a.map((x) => (Buffer.isBuffer(x) ? { bytes: x.length } : typeof x === 'string' ? { chars: x.length } : { other: typeof x })));
  });
  // The server asks the client a question with an acknowledgement and reports the answer.
  socket.on('askMe', (payload, ack) => {
    socket.emit('question', payload, (...answer) => ack(answer));
  });
  // The server pushes `count` events named `name` carrying `payload`.
  socket.on('push', (name, payload, count, ack) => {
    for (let i = 0; i < count; i++) socket.emit(name, payload, i);
    if (typeof ack === 'function') ack('pushed');
  });
  // The server ends this socket (a server-side disconnect).
  socket.on('kickMe', (ack) => { if (typeof ack === 'function') ack('bye'); setTimeout(() => socket.disconnect(true), 20); });
  // The server writes a raw Engine.IO message (to test bad input).
  socket.on('raw', (text, ack) => { if (typeof ack === 'function') ack('ok'); setTimeout(() => socket.conn.write(text), 10); });
}

io.on('connection', common);
const admin = io.of('/admin');
admin.use((socket, next) => {
  if (socket.handshake.auth && socket.handshake.auth.token === 'secret') return next();
  const err = new Error('Not authorized');
  next(err);
});
admin.on('connection', common);

httpServer.listen(opt.port, '127.0.0.1', () => {
  process.stdout.write(`PORT ${httpServer.address().port}\n`);
});
process.on('SIGTERM', () => process.exit(0));
