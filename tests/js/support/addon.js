'use strict';
// The module under test: the package, or the native library that the environment variable VQDB_TEST_ADDON names (one
// built with sanitizers, say).
module.exports = require(process.env.VQDB_TEST_ADDON || '../../../index.js');
