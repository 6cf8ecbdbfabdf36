'use strict';
// Servers that fall silent: requests end by themselves after 8 seconds. All silences pass at the same time, each in a
// process of its own.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { startServer } = require('./support/server.js');
const { patience } = require('./support/patience.js');
const { runProgram } = require('./support/child.js');

const TIME_OUT = 8000; // ms
const LATEST = patience(14000); // with room for a busy machine

// Prints what the call under test gave and how long it took.
const PROGRAM = `
  const [address, step] = args;
  const core = new DBCore();
  const timed = (call) => {
    const started = Date.now();
    const result = call();
    console.log(JSON.stringify([result === undefined ? 'undefined' : result, Date.now() - started]));
  };
  const connect = () => core.Connect(address, 'operator', 'secret');
  const use = () => core.GetDriver('D0');
  if (step === 'tagids' || step === 'read') { connect(); timed(() => use().GetTagValue('A')); }
  else if (step === 'connect') { connect(); timed(() => use().ConnectTag('A')); }
  else if (step === 'alarms') { connect(); timed(() => core.SetRtAlarmNotify(() => {}, true)); }
  else timed(connect);
  process.exit();
`;

const STEPS = [
  ['handshake1', -2],
  ['handshake2', -2],
  ['login', -2],
  ['file', -2],
  ['file-body', -2],
  ['tagids', 'undefined'],
  ['connect', 'undefined'],
  ['read', 'undefined'],
  ['alarms', -2],
];

test('a silent server is waited for 8 seconds', { concurrency: true }, async (t) => {
  await Promise.all(
    STEPS.map(([step, expected]) =>
      t.test(`at step ${step}: ${expected}`, async (one) => {
        const sim = await startServer(one, { faults: [{ step, action: 'hang' }] });
        const { stdout } = await runProgram(PROGRAM, [sim.address, step], { bound: LATEST + patience(5000) });
        const [result, elapsed] = JSON.parse(stdout);
        assert.equal(result, expected);
        assert.ok(elapsed >= TIME_OUT - 50 && elapsed < LATEST, `${elapsed} ms`);
      }),
    ),
  );
});
