'use strict';
// The simulator's fault table: every action at a step, and every step.

const test = require('node:test');
const assert = require('node:assert');
const { Peer, scrambled, identifier, register, login, hex } = require('./support/TinyClient');
const { simulate, smallPlant } = require('./support/simulated');
const { patience } = require('./support/patience.js');

const READ = hex('48 0100 0000 0000');
const REPLY = '48000400' + '02003412';
const WRITE = hex('67 0100 0000 0000 0200 0500');

async function faulty(t, fault, options = {}) {
  const sim = await simulate(t, options);
  const client = await login(sim);
  t.after(() => client.close());
  if (fault) await sim.setFault(fault);
  return { sim, ...client };
}

test('delay puts a reply off', async (t) => {
  const { request } = await faulty(t, { step: 'read', action: 'delay', ms: 150 });
  const asked = Date.now();
  request.send(READ);
  assert.equal(await request.read(8), REPLY);
  assert.ok(Date.now() - asked >= 149);
});

test('cut closes behind the given number of bytes', async (t) => {
  const { request } = await faulty(t, { step: 'read', action: 'cut', bytes: 5 });
  request.send(READ);
  assert.equal(await request.readToEnd(), REPLY.slice(0, 10));
});

test('split gives a reply in two receives, also to a client that reads late', async (t) => {
  const { sim, request } = await faulty(t, { step: 'read', action: 'split', bytes: 3 });
  const before = request.chunks.length;
  request.stall();
  request.send(READ);
  await sim.waitFor('request', { command: 'H' });
  await sim.connections(); // one more exchange: what is sent without waiting has been sent
  request.resume();
  assert.equal(await request.read(8), REPLY);
  assert.deepEqual(
    request.chunks.slice(before).map((chunk) => chunk.length),
    [3, 5],
  );
});

test('trickle gives one byte at a time', async (t) => {
  const { request } = await faulty(t, { step: 'read', action: 'trickle', ms: patience(50) });
  const before = request.chunks.length;
  request.send(READ);
  assert.equal(await request.read(8), REPLY);
  assert.ok(request.chunks.length - before > 4);
});

test('letter, reply and refuse change what is answered, as often as counted and after what is skipped', async (t) => {
  const { sim, request } = await faulty(t, { step: 'read', action: 'letter', letter: 'z', count: 1, skip: 1 });
  request.send(READ, READ, READ);
  assert.equal(await request.read(24), REPLY + `7a${REPLY.slice(2)}` + REPLY);
  await sim.setFault({ step: 'read', action: 'reply', hex: '01 02', count: 1 });
  await sim.setFault({ step: 'read', action: 'refuse', count: 1 });
  request.send(READ, READ, READ);
  assert.equal(await request.read(11), '0102' + '30' + REPLY);
});

test('drop gives no reply once, hang none ever again', async (t) => {
  const { sim, request } = await faulty(t, { step: 'read', action: 'drop', count: 1 });
  request.send(READ, hex('64 0000 0000'));
  assert.equal(await request.read(1), '64');
  await sim.setFault({ step: 'read', action: 'hang', count: 1 });
  request.send(READ, READ);
  await sim.waitFor('request', { command: 'H' }, { count: 3 });
  assert.equal(request.bytes.length, 0);
  assert.equal(request.ended, false);
});

test('close ends the connection in order, reset without', async (t) => {
  const { sim, request } = await faulty(t, { step: 'read', action: 'close', count: 1 });
  request.send(READ);
  assert.equal(await request.readToEnd(), '');
  assert.equal(request.error, undefined);
  const other = await login(sim);
  await sim.setFault({ step: 'read', action: 'reset' });
  other.request.send(READ);
  assert.equal(await other.request.readToEnd(), '');
  assert.equal(other.request.error, 'ECONNRESET');
});

test('clearFaults empties the table', async (t) => {
  const { sim, request } = await faulty(t, { step: 'read', action: 'close' });
  await sim.clearFaults();
  request.send(READ);
  assert.equal(await request.read(8), REPLY);
});

const REQUESTS = {
  path: '3',
  login: '9operator\0secret\0',
  file: '4none\r\n\r\n',
  tagids: 'L\0\0x\0',
  connect: 'b\0\0',
  read: 'H\0\0',
  write: WRITE,
  unadvise: 'd\0\0\0\0',
  alarms: 'n',
};

for (const [step, request] of Object.entries(REQUESTS)) {
  test(`the connection can be closed at ${step}`, async (t) => {
    const client = await faulty(t, { step, action: 'close' });
    client.request.send(request);
    assert.equal(await client.request.readToEnd(), '');
    assert.equal(client.notify.ended, false);
  });
}

test('the first registration can be refused with 0', async (t) => {
  const sim = await simulate(t, { faults: [{ step: 'handshake1', action: 'refuse', count: 1 }] });
  const peer = await Peer.open(sim.port);
  peer.send('7', scrambled(identifier()));
  assert.equal(await peer.readToEnd(), '30');
  assert.equal((await register(sim)).first, '37');
});

test('the second registration can be refused with a scrambled 0, or cut', async (t) => {
  const sim = await simulate(t, { faults: [{ step: 'handshake2', action: 'refuse', count: 1 }] });
  assert.equal((await register(sim)).second.toString(), '0');
  await sim.setFault({ step: 'handshake2', action: 'cut', bytes: 7, count: 1 });
  assert.equal((await register(sim)).second.length, 5);
});

test('a letter or bytes in place of the second reply are scrambled as the reply is', async (t) => {
  const sim = await simulate(t, { faults: [{ step: 'handshake2', action: 'letter', letter: 'q', count: 1 }] });
  assert.equal((await register(sim)).second.toString('latin1', 0, 1), 'q');
  await sim.setFault({ step: 'handshake2', action: 'reply', hex: '38'.repeat(60), count: 1 });
  assert.equal((await register(sim)).second.toString('hex'), '38'.repeat(60));
});

test('a connection can be refused as soon as it is made', async (t) => {
  const sim = await simulate(t, { faults: [{ step: 'accept', action: 'refuse', count: 1 }] });
  // The reset may come before the connection is known to stand, or after.
  const outcome = await Peer.open(sim.port).then(
    (peer) => peer.readToEnd().then(() => peer.error),
    (error) => error.code,
  );
  assert.equal(outcome, 'ECONNRESET');
  assert.equal((await register(sim)).first, '37');
});

test('a lost write is not stored', async (t) => {
  const { sim, request } = await faulty(t, { step: 'write', action: 'drop', count: 1 });
  request.send(WRITE, READ);
  assert.equal(await request.read(8), REPLY);
  assert.equal(await sim.get('A', 'word'), 0x1234);
});

test('a fault at the body of a file leaves its header whole', async (t) => {
  const options = { project: smallPlant({ files: [{ name: 'Media/x', text: 'abcdef' }] }) };
  const { request } = await faulty(t, { step: 'file-body', action: 'cut', bytes: 2 }, options);
  request.send('4Media/x\r\nHello:Yes\r\n\r\n');
  const reply = hex(await request.readToEnd()).toString();
  assert.equal(reply, 'Exist:Yes\r\nFileName:x\r\nFileTime:65E6C2F9\r\nSize:6\r\n\r\nab');
});

test('a notification record can be split over two receives', async (t) => {
  const { request, notify } = await faulty(t, { step: 'notification', action: 'split', bytes: 4, count: 1 });
  request.send(hex('62 0100 0000 0000 00'));
  await request.read(7);
  request.send(WRITE);
  assert.equal(await notify.read(6), '00000000' + '0500');
  assert.deepEqual(
    notify.chunks.map((chunk) => chunk.length),
    [4, 2],
  );
});

test('a notification connection can be closed at its next record', async (t) => {
  const { request, notify } = await faulty(t, { step: 'notification', action: 'close' });
  request.send(hex('62 0100 0000 0000 00'), WRITE);
  assert.equal(await notify.readToEnd(), '');
  assert.equal(request.ended, false);
});

test('while it does not listen connections are refused; those that stand go on', async (t) => {
  const { sim, request } = await faulty(t);
  await sim.stopListening();
  await assert.rejects(Peer.open(sim.port), { code: 'ECONNREFUSED' });
  request.send(READ);
  assert.equal(await request.read(8), REPLY);
  await sim.startListening();
  assert.equal((await register(sim)).first, '37');
});

test('connections are closed on command, one kind or all, of one client or of all', async (t) => {
  const { sim, request, notify } = await faulty(t);
  const other = await login(sim);
  const [{ session }] = await sim.connections();
  await sim.closeNotification(session);
  assert.equal(await notify.readToEnd(), '');
  assert.equal(request.ended, false);
  await sim.closeRequest(session);
  assert.equal(await request.readToEnd(), '');
  assert.equal(other.request.ended || other.notify.ended, false);
  await sim.closeAll();
  await other.request.readToEnd();
  await other.notify.readToEnd();
});

test('a fault that does not exist is refused with the names of those that do', async (t) => {
  const { sim } = await faulty(t);
  const code = 'ERR_SIMULATOR_OPTION';
  const message = (text) => ({ code, message: new RegExp(text) });
  await assert.rejects(
    sim.setFault({ step: 'raed', action: 'close' }),
    message('fault.step: unknown step "raed"; expected one of accept'),
  );
  await assert.rejects(
    sim.setFault({ step: 'read', action: 'cut', bytes: -1 }),
    message('fault.bytes: expected a whole number'),
  );
  await assert.rejects(
    sim.setFault({ step: 'read', action: 'reply', hex: 'zz' }),
    message('fault.hex: expected hexadecimal bytes'),
  );
});
