'use strict';
// The store behind the service, one interface with two implementations: the embedded SQLite store
// (a data folder, or memory) for one process, and PostgreSQL (`db: "postgres://..."`) for a cluster
// of nodes sharing one database. Both run each request in a transaction of its own, committed
// before the request is answered.
const { SqliteStore } = require('./sqlite-store');

async function openStore({ db, dataDir }) {
  if (!db) return new SqliteStore(dataDir);
  const { PgStore } = require('./pg-store');
  return PgStore.open(db);
}

module.exports = { openStore };
