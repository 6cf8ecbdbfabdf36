'use strict';
// Prints how soon the end of a session is through, and fails above the limits.

const { startSimulator } = require('../../../simulator');
const { SMALL } = require('../support/server.js');
const measures = require('../support/latency.js');

// ms
const LIMITS = {
  readWhenServerDies: 100,
  readWhenServerCloses: 100,
  disconnectBySecondConnect: 200,
  disconnectByCollection: 200,
};

async function measure(name, rounds) {
  const times = [];
  for (let round = 0; round < rounds; round++) {
    const sim = await startSimulator({ project: SMALL, rate: 0 });
    try {
      times.push(await measures[name](sim));
    } finally {
      await sim.close();
    }
  }
  return times.sort((a, b) => a - b);
}

module.exports = async function latency({ rounds = 20 }) {
  const over = [];
  for (const [name, limit] of Object.entries(LIMITS)) {
    const times = await measure(name, rounds);
    const at = (part) => times[Math.min(times.length - 1, Math.floor(part * times.length))].toFixed(2);
    console.log(`   ${name}: median ${at(0.5)} ms, longest ${at(1)} ms of ${rounds}; limit ${limit} ms`);
    if (times.at(-1) > limit) over.push(name);
  }
  if (over.length > 0) throw new Error(`over the limit: ${over.join(', ')}`);
};
