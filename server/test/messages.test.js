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
    a = await server.user('ma');
    b = await server.user('mb');
    outsider = await server.user('mx');
    room = await a.ok('post', '/room', { name: 'talk', client: [{ clientID: 'mb' }] });
  });
  after(() => server.stop());

  test('a new message is pushed to every member with that member\'s room and badge', async () => {
    const toA = a.next('message');
    const toB = b.next('message');
    const quiet = outsider.collect('message');
    const sent = await a.ok('post', '/message/', {
      room: room.id, sender: 'forged', message: 'hello', messageType: 'text', idFromSender: 4294967295,
      option: { needToPush: true, badgeIncrease: false, pushMessage: 'ma:hello' }, sendingType: 1,
    });
    assert.equal(sent.sender.clientID, 'ma', 'the sender is the signed-in client, whatever the body says');
    assert.equal(sent.idFromSender, 4294967295);
    assert.equal(sent.room.id, room.id);
    assert.equal(sent.sendingType, undefined);
    const [pa, pb] = await Promise.all([toA, toB]);
    assert.equal(pa.id, sent.id);
    assert.equal(pa.idFromSender, 4294967295, 'the own echo carries idFromSender');
    assert.equal(pa.totalBadge, 0);
    assert.equal(pa.room.badge, 0);
    assert.equal(pb.totalBadge, 1);
    assert.equal(pb.room.badge, 1);
    assert.equal(pb.room.message[0].id, sent.id);
    assert.equal(pb.room.lastMessageTime, sent.createdAt);
    assert.equal(pb.room.sender.clientID, 'ma');
    assert.deepEqual(pb.option, { needToPush: true, badgeIncrease: false, pushMessage: 'ma:hello' });
    await sleep(50);
    assert.equal(quiet.length, 0);
  });

  test('only members write and read a room; types are checked', async () => {
    assert.equal((await outsider.request('post', '/message/', { room: room.id, message: 'x' })).statusCode, 403);
    assert.equal((await outsider.request('get', `/message/?room=${room.id}&offset=0&limit=10`)).statusCode, 403);
    assert.equal((await a.request('post', '/message/', { room: room.id, messageType: 'bogus' })).statusCode, 400);
    assert.equal((await a.request('post', '/message/', { room: room.id, messageType: 'delete' })).statusCode, 400);
    assert.equal((await a.request('post', '/message/', { room: room.id, message: 'x'.repeat(20001) })).statusCode, 413);
    assert.equal((await a.request('post', '/message/', { room: room.id, idFromSender: 'abc' })).statusCode, 400);
    assert.equal((await a.request('post', '/message/', { room: room.id, option: [1] })).statusCode, 400);
    const geo = await a.ok('post', '/message/', { room: { id: room.id }, message: '25.0,121.5', messageType: 'GEO' });
    assert.equal(geo.messageType, 'GEO');
  });

  test('pages hold the newest messages before an offset or a pin date, oldest first', async () => {
    const s = await startServer();
    try {
      const u = await s.user('pager');
      const r = await u.ok('post', '/room', { name: 'history' });
      const sent = [];
      for (let i = 0; i < 7; i++) {
        sent.push(await u.ok('post', '/message/', { room: r.id, message: `m${i}` }));
        if (i === 3) await sleep(5);
      }
      const texts = (list) => list.map((m) => m.message);
      assert.deepEqual(texts(await u.ok('get', `/message/?room=${r.id}&offset=0&limit=3`)), ['m4', 'm5', 'm6']);
      assert.deepEqual(texts(await u.ok('get', `/message/?room=${r.id}&offset=3&limit=3`)), ['m1', 'm2', 'm3']);
      assert.deepEqual(texts(await u.ok('get', `/message/?room=${r.id}&offset=6&limit=3`)), ['m0']);
      assert.deepEqual(texts(await u.ok('get', `/message/?room=${r.id}&offset=9&limit=3`)), []);
      const pin = sent[4].createdAt;
      assert.deepEqual(texts(await u.ok('get', `/message/?room=${r.id}&pinDate=${pin}&limit=2`)), ['m2', 'm3']);
      assert.deepEqual(texts(await u.ok('get', `/message/?room=${r.id}&pinDate=${pin}&limit=40`)), ['m0', 'm1', 'm2', 'm3']);
      assert.equal((await u.request('get', `/message/?room=${r.id}&pinDate=soon&limit=2`)).statusCode, 400);
      assert.equal((await u.request('get', '/message/?offset=0&limit=2')).statusCode, 400);
    } finally {
      await s.stop();
    }
  });

  test('updates and deletions are pushed as "didUpdateMessage"; only the sender may change a message', async () => {
    const m = await a.ok('post', '/message/', { room: room.id, message: 'draft' });
    const toB = b.next('didUpdateMessage');
    const edited = await a.ok('put', `/message/${m.id}`, { message: 'final', messageType: 'text', room: { id: room.id } });
    assert.equal(edited.message, 'final');
    assert.equal((await toB).message, 'final');
    assert.equal((await b.request('put', `/message/${m.id}`, { message: 'hijack' })).statusCode, 403);
    assert.equal((await outsider.request('put', `/message/${m.id}`, { message: 'hijack' })).statusCode, 403);
    assert.equal((await a.request('put', '/message/missing', { message: 'x' })).statusCode, 404);
    // The client sends updates without headers: the socket's signed-in client is used.
    const delToB = b.next('didUpdateMessage');
    const gone = await a.raw('put', { url: `/message/${m.id}`, data: { message: 'final', messageType: 'delete' } });
    assert.equal(gone.statusCode, 200);
    assert.equal(gone.body.messageType, 'delete');
    assert.equal(gone.body.message, '');
    assert.equal((await delToB).messageType, 'delete');
    assert.equal((await a.request('put', `/message/${m.id}`, { messageType: 'text' })).statusCode, 400);
    const page = await b.ok('get', `/message/?room=${room.id}&offset=0&limit=1`);
    assert.equal(page[0].messageType, 'delete', 'deleted messages stay in the history');
    const fresh = await server.connect();
    assert.equal((await fresh.raw('put', { url: `/message/${m.id}`, data: {} })).statusCode, 401);
  });

  test('read reports clear the unread count and echo read times to the other members on request', async () => {
    const r = await a.ok('post', '/room', { name: 'reads', client: [{ clientID: 'mb' }] });
    await a.ok('post', '/message/', { room: r.id, message: '1' });
    await a.ok('post', '/message/', { room: r.id, message: '2' });
    const before = (await b.ok('post', '/badge')).total;
    const silent = a.collect('receive');
    const quiet = await b.ok('put', `/room/receive/${r.id}`, { echo: 0 });
    assert.equal(quiet.badge, 0);
    assert.ok(quiet.readTime.mb);
    assert.equal((await b.ok('post', '/badge')).total, before - 2);
    await sleep(50);
    assert.equal(silent.length, 0);
    const echoed = a.next('receive');
    await b.ok('put', `/room/receive/${r.id}`, { echo: 1 });
    const receipt = await echoed;
    assert.equal(receipt.id, r.id);
    assert.deepEqual(Object.keys(receipt.readTime).sort(), ['ma', 'mb']);
    assert.equal((await outsider.request('put', `/room/receive/${r.id}`, { echo: 1 })).statusCode, 403);
  });

  test('unseen count: messages from others after the last-seen date up to the message date', async () => {
    const r = await a.ok('post', '/room', { name: 'unseen', client: [{ clientID: 'mb' }] });
    const m = [];
    for (let i = 0; i < 4; i++) {
      m.push(await a.ok('post', '/message/', { room: r.id, message: `${i}` }));
      await sleep(3);
    }
    await b.ok('post', '/message/', { room: r.id, message: 'own' });
    const url = (seen, upTo) => `/messages/unseenCount?room=${r.id}&messageDate=${upTo}&lastSeenDate=${seen}`;
    assert.deepEqual(await b.ok('get', url(m[0].createdAt, m[3].createdAt)), { count: 3 });
    assert.deepEqual(await b.ok('get', url(m[1].createdAt, m[2].createdAt)), { count: 1 });
    assert.deepEqual(await b.ok('get', url('', '')), { count: 4 });
    assert.deepEqual(await a.ok('get', url('', '')), { count: 1 });
    assert.equal((await b.request('get', url('never', ''))).statusCode, 400);
    assert.equal((await outsider.request('get', url('', ''))).statusCode, 403);
  });
});
