'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { startServer, KEYS, sleep } = require('./helpers');

describe('sessions', () => {
  let server;
  before(async () => { server = await startServer(); });
  after(() => server.stop());

  test('sign-up needs the keys and a clientID; signing up again keeps the token', async () => {
    const c = await server.connect();
    const first = await c.ok('post', '/client/', { clientID: 'u1', username: 'One' });
    assert.match(first.token, /^[0-9a-f]{48}$/);
    assert.match(first.createdAt, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/);
    const again = await c.ok('post', '/client/', { clientID: 'u1', username: 'Uno' });
    assert.deepEqual([again.token, again.username], [first.token, 'Uno']);
    assert.equal((await c.request('post', '/client/', { clientID: 'x' }, { apiKey: 'wrong' })).statusCode, 401);
    const missing = await c.request('post', '/client/', { username: 'no id' });
    assert.deepEqual([missing.statusCode, typeof missing.body], [400, 'string']);
  });

  test('chat-in answers rooms newest first with their latest message, badges and the token', async () => {
    const a = await server.user('ci-a');
    const b = await server.user('ci-b');
    const older = await a.ok('get', '/room/createAndJoinWithClient/ci-b', { name: 'older' });
    const newer = await a.ok('post', '/room', { name: 'newer', client: [{ clientID: 'ci-b' }] });
    for (const [room, text] of [[older, 'first'], [newer, 'second'], [newer, 'third']]) {
      await a.ok('post', '/message/', { room: room.id, message: text });
    }
    const me = await b.ok('post', '/client/chatin/');
    assert.deepEqual([me.clientID, me.token, me.totalBadge], ['ci-b', b.token, 3]);
    assert.deepEqual(me.room.map((r) => [r.name, r.badge, r.message[0].message]), [['newer', 2, 'third'], ['older', 1, 'first']]);
    assert.equal(me.room[0].sender.clientID, 'ci-a');
    assert.deepEqual(await b.ok('post', '/badge'), { total: 3 });
    assert.deepEqual(await b.ok('post', '/badge/total'), { total: 3 });
  });

  test('requests after sign-up need this client\'s token', async () => {
    const a = await server.user('tok-a');
    const b = await server.user('tok-b');
    for (const over of [{ token: 'nope' }, { token: '' }, { clientID: 'nobody' }, { token: b.token }]) {
      assert.equal((await a.request('post', '/client/chatin/', undefined, over)).statusCode, 401, JSON.stringify(over));
    }
  });

  test('client lists and class queries show public fields, paged and sorted', async () => {
    const a = await server.user('q-a', { email: 'secret@example.org' });
    const row = (await a.ok('get', '/client/')).find((c) => c.clientID === 'q-a');
    assert.deepEqual([row.token, row.email], [undefined, undefined]);
    for (const name of ['r1', 'r2', 'r3']) await a.ok('post', '/room', { name });
    const names = async (q) => (await a.ok('get', `/Room/${q}`)).map((r) => r.name);
    assert.deepEqual(await names('?offset=1&limit=2&sort=name ASC'), ['r2', 'r3']);
    assert.deepEqual(await names('?offset=0&limit=10&sort=createdAt DESC'), ['r3', 'r2', 'r1']);
    assert.equal((await a.request('get', '/Secret/?offset=0&limit=1')).statusCode, 404);
    assert.equal((await a.request('get', '/Room/?offset=-1&limit=1')).statusCode, 400);
  });

  test('chat-out releases the socket from the client\'s pushes', async () => {
    const a = await server.user('out-a');
    const b = await server.user('out-b');
    const room = await a.ok('get', '/room/createAndJoinWithClient/out-b', {});
    await b.ok('post', '/client/chatout/', { token: '' });
    const got = b.collect('message');
    await a.ok('post', '/message/', { room: room.id, message: 'anyone?' });
    await sleep(100);
    assert.equal(got.length, 0);
  });

  test('malformed envelopes and bodies are answered and never end the connection', async () => {
    const c = await server.connect();
    for (const env of [null, 'text', [], {}, { url: 5 }, { url: 'no-slash' }, { url: '/client/', headers: 'x' }, { url: '/%E0%A4%A' }]) {
      assert.equal((await c.raw('post', env)).statusCode, 400, JSON.stringify(env));
    }
    assert.equal((await c.raw('put', { url: '/client/', headers: KEYS })).statusCode, 404);
    const u = await server.user('mal');
    for (const data of [null, 'x', [], { room: 5 }, { room: 'missing' }]) {
      assert.ok([400, 404].includes((await u.request('post', '/message/', data)).statusCode), JSON.stringify(data));
    }
    c.socket.emit('get', { url: '/badge', headers: KEYS }); // no acknowledgement asked for
    c.socket.emit('post');
    assert.equal((await u.request('post', '/badge')).statusCode, 200);
    assert.ok(c.socket.connected);
  });
});
