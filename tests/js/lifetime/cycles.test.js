'use strict';
// Sessions that begin and end many times, ended by either side at any state: nothing is left over.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { startServer, collectInstances, untilConnections } = require('../support/server.js');
const { cycles } = require('../support/cycles.js');
const { settled, backTo } = require('../support/resources.js');

test('a hundred sessions that either side ends at random states leave no descriptor and no thread', async (t) => {
  const sim = await startServer(t, { hello: false });
  const run = cycles(sim, 1);
  await run.some(20); // every kind once
  const before = await settled();
  await run.some(100);
  await backTo(before, 'descriptors and threads');
  await collectInstances();
  await untilConnections(sim, 0);
  assert.ok(run.results[0] > 50, `sessions: ${JSON.stringify(run.results)}`);
});
