'use strict';
// Sessions that begin and end, ended by either side at random states: descriptors, threads and memory over time.

const { startSimulator } = require('../../../simulator');
const { SMALL } = require('../support/server.js');
const { cycles: cyclesOf } = require('../support/cycles.js');
const { settled, backTo } = require('../support/resources.js');
const { memory, slope } = require('./memory.js');

const WARM_UP = 200;
const REPORTS = 20;

const mega = (bytes) => (bytes / 2 ** 20).toFixed(2).padStart(8);

module.exports = async function cycles({ rounds = 10000, seed }) {
  const sim = await startSimulator({ project: SMALL, rate: 0, record: 1000 });
  const run = cyclesOf(sim, seed);
  await run.some(WARM_UP);
  const before = await settled();
  const rows = [];
  console.log('     cycles  resident     malloc  JavaScript  MiB; descriptors, threads');
  const report = async (done) => {
    const now = { done, ...memory(), ...(await settled()) };
    rows.push(now);
    console.log(
      `   ${String(done).padStart(8)}  ${mega(now.rss)}   ${mega(now.heap)}    ${mega(now.js)}       ` +
        `${now.descriptors}, ${now.threads}`,
    );
  };
  const step = Math.max(5, Math.floor(rounds / REPORTS / 5) * 5);
  await report(0);
  for (let done = 0; done < rounds;) {
    const count = Math.min(step, rounds - done);
    await run.some(count);
    done += count;
    await report(done);
  }
  await backTo(before, 'descriptors and threads');
  const half = rows.slice(Math.floor(rows.length / 2));
  const trend = (name) =>
    slope(
      half.map(({ done }) => done),
      half.map((row) => row[name]),
    ).toFixed(1);
  console.log(`   results of Connect ${JSON.stringify(run.results)}; 0 descriptors and 0 threads left over`);
  console.log(
    `   trend of the second half, bytes a cycle: resident ${trend('rss')}, malloc ${trend('heap')}, ` +
      `JavaScript ${trend('js')}`,
  );
  await sim.close();
};
