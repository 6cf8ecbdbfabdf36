#!/usr/bin/env node
'use strict';
// The package's command: npx vqdbaccess build
// Builds the native library from the sources in the package, for a machine that no prebuilt one fits. Needs a C++20
// compiler (g++ 12, clang 14 or newer), CMake 3.20 or newer, and make or Ninja; fetches nothing.
const { spawnSync } = require('node:child_process');
const path = require('node:path');

const root = path.join(__dirname, '..');
const kUsage = `usage: npx vqdbaccess build

Builds the native library of VqDBAccess from source into ${path.join(root, 'build', 'Release')}.
Needs a C++20 compiler (g++ 12, clang 14 or newer), CMake 3.20 or newer, and make or Ninja.
On Debian and its kin: apt-get install g++ cmake make`;

function fail(sentence) {
  console.error(`vqdbaccess: ${sentence}`);
  process.exit(1);
}

function isThere(program) {
  return spawnSync(program, ['--version'], { stdio: 'ignore' }).status === 0;
}

function run(program, args) {
  const { status, signal, error } = spawnSync(program, args, { stdio: 'inherit' });
  if (error) fail(`cannot start ${program}: ${error.message}`);
  if (status !== 0) fail(`'${program} ${args.join(' ')}' ended with ${signal ?? status}.`);
}

function checkTools() {
  if (!isThere('cmake')) fail('needs CMake, which is not installed (Debian: apt-get install g++ cmake make).');
  const compiler = process.env.CXX ?? ['c++', 'g++', 'clang++'].find(isThere);
  if (!compiler) fail('needs a C++ compiler, and none is installed (Debian: apt-get install g++ cmake make).');
}

function build() {
  checkTools();
  const folder = path.join(root, 'build', 'cmake', 'package');
  const headers = require('node-api-headers').include_dir;
  const settings = [
    '-DCMAKE_BUILD_TYPE=Release',
    `-DNAPI_INCLUDE_DIR=${headers}`,
    `-DVQDB_ADDON_DIR=${path.join(root, 'build', 'Release')}`,
  ];
  run('cmake', ['-S', root, '-B', folder, ...(isThere('ninja') ? ['-G', 'Ninja'] : []), ...settings]);
  run('cmake', ['--build', folder, '--target', 'VqDBAccess', '--parallel']);
  require(root); // says why when the result cannot be loaded
  console.log(`Built ${path.join(root, 'build', 'Release', 'VqDBAccess.node')}`);
}

const [command, ...rest] = process.argv.slice(2);
if (command === 'build' && rest.length === 0) {
  build();
} else {
  const asked = command === '--help' || command === '-h';
  (asked ? console.log : console.error)(kUsage);
  process.exit(asked ? 0 : 2);
}
