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

function fail(sentence) {
  console.error(sentence);
  process.exit(1);
}

function step(text) {
  console.log(`== ${text}`);
}

module.exports = { run, succeeds, fail, step };
