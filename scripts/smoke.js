'use strict';
// The package as its users meet it: packs it, checks the file, installs it into an empty folder without a network, loads
// it in both ways, reads a tag from the simulator that came with it; then, as on a machine that no prebuilt library
// fits, follows the error's advice and builds it from source.
//   npm run smoke
const { spawnSync } = require('node:child_process');
const { existsSync, mkdirSync, mkdtempSync, readdirSync, rmSync, writeFileSync } = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { architectures } = require('./cross/architectures');
const { installNpmPackages } = require('./npm-packages');
const { ensurePackages } = require('./packages');
const { capture, fail, run, step } = require('./run');

const root = path.join(__dirname, '..');
const kLimitMs = 120 * 1000; // of a consumer program

const consumers = {
  'require.cjs': `
const { DBCore, ConnectResult } = require('VqDBAccess');
const { startSimulator } = require('VqDBAccess/simulator');
`,
  'import.mjs': `
import { DBCore, ConnectResult } from 'VqDBAccess';
import { startSimulator } from 'VqDBAccess/simulator';
`,
};
const kConsumer = `
async function main() {
  const simulator = await startSimulator({ rate: 0 });
  try {
    const core = new DBCore();
    const result = core.Connect(simulator.address, 'operator', 'secret');
    if (result !== ConnectResult.Connected) throw new Error('Connect gave ' + result);
    const [driver, tag, expected] = DEMO_TAG;
    const value = core.GetDriver(driver).GetTagValue(tag);
    if (value !== expected) throw new Error(tag + ' is ' + value);
    console.log(driver + '.' + tag + ' = ' + value);
  } finally {
    await simulator.close();
  }
}
main().catch((error) => {
  console.error(error);
  process.exit(1);
});
`;

// A tag of the demo plant that keeps its number, and that number.
function demoTag() {
  const { drivers } = require('../simulator/demo-plant.json');
  for (const { name, tags } of drivers) {
    const tag = tags.find(({ value, wave }) => typeof value === 'number' && wave === undefined);
    if (tag !== undefined) return [name, tag.name, tag.value];
  }
  return fail('The demo plant has no tag that keeps a number.');
}

function pack(folder) {
  step('packing');
  run('npm', ['pack', '--loglevel=error', '--pack-destination', folder], { cwd: root });
  const file = readdirSync(folder).find((name) => name.endsWith('.tgz'));
  return path.join(folder, file);
}

function checkContent(file) {
  step('checking what is packed');
  const names = capture('tar', ['-tzf', file])
    .trim()
    .split('\n')
    .map((name) => name.replace(/^package\//, ''));
  const wanted = Object.keys(architectures).map((name) => `prebuilds/linux-${name}/VqDBAccess.node`);
  wanted.push('index.js', 'index.d.ts', 'README.md', 'CHANGELOG.md', 'bin/vqdbaccess.js', 'CMakeLists.txt');
  wanted.push(
    'simulator/cli.js',
    'simulator/demo-plant.json',
    'src/binding/binding.cpp',
    'node_modules/iconv-lite/package.json',
  );
  const missing = wanted.filter((name) => !names.includes(name));
  if (missing.length > 0) fail(`Not in the package: ${missing.join(', ')}`);
  const strange = names.filter((name) => /^(build|tests|scripts|coverage)\/|\.tgz$|\.log$/.test(name));
  if (strange.length > 0) fail(`Should not be in the package: ${strange.join(', ')}`);
  const scripts = ['preinstall', 'install', 'postinstall'].filter((name) => name in require('../package.json').scripts);
  if (scripts.length > 0) fail(`The package has install scripts: ${scripts.join(', ')}`);
  const tools = path.join(root, 'node_modules', '.bin');
  run(path.join(tools, 'publint'), [file, '--strict']);
  run(path.join(tools, 'attw'), [file]);
}

function install(file, folder) {
  step('installing into an empty folder, offline');
  mkdirSync(folder);
  writeFileSync(path.join(folder, 'package.json'), '{ "private": true }\n');
  // An empty cache: nothing may be needed but what the file holds.
  const args = ['install', '--offline', '--no-audit', '--no-fund', '--cache', path.join(folder, '.npm')];
  run('npm', [...args, file], { cwd: folder });
  return path.join(folder, 'node_modules', 'VqDBAccess');
}

function useBothWays(folder) {
  for (const [name, head] of Object.entries(consumers)) {
    step(`reading a tag: ${name}`);
    writeFileSync(path.join(folder, name), head + kConsumer.replace('DEMO_TAG', JSON.stringify(demoTag())));
    run(process.execPath, [name], { cwd: folder, timeout: kLimitMs });
  }
}

// The error that require gives in a folder without a library that fits, and the build that it advises.
function buildFromSource(folder, installed) {
  step('without a prebuilt library');
  rmSync(path.join(installed, 'prebuilds'), { recursive: true });
  const { status, stderr } = spawnSync(process.execPath, ['require.cjs'], { cwd: folder, encoding: 'utf8' });
  const message =
    /Error: (VqDBAccess has no library .*)/.exec(stderr)?.[1] ?? fail(`Another error was expected:\n${stderr}`);
  console.log(message);
  const says = [`${process.platform}-${process.arch}`, 'libc', 'npx vqdbaccess build'];
  if (status === 0 || !says.every((part) => message.includes(part))) fail('The error does not say what to do.');
  step('npx vqdbaccess build');
  run('npx', ['--offline', '--no', 'vqdbaccess', 'build'], { cwd: folder });
  useBothWays(folder);
}

function main() {
  ensurePackages('build');
  installNpmPackages({ tools: true });
  const folder = mkdtempSync(path.join(os.tmpdir(), 'vqdb-smoke-'));
  process.on('exit', () => rmSync(folder, { recursive: true, force: true }));
  const file = pack(folder);
  checkContent(file);
  const project = path.join(folder, 'project');
  const installed = install(file, project);
  if (existsSync(path.join(installed, 'build'))) fail('Installing has built something.');
  useBothWays(project);
  buildFromSource(project, installed);
  console.log('smoke: the package installs, loads and reads a tag.');
}

main();
