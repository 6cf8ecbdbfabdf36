'use strict';
// What the examples share: where to connect to, and what each result means in words.
const { AlarmResult, ConnectResult, WriteResult } = require('VqDBAccess');
const { startSimulator } = require('VqDBAccess/simulator');

const kConnectSentences = {
  [ConnectResult.Connected]: 'connected',
  [ConnectResult.Refused]: 'the server refuses this user or password',
  [ConnectResult.Failed]: 'no connection, no answer in time, or the driver information could not be fetched',
  [ConnectResult.OutOfPlace]: 'something answers there that is no tag database server',
};

const kWriteSentences = {
  [WriteResult.Sent]: 'sent',
  [WriteResult.NoRight]: 'this user may not write',
  [WriteResult.NotSent]: 'not sent: the session is gone, or the server does not answer',
  [WriteResult.BadArgument]: 'no such tag, or a value that cannot be written',
};

const kAlarmSentences = {
  [AlarmResult.Subscribed]: 'subscribed',
  [AlarmResult.AlreadySubscribed]: 'subscribed before; the first callback stays',
  [AlarmResult.Failed]: 'not subscribed: the server does not answer; try again later',
  [AlarmResult.MissingArguments]: 'SetRtAlarmNotify needs a callback and true or false',
};

/** The address given on the command line, else that of a simulated plant, which ends with this program. */
async function plantAddress(options) {
  return process.argv[2] ?? (await startSimulator(options)).address;
}

/** Ends the program with a sentence on standard error. */
function fail(sentence) {
  console.error(sentence);
  process.exit(1);
}

module.exports = { kConnectSentences, kWriteSentences, kAlarmSentences, plantAddress, fail };
