'use strict';
// Answers that were not taken whole: what is left of them is not taken for the answer of the next request.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { after, test } = require('node:test');
const { sharedServer, connect, openDriver, removeMirror, serverDir, endSubscriptions } = require('./support/server.js');
const { callLog } = require('./support/events.js');
const { fileReply } = require('./support/replies.js');
const { u16, hex } = require('./support/wire.js');

const sim = sharedServer();
after(endSubscriptions);

const answer = (step, bytes) => sim.setFault({ step, action: 'reply', hex: bytes, count: 1 });
const i32 = (value) => Buffer.from([3, 0, value, 0, 0, 0]);
const readReply = (letter, ...values) => hex(letter, [0], u16(6 * values.length), ...values.map(i32));
const connectReply = (letter, ...values) => hex(letter, u16(6 * values.length), ...values.map(i32));

test('the rest of a read reply of another letter is not the answer of the next read', async () => {
  const driver = await openDriver(sim);
  await answer('read', readReply('x', 1, 2, 3));
  assert.equal(driver.GetTagValue('B'), undefined);
  assert.equal(driver.GetTagValue('B'), 7);
  assert.equal(driver.GetTagValue('A'), 1.5);
});

test('the rest of a read reply whose value ran past its chunk is not the answer of the next read', async () => {
  const driver = await openDriver(sim);
  await answer('read', hex('H', [1], u16(4), [3, 0, 1, 0]) + readReply('H', 9));
  assert.equal(driver.GetTagValue('B'), undefined);
  assert.equal(driver.GetTagValue('B'), 7);
});

test('the rest of a connect reply of another letter is not the answer of the next connect', async () => {
  const driver = await openDriver(sim);
  await answer('connect', connectReply('x', 1, 2));
  driver.ConnectTag('A,B');
  driver.ConnectTag('A,B');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('A,B'), [1.5, 7]);
  assert.deepEqual(await sim.requests(), []);
});

test('the rest of a reply of tag ids of another letter is not the answer of the next names', async () => {
  const driver = await openDriver(sim);
  await answer('tagids', hex('x', [5, 0, 0, 0], 'more'));
  assert.equal(driver.GetTagValue('A'), undefined);
  assert.equal(driver.GetTagValue('A'), 1.5);
});

test('the rest of an alarm reply of another letter is not the answer of the next subscription', async () => {
  const core = connect(sim);
  await answer('alarms', hex('x', [2, 0], Buffer.alloc(64)));
  const log = callLog();
  assert.equal(core.SetRtAlarmNotify(log, true), -2);
  assert.equal(core.SetRtAlarmNotify(log, true), 0);
  assert.deepEqual(log.calls, []);
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
});

test('the body of a file that cannot be stored is not the answer of the next request', async () => {
  removeMirror(sim.address);
  const core = connect(sim);
  const place = `${serverDir(sim.address)}/Small/RecData/textlist`;
  fs.mkdirSync(place);
  await answer('file', fileReply(['Size:BB8'], 'x'.repeat(3000)));
  assert.equal(
    core.SetRtAlarmNotify(() => {}, false),
    0,
  );
  assert.deepEqual(core.GetDriver('D0').GetTagValue('A,B'), [1.5, 7]);
  removeMirror(sim.address);
});
