'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const http = require('node:http');
const { startServer, spawnServer, exited } = require('./helpers');

const signal = () => AbortSignal.timeout(3000);

describe('fault switches', () => {
  let server;
  let u;
  const control = async (method, route, body) => {
    const res = await fetch(`${server.url}/__control/${route}`, { method, body: body && JSON.stringify(body), signal: signal() });
    const text = await res.text();
    return { status: res.status, body: res.headers.get('content-type').includes('json') ? JSON.parse(text) : text };
  };
  const roomNames = async () => (await u.ok('get', '/Room/?offset=0&limit=10&sort=name')).map((r) => r.name);
  before(async () => {
    server = await startServer({ testControl: true });
    u = await server.user('ctl');
  });
  after(() => server.stop());

  test('drop handles the request but never acknowledges it, for "times" hits', async () => {
    assert.equal((await control('POST', 'faults', { path: '/room', method: 'post', action: 'drop', times: 1 })).status, 200);
    await assert.rejects(u.request('post', '/room', { name: 'dropped' }, undefined, 150));
    assert.deepEqual(await roomNames(), ['dropped']);
    assert.equal((await u.request('post', '/room', { name: 'answered' })).statusCode, 200);
    await control('POST', 'faults', { path: '/room', action: 'drop', handle: false, times: 1 });
    await assert.rejects(u.request('post', '/room', { name: 'never' }, undefined, 150));
    assert.deepEqual(await roomNames(), ['answered', 'dropped']);
  });

  test('delay answers late; status answers a chosen status, also on plain HTTP', async () => {
    await control('POST', 'faults', { path: '/badge', action: 'delay', ms: 120 });
    const t0 = Date.now();
    assert.equal((await u.request('post', '/badge')).statusCode, 200);
    assert.ok(Date.now() - t0 >= 110);
    await control('DELETE', 'faults');
    await control('POST', 'faults', { path: '/message', prefix: true, method: 'get', action: 'status', status: 503, body: 'busy' });
    assert.deepEqual(await u.request('get', '/message/?room=x&offset=0&limit=1'), { statusCode: 503, body: 'busy' });
    assert.equal((await u.request('post', '/message/', { room: 'x' })).statusCode, 404, 'other methods pass');
    const [rule] = (await control('GET', 'faults')).body;
    assert.equal((await control('DELETE', `faults/${rule.id}`)).status, 200);
    assert.equal((await u.request('get', '/message/?room=x&offset=0&limit=1')).statusCode, 404);
    await control('POST', 'faults', { path: '/files/upload', action: 'status', status: 500, times: 1 });
    assert.equal((await fetch(`${server.url}/files/upload`, { method: 'POST', signal: signal() })).status, 500);
    assert.equal((await control('POST', 'faults', { path: '/x', action: 'explode' })).status, 400);
  });

  test('truncate cuts a plain-HTTP answer (bytes, JSON or text) after half its announced length; acknowledgements pass', async () => {
    const boundary = '---------------------------14737809831466499882746641449';
    const bytes = Buffer.alloc(4000, 9);
    const head = `--${boundary}\r\nContent-Disposition: form-data; name="isPublic"\r\n\r\n1\r\n`
      + `--${boundary}\r\nContent-Disposition: form-data; name="file"; filename="1"\r\nContent-Type: application/octet-stream\r\n\r\n`;
    const res = await fetch(`${server.url}/files/upload`, {
      method: 'POST', body: Buffer.concat([Buffer.from(head), bytes, Buffer.from(`\r\n--${boundary}--\r\n`)]), signal: signal(),
      headers: { ...u.headers(), 'Content-Type': `multipart/form-data; boundary=${boundary}` },
    });
    const { fileName } = await res.json();
    const cut = (method, route, body) => new Promise((resolve) => {
      http.request(`${server.url}${route}`, { method, headers: u.headers() }, (r) => {
        let n = 0;
        r.on('data', (c) => { n += c.length; });
        r.on('error', () => {});
        r.on('close', () => resolve({ length: Number(r.headers['content-length']), received: n, complete: r.complete }));
      }).end(body);
    });
    for (const [method, route, body, times] of [['GET', `/files/${fileName}`, undefined, 2],
      ['POST', '/client/setDeviceToken/', '{"type":"ios","token":"cut"}', 1], ['GET', '/nowhere', undefined, 1]]) {
      await control('POST', 'faults', { path: route, action: 'truncate', times });
      const got = await cut(method, route, body);
      assert.ok(got.length >= 10 && !got.complete, `${route}: ${JSON.stringify(got)}`);
      assert.equal(got.received, got.length >> 1, route);
    }
    assert.ok((await u.request('get', `/files/${fileName}`)).body.equals(bytes));
    assert.equal((await fetch(`${server.url}/files/${fileName}`, { signal: signal() })).status, 200, 'the rule ended');
  });

  test('disconnect ends a client\'s sockets from the server side', async () => {
    const v = await server.user('victim');
    const gone = v.next('disconnect');
    assert.deepEqual((await control('POST', 'disconnect', { clientID: 'victim' })).body, { disconnected: 1 });
    assert.equal(await gone, 'io server disconnect');
  });

  test('without the switch there is no control channel; Engine.IO 3 clients are accepted', async () => {
    const plain = await startServer();
    try {
      assert.equal((await fetch(`${plain.url}/__control/stats`, { signal: signal() })).status, 404);
      const res = await fetch(`${plain.url}/socket.io/?EIO=3&transport=polling&b64=1`, { signal: signal() });
      assert.match(await res.text(), /^\d+:0\{"sid":"[^"]+"/);
    } finally {
      await plain.stop();
    }
  });
});

test('the command line prints the listening line and stops on SIGTERM', async () => {
  const { child, url } = await spawnServer(['--test-control']);
  try {
    assert.equal((await fetch(`${url}/__control/stats`, { signal: signal() })).status, 200);
  } finally {
    child.kill('SIGTERM');
  }
  assert.equal(await exited(child), 0);
});
