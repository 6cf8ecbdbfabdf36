'use strict';
// Keeps the list of active alarms up to date, and shows it whenever it changes, until an alarm has ended.
//   node examples/alarms.js [ADDRESS]
const { DBCore, AlarmResult, ConnectResult } = require('VqDBAccess');
const { kAlarmSentences, kConnectSentences, plantAddress, fail } = require('./support');

const kLongestMs = 20000;

const active = new Map(); // by tag, text and begin

function show(what) {
  console.log(`${what}; active: ${[...active.values()].join(', ') || 'none'}`);
}

// An alarm is told twice: when it arises and when it ends. Times are Dates; a text that the project lacks is "???".
function onAlarm(beginTime, _endTime, tagName, ended, text, text2) {
  const key = `${tagName} ${text} ${beginTime.getTime()}`;
  if (ended === 1) active.delete(key);
  else active.set(key, `${text} (${text2})`);
  show(`${tagName} ${ended === 1 ? 'ended' : 'arose'}`);
  if (ended === 1) process.exit(0);
}

async function main() {
  const address = await plantAddress();
  const db = new DBCore();
  const result = db.Connect(address, 'operator', 'secret');
  if (result !== ConnectResult.Connected) return fail(`${address}: ${kConnectSentences[result]}.`);

  // With true, the alarms that are active now are handed over first, before the call returns.
  const subscribed = db.SetRtAlarmNotify(onAlarm, true);
  if (subscribed !== AlarmResult.Subscribed) return fail(`Alarms: ${kAlarmSentences[subscribed]}.`);
  show('Subscribed');

  setTimeout(() => {
    db.KeepALive(); // this timer holds the instance, without which session and subscription would end
    process.exit(0); // a subscription keeps the process alive
  }, kLongestMs);
}

main();

// Prints, for example
//   Water.Level arose; active: Level low (Water tank)
//   Pumps.P2.Filter dirty arose; active: Level low (Water tank), Filter dirty (Pump 2)
//   ...
//   Water.Level ended; active: Filter dirty (Pump 2)...
