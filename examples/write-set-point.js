'use strict';
// Writes a set-point and waits until the new value has come back from the server.
//   node examples/write-set-point.js [ADDRESS]
const { DBCore, ConnectResult, WriteResult } = require('VqDBAccess');
const { kConnectSentences, kWriteSentences, plantAddress, fail } = require('./support');

const kSetPoint = '温度设定';
const kWaitMs = 5000;

// Resolves when the tag has that value. A write is not answered, so "sent" alone does not say that it was taken.
function written(boiler, value) {
  return new Promise((resolve) => {
    boiler.SetTagNotify((_driverName, tagName, newValue) => {
      if (tagName === kSetPoint && newValue === value) resolve(true);
    });
    setTimeout(resolve, kWaitMs, false);
  });
}

async function main() {
  const address = await plantAddress();
  const db = new DBCore();
  const result = db.Connect(address, 'operator', 'secret');
  if (result !== ConnectResult.Connected) return fail(`${address}: ${kConnectSentences[result]}.`);

  const boiler = db.GetDriver('锅炉');
  if (boiler === undefined) return fail('The project has no driver of that name.');
  const cameBack = written(boiler, 120);
  boiler.ConnectTag(kSetPoint);
  console.log(`${kSetPoint} is ${boiler.GetTagValue(kSetPoint)}.`);

  const sent = boiler.SetTagValue(kSetPoint, 120);
  console.log(`Writing 120: ${kWriteSentences[sent]}.`);
  if (sent !== WriteResult.Sent) return fail('Nothing was written.');
  if (!(await cameBack)) return fail('The server has not taken the value: is it in range, and the tag writable?');
  console.log(`${kSetPoint} is ${boiler.GetTagValue(kSetPoint)}.`);

  // Several tags take an array, one element each.
  const both = boiler.SetTagValue('备注, 燃烧率', ['checked', 50]);
  console.log(`Writing to a tag that is there and one that is not: ${kWriteSentences[both]}.`);

  db.KeepALive(); // the session lasts as long as its instance, and an instance as long as something uses it
  process.exit(0); // an installed callback keeps the process alive
}

main();

// Prints
//   温度设定 is 90.
//   Writing 120: sent.
//   温度设定 is 120.
//   Writing to a tag that is there and one that is not: sent.
