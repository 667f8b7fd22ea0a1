// The official socket.io-client doing the benchmark's work: post a message, wait for the
// server's "message" push carrying the same idFromSender, one message at a time.
// Usage: node echo_roundtrip.mjs PORT API_KEY CLIENT_KEY MESSAGES WARMUP
// Prints one JSON line: {"samplesMs": [...]} (the measured messages only).
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';
import path from 'node:path';

const here = path.dirname(fileURLToPath(import.meta.url));
const require = createRequire(path.join(here, '../../server/package.json'));
const { io } = require('socket.io-client');

const [port, apiKey, clientKey, total, warmup] = process.argv.slice(2);
const socket = io(`http://127.0.0.1:${port}`, { transports: ['websocket'], reconnection: false });
const clientID = `node-bench-${process.pid}`;
let token = '';

const request = (method, url, data) =>
  new Promise((resolve, reject) => {
    const headers = { apiKey, clientKey, clientID, token };
    socket.timeout(10000).emit(method, { url, headers, data }, (err, answer) => {
      if (err) reject(err);
      else if (answer.statusCode >= 400) reject(new Error(`${url}: ${answer.statusCode} ${answer.body}`));
      else resolve(answer.body);
    });
  });

const waiting = new Map();
socket.on('message', (m) => {
  const done = waiting.get(m.idFromSender);
  if (done) {
    waiting.delete(m.idFromSender);
    done();
  }
});

async function roundTrip(room, n) {
  const id = 1000000 + n;
  const echoed = new Promise((resolve) => waiting.set(id, resolve));
  const t0 = process.hrtime.bigint();
  // Ends at the echo, as the kit's message settles there; the acknowledgement may come later.
  request('post', '/message/', { room, message: `message ${n}`, messageType: 'text', idFromSender: id }).catch((e) => {
    console.error(e.message);
    process.exit(1);
  });
  await echoed;
  return Number(process.hrtime.bigint() - t0) / 1e6;
}

socket.on('connect', async () => {
  try {
    token = (await request('post', '/client/', { clientID })).token;
    await request('post', '/client/chatin/');
    const room = (await request('post', '/room', { name: 'bench' })).id;
    for (let i = 0; i < Number(warmup); i++) await roundTrip(room, i);
    const samplesMs = [];
    for (let i = 0; i < Number(total); i++) samplesMs.push(await roundTrip(room, Number(warmup) + i));
    process.stdout.write(JSON.stringify({ samplesMs }) + '\n');
    socket.close();
    process.exit(0);
  } catch (e) {
    console.error(e.message);
    process.exit(1);
  }
});
socket.on('connect_error', (e) => {
  console.error(e.message);
  process.exit(1);
});
