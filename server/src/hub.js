'use strict';
// Which sockets belong to which client, and pushing events to them. A socket belongs to the client
// whose token it last proved (sign-up, chat-in or any signed request); chat-out releases it.

class Hub {
  /** `defer(fn)` holds a push until the state it shows is saved; fn gets an error when saving failed. */
  constructor(defer = (fn) => fn(null)) {
    this.byClient = new Map(); // clientID -> Set of connections
    this.defer = defer;
  }

  /** `conn` is a socket's session record: { socket, clientID }. */
  bind(conn, clientID) {
    if (conn.clientID === clientID) return;
    this.unbind(conn);
    conn.clientID = clientID;
    let set = this.byClient.get(clientID);
    if (!set) {
      set = new Set();
      this.byClient.set(clientID, set);
    }
    set.add(conn);
  }

  unbind(conn) {
    if (!conn.clientID) return;
    const set = this.byClient.get(conn.clientID);
    if (set) {
      set.delete(conn);
      if (set.size === 0) this.byClient.delete(conn.clientID);
    }
    conn.clientID = null;
  }

  connectionsOf(clientID) {
    return [...(this.byClient.get(clientID) || [])];
  }

  /** Emits `event` to every socket of the client but `except`; the payload is built only if needed. */
  toClient(clientID, event, payloadFn, except) {
    const set = this.byClient.get(clientID);
    if (!set) return;
    let payload;
    for (const conn of set) {
      if (conn === except) continue;
      if (payload === undefined) payload = payloadFn();
      this.emit(conn, event, payload);
    }
  }

  emit(conn, event, payload) {
    this.defer((error) => error || conn.socket.emit(event, payload));
  }
}

module.exports = { Hub };
