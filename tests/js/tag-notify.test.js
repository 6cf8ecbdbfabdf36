'use strict';
// Changes of connected tags, from the notification connection to the callback.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, openDriver, connect } = require('./support/server.js');
const { callLog, mustCall, mustNotCall, within } = require('./support/events.js');
const { u16, hex } = require('./support/wire.js');

const tags = ['A', 'B', 'C'].map((name) => ({ name, type: 'int32', value: 0 }));
const sim = sharedServer({
  project: {
    name: 'Changes',
    drivers: [
      { name: 'D0', tags },
      { name: 'D1', tags: [...tags, { name: 'S', type: 'string', value: '' }] },
    ],
  },
});

const i32 = (value) => [value & 0xff, (value >> 8) & 0xff, (value >> 16) & 0xff, value >>> 24];
/** A record of a driver's tag; both drivers' tags A, B and C are of type int32. */
const record = (driver, tag, value) => hex(u16(driver), u16(tag), i32(value));
/** A record of the core: its command, and zeros up to its length. */
const coreRecord = (command, length) => hex([0xff, 0xff, command], Buffer.alloc(length - 3));

/** A driver that follows tags, and what it hears. */
async function follower(list = 'A', name = 'D0') {
  const driver = await openDriver(sim, name);
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag(list);
  return { driver, log };
}

/** What comes of notification bytes, each piece received by itself; a last change of A to 99 shows the end. */
async function heardOf(...pieces) {
  const { log } = await follower('A,B');
  for (const piece of pieces) await sim.notifyRaw(piece);
  await sim.notifyRaw(record(0, 0, 99));
  for (let seen = 1; log.calls.at(-1)?.[2] !== 99; seen++) await log.until(seen);
  return log.calls.slice(0, -1).map(([driver, tag, value]) => `${driver}.${tag}=${value}`);
}

test('the callback is called with driver name, tag name and value, and with the global object as this', async () => {
  const { log } = await follower();
  await sim.set('D0', 'A', 5);
  assert.deepEqual(await log.until(1), [['D0', 'A', 5]]);
  assert.equal(log.receivers[0], globalThis);
});

test('SetTagNotify gives undefined', async () => {
  const driver = await openDriver(sim);
  assert.equal(
    driver.SetTagNotify(() => {}),
    undefined,
  );
  assert.equal(
    driver.SetTagNotify(() => {}),
    undefined,
  );
});

test('a second callback is ignored: the first one stays', async (t) => {
  const { driver, log } = await follower();
  driver.SetTagNotify(mustNotCall(t));
  await sim.set('D0', 'A', 6);
  await sim.set('D0', 'A', 7);
  assert.deepEqual(
    (await log.until(2)).map(([, , value]) => value),
    [6, 7],
  );
});

test('a second callback through another object of the same driver is ignored, too', async (t) => {
  const core = connect(sim);
  const log = callLog();
  core.GetDriver('D0').SetTagNotify(log);
  core.GetDriver('D0').SetTagNotify(mustNotCall(t));
  core.GetDriver('D0').ConnectTag('A');
  await sim.set('D0', 'A', 8);
  await log.until(1);
});

test('a second argument that is no function is ignored once a callback stands', async () => {
  const { driver, log } = await follower();
  assert.equal(driver.SetTagNotify(1), undefined);
  assert.equal(driver.SetTagNotify(), undefined);
  await sim.set('D0', 'A', 9);
  assert.deepEqual(await log.until(1), [['D0', 'A', 9]]);
});

test('the drivers of a session have a callback each', async () => {
  const core = connect(sim);
  const logs = ['D0', 'D1'].map((name) => {
    const log = callLog();
    core.GetDriver(name).SetTagNotify(log);
    core.GetDriver(name).ConnectTag('A');
    return log;
  });
  await sim.set('D0', 'A', 10);
  await sim.set('D1', 'A', 11);
  assert.deepEqual(await logs[0].until(1), [['D0', 'A', 10]]);
  assert.deepEqual(await logs[1].until(1), [['D1', 'A', 11]]);
});

test('two sessions with one server are told each for itself', async () => {
  const [one, other] = [await follower(), await follower()];
  await sim.set('D0', 'A', 12);
  assert.deepEqual(await one.log.until(1), [['D0', 'A', 12]]);
  assert.deepEqual(await other.log.until(1), [['D0', 'A', 12]]);
});

test('a tag that is not connected is not told of', async () => {
  const { log } = await follower('A');
  await sim.set('D0', 'B', 13);
  await sim.set('D0', 'A', 13);
  assert.deepEqual(await log.until(1), [['D0', 'A', 13]]);
});

test('a written value comes back as a change', async () => {
  const { driver, log } = await follower();
  assert.equal(driver.SetTagValue('A', 14), 0);
  assert.deepEqual(await log.until(1), [['D0', 'A', 14]]);
});

test('all changes of a tag come, in order', async () => {
  const { log } = await follower();
  const values = Array.from({ length: 500 }, (_, i) => 1000 + i);
  for (const value of values) sim.set('D0', 'A', value);
  assert.deepEqual(
    (await log.until(500)).map(([, , value]) => value),
    values,
  );
});

test('a change before SetTagNotify is in the value that is read', async () => {
  const core = connect(sim);
  const [silent, told] = [core.GetDriver('D0'), core.GetDriver('D1')];
  const log = callLog();
  told.SetTagNotify(log);
  silent.ConnectTag('A');
  told.ConnectTag('A');
  await sim.notifyRaw(record(0, 0, 1234) + record(1, 0, 1));
  await log.until(1);
  await sim.clearRequests();
  assert.equal(silent.GetTagValue('A'), 1234);
  assert.deepEqual(await sim.requests(), []);
});

test('a callback that is set later hears of later changes', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('A');
  const log = callLog();
  driver.SetTagNotify(log);
  await sim.set('D0', 'A', 15);
  assert.deepEqual(await log.until(1), [['D0', 'A', 15]]);
});

test('a callback may read, write and connect', async (t) => {
  const driver = await openDriver(sim);
  driver.ConnectTag('A');
  const seen = new Promise((resolve) => {
    driver.SetTagNotify(
      mustCall(
        t,
        (name, tag, value) => {
          if (tag === 'B') return resolve(value);
          driver.ConnectTag('B');
          assert.equal(driver.GetTagValue('A'), value);
          return assert.equal(driver.SetTagValue('B', value + 1), 0);
        },
        2,
      ),
    );
  });
  await sim.set('D0', 'A', 20);
  assert.equal(await within(seen, 'the change of B'), 21);
});

test('a read in the callback gives the value that was told, or a newer one', async () => {
  const driver = await openDriver(sim);
  driver.ConnectTag('A');
  const late = [];
  const end = new Promise((resolve) => {
    driver.SetTagNotify((name, tag, value) => {
      if (driver.GetTagValue('A') < value) late.push(value);
      if (value === 5000) resolve();
    });
  });
  for (let value = 4801; value <= 5000; value++) sim.set('D0', 'A', value);
  await within(end, 'the last change');
  assert.deepEqual(late, []);
});

test('several records of one receive are all told, in order', async () => {
  const many = Array.from({ length: 200 }, (_, i) => record(0, i % 2, 1000 + i));
  const expected = many.map((_, i) => `D0.${'AB'[i % 2]}=${1000 + i}`);
  assert.deepEqual(await heardOf(many.join('')), expected);
});

test('a record of a tag that was never read or connected drops the rest of its receive', async () => {
  assert.deepEqual(await heardOf(record(0, 0, 1) + record(0, 2, 5) + record(0, 1, 2)), ['D0.A=1']);
});

test('a record of a tag that was read, not connected, is told of', async () => {
  const { driver, log } = await follower('A');
  driver.GetTagValue('C');
  await sim.notifyRaw(record(0, 2, 30) + record(0, 0, 31));
  assert.deepEqual(await log.until(2), [
    ['D0', 'C', 30],
    ['D0', 'A', 31],
  ]);
});

test('a record of a tag id at or above the number of tags drops the rest of its receive', async () => {
  assert.deepEqual(await heardOf(record(0, 3, 1) + record(0, 0, 2)), []);
  assert.deepEqual(await heardOf(record(0, 65535, 1) + record(0, 0, 2)), []);
});

test('a record of a driver that the project does not have drops the rest of its receive', async () => {
  assert.deepEqual(await heardOf(record(0, 0, 1) + record(5, 0, 1) + record(0, 0, 2)), ['D0.A=1']);
  assert.deepEqual(await heardOf(record(0xfffe, 0, 1) + record(0, 0, 2)), []);
});

test('a record of a driver that nobody has asked for drops the rest of its receive', async () => {
  assert.deepEqual(await heardOf(record(1, 0, 1) + record(0, 0, 2)), []);
});

test('a record that two receives split is not joined: both parts are lost, what comes then is told', async () => {
  const whole = record(0, 0, 7);
  for (const at of [2, 6, 8, 10, 14]) {
    assert.deepEqual(await heardOf(whole.slice(0, at), whole.slice(at)), [], `at ${at}`);
  }
});

test('the second part of a split record is read as a record of its own', async () => {
  // Behind the border stands 00 00 01 00 and four bytes: a record of B.
  assert.deepEqual(await heardOf(hex([0, 0, 0, 0, 7]), hex([0, 0, 1, 0], i32(8))), ['D0.B=8']);
});

test('a string that does not end in its receive is dropped', async () => {
  const { log } = await follower('S', 'D1');
  await sim.notifyRaw(hex(u16(1), u16(3), 'no end'));
  await sim.notifyRaw(hex(u16(1), u16(3), 'end\0'));
  assert.deepEqual(await log.until(1), [['D1', 'S', 'end']]);
});

test('a string that fills a receive of 2048 bytes is told', async () => {
  const { log } = await follower('S', 'D1');
  const text = 'x'.repeat(2048 - 4 - 1);
  await sim.notifyRaw(hex(u16(1), u16(3), `${text}\0`));
  assert.deepEqual(await log.until(1), [['D1', 'S', text]]);
});

// Core records and their lengths. 1 and 3 are alarms, which nobody has subscribed to here.
const LENGTHS = new Map([
  [1, 35],
  [2, 7],
  [3, 35],
  [4, 43],
  [5, 7],
  [6, 20],
  [7, 7],
  [8, 5],
  [255, 3],
]);
for (const command of [9, 14, 15, 22, 16, 17, 18, 19, 20, 21]) LENGTHS.set(command, 8); // an empty text from 16 to 21
for (const command of [10, 11, 12, 13]) LENGTHS.set(command, 15);

for (const [command, length] of LENGTHS) {
  test(`a core record of command ${command} takes ${length} bytes and tells nothing`, async () => {
    assert.deepEqual(await heardOf(coreRecord(command, length) + record(0, 1, 1)), ['D0.B=1']);
  });
}

for (const command of [16, 17, 18, 19, 20, 21]) {
  test(`a tag event of command ${command} takes 8 bytes and its text`, async () => {
    assert.deepEqual(await heardOf(hex([0xff, 0xff, command, 0, 0, 2, 0], 'abc\0') + record(0, 1, 1)), ['D0.B=1']);
  });
}

for (const command of [0, 23, 100, 254]) {
  test(`a core record of the unknown command ${command} drops the rest of its receive`, async () => {
    assert.deepEqual(await heardOf(record(0, 0, 1) + coreRecord(command, 7) + record(0, 1, 1)), ['D0.A=1']);
  });
}

for (const [what, event] of [
  ['of a driver beyond the last', [2, 0, 0, 0]],
  ['of a tag beyond the last', [0, 0, 3, 0]],
  ['of a driver that nobody has asked for', [1, 0, 0, 0]],
]) {
  test(`a tag event ${what} drops the rest of its receive`, async () => {
    assert.deepEqual(await heardOf(hex([0xff, 0xff, 9], event, [0]) + record(0, 1, 1)), []);
  });
}

test('core records that end with their receive are dropped without harm', async () => {
  const cut = [[0xff], [0xff, 0xff], ...[[1], [3, 1, 2], [9], [17, 0, 0, 0]].map((rest) => [0xff, 0xff, ...rest])];
  const endless = hex([0xff, 0xff, 17, 0, 0, 0, 0], 'no end');
  assert.deepEqual(await heardOf(...cut.map((bytes) => hex(bytes)), endless), []);
});

test('notifications in blocks of any size are told', async (t) => {
  t.after(() => sim.configure({ notifyBlock: 'auto' }));
  for (const notifyBlock of [0, 256, 512, 1024, 2048]) {
    await sim.configure({ notifyBlock });
    const { log } = await follower('A,B,C');
    for (let i = 0; i < 300; i++) sim.set('D0', 'ABC'[i % 3], notifyBlock + i);
    const told = (await log.until(300)).map(([, , value]) => value);
    assert.deepEqual(
      told,
      Array.from({ length: 300 }, (_, i) => notifyBlock + i),
    );
  }
});
