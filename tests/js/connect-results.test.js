'use strict';
// What Connect answers, and what it leaves behind.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const {
  SMALL,
  sharedServer,
  startServer,
  connect,
  newCore,
  removeMirror,
  untilConnections,
} = require('./support/server.js');
const { secondReply, loginReply } = require('./support/replies.js');
const { hex } = require('./support/wire.js');
const { loopback } = require('./support/loopback.js');

const users = [{ name: 'operator', password: 'secret', rights: 8 }];
const sim = sharedServer({ project: { ...SMALL, users } });

const open = (core = newCore(), password = 'secret') => core.Connect(sim.address, 'operator', password);

/** Both connections of the first client of the record have ended. */
async function bothClosed() {
  await sim.waitFor('close', { kind: 'request' });
  await sim.waitFor('close', { kind: 'notification' });
}

test('Connect gives 0, and both connections stand', async () => {
  assert.equal(open(), 0);
  assert.deepEqual(
    (await sim.connections()).map(({ kind }) => kind),
    ['request', 'notification'],
  );
});

test('a wrong password gives -1 and leaves both connections closed', async () => {
  assert.equal(open(newCore(), 'wrong'), -1);
  await bothClosed();
  await untilConnections(sim, 0);
});

test('an unknown user gives -1', () => {
  assert.equal(newCore().Connect(sim.address, 'nobody', 'secret'), -1);
});

test('after a wrong password the same instance connects with the right one', () => {
  const core = newCore();
  assert.equal(open(core, 'wrong'), -1);
  assert.equal(core.GetDriver('D0'), undefined);
  assert.equal(open(core), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
});

test('a login that is answered with another letter than 9 or 0 gives -3 and leaves no connection', async () => {
  await sim.setFault({ step: 'login', action: 'letter', letter: 'x' });
  assert.equal(open(), -3);
  await bothClosed();
});

for (const [rights, written] of [
  [8, 0],
  [0xffffffff, 0],
  [0, -1],
  [0xfffffff7, -1],
  [0x800, -1],
  [0x08000000, -1],
]) {
  test(`rights of 0x${rights.toString(16)} let a write give ${written}`, async () => {
    await sim.setFault({ step: 'login', action: 'reply', hex: loginReply(rights) });
    assert.equal(connect(sim).GetDriver('D0').SetTagValue('A', 1), written);
  });
}

test('a login reply that is shorter than 9 bytes reads as if zero bytes followed', async () => {
  await sim.setFault({ step: 'login', action: 'reply', hex: loginReply(8).slice(0, 10), count: 1 });
  assert.equal(connect(sim).GetDriver('D0').SetTagValue('A', 1), -1);
  await sim.setFault({ step: 'login', action: 'reply', hex: loginReply(8).slice(0, 12), count: 1 });
  assert.equal(connect(sim).GetDriver('D0').SetTagValue('A', 1), 0);
});

test('a login reply longer than 9 bytes is taken with what it begins with', async () => {
  await sim.setFault({ step: 'login', action: 'reply', hex: loginReply(8) + 'ff'.repeat(247) });
  assert.equal(connect(sim).GetDriver('D0').SetTagValue('A', 1), 0);
});

test('a port that nobody listens at gives -2', async (t) => {
  const gone = await startServer(t, { host: loopback(1) }); // where nobody else is given its port
  await gone.stopListening();
  const core = newCore();
  assert.equal(core.Connect(gone.address, 'operator', 'secret'), -2);
  await gone.startListening();
  assert.equal(core.Connect(gone.address, 'operator', 'secret'), 0);
});

test('a first registration that is answered with 0 or another letter gives -2', async () => {
  for (const letter of ['0', '8', 'x', ' ']) {
    await sim.setFault({ step: 'handshake1', action: 'letter', letter, count: 1 });
    assert.equal(open(), -2, letter);
  }
});

test('a first reply of fewer than 10 bytes that begins with 7 and "lan" is no redirection', async () => {
  await sim.setFault({ step: 'handshake1', action: 'reply', hex: hex('7lan', [127, 0, 0, 1, 0]) });
  assert.equal(open(), 0);
});

test('a redirection counts only at port 3968: here it is a plain acceptance', async () => {
  await sim.setFault({ step: 'handshake1', action: 'reply', hex: hex('7lan', [127, 0, 0, 1, 0, 1]) });
  assert.equal(open(), 0);
});

test('a second registration that is refused gives -2', async () => {
  await sim.setFault({ step: 'handshake2', action: 'refuse' });
  assert.equal(open(), -2);
});

test('a second reply of 59 decoded bytes gives -2, one of 60 is taken', async () => {
  const name = secondReply('').slice(0, 59 * 2);
  await sim.setFault({ step: 'handshake2', action: 'reply', hex: `${name}`, count: 1 });
  assert.equal(open(), -2);
  await sim.setFault({ step: 'handshake2', action: 'reply', hex: `${name}50`, count: 1 }); // "P", the end of the reply
  assert.equal(open(), 0);
});

test('a second reply that begins with another letter than 8 gives -2', async () => {
  await sim.setFault({ step: 'handshake2', action: 'letter', letter: '9' });
  assert.equal(open(), -2);
});

test('every value of byte 21 of the acknowledgement is accepted', async () => {
  for (const byte of [0, 6, 16, 255]) {
    await sim.setFault({ step: 'handshake2', action: 'reply', hex: secondReply('Small', { 21: byte }), count: 1 });
    assert.equal(open(), 0, String(byte));
  }
});

test('a failed Connect leaves the instance without drivers and with both connections closed', async () => {
  const core = newCore();
  removeMirror(sim.address); // so that the driver information is asked for
  await sim.setFault({ step: 'file', action: 'close' });
  assert.equal(open(core), -2);
  await bothClosed();
  assert.equal(core.GetDriver('D0'), undefined);
});
