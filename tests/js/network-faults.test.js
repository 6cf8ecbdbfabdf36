'use strict';
// Sessions over a bad network: what JavaScript sees meanwhile, and that the next Connect works once it is whole again.

const assert = require('node:assert/strict');
const { test, after } = require('node:test');
const { callLog } = require('./support/events.js');
const { faultProxy } = require('./support/fault-proxy.js');
const { settled, backTo } = require('./support/resources.js');
const { sharedServer, newCore, removeMirror, untilGone, collectInstances } = require('./support/server.js');
const { patience } = require('./support/patience.js');
const { runProgram } = require('./support/child.js');

const sim = sharedServer();

/** A proxy whose mirror goes with the test. */
async function badNetwork(t, settings) {
  const proxy = await faultProxy(t, sim);
  t.after(() => removeMirror(proxy.address));
  await proxy.set(settings);
  return proxy;
}

/** An instance that connects through a proxy. It has a scope of its own: what `t` keeps would hold the instance, too. */
async function clientOf(t, settings = {}) {
  const proxy = await badNetwork(t, settings);
  const core = newCore();
  return { proxy, core, open: () => core.Connect(proxy.address, 'operator', 'secret') };
}

test('over a slow line everything works, only later', async (t) => {
  const { core, open } = await clientOf(t, { delay: 40 });
  const started = Date.now();
  assert.equal(open(), 0);
  assert.ok(Date.now() - started >= 4 * 75, 'two registrations, a login and a file');
  const driver = core.GetDriver('D0');
  assert.deepEqual(driver.GetTagValue('A,B,C'), [1.5, 7, 'see']);
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  assert.equal(driver.SetTagValue('B', 12), 0);
  await sim.set('D0', 'A', 9);
  await log.until(1);
  assert.deepEqual(log.calls, [['D0', 'A', 9]]);
  assert.equal(driver.GetTagValue('B'), 12);
});

// What is lost comes again: to the ends of a connection a loss is a piece that comes late, and then many at once.
test('over a line that loses and repeats no change is lost or comes twice', async (t) => {
  const { core, open } = await clientOf(t, { jitter: 120 });
  assert.equal(open(), 0);
  const driver = core.GetDriver('D0');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('B');
  for (let value = 100; value < 140; value++) {
    await sim.set('D0', 'B', value);
    if (value % 10 === 0) assert.equal(driver.GetTagValue('F'), 6);
  }
  await log.until(40);
  assert.deepEqual(
    log.calls.map(([, , value]) => value),
    Array.from({ length: 40 }, (_, i) => 100 + i),
  );
});

test('connections whose ends arrive behind the next ones do no harm to the next session', async (t) => {
  const { proxy, core, open } = await clientOf(t, { endDelay: patience(1000) });
  assert.equal(open(), 0);
  const before = (await sim.connections()).map(({ id }) => id);
  assert.equal(open(), 0);
  assert.equal((await sim.connections()).length, 4, 'the server still has those of the session before');
  const driver = core.GetDriver('D0');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  for (const conn of before) await sim.waitFor('close', { conn });
  await sim.set('D0', 'A', 3);
  await log.until(1);
  assert.equal(driver.GetTagValue('F'), 6);
  await proxy.set({ endDelay: 0 });
});

test('a peer that vanishes without a word: requests fail, and Connect works once it is back', async (t) => {
  const { proxy, core, open } = await clientOf(t);
  const before = await settled();
  assert.equal(open(), 0);
  const driver = core.GetDriver('D0');
  driver.ConnectTag('C');
  await proxy.set({ silent: true });
  const started = Date.now();
  assert.equal(driver.GetTagValue('B'), undefined);
  const waited = Date.now() - started;
  assert.ok(waited >= 7900 && waited < patience(14000), `waited ${waited} ms`);
  assert.equal(driver.GetTagValue('C'), 'see', 'a connected tag keeps its last value');
  await proxy.set({ silent: false });
  assert.equal(open(), 0);
  assert.equal(driver.GetTagValue('B'), undefined, 'a driver of the session before');
  assert.equal(core.GetDriver('D0').GetTagValue('F'), 6);
  await sim.closeAll();
  await untilGone(core, 'D0');
  await backTo(before, 'nothing is left of either session');
});

test('a server that cannot be reached any more gives -2 after the time-out, and 0 once it can', async (t) => {
  const { proxy, open } = await clientOf(t, { silent: true });
  const started = Date.now();
  assert.equal(open(), -2);
  const waited = Date.now() - started;
  assert.ok(waited >= 7900 && waited < patience(14000), `waited ${waited} ms`);
  await proxy.set({ silent: false });
  assert.equal(open(), 0);
});

// From none to more than a session takes: the two connections, and one for each file at a time.
test('out of descriptors Connect gives -2, or a session without drivers, and works once there are some', async () => {
  const { stdout, stderr, code } = await runProgram(
    `
    const fs = require('node:fs');
    const used = [];
    const useUp = () => { for (;;) try { used.push(fs.openSync('/dev/null')); } catch { return; } };
    const core = new DBCore();
    const open = () => core.Connect(args[0], 'operator', 'secret');
    const results = [];
    for (let free = 0; free < 5; free++) {
      useUp();
      for (let i = 0; i < free; i++) fs.closeSync(used.pop());
      results.push([open(), core.GetDriver('D0') !== undefined]);
    }
    used.forEach((fd) => fs.closeSync(fd));
    results.push([open(), core.GetDriver('D0')?.GetTagValue('F')]);
    console.log(JSON.stringify(results));
    process.exit();
  `,
    [sim.address],
    { limits: '-n 64' },
  );
  assert.equal(code, 0, stderr);
  assert.deepEqual(JSON.parse(stdout), [
    [-2, false],
    [-2, false],
    [0, false],
    [0, true],
    [0, true],
    [0, 6],
  ]);
});

after(async () => {
  await collectInstances();
});
