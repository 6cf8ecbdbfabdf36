'use strict';
// What the tests of the simulator share: a small project, and a simulator that ends with its test.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn } = require('node:child_process');
const { startSimulator } = require('../../../simulator');

const CLI = path.join(__dirname, '../../../simulator/cli.js');

/** A project with two drivers; `extra` stands over its fields. */
const smallPlant = (extra = {}) => ({
  name: 'Plant',
  second: 'two',
  time: 0x65e6c2f9,
  users: [
    { name: 'operator', password: 'secret', rights: 0x0a0b0c08 },
    { name: 'viewer', password: 'viewer', rights: 7 },
  ],
  drivers: [
    {
      name: 'A',
      tags: [
        { name: 'word', type: 'int16', value: 0x1234 },
        { name: 'text', type: 'string', value: 'AB' },
        { name: 'real', type: 'double', value: 3 },
        { name: 'fixed', type: 'uint8', value: 9, access: 'r' },
        { name: 'held', type: 'int32', value: 5, range: [0, 10] },
      ],
    },
    { name: '锅炉', id: 7, tags: [{ name: '温度', type: 'float', value: 1.5 }] },
  ],
  ...extra,
});

/** A simulator of the small plant without padding; `options` stand over that. Closed when the test ends. */
async function simulate(t, options = {}) {
  const sim = await startSimulator({ project: smallPlant(), notifyBlock: 0, ...options });
  t.after(() => sim.close());
  return sim;
}

function tempDir(t) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'simulator-test-'));
  t.after(() => fs.rmSync(folder, { recursive: true, force: true }));
  return folder;
}

/** The command with these arguments; killed when the test ends. */
function command(t, args, stdin = 'ignore') {
  const child = spawn(process.execPath, [CLI, ...args], { stdio: [stdin, 'pipe', 'pipe'] });
  const run = { child, stdout: '', stderr: '' };
  child.stdout.on('data', (data) => {
    run.stdout += data;
  });
  child.stderr.on('data', (data) => {
    run.stderr += data;
  });
  run.exit = new Promise((resolve) => child.on('close', (code, signal) => resolve({ code, signal })));
  run.ready = new Promise((resolve) => child.stdout.on('data', () => run.stdout.includes('\n') && resolve()));
  t.after(() => child.kill('SIGKILL'));
  return run;
}

module.exports = { smallPlant, simulate, tempDir, command };
