'use strict';
// The session in a worker thread: while it waits for a slow server, the main thread goes on drawing.
//   node examples/in-a-worker.js [ADDRESS]
const { Worker, isMainThread, parentPort, workerData } = require('node:worker_threads');
const { DBCore, ConnectResult, WriteResult } = require('VqDBAccess');
const { kConnectSentences, kWriteSentences, plantAddress, fail } = require('./support');

const kFrameMs = 50;
const kSetPoint = 1200;
const kLongestMs = 20000;

// The worker: connects, tells of changes, and writes what it is asked to write.
function serve({ address, driverName, tags }) {
  const db = new DBCore();
  const result = db.Connect(address, 'operator', 'secret'); // blocks this thread alone
  if (result !== ConnectResult.Connected) {
    parentPort.postMessage({ problem: kConnectSentences[result] });
    return;
  }
  const driver = db.GetDriver(driverName);
  if (driver === undefined) {
    parentPort.postMessage({ problem: `there is no driver ${driverName}` });
    return;
  }
  driver.SetTagNotify((_driverName, tag, value) => parentPort.postMessage({ change: { tag, value } }));
  driver.ConnectTag(tags);
  parentPort.postMessage({ connected: true });
  parentPort.on('message', ({ tag, value }) => {
    const sent = driver.SetTagValue(tag, value);
    if (sent !== WriteResult.Sent) parentPort.postMessage({ problem: kWriteSentences[sent] });
    db.KeepALive(); // this listener holds the instance, without which the session would end
  });
}

// The main thread: draws, and never waits.
async function display() {
  const address = await plantAddress({ faults: [{ step: 'login', action: 'delay', ms: 1000 }] }); // a slow server
  const worker = new Worker(__filename, { workerData: { address, driverName: 'Pumps', tags: 'P1.SpeedSetPoint' } });
  let frames = 0;
  const drawing = setInterval(() => {
    frames += 1;
  }, kFrameMs);
  const limit = setTimeout(() => fail('The value does not come back.'), kLongestMs);

  worker.on('error', (error) => fail(error.message));
  worker.on('message', async ({ problem, connected, change }) => {
    if (problem) fail(`The worker tells: ${problem}.`);
    if (connected) {
      console.log(`Connected; drawn meanwhile: ${frames > 5 ? 'more than five frames' : 'hardly anything'}.`);
      worker.postMessage({ tag: 'P1.SpeedSetPoint', value: kSetPoint });
    }
    if (change) console.log(`${change.tag} = ${change.value}`);
    if (change?.value !== kSetPoint) return;
    clearInterval(drawing);
    clearTimeout(limit);
    await worker.terminate(); // ends the session, too
    console.log('The worker has ended.');
  });
}

if (isMainThread) display();
else serve(workerData);

// Prints
//   Connected; drawn meanwhile: more than five frames.
//   P1.SpeedSetPoint = 1200
//   The worker has ended.
