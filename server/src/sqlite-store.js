'use strict';
// The embedded store: SQLite in DATA/parlo.db with a data folder, an in-memory database without.
// Requests run one at a time, each in a savepoint of the event-loop turn's transaction; the turn
// commits once its requests are done, before any of their answers or pushes go out, so a killed
// server loses nothing it acknowledged and a burst of requests costs one commit, not one each. A
// request that fails rolls back to its savepoint and the memory is read again from the database,
// so a refused request changes nothing (nor do the requests of a turn whose commit failed).
// Clients, rooms, files and sessions are few and read on every request, so they are also kept in
// memory; messages are read from the database when asked for. Uploaded bytes go to
// DATA/files/<name> (in memory without a data folder).
const fs = require('node:fs');
const path = require('node:path');
const Database = require('better-sqlite3');
const { dict } = require('./util');

// One entry per schema version, each applied in its own transaction; user_version records the last.
const MIGRATIONS = [
  `CREATE TABLE clients (clientID TEXT PRIMARY KEY, body TEXT NOT NULL);
   CREATE TABLE rooms (id TEXT PRIMARY KEY, body TEXT NOT NULL);
   CREATE TABLE messages (seq INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE, room TEXT NOT NULL,
     sender TEXT NOT NULL, idFromSender INTEGER, messageType TEXT NOT NULL, createdAt TEXT NOT NULL,
     body TEXT NOT NULL);
   CREATE INDEX messages_by_room ON messages (room, seq);
   CREATE INDEX messages_by_sender ON messages (sender, idFromSender) WHERE idFromSender IS NOT NULL;
   CREATE TABLE files (fileName TEXT PRIMARY KEY, body TEXT NOT NULL);
   CREATE TABLE sessions (sid TEXT PRIMARY KEY, clientID TEXT NOT NULL, expires INTEGER NOT NULL);`,
];
const LEGACY_STATE_VERSION = 1;

class SqliteStore {
  constructor(dataDir) {
    this.dataDir = dataDir || null;
    this.fileBytes = new Map(); // file name -> Buffer (without a data folder)
    this.latest = new Map(); // room id -> its last message, read once
    this.seq = 0;
    this.clearMemory();
    this.pending = null; // while this turn's transaction is open: what waits for its commit
    this.queue = Promise.resolve(); // requests run one after the other
    this.running = false; // a request is between its savepoint and its release
    if (this.dataDir) fs.mkdirSync(path.join(this.dataDir, 'files'), { recursive: true });
    const file = this.dataDir ? path.join(this.dataDir, 'parlo.db') : ':memory:';
    try {
      this.open(file);
    } catch (e) {
      this.db?.close();
      // A damaged database stops the start: better than silently starting empty.
      throw e.legacy ? e : new Error(`cannot use ${file}: ${e.message}`);
    }
  }

  open(file) {
    const db = new Database(file);
    this.db = db;
    // One server per data folder: a second one would keep its own copy of the rooms in memory and
    // write over the first one's changes, so it is refused ("database is locked").
    db.pragma('locking_mode = EXCLUSIVE');
    db.pragma('journal_mode = WAL');
    // In WAL mode a commit is in the operating system's hands once it returns, which is what a
    // killed process needs; NORMAL skips the fsync per commit that only a power cut would need.
    db.pragma('synchronous = NORMAL');
    const version = db.pragma('user_version', { simple: true });
    if (version > MIGRATIONS.length) throw new Error(`schema version ${version} is newer than this server`);
    for (let v = version; v < MIGRATIONS.length; v++) {
      db.transaction(() => {
        db.exec(MIGRATIONS[v]);
        if (v === 0) this.importLegacyState();
        db.pragma(`user_version = ${v + 1}`);
      })();
    }
    this.prepare();
    db.prepare('DELETE FROM sessions WHERE expires <= ?').run(Date.now());
    this.load();
    if (this.legacyImported) fs.renameSync(this.legacyPath, `${this.legacyPath}.imported`);
  }

  get legacyPath() {
    return this.dataDir && path.join(this.dataDir, 'state.json');
  }

  /** Copies an older server's DATA/state.json into the new database (same transaction as its schema). */
  importLegacyState() {
    if (!this.dataDir) return;
    let text;
    try {
      text = fs.readFileSync(this.legacyPath, 'utf8');
    } catch (e) {
      if (e.code === 'ENOENT') return;
      throw e;
    }
    let state;
    try {
      state = JSON.parse(text);
      if (state?.version !== LEGACY_STATE_VERSION) throw new Error(`unsupported state version ${state?.version}`);
    } catch (e) {
      throw Object.assign(new Error(`cannot import ${this.legacyPath}: ${e.message}`), { legacy: true });
    }
    this.prepare();
    for (const c of state.clients || []) this.saveClient(c);
    for (const r of state.rooms || []) this.saveRoom(r);
    for (const m of [...(state.messages || [])].sort((a, b) => a.seq - b.seq)) this.sql.insertMessage.run(messageRow(m));
    for (const f of state.files || []) this.sql.saveFile.run(f.fileName, JSON.stringify(f));
    for (const [sid, s] of Object.entries(state.sessions || {})) this.putSession(sid, s);
    this.legacyImported = true;
  }

  prepare() {
    const q = (text) => this.db.prepare(text);
    this.sql = {
      saveClient: q('INSERT OR REPLACE INTO clients (clientID, body) VALUES (?, ?)'),
      saveRoom: q('INSERT OR REPLACE INTO rooms (id, body) VALUES (?, ?)'),
      saveFile: q('INSERT OR REPLACE INTO files (fileName, body) VALUES (?, ?)'),
      putSession: q('INSERT OR REPLACE INTO sessions (sid, clientID, expires) VALUES (?, ?, ?)'),
      deleteSession: q('DELETE FROM sessions WHERE sid = ?'),
      deleteSessionsOf: q('DELETE FROM sessions WHERE clientID = ?'),
      insertMessage: q(`INSERT INTO messages (seq, id, room, sender, idFromSender, messageType, createdAt, body)
        VALUES (@seq, @id, @room, @sender, @idFromSender, @messageType, @createdAt, @body)`),
      updateMessage: q('UPDATE messages SET messageType = @messageType, body = @body WHERE id = @id'),
      message: q('SELECT body FROM messages WHERE id = ?').pluck(),
      newestBefore: q('SELECT body FROM messages WHERE room = ? ORDER BY seq DESC LIMIT ? OFFSET ?').pluck(),
      newestBeforeDate: q('SELECT body FROM messages WHERE room = ? AND createdAt < ? ORDER BY seq DESC LIMIT ?').pluck(),
      ofRoom: q('SELECT body FROM messages WHERE room = ? ORDER BY seq').pluck(),
      bySenderId: q('SELECT body FROM messages WHERE sender = ? AND idFromSender = ? ORDER BY seq DESC').pluck(),
      unseen: q(`SELECT COUNT(*) FROM messages WHERE room = ? AND sender <> ? AND messageType <> 'delete'
        AND createdAt > ? AND createdAt <= ?`).pluck(),
    };
  }

  /** Reads clients, rooms, files and sessions into memory (again, after a rollback). */
  load() {
    this.clearMemory();
    const all = (table) => this.db.prepare(`SELECT body FROM ${table}`).pluck().all().map((b) => JSON.parse(b));
    for (const c of all('clients')) this.clients.set(c.clientID, c);
    for (const r of all('rooms')) this.indexRoom(roomRecord(r));
    for (const f of all('files')) this.files.set(f.fileName, f);
    for (const s of this.db.prepare('SELECT sid, clientID, expires FROM sessions WHERE expires > ?').all(Date.now())) {
      this.sessions.set(s.sid, { clientID: s.clientID, expires: s.expires });
    }
    const { n, seq } = this.db.prepare('SELECT COUNT(*) AS n, MAX(seq) AS seq FROM messages').get();
    this.messageCount = n;
    for (const r of this.rooms.values()) this.seq = Math.max(this.seq, r.seq || 0);
    this.seq = Math.max(this.seq, seq || 0);
  }

  clearMemory() {
    this.clients = new Map(); // clientID -> client
    this.rooms = new Map(); // room id -> room
    this.files = new Map(); // file name -> file record
    this.sessions = new Map(); // cookie session id -> { clientID, expires }
    this.memberRooms = new Map(); // clientID -> Set of room ids
    this.latest.clear();
  }

  close() {
    this.commit();
    if (this.db.open) this.db.close();
  }

  stats() {
    return { clients: this.clients.size, rooms: this.rooms.size, messages: this.messageCount, files: this.files.size };
  }

  // ---- one request at a time, one transaction per event-loop turn ------------------------------

  /**
   * Runs `fn(store)` (which may be async) as one request: all of its changes or none. Resolves to
   * what it returns once its changes are committed.
   */
  transaction(fn) {
    const run = this.queue.then(async () => {
      this.write();
      this.running = true;
      this.db.exec('SAVEPOINT request');
      try {
        const result = await fn(this);
        this.db.exec('RELEASE request');
        return result;
      } catch (e) {
        this.db.exec('ROLLBACK TO request');
        this.db.exec('RELEASE request');
        this.load();
        throw e;
      } finally {
        this.running = false;
      }
    });
    this.queue = run.catch(() => {});
    return run.then((result) => new Promise((resolve, reject) => {
      this.afterCommit((error) => (error ? reject(error) : resolve(result)));
    }));
  }

  /** Opens this turn's transaction before a write; it commits once the turn's requests are done. */
  write() {
    if (this.pending || this.db.inTransaction) return; // the latter: a migration's own transaction
    this.db.exec('BEGIN');
    this.pending = [];
    setImmediate(() => this.commit());
  }

  commit() {
    const waiting = this.pending;
    if (!waiting) return;
    if (this.running && this.db.open) {
      setImmediate(() => this.commit()); // a request is halfway through: its changes go in whole
      return;
    }
    this.pending = null;
    let error = null;
    try {
      this.db.exec('COMMIT');
    } catch (e) {
      // Those requests are answered as failed, and the memory goes back to what the disk holds.
      error = Object.assign(new Error('the state could not be saved'), { status: 500 });
      console.error(`parlo-server: cannot save the state: ${e.message}`);
      if (this.db.inTransaction) this.db.exec('ROLLBACK');
      this.load();
    }
    for (const fn of waiting) fn(error);
  }

  /** Runs `fn(error)` once this turn's changes are committed (at once when there are none). */
  afterCommit(fn) {
    if (this.pending) this.pending.push(fn);
    else fn(null);
  }

  // ---- clients, rooms, files, sessions: in memory, each change written through ---------------

  client(clientID) {
    return this.clients.get(clientID) || null;
  }

  clientById(id) {
    for (const c of this.clients.values()) if (c.id === id) return c;
    return null;
  }

  allClients() {
    return [...this.clients.values()];
  }

  saveClient(c) {
    this.write();
    this.sql.saveClient.run(c.clientID, JSON.stringify(c));
    this.clients.set(c.clientID, c);
  }

  room(id) {
    return this.rooms.get(id) || null;
  }

  /** The rooms the client is a member of, in no particular order. */
  roomsOfMember(clientID) {
    return [...(this.memberRooms.get(clientID) || [])].map((id) => this.rooms.get(id));
  }

  allRooms() {
    return [...this.rooms.values()];
  }

  /** Stores a room, new or changed (its members included). */
  saveRoom(room) {
    this.write();
    this.sql.saveRoom.run(room.id, JSON.stringify(room));
    this.indexRoom(room);
  }

  indexRoom(room) {
    this.rooms.set(room.id, room);
    for (const id of room.members) {
      let set = this.memberRooms.get(id);
      if (!set) {
        set = new Set();
        this.memberRooms.set(id, set);
      }
      set.add(room.id);
    }
  }

  nextSeq() {
    this.seq += 1;
    return this.seq;
  }

  file(name) {
    return this.files.get(name) || null;
  }

  allFiles() {
    return [...this.files.values()];
  }

  /** Stores a new file's record and bytes. */
  addFile(f, bytes) {
    this.write();
    this.sql.saveFile.run(f.fileName, JSON.stringify(f));
    if (this.dataDir) writeAtomic(path.join(this.dataDir, 'files', f.fileName), bytes);
    else this.fileBytes.set(f.fileName, bytes);
    this.files.set(f.fileName, f);
  }

  getFileBytes(name) {
    if (!this.dataDir) return this.fileBytes.get(name) || null;
    try {
      return fs.readFileSync(path.join(this.dataDir, 'files', name));
    } catch {
      return null;
    }
  }

  session(sid) {
    const s = this.sessions.get(sid);
    return s && s.expires > Date.now() ? s : null;
  }

  putSession(sid, s) {
    this.write();
    this.sql.putSession.run(sid, s.clientID, s.expires);
    this.sessions.set(sid, s);
  }

  /** Ends every cookie session of the client. */
  deleteSessionsOf(clientID) {
    this.write();
    this.sql.deleteSessionsOf.run(clientID);
    for (const [sid, s] of this.sessions) if (s.clientID === clientID) this.sessions.delete(sid);
  }

  // ---- messages: in the database ------------------------------------------------------------

  /** Stores a new message and its room's new state. */
  addMessage(m, room) {
    this.write();
    this.sql.insertMessage.run(messageRow(m));
    this.saveRoom(room);
    this.messageCount += 1;
    this.latest.set(room.id, m);
  }

  saveMessage(m) {
    this.write();
    this.sql.updateMessage.run(messageRow(m));
    if (this.latest.get(m.room)?.id === m.id) this.latest.set(m.room, m);
  }

  message(id) {
    return parse(this.sql.message.get(id));
  }

  /** The room's last message, or null. */
  latestOf(room) {
    if (!room.lastMessageId) return null;
    let m = this.latest.get(room.id);
    if (m?.id !== room.lastMessageId) {
      m = this.message(room.lastMessageId);
      this.latest.set(room.id, m);
    }
    return m;
  }

  /** The newest `limit` messages of a room before the `offset` newest, or created before `date`; oldest first. */
  newestMessages(roomID, { limit, offset = 0, date = null }) {
    const rows = date ? this.sql.newestBeforeDate.all(roomID, date, limit) : this.sql.newestBefore.all(roomID, limit, offset);
    return rows.reverse().map(parse);
  }

  /** All of a room's messages, oldest first. */
  messagesOf(roomID) {
    return this.sql.ofRoom.all(roomID).map(parse);
  }

  /** The sender's messages with this idFromSender, newest first. */
  messagesWithSenderId(sender, idFromSender) {
    return this.sql.bySenderId.all(sender, idFromSender).map(parse);
  }

  /** Messages of the room not from `reader` and not deleted, created after `after` and up to `upTo` (null: no bound). */
  unseenCount(roomID, reader, after, upTo) {
    return this.sql.unseen.get(roomID, reader, after ?? '', upTo ?? '\uffff');
  }
}

/** A room as read back: its per-member maps keyed by client id without a prototype. */
function roomRecord(r) {
  return { ...r, unread: dict(r.unread), readTime: dict(r.readTime) };
}

function messageRow(m) {
  return {
    seq: m.seq, id: m.id, room: m.room, sender: m.sender, idFromSender: m.idFromSender ?? null,
    messageType: m.messageType, createdAt: m.createdAt, body: JSON.stringify(m),
  };
}

const parse = (body) => (body === undefined ? null : JSON.parse(body));

function writeAtomic(file, data) {
  const tmp = `${file}.${process.pid}.tmp`;
  const fd = fs.openSync(tmp, 'w');
  try {
    fs.writeSync(fd, data);
    fs.fsyncSync(fd);
  } finally {
    fs.closeSync(fd);
  }
  fs.renameSync(tmp, file);
}

module.exports = { SqliteStore, roomRecord, messageRow };
