'use strict';
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { spawn } = require('node:child_process');
const path = require('node:path');
const { startServer, sleep } = require('./helpers');

describe('fault switches', () => {
  let server;
  let u;
  const control = async (method, route, body) => {
    const res = await fetch(`${server.url}/__control/${route}`, {
      method, body: body === undefined ? undefined : JSON.stringify(body), signal: AbortSignal.timeout(3000),
    });
    const text = await res.text();
    return { status: res.status, body: res.headers.get('content-type').includes('json') ? JSON.parse(text) : text };
  };
  before(async () => {
    server = await startServer({ testControl: true });
    u = await server.user('ctl');
  });
  after(() => server.stop());

  test('drop: the request is handled but never acknowledged; "handle": false skips it too', async () => {
    const rule = await control('POST', 'faults', { path: '/room', method: 'post', action: 'drop', times: 1 });
    assert.equal(rule.status, 200);
    await assert.rejects(u.request('post', '/room', { name: 'dropped' }, undefined, { timeout: 300 }));
    assert.deepEqual((await u.ok('get', '/Room/?offset=0&limit=10&sort=name')).map((r) => r.name), ['dropped']);
    assert.equal((await u.request('post', '/room', { name: 'answered' })).statusCode, 200, '"times" ends the rule');
    await control('POST', 'faults', { path: '/room', action: 'drop', handle: false, times: 1 });
    await assert.rejects(u.request('post', '/room', { name: 'never' }, undefined, { timeout: 300 }));
    assert.ok(!(await u.ok('get', '/Room/?offset=0&limit=10&sort=name')).some((r) => r.name === 'never'));
  });

  test('delay answers late; status answers a chosen status without handling', async () => {
    await control('POST', 'faults', { path: '/badge', action: 'delay', ms: 300 });
    const t0 = Date.now();
    assert.equal((await u.request('post', '/badge')).statusCode, 200);
    assert.ok(Date.now() - t0 >= 280);
    await control('DELETE', 'faults');
    await control('POST', 'faults', { path: '/message', prefix: true, method: 'get', action: 'status', status: 503, body: 'busy' });
    assert.deepEqual(await u.request('get', '/message/?room=x&offset=0&limit=1'), { statusCode: 503, body: 'busy' });
    assert.equal((await u.request('post', '/message/', { room: 'x' })).statusCode, 404, 'other methods pass');
    const listed = await control('GET', 'faults');
    assert.equal(listed.body.length, 1);
    assert.equal((await control('DELETE', `faults/${listed.body[0].id}`)).status, 200);
    assert.equal((await u.request('get', '/message/?room=x&offset=0&limit=1')).statusCode, 404);
    // Plain HTTP routes obey the same switches.
    await control('POST', 'faults', { path: '/files/upload', action: 'status', status: 500, times: 1 });
    assert.equal((await fetch(`${server.url}/files/upload`, { method: 'POST', signal: AbortSignal.timeout(3000) })).status, 500);
    assert.equal((await control('POST', 'faults', { path: 'no-slash', action: 'drop' })).status, 400);
    assert.equal((await control('POST', 'faults', { path: '/x', action: 'explode' })).status, 400);
    assert.equal((await control('POST', 'faults', { path: '/x', action: 'delay' })).status, 400);
  });

  test('disconnect drops the sockets of a client; stats count connections', async () => {
    const v = await server.user('victim');
    const gone = v.next('disconnect');
    const res = await control('POST', 'disconnect', { clientID: 'victim' });
    assert.deepEqual(res.body, { disconnected: 1 });
    assert.equal(await gone, 'io server disconnect');
    assert.equal((await control('POST', 'disconnect', {})).status, 400);
    assert.ok((await control('GET', 'stats')).body.connections >= 1);
  });

  test('without the switch there is no control channel', async () => {
    const plain = await startServer();
    try {
      const res = await fetch(`${plain.url}/__control/stats`, { signal: AbortSignal.timeout(3000) });
      assert.equal(res.status, 404);
    } finally {
      await plain.stop();
    }
  });
});

test('the command line prints the listening line and stops on SIGTERM', async () => {
  const child = spawn(process.execPath, [path.join(__dirname, '..', 'index.js'), '--port', '0', '--api-key', 'k', '--client-key', 'c', '--test-control'], { stdio: ['ignore', 'pipe', 'pipe'] });
  try {
    const url = await new Promise((resolve, reject) => {
      let out = '';
      const t = setTimeout(() => reject(new Error(`no listening line: ${out}`)), 5000);
      child.stdout.on('data', (d) => {
        out += d;
        const m = /^parlo-server listening on (http:\/\/127\.0\.0\.1:(\d+))$/m.exec(out);
        if (m) {
          clearTimeout(t);
          resolve(m[1]);
        }
      });
    });
    const res = await fetch(`${url}/__control/stats`, { signal: AbortSignal.timeout(3000) });
    assert.equal(res.status, 200);
  } finally {
    child.kill('SIGTERM');
  }
  const code = await new Promise((resolve) => child.once('exit', resolve));
  assert.equal(code, 0);
  const bad = spawn(process.execPath, [path.join(__dirname, '..', 'index.js'), '--port', 'abc'], { stdio: 'ignore' });
  assert.equal(await new Promise((resolve) => bad.once('exit', resolve)), 2);
  await sleep(0);
});
