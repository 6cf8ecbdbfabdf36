'use strict';
// Large files: acknowledgements after each window, which shrinks from 131072 bytes by 10240 down to 8192; and files
// that change on the server between two sessions.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { test } = require('node:test');
const { startServer, connect, removeMirror, serverDir, SMALL } = require('./support/server.js');
const { driverFile } = require('./support/replies.js');
const { hex } = require('./support/wire.js');
const { loopback } = require('./support/loopback.js');

const LARGE = 1000000; // bytes, enough to reach the smallest window
const names = Array.from({ length: LARGE / 125 }, (_, i) => `Driver ${String(i).padStart(5, '0')} ${'.'.repeat(107)}`);
const BODY = driverFile(...names.map((name, i) => [name, i, 1]));

const project = (file = {}) => ({
  ...SMALL,
  files: [{ name: 'RecData/drvinfo.dat', base64: BODY.toString('base64'), time: 1700000001, ...file }],
});

/** What a client acknowledges of this many bytes, header included. */
function windows(total) {
  const counts = [];
  let window = 131072;
  for (let left = total; left > window;) {
    counts.push(window);
    left -= window;
    window = Math.max(8192, window > 10240 ? window - 10240 : window);
  }
  return counts;
}

const acks = async (sim) => (await sim.requests({ command: '4' })).slice(1);
const stored = (sim) => fs.readFileSync(`${serverDir(sim.address)}/Small/RecData/drvinfo.dat`);
const HEADER = `Exist:Yes\r\nFileName:drvinfo.dat\r\nFileTime:6553F101\r\nSize:${LARGE.toString(16).toUpperCase()}\r\n`;

test('a large file is acknowledged window by window, the header counted with the first', async (t) => {
  const sim = await startServer(t, { project: project() });
  const core = connect(sim);
  assert.ok(stored(sim).equals(BODY));
  assert.ok(core.GetDriver(names.at(-1)));
  const expected = windows(`${HEADER}Hello:Yes\r\n\r\n`.length + BODY.length);
  assert.deepEqual(expected.slice(0, 3), [131072, 120832, 110592]);
  assert.deepEqual(expected.slice(-3), [8192, 8192, 8192]);
  const requests = await acks(sim);
  assert.deepEqual(
    requests.map(({ fields }) => fields.ack),
    expected,
  );
  assert.equal(requests[0].hex, hex('4Hello20000\0'));
  assert.equal(requests[1].hex, hex('4Hello1D800\0'));
});

test('a large file without flow control is not acknowledged', async (t) => {
  const sim = await startServer(t, { project: project(), hello: false });
  connect(sim);
  assert.ok(stored(sim).equals(BODY));
  assert.deepEqual(await acks(sim), []);
});

test('a connection that ends inside a large file fails the session; the next one fetches the file again', async (t) => {
  const sim = await startServer(t, { project: project() });
  const { DBCore } = require('./support/addon.js');
  const core = new DBCore();
  await sim.setFault({ step: 'file-body', action: 'cut', bytes: 200000, count: 1 });
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), -2);
  assert.ok(stored(sim).equals(BODY.subarray(0, 200000)));
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  assert.ok(stored(sim).equals(BODY));
});

/** Sessions with two servers at one address, one after the other, over one mirror. */
async function changed(t, first, second) {
  const host = loopback(1); // where nobody else is given the first one's port
  const before = await startServer(t, { host, project: first });
  connect(before);
  const kept = `${serverDir(before.address)}.kept`;
  t.after(() => fs.rmSync(kept, { recursive: true, force: true }));
  fs.renameSync(serverDir(before.address), kept);
  await before.close();
  const sim = await startServer(t, { host, project: second, port: before.port });
  removeMirror(sim.address);
  fs.renameSync(kept, serverDir(sim.address));
  return { sim, core: connect(sim) };
}

test('driver information that has changed on the server is fetched by the next session', async (t) => {
  const drivers = [...SMALL.drivers, { name: 'D2', tags: [{ name: 'New', type: 'int32', value: 5 }] }];
  const { sim, core } = await changed(t, SMALL, { ...SMALL, drivers, time: SMALL.time + 60 });
  const [{ fields }] = await sim.requests({ command: '4' });
  assert.deepEqual(fields.headers, { lasttime: '6553F100', size: 'E', hello: 'Yes' });
  assert.equal(core.GetDriver('D2').GetTagValue('New'), 5);
});

test('driver information that has not changed is not fetched from the server that took the place', async (t) => {
  const { sim, core } = await changed(t, SMALL, SMALL);
  assert.deepEqual(await sim.requests({ command: '4' }), []);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
});
