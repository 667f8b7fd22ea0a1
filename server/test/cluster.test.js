'use strict';
// Three nodes on one PostgreSQL behind HAProxy: what one node does reaches clients on the others,
// in order, and a node killed during a burst of sends loses and doubles nothing it acknowledged.
const { test, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { io } = require('socket.io-client');
const { startCluster, missing } = require('../cluster');
const {
  user, KEYS, sleep,
} = require('./helpers');

const why = missing();
if (why) console.log(`# cluster test skipped: ${why}`);
let cluster;
const sockets = [];
before(async () => {
  if (!why) cluster = await startCluster({ nodes: 3, ...KEYS });
});
after(async () => {
  for (const s of sockets) s.disconnect();
  await cluster?.stop();
});

test('clients on different nodes get each other\'s messages, read receipts and room updates in order', { skip: why || false }, async () => {
  const [a, b, c] = await Promise.all(['ca', 'cb', 'cc'].map((id, i) => user(cluster.nodes[i].url, id, {}, sockets)));
  const joined = [b.next('joined'), c.next('joined')];
  const room = await a.ok('post', '/room', { name: 'across', isPublic: true, client: ['cb', 'cc'] });
  assert.deepEqual((await Promise.all(joined)).map((r) => r.id), [room.id, room.id]);
  const [atB, atC] = [b.collect('message'), c.collect('message')];
  const sends = [];
  for (let i = 0; i < 30; i++) sends.push((i % 2 ? c : a).ok('post', '/message/', { room: room.id, message: `${i}` }));
  await Promise.all(sends);
  const deadline = Date.now() + 5000;
  while ((atB.length < 30 || atC.length < 30) && Date.now() < deadline) await sleep(20);
  for (const got of [atB, atC]) {
    assert.equal(got.length, 30);
    for (const sender of ['ca', 'cc']) {
      const texts = got.filter((m) => m.sender.clientID === sender).map((m) => Number(m.message));
      assert.deepEqual(texts, [...texts].sort((x, y) => x - y), `${sender}'s messages in order`);
    }
  }
  assert.equal(atB.at(-1).totalBadge, 30, 'the badge counts every message, from either node');
  const receipt = a.next('receive');
  await b.ok('put', `/room/receive/${room.id}`, { echo: 1 });
  assert.ok((await receipt).readTime.cb);
  const d = await user(cluster.nodes[1].url, 'cd', {}, sockets);
  const toA = a.next('joined');
  await d.ok('post', '/room/join', { id: room.id });
  assert.deepEqual((await toA).client.map((x) => x.clientID), ['ca', 'cb', 'cc', 'cd']);
});

test('a node killed during a burst: its clients come back through the front; nothing acknowledged is lost or doubled', { skip: why || false }, async () => {
  const clients = [];
  for (let i = 0; i < 6; i++) {
    const s = io(cluster.url, { transports: ['websocket'], forceNew: true, reconnectionDelay: 100, reconnectionDelayMax: 300, timeout: 2000 });
    sockets.push(s);
    await new Promise((resolve, reject) => s.once('connect', resolve).once('connect_error', reject));
    clients.push(s);
  }
  const ids = clients.map((_, i) => `k${i}`);
  const envelope = (i, url, data) => ({ url, data, headers: { ...KEYS, clientID: ids[i] } });
  const tokens = [];
  for (let i = 0; i < 6; i++) tokens[i] = (await clients[i].timeout(3000).emitWithAck('post', envelope(i, '/client/', { clientID: ids[i] }))).body.token;
  const request = (i, url, data, method = 'post') => clients[i].timeout(1500).emitWithAck(method, { url, data, headers: { ...KEYS, clientID: ids[i], token: tokens[i] } });
  const room = (await request(0, '/room', { name: 'burst', client: ids.slice(1) })).body;
  const dropped = new Set();
  clients.forEach((s, i) => s.on('disconnect', () => dropped.add(i)));

  // Each client sends its messages one after the other, sending again (same idFromSender) until acknowledged.
  const acknowledged = [];
  const PER_CLIENT = 40;
  const sender = async (i) => {
    for (let n = 1; n <= PER_CLIENT; n++) {
      const body = { room: room.id, message: `${ids[i]}-${n}`, idFromSender: i * 1000 + n };
      for (let attempt = 0; ; attempt++) {
        assert.ok(attempt < 40, `${body.message} never acknowledged`);
        const res = await request(i, '/message/', body).catch(() => null);
        if (res?.statusCode === 200) break;
        await sleep(100);
      }
      acknowledged.push(body.message);
    }
  };
  const burst = clients.map((_, i) => sender(i));
  while (acknowledged.length < 60) await sleep(5);
  await cluster.killNode(1);
  await Promise.all(burst);

  assert.ok(dropped.size > 0, 'some clients were on the killed node');
  for (const i of dropped) assert.ok(clients[i].connected, `client ${i} is back`);
  const history = (await request(0, `/message/?room=${room.id}&offset=0&limit=500`, undefined, 'get')).body;
  const texts = history.map((m) => m.message);
  const doubled = texts.filter((t, k) => texts.indexOf(t) !== k);
  const lost = acknowledged.filter((t) => !texts.includes(t));
  assert.deepEqual([acknowledged.length, lost, doubled], [6 * PER_CLIENT, [], []]);
});

