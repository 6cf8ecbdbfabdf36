'use strict';
// Running other programs from our scripts: visible, and with one clear sentence when they fail.
const { spawnSync } = require('node:child_process');

// Runs a program with its output on our terminal; ends our process when it fails.
function run(program, args, options = {}) {
  const result = spawnSync(program, args, { stdio: 'inherit', ...options });
  if (result.error) fail(`${program}: ${result.error.message}`);
  if (result.status !== 0) fail(`'${[program, ...args].join(' ')}' ended with ${result.signal ?? result.status}.`);
}

// Runs a program silently; true when it ended with 0.
function succeeds(program, args, options = {}) {
  return spawnSync(program, args, { stdio: 'ignore', ...options }).status === 0;
}

// Runs a program and gives what it printed; undefined when it failed.
function capture(program, args, options = {}) {
  const result = spawnSync(program, args, { encoding: 'utf8', maxBuffer: 1 << 26, ...options });
  return result.status === 0 ? result.stdout : undefined;
}

function fail(sentence) {
  console.error(sentence);
  process.exit(1);
}

function step(text) {
  console.log(`== ${text}`);
}

// Runs a function and prints how long it took; gives its result (a promise's when it settles).
function timed(work) {
  const start = process.hrtime.bigint();
  const tell = (result) => {
    console.log(`   ${(Number(process.hrtime.bigint() - start) / 1e9).toFixed(1)} s`);
    return result;
  };
  const result = work();
  return result instanceof Promise ? result.then(tell) : tell(result);
}

module.exports = { run, succeeds, capture, fail, step, timed };
