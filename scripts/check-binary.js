'use strict';
// States what a built library needs of the system that loads it, and fails when that is more than the package promises.
//   node scripts/check-binary.js [FILE...]     without files: all in prebuilds/
// Each file stands in a folder linux-ARCHITECTURE; limits are those of scripts/cross/architectures.js.
const { existsSync, readdirSync, readFileSync, statSync } = require('node:fs');
const path = require('node:path');
const { architectures } = require('./cross/architectures');
const { capture, fail } = require('./run');

const kMaxBytes = 200 * 1024;
const kMachines = { 0x3e: 'x64', 0xb7: 'arm64', 0x28: 'arm' }; // e_machine of the ELF header
const kNodeLibraries = ['libstdc++.so.6', 'libm.so.6', 'libgcc_s.so.1', 'libc.so.6', 'libpthread.so.0', 'librt.so.1'];

function compareVersions(a, b) {
  const [left, right] = [a, b].map((version) => version.split('.').map(Number));
  for (let i = 0; i < Math.max(left.length, right.length); i++) {
    if ((left[i] ?? 0) !== (right[i] ?? 0)) return (left[i] ?? 0) - (right[i] ?? 0);
  }
  return 0;
}

function readelf(option, file) {
  return (
    capture('readelf', ['-W', option, file], { env: { ...process.env, LC_ALL: 'C' } }) ??
    fail(`readelf cannot read ${file}`)
  );
}

// The undefined symbols that ask for a version of `library` (GLIBC, GLIBCXX, ...): [{ symbol, version }].
function versionedSymbols(symbols, library) {
  const pattern = new RegExp(`\\sUND\\s+(\\S+)@${library}_([\\d.]+)`, 'g');
  return [...symbols.matchAll(pattern)].map(([, symbol, version]) => ({ symbol, version }));
}

// The highest version asked for, and the symbols that ask for it.
function floorOf(symbols, library) {
  const all = versionedSymbols(symbols, library);
  const version =
    all
      .map((entry) => entry.version)
      .sort(compareVersions)
      .at(-1) ?? '0';
  return { version, raisedBy: all.filter((entry) => entry.version === version).map((entry) => entry.symbol) };
}

function inspect(file) {
  const symbols = readelf('--dyn-syms', file);
  const dynamic = readelf('-d', file);
  const architecture = kMachines[readFileSync(file).readUInt16LE(18)];
  return {
    file,
    architecture,
    bytes: statSync(file).size,
    stripped: !/\s\.symtab\s/.test(readelf('-S', file)),
    glibc: floorOf(symbols, 'GLIBC'),
    glibcxx: floorOf(symbols, 'GLIBCXX'),
    cxxabi: floorOf(symbols, 'CXXABI'),
    libraries: [...dynamic.matchAll(/\(NEEDED\).*\[(.*)\]/g)].map((match) => match[1]),
  };
}

// What is not as promised, as sentences.
function faults({ architecture, bytes, stripped, glibc, glibcxx, libraries, file }) {
  const limits = architectures[architecture];
  const found = [];
  const expect = (holds, sentence) => holds || found.push(sentence);
  expect(path.basename(path.dirname(file)) === `linux-${architecture}`, `is built for ${architecture}`);
  if (limits === undefined) return found;
  const over = (floor, limit) => compareVersions(floor.version, limit) > 0;
  expect(stripped, 'is not stripped');
  expect(bytes <= kMaxBytes, `has ${bytes} bytes; the limit is ${kMaxBytes}`);
  expect(!over(glibc, limits.glibc), `needs glibc ${glibc.version}; the limit is ${limits.glibc}`);
  expect(!over(glibcxx, limits.glibcxx), `needs GLIBCXX ${glibcxx.version}; the limit is ${limits.glibcxx}`);
  const others = libraries.filter((name) => !kNodeLibraries.includes(name) && !name.startsWith('ld-linux'));
  expect(others.length === 0, `needs libraries that Node.js does not load: ${others.join(', ')}`);
  return found;
}

function report(result) {
  const some = (names) =>
    names.length <= 8 ? names.join(', ') : `${names.slice(0, 8).join(', ')} and ${names.length - 8} more`;
  const floor = (name, { version, raisedBy }) => `  ${name} ${version} or newer (for ${some(raisedBy)})`;
  console.log(`${path.relative(process.cwd(), result.file)}: ${result.bytes} bytes`);
  console.log(floor('glibc', result.glibc));
  console.log(floor('libstdc++ with GLIBCXX', result.glibcxx));
  console.log(floor('libstdc++ with CXXABI', result.cxxabi));
}

function prebuilds() {
  const folder = path.join(__dirname, '..', 'prebuilds');
  if (!existsSync(folder)) fail("No prebuilds/: type 'npm run build -- --arch all' first.");
  return readdirSync(folder).map((name) => path.join(folder, name, 'VqDBAccess.node'));
}

const given = process.argv.slice(2);
let failed = false;
for (const file of given.length > 0 ? given : prebuilds()) {
  const result = inspect(file);
  report(result);
  for (const sentence of faults(result)) {
    failed = true;
    console.error(`${file} ${sentence}.`);
  }
}
process.exit(failed ? 1 : 0);
