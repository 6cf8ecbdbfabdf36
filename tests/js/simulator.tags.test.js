'use strict';
// Tag requests against the simulator: ids, values, writes, byte by byte.

const test = require('node:test');
const assert = require('node:assert');
const { login, hex } = require('./support/TinyClient');
const { simulate } = require('./support/simulated');

async function client(t, options, ...who) {
  const sim = await simulate(t, options);
  const one = await login(sim, ...who);
  t.after(() => one.close());
  return { sim, request: one.request, notify: one.notify };
}

test('a single name gives a five-byte reply that begins with L and the id', async (t) => {
  const { request, sim } = await client(t);
  request.send('L', hex('0000'), 'real\0');
  assert.equal(await request.read(5), '4c02000000');
  assert.equal((await sim.requests({ command: 'L' }))[0].hex, '4c00007265616c00');
});

test('a batch gives four bytes a name, 65535 for unknown names, tags of other drivers and unknown drivers', async (t) => {
  const { request } = await client(t);
  const batch = [
    [0, 'text'],
    [0, 'nope'],
    [7, 'word'],
    [3, 'word'],
    [0, 'Word'],
    [0, 'word'],
  ];
  const entries = batch.flatMap(([driver, name]) => [[driver, 0], `${name}\0`]);
  request.send('L', ...entries.map((part) => Buffer.from(part)));
  assert.equal(await request.read(25), '4c0100' + '0000' + 'ffff0000'.repeat(4) + '00000000');
});

test('a Chinese tag name is found by its GB2312 bytes', async (t) => {
  const { request } = await client(t);
  request.send('L', hex('0700 cec2b6c8 00'));
  assert.equal(await request.read(5), '4c00000000');
});

test('a batch cut inside a name waits for the rest', async (t) => {
  const { request, sim } = await client(t);
  request.send('L', hex('0000'), 'wo');
  await new Promise(setImmediate);
  request.send('rd\0', hex('0000'), 'text\0');
  assert.equal(await request.read(9), '4c' + '00000000' + '01000000');
  assert.equal((await sim.requests({ command: 'L' })).length, 1);
});

test('a batch cut behind a name is answered in two parts that make one reply', async (t) => {
  const { request, sim } = await client(t);
  request.send('L', hex('0000'), 'word\0');
  assert.equal(await request.read(5), '4c00000000');
  request.send(hex('0000'), 'text\0', hex('0700'), 'x\0');
  assert.equal(await request.read(8), '01000000' + 'ffff0000');
  assert.equal((await sim.requests({ command: 'L' }))[1].fields.continued, true);
  request.send('H', hex('0100 0000 0000'));
  assert.equal(await request.read(8), '48000400' + '02003412');
});

test('values are read with type words; a tag that does not exist reads as empty', async (t) => {
  const { request } = await client(t);
  request.send('H', hex('0500 0000 0000  0000 0100  0000 0200  0000 6300  0700 0000'));
  const values = '02003412' + '0800414200' + '05000000000000000840' + '0000' + '04000000c03f';
  assert.equal(await request.read(4 + values.length / 2), `48001b00${values}`);
});

test('reading nothing gives one empty chunk', async (t) => {
  const { request } = await client(t);
  request.send('H', hex('0000'));
  assert.equal(await request.read(4), '48000000');
});

test('a read reply is cut into chunks between values, the last one without the more flag', async (t) => {
  const { request } = await client(t, { chunk: 9 });
  request.send('H', hex('0400 0000 0000 0000 0100 0000 0200 0000 0300'));
  assert.equal(await request.read(4 + 9), '48010900' + '02003412' + '0800414200');
  assert.equal(await request.read(4 + 10), '48010a00' + '05000000000000000840'); // longer than a chunk: alone
  assert.equal(await request.read(4 + 3), '48000300' + '110009');
});

test('a connect reply has chunks of b, length and values', async (t) => {
  const { request, sim } = await client(t, { chunk: 10 });
  request.send('b', hex('0300 0000 0000 00  0000 0100 00  0000 0200 00'));
  assert.equal(await request.read(3 + 9), '620900' + '02003412' + '0800414200');
  assert.equal(await request.read(3 + 10), '620a00' + '05000000000000000840');
  assert.equal((await sim.connections())[0].advised, 3);
});

const EVERY_TYPE = [
  ['empty', undefined, '0000'],
  ['null', undefined, '0100'],
  ['int16', -2, '0200feff'],
  ['int32', -2, '0300feffffff'],
  ['float', 1.5, '04000000c03f'],
  ['double', -1, '0500000000000000f0bf'],
  ['currency', undefined, '0600'],
  ['date', '1970-01-01T12:00:00', '070000000000' + '60f8d840'],
  ['string', '水', '0800e6b0b400'],
  ['dispatch', undefined, '0900'],
  ['error', undefined, '0a00'],
  ['bool', true, '0b0001'],
  ['variant', undefined, '0c00'],
  ['unknown', undefined, '0d00'],
  ['decimal', undefined, '0e00'],
  ['reserved', undefined, '0f00'],
  ['int8', -1, '1000ff'],
  ['uint8', 255, '1100ff'],
  ['uint16', 65535, '1200ffff'],
  ['uint32', 4294967295, '1300ffffffff'],
  ['int64', '-2', '1400feffffffffffffff'],
  ['uint64', undefined, '1500'],
  ['int', -2147483648, '160000000080'],
  ['uint', 1, '170001000000'],
  [
    'array',
    [
      { type: 'int16', value: 1 },
      { type: 'string', value: 'x' },
    ],
    '00200200' + '02000100' + '08007800',
  ],
];

for (const [type, value, bytes] of EVERY_TYPE) {
  test(`a value of type ${type} reads as ${bytes}`, async (t) => {
    const project = { name: 'P', drivers: [{ name: 'D', tags: [{ name: 'x', type, value }] }] };
    const { request } = await client(t, { project });
    request.send('H', hex('0100 0000 0000'));
    assert.equal((await request.read(4 + bytes.length / 2)).slice(8), bytes);
  });
}

test('a write is stored, recorded and read back', async (t) => {
  const { request, sim } = await client(t);
  request.send('g', hex('0200  0000 0200 0500 000000000000f03f  0000 0100 0800'), '水\0');
  await sim.waitFor('write', { tag: 'text' });
  assert.deepEqual((await sim.requests({ command: 'g' }))[0].fields.writes, [
    { driver: 0, tag: 2, type: 5, value: 1 },
    { driver: 0, tag: 1, type: 8, value: '水' },
  ]);
  assert.equal(await sim.get('A', 'real'), 1);
  assert.equal(await sim.get('A', 'text'), '水');
});

const COERCED = [
  ['int16', '0500 00000000006af8c0', -32768], // -100000 is held at the end of the range
  ['int16', '0800 3132 00', 12],
  ['uint8', '0500 0000000000000440', 2], // 2.5
  ['int32', '0800 6100 ', 0], // "a"
  ['bool', '0500 0000000000000040', true],
  ['bool', '0800 66616c736500', false],
  ['string', '0500 000000000000f83f', '1.5'],
  ['string', '0b00 01', 'true'],
  ['int64', '0800 3930303731393932353437343039393300', 9007199254740993n],
  ['float', '0500 9a9999999999b93f', Math.fround(0.1)],
];

for (const [type, bytes, stored] of COERCED) {
  test(`a written ${bytes} becomes ${stored} in a tag of type ${type}`, async (t) => {
    const project = { name: 'P', drivers: [{ name: 'D', tags: [{ name: 'x', type }] }] };
    const { request, sim } = await client(t, { project });
    request.send('g', hex('0100 0000 0000'), hex(bytes));
    await sim.waitFor('write', { stored: true });
    assert.strictEqual(await sim.get('D', 'x'), stored);
  });
}

test('a write is held within the range of its tag', async (t) => {
  const { request, sim } = await client(t);
  request.send('g', hex('0100 0000 0400 0300 63000000'));
  await sim.waitFor('write', { tag: 'held' });
  assert.equal(await sim.get('A', 'held'), 10);
});

test('a write without the right, to a read-only tag or to no tag changes nothing', async (t) => {
  const { request, sim } = await client(t);
  request.send('g', hex('0200  0000 0300 1100 01  0900 0000 1100 01'));
  await sim.waitFor('write', { tag: 'fixed', stored: false });
  await sim.waitFor('write', { driver: 9, stored: false });
  assert.equal(await sim.get('A', 'fixed'), 9);
  const viewer = await login(sim, 'viewer', 'viewer');
  viewer.request.send('g', hex('0100 0000 0000 0200 0100'));
  await sim.waitFor('write', { tag: 'word', stored: false });
  assert.equal(await sim.get('A', 'word'), 0x1234);
  viewer.close();
});

test('a write that arrives byte by byte is one write', async (t) => {
  const { request, sim } = await client(t);
  for (const byte of hex('67 0100 0000 0100 0800 4344 00')) {
    request.send([byte]);
    await new Promise(setImmediate);
  }
  await sim.waitFor('write', { tag: 'text', value: 'CD' });
  assert.equal((await sim.requests({ command: 'g' })).length, 1);
});

test('requests that arrive together are answered one after the other', async (t) => {
  const { request } = await client(t);
  request.send('H', hex('0100 0000 0000'), 'H', hex('0100 0000 0300'), 'n');
  assert.equal(await request.read(18), '48000400' + '02003412' + '48000300' + '110009' + '6e0000');
});

test('tags with a count are numbered and have ids in order', async (t) => {
  const project = {
    name: 'P',
    drivers: [{ name: 'D', tags: [{ name: 'T{00}', type: 'uint8', count: 3, start: 9, value: 4 }] }],
  };
  const { request } = await client(t, { project });
  request.send('L', hex('0000'), 'T09\0', hex('0000'), 'T11\0', hex('0000'), 'T12\0');
  assert.equal(await request.read(13), '4c' + '00000000' + '02000000' + 'ffff0000');
});
