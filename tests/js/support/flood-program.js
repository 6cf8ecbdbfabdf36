'use strict';
// Programs of their own that open a session with a server of FLOOD_PROJECT and talk to their test by what they print.

const { runProgram } = require('./child.js');

// Begins every program: a session, D0 with both tags connected, and a wait that gives the thread to nobody else.
const OPEN = `
  const core = new DBCore();
  if (core.Connect(args[0], 'operator', 'secret') !== 0) throw new Error('no session');
  const driver = core.GetDriver('D0');
  driver.ConnectTag('Q,M');
  const print = (line) => process.stdout.write(line + '\\n');
  const until = (condition) => { while (!condition()) Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 1); };
  const marked = (value) => driver.GetTagValue('M') === value;
`;

/** Runs OPEN and `program` against `sim`; `steps` are called in turn, one each time it prints "step". */
function runFlooded(sim, program, ...steps) {
  let taken = 0;
  const onOutput = (text) => {
    for (const printed = text.split('step\n').length - 1; taken < Math.min(printed, steps.length);) {
      steps[taken++](text);
    }
  };
  return runProgram(OPEN + program, [sim.address], { onOutput, bound: 30000 });
}

module.exports = { runFlooded };
