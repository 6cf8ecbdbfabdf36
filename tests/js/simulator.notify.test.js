'use strict';
// Notifications of the simulator: who hears of a change, in which bytes, and that no record lies across two receives.

const test = require('node:test');
const assert = require('node:assert');
const { untilConnections } = require('./support/connections.js');
const { login, hex } = require('./support/TinyClient');
const { simulate } = require('./support/simulated');

const CONNECT_WORD = hex('62 0100 0000 0000 00');
const CONNECT_TEXT = hex('62 0100 0000 0100 00');
const WRITE_WORD = hex('67 0100 0000 0000 0200 0500');
const WORD_IS_5 = '00000000' + '0500';

async function clients(t, options, count = 1) {
  const sim = await simulate(t, options);
  const list = [];
  for (let i = 0; i < count; i++) list.push(await login(sim));
  t.after(() => list.forEach((one) => one.close()));
  return { sim, list, one: list[0] };
}

async function connect(client, request, replyBytes) {
  client.request.send(request);
  await client.request.read(replyBytes);
}

test('a write comes back to every client that connected the tag and to no other', async (t) => {
  const {
    sim,
    list: [writer, follower, other],
  } = await clients(t, {}, 3);
  await connect(writer, CONNECT_WORD, 7);
  await connect(follower, CONNECT_WORD, 7);
  await connect(other, CONNECT_TEXT, 8);
  writer.request.send(WRITE_WORD);
  assert.equal(await writer.notify.read(6), WORD_IS_5);
  assert.equal(await follower.notify.read(6), WORD_IS_5);
  await sim.set('A', 'text', 'z');
  assert.equal(await other.notify.read(6), '00000100' + '7a00');
});

test('a write of the value that stands comes back too', async (t) => {
  const { one } = await clients(t);
  await connect(one, CONNECT_WORD, 7);
  one.request.send(WRITE_WORD, WRITE_WORD);
  assert.equal(await one.notify.read(12), WORD_IS_5 + WORD_IS_5);
});

test('a refused write is not notified', async (t) => {
  const { sim, one } = await clients(t);
  await connect(one, hex('62 0200 0000 0300 00 0000 0000 00'), 10);
  one.request.send(hex('67 0100 0000 0300 1100 01'), WRITE_WORD);
  assert.equal(await one.notify.read(6), WORD_IS_5);
  assert.equal(await sim.get('A', 'fixed'), 9);
});

test('unadvise stops one tag; the id has the driver in its high half', async (t) => {
  const { sim, one } = await clients(t);
  await connect(one, hex('62 0200 0700 0000 00 0000 0000 00'), 13);
  one.request.send(hex('64 0000 0700'));
  assert.equal(await one.request.read(1), '64');
  await sim.set('锅炉', '温度', 2);
  await sim.set('A', 'word', 5);
  assert.equal(await one.notify.read(6), WORD_IS_5);
  assert.equal((await sim.requests({ command: 'd' }))[0].hex, '6400000700');
});

test('changes made right behind a connect wait until its reply has been read', async (t) => {
  const {
    sim,
    list: [one, other],
  } = await clients(t, {}, 2);
  await connect(other, CONNECT_WORD, 7);
  one.request.stall();
  one.request.send(CONNECT_WORD);
  await sim.waitFor('request', { command: 'b' }, { count: 2 });
  await sim.set('A', 'word', 5);
  assert.equal(await other.notify.read(6), WORD_IS_5);
  await sim.connections(); // one more exchange with the server: what is not held back would be here
  assert.equal(one.notify.bytes.length, 0);
  one.request.resume();
  assert.equal(await one.notify.read(6), WORD_IS_5);
});

test('the next request shows that the reply of a connect was taken', async (t) => {
  const { sim, one } = await clients(t);
  one.request.stall(); // the reply itself is never seen to be read
  one.request.send(CONNECT_WORD, hex('64 0000 0100'));
  await sim.waitFor('request', { command: 'd' });
  const started = Date.now();
  await sim.set('A', 'word', 5);
  assert.equal(await one.notify.read(6), WORD_IS_5);
  assert.ok(Date.now() - started < 1500, 'it did not wait for the reply to be read');
});

test('values without bytes are never notified', async (t) => {
  const tags = [
    { name: 'nil', type: 'null' },
    { name: 'list', type: 'array', value: [] },
    { name: 'n', type: 'uint8' },
  ];
  const { sim, one } = await clients(t, { project: { name: 'P', drivers: [{ name: 'D', tags }] } });
  await connect(one, hex('62 0300 0000 0000 00 0000 0100 00 0000 0200 00'), 3 + 2 + 4 + 3);
  await sim.set('D', 'nil', 1);
  await sim.set('D', 'list', []);
  await sim.set('D', 'n', 3);
  assert.equal(await one.notify.read(5), '00000200' + '03');
});

test('a moving tag changes at the given rate and only its followers hear of it', async (t) => {
  const tags = [{ name: 'n', type: 'uint32', range: [0, 1000000], wave: { kind: 'counter', period: 0.001 } }];
  const project = { name: 'P', drivers: [{ name: 'D', tags }] };
  const {
    sim,
    list: [follower, other],
  } = await clients(t, { project, rate: 50 }, 2);
  await connect(follower, CONNECT_WORD, 9);
  const numbers = [];
  for (let i = 0; i < 10; i++) numbers.push(hex(await follower.notify.read(8)).readUInt32LE(4));
  assert.deepEqual(
    [...numbers].sort((a, b) => a - b),
    numbers,
  );
  assert.equal(new Set(numbers).size, 10);
  assert.equal(other.notify.bytes.length, 0);
  await sim.set('D', 'n', 77); // stops the waveform
  assert.equal(await sim.get('D', 'n'), 77);
});

test('with a block size every write is one whole block, filled with records that clients skip', async (t) => {
  const { sim, one } = await clients(t, { notifyBlock: 256 });
  await connect(one, CONNECT_WORD, 7);
  await sim.set('A', 'word', 5);
  const block = hex(await one.notify.read(256));
  assert.equal(block.toString('hex', 0, 6), WORD_IS_5);
  assert.equal(walk(block.subarray(6)).skipped, 250);
  await sim.set('A', 'word', 5);
  assert.equal(walk(hex(await one.notify.read(256))).records.length, 1);
  assert.deepEqual(
    one.notify.chunks.map((chunk) => chunk.length % 256),
    one.notify.chunks.map(() => 0),
  );
});

// Lengths of the records that carry nothing, by their command.
const SKIPPED = { 2: 7, 4: 43, 5: 7, 6: 20, 7: 7, 8: 5, 255: 3 };

/** Walks a chunk as a client does: { records of 12 bytes (doubles), skipped bytes }; throws at a broken record. */
function walk(chunk, width = 6) {
  const result = { records: [], skipped: 0 };
  for (let at = 0; at < chunk.length;) {
    const core = chunk.readUInt16LE(at) === 0xffff;
    const length = core ? SKIPPED[chunk[at + 2]] : width;
    assert.ok(length > 0 && at + length <= chunk.length, `a broken record at ${at} of ${chunk.length}`);
    if (core) result.skipped += length;
    else result.records.push(chunk.subarray(at, at + length));
    at += length;
  }
  return result;
}

for (const notifyBlock of [256, 512, 1024, 2048]) {
  test(`in a burst no record crosses the border of a block of ${notifyBlock} bytes`, async (t) => {
    const tags = [{ name: 'T{0000}', type: 'double', count: 2000 }];
    const { sim, one } = await clients(t, { notifyBlock, project: { name: 'P', drivers: [{ name: 'D', tags }] } });
    const entries = Array.from({ length: 500 }, (_, i) => hex(`0000 ${hexWord(i)} 00`));
    await connect(one, Buffer.concat([hex('62 f401'), ...entries]), 500 * 10 + 5 * 3);
    await Promise.all(Array.from({ length: 500 }, (_, i) => sim.set('D', i, i)));
    const seen = [];
    while (seen.length < 500) {
      const { records } = walk(hex(await one.notify.read(notifyBlock)), 12);
      seen.push(...records.map((record) => [record.readUInt16LE(2), record.readDoubleLE(4)]));
    }
    assert.deepEqual(
      seen,
      Array.from({ length: 500 }, (_, i) => [i, i]),
    );
  });
}

const hexWord = (n) => Buffer.from([n & 255, n >> 8]).toString('hex');

test('bare records wait until the client has read the ones before, and so do raw bytes', async (t) => {
  const { sim, one } = await clients(t);
  await connect(one, CONNECT_WORD, 7);
  await connect(one, 'd\0\0\x01\0', 1); // the next request: from now on records are not held back
  one.notify.stall();
  await sim.set('A', 'word', 5);
  await sim.connections(); // an exchange with the server: the record has been written
  await sim.set('A', 'word', 6);
  await sim.notifyRaw('ffffff');
  await sim.connections();
  one.notify.resume();
  assert.equal(await one.notify.read(15), WORD_IS_5 + '00000000' + '0600' + 'ffffff');
  assert.deepEqual(
    one.notify.chunks.map((chunk) => chunk.length),
    [6, 6, 3],
  );
});

test('raw bytes go out as they are, to all clients or to one', async (t) => {
  const {
    sim,
    list: [first, second],
  } = await clients(t, {}, 2);
  await sim.notifyRaw('ff ff 00 41');
  assert.equal(await first.notify.read(4), 'ffff0041');
  assert.equal(await second.notify.read(4), 'ffff0041');
  const [{ session }] = (await sim.connections()).filter((one) => one.kind === 'notification');
  await sim.notifyRaw(Buffer.from([1, 2, 3]), session);
  assert.equal(await first.notify.read(3), '010203');
  assert.equal(second.notify.bytes.length, 0);
});

test('a client without its notification connection is not told, and its end forgets its tags', async (t) => {
  const { sim, one } = await clients(t);
  await connect(one, CONNECT_WORD, 7);
  one.notify.close();
  await sim.waitFor('close', { kind: 'notification' });
  await sim.set('A', 'word', 5);
  assert.deepEqual(
    (await sim.connections()).map(({ kind, advised }) => [kind, advised]),
    [['request', 0]],
  );
  one.request.close();
  await sim.waitFor('close', { kind: 'request' });
  await untilConnections(sim, 0);
});
