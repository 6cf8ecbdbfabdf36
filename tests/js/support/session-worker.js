'use strict';
// A worker with a session of its own. What it does is told by its workerData:
//   address    of a server of FLOOD_PROJECT
//   busy       reads, writes, subscribes and follows without end; else it waits
//   then       statements to run at the end, which know core, driver and post
// It posts { result, value, own } when its session stands, and every change that it is told of.

const { parentPort, workerData } = require('node:worker_threads');
const { DBCore } = require('./addon.js');

const { address, busy = false, then = '' } = workerData;
const core = DBCore(); // the plain call gives an instance of this environment's class
const post = (message) => parentPort.postMessage(message);
let told = 0;

const result = core.Connect(address, 'operator', 'secret');
const driver = core.GetDriver('D0');
driver?.SetTagNotify((...change) => {
  told++;
  post({ change });
});
driver?.ConnectTag('Q,M');
post({ result, value: driver?.GetTagValue('M'), own: core instanceof DBCore });

function keepBusy() {
  driver.GetTagValue('unknown');
  driver.SetTagValue('Q', told);
  core.SetRtAlarmNotify(() => {}, true);
  if (told % 10 === 9) core.Connect(address, 'operator', 'secret');
  setImmediate(keepBusy);
}
if (busy && driver !== undefined) keepBusy();

// eslint-disable-next-line no-new-func
new Function('core', 'driver', 'post', then)(core, driver, post);
