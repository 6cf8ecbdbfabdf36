'use strict';
// Connects, reads one tag and then several, and ends.
//   node examples/connect-and-read.js [ADDRESS]
const { DBCore, ConnectResult } = require('VqDBAccess');
const { plantAddress, fail } = require('./support');

async function main() {
  const address = await plantAddress();
  const db = new DBCore();
  switch (db.Connect(address, 'operator', 'secret')) {
    case ConnectResult.Connected:
      break;
    case ConnectResult.Refused:
      return fail('The server refuses this user or password.');
    case ConnectResult.Failed:
      return fail(`No session with ${address}: no connection, no answer in time, or no driver information.`);
    case ConnectResult.OutOfPlace:
      return fail(`Something answers at ${address} that is no tag database server.`);
  }

  const pumps = db.GetDriver('Pumps');
  if (pumps === undefined) return fail('The project has no driver of that name.');

  // One tag gives its value. A tag that the server does not know gives undefined, and so does a failed read.
  console.log('P1.SpeedSetPoint =', pumps.GetTagValue('P1.SpeedSetPoint'));
  console.log('P9.Speed =', pumps.GetTagValue('P9.Speed'));

  // Several give an array, in the order of the list: none of these names was asked for before.
  console.log('P1 and P2 run:', pumps.GetTagValue('P1.Running, P2.Running'));

  db.KeepALive(); // the session lasts as long as its instance, and an instance as long as something uses it
}

main();

// Prints
//   P1.SpeedSetPoint = 1450
//   P9.Speed = undefined
//   P1 and P2 run: [ true, false ]
