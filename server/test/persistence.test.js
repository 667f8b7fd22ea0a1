'use strict';
const { test } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { startServer, spawnServer, exited, user, KEYS, sleep } = require('./helpers');
const { createServer } = require('../src/server');

const signal = () => AbortSignal.timeout(3000);
const dataDir = (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'parlo-data-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  return dir;
};
const texts = async (c, roomID) => (await c.ok('get', `/message/?room=${roomID}&offset=0&limit=500`)).map((m) => m.message);
const signedIn = async (server, clientID, token) => Object.assign(await server.connect(), { clientID, token });

test('with a data folder a restart keeps clients, rooms, messages, unread counts, files and sessions', async (t) => {
  let server;
  t.after(() => server.stop()); // before the folder goes
  const dir = dataDir(t);
  server = await startServer({ dataDir: dir });
  const [a, b] = [await server.user('pa'), await server.user('pb')];
  const room = await a.ok('get', '/room/createAndJoinWithClient/pb', { name: 'kept' });
  await a.ok('post', '/message/', { room: room.id, message: 'one' });
  await b.ok('put', `/room/receive/${room.id}`, { echo: 0 });
  await a.ok('post', '/message/', { room: room.id, message: 'two' });
  const chatIn = await fetch(`${server.url}/client/chatin/pb/`, { method: 'POST', headers: { ...KEYS, clientID: 'pb', token: b.token }, signal: signal() });
  const cookie = chatIn.headers.get('set-cookie').split(';')[0];
  const body = new FormData();
  body.set('room', room.id);
  body.set('file', new Blob(['persisted bytes']), '1');
  const file = await (await fetch(`${server.url}/files/upload`, { method: 'POST', headers: { ...KEYS, clientID: 'pa', token: a.token }, body, signal: signal() })).json();
  await server.stop();
  assert.deepEqual(fs.readdirSync(path.join(dir, 'files')), [file.fileName], 'no temporary files are left');

  server = await startServer({ dataDir: dir });
  const b2 = await signedIn(server, 'pb', b.token);
  const me = await b2.ok('post', '/client/chatin/');
  assert.deepEqual([me.totalBadge, me.room[0].id, me.room[0].message[0].message], [1, room.id, 'two']);
  await b2.ok('post', '/message/', { room: room.id, message: 'three' });
  const page = await b2.ok('get', `/message/?room=${room.id}&offset=0&limit=10`);
  assert.deepEqual(page.map((m) => m.message), ['one', 'two', 'three']);
  assert.equal(new Set(page.map((m) => m.id)).size, 3);
  assert.ok((await b2.ok('get', `/files/${file.fileName}`, {})).equals(Buffer.from('persisted bytes')));
  assert.equal((await fetch(`${server.url}/files/${file.fileName}`, { headers: { Cookie: cookie }, signal: signal() })).status, 200);
});

test('an older server\'s state.json is imported once and kept as state.json.imported', async (t) => {
  let server;
  t.after(() => server.stop()); // before the folder goes
  const dir = dataDir(t);
  const at = (s) => `2026-01-01T00:00:0${s}.000Z`;
  const client = (clientID) => ({ id: `id-${clientID}`, clientID, token: `t-${clientID}`, createdAt: at(0), updatedAt: at(0), deviceTokens: [] });
  const message = (seq, text) => ({
    id: `m${seq}`, seq, room: 'r1', sender: 'oa', createdAt: at(seq), updatedAt: at(seq), message: text, messageType: 'text', idFromSender: seq,
  });
  fs.writeFileSync(path.join(dir, 'state.json'), JSON.stringify({
    version: 1, seq: 3, clients: [client('oa'), client('ob')], files: [], sessions: {},
    rooms: [{
      id: 'r1', seq: 1, createdAt: at(0), updatedAt: at(3), lastMessageTime: at(3), name: 'old', isPublic: false, members: ['oa', 'ob'],
      archivedBy: [], readTime: {}, unread: { oa: 0, ob: 2 }, lastMessageId: 'm3', agent: null,
    }],
    messages: [message(3, 'second'), message(2, 'first')],
  }));
  server = await startServer({ dataDir: dir });
  const b = await signedIn(server, 'ob', 't-ob');
  const me = await b.ok('post', '/client/chatin/');
  assert.deepEqual([me.totalBadge, me.room[0].message[0].message], [2, 'second']);
  await b.ok('post', '/message/', { room: 'r1', message: 'third' });
  assert.deepEqual(fs.readdirSync(dir).filter((f) => f.startsWith('state')), ['state.json.imported']);
  await server.stop();
  server = await startServer({ dataDir: dir });
  assert.deepEqual(await texts(await signedIn(server, 'oa', 't-oa'), 'r1'), ['first', 'second', 'third']);
});

test('a damaged state.json or database stops the start and names the file', async (t) => {
  for (const file of ['state.json', 'parlo.db']) {
    const dir = dataDir(t);
    fs.writeFileSync(path.join(dir, file), '{"version":1,"clients":['.repeat(200));
    await assert.rejects(createServer({ port: 0, dataDir: dir }), new RegExp(`${file.replace('.', '\\.')}: `));
  }
});

test('a server killed during bursts of sends keeps every message it acknowledged', async (t) => {
  const sockets = [];
  let server;
  t.after(() => {
    for (const s of sockets) s.disconnect();
    server.child.kill('SIGKILL');
  });
  const dir = dataDir(t);
  const args = ['--data', dir, '--api-key', KEYS.apiKey, '--client-key', KEYS.clientKey];
  const acknowledged = new Set();
  let roomID;
  let n = 0;
  for (let round = 0; round < 3; round++) {
    server = await spawnServer(args);
    const c = await user(server.url, 'burst', {}, sockets); // a repeated sign-up keeps the client
    roomID ??= (await c.ok('post', '/room', { name: 'burst' })).id;
    if (round === 2) break;
    const sender = async () => {
      for (;;) {
        n += 1;
        const res = await c.request('post', '/message/', { room: roomID, message: `m${n}`, idFromSender: n });
        acknowledged.add(res.body.message);
      }
    };
    for (let i = 0; i < 4; i++) sender().catch(() => {});
    const target = acknowledged.size + 150;
    while (acknowledged.size < target) await sleep(2);
    server.child.kill('SIGKILL');
    await exited(server.child);
  }
  const kept = new Set(await texts(await user(server.url, 'burst', {}, sockets), roomID));
  const lost = [...acknowledged].filter((text) => !kept.has(text));
  assert.equal(lost.length, 0, `lost ${lost.length} of ${acknowledged.size} acknowledged: ${lost.slice(0, 5)}...`);
});
