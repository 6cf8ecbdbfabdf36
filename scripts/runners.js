'use strict';
// The two test runners. Both show their progress here, leave their report in the build folder and give
// { passed, failed, skipped, failures, ok }; `failures` is a text for each failed test, its name first; `ok` is false
// also when the runner itself failed.
const { spawnSync } = require('node:child_process');
const { mkdirSync, readdirSync, readFileSync, rmSync } = require('node:fs');
const { availableParallelism } = require('node:os');
const path = require('node:path');

const root = path.join(__dirname, '..');
const failureMark = '== failed: ';

function readReport(file, parse) {
  try {
    return parse(readFileSync(file, 'utf8'));
  } catch {
    return { passed: 0, failed: 0, skipped: 0, failures: [] }; // the runner ended before it wrote one
  }
}

const lastLines = (text, count) => text.trimEnd().split('\n').slice(-count).join('\n');
const entities = { lt: '<', gt: '>', quot: '"', apos: "'", amp: '&' };
const unescapeXml = (text) => text.replace(/&(lt|gt|quot|apos|amp);/g, (_, name) => entities[name]);

// The failed tests of a JUnit report, each with the end of what it printed.
function failuresOfJunit(xml) {
  const failed = xml.matchAll(/<testcase name="([^"]*)"[^>]*status="fail"[^>]*>([^]*?)<\/testcase>/g);
  return [...failed].map(([, name, body]) => {
    const output = body.match(/<system-out>([^]*?)<\/system-out>/)?.[1] ?? '';
    return `${unescapeXml(name)}\n${unescapeXml(lastLines(output, 40))}`;
  });
}

// The failed tests of a TAP report, each with its diagnostics.
function failuresOfTap(tap) {
  const failed = tap.matchAll(/^( *)not ok \d+ - (.*)\n\1 {2}---\n([^]*?)\n\1 {2}\.\.\.$/gm);
  return [...failed].map(([, , name, diagnostics]) => `${name}\n${diagnostics}`);
}

function countJunit(xml) {
  const suite = xml.match(/<testsuite[^>]*>/)[0];
  const count = (name) => Number(suite.match(new RegExp(`\\b${name}="(\\d+)"`))[1]);
  const failed = count('failures');
  const skipped = count('disabled') + count('skipped');
  return { passed: count('tests') - failed - skipped, failed, skipped, failures: failuresOfJunit(xml) };
}

function countTap(tap) {
  const count = (name) => Number(tap.match(new RegExp(`^# ${name} (\\d+)$`, 'm'))[1]);
  return {
    passed: count('pass'),
    failed: count('fail') + count('cancelled'),
    skipped: count('skipped') + count('todo'),
    failures: failuresOfTap(tap),
  };
}

// CTest in a build folder; `filter` keeps the tests whose names match.
function runCpp(buildDir, { env = process.env, filter } = {}) {
  const report = path.join(buildDir, 'ctest.xml');
  rmSync(report, { force: true });
  const args = ['--test-dir', buildDir, '-j', '2', '--output-on-failure', '--output-junit', report, '--progress'];
  if (filter !== undefined) args.push('-R', filter);
  const { status } = spawnSync('ctest', args, { stdio: 'inherit', env });
  return { ...readReport(report, countJunit), ok: status === 0 };
}

// Files of JavaScript tests that run at a time: they wait more than they compute.
const concurrency = `--test-concurrency=${2 * availableParallelism()}`;

// The files of JavaScript tests.
function jsTests() {
  const folders = ['tests/js', 'tests/js/lifetime'].map((folder) => path.join(root, folder));
  const testsIn = (folder) => readdirSync(folder).filter((name) => name.endsWith('.test.js'));
  return folders.flatMap((folder) => testsIn(folder).map((name) => path.join(folder, name)));
}

// A call into the library that never returned could not be ended from within its process. In ms, for a file of tests.
const fileLimit = 300000;

// The limit as Node.js takes it; versions before 20.11 have none.
function limitOption(node) {
  const help = spawnSync(node, ['--help'], { encoding: 'utf8' }).stdout ?? '';
  return help.includes('--test-timeout') ? [`--test-timeout=${fileLimit}`] : [];
}

// The JavaScript tests under the Node.js program `node`; `filter` keeps the files whose names contain it, `without`
// leaves out those whose paths below tests/js match it.
function runJs(buildDir, { node = process.execPath, env = process.env, filter = '', without = /$^/ } = {}) {
  const isLeftOut = (file) => without.test(path.relative(path.join(root, 'tests', 'js'), file));
  const files = jsTests().filter((file) => path.basename(file).includes(filter) && !isLeftOut(file));
  const report = path.join(buildDir, 'js.tap');
  mkdirSync(buildDir, { recursive: true });
  rmSync(report, { force: true });
  const args = [
    '--test',
    concurrency,
    ...limitOption(node),
    '--test-reporter=spec',
    '--test-reporter-destination=stdout',
  ];
  args.push('--test-reporter=tap', `--test-reporter-destination=${report}`);
  const { status } = spawnSync(node, [...args, ...files], { stdio: ['ignore', 'inherit', 'inherit'], env });
  return { ...readReport(report, countTap), ok: status === 0 };
}

// Prints once more what failed, then the closing line "N passed, N failed[, N skipped]"; gives the exit code. A runner
// that failed without a failed test (a crash of its own), or that found no test, counts as one failure.
function conclude(results) {
  const sum = (name) => results.reduce((total, result) => total + result[name], 0);
  const broken = results.filter((result) => result.failed === 0 && (!result.ok || result.passed === 0)).length;
  const failed = sum('failed') + broken;
  const skipped = sum('skipped');
  results.flatMap((result) => result.failures).forEach((failure) => console.log(`${failureMark}${failure}\n`));
  console.log(`${sum('passed')} passed, ${failed} failed${skipped > 0 ? `, ${skipped} skipped` : ''}`);
  return failed === 0 ? 0 : 1;
}

module.exports = { concurrency, failureMark, limitOption, runCpp, jsTests, runJs, conclude };
