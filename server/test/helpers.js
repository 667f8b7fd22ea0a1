'use strict';
// Starts a server on a free loopback port and drives it the way the kit's client does.
const { io } = require('socket.io-client');
const { spawn } = require('node:child_process');
const path = require('node:path');
const { createServer } = require('../src/server');

const KEYS = { apiKey: 'test-api', clientKey: 'test-client' };
const WAIT_MS = 3000;
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

/** A Socket.IO connection to `url` as the kit's client makes it; `sockets` collects it for clean-up. */
const connect = (url, sockets = []) => new Promise((resolve, reject) => {
  const s = io(url, { transports: ['websocket'], reconnection: false, forceNew: true, timeout: WAIT_MS });
  sockets.push(s);
  s.once('connect', () => resolve(wrap(s)));
  s.once('connect_error', reject);
});

/** A connected, signed-up client. */
async function user(url, clientID, profile = {}, sockets = []) {
  const c = await connect(url, sockets);
  const body = await c.ok('post', '/client/', { clientID, username: clientID, ...profile }, { clientID });
  return Object.assign(c, { clientID, token: body.token, id: body.id });
}

/**
 * With PARLO_TEST_DB=postgres://... the servers that keep no data folder run on a fresh database
 * there each (the cluster store), so that the same tests check both stores.
 */
async function freshDatabase() {
  const base = process.env.PARLO_TEST_DB;
  if (!base) return null;
  const { Client } = require('pg');
  const name = `parlo_test_${process.pid}_${(freshDatabase.n = (freshDatabase.n || 0) + 1)}`;
  const c = new Client({ connectionString: base });
  await c.connect();
  await c.query(`DROP DATABASE IF EXISTS ${name}`);
  await c.query(`CREATE DATABASE ${name}`);
  await c.end();
  const url = new URL(base);
  url.pathname = `/${name}`;
  return url.toString();
}

async function startServer(extra = {}) {
  const db = extra.dataDir ? null : await freshDatabase();
  const server = await createServer({ port: 0, ...KEYS, ...(db && { db }), ...extra });
  const sockets = [];
  server.connect = () => connect(server.url, sockets);
  server.user = (clientID, profile) => user(server.url, clientID, profile, sockets);
  server.stop = async () => {
    for (const s of sockets) s.disconnect();
    await server.close();
  };
  return server;
}

/** Runs the command line with `args`; resolves to { child, url } once it prints its listening line. */
function spawnServer(args) {
  const child = spawn(process.execPath, [path.join(__dirname, '..', 'index.js'), '--port', '0', ...args], { stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve, reject) => {
    let out = '';
    const t = setTimeout(() => reject(new Error(`no listening line in: ${out}`)), 5000);
    child.stdout.on('data', (d) => {
      out += d;
      const m = /^parlo-server listening on (http:\/\/127\.0\.0\.1:\d+)$/m.exec(out);
      if (m) resolve({ child, url: m[1] }, clearTimeout(t));
    });
  });
}

const exited = (child) => new Promise((resolve) => child.once('exit', (code, signal) => resolve(code ?? signal)));

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

const BOUNDARY = '---------------------------14737809831466499882746641449';
const PNG = Buffer.concat([Buffer.from('89504e470d0a1a0a', 'hex'), Buffer.alloc(300, 7)]);
const signal = () => AbortSignal.timeout(3000);
const auth = (u) => ({ ...KEYS, clientID: u.clientID, token: u.token });

/** The upload form as the kit's client builds it (no closing line when there are no bytes). */
function form(fields, bytes) {
  const text = Object.entries(fields).map(([k, v]) => `--${BOUNDARY}\r\nContent-Disposition: form-data; name="${k}"\r\n\r\n${v}\r\n`).join('');
  if (!bytes) return Buffer.from(text);
  const head = `--${BOUNDARY}\r\nContent-Disposition: form-data; name="file"; filename="1"\r\nContent-Type: application/octet-stream\r\n\r\n`;
  return Buffer.concat([Buffer.from(text + head), bytes, Buffer.from(`\r\n--${BOUNDARY}--\r\n`)]);
}

/** Posts an upload form to `server` as `user`; resolves to { status, body }. */
async function upload(server, user, fields, bytes, type = `multipart/form-data; boundary=${BOUNDARY}`) {
  const res = await fetch(`${server.url}/files/upload`, { method: 'POST', headers: { ...auth(user), 'Content-Type': type }, body: form(fields, bytes), signal: signal() });
  const text = await res.text();
  return { status: res.status, body: res.headers.get('content-type').includes('json') ? JSON.parse(text) : text };
}

module.exports = {
  startServer, spawnServer, exited, connect, user, KEYS, sleep, PNG, BOUNDARY, auth, form, upload, signal,
};
