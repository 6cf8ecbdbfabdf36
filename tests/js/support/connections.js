'use strict';
// The connections that a simulated server has.

const assert = require('node:assert/strict');
const { patience } = require('./patience.js');

/** Waits until the server has so many connections: it learns of their ends one after another. */
async function untilConnections(sim, count) {
  for (const deadline = Date.now() + patience(5000); ;) {
    const now = await sim.connections();
    if (now.length === count) return;
    if (Date.now() > deadline) assert.equal(now.length, count, 'connections of the server');
  }
}

module.exports = { untilConnections };
