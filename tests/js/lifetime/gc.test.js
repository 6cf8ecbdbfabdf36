'use strict';
// Instances that are collected: their sessions end, whatever they were in the middle of, and nothing of them stays.

const assert = require('node:assert/strict');
const { beforeEach, test } = require('node:test');
const { setTimeout: turn } = require('node:timers/promises');
const { sharedServer, connect, newCore, collectInstances, untilConnections } = require('../support/server.js');
const { DBCore } = require('../support/addon.js');
const { collectAll } = require('../support/collect.js');
const { callLog } = require('../support/events.js');
const { FLOOD_PROJECT, queuedRecords, alarmRecords, queueUp } = require('../support/flood.js');
const { settled, backTo } = require('../support/resources.js');

const sim = sharedServer({ project: FLOOD_PROJECT, notifyBlock: 0 });

let before;
beforeEach(async () => {
  connect(sim); // what the first session of a process starts is started
  await collectInstances();
  await sim.waitFor('close', { kind: 'request' });
  before = await settled();
});

/** Collects all instances; then the server has seen both connections of each close, and nothing is left here. */
async function collectedWithoutTrace() {
  const open = await sim.connections();
  await collectInstances();
  for (const { id } of open) await sim.waitFor('close', { conn: id });
  await untilConnections(sim, 0);
  await backTo(before, 'descriptors and threads');
}

function follow(core, ...callbacks) {
  const driver = core.GetDriver('D0');
  if (callbacks.length > 0) driver.SetTagNotify(callbacks[0]);
  driver.ConnectTag('Q,M');
  return driver;
}

test('an instance that never connected is collected', async () => {
  newCore();
  await collectedWithoutTrace();
});

test('an instance with a session is collected: both connections close, descriptors and threads are back', async () => {
  connect(sim);
  assert.equal((await sim.connections()).length, 2);
  await collectedWithoutTrace();
});

test('an instance with a tag callback and a driver object in use is collected', async () => {
  const driver = follow(connect(sim), () => {});
  await collectedWithoutTrace();
  assert.equal(driver.GetTagValue('Q'), undefined);
});

test('an instance that its own tag callback holds lives as long as its session', async () => {
  const log = callLog();
  const reference = new WeakRef(holdingItself(log));
  await collectAll([], 'what is collectable');
  await sim.set('D0', 'Q', 6);
  assert.deepEqual((await log.until(1))[0], ['D0', 'Q', 6, 0]);
  await sim.closeNotification();
  await collectAll([reference], 'the instance');
  await backTo(before, 'descriptors and threads');
});

function holdingItself(log) {
  const core = new DBCore();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  follow(core, (...change) => log(...change, core.GetDriver('D0').GetTagValue('M')));
  return core;
}

test('an instance with a callback for alarms is collected, and the callback with it', async () => {
  const callback = new WeakRef(subscribeToAlarms(connect(sim)));
  await collectedWithoutTrace();
  await collectAll([callback], 'the callback is collected');
});

function subscribeToAlarms(core) {
  const callback = () => {};
  assert.equal(core.SetRtAlarmNotify(callback, true), 0);
  return callback;
}

// Follows both tags and queues notifications: the instance is held by nothing when this returns.
function flood(bytes, { onChange, onAlarm } = {}) {
  const core = connect(sim);
  if (onAlarm !== undefined) core.SetRtAlarmNotify(onAlarm, false);
  queueUp(sim, follow(core, ...(onChange === undefined ? [] : [onChange])), bytes);
}

test('an instance that is collected with changes queued: each of them is still told', async () => {
  const log = callLog();
  flood(queuedRecords(10000), { onChange: log });
  assert.equal(log.calls.length, 0);
  await collectedWithoutTrace();
  while (log.calls.at(-1)?.[1] !== 'M') await log.until(log.calls.length + 1);
  assert.ok(log.calls.length > 10000 - 100, `${log.calls.length} told`); // borders of receives take few
  assert.deepEqual(log.calls[0], ['D0', 'Q', 0]);
  assert.deepEqual(log.calls.at(-1), ['D0', 'M', 77]);
});

test('an instance that is collected with alarms queued: the rest of them is dropped', async () => {
  const log = callLog();
  flood(alarmRecords(70), { onAlarm: log });
  assert.equal(log.calls.length, 0);
  await collectedWithoutTrace();
  const told = log.calls.length;
  for (let turns = 0; turns < 20; turns++) await turn(1);
  assert.equal(log.calls.length, told);
});

test('an instance is collected after its server went away', async () => {
  follow(connect(sim), () => {});
  await sim.closeAll();
  await collectedWithoutTrace();
});

test('an instance is collected while its server goes away', async () => {
  for (let round = 0; round < 10; round++) {
    follow(connect(sim), () => {});
    const closing = sim.closeNotification();
    await collectInstances();
    await closing;
  }
  await collectedWithoutTrace();
});

const driverObjects = (core, length) => Array.from({ length }, () => core.GetDriver('D0'));

test('driver objects are collected before, with and after their instance', async () => {
  const objects = driverObjects(connect(sim), 50);
  const references = objects.splice(0, 25).map((object) => new WeakRef(object));
  await collectAll(references, 'the first driver objects');
  assert.equal(objects[0].GetTagValue('M'), 0);
  const methods = objects.splice(0, 10).map(({ GetTagValue }) => GetTagValue); // these outlive object and instance
  await collectedWithoutTrace();
  assert.deepEqual(new Set(methods.map((method) => method('Q'))), new Set([undefined]));
});
