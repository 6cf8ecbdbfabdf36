'use strict';
// Loaded into the programs of the documents before they begin: has them use the library under test, notes the addresses
// of the simulators that they start, whose mirrors are to be removed, and collects garbage all the time, so that a program
// that does not hold its instance loses its session.

const fs = require('node:fs');
const Module = require('node:module');
const v8 = require('node:v8');
const vm = require('node:vm');
const simulator = require('../../../simulator');

const COLLECT_EACH = 100; // ms

v8.setFlagsFromString('--expose-gc');
setInterval(vm.runInNewContext('gc'), COLLECT_EACH).unref();

const { VQDB_TEST_ADDON, VQDB_TEST_ADDRESSES } = process.env;

const load = Module._extensions['.node'];
Module._extensions['.node'] = (module, file) => load(module, VQDB_TEST_ADDON || file);

const { startSimulator } = simulator;
simulator.startSimulator = async (options) => {
  const started = await startSimulator(options);
  fs.appendFileSync(VQDB_TEST_ADDRESSES, `${started.address}\n`);
  return started;
};
