'use strict';
// Reading tags: request 'H' and the forms of its reply.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, openDriver, connect, sent, SMALL } = require('./support/server.js');
const { u16, hex } = require('./support/wire.js');
const { patience } = require('./support/patience.js');

const many = { name: 'Many', tags: [{ name: 'T{0000}', type: 'int32', value: 1, count: 1100 }] };
const sim = sharedServer({ project: { ...SMALL, drivers: [...SMALL.drivers, many] } });

/** One chunk of a read reply. */
const chunk = (more, ...values) => {
  const bytes = Buffer.concat(values.map((value) => Buffer.from(value)));
  return hex('H', [more], u16(bytes.length), bytes);
};
const i32 = (value) => [3, 0, value, 0, 0, 0];

/** Reads with the server's reply replaced; with `known`, after a proper read of the same tags. */
async function readWith(list, reply, known = false) {
  const driver = await openDriver(sim);
  if (known) assert.notEqual(driver.GetTagValue(list), undefined);
  await sim.setFault({ step: 'read', action: 'reply', hex: reply, count: 1 });
  return driver.GetTagValue(list);
}

test('one name gives a bare value', async () => {
  assert.equal((await openDriver(sim)).GetTagValue('A'), 1.5);
});

test('two names give an array of two', async () => {
  assert.deepEqual((await openDriver(sim)).GetTagValue('A,B'), [1.5, 7]);
});

test('a read is H, the count, and driver number and tag id of each tag', async () => {
  const driver = await openDriver(sim, 'D1');
  driver.GetTagValue('B,A');
  assert.deepEqual(await sent(sim, 'H'), [hex('H', [2, 0, 1, 0, 1, 0, 1, 0, 0, 0])]);
});

test('each read asks anew for tags that are not connected', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue('B'), 7);
  await sim.set('D0', 'B', 8);
  assert.equal(driver.GetTagValue('B'), 8);
  await sim.set('D0', 'B', 7);
});

test('connected tags of a list are not asked for, the others are', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('B');
  driver.GetTagValue('A,C');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('A,B,C'), [1.5, 7, 'see']);
  assert.deepEqual(await sent(sim), [hex('H', [2, 0, 0, 0, 0, 0, 0, 0, 2, 0])]);
});

test('connected tags alone are read without a request', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('A,B');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('B,A'), [7, 1.5]);
  assert.equal(driver.GetTagValue('B'), 7);
  assert.deepEqual(await sent(sim), []);
});

test('unknown names among known ones leave their elements unset', async () => {
  const driver = await openDriver(sim);
  const values = driver.GetTagValue('nothing,A,nil');
  assert.deepEqual([values.length, 0 in values, values[1], 2 in values], [3, false, 1.5, false]);
  assert.deepEqual(await sent(sim, 'H'), [hex('H', [1, 0, 0, 0, 0, 0])]);
});

test('unknown names alone give an array of unset elements and no read', async () => {
  const driver = await openDriver(sim);
  assert.deepEqual(driver.GetTagValue('nothing,nil'), new Array(2));
  assert.deepEqual(await sent(sim, 'H'), []);
});

test('a reply in one chunk a value is read whole', async (t) => {
  t.after(() => sim.configure({ chunk: 1024 }));
  await sim.configure({ chunk: 1 });
  const driver = await openDriver(sim);
  assert.deepEqual(driver.GetTagValue('A,B,C,D,E'), [1.5, 7, 'see', true, 200]);
});

test('chunks of different lengths are read in order', async () => {
  const reply = chunk(1, i32(1)) + chunk(1, i32(2), i32(3)) + chunk(0, i32(4));
  assert.deepEqual(await readWith('A,B,C,D', reply), [1, 2, 3, 4]);
});

test('a chunk without values is passed over', async () => {
  assert.deepEqual(await readWith('A,B', chunk(1) + chunk(1, i32(1)) + chunk(1) + chunk(0, i32(2))), [1, 2]);
});

test('a reply ends with the chunk that announces no other: the rest of the tags keeps what it has', async () => {
  assert.deepEqual(await readWith('A,B', chunk(0, i32(1))), [1, undefined]);
});

test('a reply ends when all tags have their values, whatever it announces', async () => {
  assert.deepEqual(await readWith('A,B', chunk(1, i32(1), i32(2))), [1, 2]);
});

test('values beyond the tags that were asked for are passed over', async () => {
  assert.deepEqual(await readWith('A,B', chunk(0, i32(1), i32(2), i32(3))), [1, 2]);
});

test('a more-flag other than 1 ends the reply', async () => {
  assert.deepEqual(await readWith('A,B', chunk(2, i32(1))), [1, undefined]);
});

test('a value of another type than before is taken with its type', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue('A'), 1.5);
  await sim.setFault({ step: 'read', action: 'reply', hex: chunk(0, [8, 0], 'text\0'), count: 1 });
  assert.equal(driver.GetTagValue('A'), 'text');
});

test('a reply that begins with another letter gives undefined', async () => {
  assert.equal(await readWith('A', chunk(0, i32(1)).replace(/^48/, '78'), true), undefined);
});

test('a later chunk that begins with another letter gives undefined', async () => {
  assert.equal(await readWith('A,B', chunk(1, i32(1)) + chunk(0, i32(2)).replace(/^48/, '62'), true), undefined);
});

test('a value that runs past its chunk gives undefined', async () => {
  assert.equal(await readWith('A', chunk(0, [3, 0, 1, 0]), true), undefined);
  assert.equal(await readWith('A', chunk(0, [8, 0], 'no end'), true), undefined);
  assert.equal(await readWith('A', chunk(0, [3]), true), undefined);
});

test('a value that is split between two chunks gives undefined', async () => {
  // The second half would be a value by itself: type 17, 5.
  assert.equal(await readWith('A', chunk(1, [5, 0, 0, 0, 0, 0]) + chunk(0, [17, 0, 5, 0]), true), undefined);
});

test('chunks without values without end give undefined', async () => {
  const started = Date.now();
  assert.equal(await readWith('A', chunk(1).repeat(5000)), undefined);
  assert.ok(Date.now() - started < patience(7000), 'no more of them is waited for');
});

for (const action of ['close', 'reset', 'cut']) {
  test(`a connection whose read fails with ${action} gives undefined`, async () => {
    const driver = await openDriver(sim);
    assert.equal(driver.GetTagValue('A'), 1.5);
    await sim.setFault({ step: 'read', action, ...(action === 'cut' ? { bytes: 6 } : {}) });
    assert.equal(driver.GetTagValue('A'), undefined);
    assert.equal(driver.GetTagValue('A,B'), undefined);
  });
}

test('a reply that comes byte by byte, and one that takes its time, are read', async () => {
  const driver = await openDriver(sim);
  await sim.setFault({ step: 'read', action: 'trickle', count: 1 });
  assert.deepEqual(driver.GetTagValue('A,B,C'), [1.5, 7, 'see']);
  await sim.setFault({ step: 'read', action: 'delay', ms: 50 });
  assert.equal(driver.GetTagValue('A'), 1.5);
});

test('a list of 2047 bytes is read whole', async () => {
  const driver = await openDriver(sim, 'Many');
  const names = Array.from({ length: 341 }, (_, i) => `T${String(i).padStart(4, '0')}`);
  const list = names.join().padEnd(2047, ' ');
  assert.deepEqual(driver.GetTagValue(list), new Array(341).fill(1));
  assert.equal((await sim.requests({ command: 'H' }))[0].fields.tags.length, 341);
});

test('at most 1023 tags are asked for in one read', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('B'); // known from here on, so that a list can name it often
  await sim.clearRequests();
  const values = driver.GetTagValue(new Array(1024).fill('B').join());
  assert.deepEqual(values, new Array(1024).fill(7));
  const request = hex('H', u16(1023), Buffer.concat(new Array(1023).fill(Buffer.from([0, 0, 1, 0]))));
  assert.deepEqual(await sent(sim), [request]);
});

test('two driver objects of one driver share its values', async () => {
  const core = connect(sim);
  core.GetDriver('D0').ConnectTag('B');
  await sim.clearRequests();
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
  assert.deepEqual(await sent(sim), []);
});
