'use strict';
// One session of the library against a server that knows nothing but the examples of PROTOCOL.md: each request must be
// the example's, byte for byte, and gets the example's reply. Run as a program; prints one line of JSON with what the
// library made of it: { connect, read, written, ..., answered: names of examples, wrong: null or what did not fit }.

const fs = require('node:fs');
const net = require('node:net');
const path = require('node:path');
const { Worker, isMainThread, parentPort } = require('node:worker_threads');
const { readExamples, piecesOf } = require('./protocol-examples.js');
const { patience } = require('./patience.js');

const examples = readExamples();
const request = (name) => piecesOf(examples.get(name), '->')[0];
const reply = (name) => Buffer.concat(piecesOf(examples.get(name), '<-'));

// After the registrations.
const SCRIPT = [
  'login',
  'file, new',
  'tag ids, batch',
  'read',
  'connect',
  'write, one tag',
  'write, several tags',
  'alarms',
  'file, current',
  'file, missing',
];

// --- the server, in a thread of its own because Connect blocks

function serve() {
  const steps = [...SCRIPT];
  const answered = [];
  let notification = null;
  let wrong = null;

  function fail(socket, text) {
    wrong ??= text;
    socket.destroy();
  }

  // Registrations differ from attempt to attempt; the test of the examples decodes them.
  function register(socket, bytes) {
    const letter = String.fromCharCode(bytes[0]);
    const example = { 7: 'first exchange, direct', 8: 'second exchange' }[letter];
    if (example === undefined) return fail(socket, `registration ${bytes.toString('hex')}`);
    if (letter === '7' && bytes.length !== request(example).length) fail(socket, `'7' of ${bytes.length} bytes`);
    if (letter === '8') notification = socket;
    return socket.write(reply(example));
  }

  // A write has no reply, so that two requests may come together.
  function answer(socket, bytes) {
    let rest = bytes;
    while (rest.length > 0) {
      const expected = steps.length > 0 ? request(steps[0]) : Buffer.alloc(0);
      if (rest.length < expected.length && expected.subarray(0, rest.length).equals(rest)) return rest;
      if (expected.length === 0 || !rest.subarray(0, expected.length).equals(expected)) {
        fail(socket, `expected "${steps[0]}" ${expected.toString('hex')}, got ${rest.toString('hex')}`);
        return Buffer.alloc(0);
      }
      rest = rest.subarray(expected.length);
      socket.write(reply(steps[0]));
      answered.push(steps.shift());
    }
    return rest;
  }

  const server = net.createServer({ noDelay: true }, (socket) => {
    let registered = false;
    let held = Buffer.alloc(0);
    socket
      .on('error', () => {})
      .on('data', (bytes) => {
        if (registered) held = answer(socket, Buffer.concat([held, bytes]));
        else register(socket, bytes);
        registered = true;
      });
  });
  server.listen(0, '127.0.0.1', () => parentPort.postMessage({ port: server.address().port }));
  parentPort.on('message', (message) => {
    if (message === 'notify') notification.write(reply('notification records'));
    else parentPort.postMessage({ answered, wrong });
  });
}

// --- the client

const nextMessage = (worker) => new Promise((resolve) => worker.once('message', resolve));

function useSession(core, driver, changes, alarms, mirror) {
  const results = {};
  results.read = driver.GetTagValue('温度, NoSuch,Setpoint,Mode');
  driver.SetTagNotify((...change) => changes.push(change));
  driver.ConnectTag('温度,Mode');
  results.written = driver.SetTagValue('Setpoint', 3);
  results.writtenList = driver.SetTagValue('温度,Setpoint,Mode', [true, 41.5, '手动']);
  const list = path.join(mirror, 'Plant', 'RecData', 'textlist');
  fs.writeFileSync(list, piecesOf(examples.get('line list'), '==')[0]);
  fs.utimesSync(list, 1709622489, 1709622489);
  results.subscribed = core.SetRtAlarmNotify((...alarm) => alarms.push(alarm), true);
  return results;
}

async function run() {
  const { DBCore } = require('./addon.js');
  const worker = new Worker(__filename);
  const { port } = await nextMessage(worker);
  const mirror = `/tmp/vqbrowser/127.0.0.1_${port}`;
  const removeMirror = () => fs.rmSync(mirror, { recursive: true, force: true });
  removeMirror(); // of an earlier server that had this port
  process.on('exit', removeMirror);
  const core = new DBCore();
  const [changes, alarms] = [[], []];
  const connect = core.Connect(`127.0.0.1:${port}`, 'operator', 'secret');
  const driver = core.GetDriver('锅炉');
  const results = driver ? useSession(core, driver, changes, alarms, mirror) : {};
  worker.postMessage('notify');
  const end = Date.now() + patience(5000);
  while (alarms.length < 2 && Date.now() < end) await new Promise(setImmediate);
  worker.postMessage('report');
  const report = await nextMessage(worker);
  const line = JSON.stringify({ connect, ...results, changes, alarms, ...report });
  process.stdout.write(`${line}\n`, () => process.exit(0)); // the callbacks would keep the process alive
}

if (isMainThread) run();
else serve();
