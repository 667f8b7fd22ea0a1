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
    a = await server.user('ra');
    b = await server.user('rb');
    c = await server.user('rc');
  });
  after(() => server.stop());

  test('creating a room makes the creator and invited clients members and pushes "joined" to them', async () => {
    const joinedB = b.next('joined');
    const joinedA = a.collect('joined');
    const room = await a.ok('post', '/room', { name: 'team', isPublic: true, client: [{ clientID: 'rb' }], data: { topic: 1 } });
    assert.deepEqual(room.client.map((x) => x.clientID), ['ra', 'rb']);
    assert.equal(room.isPublic, true);
    assert.deepEqual(room.data, { topic: 1 });
    assert.deepEqual(room.message, []);
    assert.equal(room.lastMessageTime, room.createdAt);
    assert.equal((await joinedB).id, room.id);
    await sleep(50);
    assert.equal(joinedA.length, 0, 'the requesting socket has its answer and gets no push');
    const bad = await a.request('post', '/room', { name: 'x', client: [{ clientID: 'ghost' }] });
    assert.equal(bad.statusCode, 404);
  });

  test('createAndJoinWithClient reuses the pair room unless "duplicate" or "forceCreate" is set', async () => {
    const first = await a.ok('get', '/room/createAndJoinWithClient/rc', { name: 'pair' });
    const same = await a.ok('get', '/room/createAndJoinWithClient/rc', { name: 'pair', duplicate: 0 });
    assert.equal(same.id, first.id);
    const byServerId = await a.ok('get', `/room/createAndJoinWithClient/${c.id}`, {});
    assert.equal(byServerId.id, first.id);
    const dup = await a.ok('get', '/room/createAndJoinWithClient/rc', { name: 'pair', duplicate: 1 });
    assert.notEqual(dup.id, first.id);
    const forced = await a.ok('get', '/room/createAndJoinWithClient/rc', { name: 'pair', forceCreate: true });
    assert.notEqual(forced.id, first.id);
    assert.notEqual(forced.id, dup.id);
    assert.equal((await a.request('get', '/room/createAndJoinWithClient/nobody', {})).statusCode, 404);
    assert.equal((await a.request('get', '/room/createAndJoinWithClient/ra', {})).statusCode, 400);
  });

  test('public rooms can be joined, private ones not; members only read a room', async () => {
    const pub = await a.ok('post', '/room', { name: 'open', isPublic: true });
    const priv = await a.ok('post', '/room', { name: 'closed' });
    assert.equal((await c.request('get', `/room/${pub.id}`)).statusCode, 403);
    const joinedA = a.next('joined');
    const joined = await c.ok('post', '/room/join', { id: pub.id, name: 'ignored' });
    assert.deepEqual(joined.client.map((x) => x.clientID), ['ra', 'rc']);
    assert.equal((await joinedA).id, pub.id);
    const again = await c.ok('post', '/room/join', { id: pub.id });
    assert.equal(again.client.length, 2, 'joining twice adds nothing');
    assert.equal((await c.ok('get', `/room/${pub.id}`)).name, 'open');
    assert.equal((await c.request('post', '/room/join', { id: priv.id })).statusCode, 403);
    assert.equal((await c.request('get', `/room/${priv.id}`)).statusCode, 403);
    assert.equal((await c.request('post', '/room/join', { id: 'missing' })).statusCode, 404);
    assert.equal((await c.request('post', '/room/join', {})).statusCode, 400);
    assert.equal((await c.request('get', '/room/missing')).statusCode, 404);
  });

  test('an agent takes a room that asked for one; the need-agent list and agent filters', async () => {
    const s = await startServer();
    try {
      const cust = await s.user('cust');
      const agent = await s.user('agent');
      const other = await s.user('agent2');
      const r1 = await cust.ok('post', '/room', { name: 'help 1', data: { needAgent: true, county: 3, type: 0 } });
      const r2 = await cust.ok('post', '/room', { name: 'help 2', data: { needAgent: true, county: 4, type: 5 } });
      await cust.ok('post', '/room', { name: 'chat', data: { county: 3 } });
      assert.deepEqual((await agent.ok('get', '/room/needAgentList')).map((r) => r.name), ['help 2', 'help 1']);
      assert.deepEqual((await agent.ok('get', '/room/needAgentList?county=3&type=0')).map((r) => r.name), ['help 1']);
      assert.deepEqual((await agent.ok('get', '/room/needAgentList?type=5')).map((r) => r.name), ['help 2']);
      assert.deepEqual((await agent.ok('get', '/room/needAgentList?limit=1&skip=1')).map((r) => r.name), ['help 1']);
      const listed = (await agent.ok('get', '/room/needAgentList'))[0];
      assert.deepEqual(listed.message, [], 'a non-member sees no messages');
      const joinedCust = cust.next('joined');
      const taken = await agent.ok('post', `/room/agentJoin/${r1.id}`, { id: r1.id });
      assert.equal(taken.agent, 'agent');
      assert.deepEqual(taken.client.map((x) => x.clientID), ['cust', 'agent']);
      assert.equal((await joinedCust).id, r1.id);
      assert.equal((await other.request('post', `/room/agentJoin/${r1.id}`, {})).statusCode, 403);
      assert.deepEqual((await agent.ok('get', '/room/needAgentList')).map((r) => r.name), ['help 2']);
      assert.deepEqual((await cust.ok('get', '/room/list?county=3')).map((r) => r.name).sort(), ['chat', 'help 1']);
      assert.deepEqual((await cust.ok('get', '/room/list?county=3&type=5')).map((r) => r.name), []);
      assert.deepEqual((await cust.ok('get', '/room/list?type=5')).map((r) => r.id), [r2.id]);
      assert.equal((await agent.request('post', '/room/agentJoin/missing', {})).statusCode, 404);
    } finally {
      await s.stop();
    }
  });

  test('room list pages newest first by offset and walks forward from a last-message time', async () => {
    const s = await startServer();
    try {
      const u = await s.user('lister');
      const rooms = [];
      for (let i = 0; i < 5; i++) {
        rooms.push(await u.ok('post', '/room', { name: `room${i}` }));
        await sleep(3);
      }
      for (const i of [2, 0, 4, 1, 3]) {
        await u.ok('post', '/message/', { room: rooms[i].id, message: `m${i}` });
        await sleep(3);
      }
      const names = (list) => list.map((r) => r.name);
      assert.deepEqual(names(await u.ok('get', '/room/list?offset=0&limit=2')), ['room3', 'room1']);
      assert.deepEqual(names(await u.ok('get', '/room/list?offset=2&limit=2')), ['room4', 'room0']);
      assert.deepEqual(names(await u.ok('get', '/room/list?offset=4&limit=2')), ['room2']);
      // The keep-up-to-date walk: oldest first after the given time, page by page.
      const page1 = await u.ok('get', '/room/list?lastMessageTime=(null)&&limit=2&&offset=0&&sort=updatedAt ASC');
      assert.deepEqual(names(page1), ['room2', 'room0']);
      const from = encodeURIComponent(page1[1].lastMessageTime);
      const page2 = await u.ok('get', `/room/list?lastMessageTime=${from}&&limit=2&&offset=0&&sort=updatedAt ASC`);
      assert.deepEqual(names(page2), ['room4', 'room1']);
      const raw = page2[1].lastMessageTime; // sent unescaped, as the client formats it
      const page3 = await u.ok('get', `/room/list?lastMessageTime=${raw}&&limit=2&&offset=0&&sort=updatedAt ASC`);
      assert.deepEqual(names(page3), ['room3']);
      assert.equal((await u.request('get', '/room/list?lastMessageTime=yesterday&&limit=2')).statusCode, 400);
      assert.equal((await u.request('get', '/room/list?offset=x&limit=2')).statusCode, 400);
    } finally {
      await s.stop();
    }
  });

  test('archiving marks the room for the client, tells its other sockets, and a new message restores it', async () => {
    const room = await a.ok('get', '/room/createAndJoinWithClient/rb', { forceCreate: 1 });
    const second = await server.connect();
    second.clientID = 'ra';
    second.token = a.token;
    await second.ok('post', '/client/chatin/');
    const pushed = second.next('roomDidUpadte');
    const archived = await a.ok('put', `/rooms/${room.id}/archive`);
    assert.deepEqual(archived.archivedBy, ['ra']);
    assert.deepEqual((await pushed).archivedBy, ['ra']);
    assert.equal((await c.request('put', `/rooms/${room.id}/archive`)).statusCode, 403);
    await b.ok('post', '/message/', { room: room.id, message: 'back' });
    assert.deepEqual((await a.ok('get', `/room/${room.id}`)).archivedBy, []);
  });
});
