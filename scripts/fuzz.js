'use strict';
// Runs the fuzz harnesses one after another and ends with a table of what each one did.
//   npm run fuzz -- [--seconds N] [--only NAME[,NAME...]] [--jobs N]
// --seconds: for each harness (60). --jobs: how many at a time (1).
// Inputs that reach something new are kept in build/fuzz/corpus/NAME and tried first the next time; an input that
// failed lies in build/fuzz/findings. Ends with 1 when there was a finding.
const { spawn } = require('node:child_process');
const { mkdirSync, openSync, closeSync, readFileSync, readdirSync, rmSync } = require('node:fs');
const path = require('node:path');
const { parseArgs } = require('node:util');
const { ensurePackages } = require('./packages');
const { run, fail, step } = require('./run');

const root = path.join(__dirname, '..');
const seedsDir = path.join(root, 'tests', 'fuzz', 'corpus');
const programsDir = path.join(root, 'build', 'cmake', 'fuzz', 'tests', 'fuzz');
const workDir = path.join(root, 'build', 'fuzz');
const findingsDir = path.join(workDir, 'findings');

// Bounds of one run of a harness. What the code under test prints is thrown away; reports are not.
const limits = ['-timeout=10', '-rss_limit_mb=2048', '-malloc_limit_mb=64', '-close_fd_mask=3'];

function options() {
  const { values } = parseArgs({
    options: {
      seconds: { type: 'string', default: '60' },
      only: { type: 'string', default: '' },
      jobs: { type: 'string', default: '1' },
    },
  });
  const all = readdirSync(seedsDir).sort();
  const names = values.only === '' ? all : values.only.split(',');
  const unknown = names.find((name) => !all.includes(name));
  if (unknown !== undefined) fail(`There is no harness '${unknown}'. There are: ${all.join(', ')}.`);
  const [seconds, jobs] = [Number(values.seconds), Number(values.jobs)];
  if (!(seconds > 0) || !(jobs > 0)) fail('--seconds and --jobs take a number above 0.');
  return { seconds, jobs, names };
}

function build(names) {
  ensurePackages('build', 'fuzz');
  run('cmake', ['--preset', 'fuzz'], { cwd: root, stdio: ['ignore', 'ignore', 'inherit'] });
  run('cmake', [
    '--build',
    path.join(root, 'build', 'cmake', 'fuzz'),
    '--target',
    ...names.map((name) => `fuzz_${name}`),
  ]);
}

// The figures of a run, from what libFuzzer printed.
function summary(name, log, ok) {
  const last = (pattern) => [...log.matchAll(pattern)].at(-1)?.[1] ?? '-';
  return {
    harness: name,
    executions: Number(last(/number_of_executed_units: (\d+)/g)) || 0,
    'per second': Number(last(/average_exec_per_sec: +(\d+)/g)) || 0,
    edges: Number(last(/cov: (\d+)/g)) || 0,
    corpus: Number(last(/corp: (\d+)/g)) || 0,
    result: ok ? 'ok' : 'FINDING',
  };
}

// What a harness that crashed could not remove: its scratch directory and its place among the mirrors.
function removeLeftovers(pid) {
  const address = `127.${(pid >> 16) & 255}.${(pid >> 8) & 255}.${pid & 255}`;
  for (const place of [`/dev/shm/vqdb-fuzz-${pid}`, `/tmp/vqdb-fuzz-${pid}`, `/tmp/vqbrowser/${address}_7`]) {
    rmSync(place, { recursive: true, force: true });
  }
}

function fuzz(name, seconds) {
  const corpus = path.join(workDir, 'corpus', name);
  const log = path.join(workDir, `${name}.log`);
  mkdirSync(corpus, { recursive: true });
  const args = [
    ...limits,
    `-max_total_time=${seconds}`,
    '-print_final_stats=1',
    `-dict=${path.join(root, 'tests', 'fuzz', 'wire.dict')}`,
    `-artifact_prefix=${findingsDir}/${name}-`,
    corpus,
    path.join(seedsDir, name),
  ];
  const output = openSync(log, 'w');
  return new Promise((resolve) => {
    const child = spawn(path.join(programsDir, `fuzz_${name}`), args, { stdio: ['ignore', output, output] });
    child.on('error', (error) => fail(error.message));
    child.on('close', (code) => {
      closeSync(output);
      const text = readFileSync(log, 'latin1');
      if (code !== 0) console.log(text.slice(-6000));
      removeLeftovers(child.pid);
      resolve(summary(name, text, code === 0));
    });
  });
}

// Works off the names, several at a time.
async function fuzzAll({ seconds, jobs, names }) {
  const waiting = [...names];
  const results = [];
  const worker = async () => {
    for (let name = waiting.shift(); name !== undefined; name = waiting.shift()) {
      step(`${name}, ${seconds} s`);
      results.push(await fuzz(name, seconds));
    }
  };
  await Promise.all(Array.from({ length: jobs }, worker));
  return results.sort((a, b) => names.indexOf(a.harness) - names.indexOf(b.harness));
}

async function main() {
  const chosen = options();
  build(chosen.names);
  mkdirSync(findingsDir, { recursive: true });
  const results = await fuzzAll(chosen);
  console.table(results);
  const findings = results.filter((result) => result.result !== 'ok').map((result) => result.harness);
  if (findings.length > 0) fail(`Findings in ${findings.join(', ')}: see ${findingsDir} and the reports above.`);
  console.log('No findings.');
}

main();
