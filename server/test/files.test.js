'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const {
  startServer, KEYS, PNG, BOUNDARY, auth, upload, signal,
} = require('./helpers');


describe('files', () => {
  let server;
  let a;
  let b;
  let outsider;
  let room;
  before(async () => {
    server = await startServer({ maxUploadBytes: 4096 });
    [a, b, outsider] = [await server.user('fa'), await server.user('fb'), await server.user('fx')];
    room = await a.ok('post', '/room', { name: 'pics', client: [{ clientID: 'fb' }] });
  });
  after(() => server.stop());

  test('uploads get a server-made name; the socket route answers the bytes to members only', async () => {
    const { status, body: f } = await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG);
    assert.equal(status, 200);
    assert.match(f.fileName, /^[A-Za-z0-9]{20}\.png$/);
    assert.deepEqual([f.size, f.type, f.room, f.isPublic], [PNG.length, 'image', room.id, false]);
    const got = await b.request('get', `/files/${f.fileName}`, {});
    assert.ok(Buffer.isBuffer(got.body) && got.body.equals(PNG), 'bytes travel as a binary attachment');
    assert.equal((await outsider.request('get', `/files/${f.fileName}`, {})).statusCode, 403);
    assert.equal((await b.request('get', '/files/nothing.png', {})).statusCode, 404);
    const { body: mine } = await upload(server, a, { type: 'other', room: '', isPublic: 0 }, Buffer.from('notes'));
    assert.ok((await a.request('get', `/files/${mine.fileName}`, {})).body.equals(Buffer.from('notes')));
    assert.equal((await b.request('get', `/files/${mine.fileName}`, {})).statusCode, 403);
  });

  test('HTTP downloads need the chat-in cookie, except for public files', async () => {
    const { body: priv } = await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG);
    const { body: pub } = await upload(server, a, { type: 'image', room: '', isPublic: 1 }, PNG);
    const chatIn = async (u, id = u.clientID) => fetch(`${server.url}/client/chatin/${id}/`, { method: 'POST', headers: auth(u), signal: signal() });
    const cookie = async (u) => (await chatIn(u)).headers.get('set-cookie').split(';')[0];
    const get = (name, c) => fetch(`${server.url}/files/${name}`, { headers: c ? { Cookie: c } : {}, signal: signal() });
    assert.equal((await get(priv.fileName)).status, 401);
    const res = await get(priv.fileName, await cookie(b));
    assert.equal(res.headers.get('content-type'), 'image/png');
    assert.ok(Buffer.from(await res.arrayBuffer()).equals(PNG));
    assert.equal((await get(priv.fileName, await cookie(outsider))).status, 403);
    assert.equal((await get(priv.fileName, 'parlo.sid=deadbeef')).status, 401);
    assert.equal((await get(pub.fileName)).status, 200);
    assert.equal((await chatIn(b, 'someone-else')).status, 403);
  });

  test('uploads are refused without a token, into foreign rooms, over the limit or malformed', async () => {
    assert.equal((await upload(server, { ...a, token: 'bad' }, { room: '' }, PNG)).status, 401);
    assert.equal((await upload(server, outsider, { type: 'image', room: room.id }, PNG)).status, 403);
    const big = await upload(server, a, { type: 'image', room: '' }, Buffer.alloc(5000));
    assert.deepEqual([big.status, typeof big.body], [413, 'string']);
    assert.equal((await upload(server, a, { type: 'image', room: '' }, null)).status, 400);
    assert.equal((await upload(server, a, { type: 'image' }, PNG, 'text/plain')).status, 400);
    const junk = await fetch(`${server.url}/files/upload`, {
      method: 'POST', headers: { ...auth(a), 'Content-Type': `multipart/form-data; boundary=${BOUNDARY}` }, body: `--${BOUNDARY}\r\ngarbage`, signal: signal(),
    });
    assert.equal(junk.status, 400);
    assert.equal((await upload(server, a, { room: '', isPublic: 1 }, PNG)).status, 200, 'still serving');
  });

  test('device tokens register over HTTP and chat-out forgets the one it names', async () => {
    const post = (u, body) => fetch(`${server.url}/client/setDeviceToken/`, { method: 'POST', headers: auth(u), body, signal: signal() });
    assert.equal((await post(a, JSON.stringify({ type: 'ios', token: 'abcdef0123' }))).status, 200);
    assert.deepEqual((await server.store.transaction((tx) => tx.client('fa'))).deviceTokens, [{ type: 'ios', token: 'abcdef0123' }]);
    assert.equal((await post(a, '{not json')).status, 400);
    assert.equal((await post({ ...a, token: 'x' }, JSON.stringify({ token: 't' }))).status, 401);
    assert.equal((await post(a, JSON.stringify({ token: 'x'.repeat(70000) }))).status, 413);
    await a.ok('post', '/client/chatout/', { token: 'abcdef0123' });
    assert.deepEqual((await server.store.transaction((tx) => tx.client('fa'))).deviceTokens, []);
  });
});
