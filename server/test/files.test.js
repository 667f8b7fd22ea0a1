'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { startServer, KEYS } = require('./helpers');

const BOUNDARY = '---------------------------14737809831466499882746641449';
const PNG = Buffer.concat([Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]), Buffer.alloc(300, 7)]);

/** The upload form exactly as the kit's client builds it. */
function form(fields, bytes) {
  const parts = [];
  for (const [k, v] of Object.entries(fields)) {
    parts.push(Buffer.from(`--${BOUNDARY}\r\nContent-Disposition: form-data; name="${k}"\r\n\r\n${v}\r\n`));
  }
  if (bytes) {
    parts.push(Buffer.from(`--${BOUNDARY}\r\nContent-Disposition: form-data; name="file"; filename="1"\r\nContent-Type: application/octet-stream\r\n\r\n`));
    parts.push(bytes);
    parts.push(Buffer.from(`\r\n--${BOUNDARY}--\r\n`));
  }
  return Buffer.concat(parts);
}

function authHeaders(user) {
  return { apiKey: KEYS.apiKey, clientKey: KEYS.clientKey, clientID: user.clientID, token: user.token };
}

async function upload(server, user, fields, bytes, extra = {}) {
  const res = await fetch(`${server.url}/files/upload`, {
    method: 'POST',
    headers: { ...authHeaders(user), 'Content-Type': `multipart/form-data; boundary=${BOUNDARY}`, ...extra },
    body: form(fields, bytes),
    signal: AbortSignal.timeout(3000),
  });
  const text = await res.text();
  return { status: res.status, body: res.headers.get('content-type').startsWith('application/json') ? JSON.parse(text) : text };
}

async function httpChatIn(server, user) {
  const res = await fetch(`${server.url}/client/chatin/${user.clientID}/`, {
    method: 'POST', headers: { ...authHeaders(user), 'Content-Type': 'application/json' }, signal: AbortSignal.timeout(3000),
  });
  assert.equal(res.status, 200);
  const body = await res.json();
  assert.equal(body.clientID, user.clientID);
  return res.headers.get('set-cookie').split(';')[0];
}

describe('files', () => {
  let server;
  let a;
  let b;
  let outsider;
  let room;
  before(async () => {
    server = await startServer({ maxUploadBytes: 4096 });
    a = await server.user('fa');
    b = await server.user('fb');
    outsider = await server.user('fx');
    room = await a.ok('post', '/room', { name: 'pics', client: [{ clientID: 'fb' }] });
  });
  after(() => server.stop());

  test('an upload answers the file record under a name the server makes', async () => {
    const res = await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG);
    assert.equal(res.status, 200);
    const f = res.body;
    assert.match(f.fileName, /^[A-Za-z0-9]{20}\.png$/);
    assert.equal(f.size, PNG.length);
    assert.equal(f.type, 'image');
    assert.equal(f.room, room.id);
    assert.equal(f.isPublic, false);
    assert.ok(f.id && f.createdAt);
    const other = await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG);
    assert.notEqual(other.body.fileName, f.fileName);
  });

  test('the socket route answers the bytes as binary to members and the uploader only', async () => {
    const { body: f } = await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG);
    const got = await b.request('get', `/files/${f.fileName}`, {});
    assert.equal(got.statusCode, 200);
    assert.ok(Buffer.isBuffer(got.body));
    assert.ok(got.body.equals(PNG));
    assert.equal((await outsider.request('get', `/files/${f.fileName}`, {})).statusCode, 403);
    assert.equal((await b.request('get', '/files/nothing.png', {})).statusCode, 404);
    const { body: mine } = await upload(server, a, { type: 'other', room: '', isPublic: 0 }, Buffer.from('notes'));
    assert.equal(mine.room, '');
    assert.match(mine.fileName, /\.bin$/);
    assert.ok((await a.request('get', `/files/${mine.fileName}`, {})).body.equals(Buffer.from('notes')));
    assert.equal((await b.request('get', `/files/${mine.fileName}`, {})).statusCode, 403);
  });

  test('HTTP downloads need the chat-in cookie, except for public files', async () => {
    const { body: priv } = await upload(server, a, { type: 'image', room: room.id, isPublic: 0 }, PNG);
    const { body: pub } = await upload(server, a, { type: 'image', room: '', isPublic: 1 }, PNG);
    const get = (name, cookie) => fetch(`${server.url}/files/${name}`, { headers: cookie ? { Cookie: cookie } : {}, signal: AbortSignal.timeout(3000) });
    assert.equal((await get(priv.fileName)).status, 401);
    const cookieB = await httpChatIn(server, b);
    const res = await get(priv.fileName, cookieB);
    assert.equal(res.status, 200);
    assert.equal(res.headers.get('content-type'), 'image/png');
    assert.ok(Buffer.from(await res.arrayBuffer()).equals(PNG));
    const cookieX = await httpChatIn(server, outsider);
    assert.equal((await get(priv.fileName, cookieX)).status, 403);
    assert.equal((await get(priv.fileName, 'parlo.sid=deadbeef')).status, 401);
    assert.equal((await get(pub.fileName)).status, 200);
    assert.equal((await get('missing.png', cookieB)).status, 404);
    const wrongPath = await fetch(`${server.url}/client/chatin/someone-else/`, { method: 'POST', headers: authHeaders(b), signal: AbortSignal.timeout(3000) });
    assert.equal(wrongPath.status, 403);
  });

  test('uploads are refused without a token, into foreign rooms, over the size limit or malformed', async () => {
    assert.equal((await upload(server, { ...a, token: 'bad' }, { type: 'image', room: '' }, PNG)).status, 401);
    assert.equal((await upload(server, outsider, { type: 'image', room: room.id, isPublic: 0 }, PNG)).status, 403);
    assert.equal((await upload(server, a, { type: 'image', room: 'missing', isPublic: 0 }, PNG)).status, 404);
    const big = await upload(server, a, { type: 'image', room: '', isPublic: 0 }, Buffer.alloc(5000));
    assert.equal(big.status, 413);
    assert.equal(typeof big.body, 'string');
    // Without file bytes the form has no closing line: the file part is missing.
    assert.equal((await upload(server, a, { type: 'image', room: '', isPublic: 0 }, null)).status, 400);
    assert.equal((await upload(server, a, { type: 'image' }, PNG, { 'Content-Type': 'text/plain' })).status, 400);
    const junk = await fetch(`${server.url}/files/upload`, {
      method: 'POST', headers: { ...authHeaders(a), 'Content-Type': `multipart/form-data; boundary=${BOUNDARY}` },
      body: `--${BOUNDARY}\r\nContent-Disposition: garbage\r\n\r\nxx`, signal: AbortSignal.timeout(3000),
    });
    assert.equal(junk.status, 400);
    assert.equal((await upload(server, a, { type: 'image', room: '', isPublic: 1 }, PNG)).status, 200, 'still serving');
  });

  test('device tokens are registered over HTTP with the session headers', async () => {
    const post = (user, body) => fetch(`${server.url}/client/setDeviceToken/`, {
      method: 'POST', headers: { ...authHeaders(user), 'Content-Type': 'application/json' }, body, signal: AbortSignal.timeout(3000),
    });
    const ok = await post(a, JSON.stringify({ type: 'ios', token: 'abcdef0123' }));
    assert.equal(ok.status, 200);
    assert.deepEqual(await ok.json(), { type: 'ios', token: 'abcdef0123' });
    assert.deepEqual(server.store.clients.get('fa').deviceTokens, [{ type: 'ios', token: 'abcdef0123' }]);
    assert.equal((await post(a, '{not json')).status, 400);
    assert.equal((await post(a, JSON.stringify({ type: 'ios' }))).status, 400);
    assert.equal((await post({ ...a, token: 'x' }, JSON.stringify({ token: 't' }))).status, 401);
    assert.equal((await post(a, JSON.stringify({ token: 'x'.repeat(70000) }))).status, 413);
    // Chat-out forgets the device token it names.
    await a.ok('post', '/client/chatout/', { token: 'abcdef0123' });
    assert.deepEqual(server.store.clients.get('fa').deviceTokens, []);
  });
});
