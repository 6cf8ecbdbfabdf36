'use strict';
// Every type of value on its three ways to JavaScript: read ('H'), connected ('b') and changed (a notification, which
// carries no type: it is the one that the tag has).

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, openDriver, sent } = require('./support/server.js');
const { callLog } = require('./support/events.js');
const { u16, f64, hex } = require('./support/wire.js');

const sim = sharedServer({
  project: { name: 'Types', drivers: [{ name: 'D0', tags: ['A', 'B', 'C'].map((name) => ({ name, type: 'int32' })) }] },
});

const utf8 = (text) => [...Buffer.from(`${text}\0`)];

// type, name, value bytes on the wire, what JavaScript gets
const VALUES = [
  [2, 'int16', [0x00, 0x80], -32768],
  [2, 'int16', [0xff, 0x7f], 32767],
  [3, 'int32', [0x00, 0x00, 0x00, 0x80], -2147483648],
  [3, 'int32', [0xff, 0xff, 0xff, 0x7f], 2147483647],
  [4, 'float', [0xcd, 0xcc, 0xcc, 0x3d], 0.10000000149011612],
  [4, 'float', [0x00, 0x00, 0x80, 0xff], -Infinity],
  [4, 'float', [0x00, 0x00, 0xc0, 0x7f], NaN],
  [5, 'double', [...f64(0.1)], 0.1],
  [5, 'double', [...f64(-0)], -0],
  [5, 'double', [...f64(NaN)], NaN],
  [7, 'date', [...f64(45000.5)], undefined],
  [8, 'string', utf8('text'), 'text'],
  [8, 'string', utf8(''), ''],
  [8, 'string', utf8('水位 🚰'), '水位 🚰'],
  [8, 'string', [0xce, 0xc2, 0], '\ufffd\ufffd'], // GB2312 bytes are not converted, and are no UTF-8
  [11, 'bool', [0], false],
  [11, 'bool', [1], true],
  [11, 'bool', [5], true],
  [16, 'int8, read as unsigned', [0xff], 255],
  [16, 'int8, read as unsigned', [0x80], 128],
  [16, 'int8, read as unsigned', [0x7f], 127],
  [17, 'uint8', [0xff], 255],
  [18, 'uint16', [0xff, 0xff], 65535],
  [19, 'uint32', [0xff, 0xff, 0xff, 0xff], 4294967295],
  [20, 'int64', [1, 0, 0, 0, 0, 0, 0, 0], undefined],
  [22, 'int', [0xff, 0xff, 0xff, 0xff], -1],
  [23, 'uint', [0xff, 0xff, 0xff, 0xff], 4294967295],
];

// Types whose values have no bytes.
const BARE = [
  [0, 'empty'],
  [1, 'null'],
  [6, 'currency'],
  [9, 'dispatch'],
  [10, 'error'],
  [12, 'variant'],
  [13, 'unknown'],
  [14, 'decimal'],
  [15, 'unassigned'],
  [21, 'uint64'],
  [24, 'beyond the last'],
  [0x1fff, 'not known'],
  [0x2001, 'an array of another kind'],
  [0xffff, 'the highest code'],
];

const typed = (type, bytes) => Buffer.concat([u16(type), Buffer.from(bytes)]);
const SENTINEL = typed(3, [42, 0, 0, 0]);

/** A reply of one chunk. */
const reply = (command, ...values) => {
  const bytes = Buffer.concat(values.map((value) => Buffer.from(value)));
  return hex(command === 'H' ? 'H\0' : 'b', u16(bytes.length), bytes);
};

/** A driver whose next read or connect is answered with these values. */
async function answering(command, ...values) {
  const driver = await openDriver(sim);
  await sim.setFault({
    step: command === 'H' ? 'read' : 'connect',
    action: 'reply',
    hex: reply(command, ...values),
    count: 1,
  });
  return driver;
}

for (const [type, name, bytes, expected] of VALUES) {
  const title = `type ${type} (${name}) of ${hex(bytes)}`;

  test(`${title} is read as ${String(expected)}`, async () => {
    const driver = await answering('H', typed(type, bytes), SENTINEL);
    assert.deepEqual(driver.GetTagValue('A,B'), [expected, 42]);
  });

  test(`${title} is connected as ${String(expected)}`, async () => {
    const driver = await answering('b', typed(type, bytes), SENTINEL);
    driver.ConnectTag('A,B');
    assert.deepEqual(driver.GetTagValue('A,B'), [expected, 42]);
    assert.deepEqual(await sent(sim, 'H'), []);
  });

  test(`${title} as a change is ${String(expected)}`, async () => {
    const other = Buffer.alloc(type === 8 ? 1 : bytes.length); // the value before: zero, or an empty text
    const driver = await answering('b', typed(type, other), SENTINEL);
    const log = callLog();
    driver.SetTagNotify(log);
    driver.ConnectTag('A,B');
    await sim.notifyRaw(hex([0, 0, 0, 0], bytes, [0, 0, 1, 0, 43, 0, 0, 0]));
    assert.deepEqual(await log.until(2), [
      ['D0', 'A', expected],
      ['D0', 'B', 43],
    ]);
    assert.deepEqual(driver.GetTagValue('A,B'), [expected, 43]);
  });
}

for (const [type, name] of BARE) {
  test(`type ${type} (${name}) has no bytes, is read and connected as undefined, and changes nothing`, async () => {
    const reader = await answering('H', typed(type, []), SENTINEL);
    assert.deepEqual(reader.GetTagValue('A,B'), [undefined, 42]);
    const driver = await answering('b', typed(type, []), SENTINEL);
    const log = callLog();
    driver.SetTagNotify(log);
    driver.ConnectTag('A,B');
    assert.deepEqual(driver.GetTagValue('A,B'), [undefined, 42]);
    await sim.notifyRaw(hex([0, 0, 0, 0], [0, 0, 1, 0, 43, 0, 0, 0])); // dropped to its end
    await sim.notifyRaw(hex([0, 0, 1, 0, 44, 0, 0, 0]));
    assert.deepEqual(await log.until(1), [['D0', 'B', 44]]);
  });
}

test('a value without bytes is an element of the array that is set, to undefined', async () => {
  const driver = await answering('H', typed(7, f64(1)), SENTINEL);
  assert.equal(0 in driver.GetTagValue('A,B'), true);
});

const ARRAY = [...typed(0x2000, u16(2)), ...typed(3, [1, 0, 0, 0]), ...typed(3, [2, 0, 0, 0])];

test('an array is read as undefined', async () => {
  const driver = await answering('H', ARRAY);
  assert.equal(driver.GetTagValue('A'), undefined);
  assert.equal(driver.GetTagValue('B'), 0, 'the connection goes on');
});

test('an array is connected as undefined', async () => {
  const driver = await answering('b', ARRAY);
  driver.ConnectTag('A');
  assert.equal(driver.GetTagValue('A'), undefined);
  assert.deepEqual(await sent(sim, 'H'), []);
});

test('of an array only the type word is stepped over: the value behind it is read from its count on', async () => {
  const reader = await answering('H', ARRAY);
  assert.deepEqual(reader.GetTagValue('A,B'), [undefined, 3]); // type 2 (the count), value 3 (the first type word)
  const driver = await answering('b', ARRAY);
  driver.ConnectTag('A,B');
  assert.deepEqual(driver.GetTagValue('A,B'), [undefined, 3]);
});

test('a notification of an array changes nothing', async () => {
  const driver = await answering('b', ARRAY);
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  await sim.setFault({ step: 'connect', action: 'reply', hex: reply('b', SENTINEL), count: 1 });
  driver.ConnectTag('B');
  await sim.notifyRaw(hex([0, 0, 0, 0], ARRAY.slice(2)));
  await sim.notifyRaw(hex([0, 0, 1, 0, 44, 0, 0, 0]));
  assert.deepEqual(await log.until(1), [['D0', 'B', 44]]);
});

test('a string of 60000 bytes is read whole', async () => {
  const text = '水'.repeat(20000);
  const driver = await answering('H', typed(8, utf8(text)));
  assert.equal(driver.GetTagValue('A'), text);
});
