'use strict';
// Servers that fail at some step while a session is opened. Whatever happens, Connect ends with its code, and the same
// instance opens a sound session afterwards.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer, newCore, removeMirror } = require('./support/server.js');
const { runProgram } = require('./support/child.js');
const { fileReply } = require('./support/replies.js');
const { patience } = require('./support/patience.js');

const sim = sharedServer();

const open = (core) => core.Connect(sim.address, 'operator', 'secret');

/** Connects under a fault, then without; the driver information is fetched each time. */
async function connectUnder(fault, expected) {
  removeMirror(sim.address);
  await sim.setFault(fault);
  const core = newCore();
  const result = open(core);
  await sim.clearFaults();
  assert.equal(result, expected);
  removeMirror(sim.address);
  assert.equal(open(core), 0, 'a sound session afterwards');
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
}

// What the client gets in place of a step's reply, and what Connect then answers. A reply in one piece is also the
// documented reading of a file's header, of a login and of both registrations: what comes later is not theirs.
const FAULTS = [
  [{ step: 'accept', action: 'close' }, -2, 'the request connection is closed at once'],
  [{ step: 'accept', action: 'reset' }, -2, 'the request connection is reset at once'],
  [{ step: 'accept', action: 'close', skip: 1 }, -2, 'the notification connection is closed at once'],
  [{ step: 'accept', action: 'reset', skip: 1 }, -2, 'the notification connection is reset at once'],
  [{ step: 'handshake1', action: 'close' }, -2, 'the first registration is answered with an end'],
  [{ step: 'handshake1', action: 'reset' }, -2, 'the first registration is answered with a reset'],
  [{ step: 'handshake1', action: 'cut', bytes: 0 }, -2, 'the first reply is cut before its letter'],
  [{ step: 'handshake1', action: 'cut', bytes: 1 }, -2, 'the first reply is the last of its connection'],
  [{ step: 'handshake1', action: 'trickle' }, 0, 'the first reply comes byte by byte'],
  [{ step: 'handshake2', action: 'close' }, -2, 'the second registration is answered with an end'],
  [{ step: 'handshake2', action: 'reset' }, -2, 'the second registration is answered with a reset'],
  [{ step: 'handshake2', action: 'cut', bytes: 0 }, -2, 'the second reply is cut before its letter'],
  [{ step: 'handshake2', action: 'cut', bytes: 1 }, -2, 'the second reply is cut to a lone random byte'],
  [{ step: 'handshake2', action: 'cut', bytes: 2 }, -2, 'the second reply is cut to its letter'],
  [{ step: 'handshake2', action: 'cut', bytes: 79 }, -2, 'the second reply is cut to 59 bytes'],
  [{ step: 'handshake2', action: 'split', bytes: 40 }, -2, 'the second reply comes in two halves'],
  [{ step: 'handshake2', action: 'trickle', ms: patience(10) }, -2, 'the second reply comes byte by byte'],
  [{ step: 'login', action: 'close' }, -2, 'the login is answered with an end'],
  [{ step: 'login', action: 'reset' }, -2, 'the login is answered with a reset'],
  [{ step: 'login', action: 'cut', bytes: 0 }, -2, 'the login reply is cut before its letter'],
  [{ step: 'login', action: 'cut', bytes: 1 }, -2, 'the login reply is the last of its connection'],
  [{ step: 'login', action: 'split', bytes: 1 }, 0, 'the login reply comes in two parts'],
  [{ step: 'login', action: 'refuse' }, -1, 'the login is refused'],
  [{ step: 'file', action: 'close' }, -2, 'the file request is answered with an end'],
  [{ step: 'file', action: 'reset' }, -2, 'the file request is answered with a reset'],
  [{ step: 'file', action: 'cut', bytes: 0 }, -2, 'the file reply is cut before its first byte'],
  [{ step: 'file', action: 'split', bytes: 73 }, 0, 'the file reply comes in two parts behind its header'],
  [{ step: 'file-body', action: 'close' }, -2, 'the connection ends behind the file header'],
  [{ step: 'file-body', action: 'reset' }, -2, 'the connection is reset behind the file header'],
  [{ step: 'file-body', action: 'cut', bytes: 3 }, -2, 'the file body is cut'],
  [{ step: 'file-body', action: 'split', bytes: 3 }, 0, 'the file body comes in two parts'],
  [{ step: 'file-body', action: 'trickle' }, 0, 'the file body comes byte by byte'],
];

for (const [fault, expected, what] of FAULTS) {
  test(`Connect gives ${expected} when ${what}`, () => connectUnder(fault, expected));
}

for (const step of ['accept', 'handshake1', 'handshake2', 'login', 'file', 'file-body']) {
  test(`a server that takes its time at step ${step} is waited for`, async () => {
    const started = Date.now();
    await connectUnder({ step, action: 'delay', ms: 150, count: 1 }, 0);
    assert.ok(Date.now() - started >= 140); // timers may be early by a little
  });
}

test('a file header that is cut off is taken as far as it came: the driver information is empty', async () => {
  removeMirror(sim.address);
  await sim.setFault({ step: 'file', action: 'reply', hex: Buffer.from('Exist:Yes\r\nSi').toString('hex'), count: 1 });
  const core = newCore();
  assert.equal(open(core), 0);
  assert.equal(core.GetDriver('D0'), undefined);
});

test('a file that breaks off is fetched again by the next session', async () => {
  removeMirror(sim.address);
  await sim.setFault({ step: 'file-body', action: 'cut', bytes: 3, count: 1 });
  const core = newCore();
  assert.equal(open(core), -2);
  await sim.clearRequests();
  assert.equal(open(core), 0);
  assert.equal((await sim.requests({ command: '4' })).length, 1);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
});

test('a file body that never stops coming is taken up to its announced size', async () => {
  removeMirror(sim.address);
  await sim.setFault({ step: 'file', action: 'reply', hex: fileReply(['Size:5'], 'x'.repeat(1000)), count: 1 });
  assert.equal(open(newCore()), 0);
});

test('a process whose server closes at every step is not ended by a signal', async () => {
  await sim.setFault({ step: 'login', action: 'reset' });
  await sim.setFault({ step: 'handshake2', action: 'reset', skip: 3 });
  const { code, signal, stdout } = await runProgram(
    `
    const core = new DBCore();
    for (let i = 0; i < 6; i++) console.log(core.Connect(args[0], 'operator', 'secret'));
  `,
    [sim.address],
  );
  assert.deepEqual([code, signal, stdout], [0, null, '-2\n'.repeat(6)]);
});
