#!/usr/bin/env node
'use strict';
// A throw-away cluster on this machine's loopback: PostgreSQL in a temporary folder (run as the
// "postgres" user when started by root), N server nodes sharing it, and HAProxy in front keeping
// each client on its node. `scripts/cluster` runs it from the command line; the cluster test and
// the benchmark use it as a module. Everything it starts is stopped by `stop()`, on exit, and on
// SIGINT/SIGTERM.
const { spawn, execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const net = require('node:net');
const path = require('node:path');
const { Client } = require('pg');

const HAPROXY_CONFIG = path.join(__dirname, 'haproxy.cfg');
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

/** The folder of PostgreSQL's server programs (initdb, postgres), or null. */
function postgresBin() {
  const root = '/usr/lib/postgresql';
  const versions = fs.existsSync(root) ? fs.readdirSync(root).sort((a, b) => b - a) : [];
  const dir = versions.map((v) => path.join(root, v, 'bin')).find((d) => fs.existsSync(path.join(d, 'initdb')));
  return dir || null;
}

function haproxyBin() {
  return ['/usr/sbin/haproxy', '/usr/bin/haproxy', '/usr/local/sbin/haproxy'].find((f) => fs.existsSync(f)) || null;
}

/** What is missing to run a cluster here, or null. */
function missing() {
  if (!postgresBin()) return 'PostgreSQL server programs not found (Debian package postgresql)';
  if (!haproxyBin()) return 'haproxy not found (Debian package haproxy)';
  return null;
}

function freePort() {
  return new Promise((resolve, reject) => {
    const s = net.createServer().listen(0, '127.0.0.1', () => {
      const { port } = s.address();
      s.close(() => resolve(port));
    }).on('error', reject);
  });
}

/** Resolves when `child` prints a line matching `re` (to the match), rejects if it exits first. */
function waitForLine(child, re, what, ms = 15000) {
  return new Promise((resolve, reject) => {
    let out = '';
    const t = setTimeout(() => reject(new Error(`${what}: nothing after ${ms} ms: ${out.slice(-500)}`)), ms);
    const onData = (d) => {
      out += d;
      const m = re.exec(out);
      if (m) {
        clearTimeout(t);
        child.stdout.off('data', onData);
        resolve(m);
      }
    };
    child.stdout.on('data', onData);
    child.once('exit', (code, signal) => {
      clearTimeout(t);
      reject(new Error(`${what} exited (${code ?? signal}): ${out.slice(-500)}`));
    });
  });
}

/**
 * Starts a cluster: { nodes = 3, apiKey, clientKey, nodeArgs = [], port (the front's; free one if
 * absent), log = false }. Resolves to { url (the front), db, nodes: [{ url, child }], stop(),
 * startNode(), killNode(i) }.
 */
async function startCluster({ nodes = 3, apiKey = 'parlo-dev-api-key', clientKey = 'parlo-dev-client-key', nodeArgs = [], port, log = false } = {}) {
  const why = missing();
  if (why) throw new Error(why);
  const children = new Set();
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'parlo-cluster-'));
  const cluster = { nodes: [], dir };
  const run = (file, args, opts = {}, quiet = !log) => {
    const child = spawn(file, args, { stdio: ['ignore', 'pipe', quiet ? 'pipe' : 'inherit'], ...opts });
    children.add(child);
    child.once('exit', () => children.delete(child));
    fs.appendFileSync(path.join(dir, 'pids'), `${child.pid}\n`);
    if (quiet) child.stderr.on('data', () => {});
    return child;
  };

  let stopped = null;
  cluster.stop = () => {
    stopped ??= (async () => {
      process.off('exit', onExit);
      // The nodes and the front first, then the database (SIGINT: its fast shutdown).
      for (const group of [[...children].filter((c) => c !== cluster.postgres), [cluster.postgres]]) {
        const live = group.filter((c) => c && children.has(c));
        for (const child of live) child.kill(child === cluster.postgres ? 'SIGINT' : 'SIGTERM');
        const deadline = Date.now() + 10000;
        while (live.some((c) => children.has(c)) && Date.now() < deadline) await sleep(50);
        for (const child of live) if (children.has(child)) child.kill('SIGKILL');
      }
      fs.rmSync(dir, { recursive: true, force: true });
    })();
    return stopped;
  };
  const onExit = () => {
    for (const child of children) child.kill('SIGKILL');
    fs.rmSync(dir, { recursive: true, force: true });
  };
  process.once('exit', onExit);
  // A watchdog for when this process is killed outright: it then ends what was started and
  // removes the folder.
  spawn('sh', ['-c', `while kill -0 ${process.pid} 2>/dev/null; do sleep 1; done; `
    + `[ -d "$0" ] && kill -9 $(cat "$0/pids" 2>/dev/null) 2>/dev/null; sleep 1; rm -rf "$0"`, dir],
  { detached: true, stdio: 'ignore' }).unref();

  try {
    // PostgreSQL refuses to run as root: the folder then belongs to "postgres", who runs it.
    const bin = postgresBin();
    const asUser = process.getuid() === 0
      ? { uid: Number(execFileSync('id', ['-u', 'postgres']).toString()), gid: Number(execFileSync('id', ['-g', 'postgres']).toString()) }
      : {};
    const data = path.join(dir, 'pg');
    fs.mkdirSync(data, { mode: 0o700 });
    if (asUser.uid !== undefined) fs.chownSync(dir, asUser.uid, asUser.gid), fs.chownSync(data, asUser.uid, asUser.gid);
    execFileSync(path.join(bin, 'initdb'), ['-D', data, '-A', 'trust', '-U', 'parlo', '-E', 'UTF8', '--locale=C', '--no-sync'],
      { ...asUser, stdio: 'ignore' });
    const pgPort = await freePort();
    cluster.postgres = run(path.join(bin, 'postgres'), ['-D', data, '-p', String(pgPort), '-h', '127.0.0.1', '-k', dir,
      '-c', 'max_connections=200', '-c', 'shared_buffers=64MB', '-c', 'logging_collector=off'], asUser, true);
    cluster.db = `postgres://parlo@127.0.0.1:${pgPort}/postgres`;
    for (let i = 0; ; i++) {
      const c = new Client({ connectionString: cluster.db });
      try {
        await c.connect();
        await c.end();
        break;
      } catch (e) {
        if (i > 200 || cluster.postgres.exitCode !== null) throw new Error(`PostgreSQL did not start: ${e.message}`);
        await sleep(50);
      }
    }

    const args = ['--db', cluster.db, '--api-key', apiKey, '--client-key', clientKey, ...nodeArgs];
    cluster.startNode = async (i = cluster.nodes.length) => {
      const child = run(process.execPath, [path.join(__dirname, 'index.js'), '--port', String(cluster.nodes[i]?.port ?? 0), ...args]);
      const [, url] = await waitForLine(child, /^parlo-server listening on (http:\/\/127\.0\.0\.1:(\d+))$/m, `node ${i + 1}`);
      cluster.nodes[i] = { url, port: Number(new URL(url).port), child };
      return cluster.nodes[i];
    };
    cluster.killNode = async (i) => {
      const { child } = cluster.nodes[i];
      if (child.exitCode === null && child.signalCode === null) {
        const gone = new Promise((resolve) => child.once('exit', resolve));
        child.kill('SIGKILL');
        await gone;
      }
    };
    for (let i = 0; i < nodes; i++) await cluster.startNode(i);

    // The front: the ready configuration with this run's ports.
    const frontPort = port ?? await freePort();
    const servers = cluster.nodes.map((n, i) => `    server n${i + 1} 127.0.0.1:${n.port} cookie n${i + 1}`).join('\n');
    const config = fs.readFileSync(HAPROXY_CONFIG, 'utf8')
      .replace(/^(\s*bind\s+)127\.0\.0\.1:\d+/m, `$1127.0.0.1:${frontPort}`)
      .replace(/^(\s*server\s+.*\n)+/m, `${servers}\n`);
    fs.writeFileSync(path.join(dir, 'haproxy.cfg'), config);
    cluster.front = run(haproxyBin(), ['-f', path.join(dir, 'haproxy.cfg'), '-db']);
    cluster.url = `http://127.0.0.1:${frontPort}`;
    for (let i = 0; ; i++) {
      const ok = await new Promise((resolve) => net.connect(frontPort, '127.0.0.1').on('connect', function () { this.destroy(); resolve(true); }).on('error', () => resolve(false)));
      if (ok) break;
      if (i > 100 || cluster.front.exitCode !== null) throw new Error('haproxy did not start');
      await sleep(50);
    }
    return cluster;
  } catch (e) {
    await cluster.stop();
    throw e;
  }
}

async function main() {
  const argv = process.argv.slice(2);
  const opt = (name, def) => {
    const i = argv.indexOf(name);
    return i >= 0 ? argv[i + 1] : def;
  };
  if (argv.includes('--help') || argv.includes('-h')) {
    console.error('usage: scripts/cluster [--nodes N] [--port FRONT_PORT] [--api-key K] [--client-key C] [-- NODE_OPTIONS...]');
    process.exit(2);
  }
  const dash = argv.indexOf('--');
  const cluster = await startCluster({
    nodes: Number(opt('--nodes', 3)), port: opt('--port') && Number(opt('--port')), log: true,
    apiKey: opt('--api-key'), clientKey: opt('--client-key'), nodeArgs: dash >= 0 ? argv.slice(dash + 1) : [],
  });
  console.log(`parlo-cluster: PostgreSQL ${cluster.db}`);
  cluster.nodes.forEach((n, i) => console.log(`parlo-cluster: node ${i + 1} ${n.url} (pid ${n.child.pid})`));
  console.log(`parlo-cluster listening on ${cluster.url}`);
  const stop = () => cluster.stop().then(() => process.exit(0));
  process.on('SIGINT', stop);
  process.on('SIGTERM', stop);
  for (const n of cluster.nodes) n.child.once('exit', (code, signal) => console.error(`parlo-cluster: node at ${n.url} exited (${code ?? signal})`));
}

if (require.main === module) {
  main().catch((e) => {
    console.error(`parlo-cluster: ${e.message}`);
    process.exit(1);
  });
}

module.exports = { startCluster, missing };
