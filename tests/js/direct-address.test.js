'use strict';
// Direct addresses: host, port, and what port 3968 changes.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { test } = require('node:test');
const { sharedServer, startServer, newCore, removeMirror, serverDir, sent } = require('./support/server.js');
const { loopback } = require('./support/loopback.js');
const { runProgram } = require('./support/child.js');
const { hex } = require('./support/wire.js');

const sim = sharedServer();
const extended = sharedServer({ host: loopback(1), port: 3968 });

/** Connects to an address and cleans up its mirror. */
function open(t, address) {
  t.after(() => removeMirror(address));
  return newCore().Connect(address, 'operator', 'secret');
}

/** The reply that sends a client to an address. */
function lan(address, word = 'lan') {
  const [host, port] = address.split(':');
  return hex('7', word, host.split('.').map(Number), [port >> 8, port & 0xff]);
}

const redirect = (reply, count = 1) => extended.setFault({ step: 'handshake1', action: 'reply', hex: reply, count });
const commands = async (server) => (await server.requests()).map(({ command }) => command);

/** The extended registration body behind the identifier: hardware address and target. */
const extension = (target) => hex(Buffer.alloc(6), `${target}\0`);

test('a host name is looked up', (t) => {
  assert.equal(open(t, `localhost:${sim.port}`), 0);
});

test('a port is cut to its low 16 bits', (t) => {
  assert.equal(open(t, `127.0.0.1:${sim.port + 65536}`), 0);
});

test('text behind the digits of the port does not count', (t) => {
  assert.equal(open(t, `${sim.address} plant`), 0);
});

test('an address without a usable port goes to port 80 with the plain registration', async (t) => {
  const host = loopback(80);
  const server = await startServer(t, { host, port: 80 }).catch((error) => error);
  if (server instanceof Error) return t.skip(`port 80: ${server.message}`);
  const tails = ['', ':', ':0', ':x', ':65536'];
  for (const tail of tails) assert.equal(open(t, `${host}${tail}`), 0, tail);
  const lengths = (await sent(server, '7')).map((bytes) => bytes.length / 2);
  return assert.deepEqual(
    lengths,
    tails.map(() => 23),
  );
});

test('at port 3968 the registration body is identifier, six zero bytes, the host and zero', async (t) => {
  assert.equal(open(t, extended.address), 0);
  const [{ hex: bytes, fields }] = await extended.requests({ command: '7' });
  assert.equal(fields.body, fields.id + extension(extended.host));
  const length = 16 + 6 + extended.host.length + 1;
  assert.equal(bytes.length / 2, 1 + 4 * Math.floor(length / 3) + (length % 3 > 0 ? (length % 3) + 1 : 0));
  const [second] = await extended.requests({ command: '8' });
  assert.equal(second.fields.id, fields.id);
});

test('at port 3968 a "lan" answer leads to the address that it carries', async () => {
  await redirect(lan(sim.address));
  const core = newCore();
  assert.equal(core.Connect(extended.address, 'operator', 'secret'), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
  assert.deepEqual(await commands(extended), ['7']);
  await extended.waitFor('close', { kind: 'request' });
  assert.deepEqual((await commands(sim)).slice(0, 3), ['7', '8', '9']);
});

test('after a redirection the mirror stands under the address that was asked for', async (t) => {
  removeMirror(extended.address);
  await redirect(lan(sim.address));
  assert.equal(open(t, extended.address), 0);
  assert.ok(fs.existsSync(`${serverDir(extended.address)}/Small/RecData/drvinfo.dat`));
});

test('a "lan" answer counts in any case of its letters', async (t) => {
  await redirect(lan(sim.address, 'LaN'));
  assert.equal(open(t, extended.address), 0);
  assert.equal((await sim.requests({ command: '8' })).length, 1);
});

test('at port 3968 a "lan" answer of 9 bytes is no redirection', async (t) => {
  await redirect(lan(sim.address).slice(0, 18));
  assert.equal(open(t, extended.address), 0);
  assert.equal((await extended.requests({ command: '8' })).length, 1);
});

test('a "lan" answer to an address that nobody listens at gives -2', async (t) => {
  const gone = await startServer(t, { host: loopback(9) }); // where nobody else is given its port
  await redirect(lan(gone.address));
  await gone.stopListening();
  assert.equal(open(t, extended.address), -2);
});

test('a chain of redirections is followed to its end, one line on standard output for each', async (t) => {
  const startHop = (number, next) => startServer(t, { host: loopback(number), port: 3968, lan: next.address });
  const hops = [await startHop(3, sim)];
  hops.unshift(await startHop(2, hops[0]));
  await redirect(lan(hops[0].address));
  const { code, stdout } = await runProgram(
    `
    const core = new DBCore();
    const result = core.Connect(args[0], 'operator', 'secret');
    process.stdout.write('result ' + result + ', B ' + core.GetDriver('D0').GetTagValue('B') + '\\n');
  `,
    [extended.address],
  );
  assert.equal(stdout, `${'Is same lan ...\n'.repeat(3)}result 0, B 7\n`);
  assert.equal(code, 0);
  for (const hop of [extended, ...hops]) assert.deepEqual(await commands(hop), ['7']);
});

test('a circle of 200 redirections ends when its server accepts', async (t) => {
  await redirect(lan(extended.address), 200);
  assert.equal(open(t, extended.address), 0);
  assert.equal((await extended.requests({ command: '7' })).length, 201);
});
