'use strict';
// The simulator's relay: devices by name, spliced connections, refusals and the "lan" answer.

const test = require('node:test');
const assert = require('node:assert');
const { loopback } = require('./support/loopback.js');
const { untilConnections } = require('./support/connections.js');
const { Peer, scrambled, plainOf, identifier, extendedBody, secondBody, login, hex } = require('./support/TinyClient');
const { simulate } = require('./support/simulated');

const relayed = (t, devices, options = {}) => simulate(t, { relay: { port: 0, devices }, ...options });

test('a device of this server is reached through the relay, both connections', async (t) => {
  const sim = await relayed(t, { 'dev 水': true });
  const client = await login(sim.relay, 'operator', 'secret', 'dev 水');
  assert.equal(client.rights, '3900000000080c0b0a');
  client.request.send(hex('62 0100 0000 0000 00'));
  assert.equal(await client.request.read(7), '62040002003412');
  client.request.send(hex('67 0100 0000 0000 0200 0500'));
  assert.equal(await client.notify.read(6), '00000000' + '0500');
  client.close();
  await sim.waitFor('close', { kind: 'request' });
  await untilConnections(sim, 0);
});

test('the relay records what it was sent, the server what the relay registers in its place', async (t) => {
  const sim = await relayed(t, { dev: true });
  const client = await login(sim.relay, 'operator', 'secret', 'dev');
  const relay = await sim.requests({ connection: 'relay' });
  assert.equal(relay[0].hex, `37${scrambled(extendedBody(client.ident, 'dev')).toString('hex')}`);
  assert.equal(relay[0].fields.target, 'dev');
  assert.equal(relay[1].fields.id, client.ident.toString('hex'));
  const own = (await sim.requests({ connection: 'request', command: '7' }))[0];
  assert.deepEqual(own.fields, { body: client.ident.toString('hex'), id: client.ident.toString('hex') });
  client.close();
});

test('a device on another server is reached, at port 3968 with the body as the client sent it', async (t) => {
  const other = await simulate(t, { host: loopback(1), port: 3968 });
  const sim = await relayed(t, { far: `${loopback(1)}:3968` });
  const client = await login(sim.relay, 'operator', 'secret', 'far');
  assert.equal((await other.requests({ command: '7' }))[0].fields.target, 'far');
  await untilConnections(sim, 0);
  client.close();
});

test('an unknown device is refused with 0', async (t) => {
  const sim = await relayed(t, { dev: true });
  const peer = await Peer.open(sim.relay.port);
  peer.send('7', scrambled(extendedBody(identifier(), 'Dev')));
  assert.equal(await peer.readToEnd(), '30');
});

test('a lan device is answered with the address, in network order', async (t) => {
  const sim = await relayed(t, { near: 'lan:10.1.2.3:4660', own: 'lan' });
  const ask = async (name) => {
    const peer = await Peer.open(sim.relay.port);
    peer.send('7', scrambled(extendedBody(identifier(), name)));
    return peer.readToEnd();
  };
  assert.equal(await ask('near'), '376c616e0a0102031234');
  assert.equal(await ask('own'), `376c616e7f000001${sim.port.toString(16).padStart(4, '0')}`);
});

test('a second connection without a first one is refused with a scrambled 0', async (t) => {
  const sim = await relayed(t, { dev: true });
  const peer = await Peer.open(sim.relay.port);
  peer.send('8', scrambled(secondBody(identifier())));
  assert.equal(plainOf(hex(await peer.readToEnd())).toString(), '0');
});

test('a device server that cannot be reached ends the connection without an answer', async (t) => {
  const sim = await relayed(t, { gone: `${loopback(2)}:9` });
  const peer = await Peer.open(sim.relay.port);
  peer.send('7', scrambled(extendedBody(identifier(), 'gone')));
  assert.equal(await peer.readToEnd(), '');
});

test('when the server closes, the client of the relay sees it', async (t) => {
  const sim = await relayed(t, { dev: true });
  const client = await login(sim.relay, 'operator', 'secret', 'dev');
  await sim.closeNotification();
  assert.equal(await client.notify.readToEnd(), '');
  assert.equal(client.request.ended, false);
  client.close();
});

test('faults at the relay strike as refusal', async (t) => {
  const sim = await relayed(t, { dev: true });
  await sim.setFault({ step: 'relay1', action: 'refuse', count: 1 });
  const peer = await Peer.open(sim.relay.port);
  peer.send('7', scrambled(extendedBody(identifier(), 'dev')));
  assert.equal(await peer.readToEnd(), '30');
  await sim.setFault({ step: 'relay2', action: 'close', count: 1 });
  const first = await Peer.open(sim.relay.port);
  const ident = identifier();
  first.send('7', scrambled(extendedBody(ident, 'dev')));
  assert.equal(await first.read(1), '37');
  const second = await Peer.open(sim.relay.port);
  second.send('8', scrambled(secondBody(ident)));
  assert.equal(await second.readToEnd(), '');
});
