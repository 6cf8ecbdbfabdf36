'use strict';
// Loads the native library: a prebuilt one for this platform first, else the one built here.
const { existsSync } = require('node:fs');
const path = require('node:path');

const places = [
  path.join(__dirname, 'prebuilds', `${process.platform}-${process.arch}`, 'VqDBAccess.node'),
  path.join(__dirname, 'build', 'Release', 'VqDBAccess.node'),
];
const library = places.find(existsSync);
if (library === undefined) {
  throw new Error(`VqDBAccess has no library for ${process.platform}-${process.arch}; looked for ${places.join(', ')}. ` +
    "Build it with 'npm run build' in the package's folder.");
}

module.exports.DBCore = require(library).DBCore;
