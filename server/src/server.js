'use strict';
// The HTTP server with Socket.IO on it: virtual requests over the socket, a few plain-HTTP routes
// (device token, HTTP chat-in with its cookie session, file download and upload) and, when asked
// for, the test control routes under /__control/.
const http = require('node:http');
const crypto = require('node:crypto');
const { Server: IOServer } = require('socket.io');
const Busboy = require('busboy');
const { openStore } = require('./store');
const { Hub } = require('./hub');
const { Faults } = require('./faults');
const { ChatService, failure } = require('./api');
const { isPlainObject, HttpError, nestedWithin, shown } = require('./util');

const METHODS = ['get', 'post', 'put', 'delete'];

function decodeSegment(s) {
  try {
    return decodeURIComponent(s);
  } catch {
    throw new HttpError(400, 'malformed path');
  }
}
const MAX_JSON = 64 * 1024;
// Objects and arrays nest at most this deep in a request: deeper records could be stored but
// not encoded again (the encoders recurse), so they are refused on the way in.
const MAX_DEPTH = 32;
const SESSION_COOKIE = 'parlo.sid';
const SESSION_MS = 24 * 3600 * 1000;
const CONTENT_TYPES = { '.png': 'image/png', '.jpg': 'image/jpeg', '.gif': 'image/gif' };
const TOO_DEEP = 'the request is nested too deeply';

/**
 * Starts a server. Options: port (0 for any free one), host ('127.0.0.1'), apiKey, clientKey,
 * dataDir (persist there; in memory only when absent), db ("postgres://..." to share the state
 * with other nodes: cluster mode), testControl (enable /__control/), maxUploadBytes (10 MiB),
 * agents (client ids that may take rooms asking for an agent), strict and identitySecret (sign-up
 * and HTTP chat-in need an identity token signed with that secret; tokens end at chat-out).
 * Resolves to { port, url, close(), store, service, io }.
 */
async function createServer(options = {}) {
  const opts = {
    port: 0, host: '127.0.0.1', apiKey: 'parlo-dev-api-key', clientKey: 'parlo-dev-client-key',
    dataDir: null, db: null, testControl: false, maxUploadBytes: 10 * 1024 * 1024, agents: [],
    strict: false, identitySecret: null, ...options,
  };
  if (opts.strict && !opts.identitySecret) throw new Error('strict mode needs an identity secret');
  const store = await openStore(opts);
  const faults = new Faults();
  const held = new Set(); // HTTP responses held open by a "drop" fault
  const timers = new Set();

  const later = (ms, fn) => {
    const t = setTimeout(() => {
      timers.delete(t);
      fn();
    }, ms);
    timers.add(t);
  };

  // ---- plain HTTP --------------------------------------------------------------------------------

  const httpServer = http.createServer((req, res) => {
    const send = (status, body, headers = {}) => reply(res, status, body, headers);
    const fail = (e) => {
      const answer = failure(e);
      send(answer.statusCode, answer.body, { Connection: 'close' });
    };
    try {
      routeHttp(req, res, send, fail);
    } catch (e) {
      fail(e);
    }
  });

  function routeHttp(req, res, send, fail) {
    let url;
    try {
      url = new URL(req.url, 'http://localhost');
    } catch {
      req.resume();
      throw new HttpError(400, 'malformed request target');
    }
    const path = url.pathname;
    const method = req.method.toLowerCase();
    if (opts.testControl && path.startsWith('/__control/')) return control(req, path, method, send, fail);
    const rule = faults.match(method, path);
    const go = () => serveHttp(req, path, method, send).catch(fail);
    if (!rule) return go();
    if (rule.action === 'status') return later(rule.ms, () => send(rule.status, rule.body));
    if (rule.action === 'delay') return later(rule.ms, go);
    if (rule.action === 'truncate') {
      // The headers go out as they are, full length included, then half the body and a cut connection.
      const end = res.end.bind(res);
      res.end = (chunk, ...rest) => {
        const body = typeof chunk === 'string' ? Buffer.from(chunk) : chunk;
        if (!Buffer.isBuffer(body) || body.length < 2) return end(chunk, ...rest);
        res.write(body.subarray(0, body.length >> 1), () => res.destroy());
        return res;
      };
      return go();
    }
    held.add(res); // drop: never answer
    res.on('close', () => held.delete(res));
    return undefined;
  }

  async function serveHttp(req, path, method, send) {
    let m;
    if (method === 'post' && /^\/client\/setDeviceToken\/?$/.test(path)) {
      const ctx = httpCtx(req, await readJson(req));
      return send(200, await service.run(ctx, 'client', service.setDeviceToken));
    }
    if (method === 'post' && (m = /^\/client\/chatin\/([^/]+)\/?$/.exec(path))) {
      await readJson(req);
      const sid = crypto.randomBytes(24).toString('hex');
      const body = await service.run(httpCtx(req), 'client', async (ctx) => {
        if (decodeSegment(m[1]) !== ctx.client.clientID) throw new HttpError(403, 'clientID does not match the path');
        await ctx.tx.putSession(sid, { clientID: ctx.client.clientID, expires: Date.now() + SESSION_MS });
        return service.chatIn(ctx);
      }, { identity: true });
      return send(200, body, { 'Set-Cookie': `${SESSION_COOKIE}=${sid}; Path=/; HttpOnly; Max-Age=${SESSION_MS / 1000}` });
    }
    if (method === 'get' && (m = /^\/files\/([^/]+)$/.exec(path))) {
      req.resume();
      const name = decodeSegment(m[1]);
      const { file, bytes } = await store.transaction(async (tx) => service.readFile(tx, name, await httpClient(tx, req)));
      const ext = (/\.[a-z]+$/.exec(file.fileName) || [''])[0];
      return send(200, bytes, { 'Content-Type': CONTENT_TYPES[ext] || 'application/octet-stream' });
    }
    if (method === 'post' && /^\/files\/upload\/?$/.test(path)) return upload(req, send);
    req.resume();
    throw new HttpError(404, `no route for ${req.method} ${path}`);
  }

  /** A request context from an HTTP request's headers (the same names as a virtual request's). */
  function httpCtx(req, data) {
    const h = req.headers;
    return {
      headers: { apiKey: h.apikey, clientKey: h.clientkey, clientID: h.clientid, token: h.token, identityToken: h.identitytoken },
      data, conn: null,
    };
  }

  /** The client an HTTP request reads as: by its cookie session, else by its four headers; or null. */
  async function httpClient(tx, req) {
    const m = new RegExp(`(?:^|;\\s*)${SESSION_COOKIE.replace('.', '\\.')}=([0-9a-f]+)`).exec(req.headers.cookie || '');
    const s = m && await tx.session(m[1]);
    if (s && await tx.client(s.clientID)) return s.clientID;
    const ctx = { ...httpCtx(req), tx };
    return service.authenticate(ctx, 'client').then(() => ctx.client.clientID, () => null);
  }

  function readJson(req) {
    return new Promise((resolve, reject) => {
      const chunks = [];
      let size = 0;
      let failed = false;
      req.on('data', (c) => {
        if (failed) return;
        size += c.length;
        if (size > MAX_JSON) {
          failed = true;
          reject(new HttpError(413, 'body too large'));
          return;
        }
        chunks.push(c);
      });
      req.on('error', () => {
        failed = true;
        reject(new HttpError(400, 'request aborted'));
      });
      req.on('end', () => {
        if (failed) return;
        const text = Buffer.concat(chunks).toString('utf8').trim();
        if (text === '') return resolve(undefined);
        let data;
        try {
          data = JSON.parse(text);
        } catch {
          return reject(new HttpError(400, 'body is not JSON'));
        }
        return nestedWithin(data, MAX_DEPTH) ? resolve(data) : reject(new HttpError(400, TOO_DEEP));
      });
    });
  }

  /** "/files/upload": multipart form with "type", "room", "isPublic" and one file part. */
  async function upload(req, send) {
    const ctx = httpCtx(req);
    try {
      // Checked before the body is read, so that nobody can make the server read it for nothing.
      await store.transaction((tx) => service.authenticate({ ...ctx, tx }, 'client'));
    } catch (e) {
      req.resume();
      throw e;
    }
    const { fields, file } = await readForm(req);
    if (!file) throw new HttpError(400, 'the file part is missing');
    const { type, room, isPublic } = fields;
    send(200, await service.run(ctx, 'client', (c) => service.addFile(c, { type, room, isPublic, bytes: file })));
  }

  /** Reads a multipart form: its text fields (1,024 characters at most each) and its one file. */
  function readForm(req) {
    let bb;
    try {
      bb = Busboy({ headers: req.headers, limits: { fileSize: opts.maxUploadBytes, files: 1, fields: 20, fieldSize: 1024, parts: 22 } });
    } catch {
      req.resume();
      throw new HttpError(400, 'a multipart/form-data body is required');
    }
    return new Promise((resolve, reject) => {
      const fields = Object.create(null);
      let file = null;
      let error = null;
      const stop = (e) => {
        if (error) return;
        error = e;
        req.unpipe(bb);
        req.resume();
        reject(e);
      };
      bb.on('field', (name, value, info) => {
        if (info.valueTruncated) stop(new HttpError(413, `form field "${shown(name)}" is longer than 1024 characters`));
        fields[name] = value;
      });
      bb.on('file', (name, stream) => {
        const chunks = [];
        stream.on('data', (c) => chunks.push(c));
        stream.on('limit', () => stop(new HttpError(413, `file larger than ${opts.maxUploadBytes} bytes`)));
        stream.on('error', () => {});
        stream.on('end', () => {
          if (!stream.truncated) file = Buffer.concat(chunks);
        });
      });
      bb.on('filesLimit', () => stop(new HttpError(400, 'one file per upload')));
      bb.on('fieldsLimit', () => stop(new HttpError(413, 'too many form fields')));
      bb.on('partsLimit', () => stop(new HttpError(413, 'too many form parts')));
      bb.on('error', () => stop(new HttpError(400, 'malformed multipart body')));
      bb.on('close', () => error || resolve({ fields, file }));
      req.on('error', () => stop(new HttpError(400, 'request aborted')));
      req.pipe(bb);
    });
  }

  // ---- test control ------------------------------------------------------------------------------

  function control(req, path, method, send, fail) {
    readJson(req).then(async (data) => {
      if (path === '/__control/faults' && method === 'post') {
        try {
          return send(200, faults.add(data));
        } catch (e) {
          return send(400, e.message);
        }
      }
      if (path === '/__control/faults' && method === 'get') return send(200, faults.rules);
      if (path === '/__control/faults' && method === 'delete') {
        faults.clear();
        return send(200, { cleared: true });
      }
      let m;
      if ((m = /^\/__control\/faults\/(\d+)$/.exec(path)) && method === 'delete') {
        return faults.remove(Number(m[1])) ? send(200, { removed: Number(m[1]) }) : send(404, 'no such fault');
      }
      if (path === '/__control/disconnect' && method === 'post') {
        if (!isPlainObject(data)) return send(400, 'a JSON object is required');
        if (typeof data.clientID === 'string') return send(200, { disconnected: await hub.disconnect(data.clientID) });
        let sockets;
        if (data.all === true) sockets = [...io.sockets.sockets.values()];
        else if (typeof data.socketId === 'string') sockets = [io.sockets.sockets.get(data.socketId)].filter(Boolean);
        else return send(400, 'clientID, socketId or all is required');
        for (const socket of sockets) socket.disconnect(true);
        return send(200, { disconnected: sockets.length });
      }
      if (path === '/__control/stats' && method === 'get') {
        return send(200, { connections: io.engine.clientsCount, ...(await store.stats()) });
      }
      return send(404, `no control route ${method} ${path}`);
    }).catch(fail);
  }

  // ---- Socket.IO -----------------------------------------------------------------------------------

  const io = new IOServer(httpServer, { allowEIO3: true, serveClient: false, maxHttpBufferSize: opts.maxHttpBufferSize || 1e6 });
  if (store.adapter) io.adapter(store.adapter());
  const hub = new Hub(io, { cluster: !!store.adapter });
  const identity = opts.strict ? identityVerifier(opts.identitySecret) : null;
  const service = new ChatService({ store, hub, apiKey: opts.apiKey, clientKey: opts.clientKey, identity, agents: opts.agents });

  io.on('connection', (socket) => {
    // A socket's requests are handled one after the other, in the order they came.
    const conn = { socket, clientID: null, token: null, queue: Promise.resolve() };
    socket.data.conn = conn;
    // Every acknowledged event gets an answer, those that name no request method included.
    socket.onAny((event, ...args) => {
      const ack = args[args.length - 1];
      if (!METHODS.includes(event) && typeof ack === 'function') {
        safeAck(ack, { statusCode: 405, body: `"${shown(event)}" is not a request method (get, post, put, delete)` });
      }
    });
    for (const method of METHODS) {
      socket.on(method, (...args) => {
        const ack = typeof args[args.length - 1] === 'function' ? args.pop() : () => {};
        const answer = (a) => safeAck(ack, a);
        const env = args[0];
        if (!isPlainObject(env) || typeof env.url !== 'string' || !env.url.startsWith('/') || env.url.length > 4096) {
          return answer({ statusCode: 400, body: 'the request needs an envelope {"url", "headers", "data"}' });
        }
        if (env.headers !== undefined && env.headers !== null && !isPlainObject(env.headers)) {
          return answer({ statusCode: 400, body: 'headers must be an object' });
        }
        if (!nestedWithin(env, MAX_DEPTH)) return answer({ statusCode: 400, body: TOO_DEEP });
        // The service answers once the changes it reports are committed.
        const run = () => {
          conn.queue = conn.queue.then(() => service.handle({ method, url: env.url, headers: env.headers, data: env.data, conn }));
          return conn.queue;
        };
        const rule = faults.match(method, env.url);
        if (!rule || rule.action === 'truncate') return run().then(answer); // nothing to cut in an acknowledgement
        if (rule.action === 'status') return later(rule.ms, () => answer({ statusCode: rule.status, body: rule.body }));
        const handled = rule.handle ? run() : null;
        if (rule.action === 'delay') later(rule.ms, () => (handled || run()).then(answer));
        return undefined; // drop: handled (unless told otherwise), never acknowledged
      });
    }
  });

  await new Promise((resolve, reject) => {
    httpServer.once('error', reject);
    httpServer.listen(opts.port, opts.host, () => {
      httpServer.off('error', reject);
      resolve();
    });
  }).catch(async (e) => {
    await store.close();
    throw e;
  });
  const { port } = httpServer.address();
  let closing = null;

  return {
    port,
    url: `http://${opts.host.includes(':') ? `[${opts.host}]` : opts.host}:${port}`,
    store,
    service,
    io,
    close() {
      if (!closing) {
        closing = new Promise((resolve) => {
          for (const t of timers) clearTimeout(t);
          timers.clear();
          for (const res of held) res.destroy();
          io.close(() => resolve());
          httpServer.closeAllConnections?.();
        }).then(() => store.close());
      }
      return closing;
    },
  };
}

/** Sends an HTTP answer: bytes, text or JSON; an answer that cannot be encoded becomes a 500. */
function reply(res, status, body, headers) {
  if (res.headersSent || res.destroyed) return;
  let type = 'application/json';
  let payload = body;
  if (Buffer.isBuffer(body)) type = 'application/octet-stream';
  else if (typeof body === 'string') type = 'text/plain; charset=utf-8';
  else {
    try {
      payload = JSON.stringify(body);
    } catch (e) {
      console.error(`parlo-server: cannot encode an answer: ${e.message}`);
      [status, type, payload] = [500, 'text/plain; charset=utf-8', 'the answer could not be encoded'];
    }
  }
  res.writeHead(status, { 'Content-Type': type, 'Content-Length': Buffer.byteLength(payload), ...headers });
  res.end(payload);
}

/** Acknowledges an event; an answer that cannot be encoded becomes a 500 for that request alone. */
function safeAck(ack, answer) {
  try {
    ack(answer);
  } catch (e) {
    console.error(`parlo-server: cannot encode an answer: ${e.message}`);
    ack({ statusCode: 500, body: 'the answer could not be encoded' });
  }
}

/**
 * Strict mode: identity tokens are JWTs (HS256) that the host's backend signs with the shared
 * secret; "sub" is the client id and "exp" is required. Resolves to the token's claims.
 */
function identityVerifier(secret) {
  const { jwtVerify } = require('jose');
  const key = new TextEncoder().encode(secret);
  return async (token) => (await jwtVerify(token, key, { algorithms: ['HS256'], requiredClaims: ['sub', 'exp'] })).payload;
}

module.exports = { createServer };
