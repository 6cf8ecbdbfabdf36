'use strict';
// One instance for each server; one of them is away. A display would run this in a worker: see in-a-worker.js.
//   node examples/several-servers.js [ADDRESS...]
const { DBCore, ConnectResult } = require('VqDBAccess');
const { startSimulator } = require('VqDBAccess/simulator');
const { kConnectSentences } = require('./support');

const kRounds = 3;
const kRoundMs = 500;

async function simulatedPlants() {
  const [first, second, away] = await Promise.all([startSimulator(), startSimulator(), startSimulator()]);
  await away.close();
  return [first.address, second.address, away.address];
}

// Sessions do not disturb each other, but Connect and reads block the thread: one after the other. A server that
// refuses costs nothing; one whose machine is off holds all others up for the system's connect time-out.
function connectAll(addresses) {
  return addresses.map((address, i) => {
    const db = new DBCore();
    const result = db.Connect(address, 'operator', 'secret');
    console.log(`plant ${i + 1}: ${kConnectSentences[result]}`);
    return { name: `plant ${i + 1}`, db, up: result === ConnectResult.Connected };
  });
}

function readLevel({ name, db, up }) {
  if (!up) return `${name}: away`;
  const level = db.GetDriver('Water')?.GetTagValue('Level'); // undefined: the session is gone, or the tag unknown
  return `${name}: ${level === undefined ? 'away' : 'there'}`;
}

async function main() {
  const addresses = process.argv.length > 2 ? process.argv.slice(2) : await simulatedPlants();
  const plants = connectAll(addresses); // holds the instances: each session lasts as long as its own
  for (let round = 0; round < kRounds; round++) {
    console.log(plants.map(readLevel).join(', '));
    await new Promise((resolve) => setTimeout(resolve, kRoundMs));
  }
}

main();

// Prints
//   plant 1: connected
//   plant 2: connected
//   plant 3: no connection, no answer in time, or the driver information could not be fetched
//   plant 1: there, plant 2: there, plant 3: away
//   plant 1: there, plant 2: there, plant 3: away
//   plant 1: there, plant 2: there, plant 3: away
