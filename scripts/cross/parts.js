'use strict';
// What building and testing for another architecture needs, from the host where it is installed, else from the cache.
const { existsSync, readdirSync, rmSync } = require('node:fs');
const path = require('node:path');
const { succeeds, step, timed } = require('../run');
const { architectures } = require('./architectures');
const { unpackPackages } = require('./apt');
const { cachedFolder } = require('./cache');

const kRecipe = 1; // one more when the way a folder is made changes

function hostHas(program) {
  return succeeds(program, ['--version']);
}

function debianHost() {
  return architectures[process.arch]?.debian ?? process.arch;
}

// The cross compiler: { bin, sysroot, libraries }; sysroot and libraries only for a private copy.
function crossCompiler(cache, name) {
  const { triplet } = architectures[name];
  if (hostHas(`${triplet}-g++`)) return { bin: '' };
  const folder = cachedFolder(cache, `compiler-${name}`, { recipe: kRecipe, triplet }, (target) => {
    step(`fetching a private cross compiler for ${name} (once, about 65 MB)`);
    timed(() =>
      unpackPackages({
        folder: target,
        architecture: debianHost(),
        packages: [`g++-${triplet}`],
        complete: false,
        skip: ['libc6', 'libc-bin'],
      }),
    );
  });
  const libraries = path.join(
    folder,
    'usr',
    'lib',
    process.arch === 'arm64' ? 'aarch64-linux-gnu' : 'x86_64-linux-gnu',
  );
  return { bin: path.join(folder, 'usr', 'bin'), sysroot: folder, libraries };
}

// The emulator program of an architecture, with its full path.
function emulator(cache, name) {
  const { qemu } = architectures[name];
  if (existsSync(path.join('/usr/bin', qemu))) return path.join('/usr/bin', qemu);
  const kept = Object.values(architectures).flatMap((entry) => entry.qemu ?? []);
  const folder = cachedFolder(cache, 'qemu', { recipe: kRecipe, kept }, (target) => {
    step('fetching private emulators (once, about 30 MB)');
    timed(() =>
      unpackPackages({ folder: target, architecture: debianHost(), packages: ['qemu-user-static'], complete: false }),
    );
    const programs = path.join(target, 'usr', 'bin');
    for (const program of readdirSync(programs)) {
      if (!kept.includes(program)) rmSync(path.join(programs, program));
    }
  });
  return path.join(folder, 'usr', 'bin', qemu);
}

// The root folder of a small Debian system of the architecture, with its Node.js and all that this needs; `finish(root)`
// is called once, when it is unpacked.
function nodeRoot(cache, name, finish) {
  const packages = ['nodejs', 'tzdata'];
  return cachedFolder(cache, `node-${name}`, { recipe: kRecipe, packages }, (target) => {
    step(`fetching a private Debian system with Node.js for ${name} (once, about 50 MB)`);
    timed(() => unpackPackages({ folder: target, architecture: architectures[name].debian, packages, complete: true }));
    finish(target);
  });
}

module.exports = { crossCompiler, emulator, nodeRoot };
