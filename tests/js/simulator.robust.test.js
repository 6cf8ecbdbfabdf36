'use strict';
// Broken and hostile clients, and the simulator's own life: nothing crashes it, nothing is left behind.

const test = require('node:test');
const assert = require('node:assert');
const { execFile } = require('node:child_process');
const path = require('node:path');
const { patience } = require('./support/patience.js');
const { untilConnections } = require('./support/connections.js');
const { Peer, scrambled, identifier, secondBody, login, register, hex } = require('./support/TinyClient');
const { simulate, smallPlant } = require('./support/simulated');

const stillServes = async (sim) => {
  const client = await login(sim);
  client.request.send(hex('48 0100 0000 0000'));
  assert.equal(await client.request.read(8), '4800040002003412');
  client.close();
};

test('a first byte that is no registration ends the connection', async (t) => {
  const sim = await simulate(t);
  for (const byte of ['x', '\0', '\xff', 'L']) {
    const peer = await Peer.open(sim.port);
    peer.send(Buffer.from(byte, 'latin1'), Buffer.alloc(40));
    assert.equal(await peer.readToEnd(), '');
  }
  await stillServes(sim);
});

test('a registration without end is given up after 512 bytes', async (t) => {
  const sim = await simulate(t);
  for (const letter of ['7', '8']) {
    const peer = await Peer.open(sim.port);
    peer.send(letter, scrambled(Buffer.alloc(600, 1)));
    assert.equal(await peer.readToEnd(), '');
  }
  await stillServes(sim);
});

const HOSTILE = {
  'an unknown command': 'Z',
  'a second registration': Buffer.concat([Buffer.from('8'), scrambled(secondBody(identifier()))]),
  'a write of an array': hex('67 0100 0000 0000 0020 ffff'),
  'a request without end': Buffer.concat([Buffer.from('4'), Buffer.alloc(70000, 0x61)]),
  'a name without end': Buffer.concat([Buffer.from('L'), Buffer.alloc(70000, 0x61)]),
  'a count that never comes': Buffer.concat([hex('62 ffff'), Buffer.alloc(70000)]),
  'a login without end': Buffer.concat([Buffer.from('9'), Buffer.alloc(70000, 0x61)]),
};

for (const [name, bytes] of Object.entries(HOSTILE)) {
  test(`${name} ends that connection only`, async (t) => {
    const sim = await simulate(t);
    const other = await login(sim);
    const { request } = await login(sim);
    request.send(bytes);
    await request.readToEnd();
    assert.equal(other.request.ended, false);
    await stillServes(sim);
  });
}

/** Bytes that look random and are the same in every run. */
function noise(length, seed) {
  let state = seed;
  return Buffer.from(
    Uint8Array.from({ length }, () => {
      state = (Math.imul(state, 1103515245) + 12345) >>> 0;
      return state >>> 16;
    }),
  );
}

test('noise behind every command byte does no harm', async (t) => {
  const sim = await simulate(t);
  for (const [i, command] of [...'347890LbHgdn'].entries()) {
    for (const length of [1, 7, 64, 1000]) {
      const { request } = await login(sim);
      request.send(command, noise(length, i * 100 + length));
      request.socket.end();
      await request.readToEnd();
    }
  }
  await stillServes(sim);
  const unexpected = (await sim.events({ event: 'error' })).filter(({ message }) =>
    /undefined|not a function|of null/.test(message),
  );
  assert.deepEqual(unexpected, []);
});

test('clients that vanish at any point of the handshake leave nothing behind', async (t) => {
  const sim = await simulate(t);
  const ident = identifier();
  const packet = Buffer.concat([Buffer.from('7'), scrambled(ident)]);
  for (let cut = 0; cut <= packet.length; cut++) {
    const peer = await Peer.open(sim.port);
    peer.send(packet.subarray(0, cut));
    peer.socket.resetAndDestroy?.();
    peer.close();
  }
  await sim.waitFor('close', {}, { count: packet.length + 1 });
  await untilConnections(sim, 0);
});

test('the record keeps the newest entries only', async (t) => {
  const sim = await simulate(t, { record: 5 });
  const client = await login(sim);
  for (let i = 0; i < 20; i++) client.request.send('n');
  await client.request.read(60);
  const events = await sim.events();
  assert.equal(events.length, 5);
  assert.deepEqual(
    events.map(({ seq }) => seq - events[0].seq),
    [0, 1, 2, 3, 4],
  );
  client.close();
});

test('clearRequests empties the record; requests are in order and can be chosen', async (t) => {
  const sim = await simulate(t);
  const client = await login(sim);
  assert.deepEqual(
    (await sim.requests()).map(({ command }) => command),
    ['7', '8', '9'],
  );
  assert.deepEqual(
    (await sim.requests({ connection: 'notification' })).map(({ command }) => command),
    ['8'],
  );
  await sim.clearRequests();
  assert.deepEqual(await sim.requests(), []);
  client.close();
});

test('waitFor takes what has happened, waits for what has not, and gives up', async (t) => {
  const sim = await simulate(t);
  const { request } = await login(sim);
  const past = await sim.waitFor('login', { user: 'operator' });
  const coming = sim.waitFor('request', { command: 'n' }, { since: past.seq });
  request.send('n');
  const { seq, hex: bytes } = await coming;
  assert.equal(bytes, '6e');
  await assert.rejects(sim.waitFor('request', { command: 'n' }, { since: seq, timeout: 50 }), /within 50 ms/);
  await assert.rejects(sim.waitFor('request', { command: 'H' }, 50), {
    message: 'no request {"command":"H"} within 50 ms',
  });
});

test('commands with mistakes are rejected and do no harm', async (t) => {
  const sim = await simulate(t);
  await assert.rejects(sim.set('B', 'word', 1), { message: 'no driver "B"' });
  await assert.rejects(sim.get('A', 'none'), { message: 'no tag "none" in driver "A"' });
  await assert.rejects(sim.notifyRaw('xy'), { message: 'notifyRaw: expected a Buffer or hexadecimal text' });
  await assert.rejects(sim.configure({ port: 1 }), {
    code: 'ERR_SIMULATOR_OPTION',
    message: /^options: port: unknown field/,
  });
  await stillServes(sim);
});

test('close ends the child and its connections; commands after it are rejected', async (t) => {
  const sim = await simulate(t);
  const client = await register(sim);
  await sim.close();
  assert.equal(await sim.exited, 0);
  await client.request.readToEnd();
  await assert.rejects(sim.requests(), { message: 'the simulator has ended' });
  await sim.close();
});

const PARENT = `
  const { startSimulator } = require(${JSON.stringify(path.join(__dirname, '../../simulator'))});
  startSimulator({ port: 0 }).then((sim) => { console.log(sim.pid); if (process.argv[1] === 'kill') process.kill(process.pid, 'SIGKILL'); });
`;

/** Runs a program that starts a simulator and ends without closing it; gives the simulator's process id. */
const startAndLeave = (how) =>
  new Promise((resolve) => {
    execFile(process.execPath, ['-e', PARENT, how], { timeout: 20000 }, (error, stdout) => resolve(Number(stdout)));
  });

async function untilGone(pid) {
  for (const deadline = Date.now() + patience(5000); Date.now() < deadline;) {
    try {
      process.kill(pid, 0);
    } catch {
      return true;
    }
    await new Promise((resolve) => setTimeout(resolve, 10));
  }
  return false;
}

for (const how of ['end', 'kill']) {
  test(`a program that starts a simulator ends by itself, and the simulator with it (${how})`, async () => {
    const pid = await startAndLeave(how);
    assert.ok(pid > 0);
    assert.equal(await untilGone(pid), true);
  });
}

test('10,000 tags are resolved, connected, written and followed', async (t) => {
  const tags = [{ name: 'T{00000}', type: 'int32', count: 10000 }];
  const sim = await simulate(t, { project: smallPlant({ drivers: [{ name: 'D', tags }] }), notifyBlock: 2048 });
  const { request, notify } = await login(sim);
  const word = (n) => Buffer.from([n & 255, n >> 8]);
  for (let from = 0; from < 10000; from += 500) {
    const ids = Array.from({ length: 500 }, (_, i) => from + i);
    request.send('L', ...ids.flatMap((id) => [[0, 0], Buffer.from(`T${String(id).padStart(5, '0')}\0`)]));
    const reply = hex(await request.read(1 + 4 * 500));
    assert.deepEqual(
      ids.map((id, i) => reply.readUInt16LE(1 + 4 * i)),
      ids,
    );
    request.send('b', word(500), ...ids.map((id) => Buffer.concat([word(0), word(id), word(0).subarray(1)])));
    await request.read(500 * 6 + 3 * 3);
  }
  for (let id = 0; id < 10000; id++) request.send('g', word(1), word(0), word(id), word(3), word(id), word(1));
  const values = new Map();
  while (values.size < 10000) {
    const block = hex(await notify.read(2048));
    for (let at = 0; at < 2048;) {
      if (block.readUInt16LE(at) === 0xffff) at += { 2: 7, 4: 43, 6: 20, 8: 5, 255: 3 }[block[at + 2]];
      else {
        values.set(block.readUInt16LE(at + 2), block.readInt32LE(at + 4));
        at += 8;
      }
    }
  }
  assert.ok([...values].every(([id, value]) => value === 65536 + id));
  assert.equal((await sim.requests({ command: 'g' })).length, 10000);
});
