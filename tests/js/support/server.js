'use strict';
// Sessions of the library with a simulated server: starts servers and ends them, keeps instances alive as long as a
// test needs them, and leaves no mirror behind.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { after, afterEach, before } = require('node:test');
const { DBCore } = require('./addon.js');
const { collectAll } = require('./collect.js');
const { untilConnections } = require('./connections.js');
const { patience } = require('./patience.js');
const { startSimulator } = require('../../../simulator');

const MIRRORS = '/tmp/vqbrowser';
const held = new Set(); // instances in use: the session of a collected one ends
const made = []; // WeakRefs of all instances

/** The mirror's directory for all projects of an address. */
const serverDir = (address) => `${MIRRORS}/${address.replaceAll(':', '_')}`;

const removeMirror = (address) => fs.rmSync(serverDir(address), { recursive: true, force: true });

// Two drivers. Tag ids count from 0 within a driver: A is 0, B is 1, ...
const SMALL = {
  name: 'Small',
  time: 1700000000,
  drivers: [
    {
      name: 'D0',
      tags: [
        { name: 'A', type: 'double', value: 1.5 },
        { name: 'B', type: 'int32', value: 7 },
        { name: 'C', type: 'string', value: 'see' },
        { name: 'D', type: 'bool', value: true },
        { name: 'E', type: 'uint8', value: 200 },
        { name: 'F', type: 'double', value: 6 },
      ],
    },
    {
      name: 'D1',
      tags: [
        { name: 'A', type: 'int16', value: -2 },
        { name: 'B', type: 'double', value: 0.25 },
      ],
    },
  ],
};

/** Starts a server without waveforms; by default it serves SMALL. */
async function start(options) {
  const sim = await startSimulator({ project: SMALL, rate: 0, ...options });
  removeMirror(sim.address); // of an earlier server that had this port
  const { waitFor } = sim;
  sim.waitFor = (event, match, limits) => waitFor(event, match, { timeout: patience(10000), ...limits });
  return sim;
}

async function end(sim) {
  await sim.close();
  removeMirror(sim.address);
}

/** A server for the length of one test. */
async function startServer(t, options) {
  const sim = await start(options);
  t.after(() => end(sim));
  return sim;
}

/** A server for all tests of a file. Between tests its sessions end and its record and faults are cleared. */
function sharedServer(options) {
  const sim = {};
  before(async () => {
    Object.assign(sim, await start(options));
  });
  afterEach(async () => {
    held.clear();
    await sim.closeAll();
    await sim.clearFaults();
    await sim.clearRequests();
  });
  after(() => sim.close && end(sim));
  return sim;
}

/** An instance that is not collected before the test ends. */
function newCore() {
  const core = new DBCore();
  held.add(core);
  made.push(new WeakRef(core));
  return core;
}

/** An instance with a session. */
function connect(sim, user = 'operator', password = 'secret') {
  const core = newCore();
  assert.equal(core.Connect(sim.address, user, password), 0);
  return core;
}

/** A driver of a session of its own, whose handshake is not in the record. */
async function openDriver(sim, name = 'D0', user = 'operator', password = 'secret') {
  const core = connect(sim, user, password);
  const driver = core.GetDriver(name);
  assert.ok(driver, `driver ${name}`);
  await sim.clearRequests();
  return driver;
}

/** The bytes of the recorded requests, as hexadecimal text, in order; all or those with a command. */
async function sent(sim, command) {
  const requests = await sim.requests(command === undefined ? {} : { command });
  return requests.map(({ hex }) => hex);
}

/** Ends all sessions and subscriptions of the process by collecting their instances. */
function collectInstances() {
  held.clear();
  return collectAll(made, 'the instances are collected');
}

/** To be run after the last test of a file with alarm subscriptions, which keep a process alive. */
async function endSubscriptions() {
  await collectInstances();
  setTimeout(() => process.exit(1), patience(10000)).unref(); // fires only if something is left that does
}

/** Waits until the library has noticed that its server is gone. */
async function untilGone(core, driverName, bound = patience(5000)) {
  const deadline = Date.now() + bound;
  while (core.GetDriver(driverName) !== undefined) {
    assert.ok(Date.now() < deadline, 'the session ends');
    await new Promise(setImmediate);
  }
}

module.exports = {
  SMALL,
  MIRRORS,
  serverDir,
  removeMirror,
  startServer,
  sharedServer,
  newCore,
  connect,
  openDriver,
  sent,
  untilGone,
  untilConnections,
  collectInstances,
  endSubscriptions,
};
