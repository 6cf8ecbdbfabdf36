'use strict';
// Builds the add-on.
//   npm run build                        for this machine, in build/Release/
//   npm run build -- --arch NAME         for the package: x64, arm64, arm or all, stripped, in prebuilds/linux-NAME/
//   npm run build -- --arch NAME --debug with debug information, in build/cmake/NAME-debug/
// Options: --cache DIR  where private cross compilers are kept (else below the user's cache)
const path = require('node:path');
const { parseArgs } = require('node:util');
const { buildAddon } = require('./cross/build-for');
const { architectures } = require('./cross/architectures');
const { cacheFolder } = require('./cross/cache');
const { installNpmPackages } = require('./npm-packages');
const { ensurePackages } = require('./packages');
const { fail, run, step } = require('./run');

const kOptions = { arch: { type: 'string' }, debug: { type: 'boolean' }, cache: { type: 'string' } };
const kUsage = 'usage: npm run build -- [--arch x64|arm64|arm|all] [--debug] [--cache DIR]';

function options() {
  try {
    return parseArgs({ options: kOptions }).values;
  } catch (error) {
    return fail(`${error.message}\n${kUsage}`);
  }
}

function buildFor(names, { cache, debug }) {
  ensurePackages('build');
  installNpmPackages();
  const files = names.map((name) => {
    step(`building the add-on for linux-${name}${debug ? ' (debug)' : ''}`);
    return buildAddon(name, { cache: cacheFolder(cache), debug });
  });
  if (debug) console.log(files.join('\n'));
  else run(process.execPath, [path.join(__dirname, 'check-binary.js'), ...files]);
}

const { arch, debug, cache } = options();
if (arch === undefined && !debug) {
  require('./setup');
} else {
  const names = arch === 'all' ? Object.keys(architectures) : [arch ?? process.arch];
  if (!names.every((name) => name in architectures)) fail(`No such architecture: ${arch}\n${kUsage}`);
  buildFor(names, { cache, debug });
}
