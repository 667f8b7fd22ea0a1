'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { startServer, sleep } = require('./helpers');

describe('messages', () => {
  let server;
  let a;
  let b;
  let outsider;
  let room;
  before(async () => {
    server = await startServer();
    [a, b, outsider] = [await server.user('ma'), await server.user('mb'), await server.user('mx')];
    room = await a.ok('post', '/room', { name: 'talk', client: [{ clientID: 'mb' }] });
  });
  after(() => server.stop());

  test('a new message reaches every member with that member\'s room and badge', async () => {
    const [toA, toB] = [a.next('message'), b.next('message')];
    const quiet = outsider.collect('message');
    const option = { needToPush: true, badgeIncrease: false, pushMessage: 'ma:hello' };
    const sent = await a.ok('post', '/message/', { room: room.id, sender: 'forged', message: 'hello', idFromSender: 4294967295, option });
    assert.deepEqual([sent.sender.clientID, sent.room.id, sent.messageType], ['ma', room.id, 'text']);
    const [pa, pb] = await Promise.all([toA, toB]);
    assert.deepEqual([pa.id, pa.idFromSender, pa.totalBadge, pa.room.badge], [sent.id, 4294967295, 0, 0]);
    assert.deepEqual([pb.totalBadge, pb.room.badge, pb.room.message[0].id], [1, 1, sent.id]);
    assert.deepEqual([pb.room.lastMessageTime, pb.room.sender.clientID, pb.option], [sent.createdAt, 'ma', option]);
    await sleep(50);
    assert.equal(quiet.length, 0);
  });

  test('a re-send (same sender, idFromSender, room, type and text) answers the stored message and echoes it only to the asking socket', async () => {
    const r = await a.ok('post', '/room', { name: 'resend', client: [{ clientID: 'mb' }] });
    const otherSocket = Object.assign(await server.connect(), { clientID: 'ma', token: a.token });
    await otherSocket.ok('post', '/badge');
    const [toB, toOtherSocket] = [b.collect('message'), otherSocket.collect('message')];
    const body = { room: r.id, message: 'once', idFromSender: 99 };
    const first = await a.ok('post', '/message/', body);
    const echo = a.next('message');
    assert.equal((await a.ok('post', '/message/', body)).id, first.id);
    assert.equal((await echo).id, first.id);
    // Random 32-bit ids recur over a busy sender's history: other text under the same id is a new message.
    assert.notEqual((await a.ok('post', '/message/', { ...body, message: 'reused id' })).id, first.id);
    await sleep(50);
    for (const got of [toB, toOtherSocket]) assert.deepEqual(got.map((m) => m.message), ['once', 'reused id']);
    assert.deepEqual((await b.ok('get', `/message/?room=${r.id}&offset=0&limit=10`)).map((m) => m.message), ['once', 'reused id']);
    assert.equal((await b.ok('get', `/room/${r.id}`)).badge, 2);
  });

  test('only members write and read a room; message types and sizes are checked', async () => {
    assert.equal((await outsider.request('post', '/message/', { room: room.id, message: 'x' })).statusCode, 403);
    assert.equal((await outsider.request('get', `/message/?room=${room.id}&offset=0&limit=10`)).statusCode, 403);
    for (const [body, status] of [[{ messageType: 'bogus' }, 400], [{ messageType: 'delete' }, 400], [{ message: 'x'.repeat(20001) }, 413]]) {
      assert.equal((await a.request('post', '/message/', { room: room.id, ...body })).statusCode, status);
    }
    assert.equal((await a.ok('post', '/message/', { room: { id: room.id }, messageType: 'GEO' })).messageType, 'GEO');
  });

  test('history pages: the newest messages before an offset or a pin date, oldest first', async () => {
    const r = await a.ok('post', '/room', { name: 'history' });
    const sent = [];
    for (let i = 0; i < 7; i++) {
      if (i === 4) await sleep(5);
      sent.push(await a.ok('post', '/message/', { room: r.id, message: `m${i}` }));
    }
    const texts = async (q) => (await a.ok('get', `/message/?room=${r.id}&${q}`)).map((m) => m.message);
    assert.deepEqual(await texts('offset=0&limit=3'), ['m4', 'm5', 'm6']);
    assert.deepEqual(await texts('offset=3&limit=3'), ['m1', 'm2', 'm3']);
    assert.deepEqual(await texts('offset=6&limit=3'), ['m0']);
    assert.deepEqual(await texts(`pinDate=${sent[4].createdAt}&limit=2`), ['m2', 'm3']);
    assert.deepEqual(await texts(`pinDate=${sent[4].createdAt}&limit=40`), ['m0', 'm1', 'm2', 'm3']);
    assert.equal((await a.request('get', `/message/?room=${r.id}&pinDate=soon&limit=2`)).statusCode, 400);
  });

  test('senders update and delete messages, members hear "didUpdateMessage"', async () => {
    const m = await a.ok('post', '/message/', { room: room.id, message: 'draft' });
    const toB = b.next('didUpdateMessage');
    assert.equal((await a.ok('put', `/message/${m.id}`, { message: 'final', room: { id: room.id } })).message, 'final');
    assert.equal((await toB).message, 'final');
    assert.equal((await b.request('put', `/message/${m.id}`, { message: 'hijack' })).statusCode, 403);
    // Updates come without headers: the socket's signed-in client is used.
    const delToB = b.next('didUpdateMessage');
    const gone = await a.raw('put', { url: `/message/${m.id}`, data: { message: 'final', messageType: 'delete' } });
    assert.deepEqual([gone.statusCode, gone.body.messageType, gone.body.message], [200, 'delete', '']);
    assert.equal((await delToB).messageType, 'delete');
    assert.equal((await a.request('put', `/message/${m.id}`, { messageType: 'text' })).statusCode, 400);
    assert.equal((await b.ok('get', `/message/?room=${room.id}&offset=0&limit=1`))[0].id, m.id, 'deleted messages stay listed');
    const fresh = await server.connect();
    assert.equal((await fresh.raw('put', { url: `/message/${m.id}`, data: {} })).statusCode, 401);
  });

  test('read reports clear the unread count and echo read times when asked', async () => {
    const r = await a.ok('post', '/room', { name: 'reads', client: [{ clientID: 'mb' }] });
    await a.ok('post', '/message/', { room: r.id, message: '1' });
    await a.ok('post', '/message/', { room: r.id, message: '2' });
    const before = (await b.ok('post', '/badge')).total;
    const silent = a.collect('receive');
    const answer = await b.ok('put', `/room/receive/${r.id}`, { echo: 0 });
    assert.ok(answer.badge === 0 && answer.readTime.mb);
    assert.equal((await b.ok('post', '/badge')).total, before - 2);
    await sleep(50);
    assert.equal(silent.length, 0);
    const echoed = a.next('receive');
    await b.ok('put', `/room/receive/${r.id}`, { echo: 1 });
    const receipt = await echoed;
    assert.deepEqual([receipt.id, Object.keys(receipt.readTime).sort()], [r.id, ['ma', 'mb']]);
  });

  test('unseen count: others\' messages after the last-seen date up to the message date', async () => {
    const r = await a.ok('post', '/room', { name: 'unseen', client: [{ clientID: 'mb' }] });
    const m = [];
    for (let i = 0; i < 4; i++) {
      await sleep(3);
      m.push(await a.ok('post', '/message/', { room: r.id, message: `${i}` }));
    }
    await b.ok('post', '/message/', { room: r.id, message: 'own' });
    const count = async (u, seen, upTo) => (await u.ok('get', `/messages/unseenCount?room=${r.id}&messageDate=${upTo}&lastSeenDate=${seen}`)).count;
    assert.equal(await count(b, m[0].createdAt, m[3].createdAt), 3);
    assert.equal(await count(b, m[1].createdAt, m[2].createdAt), 1);
    assert.equal(await count(b, '', ''), 4);
    assert.equal(await count(a, '', ''), 1);
  });
});
