// The official socket.io-client doing the benchmark's work, for comparison with the kit's client.
// Usage: node bench-client.js PORT REQUESTS INFLIGHT
// Prints one JSON line: {"requests", "seconds", "cpuMicros"} measured around the requests only.
'use strict';
const { io } = require('socket.io-client');

const [port, total, inflight] = process.argv.slice(2).map(Number);
const payload = { id: 'request', body: { text: 'hello, 世界', n: 42, list: [1, 2, 3] } };
const socket = io(`http://127.0.0.1:${port}`, { transports: ['websocket'], reconnection: false });

socket.on('connect', () => {
  // Warm up, then measure.
  run(Math.min(200, total), () => {
    const cpu0 = process.cpuUsage();
    const t0 = process.hrtime.bigint();
    run(total, () => {
      const seconds = Number(process.hrtime.bigint() - t0) / 1e9;
      const cpu = process.cpuUsage(cpu0);
      process.stdout.write(JSON.stringify({ requests: total, seconds, cpuMicros: cpu.user + cpu.system }) + '\n');
      socket.close();
      process.exit(0);
    });
  });
});
socket.on('connect_error', (e) => { console.error(e.message); process.exit(1); });

function run(count, done) {
  let sent = 0;
  let answered = 0;
  const next = () => {
    if (sent >= count) return;
    sent++;
    socket.timeout(30000).emit('echo', payload, (err) => {
      if (err) { console.error('timeout'); process.exit(1); }
      answered++;
      if (answered === count) done();
      else next();
    });
  };
  for (let i = 0; i < inflight && i < count; i++) next();
}
