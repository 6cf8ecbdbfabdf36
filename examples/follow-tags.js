'use strict';
// Follows the changes of two tags, and connects again when the server was gone.
//   node examples/follow-tags.js [ADDRESS]
const { DBCore, ConnectResult } = require('VqDBAccess');
const { kConnectSentences, plantAddress, fail } = require('./support');

const kEnough = 6; // changes after which this example ends
const kLongestMs = 20000;

let changes = 0;

function onChange(driverName, tagName, value) {
  console.log(`${driverName} ${tagName} = ${typeof value === 'number' ? value.toFixed(1) : value}`);
  changes += 1;
  if (changes === kEnough) process.exit(0); // an installed callback keeps the process alive
}

// Callbacks and connected tags belong to a session: each new one needs them anew.
function openSession(db, address) {
  const result = db.Connect(address, 'operator', 'secret');
  if (result !== ConnectResult.Connected) return result;
  const boiler = db.GetDriver('锅炉');
  if (boiler === undefined) fail('The project has no driver of that name.');
  boiler.SetTagNotify(onChange);
  boiler.ConnectTag('温度, 燃烧器');
  // The values of connected tags are here from now on: reading them asks no server.
  console.log(`温度 is a ${typeof boiler.GetTagValue('温度')}.`);
  return result;
}

async function main() {
  const address = await plantAddress();
  const db = new DBCore();
  const result = openSession(db, address);
  if (result !== ConnectResult.Connected) fail(`${address}: ${kConnectSentences[result]}.`);

  // Nothing is called when the server goes away: a program that must go on looks for itself. This timer also holds the
  // instance, without which the session would end.
  setInterval(() => {
    if (db.GetDriver('锅炉') !== undefined) return;
    console.log(`The session is gone. Again: ${kConnectSentences[openSession(db, address)]}.`);
  }, 1000);

  setTimeout(() => fail('Hardly anything changes there.'), kLongestMs);
}

main();

// Prints, for example
//   温度 is a number.
//   锅炉 温度 = 8...
//   ...
//   锅炉 温度 = 8...
