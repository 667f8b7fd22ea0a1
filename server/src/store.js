'use strict';
// The server's state: clients, rooms, messages, files and cookie sessions, kept in memory and,
// with a data folder, written to DATA/state.json (atomically, through a temporary file) and
// DATA/files/<name>.
const fs = require('node:fs');
const path = require('node:path');

const STATE_VERSION = 1;

class Store {
  constructor(dataDir) {
    this.dataDir = dataDir || null;
    this.clients = new Map(); // clientID -> client
    this.rooms = new Map(); // room id -> room
    this.messages = new Map(); // message id -> message
    this.roomMessages = new Map(); // room id -> messages, oldest first
    this.files = new Map(); // file name -> file record
    this.fileBytes = new Map(); // file name -> Buffer (without a data folder)
    this.sessions = new Map(); // cookie session id -> { clientID, expires }
    this.memberRooms = new Map(); // clientID -> Set of room ids
    this.seq = 0;
    this.saveTimer = null;
    if (this.dataDir) {
      fs.mkdirSync(path.join(this.dataDir, 'files'), { recursive: true });
      this.load();
    }
  }

  addRoom(room) {
    this.rooms.set(room.id, room);
    this.roomMessages.set(room.id, []);
    for (const id of room.members) this.indexMember(room, id);
  }

  indexMember(room, clientID) {
    let set = this.memberRooms.get(clientID);
    if (!set) {
      set = new Set();
      this.memberRooms.set(clientID, set);
    }
    set.add(room.id);
  }

  /** The rooms the client is a member of, in no particular order. */
  roomsOfMember(clientID) {
    return [...(this.memberRooms.get(clientID) || [])].map((id) => this.rooms.get(id));
  }

  nextSeq() {
    this.seq += 1;
    return this.seq;
  }

  get statePath() {
    return path.join(this.dataDir, 'state.json');
  }

  load() {
    let text;
    try {
      text = fs.readFileSync(this.statePath, 'utf8');
    } catch (e) {
      if (e.code === 'ENOENT') return;
      throw e;
    }
    // A state file that does not parse stops the start: better than silently starting empty.
    const state = JSON.parse(text);
    if (state.version !== STATE_VERSION) throw new Error(`unsupported state version ${state.version}`);
    this.seq = state.seq || 0;
    for (const c of state.clients || []) this.clients.set(c.clientID, c);
    for (const r of state.rooms || []) this.addRoom(r);
    for (const m of state.messages || []) {
      this.messages.set(m.id, m);
      const list = this.roomMessages.get(m.room);
      if (list) list.push(m);
    }
    for (const list of this.roomMessages.values()) list.sort((a, b) => a.seq - b.seq);
    for (const f of state.files || []) this.files.set(f.fileName, f);
    const now = Date.now();
    for (const [sid, s] of Object.entries(state.sessions || {})) {
      if (s.expires > now) this.sessions.set(sid, s);
    }
  }

  snapshot() {
    return {
      version: STATE_VERSION,
      seq: this.seq,
      clients: [...this.clients.values()],
      rooms: [...this.rooms.values()],
      messages: [...this.messages.values()],
      files: [...this.files.values()],
      sessions: Object.fromEntries(this.sessions),
    };
  }

  /** Asks for the state to be written soon; changes within a few milliseconds share one write. */
  changed() {
    if (!this.dataDir || this.saveTimer) return;
    this.saveTimer = setTimeout(() => {
      this.saveTimer = null;
      try {
        this.flush();
      } catch (e) {
        // The next change tries again; requests go on being served from memory.
        console.error(`parlo-server: cannot write ${this.statePath}: ${e.message}`);
      }
    }, 20);
  }

  /** Writes the state now: a temporary file, synced, then renamed over the old one. */
  flush() {
    if (!this.dataDir) return;
    if (this.saveTimer) {
      clearTimeout(this.saveTimer);
      this.saveTimer = null;
    }
    writeAtomic(this.statePath, JSON.stringify(this.snapshot()));
  }

  putFileBytes(name, bytes) {
    if (this.dataDir) writeAtomic(path.join(this.dataDir, 'files', name), bytes);
    else this.fileBytes.set(name, bytes);
  }

  getFileBytes(name) {
    if (!this.dataDir) return this.fileBytes.get(name) || null;
    try {
      return fs.readFileSync(path.join(this.dataDir, 'files', name));
    } catch {
      return null;
    }
  }
}

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

module.exports = { Store };
