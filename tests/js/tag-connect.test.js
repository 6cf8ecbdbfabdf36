'use strict';
// Connecting tags, so that the server tells of their changes: request 'b' and its reply.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, openDriver, sent, SMALL } = require('./support/server.js');
const { callLog } = require('./support/events.js');
const { u16, hex } = require('./support/wire.js');
const { patience } = require('./support/patience.js');

const SHORT = Array.from({ length: 600 }, (_, i) => (i + 36).toString(36)); // two characters each: 600 fit one list
const many = { name: 'Many', id: 2, tags: SHORT.map((name, i) => ({ name, type: 'int32', value: i })) };
const sim = sharedServer({ project: { ...SMALL, drivers: [...SMALL.drivers, many] } });

/** One chunk of a reply. */
const chunk = (...values) => {
  const bytes = Buffer.concat(values.map((value) => Buffer.from(value)));
  return hex('b', u16(bytes.length), bytes);
};
const i32 = (value) => [3, 0, value, 0, 0, 0];
const entry = (driver, tag) => Buffer.concat([u16(driver), u16(tag), Buffer.alloc(1)]);

/** Connects with the server's reply replaced; the driver, and what it then has to ask for. */
async function connectWith(list, reply) {
  const driver = await openDriver(sim);
  await sim.setFault({ step: 'connect', action: 'reply', hex: reply, count: 1 });
  driver.ConnectTag(list);
  await sim.clearRequests();
  return driver;
}

test('a connect is b, the count, and driver number, tag id and zero of each tag', async () => {
  const driver = await openDriver(sim, 'D1');
  driver.ConnectTag('B,A');
  assert.deepEqual(await sent(sim, 'b'), [hex('b', [2, 0, 1, 0, 1, 0, 0, 1, 0, 0, 0, 0])]);
});

test('ConnectTag gives undefined, done or not', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.ConnectTag('A'), undefined);
  assert.equal(driver.ConnectTag('unknown'), undefined);
  await sim.setFault({ step: 'connect', action: 'close' });
  assert.equal(driver.ConnectTag('B'), undefined);
});

test('the values of the reply are those of the tags', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('A,B,C,D,E');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('A,B,C,D,E'), [1.5, 7, 'see', true, 200]);
  assert.deepEqual(await sent(sim), []);
});

test('tags that are connected are not connected again', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('A,B');
  await sim.clearRequests();
  driver.ConnectTag('A,B');
  assert.deepEqual(await sent(sim), []);
  driver.ConnectTag('A,F,B');
  assert.deepEqual(await sent(sim, 'b'), [hex('b', [1, 0], entry(0, 5))]);
});

test('unknown tags are left out, and alone send nothing', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('nothing,A,nil');
  assert.deepEqual(await sent(sim, 'b'), [hex('b', [1, 0], entry(0, 0))]);
  await sim.clearRequests();
  driver.ConnectTag('nothing,nil');
  assert.deepEqual(await sent(sim), []);
});

test('of 600 tags the first 519 are connected, the rest by the next call', async () => {
  const driver = await openDriver(sim, 'Many');
  const list = SHORT.join();
  driver.ConnectTag(list);
  const expected = (from, to) =>
    hex('b', u16(to - from), ...Array.from({ length: to - from }, (_, i) => entry(2, from + i)));
  assert.deepEqual(await sent(sim, 'b'), [expected(0, 519)]);
  await sim.clearRequests();
  driver.ConnectTag(list);
  assert.deepEqual(await sent(sim), [expected(519, 600)]);
  await sim.clearRequests();
  assert.deepEqual(
    driver.GetTagValue(list),
    SHORT.map((_, i) => i),
  );
  assert.deepEqual(await sent(sim), []);
});

test('exactly 519 tags are connected by one call', async () => {
  const driver = await openDriver(sim, 'Many');
  driver.ConnectTag(SHORT.slice(0, 519).join());
  await sim.clearRequests();
  driver.ConnectTag(SHORT.slice(0, 519).join());
  assert.deepEqual(await sent(sim), []);
});

test('a reply in one chunk a value is taken whole', async (t) => {
  t.after(() => sim.configure({ chunk: 1024 }));
  await sim.configure({ chunk: 1 });
  const driver = await openDriver(sim);
  driver.ConnectTag('A,B,C,D,E');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('A,B,C,D,E'), [1.5, 7, 'see', true, 200]);
  assert.deepEqual(await sent(sim), []);
});

test('chunks of different lengths, and one without values, are taken in order', async () => {
  const driver = await connectWith('A,B,C,D', chunk(i32(1), i32(2)) + chunk() + chunk(i32(3)) + chunk(i32(4)));
  assert.deepEqual(driver.GetTagValue('A,B,C,D'), [1, 2, 3, 4]);
  assert.deepEqual(await sent(sim), []);
});

test('tags whose values came before a reply went wrong are connected, the others are not', async () => {
  const driver = await connectWith('A,B,C', chunk(i32(1), i32(2)) + chunk(i32(3)).replace(/^62/, '78'));
  assert.deepEqual(driver.GetTagValue('A,B'), [1, 2]);
  assert.deepEqual(await sent(sim), []);
});

test('a value that runs past its chunk is not taken', async () => {
  const driver = await connectWith('A,B', chunk(i32(1), [3, 0, 9]));
  assert.equal(driver.GetTagValue('A'), 1);
  assert.deepEqual(await sent(sim), []);
  assert.equal(driver.GetTagValue('B'), 7);
  assert.deepEqual(
    (await sim.requests()).map(({ command }) => command),
    ['H'],
  );
});

test('chunks without values without end connect nothing', async () => {
  const started = Date.now();
  const driver = await connectWith('A', chunk().repeat(5000));
  assert.ok(Date.now() - started < patience(7000), 'no more of them is waited for');
  driver.GetTagValue('A');
  assert.equal((await sent(sim, 'H')).length, 1);
});

for (const action of ['close', 'reset', 'cut']) {
  test(`a connection whose connect fails with ${action} connects nothing`, async () => {
    const driver = await openDriver(sim);
    assert.equal(driver.GetTagValue('A'), 1.5);
    await sim.setFault({ step: 'connect', action, ...(action === 'cut' ? { bytes: 5 } : {}) });
    driver.ConnectTag('A');
    assert.equal(driver.GetTagValue('A'), undefined); // asked for, and not answered
  });
}

test('a reply that comes byte by byte is taken', async () => {
  const driver = await openDriver(sim);
  await sim.setFault({ step: 'connect', action: 'trickle' });
  driver.ConnectTag('A,B,C');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('A,B,C'), [1.5, 7, 'see']);
  assert.deepEqual(await sent(sim), []);
});

test('a connected tag is read as its last change left it, without a request', async () => {
  const driver = await openDriver(sim);
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('B,F');
  await sim.set('D0', 'B', 70);
  await sim.set('D0', 'F', 66);
  await log.until(2);
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('B,F'), [70, 66]);
  assert.deepEqual(await sent(sim), []);
  await sim.set('D0', 'B', 7);
  await sim.set('D0', 'F', 6);
});

test('a tag that was read before is asked for its value by its connect', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue('B'), 7);
  await sim.set('D0', 'B', 17);
  driver.ConnectTag('B');
  assert.equal(driver.GetTagValue('B'), 17);
  await sim.set('D0', 'B', 7);
});
