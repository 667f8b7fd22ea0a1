'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { startServer, sleep } = require('./helpers');

describe('rooms', () => {
  let server;
  let a;
  let b;
  let c;
  before(async () => {
    server = await startServer();
    [a, b, c] = [await server.user('ra'), await server.user('rb'), await server.user('rc')];
  });
  after(() => server.stop());

  test('a new room has its creator and invited members, who are told with "joined"', async () => {
    const joinedB = b.next('joined');
    const atA = a.collect('joined');
    const room = await a.ok('post', '/room', { name: 'team', isPublic: true, client: [{ clientID: 'rb' }] });
    assert.deepEqual(room.client.map((x) => x.clientID), ['ra', 'rb']);
    assert.deepEqual([room.message, room.lastMessageTime], [[], room.createdAt]);
    assert.equal((await joinedB).id, room.id);
    await sleep(50);
    assert.equal(atA.length, 0, 'the requesting socket has its answer instead');
    assert.equal((await a.request('post', '/room', { client: [{ clientID: 'ghost' }] })).statusCode, 404);
  });

  test('createAndJoinWithClient reuses the pair room unless "duplicate" or "forceCreate"', async () => {
    const first = await a.ok('get', '/room/createAndJoinWithClient/rc', { name: 'pair' });
    assert.equal((await a.ok('get', '/room/createAndJoinWithClient/rc', { duplicate: 0 })).id, first.id);
    assert.equal((await a.ok('get', `/room/createAndJoinWithClient/${c.id}`, {})).id, first.id);
    const dup = await a.ok('get', '/room/createAndJoinWithClient/rc', { duplicate: 1 });
    const forced = await a.ok('get', '/room/createAndJoinWithClient/rc', { forceCreate: true });
    assert.equal(new Set([first.id, dup.id, forced.id]).size, 3);
    assert.equal((await a.request('get', '/room/createAndJoinWithClient/ra', {})).statusCode, 400);
  });

  test('public rooms take new members; private rooms and their contents stay closed', async () => {
    const pub = await a.ok('post', '/room', { name: 'open', isPublic: true });
    const priv = await a.ok('post', '/room', { name: 'closed' });
    assert.equal((await c.request('get', `/room/${pub.id}`)).statusCode, 403);
    const toA = a.next('joined');
    assert.deepEqual((await c.ok('post', '/room/join', { id: pub.id })).client.map((x) => x.clientID), ['ra', 'rc']);
    assert.equal((await toA).id, pub.id);
    assert.equal((await c.ok('post', '/room/join', { id: pub.id })).client.length, 2, 'joining twice adds nothing');
    assert.equal((await c.request('post', '/room/join', { id: priv.id })).statusCode, 403);
    assert.equal((await c.request('get', `/room/${priv.id}`)).statusCode, 403);
    assert.equal((await c.request('post', '/room/join', { id: 'missing' })).statusCode, 404);
  });

  test('agents take rooms that ask for one, and only agents; agent filters on the lists', async () => {
    const s = await startServer({ agents: ['agent', 'agent2'] });
    try {
      const [cust, agent, other] = [await s.user('cust'), await s.user('agent'), await s.user('agent2')];
      const r1 = await cust.ok('post', '/room', { name: 'help 1', data: { needAgent: true, county: 3 } });
      await cust.ok('post', '/room', { name: 'help 2', data: { needAgent: true, county: 4, type: 5 } });
      const chat = await cust.ok('post', '/room', { name: 'chat', data: { county: 3 } });
      const outsider = await s.user('outsider');
      for (const [u, r] of [[outsider, r1], [agent, chat]]) {
        assert.equal((await u.request('post', `/room/agentJoin/${r.id}`)).statusCode, 403);
      }
      assert.equal((await outsider.request('get', `/message/?room=${r1.id}`)).statusCode, 403, 'a refused join adds no member');
      const names = async (u, q) => (await u.ok('get', q)).map((r) => r.name);
      assert.deepEqual(await names(agent, '/room/needAgentList'), ['help 2', 'help 1']);
      assert.deepEqual(await names(agent, '/room/needAgentList?county=3&type=0'), ['help 1']);
      assert.deepEqual(await names(agent, '/room/needAgentList?limit=1&skip=1'), ['help 1']);
      const toCust = cust.next('joined');
      const taken = await agent.ok('post', `/room/agentJoin/${r1.id}`, { id: r1.id });
      assert.deepEqual([taken.agent, taken.client.length, (await toCust).id], ['agent', 2, r1.id]);
      assert.equal((await other.request('post', `/room/agentJoin/${r1.id}`, {})).statusCode, 403);
      assert.deepEqual(await names(agent, '/room/needAgentList'), ['help 2']);
      assert.deepEqual((await names(cust, '/room/list?county=3')).sort(), ['chat', 'help 1']);
      assert.deepEqual(await names(cust, '/room/list?type=5'), ['help 2']);
    } finally {
      await s.stop();
    }
  });

  test('room lists page newest first by offset and walk forward from a last-message time', async () => {
    const s = await startServer();
    try {
      const u = await s.user('lister');
      const rooms = [];
      for (let i = 0; i < 5; i++) rooms.push(await u.ok('post', '/room', { name: `room${i}` }));
      for (const i of [2, 0, 4, 1, 3]) {
        await sleep(3);
        await u.ok('post', '/message/', { room: rooms[i].id, message: `m${i}` });
      }
      const names = async (q) => (await u.ok('get', `/room/list?${q}`)).map((r) => r.name);
      assert.deepEqual(await names('offset=0&limit=2'), ['room3', 'room1']);
      assert.deepEqual(await names('offset=4&limit=2'), ['room2']);
      const walk = (t) => `lastMessageTime=${t}&&limit=2&&offset=0&&sort=updatedAt ASC`;
      assert.deepEqual(await names(walk('(null)')), ['room2', 'room0']);
      const t0 = (await u.ok('get', `/room/${rooms[0].id}`)).lastMessageTime;
      assert.deepEqual(await names(walk(t0)), ['room4', 'room1']);
      assert.deepEqual(await names(walk(encodeURIComponent(t0))), ['room4', 'room1']);
      assert.equal((await u.request('get', `/room/list?${walk('yesterday')}`)).statusCode, 400);
    } finally {
      await s.stop();
    }
  });

  test('archiving is per client, tells its other sockets, and a new message undoes it', async () => {
    const room = await a.ok('get', '/room/createAndJoinWithClient/rb', { forceCreate: 1 });
    const second = Object.assign(await server.connect(), { clientID: 'ra', token: a.token });
    await second.ok('post', '/client/chatin/');
    const pushed = second.next('roomDidUpadte');
    assert.deepEqual((await a.ok('put', `/rooms/${room.id}/archive`)).archivedBy, ['ra']);
    assert.deepEqual((await pushed).archivedBy, ['ra']);
    assert.equal((await c.request('put', `/rooms/${room.id}/archive`)).statusCode, 403);
    await b.ok('post', '/message/', { room: room.id, message: 'back' });
    assert.deepEqual((await a.ok('get', `/room/${room.id}`)).archivedBy, []);
  });
});
