#!/usr/bin/env node
// Fan-out figures for the server's cluster mode, 1 node and then 3 nodes in the same run, each
// behind HAProxy on one throw-away PostgreSQL (server/cluster.js): rooms of several members whose
// clients are spread over the nodes by the front; one sender per room posts messages, with a few
// in flight, and every other member's "message" push is timed from the moment it was sent.
// Reports delivered pushes per second and the p50/p99 delivery latency. Bounded in count and
// time; loopback only.
//
//   node bench/server_cluster.mjs [--rooms 40] [--members 4] [--messages 50] [--window 4]
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';
import os from 'node:os';
import path from 'node:path';

const here = path.dirname(fileURLToPath(import.meta.url));
const require = createRequire(path.join(here, '..', 'server', 'package.json'));
const { io } = require('socket.io-client');
const { startCluster, missing } = require('../server/cluster.js');

const args = Object.fromEntries(process.argv.slice(2).reduce((acc, a, i, all) => {
  if (a.startsWith('--')) acc.push([a.slice(2), all[i + 1]]);
  return acc;
}, []));
const ROOMS = Math.min(Number(args.rooms || 40), 200);
const MEMBERS = Math.min(Number(args.members || 4), 20);
const MESSAGES = Math.min(Number(args.messages || 50), 500); // per room
const WINDOW = Math.min(Number(args.window || 4), 32); // a sender's messages in flight
const KEYS = { apiKey: 'bench-api', clientKey: 'bench-client' };
const hardStop = setTimeout(() => {
  console.error('server_cluster: gave up after 240 s');
  process.exit(1);
}, 240000);

function connect(url) {
  return new Promise((resolve, reject) => {
    const s = io(url, { transports: ['websocket'], reconnection: false, forceNew: true, timeout: 10000 });
    s.once('connect', () => resolve(s));
    s.once('connect_error', reject);
  });
}

const percentile = (sorted, p) => sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * p))];

async function run(nodes) {
  const cluster = await startCluster({ nodes, ...KEYS });
  const sockets = [];
  try {
    const clients = [];
    for (let i = 0; i < ROOMS * MEMBERS; i++) {
      const s = await connect(cluster.url);
      sockets.push(s);
      const clientID = `b${i}`;
      const res = await s.timeout(10000).emitWithAck('post', { url: '/client/', headers: KEYS, data: { clientID } });
      clients.push({ s, headers: { ...KEYS, clientID, token: res.body.token } });
    }
    const post = (c, url, data) => c.s.timeout(10000).emitWithAck('post', { url, headers: c.headers, data });
    const rooms = [];
    for (let r = 0; r < ROOMS; r++) {
      const members = clients.slice(r * MEMBERS, (r + 1) * MEMBERS);
      const room = (await post(members[0], '/room', { client: members.slice(1).map((m) => m.headers.clientID) })).body;
      rooms.push({ id: room.id, members });
    }
    const latencies = [];
    const expected = ROOMS * MESSAGES * (MEMBERS - 1);
    let resolveAll;
    const allDelivered = new Promise((resolve) => { resolveAll = resolve; });
    for (const { members } of rooms) {
      for (const m of members.slice(1)) {
        m.s.on('message', (msg) => {
          latencies.push(Date.now() - Number(msg.message.split(':')[1]));
          if (latencies.length === expected) resolveAll();
        });
      }
    }
    const started = Date.now();
    await Promise.all(rooms.map(async ({ id, members }) => {
      let n = 0;
      const lane = async () => {
        while (n < MESSAGES) {
          n += 1;
          const res = await post(members[0], '/message/', { room: id, message: `${n}:${Date.now()}` });
          if (res.statusCode !== 200) throw new Error(`send answered ${res.statusCode}`);
        }
      };
      await Promise.all(Array.from({ length: WINDOW }, lane));
    }));
    await Promise.race([allDelivered, new Promise((resolve) => setTimeout(resolve, 20000))]);
    const seconds = (Date.now() - started) / 1000;
    latencies.sort((a, b) => a - b);
    return {
      nodes, sent: ROOMS * MESSAGES, delivered: latencies.length, expected,
      perSecond: Math.round(latencies.length / seconds), p50: percentile(latencies, 0.5), p99: percentile(latencies, 0.99),
    };
  } finally {
    for (const s of sockets) s.disconnect();
    await cluster.stop();
  }
}

const why = missing();
if (why) {
  console.log(`server_cluster: skipped: ${why}`);
  process.exit(0);
}
console.log(`server_cluster: ${os.cpus().length} cores, ${Math.round(os.totalmem() / 2 ** 30)} GiB; ${ROOMS} rooms of ${MEMBERS} members, `
  + `${MESSAGES} messages per room, ${WINDOW} in flight per sender; everything (PostgreSQL, HAProxy, nodes, clients) on this machine`);
for (const nodes of [1, 3]) {
  const r = await run(nodes);
  console.log(`server_cluster: ${nodes} node${nodes > 1 ? 's' : ' '}: ${r.perSecond} pushes/s delivered (${r.delivered}/${r.expected}), `
    + `delivery latency p50 ${r.p50} ms, p99 ${r.p99} ms`);
}
clearTimeout(hardStop);
