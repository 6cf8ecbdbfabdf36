'use strict';
// Runs the tests as on another platform, with Debian's Node.js 18 of that architecture.
//   node scripts/test-arch.js arm|arm64   C++ and JavaScript tests, cross-built, under qemu-user
//   node scripts/test-arch.js x64         JavaScript tests on this machine
// Options: --cache DIR   where private tools are kept (else below the user's cache)
//          --only cpp|js --filter TEXT   some of the tests
//          --quick       without the tests of the simulator and of the documents, whose JavaScript is the same anywhere,
//                        and without those of sessions that end in great numbers; the C++ tests of a program in two
//                        processes instead of one each
// The JavaScript tests load the library of prebuilds/linux-NAME, built anew: the very file that the package ships.
const path = require('node:path');
const { parseArgs } = require('node:util');
const { architectures } = require('./cross/architectures');
const { buildAddon, cmakeBuild, toolsFor } = require('./cross/build-for');
const { cacheFolder } = require('./cross/cache');
const { runnerOf, writeNodeProgram } = require('./cross/node');
const { installNpmPackages } = require('./npm-packages');
const { ensurePackages } = require('./packages');
const { fail, step, timed } = require('./run');
const { conclude, runCpp, runCppWhole, runJs } = require('./runners');

const root = path.join(__dirname, '..');
const kSlow = /^(simulator\.|docs\.|loader\.|ten-thousand\.)|lifetime/;
const kUsage = 'usage: node scripts/test-arch.js arm|arm64|x64 [--cache DIR] [--only cpp|js] [--filter TEXT] [--quick]';

async function cppTests(name, cache, filter, quick) {
  const folder = path.join(root, 'build', 'cmake', `${name}-tests`);
  const { runner } = runnerOf(name, cache);
  const { settings, env } = toolsFor(name, cache, runner);
  step(`building the C++ tests for linux-${name}`);
  timed(() =>
    cmakeBuild({ folder, target: 'all', env, settings: [...settings, '-DVQDB_TESTS=ON', '-DVQDB_ADDON=OFF'] }),
  );
  step(`C++ tests, linux-${name}`);
  if (!quick || filter !== undefined) return [timed(() => runCpp(folder, { filter }))];
  return [await timed(() => runCppWhole(folder, { emulator: runner })), runCpp(folder, { filter: '^fuzz' })];
}

function jsTests(name, cache, filter, quick) {
  step(`building the add-on for linux-${name}`);
  const addon = timed(() => buildAddon(name, { cache }));
  const folder = path.join(root, 'build', 'cmake', `node18-${name}`);
  const node = writeNodeProgram(name, cache, folder);
  step(`JavaScript tests, linux-${name}, Node.js 18`);
  // Programs that tests start as "node" are to be the same Node.js.
  const env = { ...process.env, PATH: `${folder}:${process.env.PATH}` };
  if (name !== process.arch) env.VQDB_TEST_SLOWNESS = '5'; // qemu
  if (name === process.arch) env.VQDB_TEST_ADDON = addon; // index.js would prefer a library of build/Release
  return timed(() => runJs(folder, { node, env, filter, without: quick ? kSlow : undefined }));
}

async function main() {
  const options = { cache: { type: 'string' }, only: { type: 'string' }, filter: { type: 'string' } };
  options.quick = { type: 'boolean', default: false };
  const { values, positionals } = parseArgs({ options, allowPositionals: true });
  const [name] = positionals;
  if (positionals.length !== 1 || !(name in architectures)) fail(kUsage);
  const cache = cacheFolder(values.cache);
  ensurePackages('build', 'tests');
  installNpmPackages();
  const results = [];
  if (values.only !== 'js' && name !== process.arch) {
    results.push(...(await cppTests(name, cache, values.filter, values.quick)));
  }
  if (values.only !== 'cpp') results.push(jsTests(name, cache, values.filter, values.quick));
  process.exit(conclude(results));
}

main();
