'use strict';
// The module under test: the package, or the native library that the environment variable VQDB_TEST_ADDON names (one
// built with sanitizers, say).

// What a sanitizer needs in a process stays in this one and in programs that load the library (child.js): simulators and
// tools are started without it.
if (process.env.LD_PRELOAD !== undefined && process.env.VQDB_TEST_ADDON !== undefined) {
  process.env.VQDB_TEST_PRELOAD = process.env.LD_PRELOAD;
  delete process.env.LD_PRELOAD;
}

module.exports = require(process.env.VQDB_TEST_ADDON || '../../../index.js');
