'use strict';
// Workers with a busy session that are terminated at random moments, while the main thread follows and reads its own.

const assert = require('node:assert/strict');
const { startSimulator } = require('../../../simulator');
const { DBCore } = require('../support/addon.js');
const { FLOOD_PROJECT } = require('../support/flood.js');
const { settled, backTo } = require('../support/resources.js');
const { terminateAtRandom } = require('../support/workers.js');

const AT_ONCE = 3;

module.exports = async function workers({ rounds = 500 }) {
  const sim = await startSimulator({ project: FLOOD_PROJECT, rate: 0 });
  const core = new DBCore();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  const driver = core.GetDriver('D0');
  let told = 0;
  driver.SetTagNotify(() => told++);
  driver.ConnectTag('Q,M');
  await terminateAtRandom(sim); // what the first worker of a process leaves is there
  const before = await settled();
  const codes = {};
  let sessions = 0;
  for (let round = 0; round < rounds; round += AT_ONCE) {
    const group = Array.from({ length: Math.min(AT_ONCE, rounds - round) }, () => terminateAtRandom(sim, 800));
    for (const { code, connected } of await Promise.all(group)) {
      codes[code] = (codes[code] ?? 0) + 1;
      if (connected) sessions++;
    }
    assert.equal(typeof driver.GetTagValue('Q,none')[0], 'number');
  }
  await backTo(before, 'descriptors and threads');
  console.log(
    `   ${rounds} workers terminated, exit codes ${JSON.stringify(codes)}; ${sessions} of them told of` +
      ` a session; the main thread was told of ${told} changes; ${before.descriptors} descriptors and ${before.threads} threads` +
      ' before and after',
  );
  await sim.close();
};
