'use strict';
// The chat service: every virtual request ("get", "post", "put", "delete" with a url, headers and
// data) is routed here, whether it came over the socket or, for the few plain-HTTP routes, over
// HTTP. Handlers return the answer body or throw an HttpError; pushes go through the hub.
const {
  newId, newToken, fail, isPlainObject, isoNow, parseDate, intParam, truthy, splitUrl,
} = require('./util');

const MESSAGE_TYPES = new Set(['text', 'image', 'audio', 'video', 'GEO', 'sticker', 'other', 'delete']);
const MAX_TEXT = 20000; // characters of one message text
const MAX_FIELD = 1000; // characters of a name, photo, thumbnail and the like
const MAX_ID = 128; // characters of a clientID
const DEFAULT_PAGE = 30;
const MAX_PAGE = 500;

const str = (v, what, max = MAX_FIELD) => {
  if (v === undefined || v === null) return undefined;
  if (typeof v !== 'string' && typeof v !== 'number') throw fail(400, `${what} must be text`);
  const s = String(v);
  if (s.length > max) throw fail(413, `${what} is too long`);
  return s;
};
const obj = (v, what) => {
  if (v === undefined || v === null) return undefined;
  if (!isPlainObject(v)) throw fail(400, `${what} must be an object`);
  if (JSON.stringify(v).length > 16384) throw fail(413, `${what} is too large`);
  return v;
};

class ChatService {
  constructor({ store, hub, apiKey, clientKey }) {
    this.store = store;
    this.hub = hub;
    this.apiKey = apiKey;
    this.clientKey = clientKey;
    this.routes = [];
    const r = (method, pattern, handler, auth = 'client') => this.routes.push({ method, pattern, handler, auth });
    r('post', /^\/client$/, this.signUp, 'keys');
    r('get', /^\/client$/, this.clientList);
    r('post', /^\/client\/chatin$/, this.chatIn);
    r('post', /^\/client\/chatout$/, this.chatOut);
    r('post', /^\/badge$/, this.badge);
    r('post', /^\/badge\/total$/, this.badgeTotal);
    r('get', /^\/(Room|Message|Client|File)$/, this.classQuery);
    r('post', /^\/room$/, this.createRoom);
    r('get', /^\/room\/createAndJoinWithClient\/([^/]+)$/, this.createAndJoin);
    r('post', /^\/room\/join$/, this.joinRoom);
    r('post', /^\/room\/agentJoin\/([^/]+)$/, this.agentJoin);
    r('get', /^\/room\/list$/, this.roomList);
    r('get', /^\/room\/needAgentList$/, this.needAgentList);
    r('put', /^\/room\/receive\/([^/]+)$/, this.readReport);
    r('get', /^\/room\/([^/]+)$/, this.getRoom);
    r('put', /^\/rooms\/([^/]+)\/archive$/, this.archiveRoom);
    r('get', /^\/message$/, this.messagePage);
    r('post', /^\/message$/, this.createMessage);
    r('put', /^\/message\/([^/]+)$/, this.updateMessage);
    r('delete', /^\/message\/([^/]+)$/, this.deleteMessage);
    r('get', /^\/messages\/unseenCount$/, this.unseenCount);
    r('get', /^\/files\/([^/]+)$/, this.fileBytes);
  }

  // ---- entry point -------------------------------------------------------------------------

  /**
   * Handles one virtual request. `req` = { method, url, headers, data, conn }, where `conn` is the
   * socket's session ({ clientID } once a request on it proved its token) or null for HTTP.
   * Returns { statusCode, body }; never throws.
   */
  handle(req) {
    try {
      const { path, params } = splitUrl(req.url);
      const norm = path.length > 1 ? path.replace(/\/+$/, '') : path;
      let allowed = false;
      for (const route of this.routes) {
        const m = route.pattern.exec(norm);
        if (!m) continue;
        allowed = true;
        if (route.method !== req.method) continue;
        const ctx = { ...req, path: norm, params, args: m.slice(1).map(safeDecode) };
        this.authenticate(ctx, route.auth);
        const body = route.handler.call(this, ctx);
        return { statusCode: 200, body: body === undefined ? {} : body };
      }
      throw fail(404, allowed ? `no ${req.method} route for ${norm}` : `no route for ${norm}`);
    } catch (e) {
      if (e && typeof e.status === 'number') return { statusCode: e.status, body: e.message };
      console.error('parlo-server: internal error:', e);
      return { statusCode: 500, body: 'internal error' };
    }
  }

  /** Checks the application keys and, for `client` routes, the client's token. */
  authenticate(ctx, level) {
    const h = ctx.headers;
    if (h === undefined || h === null) {
      // A request without headers is accepted on a socket that already proved who it is.
      if (level === 'client' && ctx.conn && ctx.conn.clientID) {
        const client = this.store.clients.get(ctx.conn.clientID);
        if (client) {
          ctx.client = client;
          return;
        }
      }
      throw fail(401, 'headers are missing');
    }
    if (h.apiKey !== this.apiKey || h.clientKey !== this.clientKey) throw fail(401, 'invalid apiKey or clientKey');
    if (level !== 'client') return;
    const client = typeof h.clientID === 'string' ? this.store.clients.get(h.clientID) : undefined;
    if (!client) throw fail(401, 'unknown clientID: sign up first');
    if (typeof h.token !== 'string' || h.token === '' || h.token !== client.token) throw fail(401, 'invalid token');
    ctx.client = client;
    if (ctx.conn) this.hub.bind(ctx.conn, client.clientID);
  }

  // ---- records as clients see them --------------------------------------------------------------

  publicClient(c) {
    if (!c) return undefined;
    return {
      id: c.id, className: 'Client', createdAt: c.createdAt, updatedAt: c.updatedAt,
      clientID: c.clientID, username: c.username, photo: c.photo,
    };
  }

  privateClient(c) {
    const rooms = this.roomsOf(c.clientID);
    return {
      ...this.publicClient(c),
      token: c.token, email: c.email, emailVerified: c.emailVerified, chatinAt: c.chatinAt, data: c.data,
      roomIDs: rooms.map((r) => r.id),
      room: rooms.map((r) => this.roomView(r, c.clientID)),
      totalBadge: this.totalBadge(c.clientID),
    };
  }

  clientRef(clientID) {
    return this.publicClient(this.store.clients.get(clientID)) || { clientID };
  }

  messageView(m, room) {
    return {
      id: m.id, className: 'Message', createdAt: m.createdAt, updatedAt: m.updatedAt,
      message: m.message, messageType: m.messageType, idFromSender: m.idFromSender,
      room: room || { id: m.room, className: 'Room' },
      sender: this.clientRef(m.sender), option: m.option, data: m.data,
    };
  }

  /** A room for one member: its own unread count as "badge" and the latest message first. */
  roomView(r, viewer, { withContent = true } = {}) {
    const latest = this.store.latestOf(r);
    return {
      id: r.id, className: 'Room', createdAt: r.createdAt, updatedAt: r.updatedAt,
      name: r.name, thumbnail: r.thumbnail, isPublic: r.isPublic,
      client: r.members.map((id) => this.clientRef(id)),
      message: withContent && latest ? [this.messageView(latest)] : [],
      archivedBy: [...r.archivedBy],
      readTime: withContent ? { ...r.readTime } : {},
      lastMessageTime: r.lastMessageTime,
      sender: withContent && latest ? this.clientRef(latest.sender) : undefined,
      badge: (viewer && r.unread[viewer]) || 0,
      agent: r.agent || undefined,
      data: r.data,
    };
  }

  fileView(f) {
    return {
      id: f.id, className: 'File', createdAt: f.createdAt, updatedAt: f.updatedAt,
      url: `/files/${f.fileName}`, fileName: f.fileName, type: f.type, size: f.size,
      isPublic: f.isPublic, room: f.room || '',
    };
  }

  // ---- lookups ----------------------------------------------------------------------------------

  /** The client's rooms, newest last message first. */
  roomsOf(clientID) {
    return this.store.roomsOfMember(clientID).sort(newestFirst);
  }

  totalBadge(clientID) {
    let total = 0;
    for (const r of this.store.roomsOfMember(clientID)) total += r.unread[clientID] || 0;
    return total;
  }

  roomFor(ctx, id) {
    const room = this.store.rooms.get(id);
    if (!room) throw fail(404, `room not found: ${id}`);
    if (!room.members.includes(ctx.client.clientID)) throw fail(403, 'not a member of this room');
    return room;
  }

  /** The client by clientID or by its server id. */
  findClient(key) {
    const byClientID = this.store.clients.get(key);
    if (byClientID) return byClientID;
    for (const c of this.store.clients.values()) if (c.id === key) return c;
    return null;
  }

  canReadFile(f, clientID) {
    if (f.isPublic) return true;
    if (!clientID) return false;
    if (f.owner === clientID) return true;
    const room = f.room ? this.store.rooms.get(f.room) : null;
    return !!room && room.members.includes(clientID);
  }

  // ---- session and account -----------------------------------------------------------------------

  signUp(ctx) {
    const d = ctx.data;
    if (!isPlainObject(d)) throw fail(400, 'the client record is missing');
    const clientID = str(d.clientID, 'clientID', MAX_ID);
    if (!clientID) throw fail(400, 'clientID is required');
    const now = isoNow();
    let c = this.store.clients.get(clientID);
    if (!c) {
      c = { id: newId(), clientID, token: newToken(), createdAt: now, deviceTokens: [] };
      this.store.clients.set(clientID, c);
    }
    for (const key of ['username', 'email', 'photo', 'emailVerified']) {
      const v = str(d[key], key);
      if (v !== undefined) c[key] = v;
    }
    const data = obj(d.data, 'data');
    if (data) c.data = data;
    c.updatedAt = now;
    this.store.saveClient(c);
    if (ctx.conn) this.hub.bind(ctx.conn, clientID);
    return this.privateClient(c);
  }

  chatIn(ctx) {
    const c = ctx.client;
    c.chatinAt = isoNow();
    this.store.saveClient(c);
    return this.privateClient(c);
  }

  chatOut(ctx) {
    const c = ctx.client;
    const deviceToken = isPlainObject(ctx.data) ? ctx.data.token : undefined;
    if (typeof deviceToken === 'string' && deviceToken !== '') {
      c.deviceTokens = (c.deviceTokens || []).filter((t) => t.token !== deviceToken);
      this.store.saveClient(c);
    }
    if (ctx.conn) this.hub.unbind(ctx.conn);
    return { clientID: c.clientID, chatoutAt: isoNow() };
  }

  setDeviceToken(ctx) {
    const d = ctx.data;
    if (!isPlainObject(d)) throw fail(400, 'a JSON body with "type" and "token" is required');
    const token = str(d.token, 'token');
    const type = str(d.type, 'type') || 'ios';
    if (!token) throw fail(400, 'token is required');
    const c = ctx.client;
    c.deviceTokens = (c.deviceTokens || []).filter((t) => t.token !== token);
    c.deviceTokens.push({ type, token });
    this.store.saveClient(c);
    return { type, token };
  }

  badge(ctx) {
    return { total: this.totalBadge(ctx.client.clientID) };
  }

  badgeTotal(ctx) {
    return { total: this.totalBadge(ctx.client.clientID) };
  }

  clientList(ctx) {
    const offset = intParam(ctx.params, 'offset', 0);
    const limit = intParam(ctx.params, 'limit', MAX_PAGE, MAX_PAGE);
    const all = [...this.store.clients.values()].sort((a, b) => (a.createdAt < b.createdAt ? 1 : -1));
    return all.slice(offset, offset + limit).map((c) => this.publicClient(c));
  }

  /** "/Room/?offset=&limit=&sort=": the records of a class that the client may read. */
  classQuery(ctx) {
    const me = ctx.client.clientID;
    const offset = intParam(ctx.params, 'offset', 0);
    const limit = intParam(ctx.params, 'limit', DEFAULT_PAGE, MAX_PAGE);
    let rows;
    switch (ctx.args[0]) {
      case 'Room': rows = this.roomsOf(me).map((r) => this.roomView(r, me)); break;
      case 'Client': rows = [...this.store.clients.values()].map((c) => this.publicClient(c)); break;
      case 'Message':
        rows = [];
        for (const r of this.roomsOf(me)) for (const m of this.store.messagesOf(r.id)) rows.push(this.messageView(m));
        break;
      case 'File':
        rows = [...this.store.files.values()].filter((f) => this.canReadFile(f, me)).map((f) => this.fileView(f));
        break;
      default: throw fail(404, `unknown class ${ctx.args[0]}`);
    }
    const { key, desc } = parseSort(ctx.params.get('sort'));
    rows.sort((a, b) => {
      const x = a[key] ?? '';
      const y = b[key] ?? '';
      const c = x < y ? -1 : x > y ? 1 : 0;
      return desc ? -c : c;
    });
    return rows.slice(offset, offset + limit);
  }

  // ---- rooms ---------------------------------------------------------------------------------------

  newRoom(d, creator, extraMembers) {
    const now = isoNow();
    const room = {
      id: newId(), seq: this.store.nextSeq(), createdAt: now, updatedAt: now, lastMessageTime: now,
      name: str(d.name, 'name') || '', thumbnail: str(d.thumbnail, 'thumbnail'),
      isPublic: truthy(d.isPublic), members: [creator], archivedBy: [], readTime: {}, unread: {},
      lastMessageId: null, agent: null, data: obj(d.data, 'data'),
    };
    for (const id of extraMembers) if (!room.members.includes(id)) room.members.push(id);
    for (const id of room.members) room.unread[id] = 0;
    this.store.addRoom(room);
    return room;
  }

  /** Members named in a room body's "client" list (dictionaries with "clientID" or "id", or texts). */
  invited(d) {
    if (d.client === undefined || d.client === null) return [];
    if (!Array.isArray(d.client)) throw fail(400, 'client must be a list');
    if (d.client.length > 500) throw fail(413, 'too many clients');
    return d.client.map((entry) => {
      const key = isPlainObject(entry) ? entry.clientID ?? entry.id : entry;
      const c = typeof key === 'string' ? this.findClient(key) : null;
      if (!c) throw fail(404, `client not found: ${String(key).slice(0, 64)}`);
      return c.clientID;
    });
  }

  createRoom(ctx) {
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    const room = this.newRoom(d, ctx.client.clientID, this.invited(d));
    this.pushJoined(room, ctx.conn);
    return this.roomView(room, ctx.client.clientID);
  }

  /** A two-member room with another client; an existing one is reused unless "duplicate" or "forceCreate". */
  createAndJoin(ctx) {
    const me = ctx.client.clientID;
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    const other = this.findClient(ctx.args[0]);
    if (!other) throw fail(404, `client not found: ${ctx.args[0]}`);
    if (other.clientID === me) throw fail(400, 'cannot open a room with oneself');
    if (!truthy(d.duplicate) && !truthy(d.forceCreate)) {
      const existing = this.roomsOf(me).find((r) => r.members.length === 2 && r.members.includes(other.clientID));
      if (existing) return this.roomView(existing, me);
    }
    const room = this.newRoom(d, me, [other.clientID]);
    this.pushJoined(room, ctx.conn);
    return this.roomView(room, me);
  }

  /** Joins a public room (or answers the room to one of its members). */
  joinRoom(ctx) {
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    const id = str(d.id, 'id', MAX_ID);
    if (!id) throw fail(400, 'room id is required');
    const room = this.store.rooms.get(id);
    if (!room) throw fail(404, `room not found: ${id}`);
    const me = ctx.client.clientID;
    if (!room.members.includes(me)) {
      if (!room.isPublic) throw fail(403, 'this room is not public');
      this.addMember(room, me, ctx.conn);
    }
    return this.roomView(room, me);
  }

  /** A service agent takes a room that has no agent yet. */
  agentJoin(ctx) {
    const room = this.store.rooms.get(ctx.args[0]);
    if (!room) throw fail(404, `room not found: ${ctx.args[0]}`);
    const me = ctx.client.clientID;
    if (room.agent && room.agent !== me) throw fail(403, 'this room already has an agent');
    room.agent = me;
    if (!room.members.includes(me)) this.addMember(room, me, ctx.conn);
    else this.store.saveRoom(room);
    return this.roomView(room, me);
  }

  addMember(room, clientID, conn) {
    room.members.push(clientID);
    this.store.indexMember(room, clientID);
    room.unread[clientID] = 0;
    room.updatedAt = isoNow();
    this.store.saveRoom(room);
    this.pushJoined(room, conn);
  }

  getRoom(ctx) {
    return this.roomView(this.roomFor(ctx, ctx.args[0]), ctx.client.clientID);
  }

  /**
   * "/room/list": the client's rooms. By page ("offset"/"skip", "limit"), newest first; with
   * "lastMessageTime", only rooms whose last message is newer, in "sort" order (oldest first for
   * "updatedAt ASC", so a client can walk forward page by page); filtered by the agent values
   * "county", "district", "status", "type" (0 or absent: any).
   */
  roomList(ctx) {
    const me = ctx.client.clientID;
    const p = ctx.params;
    const since = parseDate(p.get('lastMessageTime'), 'lastMessageTime');
    let rooms = this.roomsOf(me).filter((r) => matchesAgentFilter(r, p));
    if (since) rooms = rooms.filter((r) => r.lastMessageTime > since);
    if (p.has('sort')) {
      const { desc } = parseSort(p.get('sort'));
      rooms = rooms.sort(desc ? newestFirst : (a, b) => -newestFirst(a, b));
    }
    return this.page(rooms, p).map((r) => this.roomView(r, me));
  }

  /** Rooms that asked for an agent (data.needAgent) and have none yet, newest first. */
  needAgentList(ctx) {
    const me = ctx.client.clientID;
    const rooms = [...this.store.rooms.values()]
      .filter((r) => !r.agent && r.data && truthy(r.data.needAgent) && matchesAgentFilter(r, ctx.params))
      .sort(newestFirst);
    return this.page(rooms, ctx.params).map((r) => this.roomView(r, me, { withContent: r.members.includes(me) }));
  }

  page(list, p) {
    const offset = p.has('offset') ? intParam(p, 'offset', 0) : intParam(p, 'skip', 0);
    const limit = intParam(p, 'limit', DEFAULT_PAGE, MAX_PAGE);
    return list.slice(offset, offset + (limit || DEFAULT_PAGE));
  }

  /** Archives the room for this client; a later message brings it back. */
  archiveRoom(ctx) {
    const room = this.roomFor(ctx, ctx.args[0]);
    const me = ctx.client.clientID;
    if (!room.archivedBy.includes(me)) room.archivedBy.push(me);
    this.store.saveRoom(room);
    this.hub.toClient(me, 'roomDidUpadte', () => this.roomView(room, me), ctx.conn);
    return this.roomView(room, me);
  }

  /** Records that the client read the room now: its unread count drops to 0. */
  readReport(ctx) {
    const room = this.roomFor(ctx, ctx.args[0]);
    const me = ctx.client.clientID;
    room.readTime[me] = isoNow();
    room.unread[me] = 0;
    this.store.saveRoom(room);
    if (isPlainObject(ctx.data) && truthy(ctx.data.echo)) {
      const payload = { id: room.id, className: 'Room', readTime: { ...room.readTime }, lastMessageTime: room.lastMessageTime };
      for (const member of room.members) this.hub.toClient(member, 'receive', () => payload, ctx.conn);
    }
    return this.roomView(room, me);
  }

  pushJoined(room, except) {
    for (const member of room.members) this.hub.toClient(member, 'joined', () => this.roomView(room, member), except);
  }

  // ---- messages ------------------------------------------------------------------------------------

  /**
   * A page of a room's history: the newest `limit` messages before `offset` (counted from the
   * newest) or before `pinDate`, oldest first.
   */
  messagePage(ctx) {
    const p = ctx.params;
    const roomID = p.get('room');
    if (!roomID) throw fail(400, 'room is required');
    const room = this.roomFor(ctx, roomID);
    const limit = intParam(p, 'limit', DEFAULT_PAGE, MAX_PAGE);
    const date = parseDate(p.get('pinDate'), 'pinDate');
    const offset = date ? 0 : intParam(p, 'offset', 0);
    return this.store.newestMessages(room.id, { limit, offset, date }).map((m) => this.messageView(m));
  }

  createMessage(ctx) {
    const d = ctx.data;
    if (!isPlainObject(d)) throw fail(400, 'the message record is missing');
    const roomID = isPlainObject(d.room) ? d.room.id : d.room;
    if (typeof roomID !== 'string' || roomID === '') throw fail(400, 'room is required');
    const room = this.roomFor(ctx, roomID);
    const me = ctx.client.clientID;
    const messageType = d.messageType === undefined || d.messageType === null ? 'text' : d.messageType;
    if (!MESSAGE_TYPES.has(messageType) || messageType === 'delete') throw fail(400, `invalid messageType: ${String(messageType).slice(0, 32)}`);
    let idFromSender = d.idFromSender;
    if (idFromSender !== undefined && idFromSender !== null) {
      idFromSender = Number(idFromSender);
      if (!Number.isSafeInteger(idFromSender)) throw fail(400, 'idFromSender must be an integer');
    }
    const text = str(d.message, 'message', MAX_TEXT) ?? '';
    const resent = idFromSender === undefined || idFromSender === null ? null : this.store.messagesWithSenderId(me, idFromSender)
      .find((m) => m.room === room.id && m.messageType === messageType && m.message === text);
    if (resent) {
      // A re-send after a lost acknowledgement: the others already have it; only the asking socket
      // may have missed its echo, which is what settles the message on the sending device.
      if (ctx.conn) this.hub.emit(ctx.conn, 'message', this.messagePush(resent, room, me));
      return this.messageView(resent);
    }
    const now = isoNow();
    const m = {
      id: newId(), seq: this.store.nextSeq(), room: room.id, sender: me, createdAt: now, updatedAt: now,
      message: text, messageType, idFromSender: idFromSender ?? undefined,
      option: obj(d.option, 'option'), data: obj(d.data, 'data'),
    };
    room.lastMessageId = m.id;
    room.lastMessageTime = now;
    room.updatedAt = now;
    room.archivedBy = [];
    for (const member of room.members) {
      if (member === me) continue;
      room.unread[member] = (room.unread[member] || 0) + 1;
    }
    // The sender has read everything up to its own message.
    room.readTime[me] = now;
    room.unread[me] = 0;
    this.store.addMessage(m, room);
    for (const member of room.members) this.hub.toClient(member, 'message', () => this.messagePush(m, room, member));
    return this.messageView(m);
  }

  /** The "message" push for one member: the room as that member sees it and its badge total. */
  messagePush(m, room, member) {
    return { ...this.messageView(m, this.roomView(room, member)), totalBadge: this.totalBadge(member) };
  }

  /** Changes a message's text, type, option or data; type "delete" blanks it. Senders only. */
  updateMessage(ctx) {
    const m = this.store.message(ctx.args[0]);
    if (!m) throw fail(404, `message not found: ${ctx.args[0]}`);
    const room = this.roomFor(ctx, m.room);
    if (m.sender !== ctx.client.clientID) throw fail(403, 'only the sender may change a message');
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    if (d.messageType !== undefined && d.messageType !== null) {
      if (!MESSAGE_TYPES.has(d.messageType)) throw fail(400, `invalid messageType: ${String(d.messageType).slice(0, 32)}`);
      if (m.messageType === 'delete' && d.messageType !== 'delete') throw fail(400, 'a deleted message stays deleted');
    }
    const text = str(d.message, 'message', MAX_TEXT);
    const option = obj(d.option, 'option');
    const data = obj(d.data, 'data');
    if (d.messageType) m.messageType = d.messageType;
    if (text !== undefined) m.message = text;
    if (option) m.option = option;
    if (data) m.data = data;
    if (m.messageType === 'delete') m.message = '';
    m.updatedAt = isoNow();
    this.store.saveMessage(m);
    const view = this.messageView(m);
    for (const member of room.members) this.hub.toClient(member, 'didUpdateMessage', () => view);
    return view;
  }

  deleteMessage(ctx) {
    return this.updateMessage({ ...ctx, data: { messageType: 'delete' } });
  }

  /** Messages from others created after `lastSeenDate` and up to `messageDate` (either bound optional). */
  unseenCount(ctx) {
    const p = ctx.params;
    const roomID = p.get('room');
    if (!roomID) throw fail(400, 'room is required');
    const room = this.roomFor(ctx, roomID);
    const upTo = parseDate(p.get('messageDate'), 'messageDate');
    const after = parseDate(p.get('lastSeenDate'), 'lastSeenDate');
    return { count: this.store.unseenCount(room.id, ctx.client.clientID, after, upTo) };
  }

  // ---- files ---------------------------------------------------------------------------------------

  fileBytes(ctx) {
    const f = this.store.files.get(ctx.args[0]);
    if (!f) throw fail(404, `file not found: ${ctx.args[0]}`);
    if (!this.canReadFile(f, ctx.client.clientID)) throw fail(403, 'no access to this file');
    const bytes = this.store.getFileBytes(f.fileName);
    if (!bytes) throw fail(404, `file not found: ${ctx.args[0]}`);
    return bytes;
  }

  /** Stores an uploaded file under a name the server makes; answers the file record. */
  addFile(client, { type, room, isPublic, bytes }) {
    const roomID = room || '';
    if (roomID) {
      const r = this.store.rooms.get(roomID);
      if (!r) throw fail(404, `room not found: ${roomID}`);
      if (!r.members.includes(client.clientID)) throw fail(403, 'not a member of this room');
    }
    const now = isoNow();
    const f = {
      id: newId(), fileName: `${newId(20)}${extensionOf(bytes)}`, type: type || 'other', size: bytes.length,
      isPublic: truthy(isPublic), room: roomID, owner: client.clientID, createdAt: now, updatedAt: now,
    };
    this.store.putFileBytes(f.fileName, bytes);
    this.store.saveFile(f);
    this.store.files.set(f.fileName, f);
    return this.fileView(f);
  }
}

function safeDecode(s) {
  try {
    return decodeURIComponent(s);
  } catch {
    return s;
  }
}

function newestFirst(a, b) {
  if (a.lastMessageTime !== b.lastMessageTime) return a.lastMessageTime < b.lastMessageTime ? 1 : -1;
  return b.seq - a.seq;
}

/** "updatedAt ASC", "createdAt DESC", "-createdAt" or "name"; default newest first. */
function parseSort(text) {
  if (!text) return { key: 'createdAt', desc: true };
  let [key, dir] = String(text).trim().split(/\s+/);
  let desc = /^desc$/i.test(dir || '');
  if (key.startsWith('-')) {
    key = key.slice(1);
    desc = true;
  }
  if (!/^[A-Za-z]+$/.test(key)) throw fail(400, 'invalid sort');
  return { key, desc };
}

function matchesAgentFilter(room, p) {
  for (const key of ['county', 'district', 'status', 'type']) {
    const want = intParam(p, key, 0);
    if (!want) continue;
    if (!room.data || Number(room.data[key]) !== want) return false;
  }
  return true;
}

function extensionOf(b) {
  if (b.length >= 8 && b.readUInt32BE(0) === 0x89504e47) return '.png';
  if (b.length >= 3 && b[0] === 0xff && b[1] === 0xd8 && b[2] === 0xff) return '.jpg';
  if (b.length >= 6 && b.toString('latin1', 0, 4) === 'GIF8') return '.gif';
  return '.bin';
}

module.exports = { ChatService };
