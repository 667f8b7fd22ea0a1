'use strict';
// The chat service: every virtual request ("get", "post", "put", "delete" with a url, headers and
// data) is routed here, whether it came over the socket or, for the few plain-HTTP routes, over
// HTTP. A request runs in one store transaction: the handler reads and writes through `ctx.tx`,
// returns the answer body or throws an HttpError, and queues its pushes in `ctx`; the pushes go
// out once the transaction is committed, and not at all when it fails.
const {
  newId, newToken, fail, isPlainObject, isoNow, parseDate, intParam, truthy, splitUrl, shown, comparable, dict,
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
  /**
   * `identity` (strict mode): async (token) => claims of a valid identity token, or throws.
   * `agents`: the client ids that may take rooms asking for an agent.
   */
  constructor({ store, hub, apiKey, clientKey, identity = null, agents = [] }) {
    this.store = store;
    this.hub = hub;
    this.apiKey = apiKey;
    this.clientKey = clientKey;
    this.identity = identity;
    this.agents = new Set(agents);
    this.routes = [];
    const r = (method, pattern, handler, auth = 'client') => this.routes.push({ method, pattern, handler, auth });
    r('post', /^\/client$/, this.signUp, 'keys');
    r('get', /^\/client$/, this.clientList);
    r('post', /^\/client\/chatin$/, this.chatIn);
    r('post', /^\/client\/chatout$/, this.chatOut);
    r('post', /^\/badge$/, this.badge);
    r('post', /^\/badge\/total$/, this.badge);
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

  // ---- entry points ------------------------------------------------------------------------

  /**
   * Handles one virtual request. `req` = { method, url, headers, data, conn }, where `conn` is the
   * socket's session ({ socket, clientID } once a request on it proved its token) or null for HTTP.
   * Resolves to { statusCode, body }; never rejects.
   */
  async handle(req) {
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
        const body = await this.run(ctx, route.auth, route.handler);
        return { statusCode: 200, body: body === undefined ? {} : body };
      }
      throw fail(404, allowed ? `no ${req.method} route for ${norm}` : `no route for ${norm}`);
    } catch (e) {
      return failure(e);
    }
  }

  /**
   * Runs `handler(ctx)` for a request with `headers` (or none, on a signed-in socket) at an auth
   * level: "keys" (the application keys) or "client" (also the client's token). In strict mode
   * sign-up (and, with `identity`, other routes) also needs an identity token for that client.
   * Resolves to the answer body once it is committed and its pushes are out.
   */
  async run(ctx, level, handler, { identity = level === 'keys' } = {}) {
    if (identity && this.identity) ctx.identityClaims = await this.verifyIdentity(ctx.headers);
    const body = await this.store.transaction(async (tx) => {
      ctx.tx = tx;
      ctx.pushes = [];
      await this.authenticate(ctx, level);
      if (ctx.client && ctx.identityClaims && ctx.identityClaims.sub !== ctx.client.clientID) {
        throw fail(403, 'the identity token is for another client');
      }
      return handler.call(this, ctx);
    });
    this.hub.send(ctx.pushes);
    if (ctx.client && ctx.conn && !ctx.signedOut) this.hub.bind(ctx.conn, ctx.client);
    return body;
  }

  /** Strict mode: the claims of the request's identity token, issued by the host's backend. */
  async verifyIdentity(headers) {
    const token = isPlainObject(headers) ? headers.identityToken : undefined;
    if (typeof token !== 'string' || token === '') throw fail(401, 'an identity token is required');
    try {
      return await this.identity(token);
    } catch (e) {
      throw fail(401, `invalid identity token: ${e.code || 'unreadable'}`);
    }
  }

  /** Checks the application keys and, for `client` routes, the client's token. */
  async authenticate(ctx, level) {
    const h = ctx.headers;
    if (h === undefined || h === null) {
      // A request without headers is accepted on a socket that already proved who it is.
      if (level === 'client' && ctx.conn && ctx.conn.clientID) {
        const client = await ctx.tx.client(ctx.conn.clientID);
        if (client && client.token === ctx.conn.token) {
          ctx.client = client;
          return;
        }
      }
      throw fail(401, 'headers are missing');
    }
    if (h.apiKey !== this.apiKey || h.clientKey !== this.clientKey) throw fail(401, 'invalid apiKey or clientKey');
    if (level !== 'client') return;
    const client = typeof h.clientID === 'string' ? await ctx.tx.client(h.clientID) : null;
    if (!client) throw fail(401, 'unknown clientID: sign up first');
    if (typeof h.token !== 'string' || h.token === '' || h.token !== client.token) throw fail(401, 'invalid token');
    ctx.client = client;
  }

  /** Queues a push to every socket of a client but `except`; the payload is built only if someone may get it. */
  async push(ctx, clientID, event, payloadFn, except) {
    if (this.hub.reaches(clientID)) ctx.pushes.push({ clientID, event, payload: await payloadFn(), except });
  }

  // ---- records as clients see them --------------------------------------------------------------

  publicClient(c) {
    if (!c) return undefined;
    return {
      id: c.id, className: 'Client', createdAt: c.createdAt, updatedAt: c.updatedAt,
      clientID: c.clientID, username: c.username, photo: c.photo,
    };
  }

  async privateClient(tx, c) {
    const rooms = await this.roomsOf(tx, c.clientID);
    const views = [];
    for (const r of rooms) views.push(await this.roomView(tx, r, c.clientID));
    return {
      ...this.publicClient(c),
      token: c.token, email: c.email, emailVerified: c.emailVerified, chatinAt: c.chatinAt, data: c.data,
      roomIDs: rooms.map((r) => r.id),
      room: views,
      totalBadge: badgeSum(rooms, c.clientID),
    };
  }

  async clientRef(tx, clientID) {
    return this.publicClient(await tx.client(clientID)) || { clientID };
  }

  async messageView(tx, m, room) {
    return {
      id: m.id, className: 'Message', createdAt: m.createdAt, updatedAt: m.updatedAt,
      message: m.message, messageType: m.messageType, idFromSender: m.idFromSender,
      room: room || { id: m.room, className: 'Room' },
      sender: await this.clientRef(tx, m.sender), option: m.option, data: m.data,
    };
  }

  /** A room for one member: its own unread count as "badge" and the latest message first. */
  async roomView(tx, r, viewer, { withContent = true } = {}) {
    const latest = withContent ? await tx.latestOf(r) : null;
    const client = [];
    for (const id of r.members) client.push(await this.clientRef(tx, id));
    return {
      id: r.id, className: 'Room', createdAt: r.createdAt, updatedAt: r.updatedAt,
      name: r.name, thumbnail: r.thumbnail, isPublic: r.isPublic,
      client,
      message: latest ? [await this.messageView(tx, latest)] : [],
      archivedBy: [...r.archivedBy],
      readTime: withContent ? { ...r.readTime } : {},
      lastMessageTime: r.lastMessageTime,
      sender: latest ? await this.clientRef(tx, latest.sender) : undefined,
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
  async roomsOf(tx, clientID) {
    return (await tx.roomsOfMember(clientID)).sort(newestFirst);
  }

  async totalBadge(tx, clientID) {
    return badgeSum(await tx.roomsOfMember(clientID), clientID);
  }

  /** The room if the client is a member (locked for the request's changes when `lock`). */
  async roomFor(ctx, id, lock = false) {
    const room = await ctx.tx.room(id, { lock });
    if (!room) throw fail(404, `room not found: ${shown(id)}`);
    if (!room.members.includes(ctx.client.clientID)) throw fail(403, 'not a member of this room');
    return room;
  }

  /** The client by clientID or by its server id. */
  async findClient(tx, key) {
    return (await tx.client(key)) || tx.clientById(key);
  }

  async canReadFile(tx, f, clientID) {
    if (f.isPublic) return true;
    if (!clientID) return false;
    if (f.owner === clientID) return true;
    const room = f.room ? await tx.room(f.room) : null;
    return !!room && room.members.includes(clientID);
  }

  // ---- session and account -----------------------------------------------------------------------

  async signUp(ctx) {
    const d = ctx.data;
    if (!isPlainObject(d)) throw fail(400, 'the client record is missing');
    const clientID = str(d.clientID, 'clientID', MAX_ID);
    if (!clientID) throw fail(400, 'clientID is required');
    if (ctx.identityClaims && ctx.identityClaims.sub !== clientID) throw fail(403, 'the identity token is for another client');
    // Everything is checked before anything changes: a refused sign-up leaves no trace.
    const changes = {};
    for (const key of ['username', 'email', 'photo', 'emailVerified']) {
      const v = str(d[key], key);
      if (v !== undefined) changes[key] = v;
    }
    const data = obj(d.data, 'data');
    if (data) changes.data = data;
    const now = isoNow();
    const c = (await ctx.tx.client(clientID, { lock: true }))
      || { id: newId(), clientID, token: newToken(), createdAt: now, deviceTokens: [] };
    Object.assign(c, changes, { updatedAt: now });
    await ctx.tx.saveClient(c);
    ctx.client = c;
    return this.privateClient(ctx.tx, c);
  }

  async chatIn(ctx) {
    const c = ctx.client;
    c.chatinAt = isoNow();
    await ctx.tx.saveClient(c);
    return this.privateClient(ctx.tx, c);
  }

  /**
   * Chat-out: forgets the device token, ends the client's cookie sessions and, in strict mode,
   * its token; the socket stops receiving the client's pushes.
   */
  async chatOut(ctx) {
    const c = ctx.client;
    const deviceToken = isPlainObject(ctx.data) ? ctx.data.token : undefined;
    if (typeof deviceToken === 'string' && deviceToken !== '') {
      c.deviceTokens = (c.deviceTokens || []).filter((t) => t.token !== deviceToken);
    }
    if (this.identity) c.token = newToken(); // the sockets that proved the old one no longer count
    await ctx.tx.saveClient(c);
    await ctx.tx.deleteSessionsOf(c.clientID);
    ctx.signedOut = true;
    if (this.identity) this.hub.releaseAll(c.clientID);
    else if (ctx.conn) this.hub.unbind(ctx.conn);
    return { clientID: c.clientID, chatoutAt: isoNow() };
  }

  async setDeviceToken(ctx) {
    const d = ctx.data;
    if (!isPlainObject(d)) throw fail(400, 'a JSON body with "type" and "token" is required');
    const token = str(d.token, 'token');
    const type = str(d.type, 'type') || 'ios';
    if (!token) throw fail(400, 'token is required');
    const c = ctx.client;
    c.deviceTokens = (c.deviceTokens || []).filter((t) => t.token !== token);
    c.deviceTokens.push({ type, token });
    await ctx.tx.saveClient(c);
    return { type, token };
  }

  async badge(ctx) {
    return { total: await this.totalBadge(ctx.tx, ctx.client.clientID) };
  }

  async clientList(ctx) {
    const offset = intParam(ctx.params, 'offset', 0);
    const limit = intParam(ctx.params, 'limit', MAX_PAGE, MAX_PAGE);
    const all = (await ctx.tx.allClients()).sort((a, b) => (a.createdAt < b.createdAt ? 1 : -1));
    return all.slice(offset, offset + limit).map((c) => this.publicClient(c));
  }

  /** "/Room/?offset=&limit=&sort=": the records of a class that the client may read. */
  async classQuery(ctx) {
    const { tx } = ctx;
    const me = ctx.client.clientID;
    const offset = intParam(ctx.params, 'offset', 0);
    const limit = intParam(ctx.params, 'limit', DEFAULT_PAGE, MAX_PAGE);
    const { key, desc } = parseSort(ctx.params.get('sort'));
    const rows = [];
    switch (ctx.args[0]) {
      case 'Room': for (const r of await this.roomsOf(tx, me)) rows.push(await this.roomView(tx, r, me)); break;
      case 'Client': for (const c of await tx.allClients()) rows.push(this.publicClient(c)); break;
      case 'Message':
        for (const r of await this.roomsOf(tx, me)) for (const m of await tx.messagesOf(r.id)) rows.push(await this.messageView(tx, m));
        break;
      case 'File':
        for (const f of await tx.allFiles()) if (await this.canReadFile(tx, f, me)) rows.push(this.fileView(f));
        break;
      default: throw fail(404, `unknown class ${ctx.args[0]}`);
    }
    rows.sort((a, b) => {
      const [x, y] = [comparable(a[key]), comparable(b[key])];
      const c = x < y ? -1 : x > y ? 1 : 0;
      return desc ? -c : c;
    });
    return rows.slice(offset, offset + limit);
  }

  // ---- rooms ---------------------------------------------------------------------------------------

  async newRoom(ctx, d, extraMembers) {
    const now = isoNow();
    const room = {
      id: newId(), seq: await ctx.tx.nextSeq(), createdAt: now, updatedAt: now, lastMessageTime: now,
      name: str(d.name, 'name') || '', thumbnail: str(d.thumbnail, 'thumbnail'),
      isPublic: truthy(d.isPublic), members: [ctx.client.clientID], archivedBy: [], readTime: dict(), unread: dict(),
      lastMessageId: null, agent: null, data: obj(d.data, 'data'),
    };
    for (const id of extraMembers) if (!room.members.includes(id)) room.members.push(id);
    for (const id of room.members) room.unread[id] = 0;
    await ctx.tx.saveRoom(room);
    await this.pushJoined(ctx, room);
    return room;
  }

  /** Members named in a room body's "client" list (dictionaries with "clientID" or "id", or texts). */
  async invited(tx, d) {
    if (d.client === undefined || d.client === null) return [];
    if (!Array.isArray(d.client)) throw fail(400, 'client must be a list');
    if (d.client.length > 500) throw fail(413, 'too many clients');
    const ids = [];
    for (const entry of d.client) {
      const key = isPlainObject(entry) ? entry.clientID ?? entry.id : entry;
      const c = typeof key === 'string' ? await this.findClient(tx, key) : null;
      if (!c) throw fail(404, `client not found: ${shown(key)}`);
      ids.push(c.clientID);
    }
    return ids;
  }

  async createRoom(ctx) {
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    const room = await this.newRoom(ctx, d, await this.invited(ctx.tx, d));
    return this.roomView(ctx.tx, room, ctx.client.clientID);
  }

  /** A two-member room with another client; an existing one is reused unless "duplicate" or "forceCreate". */
  async createAndJoin(ctx) {
    const { tx } = ctx;
    const me = ctx.client.clientID;
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    const other = await this.findClient(tx, ctx.args[0]);
    if (!other) throw fail(404, `client not found: ${shown(ctx.args[0])}`);
    if (other.clientID === me) throw fail(400, 'cannot open a room with oneself');
    if (!truthy(d.duplicate) && !truthy(d.forceCreate)) {
      const existing = (await this.roomsOf(tx, me)).find((r) => r.members.length === 2 && r.members.includes(other.clientID));
      if (existing) return this.roomView(tx, existing, me);
    }
    return this.roomView(tx, await this.newRoom(ctx, d, [other.clientID]), me);
  }

  /** Joins a public room (or answers the room to one of its members). */
  async joinRoom(ctx) {
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    const id = str(d.id, 'id', MAX_ID);
    if (!id) throw fail(400, 'room id is required');
    const room = await ctx.tx.room(id, { lock: true });
    if (!room) throw fail(404, `room not found: ${id}`);
    const me = ctx.client.clientID;
    if (!room.members.includes(me)) {
      if (!room.isPublic) throw fail(403, 'this room is not public');
      await this.addMember(ctx, room, me);
    }
    return this.roomView(ctx.tx, room, me);
  }

  /** An agent (a client id the server was given) takes a room that asked for one and has none yet. */
  async agentJoin(ctx) {
    const room = await ctx.tx.room(ctx.args[0], { lock: true });
    if (!room) throw fail(404, `room not found: ${shown(ctx.args[0])}`);
    const me = ctx.client.clientID;
    if (!this.agents.has(me)) throw fail(403, 'only agents take rooms this way');
    if (!(isPlainObject(room.data) && truthy(room.data.needAgent))) throw fail(403, 'this room did not ask for an agent');
    if (room.agent && room.agent !== me) throw fail(403, 'this room already has an agent');
    room.agent = me;
    if (!room.members.includes(me)) await this.addMember(ctx, room, me);
    else await ctx.tx.saveRoom(room);
    return this.roomView(ctx.tx, room, me);
  }

  async addMember(ctx, room, clientID) {
    room.members.push(clientID);
    room.unread[clientID] = 0;
    room.updatedAt = isoNow();
    await ctx.tx.saveRoom(room);
    await this.pushJoined(ctx, room);
  }

  async getRoom(ctx) {
    return this.roomView(ctx.tx, await this.roomFor(ctx, ctx.args[0]), ctx.client.clientID);
  }

  /**
   * "/room/list": the client's rooms. By page ("offset"/"skip", "limit"), newest first; with
   * "lastMessageTime", only rooms whose last message is newer, in "sort" order (oldest first for
   * "updatedAt ASC", so a client can walk forward page by page); filtered by the agent values
   * "county", "district", "status", "type" (0 or absent: any).
   */
  async roomList(ctx) {
    const me = ctx.client.clientID;
    const p = ctx.params;
    const since = parseDate(p.get('lastMessageTime'), 'lastMessageTime');
    const filter = agentFilter(p);
    let rooms = (await this.roomsOf(ctx.tx, me)).filter(filter);
    if (since) rooms = rooms.filter((r) => r.lastMessageTime > since);
    if (p.has('sort')) {
      const { desc } = parseSort(p.get('sort'));
      rooms = rooms.sort(desc ? newestFirst : (a, b) => -newestFirst(a, b));
    }
    return this.views(ctx, this.page(rooms, p));
  }

  /** Rooms that asked for an agent (data.needAgent) and have none yet, newest first. */
  async needAgentList(ctx) {
    const filter = agentFilter(ctx.params);
    const rooms = (await ctx.tx.allRooms())
      .filter((r) => !r.agent && isPlainObject(r.data) && truthy(r.data.needAgent) && filter(r))
      .sort(newestFirst);
    return this.views(ctx, this.page(rooms, ctx.params), (r) => r.members.includes(ctx.client.clientID));
  }

  async views(ctx, rooms, withContent = () => true) {
    const out = [];
    for (const r of rooms) out.push(await this.roomView(ctx.tx, r, ctx.client.clientID, { withContent: withContent(r) }));
    return out;
  }

  page(list, p) {
    const offset = p.has('offset') ? intParam(p, 'offset', 0) : intParam(p, 'skip', 0);
    const limit = intParam(p, 'limit', DEFAULT_PAGE, MAX_PAGE);
    return list.slice(offset, offset + (limit || DEFAULT_PAGE));
  }

  /** Archives the room for this client; a later message brings it back. */
  async archiveRoom(ctx) {
    const room = await this.roomFor(ctx, ctx.args[0], true);
    const me = ctx.client.clientID;
    if (!room.archivedBy.includes(me)) room.archivedBy.push(me);
    await ctx.tx.saveRoom(room);
    const view = await this.roomView(ctx.tx, room, me);
    await this.push(ctx, me, 'roomDidUpadte', () => view, ctx.conn);
    return view;
  }

  /** Records that the client read the room now: its unread count drops to 0. */
  async readReport(ctx) {
    const room = await this.roomFor(ctx, ctx.args[0], true);
    const me = ctx.client.clientID;
    room.readTime[me] = isoNow();
    room.unread[me] = 0;
    await ctx.tx.saveRoom(room);
    if (isPlainObject(ctx.data) && truthy(ctx.data.echo)) {
      const payload = { id: room.id, className: 'Room', readTime: { ...room.readTime }, lastMessageTime: room.lastMessageTime };
      for (const member of room.members) await this.push(ctx, member, 'receive', () => payload, ctx.conn);
    }
    return this.roomView(ctx.tx, room, me);
  }

  async pushJoined(ctx, room) {
    for (const member of room.members) await this.push(ctx, member, 'joined', () => this.roomView(ctx.tx, room, member), ctx.conn);
  }

  // ---- messages ------------------------------------------------------------------------------------

  /**
   * A page of a room's history: the newest `limit` messages before `offset` (counted from the
   * newest) or before `pinDate`, oldest first.
   */
  async messagePage(ctx) {
    const p = ctx.params;
    const roomID = p.get('room');
    if (!roomID) throw fail(400, 'room is required');
    const room = await this.roomFor(ctx, roomID);
    const limit = intParam(p, 'limit', DEFAULT_PAGE, MAX_PAGE);
    const date = parseDate(p.get('pinDate'), 'pinDate');
    const offset = date ? 0 : intParam(p, 'offset', 0);
    const out = [];
    for (const m of await ctx.tx.newestMessages(room.id, { limit, offset, date })) out.push(await this.messageView(ctx.tx, m));
    return out;
  }

  async createMessage(ctx) {
    const { tx } = ctx;
    const d = ctx.data;
    if (!isPlainObject(d)) throw fail(400, 'the message record is missing');
    const roomID = isPlainObject(d.room) ? d.room.id : d.room;
    if (typeof roomID !== 'string' || roomID === '') throw fail(400, 'room is required');
    const messageType = d.messageType === undefined || d.messageType === null ? 'text' : d.messageType;
    if (!MESSAGE_TYPES.has(messageType) || messageType === 'delete') throw fail(400, `invalid messageType: ${shown(messageType, 32)}`);
    let idFromSender = d.idFromSender;
    if (idFromSender !== undefined && idFromSender !== null) {
      idFromSender = typeof idFromSender === 'number' || typeof idFromSender === 'string' ? Number(idFromSender) : NaN;
      if (!Number.isSafeInteger(idFromSender)) throw fail(400, 'idFromSender must be an integer');
    }
    const text = str(d.message, 'message', MAX_TEXT) ?? '';
    const option = obj(d.option, 'option');
    const data = obj(d.data, 'data');
    // The room is locked first, so that a re-send racing its original sees it.
    const room = await this.roomFor(ctx, roomID, true);
    const me = ctx.client.clientID;
    const resent = idFromSender === undefined || idFromSender === null ? null : (await tx.messagesWithSenderId(me, idFromSender))
      .find((m) => m.room === room.id && m.messageType === messageType && m.message === text);
    if (resent) {
      // A re-send after a lost acknowledgement: the others already have it; only the asking socket
      // may have missed its echo, which is what settles the message on the sending device.
      if (ctx.conn) ctx.pushes.push({ conn: ctx.conn, event: 'message', payload: await this.messagePush(tx, resent, room, me) });
      return this.messageView(tx, resent);
    }
    const now = isoNow();
    const m = {
      id: newId(), seq: await tx.nextSeq(), room: room.id, sender: me, createdAt: now, updatedAt: now,
      message: text, messageType, idFromSender: idFromSender ?? undefined, option, data,
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
    await tx.addMessage(m, room);
    for (const member of room.members) await this.push(ctx, member, 'message', () => this.messagePush(tx, m, room, member));
    return this.messageView(tx, m);
  }

  /** The "message" push for one member: the room as that member sees it and its badge total. */
  async messagePush(tx, m, room, member) {
    return { ...(await this.messageView(tx, m, await this.roomView(tx, room, member))), totalBadge: await this.totalBadge(tx, member) };
  }

  /** Changes a message's text, type, option or data; type "delete" blanks it. Senders only. */
  async updateMessage(ctx) {
    const m = await ctx.tx.message(ctx.args[0]);
    if (!m) throw fail(404, `message not found: ${shown(ctx.args[0])}`);
    const room = await this.roomFor(ctx, m.room);
    if (m.sender !== ctx.client.clientID) throw fail(403, 'only the sender may change a message');
    const d = isPlainObject(ctx.data) ? ctx.data : {};
    if (d.messageType !== undefined && d.messageType !== null) {
      if (!MESSAGE_TYPES.has(d.messageType)) throw fail(400, `invalid messageType: ${shown(d.messageType, 32)}`);
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
    await ctx.tx.saveMessage(m);
    const view = await this.messageView(ctx.tx, m);
    for (const member of room.members) await this.push(ctx, member, 'didUpdateMessage', () => view);
    return view;
  }

  deleteMessage(ctx) {
    return this.updateMessage({ ...ctx, data: { messageType: 'delete' } });
  }

  /** Messages from others created after `lastSeenDate` and up to `messageDate` (either bound optional). */
  async unseenCount(ctx) {
    const p = ctx.params;
    const roomID = p.get('room');
    if (!roomID) throw fail(400, 'room is required');
    const room = await this.roomFor(ctx, roomID);
    const upTo = parseDate(p.get('messageDate'), 'messageDate');
    const after = parseDate(p.get('lastSeenDate'), 'lastSeenDate');
    return { count: await ctx.tx.unseenCount(room.id, ctx.client.clientID, after, upTo) };
  }

  // ---- files ---------------------------------------------------------------------------------------

  /** The file's bytes if `clientID` (null: nobody signed in) may read it. */
  async readFile(tx, name, clientID) {
    const f = await tx.file(name);
    if (!f) throw fail(404, `file not found: ${shown(name)}`);
    if (!(await this.canReadFile(tx, f, clientID))) throw fail(clientID ? 403 : 401, clientID ? 'no access to this file' : 'chat in first');
    const bytes = await tx.getFileBytes(f.fileName);
    if (!bytes) throw fail(404, `file not found: ${shown(name)}`);
    return { file: f, bytes };
  }

  async fileBytes(ctx) {
    return (await this.readFile(ctx.tx, ctx.args[0], ctx.client.clientID)).bytes;
  }

  /** Stores an uploaded file under a name the server makes; answers the file record. */
  async addFile(ctx, { type, room, isPublic, bytes }) {
    const roomID = room || '';
    if (roomID) await this.roomFor(ctx, roomID);
    const now = isoNow();
    const f = {
      id: newId(), fileName: `${newId(20)}${extensionOf(bytes)}`, type: type || 'other', size: bytes.length,
      isPublic: truthy(isPublic), room: roomID, owner: ctx.client.clientID, createdAt: now, updatedAt: now,
    };
    await ctx.tx.addFile(f, bytes);
    return this.fileView(f);
  }
}

/** The answer for a failed request: its HttpError, or 500 for anything unexpected. */
function failure(e) {
  if (e && typeof e.status === 'number') return { statusCode: e.status, body: e.message };
  console.error('parlo-server: internal error:', e);
  return { statusCode: 500, body: 'internal error' };
}

function badgeSum(rooms, clientID) {
  let total = 0;
  for (const r of rooms) total += r.unread[clientID] || 0;
  return total;
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

/** The rooms whose "data" has the query's "county", "district", "status", "type" (0 or absent: any). */
function agentFilter(p) {
  const wanted = ['county', 'district', 'status', 'type'].map((key) => [key, intParam(p, key, 0)]).filter(([, v]) => v);
  return (room) => wanted.every(([key, v]) => isPlainObject(room.data) && Number(comparable(room.data[key])) === v);
}

function extensionOf(b) {
  if (b.length >= 8 && b.readUInt32BE(0) === 0x89504e47) return '.png';
  if (b.length >= 3 && b[0] === 0xff && b[1] === 0xd8 && b[2] === 0xff) return '.jpg';
  if (b.length >= 6 && b.toString('latin1', 0, 4) === 'GIF8') return '.gif';
  return '.bin';
}

module.exports = { ChatService, failure };
