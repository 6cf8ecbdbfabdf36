'use strict';
// The system packages that a build needs, installed when they are missing and may be installed.
const { existsSync } = require('node:fs');
const { run, succeeds, fail, step } = require('./run');

// What each purpose needs: the package, and a program or file that shows it is there.
const needs = {
  build: [
    { name: 'g++', program: 'g++' },
    { name: 'cmake', program: 'cmake' },
    { name: 'ninja-build', program: 'ninja' },
  ],
  tests: [{ name: 'libgtest-dev', file: '/usr/src/googletest/CMakeLists.txt' }],
  coverage: [{ name: 'gcovr', program: 'gcovr' }],
  lint: [
    { name: 'clang-14', program: 'clang++-14' },
    { name: 'clang-format-14', program: 'clang-format-14' },
    { name: 'clang-tidy-14', program: 'clang-tidy-14' },
    { name: 'cppcheck', program: 'cppcheck' },
  ],
  fuzz: [
    { name: 'clang-14', program: 'clang++-14' },
    { name: 'libclang-rt-14-dev', file: '/usr/lib/llvm-14/lib/clang/14.0.6/include/fuzzer' },
  ],
};

function isThere(need) {
  return need.file ? existsSync(need.file) : succeeds(need.program, ['--version']);
}

// Installs what the purposes (keys of `needs`) lack, or ends the process with the command to type.
function ensurePackages(...purposes) {
  const missing = purposes.flatMap((purpose) => needs[purpose]).filter((need) => !isThere(need));
  if (missing.length === 0) return;
  const names = missing.map((need) => need.name);
  const command = `apt-get install -y --no-install-recommends ${names.join(' ')}`;
  const root = process.getuid() === 0;
  if (!succeeds('apt-get', ['--version']) || (!root && !succeeds('sudo', ['-n', 'true']))) {
    fail(`Missing system packages; please type: sudo ${command}`);
  }
  step(`installing system packages: ${names.join(' ')}`);
  const [program, prefix] = root ? ['apt-get', []] : ['sudo', ['-n', 'apt-get']];
  const options = {
    env: { ...process.env, DEBIAN_FRONTEND: 'noninteractive' },
    stdio: ['ignore', 'inherit', 'inherit'],
  };
  run(program, [...prefix, '-qq', 'update'], options);
  run(program, [...prefix, '-qq', 'install', '-y', '--no-install-recommends', ...names], options);
}

module.exports = { ensurePackages };
