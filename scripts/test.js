'use strict';
// Runs all tests, C++ by CTest and JavaScript by node --test, and ends with one line "N passed, N failed".
const { spawnSync } = require('node:child_process');
const { readdirSync, readFileSync } = require('node:fs');
const path = require('node:path');
const { step } = require('./run');

const root = path.join(__dirname, '..');
const buildDir = path.join(root, 'build', 'cmake', 'release');

// Both runners show their progress here and leave their counts in a file.
function runCpp() {
  step('C++ tests');
  const report = path.join(buildDir, 'ctest.xml');
  const args = ['--test-dir', buildDir, '-j', '2', '--output-on-failure', '--output-junit', report, '--progress'];
  const { status } = spawnSync('ctest', args, { stdio: 'inherit' });
  const suite = readFileSync(report, 'utf8').match(/<testsuite[^>]*>/)[0];
  const count = (name) => Number(suite.match(new RegExp(`\\b${name}="(\\d+)"`))[1]);
  const failed = count('failures');
  return { passed: count('tests') - failed - count('disabled') - count('skipped'), failed, ok: status === 0 };
}

function runJs() {
  step('JavaScript tests');
  const folder = path.join(root, 'tests', 'js');
  const files = readdirSync(folder).filter((name) => name.endsWith('.test.js')).map((name) => path.join(folder, name));
  const report = path.join(buildDir, 'js.tap');
  const args = ['--test', '--test-concurrency=2', '--test-reporter=spec', '--test-reporter-destination=stdout',
    '--test-reporter=tap', `--test-reporter-destination=${report}`, ...files];
  const { status } = spawnSync(process.execPath, args, { stdio: ['ignore', 'inherit', 'inherit'] });
  const tap = readFileSync(report, 'utf8');
  const count = (name) => Number(tap.match(new RegExp(`^# ${name} (\\d+)$`, 'm'))[1]);
  return { passed: count('pass'), failed: count('fail') + count('cancelled'), ok: status === 0 };
}

const results = [runCpp(), runJs()];
const sum = (name) => results.reduce((total, result) => total + result[name], 0);
// A runner that failed without a failed test (a crash of its own) counts as one failure.
const failed = sum('failed') + results.filter((result) => !result.ok && result.failed === 0).length;
console.log(`${sum('passed')} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
