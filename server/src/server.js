'use strict';
// The HTTP server with Socket.IO on it: virtual requests over the socket, a few plain-HTTP routes
// (device token, HTTP chat-in with its cookie session, file download and upload) and, when asked
// for, the test control routes under /__control/.
const http = require('node:http');
const crypto = require('node:crypto');
const { Server: IOServer } = require('socket.io');
const Busboy = require('busboy');
const { Store } = require('./store');
const { Hub } = require('./hub');
const { Faults } = require('./faults');
const { ChatService } = require('./api');
const { isPlainObject, once, HttpError } = require('./util');

const METHODS = ['get', 'post', 'put', 'delete'];

function decodeSegment(s) {
  try {
    return decodeURIComponent(s);
  } catch {
    throw new HttpError(400, 'malformed path');
  }
}
const MAX_JSON = 64 * 1024;
const SESSION_COOKIE = 'parlo.sid';
const SESSION_MS = 24 * 3600 * 1000;
const CONTENT_TYPES = { '.png': 'image/png', '.jpg': 'image/jpeg', '.gif': 'image/gif' };

/**
 * Starts a server. Options: port (0 for any free one), host ('127.0.0.1'), apiKey, clientKey,
 * dataDir (persist there; in memory only when absent), testControl (enable /__control/),
 * maxUploadBytes (10 MiB), quiet. Resolves to { port, url, close(), store, service, io }.
 */
async function createServer(options = {}) {
  const opts = {
    port: 0, host: '127.0.0.1', apiKey: 'parlo-dev-api-key', clientKey: 'parlo-dev-client-key',
    dataDir: null, testControl: false, maxUploadBytes: 10 * 1024 * 1024, ...options,
  };
  const store = new Store(opts.dataDir);
  const hub = new Hub((fn) => store.afterCommit(fn));
  const faults = new Faults();
  const service = new ChatService({ store, hub, apiKey: opts.apiKey, clientKey: opts.clientKey });
  const held = new Set(); // HTTP responses held open by a "drop" fault
  const timers = new Set();

  const later = (ms, fn) => {
    const t = setTimeout(() => {
      timers.delete(t);
      fn();
    }, ms);
    timers.add(t);
  };

  // ---- plain HTTP --------------------------------------------------------------------------------

  const httpServer = http.createServer((req, res) => {
    // Answers wait for the commit of the changes they report.
    const send = once((...args) => store.afterCommit((error) => reply(...(error ? [500, 'the state could not be saved'] : args))));
    const reply = (status, body, headers = {}) => {
      const isBuf = Buffer.isBuffer(body);
      const payload = isBuf ? body : typeof body === 'string' ? body : JSON.stringify(body);
      const type = isBuf ? 'application/octet-stream' : typeof body === 'string' ? 'text/plain; charset=utf-8' : 'application/json';
      if (res.headersSent || res.destroyed) return;
      res.writeHead(status, { 'Content-Type': type, 'Content-Length': Buffer.byteLength(payload), ...headers });
      res.end(payload);
    };
    const fail = (e) => {
      if (e instanceof HttpError) send(e.status, e.message, { Connection: 'close' });
      else {
        console.error('parlo-server: internal error:', e);
        send(500, 'internal error', { Connection: 'close' });
      }
    };
    try {
      routeHttp(req, res, send, fail);
    } catch (e) {
      fail(e);
    }
  });

  function routeHttp(req, res, send, fail) {
    const url = new URL(req.url, 'http://localhost');
    const path = url.pathname;
    const method = req.method.toLowerCase();
    if (opts.testControl && path.startsWith('/__control/')) return control(req, path, method, send, fail);
    const rule = faults.match(method, path);
    const go = () => {
      try {
        serveHttp(req, res, path, method, send, fail);
      } catch (e) {
        fail(e);
      }
    };
    if (!rule) return go();
    if (rule.action === 'status') return later(rule.ms, () => send(rule.status, rule.body));
    if (rule.action === 'delay') return later(rule.ms, go);
    if (rule.action === 'truncate') {
      // The headers go out as they are, full length included, then half the body and a cut connection.
      const end = res.end.bind(res);
      res.end = (chunk, ...rest) => {
        const body = typeof chunk === 'string' ? Buffer.from(chunk) : chunk;
        if (!Buffer.isBuffer(body) || body.length < 2) return end(chunk, ...rest);
        res.write(body.subarray(0, body.length >> 1), () => res.destroy());
        return res;
      };
      return go();
    }
    held.add(res); // drop: never answer
    res.on('close', () => held.delete(res));
    return undefined;
  }

  function serveHttp(req, res, path, method, send, fail) {
    let m;
    if (method === 'post' && /^\/client\/setDeviceToken\/?$/.test(path)) {
      return readJson(req).then((data) => {
        const ctx = httpCtx(req, data);
        send(200, service.setDeviceToken(ctx));
      }).catch(fail);
    }
    if (method === 'post' && (m = /^\/client\/chatin\/([^/]+)\/?$/.exec(path))) {
      return readJson(req).then(() => {
        const ctx = httpCtx(req);
        if (decodeSegment(m[1]) !== ctx.client.clientID) throw new HttpError(403, 'clientID does not match the path');
        const sid = crypto.randomBytes(24).toString('hex');
        store.putSession(sid, { clientID: ctx.client.clientID, expires: Date.now() + SESSION_MS });
        const body = service.chatIn(ctx);
        send(200, body, { 'Set-Cookie': `${SESSION_COOKIE}=${sid}; Path=/; HttpOnly; Max-Age=${SESSION_MS / 1000}` });
      }).catch(fail);
    }
    if (method === 'get' && (m = /^\/files\/([^/]+)$/.exec(path))) {
      req.resume();
      const name = decodeSegment(m[1]);
      const f = store.files.get(name);
      if (!f) throw new HttpError(404, `file not found: ${name}`);
      const who = sessionClient(req) || headerClient(req);
      if (!service.canReadFile(f, who)) {
        throw new HttpError(who ? 403 : 401, who ? 'no access to this file' : 'chat in first');
      }
      const bytes = store.getFileBytes(f.fileName);
      if (!bytes) throw new HttpError(404, `file not found: ${name}`);
      const ext = (/\.[a-z]+$/.exec(f.fileName) || [''])[0];
      res.writeHead(200, { 'Content-Type': CONTENT_TYPES[ext] || 'application/octet-stream', 'Content-Length': bytes.length });
      res.end(bytes);
      return undefined;
    }
    if (method === 'post' && /^\/files\/upload\/?$/.test(path)) return upload(req, send, fail);
    req.resume();
    throw new HttpError(404, `no route for ${req.method} ${path}`);
  }

  /** The signed-in client of an HTTP request, by its four headers; throws 401 otherwise. */
  function httpCtx(req, data) {
    const h = req.headers;
    const ctx = {
      headers: { apiKey: h.apikey, clientKey: h.clientkey, clientID: h.clientid, token: h.token },
      data, conn: null,
    };
    service.authenticate(ctx, 'client');
    return ctx;
  }

  function headerClient(req) {
    try {
      return httpCtx(req).client.clientID;
    } catch {
      return null;
    }
  }

  function sessionClient(req) {
    const cookie = req.headers.cookie || '';
    const m = new RegExp(`(?:^|;\\s*)${SESSION_COOKIE.replace('.', '\\.')}=([0-9a-f]+)`).exec(cookie);
    if (!m) return null;
    const s = store.sessions.get(m[1]);
    if (!s) return null;
    if (s.expires < Date.now()) {
      store.deleteSession(m[1]);
      return null;
    }
    return store.clients.has(s.clientID) ? s.clientID : null;
  }

  function readJson(req) {
    return new Promise((resolve, reject) => {
      const chunks = [];
      let size = 0;
      let failed = false;
      req.on('data', (c) => {
        if (failed) return;
        size += c.length;
        if (size > MAX_JSON) {
          failed = true;
          reject(new HttpError(413, 'body too large'));
          return;
        }
        chunks.push(c);
      });
      req.on('error', () => {
        failed = true;
        reject(new HttpError(400, 'request aborted'));
      });
      req.on('end', () => {
        if (failed) return;
        const text = Buffer.concat(chunks).toString('utf8').trim();
        if (text === '') return resolve(undefined);
        try {
          return resolve(JSON.parse(text));
        } catch {
          return reject(new HttpError(400, 'body is not JSON'));
        }
      });
    });
  }

  /** "/files/upload": multipart form with "type", "room", "isPublic" and one file part. */
  function upload(req, send, fail) {
    let ctx;
    try {
      ctx = httpCtx(req);
    } catch (e) {
      req.resume();
      throw e;
    }
    let bb;
    try {
      bb = Busboy({ headers: req.headers, limits: { fileSize: opts.maxUploadBytes, files: 1, fields: 20, fieldSize: 1024, parts: 22 } });
    } catch {
      req.resume();
      throw new HttpError(400, 'a multipart/form-data body is required');
    }
    const fields = {};
    let file = null;
    let error = null;
    const stop = (e) => {
      if (!error) error = e;
      req.unpipe(bb);
      req.resume();
      fail(error);
    };
    bb.on('field', (name, value) => {
      fields[name] = value;
    });
    bb.on('file', (name, stream) => {
      const chunks = [];
      stream.on('data', (c) => chunks.push(c));
      stream.on('limit', () => stop(new HttpError(413, `file larger than ${opts.maxUploadBytes} bytes`)));
      stream.on('error', () => {});
      stream.on('end', () => {
        if (!stream.truncated) file = Buffer.concat(chunks);
      });
    });
    bb.on('filesLimit', () => stop(new HttpError(400, 'one file per upload')));
    bb.on('error', () => stop(new HttpError(400, 'malformed multipart body')));
    bb.on('close', () => {
      if (error) return;
      try {
        if (!file) throw new HttpError(400, 'the file part is missing');
        send(200, service.addFile(ctx.client, { type: fields.type, room: fields.room, isPublic: fields.isPublic, bytes: file }));
      } catch (e) {
        fail(e);
      }
    });
    req.on('error', () => stop(new HttpError(400, 'request aborted')));
    req.pipe(bb);
    return undefined;
  }

  // ---- test control ------------------------------------------------------------------------------

  function control(req, path, method, send, fail) {
    readJson(req).then((data) => {
      if (path === '/__control/faults' && method === 'post') {
        try {
          return send(200, faults.add(data));
        } catch (e) {
          return send(400, e.message);
        }
      }
      if (path === '/__control/faults' && method === 'get') return send(200, faults.rules);
      if (path === '/__control/faults' && method === 'delete') {
        faults.clear();
        return send(200, { cleared: true });
      }
      let m;
      if ((m = /^\/__control\/faults\/(\d+)$/.exec(path)) && method === 'delete') {
        return faults.remove(Number(m[1])) ? send(200, { removed: Number(m[1]) }) : send(404, 'no such fault');
      }
      if (path === '/__control/disconnect' && method === 'post') {
        if (!isPlainObject(data)) return send(400, 'a JSON object is required');
        let conns;
        if (data.all === true) conns = [...io.sockets.sockets.values()].map((s) => s.data.conn);
        else if (typeof data.socketId === 'string') conns = [io.sockets.sockets.get(data.socketId)?.data.conn].filter(Boolean);
        else if (typeof data.clientID === 'string') conns = hub.connectionsOf(data.clientID);
        else return send(400, 'clientID, socketId or all is required');
        for (const conn of conns) conn.socket.disconnect(true);
        return send(200, { disconnected: conns.length });
      }
      if (path === '/__control/stats' && method === 'get') {
        return send(200, {
          connections: io.engine.clientsCount, clients: store.clients.size, rooms: store.rooms.size,
          messages: store.messageCount, files: store.files.size,
        });
      }
      return send(404, `no control route ${method} ${path}`);
    }).catch(fail);
  }

  // ---- Socket.IO -----------------------------------------------------------------------------------

  const io = new IOServer(httpServer, { allowEIO3: true, serveClient: false, maxHttpBufferSize: opts.maxHttpBufferSize || 1e6 });

  io.on('connection', (socket) => {
    const conn = { socket, clientID: null };
    socket.data.conn = conn;
    socket.on('disconnect', () => hub.unbind(conn));
    for (const method of METHODS) {
      socket.on(method, (...args) => {
        const ack = once(typeof args[args.length - 1] === 'function' ? args.pop() : () => {});
        const env = args[0];
        if (!isPlainObject(env) || typeof env.url !== 'string' || !env.url.startsWith('/') || env.url.length > 4096) {
          return ack({ statusCode: 400, body: 'the request needs an envelope {"url", "headers", "data"}' });
        }
        if (env.headers !== undefined && env.headers !== null && !isPlainObject(env.headers)) {
          return ack({ statusCode: 400, body: 'headers must be an object' });
        }
        const run = () => service.handle({ method, url: env.url, headers: env.headers, data: env.data, conn });
        // An acknowledgement waits for the commit of the changes it reports.
        const settle = (answer) => store.afterCommit((error) => ack(error ? { statusCode: 500, body: 'the state could not be saved' } : answer));
        const rule = faults.match(method, env.url);
        if (!rule || rule.action === 'truncate') return settle(run()); // nothing to cut in an acknowledgement
        if (rule.action === 'status') return later(rule.ms, () => ack({ statusCode: rule.status, body: rule.body }));
        const answer = rule.handle ? run() : null;
        if (rule.action === 'delay') later(rule.ms, () => settle(answer || run()));
        return undefined; // drop: handled (unless told otherwise), never acknowledged
      });
    }
  });

  await new Promise((resolve, reject) => {
    httpServer.once('error', reject);
    httpServer.listen(opts.port, opts.host, () => {
      httpServer.off('error', reject);
      resolve();
    });
  });
  const { port } = httpServer.address();
  let closing = null;

  return {
    port,
    url: `http://${opts.host.includes(':') ? `[${opts.host}]` : opts.host}:${port}`,
    store,
    service,
    io,
    close() {
      if (!closing) {
        closing = new Promise((resolve) => {
          for (const t of timers) clearTimeout(t);
          timers.clear();
          for (const res of held) res.destroy();
          io.close(() => resolve());
          httpServer.closeAllConnections?.();
        }).then(() => store.close());
      }
      return closing;
    },
  };
}

module.exports = { createServer };
