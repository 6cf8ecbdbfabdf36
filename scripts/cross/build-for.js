'use strict';
// Building for one of the shipped platforms, on this machine.
const { existsSync, readFileSync, rmSync, writeFileSync } = require('node:fs');
const path = require('node:path');
const { fail, run } = require('../run');
const { architectures } = require('./architectures');
const { crossCompiler } = require('./parts');

const root = path.join(__dirname, '..', '..');

// What CMake is told about the compiler of an architecture, and the environment that the compiler's programs need.
function toolsFor(name, cache, emulator) {
  if (name === process.arch) return { settings: [], env: process.env };
  const { toolchain, triplet } = architectures[name];
  if (triplet === undefined) fail(`The library for ${name} is built on a ${name} machine only.`);
  const { bin, sysroot, libraries } = crossCompiler(cache, name);
  const settings = [`-DCMAKE_TOOLCHAIN_FILE=${path.join(root, 'cmake', toolchain)}`];
  if (emulator !== undefined) settings.push(`-DVQDB_EMULATOR=${emulator.join(';')}`);
  if (sysroot === undefined) return { settings, env: process.env };
  settings.push(`-DVQDB_CROSS_BIN=${bin}/`, `-DVQDB_CROSS_SYSROOT=${sysroot}`);
  const env = { ...process.env, LD_LIBRARY_PATH: libraries };
  return { settings, env: { ...env, PATH: `${bin}:${process.env.PATH}` } };
}

// Configures, unless that was done with the same settings (with others the folder is begun anew), and builds.
function cmakeBuild({ folder, target, settings, env, type = 'Release' }) {
  const args = ['-G', 'Ninja', '-S', root, '-B', folder, `-DCMAKE_BUILD_TYPE=${type}`, ...settings];
  const stamp = path.join(folder, 'configured-by.json');
  const wanted = JSON.stringify(args);
  if (!existsSync(stamp) || readFileSync(stamp, 'utf8') !== wanted) {
    rmSync(folder, { recursive: true, force: true });
    run('cmake', args, { env, stdio: ['ignore', 'ignore', 'inherit'] });
    writeFileSync(stamp, wanted);
  }
  run('cmake', ['--build', folder, '--target', target], { env });
}

// Builds the add-on; gives its file.
//   debug    true: with debug information, unstripped, in build/cmake/<name>-debug/
//            false: stripped, in prebuilds/linux-<name>/, from where the package takes it
function buildAddon(name, { cache, debug = false }) {
  const tools = toolsFor(name, cache);
  const folder = path.join(root, 'build', 'cmake', debug ? `${name}-debug` : name);
  cmakeBuild({ folder, target: 'VqDBAccess', type: debug ? 'Debug' : 'Release', ...tools });
  if (debug) return path.join(folder, 'VqDBAccess.node');
  const prebuilds = path.join(root, 'prebuilds', `linux-${name}`);
  const install = ['--install', folder, '--strip', '--prefix', prebuilds];
  run('cmake', install, { env: tools.env, stdio: ['ignore', 'ignore', 'inherit'] });
  return path.join(prebuilds, 'VqDBAccess.node');
}

module.exports = { buildAddon, cmakeBuild, toolsFor };
