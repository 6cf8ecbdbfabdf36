'use strict';
// The test runners. They show their progress here, leave their reports in the build folder and give
// { passed, failed, skipped, failures, ok }; `failures` is a text for each failed test, its name first; `ok` is false
// also when the runner itself failed.
const { spawn, spawnSync } = require('node:child_process');
const { existsSync, mkdirSync, readdirSync, readFileSync, rmSync } = require('node:fs');
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

// What the report of one run of a GoogleTest program says; `output` is what the program printed.
function countGoogleTest(xml, output) {
  const [head] = xml.match(/<testsuites[^>]*>/);
  const [tests, failed, disabled] = ['tests', 'failures', 'disabled'].map((name) =>
    Number(head.match(new RegExp(`\\b${name}="(\\d+)"`))[1]),
  );
  const skipped = disabled + xml.split('result="skipped"').length - 1;
  const failures = [...output.matchAll(/^\[ RUN {6}\] (\S+)\n([^]*?)^\[ {2}FAILED {2}\] \1/gm)];
  return {
    passed: tests - failed - skipped,
    failed,
    skipped,
    failures: failures.map(([, name, printed]) => `${name}\n${lastLines(printed, 40)}`),
  };
}

// Runs a program and resolves to its exit code (undefined: ended by a signal) and what it printed.
function collect(command, env) {
  return new Promise((resolve) => {
    const child = spawn(command[0], command.slice(1), { env, stdio: ['ignore', 'pipe', 'pipe'], timeout: fileLimit });
    const parts = [];
    for (const stream of [child.stdout, child.stderr]) stream.on('data', (part) => parts.push(part));
    child.on('error', (error) => resolve({ output: error.message }));
    child.on('close', (code) => resolve({ code, output: Buffer.concat(parts).toString() }));
  });
}

const shards = 2;

// One of the two halves of a C++ test program.
async function runShard({ program, shard, emulator, env }) {
  const report = `${program}.${shard}.xml`;
  rmSync(report, { force: true });
  const sharding = { GTEST_TOTAL_SHARDS: String(shards), GTEST_SHARD_INDEX: String(shard) };
  const command = [...emulator, program, `--gtest_output=xml:${report}`];
  const { code, output } = await collect(command, { ...env, ...sharding });
  const result = { ...readReport(report, (xml) => countGoogleTest(xml, output)), ok: code === 0 };
  if (!result.ok && result.failed === 0) result.failures.push(`${program} ended early\n${lastLines(output, 40)}`);
  console.log(`${path.basename(program)}, half ${shard + 1}: ${result.passed} passed, ${result.failed} failed`);
  return result;
}

// All C++ tests of a build folder without a process for each, which takes an emulator longer than most tests do.
async function runCppWhole(buildDir, { emulator = [], env = process.env } = {}) {
  const folder = path.join(buildDir, 'tests');
  const programs = readdirSync(folder)
    .map((name) => path.join(folder, name, `vqdb_${name}_tests`))
    .filter((program) => existsSync(program));
  // Both halves of one program at a time.
  const left = programs.flatMap((program) =>
    Array.from({ length: shards }, (_, shard) => ({ program, shard, emulator, env })),
  );
  const results = [];
  const work = async () => {
    while (left.length > 0) results.push(await runShard(left.shift()));
  };
  await Promise.all(Array.from({ length: shards }, work));
  const broken = results.find((result) => !result.ok && result.failed === 0);
  const sum = (name) => results.reduce((total, result) => total + result[name], 0);
  return {
    passed: sum('passed'),
    failed: sum('failed') + (broken ? 1 : 0),
    skipped: sum('skipped'),
    failures: results.flatMap((result) => result.failures),
    ok: results.every((result) => result.ok),
  };
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

module.exports = { concurrency, failureMark, limitOption, runCpp, runCppWhole, jsTests, runJs, conclude };
