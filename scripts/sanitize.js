'use strict';
// Runs the suites under sanitizers. Nothing of our own code is suppressed; any report fails the run.
//   npm run test:asan    AddressSanitizer, UndefinedBehaviorSanitizer, LeakSanitizer: C++ tests, then the JavaScript
//                        tests with the library of that build loaded into Node.js
//   npm run test:tsan    ThreadSanitizer: C++ tests
// Further arguments are handed to ctest, or choose JavaScript tests: npm run test:asan -- --js tag-read reconnect
const { execFileSync, spawnSync } = require('node:child_process');
const { mkdirSync, realpathSync, rmSync } = require('node:fs');
const path = require('node:path');
const { ensurePackages } = require('./packages');
const { run, succeeds, fail, step } = require('./run');
const { concurrency, jsTests, limitOption } = require('./runners');
const { frameFormat, readReports } = require('./sanitizer-reports');

const root = path.join(__dirname, '..');
const buildDir = (preset) => path.join(root, 'build', 'cmake', preset);

const environments = {
  asan: {
    ASAN_OPTIONS: 'detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1',
    UBSAN_OPTIONS: 'print_stacktrace=1',
  },
  tsan: { TSAN_OPTIONS: 'halt_on_error=1:second_deadlock_stack=1' },
};

function build(preset) {
  ensurePackages('build', 'tests');
  step(`building with preset ${preset}`);
  run('cmake', ['--preset', preset], { cwd: root, stdio: ['ignore', 'ignore', 'inherit'] });
  run('cmake', ['--build', buildDir(preset)]);
}

// JavaScript tests that do not load the library of the build.
const withoutLibrary = /^(simulator\.|docs$|loader$)/;

// ThreadSanitizer needs the usual address layout, which kernels with more random bits than it knows do not give.
function withFixedLayout(command) {
  return succeeds('setarch', ['-R', 'true']) ? ['setarch', '-R', ...command] : command;
}

function runCpp(preset, extra) {
  step(`C++ tests, ${preset}`);
  const ctest = ['ctest', '--test-dir', buildDir(preset), '-j', '2', '--output-on-failure', '--progress', ...extra];
  const [program, ...args] = preset === 'tsan' ? withFixedLayout(ctest) : ctest;
  return spawnSync(program, args, { stdio: 'inherit', env: { ...process.env, ...environments[preset] } }).status === 0;
}

// For Node.js processes, of which tests start many: the reports go to files, so that what a process prints and its exit
// code are its own, and leaks do not change that code. Other errors end the process at once.
function nodeEnvironment(reports) {
  const log = `log_path=${path.join(reports, 'report')}:stack_trace_format=${frameFormat}`;
  return {
    ...process.env,
    ASAN_OPTIONS: `${environments.asan.ASAN_OPTIONS}:abort_on_error=1:${log}`,
    UBSAN_OPTIONS: `${environments.asan.UBSAN_OPTIONS}:${log}`,
    LSAN_OPTIONS: 'exitcode=0',
    // The sanitizer must be in the process before Node.js starts.
    LD_PRELOAD: realpathSync(execFileSync('g++', ['-print-file-name=libasan.so'], { encoding: 'utf8' }).trim()),
    VQDB_TEST_ADDON: path.join(buildDir('asan'), 'VqDBAccess.node'),
    VQDB_TEST_SLOWNESS: '3',
  };
}

function runJs(names) {
  step('JavaScript tests, asan');
  const isChosen = (name) => (names.length === 0 ? !withoutLibrary.test(name) : names.includes(name));
  const files = jsTests().filter((file) => isChosen(path.basename(file, '.test.js')));
  if (files.length === 0) fail(`No such JavaScript tests: ${names.join(', ')}`);
  const reports = path.join(buildDir('asan'), 'reports');
  rmSync(reports, { recursive: true, force: true });
  mkdirSync(reports);
  const args = ['--test', concurrency, ...limitOption(process.execPath), ...files];
  const { status } = spawnSync(process.execPath, args, { stdio: 'inherit', env: nodeEnvironment(reports) });
  const concerns = readReports(reports);
  for (const concern of concerns) console.log(concern);
  if (concerns.length > 0) console.log(`${concerns.length} reports concern us; all of them are in ${reports}.`);
  return status === 0 && concerns.length === 0;
}

function main([preset, ...rest]) {
  if (!(preset in environments)) fail(`usage: node scripts/sanitize.js ${Object.keys(environments).join('|')}`);
  build(preset);
  const js = rest.indexOf('--js');
  const failed = [];
  if (js < 0 && !runCpp(preset, rest)) failed.push('C++');
  if (preset === 'asan' && !runJs(js < 0 ? [] : rest.slice(js + 1))) failed.push('JavaScript');
  if (failed.length > 0) fail(`${preset}: failed in the ${failed.join(' and ')} tests.`);
  console.log(`${preset}: clean.`);
}

main(process.argv.slice(2));
