'use strict';
// Runs all tests, C++ by CTest and JavaScript by node --test, and ends with one line "N passed, N failed".
const path = require('node:path');
const { step } = require('./run');
const { conclude, runCpp, runJs } = require('./runners');

const buildDir = path.join(__dirname, '..', 'build', 'cmake', 'release');

step('C++ tests');
const cpp = runCpp(buildDir);
step('JavaScript tests');
const js = runJs(buildDir);
process.exit(conclude([cpp, js]));
