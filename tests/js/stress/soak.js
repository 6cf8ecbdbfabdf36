'use strict';
// Half an hour as on a panel: changes come in, tags are read and written, and every few seconds the session ends, by
// either side, and is opened again. What the process holds at the end is what it held after the first minute.

const assert = require('node:assert/strict');
const { setTimeout: pause } = require('node:timers/promises');
const { startSimulator } = require('../../../simulator');
const { DBCore } = require('../support/addon.js');
const { collectAll } = require('../support/collect.js');
const { resources, backTo } = require('../support/resources.js');
const { memory, slope } = require('./memory.js');

const SESSION = 3000; // ms
const TURN = 20; // ms between two rounds of requests
const ROUND = 60000; // ms between two rows of figures

const mega = (bytes) => (bytes / 2 ** 20).toFixed(2).padStart(8);
const count = { sessions: 0, reads: 0, writes: 0, changes: 0, alarms: 0, failed: 0 };

function open(core, address) {
  assert.equal(core.Connect(address, 'operator', 'secret'), 0);
  count.sessions++;
  const driver = core.GetDriver('Water');
  driver.SetTagNotify(() => count.changes++);
  driver.ConnectTag('Level,Flow,LevelSetPoint');
  return driver;
}

// One session of an instance: requests until its time is over, or until the server has gone.
async function useFor(core, address, ms) {
  const driver = open(core, address);
  for (const end = Date.now() + ms; Date.now() < end; await pause(TURN)) {
    const wanted = count.writes % 100; // per cent
    const result = driver.SetTagValue('ValvePosition', wanted);
    const read = driver.GetTagValue('ValvePosition');
    count.writes++;
    count.reads++;
    if (result === 0 && read !== undefined) assert.equal(read, wanted);
    else count.failed++; // the server has ended the session
    driver.GetTagValue('Level,Flow,Inlet pressure,TotalVolume');
    count.reads++;
  }
}

// Three sessions of one instance, which then is nobody's any more: ended by Connect, by the server, by the collector.
async function instance(sim) {
  const core = new DBCore();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  assert.equal(
    core.SetRtAlarmNotify(() => count.alarms++, true),
    0,
  );
  await useFor(core, sim.address, SESSION);
  setTimeout(() => sim.closeAll(), SESSION * 0.9);
  await useFor(core, sim.address, SESSION);
  await useFor(core, sim.address, SESSION);
  return new WeakRef(core);
}

async function figures(since, rows) {
  const now = { minutes: (Date.now() - since) / 60000, ...memory(), ...resources() };
  rows.push(now);
  console.log(
    `   ${now.minutes.toFixed(1).padStart(6)}   ${mega(now.rss)}  ${mega(now.heap)}    ${mega(now.js)}       ` +
      `${now.descriptors}, ${now.threads}        ${Object.values(count).join(', ')}`,
  );
}

module.exports = async function soak({ rounds = 30 }) {
  const sim = await startSimulator({ rate: 20, record: 1000 });
  const rows = [];
  const since = Date.now();
  console.log(
    `   minutes   resident    malloc  JavaScript  MiB; descriptors, threads; ${Object.keys(count).join(', ')}`,
  );
  let first;
  for (let next = ROUND; rows.length <= rounds;) {
    await collectAll([await instance(sim)], 'an instance');
    if (Date.now() - since < next) continue;
    first ??= resources();
    await backTo(first, 'descriptors and threads');
    await figures(since, rows);
    next += ROUND;
  }
  const trend = (name) =>
    slope(
      rows.map(({ minutes }) => minutes),
      rows.map((row) => row[name]),
    ).toFixed(0);
  console.log(
    `   trend from the first minute on, bytes a minute: resident ${trend('rss')}, malloc ${trend('heap')}, ` +
      `JavaScript ${trend('js')}`,
  );
  await sim.close();
};
