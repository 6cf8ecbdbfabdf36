'use strict';
// Line and branch coverage of src/ by all tests, C++ and JavaScript: npm run coverage [-- --min PERCENT]
// Ends with each line that no test reaches, then the figures; ends with 1 when a test failed or when fewer lines than
// --min (95) per cent were reached. A page to click through lies in build/coverage/index.html.
const { mkdirSync, readdirSync, readFileSync, rmSync } = require('node:fs');
const path = require('node:path');
const { parseArgs } = require('node:util');
const { installNpmPackages } = require('./npm-packages');
const { ensurePackages } = require('./packages');
const { fail, run, step } = require('./run');
const { runCpp, runJs } = require('./runners');

const root = path.join(__dirname, '..');
const buildDir = path.join(root, 'build', 'cmake', 'coverage');
const pageDir = path.join(root, 'build', 'coverage');

function leastPercent() {
  const { values } = parseArgs({ options: { min: { type: 'string', default: '95' } } });
  const percent = Number(values.min);
  if (!(percent >= 0 && percent <= 100)) fail('--min takes a percentage.');
  return percent;
}

function build() {
  ensurePackages('build', 'tests', 'coverage');
  installNpmPackages();
  run('cmake', ['--preset', 'coverage'], { cwd: root, stdio: ['ignore', 'ignore', 'inherit'] });
  run('cmake', ['--build', buildDir]);
}

// Counts of an earlier run would be added to.
function forgetCounts() {
  for (const name of readdirSync(buildDir, { recursive: true })) {
    if (name.endsWith('.gcda')) rmSync(path.join(buildDir, name));
  }
}

function test() {
  step('C++ tests');
  const cpp = runCpp(buildDir);
  step('JavaScript tests');
  const js = runJs(buildDir, { env: { ...process.env, VQDB_TEST_ADDON: path.join(buildDir, 'VqDBAccess.node') } });
  return cpp.ok && js.ok;
}

// Branches that the compiler adds for exceptions, which no line of ours decides, are left out.
function measure() {
  mkdirSync(pageDir, { recursive: true });
  const report = path.join(pageDir, 'coverage.json');
  const filters = ['--root', root, '--filter', `${path.join(root, 'src')}/`, '--object-directory', buildDir];
  const kinds = ['--exclude-throw-branches', '--exclude-unreachable-branches'];
  const outputs = ['--json', report, '--html-details', path.join(pageDir, 'index.html')];
  run('gcovr', [...filters, ...kinds, ...outputs, buildDir]);
  const { files } = JSON.parse(readFileSync(report, 'utf8'));
  return files.map(({ file, lines }) => ({ file, lines: lines.filter((line) => !line['gcovr/noncode']) }));
}

function printUnreached(files) {
  step('lines that no test reaches');
  for (const { file, lines } of files) {
    const source = readFileSync(path.join(root, file), 'utf8').split('\n');
    for (const { line_number: number, count } of lines) {
      if (count === 0) console.log(`${file}:${number}: ${source[number - 1].trim()}`);
    }
  }
}

// Of one kind of thing, how many there are and how many were reached.
function share(things) {
  const reached = things.filter(({ count }) => count > 0).length;
  return { reached, all: things.length, percent: (100 * reached) / Math.max(things.length, 1) };
}

function printShare(name, { reached, all, percent }) {
  console.log(`${name}: ${percent.toFixed(1)} % (${reached} of ${all})`);
}

function printFolders(files) {
  const folders = new Map();
  for (const { file, lines } of files) {
    const folder = path.dirname(file);
    folders.set(folder, [...(folders.get(folder) ?? []), ...lines]);
  }
  step('lines by folder');
  for (const [folder, lines] of folders) printShare(folder, share(lines));
}

const least = leastPercent();
build();
forgetCounts();
const passed = test();
const files = measure();
printUnreached(files);
printFolders(files);
const lines = share(files.flatMap((file) => file.lines));
step('coverage of src/');
printShare('lines', lines);
printShare('branches', share(files.flatMap((file) => file.lines.flatMap((line) => line.branches))));
process.exit(passed && lines.percent >= least ? 0 : 1);
