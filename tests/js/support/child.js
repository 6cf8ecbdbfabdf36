'use strict';
// Programs of their own: for what blocks, prints, exits or dies.

const path = require('node:path');
const { spawn } = require('node:child_process');
const { patience } = require('./patience.js');

const BOUND = patience(10000); // ms
const ADDON = path.join(__dirname, 'addon.js');

/**
 * Runs `program` (text) in a Node.js of its own with `DBCore` and `args` at hand. Resolves to { code, signal, stdout,
 * stderr } when it has ended; after the bound it is killed, which shows as signal 'SIGKILL'. `onOutput` is called with
 * all that it has printed so far. Without `load` the program's main thread does not load the library. `limits` is what
 * the shell's ulimit takes.
 */
function runProgram(program, args = [], { bound = BOUND, onOutput = () => {}, load = true, limits } = {}) {
  const addon = load ? `const { DBCore } = require(${JSON.stringify(ADDON)});` : '';
  const source = `${addon}\nconst args = process.argv.slice(1);\n${program}`;
  const limited = limits === undefined ? [] : ['sh', '-c', `ulimit ${limits} && exec "$0" "$@"`];
  const [command, ...rest] = [...limited, process.execPath, '-e', source, ...args];
  const { VQDB_TEST_PRELOAD: preload } = process.env; // see addon.js
  const env = preload === undefined ? process.env : { ...process.env, LD_PRELOAD: preload };
  const child = spawn(command, rest, { stdio: ['ignore', 'pipe', 'pipe'], env });
  const result = { stdout: '', stderr: '' };
  for (const stream of ['stdout', 'stderr']) {
    child[stream].setEncoding('utf8').on('data', (text) => {
      result[stream] += text;
      if (stream === 'stdout') onOutput(result.stdout);
    });
  }
  const timer = setTimeout(() => child.kill('SIGKILL'), bound);
  return new Promise((resolve) => {
    child.on('close', (code, signal) => {
      clearTimeout(timer);
      resolve({ ...result, code, signal });
    });
  });
}

module.exports = { runProgram };
