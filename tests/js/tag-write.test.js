'use strict';
// Writing tags: request 'g', which is not answered.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, openDriver, sent } = require('./support/server.js');
const { callLog } = require('./support/events.js');
const { u16, f64, hex } = require('./support/wire.js');
const { patience } = require('./support/patience.js');

const tag = (name, type, value) => ({ name, type, value });
const sim = sharedServer({
  project: {
    name: 'Writes',
    users: [
      { name: 'operator', password: 'secret', rights: 8 },
      { name: 'viewer', password: '', rights: 7 },
    ],
    drivers: [
      {
        name: 'D0',
        tags: [
          tag('A', 'double', 1.5),
          tag('B', 'double', 7),
          tag('S', 'string', ''),
          tag('D', 'bool', false),
          tag('I', 'int32', 1),
        ],
      },
      { name: 'D3', id: 3, tags: [tag('X', 'double', 0), tag('Y', 'double', 0)] },
    ],
  },
});

/** A driver whose names are known, so that a write is the only request. */
async function writer(name = 'D0', list = 'A,B,S,D,I') {
  const driver = await openDriver(sim, name);
  driver.GetTagValue(list);
  await sim.clearRequests();
  return driver;
}

/** What one successful write of a value to a tag sends. */
async function written(list, value) {
  const driver = await writer();
  assert.equal(driver.SetTagValue(list, value), 0);
  return (await sim.waitFor('request', { command: 'g' })).hex;
}

const head = (count) => hex('g', u16(count));
const text = (id, ...bytes) => hex(u16(0), u16(id), u16(8), ...bytes, [0]);
const number = (id, value) => hex(u16(0), u16(id), u16(5), f64(value));
const flag = (id, value) => hex(u16(0), u16(id), u16(11), [value]);

test('the number 3 goes out as g, count, driver number, tag id, type 5 and its double', async () => {
  const expected = hex('g', [1, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 8, 0x40]);
  assert.equal(await written('A', 3), expected);
});

test('driver number and tag id are those of the written tag', async () => {
  const driver = await writer('D3', 'X,Y');
  driver.SetTagValue('Y', 1);
  const { hex: bytes } = await sim.waitFor('request', { command: 'g' });
  assert.equal(bytes, hex('g', [1, 0, 3, 0, 1, 0, 5, 0], f64(1)));
});

const NUMBERS = [
  0,
  -0,
  1,
  -1,
  0.1,
  2 ** 53,
  -(2 ** 31),
  4294967295,
  1e300,
  5e-324,
  Number.MAX_VALUE,
  Infinity,
  -Infinity,
  NaN,
];
for (const value of NUMBERS) {
  test(`the number ${Object.is(value, -0) ? '-0' : value} goes out as a double of its own`, async () => {
    assert.equal(await written('A', value), head(1) + number(0, value));
  });
}

test('true goes out as type 11 and 1, false as 0', async () => {
  assert.equal(await written('D', true), head(1) + flag(3, 1));
  await sim.clearRequests();
  assert.equal(await written('D', false), head(1) + flag(3, 0));
});

test('a string goes out as type 8, its UTF-8 bytes and zero', async () => {
  assert.equal(await written('S', 'text'), head(1) + text(2, 'text'));
});

test('an empty string goes out as its zero alone', async () => {
  assert.equal(await written('S', ''), head(1) + text(2));
});

test('Chinese text and emoji go out as UTF-8', async () => {
  assert.equal(await written('S', '水位 🚰'), head(1) + text(2, '水位 🚰'));
});

test('a string of 200 characters sends its first 127 bytes and zero', async () => {
  assert.equal(await written('S', 'x'.repeat(200)), head(1) + text(2, 'x'.repeat(127)));
});

const CUTS = [
  ['x'.repeat(126), 'x'.repeat(126)],
  ['x'.repeat(127), 'x'.repeat(127)],
  ['x'.repeat(128), 'x'.repeat(127)],
  ['水'.repeat(42), '水'.repeat(42)], // 126 bytes
  ['水'.repeat(43), '水'.repeat(42)], // 129
  [`x${'水'.repeat(42)}`, `x${'水'.repeat(42)}`], // 127
  [`xx${'水'.repeat(42)}`, `xx${'水'.repeat(41)}`], // 128: the last character would be cut
  [`${'🚰'.repeat(31)}xxx`, `${'🚰'.repeat(31)}xxx`], // 127
  ['🚰'.repeat(32), '🚰'.repeat(31)], // 128
  [`xxx${'🚰'.repeat(31)}y`, `xxx${'🚰'.repeat(31)}`], // 128
];
for (const [value, sentText] of CUTS) {
  const [all, some] = [Buffer.byteLength(value), Buffer.byteLength(sentText)];
  test(`a string of ${all} bytes (${value.slice(0, 4)}...) sends ${some}, whole characters`, async () => {
    assert.equal(await written('S', value), head(1) + text(2, sentText));
  });
}

test('a half of a surrogate pair goes out as the replacement character', async () => {
  assert.equal(await written('S', 'a\ud83d'), head(1) + text(2, 'a\ufffd'));
});

test('a string with a zero inside ends there, and nothing of it follows', async () => {
  const driver = await writer();
  assert.equal(driver.SetTagValue('S', 'ab\0cd'), 0);
  assert.equal(driver.GetTagValue('S'), 'ab');
  assert.deepEqual(await sent(sim), [head(1) + text(2, 'ab'), hex('H', [1, 0, 0, 0, 2, 0])]);
});

const UNWRITABLE = [
  null,
  undefined,
  {},
  [],
  [1],
  Symbol('s'),
  10n,
  () => {},
  new Date(),
  /x/,
  new Number(1),
  new String('s'),
  new Boolean(true),
  Buffer.from('b'),
];
for (const value of UNWRITABLE) {
  const name = value === null ? 'null' : `${typeof value} ${Object.prototype.toString.call(value)}`;
  test(`a value that cannot be written gives -3 and sends nothing: ${name}`, async () => {
    const driver = await writer();
    assert.equal(driver.SetTagValue('A', value), -3);
    assert.equal(driver.SetTagValue('A,B', [1, value]), -3);
    driver.GetTagValue('A');
    assert.deepEqual(await sent(sim, 'g'), []);
  });
}

test('a list is written from an array, types as they come', async () => {
  const expected = head(4) + number(0, 2) + number(1, 3) + text(2, 'on') + flag(3, 1);
  assert.equal(await written('A,B,S,D', [2, 3, 'on', true]), expected);
});

test('a list without an array gives -3 and sends nothing', async () => {
  const driver = await writer();
  for (const value of [1, 'text', true, null, undefined, {}, { 0: 1, 1: 2, length: 2 }, new Float64Array(2)]) {
    assert.equal(driver.SetTagValue('A,B', value), -3);
  }
  driver.GetTagValue('A');
  assert.deepEqual(await sent(sim, 'g'), []);
});

test('one tag takes no array', async () => {
  assert.equal((await writer()).SetTagValue('A', [1]), -3);
});

test('an array that is longer than its list is written as far as the list goes', async () => {
  assert.equal(await written('A,B', [1, 2, 3, {}]), head(2) + number(0, 1) + number(1, 2));
});

test('an array that is shorter than its list gives -3 and sends nothing', async () => {
  const driver = await writer();
  assert.equal(driver.SetTagValue('A,B', [1]), -3);
  assert.equal(driver.SetTagValue('A,B', []), -3);
  driver.GetTagValue('A');
  assert.deepEqual(await sent(sim, 'g'), []);
});

test('a hole in the array gives -3', async () => {
  assert.equal((await writer()).SetTagValue('A,B', [1, , 2]), -3); // eslint-disable-line no-sparse-arrays
});

test('an unknown name of a list is skipped together with its element', async () => {
  const driver = await writer();
  driver.GetTagValue('unknown');
  await sim.clearRequests();
  assert.equal(driver.SetTagValue('A,unknown,B', [1, null, 2]), 0);
  assert.equal((await sim.waitFor('request', { command: 'g' })).hex, head(2) + number(0, 1) + number(1, 2));
});

test('an array that ends before a skipped name is long enough', async () => {
  const driver = await writer();
  driver.GetTagValue('unknown');
  assert.equal(driver.SetTagValue('A,unknown', [1]), 0);
});

test('a single unknown tag gives -3', async () => {
  const driver = await writer();
  assert.equal(driver.SetTagValue('unknown', 1), -3);
  assert.deepEqual(await sent(sim, 'g'), []);
});

test('a list of unknown tags alone sends a write of none', async () => {
  const driver = await writer();
  assert.equal(driver.SetTagValue('nothing,nil', [1, 2]), 0);
  assert.equal((await sim.waitFor('request', { command: 'g' })).hex, head(0));
});

test('an empty list gives 0 and sends nothing', async () => {
  const driver = await writer();
  for (const list of ['', ',', ',,']) assert.equal(driver.SetTagValue(list, 1), 0);
  driver.GetTagValue('A');
  assert.deepEqual(await sent(sim, 'g'), []);
});

test('a user without the write right gets -1, before any name is resolved or value looked at', async () => {
  const driver = await openDriver(sim, 'D0', 'viewer', '');
  assert.equal(driver.SetTagValue('A', 1), -1);
  assert.equal(driver.SetTagValue('unknown', null), -1);
  assert.equal(driver.SetTagValue('', 1), -1);
  assert.equal(driver.SetTagValue('A,B', [1, 2]), -1);
  assert.deepEqual(await sent(sim), []);
  assert.equal(typeof driver.GetTagValue('A'), 'number');
});

/** Strings that make a write of two tags this long. */
const stringsFor = (bytes) => ['x'.repeat(100), 'y'.repeat(bytes - 3 - 7 - 100 - 7)];

test('a write is sent whole: two strings, count 2', async () => {
  const [one, two] = stringsFor(200);
  const bytes = await written('S,A', [one, two]);
  assert.equal(bytes, head(2) + text(2, one) + text(0, two));
  assert.equal(bytes.length / 2, 200);
});

test('a write of 2048 bytes is sent, one that would pass them gives -3 and sends nothing', async () => {
  const driver = await writer();
  const list = new Array(16).fill('S').join(); // 15 strings of 127 bytes are 3 + 15 x 134 = 2013 bytes
  const values = (last) => [...new Array(15).fill('x'.repeat(127)), last];
  assert.equal(driver.SetTagValue(list, values('y'.repeat(29))), -3);
  assert.equal(driver.SetTagValue(list, values('y'.repeat(28))), 0);
  const { hex: bytes } = await sim.waitFor('request', { command: 'g' });
  assert.equal(bytes.length / 2, 2048);
  assert.equal((await sent(sim, 'g')).length, 1);
});

test('a number and a boolean beyond 2048 bytes give -3, too', async () => {
  const driver = await writer();
  const list = new Array(16).fill('S').join();
  const values = (last) => [...new Array(15).fill('x'.repeat(127)), last];
  assert.equal(driver.SetTagValue(`${list},A,D`, [...values('y'.repeat(14)), 1, true]), -3);
  assert.equal(driver.SetTagValue(`${list},A,D`, [...values('y'.repeat(7)), 1, true]), 0);
  assert.equal((await sim.waitFor('request', { command: 'g' })).hex.length / 2, 2048);
});

test("a write leaves the driver's own values as they are: the new one comes back as a change", async () => {
  const driver = await writer();
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  const before = driver.GetTagValue('A');
  await sim.setFault({ step: 'write', action: 'drop', count: 1 });
  assert.equal(driver.SetTagValue('A', 99), 0);
  assert.equal(driver.GetTagValue('A'), before);
  assert.equal(driver.SetTagValue('A', 99), 0);
  assert.deepEqual(await log.until(1), [['D0', 'A', 99]]);
  assert.equal(driver.GetTagValue('A'), 99);
});

test('a written value is what the next read gives', async () => {
  const driver = await writer();
  assert.equal(driver.SetTagValue('A,S,D,I', [-2.5, '水', true, 12]), 0);
  assert.deepEqual(driver.GetTagValue('A,S,D,I'), [-2.5, '水', true, 12]);
});

test('a write is neither answered nor waited for', async () => {
  const driver = await writer();
  await sim.setFault({ step: 'write', action: 'drop' });
  assert.equal(driver.SetTagValue('A', 1), 0);
});

test('a write on a connection that has ended gives -2', async () => {
  const driver = await writer();
  await sim.closeRequest();
  const deadline = Date.now() + patience(5000);
  while (driver.SetTagValue('A', 1) !== -2) assert.ok(Date.now() < deadline);
});

test('an array whose element throws when it is read gives -3 and throws', async () => {
  const driver = await writer();
  const values = [1, 2];
  Object.defineProperty(values, 1, {
    get() {
      throw new RangeError('no value');
    },
  });
  assert.throws(() => driver.SetTagValue('A,B', values), { name: 'RangeError', message: 'no value' });
  driver.GetTagValue('A');
  assert.deepEqual(await sent(sim, 'g'), []);
});
