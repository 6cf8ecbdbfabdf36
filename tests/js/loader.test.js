'use strict';
// Which native library index.js loads, and what its error says. Each test loads a copy of index.js in a folder of its
// own, with files in place of libraries that look like ones of some processor and cannot be loaded.

const assert = require('node:assert/strict');
const { copyFileSync, existsSync, mkdirSync, mkdtempSync, rmSync, writeFileSync } = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { test } = require('node:test');

const INDEX = path.join(__dirname, '..', '..', 'index.js');
const BUILT = path.join('build', 'Release', 'VqDBAccess.node');
const PREBUILT = path.join('prebuilds', `${process.platform}-${process.arch}`, 'VqDBAccess.node');
// One that loads.
const LIBRARY =
  process.env.VQDB_TEST_ADDON ??
  [PREBUILT, BUILT].map((name) => path.join(__dirname, '..', '..', name)).find((file) => existsSync(file));
const MACHINES = { x64: 0x3e, arm64: 0xb7, arm: 0x28 };
const OWN = MACHINES[process.arch];
const OTHER = Object.values(MACHINES).find((machine) => machine !== OWN);

/** A folder with index.js and the given files, each with the processor's number in its ELF header. */
function packageWith(t, files) {
  const folder = mkdtempSync(path.join(os.tmpdir(), 'vqdb-loader-'));
  t.after(() => rmSync(folder, { recursive: true }));
  copyFileSync(INDEX, path.join(folder, 'index.js'));
  for (const [name, machine] of Object.entries(files)) {
    const header = Buffer.concat([Buffer.from('\x7fELF'), Buffer.alloc(60)]);
    header.writeUInt16LE(machine, 18);
    mkdirSync(path.dirname(path.join(folder, name)), { recursive: true });
    writeFileSync(path.join(folder, name), header);
  }
  return folder;
}

function errorOf(folder) {
  try {
    require(path.join(folder, 'index.js'));
  } catch (error) {
    return error;
  }
  return assert.fail('it loaded');
}

test('without a library the error says platform, C library, where it looked and what to type', (t) => {
  const folder = packageWith(t, {});
  const { glibcVersionRuntime } = process.report.getReport().header;
  assert.equal(
    errorOf(folder).message,
    `VqDBAccess has no library that fits ${process.platform}-${process.arch} (glibc ${glibcVersionRuntime}): ` +
      `neither ${path.join(folder, BUILT)} nor ${path.join(folder, PREBUILT)} is there for it. ` +
      "To build it from source, type in your project's folder: npx vqdbaccess build",
  );
});

test('where Node.js runs without glibc the error says so', (t) => {
  const folder = packageWith(t, {});
  t.mock.method(process.report, 'getReport', () => ({ header: {} }));
  assert.match(errorOf(folder).message, /fits \S+ \(musl or another C library than glibc\): /);
});

test('a prebuilt library that cannot be loaded gives the reason and the way out', (t) => {
  const folder = packageWith(t, { [PREBUILT]: OWN });
  const error = errorOf(folder);
  assert.equal(error.cause.code, 'ERR_DLOPEN_FAILED');
  assert.ok(error.message.includes(error.cause.message), error.message);
  assert.ok(error.message.includes(path.join(folder, PREBUILT)), error.message);
  assert.match(error.message, /npx vqdbaccess build$/);
});

test('the prebuilt library goes before one that was built here', (t) => {
  const folder = packageWith(t, { [BUILT]: OWN, [PREBUILT]: OWN });
  assert.ok(errorOf(folder).message.includes(path.join(folder, PREBUILT)));
});

test('a library that was built here is loaded where the prebuilt one cannot be', (t) => {
  const folder = packageWith(t, { [PREBUILT]: OWN });
  mkdirSync(path.dirname(path.join(folder, BUILT)), { recursive: true });
  copyFileSync(LIBRARY, path.join(folder, BUILT));
  assert.equal(typeof require(path.join(folder, 'index.js')).DBCore, 'function');
});

test('a library that was built on another processor is passed over for the prebuilt one', (t) => {
  const folder = packageWith(t, { [BUILT]: OTHER, [PREBUILT]: OWN });
  const { message } = errorOf(folder);
  assert.ok(message.includes(path.join(folder, PREBUILT)), message);
  assert.ok(!message.includes(path.join(folder, BUILT)), message);
});

test('a library that was built on another processor, alone, counts as none', (t) => {
  const folder = packageWith(t, { [BUILT]: OTHER });
  assert.match(errorOf(folder).message, /neither .* nor .* is there for it/);
});
