'use strict';
// All that must hold before a change lands, one job after another; a job that fails does not keep the others from
// running. Ends with how long each took and the line "N passed, N failed" over all of them.
//   node scripts/ci.js [JOB...]
const { spawn } = require('node:child_process');
const path = require('node:path');
const { fail, step } = require('./run');

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
};

// Runs npm with its output on our terminal; resolves to its exit code and the last counts that it printed, or to one
// passed or failed where it counts nothing.
function runJob(args) {
  return new Promise((resolve, reject) => {
    const env = { ...process.env, VQDB_WERROR: '1' };
    const child = spawn('npm', args, { cwd: path.join(__dirname, '..'), stdio: ['ignore', 'pipe', 'inherit'], env });
    let rest = '';
    let counts;
    child.stdout.setEncoding('utf8').on('data', (text) => {
      process.stdout.write(text);
      rest = (rest + text).slice(-1000);
      counts = [...rest.matchAll(/^(\d+) passed, (\d+) failed/gm)].at(-1) ?? counts;
    });
    child.on('error', reject);
    child.on('close', (code) => {
      const [passed, failed] = counts ? counts.slice(1).map(Number) : [code === 0 ? 1 : 0, 0];
      resolve({ passed, failed: code !== 0 && failed === 0 ? 1 : failed });
    });
  });
}

async function main(names) {
  const chosen = names.length > 0 ? names : Object.keys(jobs);
  if (!chosen.every((name) => name in jobs)) fail(`The jobs are: ${Object.keys(jobs).join(', ')}`);
  const results = [];
  for (const name of chosen) {
    step(`job ${name}`);
    const since = Date.now();
    const result = await runJob(jobs[name]);
    results.push({ job: name, ...result, seconds: Math.round((Date.now() - since) / 1000) });
  }
  console.table(results);
  const sum = (key) => results.reduce((total, result) => total + result[key], 0);
  console.log(`${sum('passed')} passed, ${sum('failed')} failed`);
  process.exit(sum('failed') === 0 ? 0 : 1);
}

main(process.argv.slice(2));
