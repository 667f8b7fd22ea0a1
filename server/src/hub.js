'use strict';
// Which sockets belong to which client, and pushing events to them. A socket belongs to the client
// whose token it last proved (sign-up, chat-in or any signed request); chat-out releases it. Each
// client's sockets share a Socket.IO room, so that with a cluster adapter a push made on one node
// reaches the client's sockets on every node.

const roomOf = (clientID) => `client:${clientID}`;

class Hub {
  /** `cluster`: other nodes may hold any client's sockets, so every push is made. */
  constructor(io, { cluster = false } = {}) {
    this.io = io;
    this.cluster = cluster;
  }

  /** `conn` is a socket's session record: { socket, clientID, token }. */
  bind(conn, client) {
    conn.token = client.token;
    if (conn.clientID !== client.clientID) {
      this.unbind(conn);
      conn.clientID = client.clientID;
    }
    conn.socket.join(roomOf(client.clientID)); // again after a release by another socket's chat-out
  }

  unbind(conn) {
    if (!conn.clientID) return;
    conn.socket.leave(roomOf(conn.clientID));
    conn.clientID = null;
  }

  /** Every socket of the client, on every node, stops receiving its pushes. */
  releaseAll(clientID) {
    this.io.in(roomOf(clientID)).socketsLeave(roomOf(clientID));
  }

  /** Whether a push to the client may reach anyone (so its payload is worth building). */
  reaches(clientID) {
    return this.cluster || this.io.sockets.adapter.rooms.has(roomOf(clientID));
  }

  /** Disconnects the client's sockets on every node; resolves to how many there were. */
  async disconnect(clientID) {
    const n = (await this.io.in(roomOf(clientID)).fetchSockets()).length;
    this.io.in(roomOf(clientID)).disconnectSockets(true);
    return n;
  }

  /**
   * Sends queued pushes: { clientID, event, payload, except } to every socket of the client but
   * `except`, or { conn, event, payload } to one socket. A payload that cannot be encoded (a record
   * nested past what the encoder takes) is left out, with a line on the console.
   */
  send(pushes) {
    for (const p of pushes) {
      try {
        if (p.conn) p.conn.socket.emit(p.event, p.payload);
        else (p.except ? this.io.to(roomOf(p.clientID)).except(p.except.socket.id) : this.io.to(roomOf(p.clientID))).emit(p.event, p.payload);
      } catch (e) {
        console.error(`parlo-server: cannot send "${p.event}": ${e.message}`);
      }
    }
  }
}

module.exports = { Hub };
