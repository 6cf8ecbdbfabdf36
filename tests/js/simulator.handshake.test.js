'use strict';
// The simulator's two registrations and the login, byte by byte.

const test = require('node:test');
const assert = require('node:assert');
const { loopback } = require('./support/loopback.js');
const {
  Peer,
  scrambled,
  plainOf,
  identifier,
  extendedBody,
  secondBody,
  register,
  login,
  hex,
} = require('./support/TinyClient');
const { simulate, smallPlant } = require('./support/simulated');

test('the first registration is answered with a bare 7', async (t) => {
  const sim = await simulate(t);
  const peer = await Peer.open(sim.port);
  peer.send('7', scrambled(identifier()));
  assert.equal(await peer.read(1), '37');
  peer.close();
});

test('the second reply holds the driver file time and size, and the project name begins in its byte 59', async (t) => {
  const sim = await simulate(t);
  const { second } = await register(sim);
  // drvinfo: "A" NUL id count (6) and two double-byte characters NUL id count (9)
  const expected = `38${'00'.repeat(50)}65e6c2f90000000f${Buffer.from('Plant\0two\0').toString('hex')}`;
  assert.equal(second.toString('hex'), expected);
});

test('a second reply with two empty texts has 61 bytes', async (t) => {
  const sim = await simulate(t, { project: smallPlant({ name: '', second: '' }) });
  assert.equal((await register(sim)).second.length, 61);
});

test('a Chinese project name goes out as GB2312', async (t) => {
  const chinese = await simulate(t, { project: smallPlant({ name: '水厂', second: '' }) });
  assert.equal((await register(chinese)).second.toString('hex', 59), 'cbaeb3a70000');
});

test('acknowledgement bytes can be set', async (t) => {
  const sim = await simulate(t, { ack: { 21: 16 } });
  assert.equal((await register(sim)).second[1 + 21], 16);
  await sim.configure({ ack: { 21: 17, 0: 255 } });
  const { second } = await register(sim);
  assert.deepEqual([second[1], second[1 + 21]], [255, 17]);
});

test('registrations are recorded with their bytes and their plain bodies', async (t) => {
  const sim = await simulate(t);
  const { ident } = await register(sim);
  const [first, second] = await sim.requests();
  assert.equal(first.connection, 'request');
  assert.equal(first.hex, `37${scrambled(ident).toString('hex')}`);
  assert.equal(first.hex.length / 2, 23);
  assert.equal(first.fields.body, ident.toString('hex'));
  assert.equal(second.connection, 'notification');
  assert.equal(second.hex, `38${scrambled(secondBody(ident)).toString('hex')}`);
  assert.deepEqual(second.fields, {
    body: secondBody(ident).toString('hex'),
    id: ident.toString('hex'),
    hostName: 'tester',
    flag: 1,
    last: 1,
  });
});

test('a registration that arrives byte by byte is one registration', async (t) => {
  const sim = await simulate(t);
  const peer = await Peer.open(sim.port);
  for (const byte of [0x37, ...scrambled(identifier())]) {
    peer.send([byte]);
    await new Promise(setImmediate);
  }
  assert.equal(await peer.read(1), '37');
  assert.equal((await sim.requests({ command: '7' })).length, 1);
  peer.close();
});

test('a second registration that arrives byte by byte is whole with its last byte', async (t) => {
  const sim = await simulate(t);
  const request = await Peer.open(sim.port);
  const ident = identifier();
  request.send('7', scrambled(ident));
  await request.read(1);
  const notify = await Peer.open(sim.port);
  for (const byte of [0x38, ...scrambled(secondBody(ident, 0))]) {
    notify.send([byte]);
    await new Promise(setImmediate);
  }
  await sim.waitFor('ready');
  const [{ fields }] = await sim.requests({ command: '8' });
  assert.deepEqual([fields.hostName, fields.flag, fields.last], ['tester', 0, 1]);
  request.close();
  notify.close();
});

test('at port 3968 the extended body is expected and recorded', async (t) => {
  const sim = await simulate(t, { host: loopback(1), port: 3968 });
  const client = await login(sim, 'operator', 'secret', loopback(1));
  const [first] = await sim.requests({ command: '7' });
  assert.equal(first.fields.body, extendedBody(client.ident, loopback(1)).toString('hex'));
  assert.deepEqual([first.fields.mac, first.fields.target], ['000000000000', loopback(1)]);
  client.close();
});

test('at port 3968 a plain body is not yet a registration', async (t) => {
  const sim = await simulate(t, { host: loopback(2), port: 3968 });
  const peer = await Peer.open(sim.port, sim.host);
  const ident = identifier();
  const body = scrambled(extendedBody(ident, 'x'));
  peer.send('7', body.subarray(0, 22));
  await sim.waitFor('open', {});
  assert.deepEqual(await sim.requests(), []);
  peer.send(body.subarray(22));
  assert.equal(await peer.read(1), '37');
  peer.close();
});

test('a second registration with an unknown identifier is refused with a scrambled 0', async (t) => {
  const sim = await simulate(t);
  const peer = await Peer.open(sim.port);
  peer.send('8', scrambled(secondBody(identifier())));
  const reply = hex(await peer.readToEnd());
  assert.equal(reply.length, 2);
  assert.equal(plainOf(reply).toString(), '0');
});

test('one identifier takes one notification connection', async (t) => {
  const sim = await simulate(t);
  const { ident } = await register(sim);
  const peer = await Peer.open(sim.port);
  peer.send('8', scrambled(secondBody(ident)));
  assert.equal(plainOf(hex(await peer.readToEnd())).toString(), '0');
});

test('a server can answer the first registration with lan', async (t) => {
  const sim = await simulate(t, { lan: '127.0.0.9:4660' });
  const peer = await Peer.open(sim.port);
  peer.send('7', scrambled(identifier()));
  assert.equal(await peer.read(10), '376c616e7f0000091234');
  peer.close();
});

test('a login is answered with the rights at bytes 5 to 8', async (t) => {
  const sim = await simulate(t);
  const client = await login(sim);
  assert.equal(client.rights, '3900000000080c0b0a');
  assert.deepEqual((await sim.requests({ command: '9' }))[0].fields, { user: 'operator', password: 'secret' });
  client.close();
});

test('a wrong password and an unknown user are answered with 0', async (t) => {
  const sim = await simulate(t);
  const { request } = await register(sim);
  request.send('9operator\0wrong\0');
  assert.equal(await request.read(1), '30');
  request.send('9nobody\0secret\0');
  assert.equal(await request.read(1), '30');
  request.send('9operator\0secret\0');
  assert.equal((await request.read(9)).slice(0, 2), '39');
});

test('a project without users lets anybody in with the right to write', async (t) => {
  const sim = await simulate(t, { project: smallPlant({ users: undefined }) });
  const client = await login(sim, 'who', 'ever');
  assert.equal(client.rights, '390000000008000000');
  client.close();
});

test('the project path is answered before the login as four texts', async (t) => {
  const sim = await simulate(t, { project: smallPlant({ path: ['a', '水'] }) });
  const { request } = await register(sim);
  request.send('3');
  assert.equal(await request.read(8), '336100cbae000000');
});

test('any other request before the login ends the connection', async (t) => {
  const sim = await simulate(t);
  const { request } = await register(sim);
  request.send('n');
  assert.equal(await request.readToEnd(), '');
});
