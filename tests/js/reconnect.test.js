'use strict';
// The end of a session, from either side, and what follows it on the same instance.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { test } = require('node:test');
const {
  sharedServer,
  startServer,
  connect,
  newCore,
  removeMirror,
  untilGone,
  collectInstances,
  untilConnections,
} = require('./support/server.js');
const { runProgram } = require('./support/child.js');
const { callLog } = require('./support/events.js');
const { patience } = require('./support/patience.js');

const sim = sharedServer();

const reopen = (core) => core.Connect(sim.address, 'operator', 'secret');

async function closedByServer() {
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  driver.ConnectTag('A');
  await sim.closeNotification();
  await untilGone(core, 'D0');
  return { core, driver };
}

test('a second Connect on an open session ends that session and opens a new one', async () => {
  const core = connect(sim);
  const before = (await sim.connections()).map(({ id }) => id);
  assert.equal(reopen(core), 0);
  for (const conn of before) await sim.waitFor('close', { conn });
  const now = await sim.connections();
  assert.equal(now.length, 2);
  assert.deepEqual(
    now.filter(({ id }) => before.includes(id)),
    [],
  );
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
});

test('ending a session for a second Connect takes well under a second', () => {
  const core = connect(sim);
  const started = Date.now();
  assert.equal(reopen(core), 0);
  assert.ok(Date.now() - started < patience(3000));
});

test('the notification connection of a session is closed before its request connection', async () => {
  const core = connect(sim);
  const { session } = (await sim.connections())[0];
  assert.equal(reopen(core), 0);
  await sim.waitFor('close', { session, kind: 'request' });
  const closes = await sim.events({ event: 'close', session });
  assert.deepEqual(
    closes.map(({ kind }) => kind),
    ['notification', 'request'],
  );
});

test('a second Connect that fails leaves no session', async () => {
  const core = connect(sim);
  await sim.setFault({ step: 'login', action: 'refuse' });
  assert.equal(reopen(core), -1);
  assert.equal(core.GetDriver('D0'), undefined);
  await sim.waitFor('close', { kind: 'request' }, { count: 2 });
  await untilConnections(sim, 0);
});

test('a server that closes the notification connection ends the session without any call from JavaScript', async () => {
  const core = connect(sim);
  await sim.clearRequests();
  await sim.closeNotification();
  await sim.waitFor('close', { kind: 'request' }); // by the client, which nobody has called meanwhile
  await untilConnections(sim, 0);
  await untilGone(core, 'D0'); // the drivers end behind the connections
});

test('a request that waits for its answer fails as soon as the server closes the notification connection', async () => {
  await sim.setFault({ step: 'read', action: 'hang' });
  const ended = sim.waitFor('request', { command: 'H' }).then(() => sim.closeNotification());
  const { stdout } = await runProgram(
    `
    const core = new DBCore();
    core.Connect(args[0], 'operator', 'secret');
    const started = Date.now();
    const value = core.GetDriver('D0').GetTagValue('A');
    console.log(value, Date.now() - started < 7000);
  `,
    [sim.address],
  );
  await ended;
  assert.equal(stdout, 'undefined true\n'); // an answer is waited for 8 seconds
});

/** How many sockets this process has open. */
function openSockets() {
  const links = fs.readdirSync('/proc/self/fd').map((fd) => {
    try {
      return fs.readlinkSync(`/proc/self/fd/${fd}`);
    } catch {
      return ''; // the directory's own descriptor
    }
  });
  return links.filter((link) => link.startsWith('socket:')).length;
}

async function untilSockets(count) {
  for (const deadline = Date.now() + patience(5000); openSockets() !== count; await new Promise(setImmediate)) {
    assert.ok(Date.now() < deadline, `${openSockets()} sockets, not ${count}`);
  }
}

test('sessions that have ended, and those that failed, leave no descriptor open', async () => {
  await collectInstances();
  const before = openSockets();
  for (const end of ['closeNotification', 'closeAll']) {
    const core = connect(sim);
    assert.equal(openSockets(), before + 2);
    await sim[end]();
    await untilGone(core, 'D0');
    await untilSockets(before);
  }
  const core = connect(sim);
  await sim.setFault({ step: 'login', action: 'refuse' });
  assert.equal(reopen(core), -1);
  assert.equal(openSockets(), before);
});

test('a server that resets everything ends the session', async () => {
  const core = connect(sim);
  await sim.closeAll();
  await untilGone(core, 'D0');
  assert.equal(reopen(core), 0);
});

test('a server that closes the request connection alone fails requests and keeps the notifications', async () => {
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  await sim.closeRequest();
  assert.equal(driver.GetTagValue('B'), undefined);
  assert.equal(driver.SetTagValue('B', 1), -2);
  await sim.set('D0', 'A', 9);
  assert.deepEqual(await log.until(1), [['D0', 'A', 9]]);
});

test('a driver object whose session the server ended reads undefined, writes -2 and takes no callback', async () => {
  const { driver } = await closedByServer();
  assert.equal(driver.GetTagValue('A'), undefined);
  assert.equal(driver.GetTagValue('A,B'), undefined);
  assert.equal(driver.ConnectTag('A'), undefined);
  assert.equal(driver.SetTagValue('A', 1), -2);
  assert.equal(driver.SetTagValue('A,B', [1, 2]), -2);
  assert.equal(
    driver.SetTagNotify(() => {}),
    undefined,
  );
});

test('arguments of a dead driver object are checked as those of a live one', async () => {
  const { driver } = await closedByServer();
  assert.equal(driver.GetTagValue(), undefined);
  assert.equal(driver.SetTagValue('A'), -3);
  assert.throws(() => driver.GetTagValue(1), { message: 'A string was expected' });
});

test('after the server ended the session the instance connects again, and GetDriver gives a live driver', async () => {
  const { core, driver } = await closedByServer();
  assert.equal(reopen(core), 0);
  const live = core.GetDriver('D0');
  assert.equal(live.GetTagValue('A,B')[1], 7);
  assert.equal(live.SetTagValue('B', 7), 0);
  assert.equal(driver.GetTagValue('B'), undefined, 'the old object stays dead');
  assert.equal(driver.SetTagValue('B', 7), -2);
});

test('a driver object of before a second Connect is dead', () => {
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  assert.equal(driver.GetTagValue('B'), 7);
  assert.equal(reopen(core), 0);
  assert.equal(driver.GetTagValue('B'), undefined);
  assert.equal(driver.SetTagValue('B', 7), -2);
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
});

test('methods of a driver object work on after the instance was collected: as those of a dead driver', async () => {
  const driver = connect(sim).GetDriver('D0');
  await collectInstances();
  await sim.waitFor('close', { kind: 'request' });
  assert.equal(driver.GetTagValue('B'), undefined);
  assert.equal(driver.SetTagValue('B', 7), -2);
});

test('names are asked for again in a new session', async () => {
  const core = connect(sim);
  core.GetDriver('D0').GetTagValue('A');
  assert.equal(reopen(core), 0);
  await sim.clearRequests();
  core.GetDriver('D0').GetTagValue('A');
  assert.deepEqual(
    (await sim.requests()).map(({ command }) => command),
    ['L', 'H'],
  );
});

test('a subscription ends with its session: a new driver takes a new callback', async () => {
  const core = connect(sim);
  const [first, second] = [callLog(), callLog()];
  core.GetDriver('D0').SetTagNotify(first);
  core.GetDriver('D0').ConnectTag('A');
  assert.equal(reopen(core), 0);
  core.GetDriver('D0').SetTagNotify(second);
  core.GetDriver('D0').ConnectTag('A');
  await sim.set('D0', 'A', 5);
  assert.deepEqual(await second.until(1), [['D0', 'A', 5]]);
  assert.deepEqual(first.calls, []);
});

test('an instance moves to another server, and back', async (t) => {
  const drivers = [{ name: 'Other', tags: [{ name: 'A', type: 'double', value: 42 }] }];
  const other = await startServer(t, { project: { name: 'Other', drivers } });
  const core = connect(sim);
  assert.equal(core.Connect(other.address, 'operator', 'secret'), 0);
  assert.equal(core.GetDriver('D0'), undefined);
  assert.equal(core.GetDriver('Other').GetTagValue('A'), 42);
  assert.equal(reopen(core), 0);
  assert.equal(core.GetDriver('Other'), undefined);
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
});

test('a failed file transfer leaves an instance that connects', async () => {
  removeMirror(sim.address);
  await sim.setFault({ step: 'file', action: 'close', count: 1 });
  const core = newCore();
  assert.equal(reopen(core), -2);
  assert.equal(reopen(core), 0);
});
