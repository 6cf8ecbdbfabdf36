'use strict';
// Sessions through a relay, which knows servers by device name.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { test } = require('node:test');
const { MIRRORS, sharedServer, startServer, newCore, removeMirror, serverDir } = require('./support/server.js');
const { loopback } = require('./support/loopback.js');
const { runProgram } = require('./support/child.js');
const { callLog } = require('./support/events.js');
const { hex } = require('./support/wire.js');

const RELAY = loopback(1);
const DEVICES = { dev1: true, home: 'lan', 'a:b:c': true, 泵站: true };
const sim = sharedServer({ relay: { host: RELAY, port: 3968, devices: DEVICES } });

/** An instance connected through an address; its mirror is cleaned up. */
function open(t, address, expected = 0) {
  t.after(() => removeMirror(address));
  const core = newCore();
  assert.equal(core.Connect(address, 'operator', 'secret'), expected);
  return core;
}

const relayRequests = (command) => sim.requests({ connection: 'relay', command });

test('a server is reached through the relay by its device name, on both connections', async (t) => {
  const core = open(t, `p2p(${RELAY}):dev1`);
  const driver = core.GetDriver('D0');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  assert.equal(driver.GetTagValue('B'), 7);
  assert.equal(driver.SetTagValue('A', 3), 0);
  assert.deepEqual(await log.until(1), [['D0', 'A', 3]]);
});

test('the relay is sent the identifier, six zero bytes, the device name and zero', async (t) => {
  open(t, `p2p(${RELAY}):dev1`);
  const [{ fields }] = await relayRequests('7');
  assert.equal(fields.body, fields.id + hex(Buffer.alloc(6), 'dev1\0'));
  const [second] = await relayRequests('8');
  assert.equal(second.fields.id, fields.id);
});

test('the letters of p2p count in any case', async (t) => {
  for (const prefix of ['P2P', 'P2p', 'p2P']) open(t, `${prefix}(${RELAY}):dev1`);
  assert.equal((await relayRequests('7')).length, 3);
});

test('all parentheses behind the relay address are dropped', async (t) => {
  open(t, `p2p(${RELAY})):dev1`);
  open(t, `p2p(${RELAY})))):dev1`);
  open(t, `p2p(${RELAY}:dev1`);
  assert.equal((await relayRequests('7')).length, 3);
});

test('whatever stands between p2p and the parenthesis does not count', async (t) => {
  open(t, `p2p relay(${RELAY}):dev1`);
  assert.equal((await relayRequests('8')).length, 1);
});

test('the device name is all that stands behind the first colon', async (t) => {
  open(t, `p2p(${RELAY}):dev1:3968`, -2);
  assert.deepEqual(
    (await relayRequests('7')).map(({ fields }) => fields.target),
    ['dev1:3968'],
  );
});

test('a device name goes to the relay as the UTF-8 that it is', async (t) => {
  open(t, `p2p(${RELAY}):泵站`);
  assert.deepEqual(
    (await relayRequests('7')).map(({ fields }) => fields.target),
    ['泵站'],
  );
});

test('the mirror of a device of a Chinese name stands under that name, and there alone', (t) => {
  const address = `p2p(${RELAY}):泵站`;
  const core = open(t, address);
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
  assert.ok(fs.existsSync(`${serverDir(address)}/Small/RecData/drvinfo.dat`));
  const mirrors = fs.readdirSync(MIRRORS).filter((name) => name.includes(`${RELAY})`));
  assert.deepEqual(mirrors, [`p2p(${RELAY})_泵站`]);
});

test('a device that the relay does not know is refused: -2, and no second connection is tried', async (t) => {
  open(t, `p2p(${RELAY}):nobody`, -2);
  assert.equal((await relayRequests('7')).length, 1);
  assert.deepEqual(await relayRequests('8'), []);
});

test('a device name is compared exactly', (t) => {
  open(t, `p2p(${RELAY}):Dev1`, -2);
});

test('an empty device name is sent and refused', async (t) => {
  open(t, `p2p(${RELAY}):`, -2);
  assert.deepEqual(
    (await relayRequests('7')).map(({ fields }) => fields.target),
    [''],
  );
});

test('a relay address without colon gives -2 and connects nowhere', async (t) => {
  for (const address of ['p2p', 'P2P', `p2p(${RELAY})`, `p2p ${RELAY}`, 'p2p-server']) open(t, address, -2);
  assert.deepEqual(await relayRequests('7'), []);
});

test('a relay that nobody runs gives -2', (t) => {
  open(t, `p2p(${loopback(2)}):dev1`, -2);
});

test('a relay without an address in the text is looked for at 127.0.0.1', async (t) => {
  const relay = await startServer(t, { relay: { host: '127.0.0.1', port: 3968, devices: { dev1: true } } }).catch(
    (error) => error,
  );
  if (relay instanceof Error) return t.skip(`127.0.0.1:3968: ${relay.message}`);
  open(t, 'p2p:dev1');
  return assert.equal((await relay.requests({ connection: 'relay', command: '7' })).length, 1);
});

test('a relay that answers "lan" sends the client to the server itself, and says so on standard output', async (t) => {
  const address = `p2p(${RELAY}):home`;
  t.after(() => removeMirror(address));
  const { code, stdout } = await runProgram(
    `
    const core = new DBCore();
    const result = core.Connect(args[0], 'operator', 'secret');
    process.stdout.write('result ' + result + ', B ' + core.GetDriver('D0').GetTagValue('B') + '\\n');
  `,
    [address],
  );
  assert.equal(stdout, 'Is same lan ...\nresult 0, B 7\n');
  assert.equal(code, 0);
  assert.deepEqual(await relayRequests('8'), []);
  const direct = await sim.requests({ connection: 'request', command: '7' });
  assert.deepEqual(
    direct.map(({ hex: bytes }) => bytes.length / 2),
    [23],
  ); // the server's port is not 3968
});

test('the mirror of a device stands under the whole relay address', (t) => {
  const address = `p2p(${RELAY}):dev1`;
  open(t, address);
  assert.equal(serverDir(address), `/tmp/vqbrowser/p2p(${RELAY})_dev1`);
  assert.ok(fs.existsSync(`${serverDir(address)}/Small/RecData/drvinfo.dat`));
});

test('every colon of the address is an underline in the directory', (t) => {
  const address = `p2p(${RELAY}):a:b:c`;
  open(t, address);
  assert.ok(fs.existsSync(`${MIRRORS}/p2p(${RELAY})_a_b_c/Small`));
});

test('the same instance goes from a relay to a direct address and back', (t) => {
  const core = open(t, `p2p(${RELAY}):dev1`);
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
  assert.equal(core.Connect(`p2p(${RELAY}):dev1`, 'operator', 'secret'), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
});

for (const [step, action] of [
  ['relay1', 'refuse'],
  ['relay1', 'close'],
  ['relay2', 'refuse'],
  ['relay2', 'close'],
]) {
  test(`a relay that answers ${action} at step ${step} gives -2`, async (t) => {
    await sim.setFault({ step, action });
    open(t, `p2p(${RELAY}):dev1`, -2);
  });
}

test('a relay that takes its time is waited for', async (t) => {
  await sim.setFault({ step: 'relay1', action: 'delay', ms: 100 });
  await sim.setFault({ step: 'relay2', action: 'delay', ms: 100 });
  const started = Date.now();
  open(t, `p2p(${RELAY}):dev1`);
  assert.ok(Date.now() - started >= 190); // timers may be early by a little
});
