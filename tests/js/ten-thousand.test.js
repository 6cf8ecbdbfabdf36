'use strict';
// Ten thousand tags of two drivers in one run: read, followed and written. No request is lost, no result is out of
// order, each change is told once.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, connect } = require('./support/server.js');
const { callLog } = require('./support/events.js');

const COUNT = 5000; // tags of each driver
const DRIVERS = ['Plant', '泵站'];
const LIST_BYTES = 2047;
const WRITES = 145; // numbers of 14 bytes that one request of 2048 bytes holds

const sim = sharedServer({
  project: {
    name: 'Large',
    drivers: DRIVERS.map((name) => ({ name, tags: [{ name: 'T{0000}', type: 'double', count: COUNT, value: -1 }] })),
  },
  record: 100000,
});

const NAMES = Array.from({ length: COUNT }, (_, i) => `T${String(i).padStart(4, '0')}`);

/** The names in lists of at most this many names and LIST_BYTES bytes. */
function lists(most = Infinity) {
  const size = Math.min(most, Math.floor((LIST_BYTES + 1) / (NAMES[0].length + 1)));
  return Array.from({ length: Math.ceil(COUNT / size) }, (_, i) => NAMES.slice(i * size, (i + 1) * size));
}

/** The value that is written to a tag. */
const written = (driver, index) => driver * COUNT + index + 0.5;

const sum = (counts) => counts.reduce((total, count) => total + count, 0);
const requested = async (command) => (await sim.requests({ command })).map(({ fields }) => fields.tags.length);

/** [driver, tag] of everything that requests of a command named, in order. */
async function idsOf(command) {
  return (await sim.requests({ command })).flatMap(({ fields }) => fields.tags.map(({ driver, tag }) => [driver, tag]));
}

const everyId = DRIVERS.flatMap((_, driver) => NAMES.map((_name, tag) => [driver, tag]));

test('ten thousand tags are read, followed and written', async () => {
  const core = connect(sim);
  const drivers = DRIVERS.map((name) => core.GetDriver(name));
  const log = callLog();
  drivers.forEach((driver) => driver.SetTagNotify(log));

  const first = drivers.map((driver) => lists().flatMap((list) => driver.GetTagValue(list.join())));
  assert.deepEqual(
    first,
    DRIVERS.map(() => new Array(COUNT).fill(-1)),
  );
  assert.equal(sum(await requested('L')), 2 * COUNT);
  assert.deepEqual(await idsOf('H'), everyId);

  for (const driver of drivers) for (const list of lists()) driver.ConnectTag(list.join());
  assert.deepEqual(await idsOf('b'), everyId);

  drivers.forEach((driver, number) => {
    for (const list of lists(WRITES)) {
      const values = list.map((name) => written(number, NAMES.indexOf(name)));
      assert.equal(driver.SetTagValue(list.join(), values), 0);
    }
  });
  const changes = await log.until(2 * COUNT, 20000);
  const expected = DRIVERS.flatMap((driver, number) => NAMES.map((name, i) => [driver, name, written(number, i)]));
  // Each driver tells its changes in order; between two drivers there is no order.
  const byDriver = DRIVERS.flatMap((name) => changes.filter(([driver]) => driver === name));
  assert.deepEqual(byDriver, expected);
  const writes = await sim.events({ event: 'write', stored: true });
  const stored = writes.map(({ driver, tag, value }) => [driver, tag, value]);
  assert.deepEqual(stored, expected);

  await sim.clearRequests();
  const last = drivers.map((driver) => lists().flatMap((list) => driver.GetTagValue(list.join())));
  assert.deepEqual(
    last,
    DRIVERS.map((_, number) => NAMES.map((_name, i) => written(number, i))),
  );
  assert.deepEqual(await sim.requests(), [], 'connected tags are read without a request');
  assert.equal(log.calls.length, 2 * COUNT, 'nothing is told twice');
});
