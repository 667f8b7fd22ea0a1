'use strict';
const { test } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { startServer, KEYS } = require('./helpers');
const { createServer } = require('../src/server');

const signal = () => AbortSignal.timeout(3000);

test('with a data folder a restart keeps clients, rooms, messages, unread counts, files and sessions', async (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'parlo-data-'));
  let server = await startServer({ dataDir: dir });
  t.after(async () => {
    await server.stop();
    fs.rmSync(dir, { recursive: true, force: true });
  });
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
  const b2 = Object.assign(await server.connect(), { clientID: 'pb', token: b.token });
  const me = await b2.ok('post', '/client/chatin/');
  assert.deepEqual([me.totalBadge, me.room[0].id, me.room[0].message[0].message], [1, room.id, 'two']);
  const more = await b2.ok('post', '/message/', { room: room.id, message: 'three' });
  const page = await b2.ok('get', `/message/?room=${room.id}&offset=0&limit=10`);
  assert.deepEqual(page.map((m) => m.message), ['one', 'two', 'three']);
  assert.equal(new Set(page.map((m) => m.id)).size, 3, `${more.id} is a new id`);
  assert.ok((await b2.ok('get', `/files/${file.fileName}`, {})).equals(Buffer.from('persisted bytes')));
  assert.equal((await fetch(`${server.url}/files/${file.fileName}`, { headers: { Cookie: cookie }, signal: signal() })).status, 200);
});

test('a damaged state file stops the start instead of starting empty', async (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'parlo-data-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  fs.writeFileSync(path.join(dir, 'state.json'), '{"version":1,"clients":[');
  await assert.rejects(createServer({ port: 0, dataDir: dir }));
});
