#!/usr/bin/env node
// Load figures for the reference server (server/): starts it as a child process on a free
// loopback port, holds 1,000 concurrent Socket.IO connections, then measures acknowledged
// virtual requests per second with 100 clients sending. Bounded in count and time; loopback only.
//
//   node bench/server_load.mjs [--connections 1000] [--clients 100] [--seconds 5]
import { createRequire } from 'node:module';
import { spawn } from 'node:child_process';
import { fileURLToPath } from 'node:url';
import path from 'node:path';

const here = path.dirname(fileURLToPath(import.meta.url));
const serverDir = path.join(here, '..', 'server');
const require = createRequire(path.join(serverDir, 'package.json'));
const { io } = require('socket.io-client');

const args = Object.fromEntries(process.argv.slice(2).reduce((acc, a, i, all) => {
  if (a.startsWith('--')) acc.push([a.slice(2), all[i + 1]]);
  return acc;
}, []));
const CONNECTIONS = Math.min(Number(args.connections || 1000), 5000);
const CLIENTS = Math.min(Number(args.clients || 100), 1000);
const SECONDS = Math.min(Number(args.seconds || 5), 60);
const KEYS = { apiKey: 'bench-api', clientKey: 'bench-client' };
const hardStop = setTimeout(() => {
  console.error('server_load: gave up after 180 s');
  process.exit(1);
}, 180000);

function startServer() {
  const child = spawn(process.execPath, [path.join(serverDir, 'index.js'), '--port', '0', '--api-key', KEYS.apiKey,
    '--client-key', KEYS.clientKey, '--test-control'], { stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve, reject) => {
    let out = '';
    const t = setTimeout(() => reject(new Error('server did not start')), 10000);
    child.stdout.on('data', (d) => {
      out += d;
      const m = /^parlo-server listening on (\S+)$/m.exec(out);
      if (m) {
        clearTimeout(t);
        resolve({ child, url: m[1] });
      }
    });
    child.once('exit', (code) => reject(new Error(`server exited with ${code}`)));
  });
}

function connect(url) {
  return new Promise((resolve, reject) => {
    const s = io(url, { transports: ['websocket'], reconnection: false, forceNew: true, timeout: 10000 });
    s.once('connect', () => resolve(s));
    s.once('connect_error', reject);
  });
}

async function stats(url) {
  const res = await fetch(`${url}/__control/stats`, { signal: AbortSignal.timeout(5000) });
  return res.json();
}

const percentile = (sorted, p) => sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * p))];
const fmt = (n, d = 0) => n.toLocaleString('en-US', { maximumFractionDigits: d, minimumFractionDigits: d });

/** Every client sends one request at a time for SECONDS; answers the figures. */
async function run(label, clients, makeRequest) {
  const latencies = [];
  let errors = 0;
  const deadline = Date.now() + SECONDS * 1000;
  const t0 = process.hrtime.bigint();
  await Promise.all(clients.map(async (c, i) => {
    while (Date.now() < deadline) {
      const start = process.hrtime.bigint();
      const [method, env] = makeRequest(c, i);
      try {
        const res = await c.socket.timeout(5000).emitWithAck(method, env);
        if (res.statusCode !== 200) errors += 1;
      } catch {
        errors += 1;
      }
      latencies.push(Number(process.hrtime.bigint() - start) / 1e6);
    }
  }));
  const secs = Number(process.hrtime.bigint() - t0) / 1e9;
  latencies.sort((x, y) => x - y);
  console.log(`${label}: ${fmt(latencies.length / secs)} acknowledged requests/s `
    + `(${fmt(latencies.length)} in ${fmt(secs, 1)} s, ${clients.length} clients, errors ${errors}), `
    + `latency p50 ${fmt(percentile(latencies, 0.5), 2)} ms, p99 ${fmt(percentile(latencies, 0.99), 2)} ms`);
}

const { child, url } = await startServer();
try {
  console.log(`server_load: server at ${url}, node ${process.version}`);

  // 1. Hold CONNECTIONS concurrent connections.
  let t = Date.now();
  const held = [];
  for (let i = 0; i < CONNECTIONS; i += 100) {
    const batch = Math.min(100, CONNECTIONS - i);
    held.push(...await Promise.all(Array.from({ length: batch }, () => connect(url))));
  }
  const openMs = Date.now() - t;
  await new Promise((r) => setTimeout(r, 2000));
  const seen = (await stats(url)).connections;
  const alive = held.filter((s) => s.connected).length;
  console.log(`connections: ${fmt(CONNECTIONS)} opened in ${fmt(openMs)} ms (${fmt(CONNECTIONS / (openMs / 1000))}/s); `
    + `after 2 s held: ${fmt(alive)} connected, server counts ${fmt(seen)}`);
  for (const s of held) s.disconnect();

  // 2. CLIENTS signed-in clients sending requests.
  const clients = [];
  for (let i = 0; i < CLIENTS; i++) {
    const socket = await connect(url);
    const clientID = `bench-${i}`;
    const res = await socket.timeout(5000).emitWithAck('post', { url: '/client/', headers: { ...KEYS, clientID, token: '' }, data: { clientID } });
    clients.push({ socket, headers: { ...KEYS, clientID, token: res.body.token } });
  }
  for (let i = 0; i < CLIENTS; i += 2) {
    const c = clients[i];
    const other = clients[(i + 1) % CLIENTS];
    const res = await c.socket.timeout(5000).emitWithAck('get', { url: `/room/createAndJoinWithClient/${other.headers.clientID}`, headers: c.headers, data: {} });
    c.room = res.body.id;
    other.room = res.body.id;
  }
  await run('badge reads (post /badge/total)', clients, (c) => ['post', { url: '/badge/total', headers: c.headers }]);
  await run('room list (get /room/list?offset=0&limit=30)', clients, (c) => ['get', { url: '/room/list?offset=0&limit=30', headers: c.headers }]);
  let n = 0;
  await run('messages (post /message/, each pushed to 2 members)', clients, (c) => {
    n += 1;
    return ['post', { url: '/message/', headers: c.headers, data: { room: c.room, message: `m${n}`, messageType: 'text', idFromSender: n } }];
  });
  for (const c of clients) c.socket.disconnect();
} finally {
  child.kill('SIGTERM');
  clearTimeout(hardStop);
}
