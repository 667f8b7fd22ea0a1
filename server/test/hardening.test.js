'use strict';
// What a hostile client tries: poisoned records, odd keys and names, refused requests that must
// leave no trace, sessions that must end.
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const http = require('node:http');
const {
  startServer, KEYS, PNG, auth, upload, signal,
} = require('./helpers');

const nestedText = (depth) => `${'['.repeat(depth)}${']'.repeat(depth)}`;
const nested = (depth) => JSON.parse(nestedText(depth));
const POISON = { toString: 1, valueOf: 1, toJSON: 1 };

describe('hardening', () => {
  let server;
  let a;
  let b;
  let room;
  before(async () => {
    server = await startServer();
    [a, b] = [await server.user('ha'), await server.user('hb')];
    room = await a.ok('post', '/room', { name: 'h', client: ['hb'] });
  });
  after(() => server.stop());
  const status = async (u, method, url, data) => (await u.request(method, url, data)).statusCode;

  test('deep nesting is refused on the way in, wherever it hides', async () => {
    const deep = nested(100);
    for (const [method, url, data] of [
      ['post', '/message/', { room: room.id, data: deep }],
      ['post', '/message/', { room: room.id, option: { x: deep } }],
      ['post', '/room', { data: { list: deep } }],
      ['post', '/client/', { clientID: 'ha', data: deep }],
    ]) {
      const res = await a.request(method, url, data);
      assert.deepEqual([res.statusCode, res.body], [400, 'the request is nested too deeply'], url);
    }
    const res = await fetch(`${server.url}/client/setDeviceToken/`, { method: 'POST', headers: auth(a), body: JSON.stringify({ token: deep }), signal: signal() });
    assert.equal(res.status, 400);
  });

  test('a stored record that cannot be encoded fails the requests that show it, and only those', async () => {
    // Planted behind the server's back, as an older server or a hand-edited database could have.
    const s = await startServer();
    try {
      const [c, d] = [await s.user('pc'), await s.user('pd')];
      const r = await c.ok('post', '/room', { name: 'poisoned', client: ['pd'], data: { needAgent: 1 } });
      const m = await c.ok('post', '/message/', { room: r.id, message: 'x' });
      const deep = nestedText(20000);
      const plant = (table, key, id, from, to) => {
        const body = s.store.db.prepare(`SELECT body FROM ${table} WHERE ${key} = ?`).pluck().get(id);
        s.store.db.prepare(`UPDATE ${table} SET body = ? WHERE ${key} = ?`).run(body.replace(from, to), id);
      };
      plant('messages', 'id', m.id, /}$/, `,"data":${deep}}`);
      plant('rooms', 'id', r.id, '"needAgent":1', `"needAgent":1,"x":${deep}`);
      s.store.load();
      for (const url of [`/message/?room=${r.id}`, '/room/list', '/room/needAgentList', `/room/${r.id}`]) {
        assert.equal(await status(d, 'get', url), 500, url);
      }
      const chatIn = await fetch(`${s.url}/client/chatin/pd/`, { method: 'POST', headers: auth(d), signal: signal() });
      assert.equal(chatIn.status, 500);
      assert.equal(await status(d, 'post', '/badge'), 200, 'the server still serves');
    } finally {
      await s.stop();
    }
  });

  test('a refused request changes nothing, in memory or on disk', async () => {
    // A sign-up with one bad field neither adds nor renames anyone.
    assert.equal(await status(a, 'post', '/client/', { clientID: 'h-new', username: 'N', email: {} }), 400);
    assert.equal(await status(a, 'post', '/client/', { clientID: 'ha', username: 'Renamed', photo: [] }), 400);
    const listed = await a.ok('get', '/client/');
    assert.ok(!listed.some((c) => c.clientID === 'h-new'));
    assert.equal(listed.find((c) => c.clientID === 'ha').username, 'ha');
    // A message that fails while it is stored leaves the room and the badges as they were.
    const before = await b.ok('get', `/room/${room.id}`);
    const { addMessage } = server.store;
    server.store.addMessage = () => { throw new Error('disk full'); };
    try {
      assert.equal(await status(a, 'post', '/message/', { room: room.id, message: 'lost' }), 500);
    } finally {
      server.store.addMessage = addMessage;
    }
    const after = await b.ok('get', `/room/${room.id}`);
    assert.deepEqual([after.badge, after.lastMessageTime, after.message], [before.badge, before.lastMessageTime, before.message]);
    assert.equal((await b.ok('post', '/badge')).total, before.badge);
  });

  test('objects with odd keys and odd request targets get a 4xx, never a 500', async () => {
    await a.ok('post', '/room', { name: 'odd', data: { county: POISON, x: POISON } });
    for (const [method, url, data] of [
      ['post', '/room', { client: [{ clientID: POISON }] }],
      ['post', '/room', { client: [POISON] }],
      ['post', '/message/', { room: room.id, messageType: POISON }],
      ['post', '/message/', { room: room.id, idFromSender: POISON }],
      ['post', '/message/', { room: POISON }],
      ['post', '/room/join', { id: POISON }],
      ['get', '/room/list?county=3'],
      ['get', '/Room/?sort=data'],
      ['get', '/room/needAgentList?county=1'],
    ]) {
      assert.ok((await status(a, method, url, data)) < 500, `${method} ${url}`);
    }
    for (const target of ['http://[', '//[', '/files/%E0%A4%A']) {
      const code = await new Promise((resolve, reject) => {
        http.get({ host: '127.0.0.1', port: server.port, path: target }, (res) => resolve(res.statusCode, res.resume())).on('error', reject);
      });
      assert.ok(code >= 400 && code < 500, `${target}: ${code}`);
    }
  });

  test('"__proto__" and other built-in names work as client ids', async () => {
    for (const id of ['__proto__', 'constructor', 'toString']) {
      const u = await server.user(id);
      const r = await a.ok('post', '/room', { name: id, client: [id] });
      assert.equal((await u.ok('post', '/badge')).total, 0, id);
      await a.ok('post', '/message/', { room: r.id, message: 'hi' });
      assert.equal((await u.ok('get', `/room/${r.id}`)).badge, 1, id);
      const read = await u.ok('put', `/room/receive/${r.id}`, { echo: 0 });
      assert.deepEqual([read.badge, typeof read.readTime[id], (await u.ok('post', '/badge')).total], [0, 'string', 0], id);
    }
  });

  test('an acknowledged event always gets an answer: unknown event names get 405', async () => {
    for (const event of ['patch', 'GET', 'message', 'x'.repeat(300)]) {
      const res = await a.socket.timeout(2000).emitWithAck(event, { url: '/badge', headers: a.headers() });
      assert.equal(res.statusCode, 405, event.slice(0, 10));
    }
  });

  test('a large form field is refused, not cut', async () => {
    const res = await upload(server, a, { type: 'x'.repeat(1025), room: room.id }, PNG);
    assert.equal(res.status, 413);
    assert.equal((await upload(server, a, { type: 'image', room: room.id }, PNG)).status, 200);
  });

  test('chat-out ends the HTTP cookie session', async () => {
    const file = (await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG)).body;
    const chatIn = await fetch(`${server.url}/client/chatin/hb/`, { method: 'POST', headers: auth(b), signal: signal() });
    const cookie = chatIn.headers.get('set-cookie').split(';')[0];
    const get = () => fetch(`${server.url}/files/${file.fileName}`, { headers: { Cookie: cookie }, signal: signal() }).then((r) => r.status);
    assert.equal(await get(), 200);
    await b.ok('post', '/client/chatout/', { token: '' });
    assert.equal(await get(), 401);
    assert.equal((await b.request('post', '/badge', undefined, KEYS)).statusCode, 200, 'outside strict mode the token lives on');
  });
});
