'use strict';
// Names of tags to ids: request 'L', which carries many names, and the names kept from it.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, openDriver, connect, sent } = require('./support/server.js');
const { u16, hex } = require('./support/wire.js');

const LONG = { name: 'Long{000}'.padEnd(200, '_'), type: 'int32', count: 100, value: 5 };
const LONG_NAMES = Array.from({ length: 100 }, (_, i) => `Long${String(i).padStart(3, '0')}`.padEnd(198, '_'));
const sim = sharedServer({
  project: {
    name: 'Names',
    drivers: [
      {
        name: 'D0',
        tags: [
          { name: 'A', type: 'int32', value: 10 },
          { name: 'B', type: 'int32', value: 11 },
          { name: 'C', type: 'int32', value: 12 },
          { name: 'D', type: 'int32', value: 13 },
          { name: 'two words', type: 'int32', value: 14 },
          LONG,
        ],
      },
      { name: 'D7', id: 7, tags: [{ name: 'A', type: 'int32', value: 70 }] },
      { name: 'None', id: 9, tags: [] },
    ],
  },
});

const ids = () => sent(sim, 'L');

/** A batch request of one driver. */
const batch = (driver, names) => hex('L', ...names.flatMap((name) => [u16(driver), `${name}\0`]));

test('a single name is asked for with L, the driver number, the name and zero', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('A');
  assert.deepEqual(await ids(), [hex('L', [0, 0], 'A\0')]);
});

test('the names of a list are asked for in one request', async () => {
  const driver = await openDriver(sim);
  assert.deepEqual(driver.GetTagValue('A,B,C'), [10, 11, 12]);
  assert.deepEqual(await ids(), [hex('L', [0, 0], 'A\0', [0, 0], 'B\0', [0, 0], 'C\0')]);
});

test('a driver asks with the number that the driver information gives it', async () => {
  const driver = await openDriver(sim, 'D7');
  assert.equal(driver.GetTagValue('A'), 70);
  assert.deepEqual(await ids(), [batch(7, ['A'])]);
});

test('blanks around a name do not count, blanks inside do', async () => {
  const driver = await openDriver(sim);
  assert.deepEqual(driver.GetTagValue('A, B,  two words '), [10, 11, 14]);
  assert.deepEqual(await ids(), [batch(0, ['A', 'B', 'two words'])]);
});

test('a tab is part of a name', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue('\tA'), undefined);
  assert.deepEqual(await ids(), [batch(0, ['\tA'])]);
});

test('names that are known are not asked for again', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('A,B');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('B,A'), [11, 10]);
  driver.ConnectTag('A, B');
  driver.SetTagValue('B', 11);
  await sim.waitFor('write');
  assert.deepEqual(await ids(), []);
});

test('a name that the server does not know gives an unset entry, and is not asked for again', async () => {
  const driver = await openDriver(sim);
  const values = driver.GetTagValue('A,unknown,B');
  assert.deepEqual(values, [10, , 11]); // eslint-disable-line no-sparse-arrays
  assert.equal(1 in values, false);
  await sim.clearRequests();
  assert.equal(driver.GetTagValue('unknown'), undefined);
  assert.deepEqual(await sim.requests(), []);
});

test('names are compared exactly', async () => {
  const driver = await openDriver(sim);
  assert.equal(driver.GetTagValue('a'), undefined);
});

test('a list that mixes known and new names gives the known ones first, the new ones when answered', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('C');
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue('A,C,B'), [12, 10, 11]); // C was known
  assert.deepEqual(await sent(sim), [batch(0, ['A', 'B']), hex('H', [3, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 1, 0])]);
  assert.deepEqual(driver.GetTagValue('A,C,B'), [10, 12, 11]); // all are known now
});

test('the entries of names that are empty or known to be unknown stand in the order of the known ones', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('unknown');
  const values = driver.GetTagValue('A,unknown,B, ,C');
  assert.deepEqual(values, [, , 10, 11, 12]); // eslint-disable-line no-sparse-arrays
});

test('a write to a mixed list takes its values in the same order', async (t) => {
  t.after(() => Promise.all([sim.set('D0', 'A', 10), sim.set('D0', 'C', 12)]));
  const driver = await openDriver(sim);
  driver.GetTagValue('C');
  assert.equal(driver.SetTagValue('A,C', [1, 2]), 0);
  const writes = [await sim.waitFor('write'), await sim.waitFor('write', {}, { count: 2 })];
  assert.deepEqual(
    writes.map(({ tag, value }) => [tag, value]),
    [
      ['C', 1],
      ['A', 2],
    ],
  );
});

test('fields without a name give unset entries only where the list has blanks', async () => {
  const driver = await openDriver(sim);
  assert.deepEqual(driver.GetTagValue('A,,B'), [10, 11]);
  assert.deepEqual(driver.GetTagValue(',A,B,'), [10, 11]);
  assert.equal(driver.GetTagValue('A,'), 10);
  assert.deepEqual(driver.GetTagValue('A, '), [10, ,]); // eslint-disable-line no-sparse-arrays
});

test('an empty list and one of commas alone send nothing and give undefined', async () => {
  const driver = await openDriver(sim);
  for (const list of ['', ',', ',,,', ' ', ' , ']) driver.ConnectTag(list);
  for (const list of ['', ',', ',,,', ' ']) assert.equal(driver.GetTagValue(list), undefined);
  assert.deepEqual(driver.GetTagValue(' , '), new Array(2));
  assert.deepEqual(await sim.requests(), []);
});

test('a name that is listed twice is asked for twice and gives its value twice', async () => {
  const driver = await openDriver(sim);
  assert.deepEqual(driver.GetTagValue('A,A'), [10, 10]);
  assert.deepEqual(await ids(), [batch(0, ['A', 'A'])]);
});

/** Names whose request, with the letter, takes this many bytes. */
function namesOfTogether(bytes) {
  const last = bytes - 1 - 3 * (198 + 3) - 3;
  return [...LONG_NAMES.slice(0, 3), 'x'.repeat(last)];
}

test('names that fill 768 bytes go in one request', async () => {
  const driver = await openDriver(sim);
  const names = namesOfTogether(768);
  driver.GetTagValue(names.join());
  assert.deepEqual(await ids(), [batch(0, names)]);
  assert.equal((await ids())[0].length / 2, 768);
});

test('a name that would make 769 bytes begins a second request', async () => {
  const driver = await openDriver(sim);
  const names = namesOfTogether(769);
  driver.GetTagValue(names.join());
  assert.deepEqual(await ids(), [batch(0, names.slice(0, 3)), batch(0, names.slice(3))]);
});

test('the requests of a long list are answered in order', async () => {
  const driver = await openDriver(sim);
  const values = driver.GetTagValue(LONG_NAMES.slice(0, 10).join());
  assert.deepEqual(values, new Array(10).fill(5));
  assert.deepEqual(
    await ids(),
    [0, 3, 6, 9].map((at) => batch(0, LONG_NAMES.slice(at, Math.min(at + 3, 10)))),
  );
  const [{ fields }] = await sim.requests({ command: 'H' });
  assert.deepEqual(
    fields.tags.map(({ tag }) => tag),
    [5, 6, 7, 8, 9, 10, 11, 12, 13, 14],
  );
});

test('a known name between two requests stands where the first one has been answered', async () => {
  const driver = await openDriver(sim);
  driver.GetTagValue('A');
  const values = driver.GetTagValue([...LONG_NAMES.slice(0, 4), 'A', LONG_NAMES[4]].join());
  assert.deepEqual(values, [5, 5, 5, 10, 5, 5]);
});

test('a name too long for any request gives an unset entry and is not sent', async () => {
  const driver = await openDriver(sim);
  const [fits, tooLong] = ['x'.repeat(764), 'x'.repeat(765)];
  assert.equal(driver.GetTagValue(tooLong), undefined);
  assert.deepEqual(await ids(), []);
  assert.equal(driver.GetTagValue(fits), undefined);
  assert.deepEqual(await ids(), [batch(0, [fits])]);
  assert.equal(driver.SetTagValue(tooLong, 1), -3);
});

test('a list that the server answers badly gives undefined, and its names are asked for again', async () => {
  const driver = await openDriver(sim);
  await sim.setFault({ step: 'tagids', action: 'letter', letter: 'x', count: 1 });
  assert.equal(driver.GetTagValue('A'), undefined);
  await sim.clearRequests();
  assert.equal(driver.GetTagValue('A'), 10);
  assert.deepEqual(await ids(), [batch(0, ['A'])]);
});

test('when the second request fails, the names of the first are kept', async () => {
  const driver = await openDriver(sim);
  const names = LONG_NAMES.slice(0, 6);
  await sim.setFault({ step: 'tagids', action: 'letter', letter: 'x', count: 1, skip: 1 });
  assert.equal(driver.GetTagValue(names.join()), undefined);
  assert.deepEqual(await sent(sim, 'H'), []);
  await sim.clearRequests();
  assert.deepEqual(driver.GetTagValue(names.join()), new Array(6).fill(5));
  assert.deepEqual(await ids(), [batch(0, names.slice(3))]);
});

for (const method of ['ConnectTag', 'GetTagValue', 'SetTagValue']) {
  test(`${method} sends nothing more when its names cannot be resolved`, async () => {
    const driver = await openDriver(sim);
    await sim.setFault({ step: 'tagids', action: 'letter', letter: 'x' });
    assert.equal(driver[method]('A', 1), method === 'SetTagValue' ? -2 : undefined);
    assert.deepEqual(
      (await sim.requests()).map(({ command }) => command),
      ['L'],
    );
  });
}

for (const [action, name] of [
  ['close', 'ends'],
  ['reset', 'is reset'],
  ['cut', 'ends after one byte'],
]) {
  test(`a connection that ${name} while names are asked for fails the call, not the process`, async () => {
    const driver = await openDriver(sim);
    await sim.setFault({ step: 'tagids', action });
    assert.equal(driver.GetTagValue('A'), undefined);
    assert.equal(driver.SetTagValue('A', 1), -2);
  });
}

test('a reply that comes byte by byte is a reply', async () => {
  const driver = await openDriver(sim);
  await sim.setFault({ step: 'tagids', action: 'trickle' });
  assert.deepEqual(driver.GetTagValue('A,B'), [10, 11]);
});

test('an id at or above the number of tags is no tag', async () => {
  const driver = await openDriver(sim, 'D7');
  await sim.setFault({ step: 'tagids', action: 'reply', hex: hex('L', [1, 0, 0, 0]) });
  assert.equal(driver.GetTagValue('A'), undefined);
  assert.equal(driver.SetTagValue('A', 1), -3);
  assert.deepEqual(await sent(sim, 'H'), []);
});

test('a driver without tags knows no tag', async () => {
  const driver = await openDriver(sim, 'None');
  assert.equal(driver.GetTagValue('A'), undefined);
});

test('two drivers keep their names apart', () => {
  const core = connect(sim);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 10);
  assert.equal(core.GetDriver('D7').GetTagValue('A'), 70);
});

test('two driver objects of one driver know the same names', async () => {
  const core = connect(sim);
  core.GetDriver('D0').GetTagValue('B');
  await sim.clearRequests();
  core.GetDriver('D0').GetTagValue('B');
  assert.deepEqual(await ids(), []);
});
