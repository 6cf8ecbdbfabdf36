'use strict';
// How long it takes until the end of a session is through, in milliseconds.

const assert = require('node:assert/strict');
const { once } = require('node:events');
const { setFlagsFromString } = require('node:v8');
const { runInNewContext } = require('node:vm');
const { Worker } = require('node:worker_threads');
const { DBCore } = require('./addon.js');

setFlagsFromString('--expose-gc');
const gc = runInNewContext('gc');

const now = () => Number(process.hrtime.bigint()) / 1e6;
const took = (work) => {
  const start = now();
  work();
  return now() - start;
};

function connect(sim) {
  const core = new DBCore();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  return core;
}

// Kills the process `pid` 300 ms after it is told to start, and says when.
const KILLER = `
  const { parentPort, workerData: { pid, start } } = require('node:worker_threads');
  parentPort.postMessage('ready');
  Atomics.wait(start, 0, 0);
  Atomics.wait(start, 1, 0, 300);
  const time = Number(process.hrtime.bigint()) / 1e6;
  process.kill(pid, 'SIGKILL');
  parentPort.postMessage(time);
`;

/** From the death of the server's process until the read that waits for its answer returns. The server is used up. */
async function readWhenServerDies(sim) {
  await sim.setFault({ step: 'read', action: 'hang' });
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  const start = new Int32Array(new SharedArrayBuffer(8));
  const killer = new Worker(KILLER, { eval: true, workerData: { pid: sim.pid, start } });
  await once(killer, 'message');
  const begun = now();
  Atomics.store(start, 0, 1);
  Atomics.notify(start, 0);
  const value = driver.GetTagValue('A');
  const returned = now();
  assert.equal(value, undefined);
  const [died] = await once(killer, 'message');
  assert.ok(begun < died, 'the read was waiting');
  assert.ok(core, 'its instance stood meanwhile');
  return returned - died;
}

/** From the close of the notification connection alone until the read that waits returns. */
async function readWhenServerCloses(sim) {
  await sim.setFault({ step: 'read', action: 'hang' });
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  await sim.clearRequests();
  const closing = sim.closeNotification();
  const value = driver.GetTagValue('A');
  const returned = Date.now();
  assert.equal(value, undefined);
  await closing;
  const { time } = await sim.waitFor('close', { kind: 'notification' });
  await sim.clearFaults();
  return Math.max(0, returned - time);
}

/** How much longer Connect takes on an open session than on none. */
function disconnectBySecondConnect(sim) {
  const core = new DBCore();
  const connectAgain = () => assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  const first = took(connectAgain);
  return took(connectAgain) - first;
}

/** How long the collection of an instance with a session holds the JavaScript thread. */
async function disconnectByCollection(sim) {
  const reference = new WeakRef(connect(sim));
  await new Promise(setImmediate);
  gc();
  const start = now();
  await new Promise(setImmediate); // finalisers run before it
  const duration = now() - start;
  assert.equal(reference.deref(), undefined);
  return duration;
}

module.exports = { readWhenServerDies, readWhenServerCloses, disconnectBySecondConnect, disconnectByCollection };
