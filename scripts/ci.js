'use strict';
// All that must hold before a change lands, one job after another; a job that fails does not keep the others from
// running. Ends with what failed, how long each took and the line "N passed, N failed" over all of them.
//   node scripts/ci.js [JOB...]
const { spawn } = require('node:child_process');
const path = require('node:path');
const { createInterface } = require('node:readline');
const { fail, step } = require('./run');
const { failureMark } = require('./runners');

const jobs = {
  test: ['test'],
  types: ['run', 'test:types'],
  // Without the step 'gcc': the first job has built with it, warnings being errors.
  lint: ['run', 'lint', '--', 'clang-format', 'prettier', 'eslint', 'cppcheck', 'clang-tidy', 'clang'],
  asan: ['run', 'test:asan'],
  tsan: ['run', 'test:tsan'],
  fuzz: ['run', 'fuzz', '--', '--seconds', '5', '--jobs', '2'],
  arm: ['run', 'test:arm', '--', '--quick'],
  arm64: ['run', 'test:arm64', '--', '--quick'],
  smoke: ['run', 'smoke'],
  bench: ['run', 'bench', '--', '--seconds', '0.1'], // that it runs: a busy machine's figures mean nothing
};

// What an npm command printed of interest: its last counts, what failed by its own account, and its last lines.
class Output {
  constructor() {
    this.counts = undefined;
    this.failures = [];
    this.last = [];
  }

  add(line) {
    const counts = line.match(/^(\d+) passed, (\d+) failed/);
    if (counts) this.counts = counts.slice(1).map(Number);
    if (counts) this.inFailure = false;
    if (line.startsWith(failureMark)) this.inFailure = true;
    if (this.inFailure) this.failures.push(line);
    this.last = [...this.last, line].slice(-40);
  }

  // What to show of a job that failed.
  account() {
    return (this.failures.length > 0 ? this.failures : this.last).join('\n');
  }
}

// Runs npm with its output on our terminal; resolves to its counts (one passed or failed where it counts nothing) and
// the account of what failed.
function runJob(args) {
  return new Promise((resolve, reject) => {
    const env = { ...process.env, VQDB_WERROR: '1' };
    const child = spawn('npm', args, { cwd: path.join(__dirname, '..'), stdio: ['ignore', 'pipe', 'pipe'], env });
    const output = new Output();
    for (const stream of [child.stdout, child.stderr]) {
      createInterface({ input: stream }).on('line', (line) => {
        console.log(line);
        output.add(line);
      });
    }
    child.on('error', reject);
    child.on('close', (code) => {
      const [passed, counted] = output.counts ?? [code === 0 ? 1 : 0, 0];
      const failed = code !== 0 && counted === 0 ? 1 : counted;
      resolve({ passed, failed, account: failed > 0 ? output.account() : '' });
    });
  });
}

async function main(names) {
  const chosen = names.length > 0 ? names : Object.keys(jobs);
  if (!chosen.every((name) => name in jobs)) fail(`The jobs are: ${Object.keys(jobs).join(', ')}`);
  const results = [];
  const accounts = [];
  for (const name of chosen) {
    step(`job ${name}`);
    const since = Date.now();
    const { passed, failed, account } = await runJob(jobs[name]);
    results.push({ job: name, passed, failed, seconds: Math.round((Date.now() - since) / 1000) });
    if (failed > 0) accounts.push(`== job ${name} failed:\n${account}`);
  }
  console.log(accounts.join('\n'));
  console.table(results);
  const sum = (key) => results.reduce((total, result) => total + result[key], 0);
  console.log(`${sum('passed')} passed, ${sum('failed')} failed`);
  process.exit(sum('failed') === 0 ? 0 : 1);
}

main(process.argv.slice(2));
