'use strict';
// Starts a server on a free loopback port and drives it the way the kit's client does.
const { io } = require('socket.io-client');
const { createServer } = require('../src/server');

const KEYS = { apiKey: 'test-api', clientKey: 'test-client' };
const WAIT_MS = 3000;

async function startServer(extra = {}) {
  const server = await createServer({ port: 0, ...KEYS, quiet: true, ...extra });
  const sockets = [];
  server.connect = (opts = {}) => new Promise((resolve, reject) => {
    const s = io(server.url, { transports: ['websocket'], reconnection: false, forceNew: true, ...opts });
    sockets.push(s);
    const t = setTimeout(() => reject(new Error('connect timed out')), WAIT_MS);
    s.once('connect', () => {
      clearTimeout(t);
      resolve(wrap(s));
    });
    s.once('connect_error', (e) => {
      clearTimeout(t);
      reject(e);
    });
  });
  /** A connected, signed-up client: { socket, clientID, token, request(), ... }. */
  server.user = async (clientID, profile = {}) => {
    const c = await server.connect();
    const res = await c.request('post', '/client/', { clientID, username: clientID, ...profile }, { clientID });
    if (res.statusCode !== 200) throw new Error(`sign-up failed: ${JSON.stringify(res)}`);
    c.clientID = clientID;
    c.token = res.body.token;
    c.id = res.body.id;
    return c;
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
    headers(over = {}) {
      return { ...KEYS, clientID: c.clientID, token: c.token, ...over };
    },
    /** Emits a virtual request and resolves to the acknowledgement {statusCode, body}. */
    request(method, url, data, headerOver, { timeout = WAIT_MS } = {}) {
      const env = { url, headers: c.headers(headerOver) };
      if (data !== undefined) env.data = data;
      return c.raw(method, env, timeout);
    },
    raw(method, env, timeout = WAIT_MS) {
      return socket.timeout(timeout).emitWithAck(method, env);
    },
    /** Resolves with the next `event` payload, or rejects after `ms`. */
    next(event, ms = WAIT_MS) {
      return new Promise((resolve, reject) => {
        const t = setTimeout(() => {
          socket.off(event, on);
          reject(new Error(`no "${event}" within ${ms} ms`));
        }, ms);
        const on = (payload) => {
          clearTimeout(t);
          resolve(payload);
        };
        socket.once(event, on);
      });
    },
    /** Collects every `event` payload from now on. */
    collect(event) {
      const got = [];
      socket.on(event, (p) => got.push(p));
      return got;
    },
    async ok(method, url, data, headerOver) {
      const res = await c.request(method, url, data, headerOver);
      if (res.statusCode !== 200) throw new Error(`${method} ${url} answered ${res.statusCode}: ${JSON.stringify(res.body)}`);
      return res.body;
    },
  };
  return c;
}

const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

module.exports = { startServer, KEYS, sleep };
