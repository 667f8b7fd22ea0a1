'use strict';
// Strict mode: sign-up and HTTP chat-in need an identity token from the host's backend (a JWT
// signed with the shared secret, "sub" = the client id), and tokens end at chat-out.
const { test, describe, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { SignJWT } = require('jose');
const { startServer, signal } = require('./helpers');

const SECRET = 'host-backend-shared-secret';
const identity = (sub, { expires = '5m', secret = SECRET } = {}) => new SignJWT({})
  .setProtectedHeader({ alg: 'HS256' }).setSubject(sub).setIssuedAt().setExpirationTime(expires)
  .sign(new TextEncoder().encode(secret));

describe('strict mode', () => {
  let server;
  before(async () => { server = await startServer({ strict: true, identitySecret: SECRET }); });
  after(() => server.stop());

  const signUp = async (c, clientID, identityToken) => c.request('post', '/client/', { clientID }, { clientID, identityToken });

  test('sign-up needs an identity token for that very client id, still valid, from the host\'s secret', async () => {
    const c = await server.connect();
    const past = Math.floor(Date.now() / 1000) - 60;
    for (const [token, status] of [
      [undefined, 401],
      [await identity('someone-else'), 403],
      [await identity('s-a', { expires: past }), 401],
      [await identity('s-a', { secret: 'guessed' }), 401],
      ['not.a.jwt', 401],
    ]) {
      assert.equal((await signUp(c, 's-a', token)).statusCode, status, String(token).slice(0, 20));
    }
    assert.equal(await server.store.transaction((tx) => tx.client('s-a')), null, 'a refused sign-up adds nobody');
    const ok = await signUp(c, 's-a', await identity('s-a'));
    assert.equal(ok.statusCode, 200);
    assert.match(ok.body.token, /^[0-9a-f]{48}$/);
  });

  test('HTTP chat-in needs the identity token too; chat-out ends the token for every socket', async () => {
    const [c, other] = [await server.connect(), await server.connect()];
    const { body: me } = await signUp(c, 's-b', await identity('s-b'));
    Object.assign(c, { clientID: 's-b', token: me.token });
    Object.assign(other, { clientID: 's-b', token: me.token });
    await other.ok('post', '/badge');
    const chatIn = (identityToken) => fetch(`${server.url}/client/chatin/s-b/`, {
      method: 'POST', headers: { ...c.headers(), ...(identityToken && { identityToken }) }, signal: signal(),
    }).then((r) => r.status);
    assert.equal(await chatIn(), 401);
    assert.equal(await chatIn(await identity('s-a')), 403);
    assert.equal(await chatIn(await identity('s-b')), 200);

    await c.ok('post', '/client/chatout/', { token: '' });
    assert.equal((await c.request('post', '/badge')).statusCode, 401, 'the old token is gone');
    assert.equal((await other.raw('post', { url: '/badge' })).statusCode, 401, 'so is the socket that proved it');
    const again = await signUp(c, 's-b', await identity('s-b'));
    assert.notEqual(again.body.token, me.token);
    c.token = again.body.token;
    assert.equal((await c.ok('post', '/client/chatin/')).clientID, 's-b');
  });
});
