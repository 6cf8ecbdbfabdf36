'use strict';
// A bad network between a client and a server on loopback: a proxy in a process of its own, so that it goes on while the
// test's JavaScript thread is inside Connect.

const { fork } = require('node:child_process');
const net = require('node:net');
const { once } = require('node:events');
const { setTimeout } = require('node:timers/promises');
const { patience } = require('./patience.js');

const BOUND = patience(10000); // ms

// --- in the process of the proxy ---

const network = { delay: 0, jitter: 0, silent: false, endDelay: 0 };
const pairs = new Set();

// Passes on what comes in, in order, each piece after its delay; then the end.
function pass(pair, from, to) {
  let last = Promise.resolve(); // that everything so far has left
  const later = (wait, act) => {
    const due = Date.now() + wait;
    last = last.then(() => setTimeout(due - Date.now())).then(() => !pair.lost && act());
  };
  const end = () => later(network.delay + network.endDelay, () => to.destroy());
  from.on('data', (bytes) => later(network.delay + Math.random() * network.jitter, () => to.write(bytes)));
  from
    .on('end', end)
    .on('close', end)
    .on('error', () => {});
}

function serve(port) {
  const server = net.createServer({ allowHalfOpen: true, noDelay: true }, (client) => {
    const pair = { lost: network.silent };
    pairs.add(pair);
    const upstream = net.connect({ port, host: '127.0.0.1', noDelay: true, allowHalfOpen: true });
    pass(pair, client, upstream);
    pass(pair, upstream, client);
  });
  server.listen(0, '127.0.0.1', () => process.send({ port: server.address().port }));
}

// A connection that was there during a silence stays silent afterwards: its other side has forgotten it.
function change(settings) {
  Object.assign(network, settings);
  for (const pair of pairs) pair.lost ||= network.silent;
  process.send({ done: true });
}

if (process.argv[2] === 'proxy') {
  serve(Number(process.argv[3]));
  process.on('message', change);
  process.on('disconnect', () => process.exit());
}

// --- in the process of the test ---

/**
 * A proxy in front of the server `sim`, for the length of a test. `address` is what to connect to. `set(settings)`
 * changes the network: `delay` and `jitter` (each piece is delayed by delay and up to jitter more, in ms, order kept),
 * `endDelay` (ms that the end of a connection comes later), `silent` (nothing passes any more, no end either).
 */
async function faultProxy(t, sim) {
  const child = fork(__filename, ['proxy', String(sim.port)]);
  t.after(async () => {
    child.disconnect();
    await once(child, 'exit');
  });
  const answer = async () => (await once(child, 'message', { signal: AbortSignal.timeout(BOUND) }))[0];
  const { port } = await answer();
  return {
    address: `127.0.0.1:${port}`,
    async set(settings) {
      child.send(settings);
      await answer();
    },
  };
}

module.exports = { faultProxy };
