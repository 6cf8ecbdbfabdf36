'use strict';
// Driver objects: what GetDriver hands out.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { SMALL, sharedServer, openDriver, connect, sent } = require('./support/server.js');
const { callLog } = require('./support/events.js');

const LONG = 'N'.repeat(127);
const drivers = [
  ...SMALL.drivers,
  { name: LONG, tags: [{ name: 'A', type: 'int32', value: 127 }] },
  { name: '锅炉', tags: [{ name: 'A', type: 'int32', value: 128 }] },
  { name: ' ', tags: [{ name: 'A', type: 'int32', value: 129 }] },
];
const sim = sharedServer({ project: { ...SMALL, drivers } });

test('a driver object is a plain object with four methods and nothing else', async () => {
  const driver = await openDriver(sim);
  assert.equal(Object.getPrototypeOf(driver), Object.prototype);
  const methods = ['SetTagNotify', 'ConnectTag', 'GetTagValue', 'SetTagValue'];
  assert.deepEqual(Reflect.ownKeys(driver), methods);
  for (const name of methods) {
    const { value, writable, enumerable, configurable } = Object.getOwnPropertyDescriptor(driver, name);
    assert.equal(typeof value, 'function');
    assert.deepEqual([writable, enumerable, configurable], [false, false, false]);
  }
});

test('GetDriver gives a new object each time, for one and the same driver', async () => {
  const core = connect(sim);
  const [one, other] = [core.GetDriver('D0'), core.GetDriver('D0')];
  assert.notEqual(one, other);
  assert.notEqual(one.GetTagValue, other.GetTagValue);
  const log = callLog();
  one.SetTagNotify(log);
  other.ConnectTag('B');
  await sim.clearRequests();
  assert.equal(one.GetTagValue('B'), 7);
  assert.deepEqual(await sent(sim), []);
  await sim.set('D0', 'B', 8);
  assert.deepEqual(await log.until(1), [['D0', 'B', 8]]);
  await sim.set('D0', 'B', 7);
});

test('methods work without their object', async () => {
  const { SetTagNotify, ConnectTag, GetTagValue, SetTagValue } = await openDriver(sim);
  const log = callLog();
  SetTagNotify(log);
  ConnectTag('F');
  assert.equal(GetTagValue('B'), 7);
  assert.equal(SetTagValue('F', 60), 0);
  assert.deepEqual(await log.until(1), [['D0', 'F', 60]]);
});

test('methods do not look at their this', async () => {
  const core = connect(sim);
  const [d0, d1] = [core.GetDriver('D0'), core.GetDriver('D1')];
  for (const other of [d1, core, null, undefined, 1, {}]) assert.equal(d0.GetTagValue.call(other, 'B'), 7);
});

test('the methods live on when the driver object is gone', async () => {
  const read = connect(sim).GetDriver('D0').GetTagValue;
  for (let i = 0; i < 3; i++) assert.equal(read('B'), 7);
});

test('SetTagValue with a tag name alone gives -3 and sends nothing', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.SetTagValue('A'), -3);
  assert.equal(driver.SetTagValue(), -3);
  assert.equal(driver.SetTagValue(1), -3);
  assert.deepEqual(await sent(sim), []);
});

test('GetTagValue and ConnectTag without arguments give undefined and send nothing', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue(), undefined);
  assert.equal(driver.ConnectTag(), undefined);
  assert.deepEqual(await sent(sim), []);
});

test('SetTagNotify without arguments gives undefined and leaves the callback as it was', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.SetTagNotify(), undefined);
  const log = callLog();
  driver.SetTagNotify(log);
  assert.equal(driver.SetTagNotify(), undefined);
  driver.ConnectTag('F');
  await sim.set('D0', 'F', 61);
  assert.deepEqual(await log.until(1), [['D0', 'F', 61]]);
});

test('further arguments are ignored', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue('B', 'A', {}), 7);
  assert.equal(driver.SetTagValue('B', 7, 'more'), 0);
});

test('a tag list of 3000 bytes is cut to its first 2047', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('B');
  assert.deepEqual(driver.GetTagValue('B,'.repeat(1500)), new Array(1024).fill(7)); // 1024 names and 1023 commas
});

test('a tag list is cut before its names are looked at', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue(`B${' '.repeat(2045)},A`), 7); // the comma is the last byte
  assert.deepEqual(driver.GetTagValue(`B${' '.repeat(2044)},A`), [7, driver.GetTagValue('A')]);
});

test('a tag list is cut at a whole character', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue(`B${' '.repeat(1345)},${'水'.repeat(300)}`); // 700 bytes are left for the second name
  const [{ fields }] = await sim.requests({ command: 'L' });
  assert.deepEqual(
    fields.tags.map(({ name }) => name),
    ['B', '水'.repeat(233)],
  );
});

test('a driver name of 127 bytes is found, also by a longer text that begins with it', () => {
  const core = connect(sim);
  assert.equal(core.GetDriver(LONG).GetTagValue('A'), 127);
  assert.equal(core.GetDriver(`${LONG}xyz`).GetTagValue('A'), 127);
  assert.equal(core.GetDriver(LONG.slice(1)), undefined);
});

test('a driver of a Chinese name is found by it', () => {
  assert.equal(connect(sim).GetDriver('锅炉').GetTagValue('A'), 128);
});

test('a driver name is taken with its blanks', () => {
  const core = connect(sim);
  assert.equal(core.GetDriver(' ').GetTagValue('A'), 129);
  assert.equal(core.GetDriver(' D0'), undefined);
  assert.equal(core.GetDriver('D0 '), undefined);
});
