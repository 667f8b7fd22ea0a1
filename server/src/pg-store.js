'use strict';
// The cluster store: PostgreSQL, shared by every node. Each request runs in a transaction of its
// own on a pooled connection and is committed before it is answered; nothing is kept in memory,
// so every node sees every other node's changes at once. Records are stored as the same JSON
// bodies as in the SQLite store, with the columns the queries need beside them. Concurrent
// changes to one room (from any node) take the room's row lock first, so they apply one after the
// other, and a re-send racing its original finds it; sign-ups of one client id take a lock on
// that id. The Socket.IO adapter gets a pool of its own (below).
const { Pool } = require('pg');
const { createAdapter } = require('@socket.io/postgres-adapter');
const { roomRecord, messageRow } = require('./sqlite-store');

const SCHEMA_LOCK = 0x7061726c; // advisory lock held while a node creates the schema
const MIGRATIONS = [
  `CREATE TABLE clients (clientid TEXT PRIMARY KEY, id TEXT NOT NULL, body TEXT NOT NULL);
   CREATE INDEX clients_by_id ON clients (id);
   CREATE TABLE rooms (id TEXT PRIMARY KEY, body TEXT NOT NULL);
   CREATE TABLE members (clientid TEXT NOT NULL, room TEXT NOT NULL, PRIMARY KEY (clientid, room));
   CREATE TABLE messages (seq BIGINT PRIMARY KEY, id TEXT NOT NULL UNIQUE, room TEXT NOT NULL,
     sender TEXT NOT NULL, idfromsender BIGINT, messagetype TEXT NOT NULL, createdat TEXT COLLATE "C" NOT NULL,
     body TEXT NOT NULL);
   CREATE INDEX messages_by_room ON messages (room, seq);
   CREATE INDEX messages_by_sender ON messages (sender, idfromsender) WHERE idfromsender IS NOT NULL;
   CREATE TABLE files (filename TEXT PRIMARY KEY, body TEXT NOT NULL, bytes BYTEA NOT NULL);
   CREATE TABLE sessions (sid TEXT PRIMARY KEY, clientid TEXT NOT NULL, expires BIGINT NOT NULL);
   CREATE SEQUENCE parlo_seq;`,
];
// Deadlocks and serialization failures are resolved by running the request again.
const RETRY = new Set(['40001', '40P01']);

const parse = (row) => (row ? JSON.parse(row.body) : null);

class PgStore {
  static async open(url) {
    const pool = new Pool({ connectionString: url, max: 10 });
    pool.on('error', (e) => console.error(`parlo-server: database connection lost: ${e.message}`));
    const store = new PgStore(pool, url);
    try {
      await store.migrate();
    } catch (e) {
      await pool.end();
      throw new Error(`cannot use the database: ${e.message}`);
    }
    return store;
  }

  constructor(pool, url) {
    this.pool = pool;
    this.url = url;
  }

  async migrate() {
    const c = await this.pool.connect();
    try {
      await c.query('BEGIN');
      await c.query('SELECT pg_advisory_xact_lock($1)', [SCHEMA_LOCK]);
      await c.query('CREATE TABLE IF NOT EXISTS parlo_schema (version INTEGER NOT NULL)');
      const version = (await c.query('SELECT max(version) AS v FROM parlo_schema')).rows[0].v || 0;
      if (version > MIGRATIONS.length) throw new Error(`schema version ${version} is newer than this server`);
      for (let v = version; v < MIGRATIONS.length; v++) {
        await c.query(MIGRATIONS[v]);
        await c.query('INSERT INTO parlo_schema (version) VALUES ($1)', [v + 1]);
      }
      await c.query('COMMIT');
    } catch (e) {
      await c.query('ROLLBACK').catch(() => {});
      throw e;
    } finally {
      c.release();
    }
  }

  /** Runs `fn(tx)` in a transaction of its own; resolves to what it returns once committed. */
  async transaction(fn) {
    for (let attempt = 1; ; attempt++) {
      const c = await this.pool.connect();
      try {
        await c.query('BEGIN');
        const result = await fn(new PgTx(c));
        await c.query('COMMIT');
        return result;
      } catch (e) {
        await c.query('ROLLBACK').catch(() => {});
        if (!(RETRY.has(e.code) && attempt < 5)) throw e;
      } finally {
        c.release();
      }
    }
  }

  /**
   * The Socket.IO adapter, on a pool of two connections: one listens, the other sends, so that
   * pushes leave in the order they were made (a larger pool would send them side by side).
   */
  adapter() {
    this.adapterPool = new Pool({ connectionString: this.url, max: 2 });
    this.adapterPool.on('error', (e) => console.error(`parlo-server: adapter connection lost: ${e.message}`));
    return createAdapter(this.adapterPool, { errorHandler: (e) => console.error(`parlo-server: adapter: ${e.message}`) });
  }

  async stats() {
    const { rows: [r] } = await this.pool.query(`SELECT (SELECT count(*) FROM clients) AS clients,
      (SELECT count(*) FROM rooms) AS rooms, (SELECT count(*) FROM messages) AS messages, (SELECT count(*) FROM files) AS files`);
    return Object.fromEntries(Object.entries(r).map(([k, v]) => [k, Number(v)]));
  }

  async close() {
    await this.pool.end();
    await this.adapterPool?.end();
  }
}

/** One request's view of the database: the same methods as the SQLite store, on one connection. */
class PgTx {
  constructor(c) {
    this.c = c;
    // What this request already read or wrote, read once: a push to every member of a room
    // shows the same clients and the same latest message many times over.
    this.clientsSeen = new Map();
    this.messagesSeen = new Map();
  }

  async rows(text, params) {
    return (await this.c.query(text, params)).rows;
  }

  async body(text, params) {
    return parse((await this.rows(text, params))[0]);
  }

  async bodies(text, params) {
    return (await this.rows(text, params)).map(parse);
  }

  // ---- clients ----

  async client(clientID, { lock = false } = {}) {
    if (lock) await this.c.query('SELECT pg_advisory_xact_lock(hashtext($1))', [clientID]);
    if (lock || !this.clientsSeen.has(clientID)) {
      this.clientsSeen.set(clientID, await this.body('SELECT body FROM clients WHERE clientid = $1', [clientID]));
    }
    return this.clientsSeen.get(clientID);
  }

  clientById(id) {
    return this.body('SELECT body FROM clients WHERE id = $1', [id]);
  }

  allClients() {
    return this.bodies('SELECT body FROM clients');
  }

  async saveClient(c) {
    await this.c.query(`INSERT INTO clients (clientid, id, body) VALUES ($1, $2, $3)
      ON CONFLICT (clientid) DO UPDATE SET body = EXCLUDED.body`, [c.clientID, c.id, JSON.stringify(c)]);
    this.clientsSeen.set(c.clientID, c);
  }

  // ---- rooms ----

  async room(id, { lock = false } = {}) {
    const r = await this.body(`SELECT body FROM rooms WHERE id = $1${lock ? ' FOR UPDATE' : ''}`, [id]);
    return r && roomRecord(r);
  }

  async roomsOfMember(clientID) {
    return (await this.bodies('SELECT r.body FROM members m JOIN rooms r ON r.id = m.room WHERE m.clientid = $1', [clientID])).map(roomRecord);
  }

  async allRooms() {
    return (await this.bodies('SELECT body FROM rooms')).map(roomRecord);
  }

  async saveRoom(room) {
    await this.c.query('INSERT INTO rooms (id, body) VALUES ($1, $2) ON CONFLICT (id) DO UPDATE SET body = EXCLUDED.body', [room.id, JSON.stringify(room)]);
    await this.c.query(`INSERT INTO members (clientid, room) SELECT unnest($1::text[]), $2
      ON CONFLICT DO NOTHING`, [room.members, room.id]);
  }

  async nextSeq() {
    return Number((await this.rows("SELECT nextval('parlo_seq') AS n"))[0].n);
  }

  // ---- files and sessions ----

  file(name) {
    return this.body('SELECT body FROM files WHERE filename = $1', [name]);
  }

  allFiles() {
    return this.bodies('SELECT body FROM files');
  }

  async addFile(f, bytes) {
    await this.c.query('INSERT INTO files (filename, body, bytes) VALUES ($1, $2, $3)', [f.fileName, JSON.stringify(f), bytes]);
  }

  async getFileBytes(name) {
    return (await this.rows('SELECT bytes FROM files WHERE filename = $1', [name]))[0]?.bytes || null;
  }

  async session(sid) {
    const s = (await this.rows('SELECT clientid, expires FROM sessions WHERE sid = $1 AND expires > $2', [sid, Date.now()]))[0];
    return s ? { clientID: s.clientid, expires: Number(s.expires) } : null;
  }

  async putSession(sid, s) {
    await this.c.query(`INSERT INTO sessions (sid, clientid, expires) VALUES ($1, $2, $3)
      ON CONFLICT (sid) DO UPDATE SET clientid = EXCLUDED.clientid, expires = EXCLUDED.expires`, [sid, s.clientID, s.expires]);
  }

  async deleteSessionsOf(clientID) {
    await this.c.query('DELETE FROM sessions WHERE clientid = $1 OR expires <= $2', [clientID, Date.now()]);
  }

  // ---- messages ----

  async addMessage(m, room) {
    const r = messageRow(m);
    await this.c.query(`INSERT INTO messages (seq, id, room, sender, idfromsender, messagetype, createdat, body)
      VALUES ($1, $2, $3, $4, $5, $6, $7, $8)`, [r.seq, r.id, r.room, r.sender, r.idFromSender, r.messageType, r.createdAt, r.body]);
    this.messagesSeen.set(m.id, m);
    await this.saveRoom(room);
  }

  async saveMessage(m) {
    const r = messageRow(m);
    await this.c.query('UPDATE messages SET messagetype = $1, body = $2 WHERE id = $3', [r.messageType, r.body, r.id]);
    this.messagesSeen.set(m.id, m);
  }

  async message(id) {
    if (!this.messagesSeen.has(id)) this.messagesSeen.set(id, await this.body('SELECT body FROM messages WHERE id = $1', [id]));
    return this.messagesSeen.get(id);
  }

  latestOf(room) {
    return room.lastMessageId ? this.message(room.lastMessageId) : null;
  }

  async newestMessages(roomID, { limit, offset = 0, date = null }) {
    const rows = date
      ? await this.bodies('SELECT body FROM messages WHERE room = $1 AND createdat < $2 ORDER BY seq DESC LIMIT $3', [roomID, date, limit])
      : await this.bodies('SELECT body FROM messages WHERE room = $1 ORDER BY seq DESC LIMIT $2 OFFSET $3', [roomID, limit, offset]);
    return rows.reverse();
  }

  messagesOf(roomID) {
    return this.bodies('SELECT body FROM messages WHERE room = $1 ORDER BY seq', [roomID]);
  }

  messagesWithSenderId(sender, idFromSender) {
    return this.bodies('SELECT body FROM messages WHERE sender = $1 AND idfromsender = $2 ORDER BY seq DESC', [sender, idFromSender]);
  }

  async unseenCount(roomID, reader, after, upTo) {
    const [r] = await this.rows(`SELECT count(*) AS n FROM messages WHERE room = $1 AND sender <> $2
      AND messagetype <> 'delete' AND createdat > $3 AND ($4::text IS NULL OR createdat <= $4)`, [roomID, reader, after ?? '', upTo]);
    return Number(r.n);
  }
}

module.exports = { PgStore };
