'use strict';
// Starts a server on a free loopback port and drives it the way the kit's client does.
const { io } = require('socket.io-client');
const { createServer } = require('../src/server');

const KEYS = { apiKey: 'test-api', clientKey: 'test-client' };
const WAIT_MS = 3000;
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

async function startServer(extra = {}) {
  const server = await createServer({ port: 0, ...KEYS, ...extra });
  const sockets = [];
  server.connect = () => new Promise((resolve, reject) => {
    const s = io(server.url, { transports: ['websocket'], reconnection: false, forceNew: true, timeout: WAIT_MS });
    sockets.push(s);
    s.once('connect', () => resolve(wrap(s)));
    s.once('connect_error', reject);
  });
  /** A connected, signed-up client. */
  server.user = async (clientID, profile = {}) => {
    const c = await server.connect();
    const body = await c.ok('post', '/client/', { clientID, username: clientID, ...profile }, { clientID });
    return Object.assign(c, { clientID, token: body.token, id: body.id });
  };
  server.stop = async () => {
    for (const s of sockets) s.disconnect();
    await server.close();
  };
  return server;
}

function wrap(socket) {
  const c = {
    socket,
    clientID: '',
    token: '',
    headers: (over) => ({ ...KEYS, clientID: c.clientID, token: c.token, ...over }),
    /** A virtual request; resolves to the acknowledgement {statusCode, body}. */
    request(method, url, data, headerOver, timeout = WAIT_MS) {
      return c.raw(method, { url, headers: c.headers(headerOver), data }, timeout);
    },
    raw: (method, env, timeout = WAIT_MS) => socket.timeout(timeout).emitWithAck(method, env),
    async ok(method, url, data, headerOver) {
      const res = await c.request(method, url, data, headerOver);
      if (res.statusCode !== 200) throw new Error(`${method} ${url} answered ${res.statusCode}: ${res.body}`);
      return res.body;
    },
    /** The next `event` payload, or a rejection after `ms`. */
    next: (event, ms = WAIT_MS) => new Promise((resolve, reject) => {
      const t = setTimeout(() => reject(new Error(`no "${event}" within ${ms} ms`)), ms);
      socket.once(event, (p) => {
        clearTimeout(t);
        resolve(p);
      });
    }),
    /** Every `event` payload from now on. */
    collect(event) {
      const got = [];
      socket.on(event, (p) => got.push(p));
      return got;
    },
  };
  return c;
}

module.exports = { startServer, KEYS, sleep };
