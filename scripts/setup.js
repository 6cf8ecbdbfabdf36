'use strict';
// Brings the checkout to where its programs run: system packages, npm packages, the built add-on.
//   node scripts/setup.js           the add-on
//   node scripts/setup.js --tests   and the C++ test programs
// With VQDB_WERROR in the environment warnings are errors. Does only what is missing, so that a second run takes about a
// second. Uses Node.js's own modules alone.
const { existsSync, readFileSync, rmSync, statSync } = require('node:fs');
const path = require('node:path');
const { installNpmPackages } = require('./npm-packages');
const { ensurePackages } = require('./packages');
const { run, step } = require('./run');

const root = path.join(__dirname, '..');
const buildDir = path.join(root, 'build', 'cmake', 'release');

function configure(tests) {
  const cache = path.join(buildDir, 'CMakeCache.txt');
  const configured = existsSync(cache) && (!tests || /^VQDB_TESTS:BOOL=ON$/m.test(readFileSync(cache, 'utf8')));
  if (configured) return;
  step('configuring the build');
  const strict = process.env.VQDB_WERROR === undefined ? [] : ['-DVQDB_WERROR=ON'];
  run('cmake', ['--preset', 'release', ...strict, ...(tests ? ['-DVQDB_TESTS=ON'] : [])], { cwd: root });
}

function build(tests) {
  step(tests ? 'building the add-on and the C++ tests' : 'building the add-on');
  run('cmake', ['--build', buildDir, '--target', tests ? 'all' : 'VqDBAccess'], { cwd: root });
}

// The loader would take it before what was built now.
function removeOlderPrebuilt() {
  const prebuilt = path.join(root, 'prebuilds', `${process.platform}-${process.arch}`, 'VqDBAccess.node');
  const built = path.join(root, 'build', 'Release', 'VqDBAccess.node');
  if (existsSync(prebuilt) && statSync(prebuilt).mtimeMs < statSync(built).mtimeMs) rmSync(prebuilt);
}

const tests = process.argv.includes('--tests');
ensurePackages(...(tests ? ['build', 'tests'] : ['build']));
installNpmPackages();
configure(tests);
build(tests);
removeOlderPrebuilt();
