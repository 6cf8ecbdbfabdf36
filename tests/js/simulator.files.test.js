'use strict';
// The simulator's file transfer: headers, bodies and flow control, byte by byte.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const zlib = require('node:zlib');
const { login, hex } = require('./support/TinyClient');
const { simulate, smallPlant, tempDir } = require('./support/simulated');

const TIME = 0x65e6c2f9;
const FILES = [
  { name: 'SysCfg/a.txt', text: 'plant 水\r\n' },
  { name: 'SysCfg/utf.txt', text: '水', encoding: 'utf-8', time: '2024-03-05T07:08:09Z' },
  { name: 'Media/raw.bin', base64: 'AAEC/w==', time: 5 },
  { name: 'Media/grow.log', text: '0123456789', append: true },
  { name: 'Media/big.bin', size: 300000 },
  { name: 'Media/packed.txt', text: 'packed', gz: true },
  { name: 'Media/quiet.bin', size: 200000, hello: false },
  { name: 'Media/odd.txt', text: 'xyz', header: 'size:3\r\nExist: YES\r\n\r\n' },
];

async function files(t, options = {}) {
  const sim = await simulate(t, { project: smallPlant({ files: FILES }), ...options });
  const client = await login(sim);
  t.after(() => client.close());
  return { sim, request: client.request };
}

const request = (name, ...lines) => `4${name}\r\n${lines.map((line) => `${line}\r\n`).join('')}\r\n`;
const text = (hexText) => hex(hexText).toString('latin1');

async function expectReply(peer, expected) {
  assert.equal(text(await peer.read(expected.length)), expected);
}

test('a file comes with name, time and size, and its text in GB2312', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('SysCfg/a.txt', 'Hello:Yes'));
  await expectReply(
    peer,
    'Exist:Yes\r\nFileName:a.txt\r\nFileTime:65E6C2F9\r\nSize:A\r\nHello:Yes\r\n\r\nplant \xcb\xae\r\n',
  );
});

test('without an offer of Hello none is announced', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('syscfg\\UTF.txt'));
  await expectReply(peer, 'Exist:Yes\r\nFileName:utf.txt\r\nFileTime:65E6C4D9\r\nSize:3\r\n\r\n\xe6\xb0\xb4');
});

test('a file that the project lacks does not exist', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('Media/none', 'Hello:Yes'));
  await expectReply(peer, 'Exist:No\r\n\r\n');
});

test('the driver file lists name, id and number of tags', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('RecData/drvinfo.dat'));
  const head = 'Exist:Yes\r\nFileName:drvinfo.dat\r\nFileTime:65E6C2F9\r\nSize:F\r\n\r\n';
  await expectReply(peer, head);
  assert.equal(await peer.read(15), '4100' + '0000' + '0500' + 'b9f8c2af00' + '0700' + '0100');
});

const hexOf = (number) => number.toString(16).toUpperCase();

test('a copy with the same size and a time within 3 seconds is kept', async (t) => {
  const { request: peer } = await files(t);
  for (const off of [0, -3, 3]) {
    peer.send(request('SysCfg/a.txt', `LastTime:${hexOf(TIME + off)}`, 'Size:A', 'Hello:Yes'));
    await expectReply(peer, 'UseLast:Yes\r\n\r\n');
  }
});

test('a copy that is 4 seconds off, or of another size, is sent again', async (t) => {
  const { request: peer } = await files(t);
  const whole = 'Exist:Yes\r\nFileName:a.txt\r\nFileTime:65E6C2F9\r\nSize:A\r\n\r\nplant \xcb\xae\r\n';
  peer.send(request('SysCfg/a.txt', `LastTime:${hexOf(TIME + 4)}`, 'Size:A'));
  await expectReply(peer, whole);
  peer.send(request('SysCfg/a.txt', `LastTime:${hexOf(TIME)}`, 'Size:9'));
  await expectReply(peer, whole);
});

test('of a growing file only the rest is sent', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('Media/grow.log', 'LastTime:5', 'Size:4'));
  await expectReply(peer, 'Exist:Yes\r\nFileName:grow.log\r\nFileTime:65E6C2F9\r\nSize:6\r\nAppend:Yes\r\n\r\n456789');
  peer.send(request('Media/grow.log', 'LastTime:5', 'Size:B')); // more than there is: all of it
  await expectReply(peer, 'Exist:Yes\r\nFileName:grow.log\r\nFileTime:65E6C2F9\r\nSize:A\r\n\r\n0123456789');
});

test('a packed file is announced as GZ and kept by its gzTime', async (t) => {
  const { request: peer } = await files(t);
  const packed = zlib.gzipSync('packed');
  const size = hexOf(packed.length);
  peer.send(request('Media/packed.txt', `LastTime:${hexOf(TIME)}`, 'Size:6'));
  await expectReply(peer, `Exist:Yes\r\nFileName:packed.txt\r\nFileTime:65E6C2F9\r\nSize:${size}\r\nGZ:Yes\r\n\r\n`);
  assert.equal(zlib.gunzipSync(hex(await peer.read(packed.length))).toString(), 'packed');
  peer.send(request('Media/packed.txt', `gzTime:${hexOf(TIME)}`, `gzSize:${size}`));
  await expectReply(peer, 'UseLast:Yes\r\n\r\n');
});

test('a file may come with a header of its own', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('Media/odd.txt', 'Hello:Yes'));
  await expectReply(peer, 'size:3\r\nExist: YES\r\n\r\nxyz');
});

test('a file is read from a path beside the project file, with its time', async (t) => {
  const folder = tempDir(t);
  fs.writeFileSync(path.join(folder, 'x.bin'), Buffer.from([1, 2, 3]));
  fs.utimesSync(path.join(folder, 'x.bin'), 1000, 1000);
  const project = path.join(folder, 'p.json');
  fs.writeFileSync(project, JSON.stringify(smallPlant({ files: [{ name: 'Media/x', path: 'x.bin' }] })));
  const { request: peer } = await files(t, { project });
  peer.send(request('Media/x'));
  await expectReply(peer, 'Exist:Yes\r\nFileName:x\r\nFileTime:3E8\r\nSize:3\r\n\r\n\x01\x02\x03');
});

const ack = (count) => `4Hello${hexOf(count)}\0`;
const BIG_HEAD = 'Exist:Yes\r\nFileName:big.bin\r\nFileTime:65E6C2F9\r\nSize:493E0\r\nHello:Yes\r\n\r\n';

test('with Hello the server stops after each window until it is acknowledged', async (t) => {
  const { sim, request: peer } = await files(t);
  peer.send(request('Media/big.bin', 'Hello:Yes'));
  const received = [await peer.read(131072)];
  const after = async (count, next) => {
    const { seq } = await sim.waitFor('request', { command: '4' }, { count: received.length });
    assert.equal(peer.bytes.length, 0, 'nothing comes before the acknowledgement');
    peer.send(ack(count));
    received.push(await peer.read(next));
    return seq;
  };
  await after(131072, 120832);
  await after(120832, BIG_HEAD.length + 300000 - 131072 - 120832);
  const all = hex(received.join(''));
  assert.equal(all.toString('latin1', 0, BIG_HEAD.length), BIG_HEAD);
  assert.ok(all.subarray(BIG_HEAD.length).every((byte, i) => byte === i % 251));
  const acks = (await sim.requests({ command: '4' })).map(({ hex: bytes }) => text(bytes)).slice(1);
  assert.deepEqual(acks, ['4Hello20000\0', '4Hello1D800\0']);
});

/** Takes `total` bytes as a client does whose first window is `window`; gives the number of acknowledgements. */
async function takeWithWindow(peer, total, window) {
  let since = 0;
  let acks = 0;
  for (let left = total; left > 0;) {
    const count = Math.min(window - since, 2048, left);
    await peer.read(count);
    left -= count;
    since += count;
    if (since < window || left === 0) continue;
    peer.send(ack(since));
    acks++;
    since = 0;
    window = Math.max(8192, window - 10240);
  }
  return acks;
}

for (const window of [131072, 38912, 8192]) {
  test(`a client whose first window is ${window} gets the whole file, and the connection goes on`, async (t) => {
    const { request: peer } = await files(t);
    peer.send(request('Media/big.bin', 'Hello:Yes'));
    const acks = await takeWithWindow(peer, BIG_HEAD.length + 300000, window);
    assert.equal(acks, { 131072: 2, 38912: 29, 8192: 36 }[window]);
    peer.send(request('SysCfg/a.txt', `LastTime:${hexOf(TIME)}`, 'Size:A'));
    await expectReply(peer, 'UseLast:Yes\r\n\r\n');
  });
}

test('a missing acknowledgement ends the connection after its time', async (t) => {
  const { request: peer, sim } = await files(t, { ackTimeout: 100 });
  peer.send(request('Media/big.bin', 'Hello:Yes'));
  assert.equal((await peer.readToEnd()).length / 2, 131072);
  assert.equal((await sim.waitFor('error')).message, 'no acknowledgement of a file part');
});

test('without Hello all of a file comes at once', async (t) => {
  const { request: peer } = await files(t);
  peer.send(request('Media/quiet.bin', 'Hello:Yes'));
  const head = 'Exist:Yes\r\nFileName:quiet.bin\r\nFileTime:65E6C2F9\r\nSize:30D40\r\n\r\n';
  await expectReply(peer, head);
  assert.equal((await peer.read(200000)).length / 2, 200000);
  const plain = await files(t, { hello: false });
  plain.request.send(request('Media/big.bin', 'Hello:Yes'));
  assert.equal((await plain.request.read(300000)).length / 2, 300000);
});

test('the request is recorded with its path and lines', async (t) => {
  const { sim, request: peer } = await files(t);
  peer.send(request('SysCfg/a.txt', 'LastTime:1', 'Size:2', 'Hello:Yes'));
  await peer.read(20);
  const [entry] = await sim.requests({ command: '4' });
  assert.equal(text(entry.hex), '4SysCfg/a.txt\r\nLastTime:1\r\nSize:2\r\nHello:Yes\r\n\r\n');
  assert.deepEqual(entry.fields, { path: 'SysCfg/a.txt', headers: { lasttime: '1', size: '2', hello: 'Yes' } });
});
