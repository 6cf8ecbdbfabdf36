'use strict';
// Checks the package's types with the compiler: right uses compile, and each wrong one is refused (tests/types).
const path = require('node:path');
const { installNpmPackages } = require('./npm-packages');
const { run, step } = require('./run');

installNpmPackages({ tools: true });
step('types');
run(process.execPath, [
  require.resolve('typescript/bin/tsc'),
  '--project',
  path.join(__dirname, '..', 'tests', 'types'),
]);
console.log('types: clean.');
