'use strict';
// Checks the sources: format, suspicious code, warnings of both compilers.
//   npm run lint              all of it
//   npm run lint -- STEP...   some steps (see `steps`)
//   npm run format            formats the sources (clang-format, ESLint's own corrections, prettier)
const { createHash } = require('node:crypto');
const { existsSync, mkdirSync, readdirSync, readFileSync, writeFileSync } = require('node:fs');
const path = require('node:path');
const { spawn, spawnSync } = require('node:child_process');
const { installNpmPackages } = require('./npm-packages');
const { ensurePackages } = require('./packages');
const { fail, run, step, timed } = require('./run');

const root = path.join(__dirname, '..');
const inModules = (name) => path.join(root, 'node_modules', '.bin', name);

function sources(folder, ...suffixes) {
  const entries = readdirSync(path.join(root, folder), { withFileTypes: true });
  return entries
    .sort((a, b) => (a.name < b.name ? -1 : 1))
    .flatMap((entry) => {
      const name = path.join(folder, entry.name);
      if (entry.isDirectory()) return sources(name, ...suffixes);
      return suffixes.some((suffix) => name.endsWith(suffix)) ? [name] : [];
    });
}

const cppSources = () => ['src', 'tests', 'bench'].flatMap((folder) => sources(folder, '.cpp', '.h'));

// Runs a program in the checkout; true when it found nothing.
function isClean(program, args) {
  return spawnSync(program, args, { cwd: root, stdio: 'inherit' }).status === 0;
}

function configure(preset) {
  run('cmake', ['--preset', preset], { cwd: root, stdio: ['ignore', 'ignore', 'inherit'] });
  return path.join(root, 'build', 'cmake', preset);
}

// Both compilers, all of the code, warnings as errors.
function compile(preset) {
  const folder = configure(preset);
  return isClean('cmake', ['--build', folder]);
}

function tidyFile(file, buildDir) {
  return new Promise((resolve) => {
    const child = spawn('clang-tidy-14', ['-p', buildDir, '--quiet', file], { cwd: root });
    let output = '';
    const collect = (text) => {
      output += text;
    };
    for (const stream of [child.stdout, child.stderr]) stream.setEncoding('utf8').on('data', collect);
    child.on('close', (code) => resolve({ code, output }));
  });
}

// Files of src/ that were found clean as they are now, with the headers and settings of now, are not looked at again.
async function tidy() {
  const buildDir = configure('debug');
  const passed = path.join(buildDir, 'tidy');
  mkdirSync(passed, { recursive: true });
  const read = (names) => names.map((name) => readFileSync(path.join(root, name)));
  const common = createHash('sha256');
  for (const bytes of read(['.clang-tidy', 'cmake/Options.cmake', ...sources('src', '.h')])) common.update(bytes);
  const stampOf = (file) =>
    path.join(
      passed,
      common
        .copy()
        .update(file)
        .update(read([file])[0])
        .digest('hex'),
    );
  const files = sources('src', '.cpp').filter((file) => !existsSync(stampOf(file)));
  let clean = true;
  const work = async () => {
    for (let file = files.shift(); file !== undefined; file = files.shift()) {
      const { code, output } = await tidyFile(file, buildDir);
      if (code === 0) writeFileSync(stampOf(file), '');
      else console.log(output);
      clean = clean && code === 0;
    }
  };
  await Promise.all([work(), work()]);
  return clean;
}

function cppcheck() {
  const args = [
    '--enable=warning,style,performance,portability',
    '--inline-suppr',
    '--error-exitcode=1',
    '--quiet',
    '-j2',
  ];
  args.push('--std=c++20', '--language=c++', '--library=posix', '--suppressions-list=.cppcheck-suppressions');
  return isClean('cppcheck', [...args, '-Isrc', '-D__linux__', '-D__GLIBC__=2', 'src']);
}

const steps = {
  'clang-format': () => isClean('clang-format-14', ['--dry-run', '-Werror', ...cppSources()]),
  prettier: () => isClean(inModules('prettier'), ['--check', '--log-level=warn', '.']),
  eslint: () => isClean(inModules('eslint'), ['--max-warnings=0', '.']),
  cppcheck,
  'clang-tidy': tidy,
  gcc: () => compile('debug'),
  clang: () => compile('clang'),
};

function format() {
  run('clang-format-14', ['-i', ...cppSources()], { cwd: root });
  // Where prettier breaks a line ESLint wants braces, which prettier then puts in their places.
  run(inModules('prettier'), ['--write', '--log-level=warn', '.'], { cwd: root });
  run(inModules('eslint'), ['--fix', '.'], { cwd: root });
  run(inModules('prettier'), ['--write', '--log-level=warn', '.'], { cwd: root });
}

async function lint(names) {
  const unclean = [];
  for (const name of names) {
    step(name);
    if (!(await timed(steps[name]))) unclean.push(name);
  }
  if (unclean.length > 0) fail(`Not clean: ${unclean.join(', ')}. 'npm run format' mends what is a matter of format.`);
  console.log('lint: clean.');
}

const names = process.argv.slice(2).filter((name) => name !== '--fix');
if (!names.every((name) => name in steps)) fail(`usage: npm run lint -- [${Object.keys(steps).join('|')}]...`);
ensurePackages('build', 'tests', 'lint');
installNpmPackages({ tools: true });
if (process.argv.includes('--fix')) format();
else lint(names.length > 0 ? names : Object.keys(steps));
