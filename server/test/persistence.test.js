'use strict';
const { test } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { startServer, KEYS } = require('./helpers');
const { createServer } = require('../src/server');

test('with a data folder a restart keeps clients, rooms, messages, unread counts, files and sessions', async () => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'parlo-data-'));
  try {
    let server = await startServer({ dataDir: dir });
    const a = await server.user('pa');
    const b = await server.user('pb');
    const room = await a.ok('get', '/room/createAndJoinWithClient/pb', { name: 'kept' });
    await a.ok('post', '/message/', { room: room.id, message: 'one' });
    const two = await a.ok('post', '/message/', { room: room.id, message: 'two' });
    await b.ok('put', `/room/receive/${room.id}`, { echo: 0 });
    await a.ok('post', '/message/', { room: room.id, message: 'three' });
    const res = await fetch(`${server.url}/client/chatin/pb/`, {
      method: 'POST', headers: { ...KEYS, clientID: 'pb', token: b.token }, signal: AbortSignal.timeout(3000),
    });
    const cookie = res.headers.get('set-cookie').split(';')[0];
    const bytes = Buffer.from('persisted bytes');
    const { body: file } = await (async () => {
      const r = await fetch(`${server.url}/files/upload`, {
        method: 'POST', headers: { ...KEYS, clientID: 'pa', token: a.token },
        body: (() => { const f = new FormData(); f.set('room', room.id); f.set('isPublic', '0'); f.set('file', new Blob([bytes]), '1'); return f; })(),
        signal: AbortSignal.timeout(3000),
      });
      return { body: await r.json() };
    })();
    await server.stop();
    const files = fs.readdirSync(path.join(dir, 'files'));
    assert.deepEqual(files, [file.fileName], 'no temporary files are left behind');

    server = await startServer({ dataDir: dir });
    const b2 = await server.connect();
    b2.clientID = 'pb';
    b2.token = b.token;
    const me = await b2.ok('post', '/client/chatin/');
    assert.equal(me.totalBadge, 1);
    assert.equal(me.room[0].id, room.id);
    assert.equal(me.room[0].message[0].message, 'three');
    assert.ok(me.room[0].readTime.pb < me.room[0].lastMessageTime);
    const page = await b2.ok('get', `/message/?room=${room.id}&offset=0&limit=10`);
    assert.deepEqual(page.map((m) => m.message), ['one', 'two', 'three']);
    assert.equal(page[1].id, two.id);
    assert.ok((await b2.ok('get', `/files/${file.fileName}`, {})).equals(bytes));
    const dl = await fetch(`${server.url}/files/${file.fileName}`, { headers: { Cookie: cookie }, signal: AbortSignal.timeout(3000) });
    assert.equal(dl.status, 200, 'the cookie session survives the restart');
    // New records after the restart do not collide with the old ones.
    const more = await b2.ok('post', '/message/', { room: room.id, message: 'four' });
    assert.ok(!page.some((m) => m.id === more.id));
    assert.deepEqual((await b2.ok('get', `/message/?room=${room.id}&offset=0&limit=2`)).map((m) => m.message), ['three', 'four']);
    await server.stop();
  } finally {
    fs.rmSync(dir, { recursive: true, force: true });
  }
});

test('a damaged state file stops the start instead of starting empty', async () => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'parlo-data-'));
  try {
    fs.writeFileSync(path.join(dir, 'state.json'), '{"version":1,"clients":[');
    await assert.rejects(createServer({ port: 0, dataDir: dir }));
  } finally {
    fs.rmSync(dir, { recursive: true, force: true });
  }
});
