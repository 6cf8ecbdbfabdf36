'use strict';
// Processes with sessions that exit at a random moment, in a random way: none by a signal, none late.

const assert = require('node:assert/strict');
const { startSimulator } = require('../../../simulator');
const { runProgram } = require('../support/child.js');
const { FLOOD_PROJECT, queuedRecords } = require('../support/flood.js');

const AT_ONCE = 3;
const BOUND = 30000; // ms

// Connects again and again, follows, reads, writes; exits after a time from its start.
const PROGRAM = `
  const [address, moment, way] = args;
  const { Worker } = require('node:worker_threads');
  const idle = () => {};
  const end = () => {
    require('node:fs').writeSync(1, 'end');
    if (way === 'exit') process.exit(3);
    if (way === 'throw') throw new Error('the end');
    if (way === 'getter') core.GetDriver('D0')?.SetTagValue('Q,M', Object.defineProperty([1, 2], 0, { get: process.exit }));
    process.exit(3);
  };
  process.on('exit', () => { process.exitCode = 3; });
  const cores = [];
  let core;
  setTimeout(end, Number(moment));
  const turn = () => {
    core = new DBCore();
    cores.push(core);
    if (cores.length > 4) cores.shift();
    if (core.Connect(address, 'operator', 'secret') === 0) {
      const driver = core.GetDriver('D0');
      driver?.SetTagNotify(way === 'callback' ? () => { if (performance.now() > Number(moment)) end(); } : idle);
      driver?.ConnectTag('Q,M');
      driver?.GetTagValue('Q,none');
      driver?.SetTagValue('Q', 1);
      core.SetRtAlarmNotify(idle, true);
    }
    setImmediate(turn);
  };
  turn();
`;
const WAYS = ['exit', 'throw', 'getter', 'callback'];

module.exports = async function exits({ rounds = 200, seed }) {
  const sim = await startSimulator({ project: FLOOD_PROJECT, rate: 0 });
  const flooding = setInterval(() => sim.notifyRaw(queuedRecords(5000)).catch(() => {}), 150);
  let longest = 0;
  const ways = {};
  async function one(round) {
    const way = WAYS[(round + seed) % WAYS.length];
    const moment = Math.random() * 400;
    let ending;
    const { code, signal, stderr } = await runProgram(PROGRAM, [sim.address, String(moment), way], {
      bound: BOUND,
      onOutput: () => {
        ending ??= Date.now();
      },
    });
    assert.deepEqual([way, signal], [way, null], stderr);
    assert.ok([1, 3, 7].includes(code), `${way} at ${moment}: exit code ${code}\n${stderr}`);
    longest = Math.max(longest, Date.now() - ending);
    ways[way] = (ways[way] ?? 0) + 1;
  }
  for (let round = 0; round < rounds; round += AT_ONCE) {
    await Promise.all(Array.from({ length: Math.min(AT_ONCE, rounds - round) }, (_, i) => one(round + i)));
  }
  clearInterval(flooding);
  console.log(`   ${rounds} processes, by ${JSON.stringify(ways)}; the longest exit took ${longest} ms`);
  await sim.close();
};
