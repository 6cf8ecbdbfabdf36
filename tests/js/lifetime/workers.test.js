'use strict';
// Workers: each environment has a class and sessions of its own, which end with it at any moment.

const assert = require('node:assert/strict');
const path = require('node:path');
const { afterEach, beforeEach, test } = require('node:test');
const { Worker } = require('node:worker_threads');
const { sharedServer, connect, collectInstances, untilConnections } = require('../support/server.js');
const { runProgram } = require('../support/child.js');
const { callLog, within } = require('../support/events.js');
const { FLOOD_PROJECT, queuedRecords, mark } = require('../support/flood.js');
const { settled, backTo } = require('../support/resources.js');
const { startWorker, terminateAll, terminateAtRandom } = require('../support/workers.js');

const sim = sharedServer({ project: FLOOD_PROJECT, notifyBlock: 0 });

let before;
beforeEach(async () => {
  connect(sim);
  await collectInstances();
  await sim.clearRequests();
  before = await settled();
});

afterEach(async () => {
  await terminateAll();
  await sim.set('D0', 'M', 0);
});

async function nothingLeft() {
  await backTo(before, 'descriptors and threads');
}

test('a worker that is terminated ends its session', async () => {
  const worker = startWorker(sim);
  assert.deepEqual(await worker.ready, { result: 0, value: 0, own: true });
  await worker.terminate();
  await sim.waitFor('close', { kind: 'notification' });
  await untilConnections(sim, 0);
  await nothingLeft();
});

test('a worker ends its session by process.exit(), by its last turn, and by an exception', async () => {
  for (const [then, expected] of [
    ['process.exit(3)', 3],
    ['throw new Error("the end")', 1],
  ]) {
    const worker = startWorker(sim, { then });
    worker.on('error', ({ message }) => assert.equal(message, 'the end'));
    assert.equal(await worker.ended, expected);
  }
  const last = startWorker(sim, { then: 'setImmediate(() => {})' });
  await last.ready;
  await sim.closeAll(); // lets the callback go, which kept the worker alive
  assert.equal(await last.ended, 0);
  await nothingLeft();
});

test('process.exit() and an exception in a callback end a worker', async () => {
  for (const [act, expected] of [
    ['process.exit(4)', 4],
    ['throw new Error("in the callback")', 1],
  ]) {
    const worker = startWorker(sim, {
      then: `core.SetRtAlarmNotify(() => { ${act}; }, false); post({ subscribed: true });`,
    });
    worker.on('error', ({ message }) => assert.equal(message, 'in the callback'));
    await worker.message('subscribed');
    const id = await sim.raiseAlarm({});
    assert.equal(await worker.ended, expected);
    await sim.endAlarm(id);
  }
  await nothingLeft();
});

test('process.exit() in the replay of alarms, and in an element that is being written, end a worker', async () => {
  const id = await sim.raiseAlarm({});
  for (const then of [
    'core.SetRtAlarmNotify(() => process.exit(5), true);',
    'driver.SetTagValue("Q,M", Object.defineProperty([1, 2], 0, { get() { process.exit(5); } }));',
  ]) {
    assert.equal(await startWorker(sim, { then }).ended, 5);
  }
  await sim.endAlarm(id);
  await nothingLeft();
});

test('a worker is terminated with 50,000 changes queued', async () => {
  const worker = startWorker(sim, {
    then: `
    const idle = new Int32Array(new SharedArrayBuffer(4));
    while (driver.GetTagValue('M') !== 77) Atomics.wait(idle, 0, 0, 1);
    post({ queued: true });
    Atomics.wait(idle, 0, 0);
  `,
  });
  await worker.ready;
  await sim.notifyRaw(queuedRecords(50000));
  const marking = setInterval(() => sim.notifyRaw(mark(77)), 50); // again, should the border of a receive cut it
  await worker.message('queued');
  clearInterval(marking);
  await worker.terminate();
  await nothingLeft();
});

test('a worker that is terminated inside Connect ends when that returns', async () => {
  await sim.setFault({ step: 'handshake1', action: 'delay', ms: 1500 });
  const worker = startWorker(sim);
  const { time } = await sim.waitFor('request', { command: '7' });
  await worker.terminate();
  assert.ok(Date.now() - time >= 1490);
  await nothingLeft();
});

test('a worker that is terminated inside a read ends when that returns', async () => {
  await sim.setFault({ step: 'tagids', action: 'delay', ms: 1500, skip: 1 });
  const worker = startWorker(sim, { then: 'driver.GetTagValue("unknown")' });
  const { time } = await sim.waitFor('request', { command: 'L' }, { count: 2 }); // the first is that of ConnectTag
  await worker.terminate();
  assert.ok(Date.now() - time >= 1490);
  await nothingLeft();
});

test('workers are terminated at random moments while the main thread runs its own session', async () => {
  const driver = connect(sim).GetDriver('D0');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('Q,M');
  for (let round = 0; round < 24; round++) {
    await terminateAtRandom(sim);
    assert.equal(typeof driver.GetTagValue('Q'), 'number');
  }
  await sim.set('D0', 'M', 33);
  const isMark = ([, tag, value]) => tag === 'M' && value === 33;
  while (!log.calls.some(isMark)) await log.until(log.calls.length + 1); // changes of Q may still come behind it
  assert.equal(driver.GetTagValue('M'), 33);
});

test('four workers at once have a session each, and each a class of its own', async () => {
  const workers = [];
  for (let i = 0; i < 4; i++) {
    workers.push(startWorker(sim));
    // Then the next: of those that connect in the same microsecond one may fail.
    assert.deepEqual(await workers[i].ready, { result: 0, value: 0, own: true });
  }
  await sim.set('D0', 'M', 44);
  for (const worker of workers) assert.deepEqual(await worker.message('change'), ['D0', 'M', 44]);
  for (const worker of workers.splice(0, 2)) await worker.terminate();
  await sim.set('D0', 'M', 0);
  for (const worker of workers) assert.deepEqual(await worker.message('change', 2), ['D0', 'M', 0]);
  for (const worker of workers) await worker.terminate();
  await nothingLeft();
});

// The main thread of these programs does not load the library: the end of the last worker is the end of its last user.
const ONLY_WORKERS = `
  const { Worker } = require('node:worker_threads');
  const fs = require('node:fs');
  const loaded = () => /VqDBAccess[^/]*\\.node/.test(fs.readFileSync('/proc/self/maps', 'utf8'));
  const run = (address) => new Promise((resolve, reject) => {
    const worker = new Worker(${JSON.stringify(path.join(__dirname, '../support/session-worker.js'))}, {
      workerData: { address },
    });
    worker.once('error', reject);
    worker.once('message', async ({ result }) => { await worker.terminate(); resolve(result); });
  });
`;

test('workers that come and go in turn, without another user of the library, have sessions', async () => {
  const { code, signal, stdout, stderr } = await runProgram(
    `${ONLY_WORKERS}
    (async () => {
      const results = [];
      for (let round = 0; round < 8; round++) results.push(await run(args[0]));
      console.log(results.join());
    })();
  `,
    [sim.address],
    { load: false, bound: 30000 },
  );
  assert.deepEqual([code, signal, stdout, stderr], [0, null, '0,0,0,0,0,0,0,0\n', '']);
});

test('the library stays in memory when its last user ends: a receive thread may be in its last instructions', async () => {
  const { stdout } = await runProgram(
    `${ONLY_WORKERS}
    const before = loaded();
    run(args[0]).then(() => console.log(before, loaded()));
  `,
    [sim.address],
    { load: false },
  );
  assert.equal(stdout, 'false true\n');
});

test('an instance of another environment cannot be had: a worker gets a plain object in its place', async () => {
  const worker = new Worker('require("node:worker_threads").parentPort.once("message", () => {})', { eval: true });
  const core = connect(sim);
  assert.deepEqual(structuredClone(core), {});
  worker.postMessage(core);
  await within(new Promise((resolve) => worker.once('exit', resolve)), 'the worker ends');
});

test('the library that is opened a second time in one environment gives a class of its own', () => {
  const file = Object.keys(require.cache).find((name) => name.endsWith('.node'));
  const first = require(file).DBCore;
  delete require.cache[file];
  const second = require(file).DBCore;
  assert.notEqual(first, second);
  const cores = [first, second].map((DBCore) => new DBCore());
  assert.deepEqual(
    [cores[0] instanceof second, cores[1] instanceof second, second() instanceof second],
    [false, true, true],
  );
  assert.throws(() => second.prototype.Connect.call(cores[0], sim.address, 'operator', 'secret'), TypeError);
  for (const core of cores) assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
});
