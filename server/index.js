#!/usr/bin/env node
'use strict';
// Command line: node server/index.js --port N --api-key K --client-key C [--data DIR | --db URL]
//   [--host H] [--test-control] [--max-upload BYTES] [--agents ID,ID] [--strict --identity-secret S]
// The identity secret may come from PARLO_IDENTITY_SECRET instead (a command line is public).
// Prints "parlo-server listening on http://HOST:PORT" once it accepts connections.
const { createServer } = require('./src/server');

const DEFAULTS = { port: 3000, host: '127.0.0.1', apiKey: 'parlo-dev-api-key', clientKey: 'parlo-dev-client-key' };

function usage(msg) {
  if (msg) console.error(`parlo-server: ${msg}`);
  console.error('usage: node server/index.js [--port N] [--host H] [--api-key K] [--client-key C] [--data DIR | --db postgres://...]\n'
    + '         [--test-control] [--max-upload BYTES] [--agents ID,ID...] [--strict [--identity-secret S]]');
  process.exit(2);
}

function parseArgs(argv) {
  const opts = { ...DEFAULTS, dataDir: null, testControl: false, identitySecret: process.env.PARLO_IDENTITY_SECRET || null };
  const explicit = new Set();
  for (let i = 0; i < argv.length; i++) {
    const arg = argv[i];
    const [flag, inline] = arg.startsWith('--') && arg.includes('=') ? arg.split(/=(.*)/s) : [arg, undefined];
    const value = () => {
      if (inline !== undefined) return inline;
      if (i + 1 >= argv.length) usage(`${flag} needs a value`);
      i += 1;
      return argv[i];
    };
    switch (flag) {
      case '--port': {
        const v = value();
        if (!/^\d+$/.test(v) || Number(v) > 65535) usage(`invalid port ${v}`);
        opts.port = Number(v);
        break;
      }
      case '--host': opts.host = value(); break;
      case '--api-key': opts.apiKey = value(); explicit.add('apiKey'); break;
      case '--client-key': opts.clientKey = value(); explicit.add('clientKey'); break;
      case '--data': opts.dataDir = value(); break;
      case '--db': opts.db = value(); break;
      case '--test-control': opts.testControl = true; break;
      case '--agents': opts.agents = value().split(',').filter(Boolean); break;
      case '--strict': opts.strict = true; break;
      case '--identity-secret': opts.identitySecret = value(); break;
      case '--max-upload': {
        const v = value();
        if (!/^\d+$/.test(v)) usage(`invalid size ${v}`);
        opts.maxUploadBytes = Number(v);
        break;
      }
      case '--help': case '-h': usage(); break;
      default: usage(`unknown option ${arg}`);
    }
  }
  return { opts, explicit };
}

async function main() {
  const { opts, explicit } = parseArgs(process.argv.slice(2));
  if (opts.db && opts.dataDir) usage('--data and --db exclude each other');
  if (opts.strict && !opts.identitySecret) usage('--strict needs --identity-secret (or PARLO_IDENTITY_SECRET)');
  const server = await createServer(opts);
  if (!explicit.has('apiKey') || !explicit.has('clientKey')) {
    console.log(`parlo-server: development keys: apiKey=${opts.apiKey} clientKey=${opts.clientKey}`);
  }
  if (opts.dataDir) console.log(`parlo-server: data folder ${opts.dataDir}`);
  if (opts.db) console.log(`parlo-server: cluster node on ${opts.db.replace(/\/\/[^@/]*@/, '//')}`);
  if (opts.strict) console.log('parlo-server: strict mode: sign-up needs an identity token');
  if (opts.testControl) console.log('parlo-server: test control enabled under /__control/');
  console.log(`parlo-server listening on ${server.url}`);
  let stopping = false;
  const stop = () => {
    if (stopping) return;
    stopping = true;
    server.close().then(() => process.exit(0), () => process.exit(1));
    setTimeout(() => process.exit(1), 5000).unref();
  };
  process.on('SIGINT', stop);
  process.on('SIGTERM', stop);
}

main().catch((e) => {
  console.error(`parlo-server: ${e.message}`);
  process.exit(1);
});
