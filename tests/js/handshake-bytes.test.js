'use strict';
// What goes over the wire while a session is opened, byte by byte.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const { test } = require('node:test');
const { sharedServer, connect, newCore, sent, serverDir, removeMirror } = require('./support/server.js');
const { hex } = require('./support/wire.js');

const sim = sharedServer();

async function theRequest(command) {
  const requests = await sim.requests({ command });
  assert.equal(requests.length, 1, `'${command}' is sent once`);
  return requests[0];
}

test('a session is opened with 7, 8, 9 and 4, the 8 alone on the notification connection', async () => {
  removeMirror(sim.address);
  connect(sim);
  const requests = await sim.requests();
  assert.deepEqual(
    requests.map(({ command, connection }) => [command, connection]),
    [
      ['7', 'request'],
      ['8', 'notification'],
      ['9', 'request'],
      ['4', 'request'],
    ],
  );
  const [first, second, ...others] = requests.map(({ conn }) => conn);
  assert.notEqual(second, first);
  assert.deepEqual(others, [first, first]);
});

test('the first registration is 23 bytes: 7 and the scrambled 16-byte identifier', async () => {
  connect(sim);
  const { hex: bytes, fields } = await theRequest('7');
  assert.equal(bytes.length / 2, 23);
  assert.equal(bytes.slice(0, 2), hex('7'));
  assert.equal(fields.body.length / 2, 16);
});

test('each three bytes of a registration follow their random byte: sum, difference and exclusive or', async () => {
  connect(sim);
  const { hex: bytes, fields } = await theRequest('7');
  const wire = Buffer.from(bytes, 'hex').subarray(1);
  const body = Buffer.from(fields.body, 'hex');
  for (let i = 0; i < body.length; i++) {
    const [mask, place] = [wire[4 * Math.floor(i / 3)], i % 3];
    const byte = [body[i] + mask, body[i] - mask, body[i] ^ mask][place] & 0xff;
    assert.equal(wire[4 * Math.floor(i / 3) + 1 + place], byte, `byte ${i}`);
  }
});

test('the identifier begins and goes on with the time, seconds and microseconds of 32 bits', async () => {
  const before = Math.floor(Date.now() / 1000);
  connect(sim);
  const after = Math.floor(Date.now() / 1000);
  const id = Buffer.from((await theRequest('7')).fields.body, 'hex');
  const [first, second] = [id.readUInt32LE(0), id.readUInt32LE(8)];
  // The first comes from a clock that the system moves on at its ticks: at the turn of a second it may be behind.
  assert.ok(first >= before - 1 && first <= after, `${first}`);
  assert.ok(second >= before && second <= after, `${second}`);
  assert.ok(id.readUInt32LE(12) < 1000000);
});

test('the second registration carries the identifier of the first, the host name, zero, 1 and 1', async () => {
  connect(sim);
  const first = await theRequest('7');
  const second = await theRequest('8');
  const body = Buffer.from(second.fields.body, 'hex');
  assert.equal(body.toString('hex'), first.fields.body + hex(`${os.hostname()}\0`, [1, 1]));
  assert.equal(second.hex.slice(0, 2), hex('8'));
  const rest = body.length % 3;
  assert.equal(second.hex.length / 2, 1 + 4 * Math.floor(body.length / 3) + (rest > 0 ? rest + 1 : 0));
});

test('the login is 9, user, zero, password, zero', async () => {
  connect(sim);
  assert.deepEqual(await sent(sim, '9'), [hex('9operator\0secret\0')]);
});

test('an empty user and an empty password are their zeros alone', async () => {
  connect(sim, '', '');
  assert.deepEqual(await sent(sim, '9'), [hex('9\0\0')]);
});

test('user and password go out as UTF-8, unconverted', async () => {
  connect(sim, '操作员', '密码');
  assert.deepEqual(await sent(sim, '9'), [hex('9操作员\0密码\0')]);
});

test('a user and a password of 40 bytes are cut to 35', async () => {
  connect(sim, 'u'.repeat(40), 'p'.repeat(40));
  assert.deepEqual(await sent(sim, '9'), [hex(`9${'u'.repeat(35)}\0${'p'.repeat(35)}\0`)]);
});

test('a user and a password of 35 bytes are sent whole', async () => {
  connect(sim, 'u'.repeat(35), 'p'.repeat(35));
  assert.deepEqual(await sent(sim, '9'), [hex(`9${'u'.repeat(35)}\0${'p'.repeat(35)}\0`)]);
});

test('a user is cut at a whole character', async () => {
  connect(sim, '水'.repeat(12), '');
  assert.deepEqual(await sent(sim, '9'), [hex(`9${'水'.repeat(11)}\0\0`)]);
});

test('a first session asks for the driver information with nothing but the offer of flow control', async () => {
  removeMirror(sim.address);
  connect(sim);
  assert.deepEqual(await sent(sim, '4'), [hex('4RecData/drvinfo.dat\r\nHello:Yes\r\n\r\n')]);
});

test('an address of 200 bytes is cut to its first 127', (t) => {
  // What stands behind the port's digits does not count for the connection, but shows in the mirror's directory.
  const address = `${sim.address}${'x'.repeat(200)}`.slice(0, 200);
  t.after(() => removeMirror(address.slice(0, 127)));
  assert.equal(newCore().Connect(address, 'operator', 'secret'), 0);
  assert.ok(fs.existsSync(serverDir(address.slice(0, 127))));
  assert.ok(!fs.existsSync(serverDir(address.slice(0, 128))));
});

test('several sessions of one process stand side by side', async () => {
  const cores = [connect(sim), connect(sim), connect(sim)];
  for (const core of cores) assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
  assert.equal((await sim.connections()).length, 6);
});
