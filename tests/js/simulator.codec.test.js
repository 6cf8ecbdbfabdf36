'use strict';
// The simulator's own scrambling, codec and waveforms, without a connection.

const { mock, test } = require('node:test');
const assert = require('node:assert');
const { scramble, unscramble, scrambledLength } = require('../../simulator/scramble');
const { scrambled, plainOf } = require('./support/TinyClient');
const { filling, CANNOT_FILL } = require('../../simulator/notify');
const { chunksOf } = require('../../simulator/handlers');
const { Window } = require('../../simulator/transfer');
const { isGb2312 } = require('../../simulator/text');
const { coerce, daysOfText } = require('../../simulator/values');
const { Plant } = require('../../simulator/plant');
const { Waveforms } = require('../../simulator/waveforms');
const { loadProject } = require('../../simulator/project');

test('scrambling agrees with a second reading of it, for every length', () => {
  for (let length = 0; length < 70; length++) {
    const plain = Buffer.from(Uint8Array.from({ length }, (_, i) => i * 37));
    assert.deepEqual(plainOf(scramble(plain)), plain);
    assert.deepEqual(unscramble(scrambled(plain, 250)), plain);
    assert.equal(scramble(plain).length, scrambledLength(length));
  }
});

test('3 plain bytes become 4, 4 become 6, 5 become 7, 16 become 22', () => {
  assert.deepEqual([0, 1, 2, 3, 4, 5, 16].map(scrambledLength), [0, 2, 3, 4, 6, 7, 22]);
});

test('known wire bytes decode: r, p0 + r, p1 - r, p2 xor r', () => {
  assert.equal(unscramble(Buffer.from('f03151b3', 'hex')).toString('latin1'), 'AAC');
  assert.equal(unscramble(Buffer.from('f03151', 'hex')).toString('latin1'), 'AA');
  assert.equal(unscramble(Buffer.from('f031', 'hex')).toString('latin1'), 'A');
  assert.equal(unscramble(Buffer.from('05', 'hex')).length, 0);
});

test('filling makes every length but 1, 2 and 4', () => {
  const sizes = { 2: 7, 4: 43, 6: 20, 8: 5, 255: 3 };
  for (let length = 0; length <= 2048; length++) {
    if (CANNOT_FILL.has(length)) continue;
    const bytes = filling(length);
    let at = 0;
    while (at < length) {
      assert.equal(bytes.readUInt16LE(at), 0xffff);
      at += sizes[bytes[at + 2]];
    }
    assert.equal(at, length);
  }
});

test('chunks end at values and are never empty but for nothing', () => {
  const value = (length) => Buffer.alloc(length);
  const lengths = (list, limit) => chunksOf(list.map(value), limit).map((chunk) => chunk.length);
  assert.deepEqual(lengths([4, 4, 4], 8), [8, 4]);
  assert.deepEqual(lengths([4, 5, 4], 8), [4, 5, 4]);
  assert.deepEqual(lengths([20, 1], 8), [20, 1]);
  assert.deepEqual(lengths([], 8), [0]);
});

test('the window shrinks by 10240 with every acknowledgement down to 8192', () => {
  const window = new Window();
  const sizes = [];
  for (let i = 0; i < 14; i++) {
    sizes.push(window.room);
    window.sent(window.room);
    assert.equal(window.room, 0);
    window.acknowledged(window.unacknowledged);
  }
  assert.deepEqual(sizes.slice(0, 3), [131072, 120832, 110592]);
  assert.deepEqual(sizes.slice(-3), [18432, 8192, 8192]);
});

test('GB2312 holds its own characters and no others of the wider code set', () => {
  for (const text of ['', 'abc', '水位', '锅炉', '℃', 'Ω']) assert.equal(isGb2312(text), true, text);
  for (const text of ['ñ', '€', '鍋爐', '😀', 'ⅰ', '丂', '癅']) assert.equal(isGb2312(text), false, text);
});

test('nonsense becomes 0, false or an empty text of the type', () => {
  assert.deepEqual(
    [2, 8, 11, 20, 5].map((code) => coerce(code, undefined)),
    [0, '', false, 0n, 0],
  );
  assert.deepEqual(
    [2, 20].map((code) => coerce(code, 'x')),
    [0, 0n],
  );
  assert.deepEqual(
    [Infinity, -Infinity, NaN].map((value) => coerce(3, value)),
    [2147483647, -2147483648, 0],
  );
  assert.deepEqual(
    [1e30, -1e30, NaN].map((value) => coerce(20, value)),
    [2n ** 63n - 1n, -(2n ** 63n), 0n],
  );
});

test('a long text is cut at a character', () => {
  assert.equal(coerce(8, '水'.repeat(1000)), '水'.repeat(666));
  assert.equal(coerce(8, 'a\0b'), 'a');
});

test('dates count days from 1899-12-30', () => {
  assert.equal(daysOfText('1970-01-01'), 25569);
  assert.equal(daysOfText('1899-12-30T06:00'), 0.25);
  assert.ok(Number.isNaN(daysOfText('1.1.1970')));
});

function waves(tags) {
  const plant = new Plant(loadProject({ name: 'P', drivers: [{ name: 'D', tags }] }));
  const waveforms = new Waveforms(plant, { rate: 0, seed: 7 });
  const all = [...plant.tags()];
  return {
    tags: all,
    at(time, step = 1) {
      const now = performance.now();
      const clock = mock.method(performance, 'now', () => now); // it stands until they have moved
      waveforms.started = now - time * 1000;
      waveforms.move(all, step);
      clock.mock.restore();
      return all.map((tag) => tag.value);
    },
  };
}

const close = (actual, expected) =>
  actual.forEach((value, i) => assert.ok(Math.abs(value - expected[i]) < 0.5, `${value} is not about ${expected[i]}`));

test('waveforms have their shapes', () => {
  const number = (wave) => ({ name: wave.kind, type: 'double', range: [0, 100], wave: { period: 8, ...wave } });
  const plant = waves([
    number({ kind: 'sine' }),
    number({ kind: 'triangle' }),
    number({ kind: 'ramp' }),
    number({ kind: 'square', duty: 0.25 }),
    number({ kind: 'counter' }),
    number({ kind: 'steps', steps: [5, 6, 7, 8] }),
  ]);
  close(plant.at(0.001), [0, 0, 0, 100, 0, 5]);
  close(plant.at(2.001), [50, 50, 25, 0, 0, 6]);
  close(plant.at(4.001), [100, 100, 50, 0, 0, 7]);
  close(plant.at(14.001), [50, 50, 75, 0, 1, 8]);
});

test('a random walk repeats with its seed and stays in its range', () => {
  const walk = () => {
    const plant = waves([{ name: 'x', type: 'double', range: [-5, 5], wave: { kind: 'random' } }]);
    return Array.from({ length: 500 }, () => plant.at(0)[0]);
  };
  const values = walk();
  assert.deepEqual(walk(), values);
  assert.ok(values.every((value) => value >= -5 && value <= 5));
  assert.ok(new Set(values).size > 400);
});

test('a tag follows its set-point', () => {
  const plant = waves([
    { name: 'x', type: 'double', value: 0, wave: { kind: 'follow', tag: 'set', lag: 2 } },
    { name: 'set', type: 'int32', value: 100 },
  ]);
  assert.ok(Math.abs(plant.at(0, 2)[0] - 63.2) < 0.1);
  for (let i = 0; i < 20; i++) plant.at(0, 2);
  assert.ok(Math.abs(plant.tags[0].value - 100) < 0.1);
});

test('tags of one count entry are spread over the period', () => {
  const plant = waves([
    { name: 'x{0}', type: 'double', count: 4, range: [0, 100], wave: { kind: 'ramp', period: 10 } },
  ]);
  close(plant.at(0.001), [0, 25, 50, 75]);
});
