'use strict';
// The mirror's files: what is asked for, what the answers do to the local copy. Shown with RecData/drvinfo.dat, which
// every session brings up to date.

const assert = require('node:assert/strict');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { test, beforeEach } = require('node:test');
const { SMALL, sharedServer, newCore, removeMirror, serverDir, sent, connect } = require('./support/server.js');
const { callLog } = require('./support/events.js');
const { driverFile, fileReply } = require('./support/replies.js');
const { hex } = require('./support/wire.js');

const sim = sharedServer();

const TIME = SMALL.time;
const OFFER = 'Hello:Yes\r\n\r\n';
const WANTED = driverFile(['D0', 0, 6], ['D1', 1, 2]); // as the server has it
const OLD = driverFile(['Old', 0, 1]);

const local = (name = 'drvinfo.dat') => `${serverDir(sim.address)}/Small/RecData/${name}`;
const read = (name) => fs.readFileSync(local(name));
const timeOf = (name) => fs.statSync(local(name)).mtimeMs / 1000;
const upperHex = (value) => value.toString(16).toUpperCase();

/** Puts a file of this time (seconds since 1970) into the mirror. */
function place(bytes, time, name = 'drvinfo.dat') {
  fs.mkdirSync(local(''), { recursive: true });
  fs.writeFileSync(local(name), bytes);
  // By the system's own command: a Node.js of 32 bits sets no time after 2038.
  execFileSync('touch', ['--date', `@${time}`, local(name)]);
}

/** Connects with the server's answer to the file request replaced. */
async function openWith(reply) {
  await sim.setFault({ step: 'file', action: 'reply', hex: reply, count: 1 });
  return connect(sim);
}

const asksFor = (lines) => [hex(`4RecData/drvinfo.dat\r\n${lines}${OFFER}`)];

beforeEach(() => removeMirror(sim.address));

test('a file that the mirror does not hold is asked for, and stored with its contents and its time', async () => {
  const core = connect(sim);
  assert.deepEqual(await sent(sim, '4'), asksFor(''));
  assert.deepEqual(read(), WANTED);
  assert.equal(timeOf(), TIME);
  assert.ok(core.GetDriver('D1'));
});

test('a second session finds its file current and asks for nothing', async () => {
  connect(sim);
  await sim.clearRequests();
  const core = connect(sim);
  assert.deepEqual(await sent(sim, '4'), []);
  assert.ok(core.GetDriver('D1'));
});

for (const [difference, current] of [
  [-4, false],
  [-3, true],
  [0, true],
  [3, true],
  [4, false],
]) {
  test(`a copy of the same size whose time is off by ${difference} s is ${current ? '' : 'not '}current`, async () => {
    place(WANTED, TIME + difference);
    connect(sim);
    assert.equal((await sent(sim, '4')).length, current ? 0 : 1);
  });
}

test('a copy of the right time and another size is not current', async () => {
  place(Buffer.concat([WANTED, Buffer.alloc(1)]), TIME);
  connect(sim);
  assert.equal((await sent(sim, '4')).length, 1);
  assert.deepEqual(read(), WANTED);
});

test('the time and the size that count are those of the acknowledgement', async (t) => {
  t.after(() => sim.configure({ ack: {} }));
  place(OLD, 0x01020304);
  const size = [0, 0, 0, OLD.length];
  await sim.configure({ ack: Object.fromEntries([1, 2, 3, 4, ...size].map((byte, i) => [50 + i, byte])) });
  const core = connect(sim);
  assert.deepEqual(await sent(sim, '4'), []);
  assert.ok(core.GetDriver('Old'));
});

test('a request tells time and size of the local copy in upper-case hexadecimal', async () => {
  place(OLD, 0x0abcdef0);
  connect(sim);
  assert.deepEqual(await sent(sim, '4'), asksFor(`LastTime:ABCDEF0\r\nSize:${upperHex(OLD.length)}\r\n`));
});

test('a request tells of a ".gz" companion, too', async () => {
  place(OLD, 0x11);
  place(Buffer.alloc(300), 0xfedcba98, 'drvinfo.dat.gz');
  connect(sim);
  const lines = `LastTime:11\r\nSize:${upperHex(OLD.length)}\r\ngzTime:FEDCBA98\r\ngzSize:12C\r\n`;
  assert.deepEqual(await sent(sim, '4'), asksFor(lines));
});

test('a request tells of a ".gz" companion that stands alone', async () => {
  place(Buffer.alloc(1), 1, 'drvinfo.dat.gz');
  connect(sim);
  assert.deepEqual(await sent(sim, '4'), asksFor('gzTime:1\r\ngzSize:1\r\n'));
});

test('an answer "Exist: No" removes the local copy, leaves its companion, and lets the session stand', async () => {
  place(OLD, 1);
  place(Buffer.from('gz'), 1, 'drvinfo.dat.gz');
  const core = await openWith(hex('Exist: No\r\n\r\n'));
  assert.ok(!fs.existsSync(local()));
  assert.equal(read('drvinfo.dat.gz').toString(), 'gz');
  assert.equal(core.GetDriver('Old'), undefined);
});

test('an answer "UseLast:Yes" keeps the local copy and its time', async () => {
  place(OLD, 1234567890);
  const core = await openWith(fileReply(['UseLast:Yes', 'FileTime:1', 'Size:5'], 'other'));
  assert.deepEqual(read(), OLD);
  assert.equal(timeOf(), 1234567890);
  assert.ok(core.GetDriver('Old'));
});

test('a server that finds the copy the same by itself answers UseLast', async (t) => {
  t.after(() => sim.configure({ ack: {} }));
  connect(sim);
  await sim.configure({ ack: { 57: 99 } }); // announces another size
  await sim.clearRequests();
  const core = connect(sim);
  assert.equal((await sent(sim, '4')).length, 1);
  assert.ok(core.GetDriver('D0'));
});

for (const yes of ['yes', 'YES', 'Yes', 'yesterday', ' Y e s']) {
  test(`a flag of the value "${yes}" is set`, async () => {
    place(OLD, 5);
    await openWith(fileReply([`UseLast:${yes}`, 'Size:0']));
    assert.deepEqual(read(), OLD);
  });
}

for (const no of ['No', 'Ye', '1', 'true', '']) {
  test(`a flag of the value "${no}" is not set`, async () => {
    place(OLD, 5);
    await openWith(fileReply([`UseLast:${no}`, `Size:${upperHex(WANTED.length)}`], WANTED));
    assert.deepEqual(read(), WANTED);
  });
}

test('header names count in any case, unknown ones not at all, and blanks and tabs nowhere', async () => {
  await openWith(fileReply(['s I\tz e : 1 A', 'Unknown:Yes', 'FILETIME:7 B', 'fileName:my file'], 'x'.repeat(26)));
  assert.equal(read().toString(), 'x'.repeat(26));
  assert.equal(timeOf(), 0x7b);
});

test('a header without carriage returns is a header', async () => {
  await openWith(hex('Size:4\nFileTime:9\n\nbody'));
  assert.equal(read().toString(), 'body');
  assert.equal(timeOf(), 9);
});

test('a repeated header overwrites', async () => {
  await openWith(fileReply(['Exist:No', 'Size:FF', 'Exist:Yes', 'Size:3'], 'abc'));
  assert.equal(read().toString(), 'abc');
});

test('a body without Append replaces the local copy', async () => {
  place('a much longer text than before', 5);
  await openWith(fileReply(['Size:5', 'FileTime:10'], 'fresh'));
  assert.equal(read().toString(), 'fresh');
  assert.equal(timeOf(), 16);
});

test('a body with Append goes behind the local copy', async () => {
  place('before, ', 5);
  await openWith(fileReply(['Append:Yes', 'Size:6', 'FileTime:20'], 'behind'));
  assert.equal(read().toString(), 'before, behind');
  assert.equal(timeOf(), 32);
});

test('a body with Append begins a file that is not there', async () => {
  await openWith(fileReply(['Append:Yes', 'Size:3'], 'new'));
  assert.equal(read().toString(), 'new');
});

test('a body with GZ goes into the companion as it is; the local copy stays', async () => {
  place(OLD, 5);
  const core = await openWith(fileReply(['GZ:Yes', 'Size:4', 'FileTime:30'], 'zip!'));
  assert.equal(read('drvinfo.dat.gz').toString(), 'zip!');
  assert.equal(timeOf('drvinfo.dat.gz'), 48);
  assert.deepEqual(read(), OLD);
  assert.equal(timeOf(), 5);
  assert.ok(core.GetDriver('Old'));
});

test('an empty body makes an empty file of the given time', async () => {
  place(OLD, 5);
  await openWith(fileReply(['Size:0', 'FileTime:40']));
  assert.equal(read().length, 0);
  assert.equal(timeOf(), 64);
});

test('a first receive that holds more body than announced completes the file with all of it', async () => {
  await openWith(fileReply(['Size:3'], 'abcdef'));
  assert.equal(read().toString(), 'abcdef');
});

test('a local copy that cannot be opened is no failure', async () => {
  fs.mkdirSync(local(), { recursive: true });
  const core = await openWith(fileReply(['Size:4'], 'body'));
  assert.ok(fs.statSync(local()).isDirectory());
  assert.equal(core.GetDriver('D0'), undefined);
});

test('a connection that ends inside a body fails; what came is kept, with the time of the file', async () => {
  await sim.setFault({ step: 'file-body', action: 'cut', bytes: 3 });
  assert.equal(newCore().Connect(sim.address, 'operator', 'secret'), -2);
  assert.deepEqual(read(), WANTED.subarray(0, 3));
  assert.equal(timeOf(), TIME);
});

test('drivers of a file whose last record is cut short are known but for the last', async () => {
  const cut = WANTED.subarray(0, -1);
  const core = await openWith(fileReply([`Size:${upperHex(cut.length)}`], cut));
  assert.ok(core.GetDriver('D0'));
  assert.equal(core.GetDriver('D1'), undefined);
});

test('driver ids may have gaps: a driver of a high id reads, writes and is notified', async () => {
  const body = driverFile(['D1', 0, 2], ['D0', 60000, 6]);
  const core = await openWith(fileReply([`Size:${upperHex(body.length)}`], body));
  const driver = core.GetDriver('D0');
  await sim.setFault({ step: 'tagids', action: 'reply', hex: hex('L', [1, 0, 0, 0]) });
  await sim.setFault({ step: 'connect', action: 'reply', hex: hex('b', [6, 0, 3, 0, 7, 0, 0, 0]) });
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('X');
  await sim.notifyRaw(hex([0x60, 0xea, 1, 0, 8, 0, 0, 0]));
  assert.deepEqual(await log.until(1), [['D0', 'X', 8]]);
  assert.deepEqual(await sent(sim, 'b'), [hex('b', [1, 0, 0x60, 0xea, 1, 0, 0])]);
});
