'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { startServer, KEYS } = require('./helpers');

describe('sign-up and chat-in', () => {
  let server;
  before(async () => { server = await startServer(); });
  after(() => server.stop());

  test('sign-up answers the client with a token; signing up again keeps it and updates the profile', async () => {
    const c = await server.connect();
    const first = await c.request('post', '/client/', { clientID: 'u1', username: 'One' }, { clientID: 'u1' });
    assert.equal(first.statusCode, 200);
    assert.equal(first.body.clientID, 'u1');
    assert.match(first.body.token, /^[0-9a-f]{48}$/);
    assert.ok(first.body.id);
    const again = await c.request('post', '/client/', { clientID: 'u1', username: 'Uno' }, { clientID: 'u1' });
    assert.equal(again.body.token, first.body.token);
    assert.equal(again.body.username, 'Uno');
    assert.match(again.body.createdAt, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/);
  });

  test('sign-up needs the application keys and a clientID', async () => {
    const c = await server.connect();
    assert.equal((await c.request('post', '/client/', { clientID: 'x' }, { apiKey: 'wrong' })).statusCode, 401);
    assert.equal((await c.request('post', '/client/', { clientID: 'x' }, { clientKey: '' })).statusCode, 401);
    const missing = await c.request('post', '/client/', { username: 'no id' });
    assert.equal(missing.statusCode, 400);
    assert.equal(typeof missing.body, 'string');
    assert.equal((await c.request('post', '/client/', { clientID: { a: 1 } })).statusCode, 400);
    assert.equal((await c.request('post', '/client/', { clientID: 'x'.repeat(200) })).statusCode, 413);
  });

  test('chat-in answers rooms newest first with their latest message, the badge and the token', async () => {
    const a = await server.user('ci-a');
    const b = await server.user('ci-b');
    const older = await a.ok('get', '/room/createAndJoinWithClient/ci-b', { name: 'older' });
    const newer = await a.ok('post', '/room', { name: 'newer', client: [{ clientID: 'ci-b' }] });
    await a.ok('post', '/message/', { room: older.id, message: 'first' });
    await a.ok('post', '/message/', { room: newer.id, message: 'second' });
    await a.ok('post', '/message/', { room: newer.id, message: 'third' });
    const me = await b.ok('post', '/client/chatin/');
    assert.equal(me.clientID, 'ci-b');
    assert.equal(me.token, b.token);
    assert.equal(me.totalBadge, 3);
    assert.deepEqual(me.room.map((r) => r.name), ['newer', 'older']);
    assert.equal(me.room[0].message[0].message, 'third');
    assert.equal(me.room[0].badge, 2);
    assert.equal(me.room[0].sender.clientID, 'ci-a');
    assert.deepEqual(me.roomIDs, [newer.id, older.id]);
    assert.ok(me.chatinAt);
    assert.deepEqual(await b.ok('post', '/badge'), { total: 3 });
    assert.deepEqual(await b.ok('post', '/badge/total'), { total: 3 });
  });

  test('every request after sign-up needs the matching token', async () => {
    const a = await server.user('tok-a');
    assert.equal((await a.request('post', '/client/chatin/', undefined, { token: 'nope' })).statusCode, 401);
    assert.equal((await a.request('post', '/client/chatin/', undefined, { token: '' })).statusCode, 401);
    assert.equal((await a.request('post', '/client/chatin/', undefined, { clientID: 'nobody' })).statusCode, 401);
    assert.equal((await a.request('post', '/badge', undefined, { token: 'nope' })).statusCode, 401);
    // Another client's token does not open this client's session.
    const b = await server.user('tok-b');
    assert.equal((await a.request('post', '/client/chatin/', undefined, { token: b.token })).statusCode, 401);
  });

  test('client list and class queries show public fields only and honour offset, limit and sort', async () => {
    const a = await server.user('q-a', { email: 'secret@example.org' });
    const list = await a.ok('get', '/client/');
    const row = list.find((c) => c.clientID === 'q-a');
    assert.ok(row);
    assert.equal(row.token, undefined);
    assert.equal(row.email, undefined);
    await a.ok('post', '/room', { name: 'r1' });
    await a.ok('post', '/room', { name: 'r2' });
    await a.ok('post', '/room', { name: 'r3' });
    const rooms = await a.ok('get', '/Room/?offset=0&limit=2&sort=name ASC');
    assert.deepEqual(rooms.map((r) => r.name), ['r1', 'r2']);
    const next = await a.ok('get', '/Room/?offset=2&limit=2&sort=name ASC');
    assert.deepEqual(next.map((r) => r.name), ['r3']);
    const desc = await a.ok('get', '/Room/?offset=0&limit=10&sort=createdAt DESC');
    assert.deepEqual(desc.map((r) => r.name), ['r3', 'r2', 'r1']);
    const clients = await a.ok('get', '/Client/?offset=0&limit=100&sort=clientID');
    assert.ok(clients.every((c) => c.token === undefined));
    assert.equal((await a.request('get', '/Secret/?offset=0&limit=1&sort=x')).statusCode, 404);
    assert.equal((await a.request('get', '/Room/?offset=-1&limit=1&sort=name')).statusCode, 400);
    assert.equal((await a.request('get', '/Room/?offset=0&limit=1&sort=na;me')).statusCode, 400);
  });

  test('chat-out releases the socket: it no longer receives pushes', async () => {
    const a = await server.user('out-a');
    const b = await server.user('out-b');
    const room = await a.ok('get', '/room/createAndJoinWithClient/out-b', {});
    await b.ok('post', '/client/chatout/', { token: '' });
    const got = b.collect('message');
    await a.ok('post', '/message/', { room: room.id, message: 'anyone?' });
    await new Promise((r) => setTimeout(r, 100));
    assert.equal(got.length, 0);
  });
});

describe('malformed requests', () => {
  let server;
  before(async () => { server = await startServer(); });
  after(() => server.stop());

  test('bad envelopes, urls and bodies get 400/404 answers and the connection stays up', async () => {
    const c = await server.connect();
    for (const env of [null, 'text', 42, [], {}, { url: 5 }, { url: 'no-slash' }, { url: '/client/', headers: 'x' }]) {
      const res = await c.raw('post', env);
      assert.equal(res.statusCode, 400, JSON.stringify(env));
      assert.equal(typeof res.body, 'string');
    }
    assert.equal((await c.raw('get', { url: '/%E0%A4%A/x', headers: KEYS })).statusCode, 400);
    assert.equal((await c.raw('get', { url: '/nowhere', headers: KEYS })).statusCode, 404);
    assert.equal((await c.raw('put', { url: '/client/', headers: KEYS })).statusCode, 404);
    assert.equal((await c.raw('post', { url: '/badge', headers: null })).statusCode, 401);
    const u = await server.user('mal');
    for (const data of [null, 'x', 7, [], { room: 5 }, { room: '' }, { room: 'missing' }]) {
      const res = await u.request('post', '/message/', data);
      assert.ok([400, 404].includes(res.statusCode), `${JSON.stringify(data)} -> ${res.statusCode}`);
    }
    assert.equal((await u.request('get', '/message/?room=x&limit=abc')).statusCode, 404);
    // An emit without an acknowledgement is handled without harm.
    c.socket.emit('get', { url: '/badge', headers: KEYS });
    c.socket.emit('post');
    assert.ok(c.socket.connected);
    assert.equal((await u.request('post', '/badge')).statusCode, 200);
  });
});
