'use strict';
// Loads the native library: the prebuilt one of this platform, else one that was built in this folder.
const { closeSync, existsSync, openSync, readSync } = require('node:fs');
const path = require('node:path');

const platform = `${process.platform}-${process.arch}`;
const built = path.join(__dirname, 'build', 'Release', 'VqDBAccess.node');
const prebuilt = path.join(__dirname, 'prebuilds', platform, 'VqDBAccess.node');

// The C library that Node.js runs with, as far as it says so.
function libc() {
  if (process.platform !== 'linux') return '';
  const { header } = process.report.getReport();
  return header.glibcVersionRuntime
    ? ` (glibc ${header.glibcVersionRuntime})`
    : ' (musl or another C library than glibc)';
}

// True when the file is a library for the processor that Node.js runs on: a folder may have been copied from another
// machine. The 16-bit field 18 bytes into an ELF file says so.
function fitsProcessor(file) {
  const machine = { x64: 0x3e, arm64: 0xb7, arm: 0x28 }[process.arch];
  const header = Buffer.alloc(20);
  const descriptor = openSync(file, 'r');
  try {
    readSync(descriptor, header, 0, header.length, 0);
  } finally {
    closeSync(descriptor);
  }
  return machine === undefined || header.readUInt16LE(18) === machine;
}

function refusal(reason, cause) {
  const advice = `To build it from source, type in your project's folder: npx vqdbaccess build`;
  return new Error(`VqDBAccess has no library that fits ${platform}${libc()}: ${reason}. ${advice}`, { cause });
}

// The prebuilt library first; one that was built here where that does not load.
function load() {
  const files = [prebuilt, built].filter((file) => existsSync(file) && fitsProcessor(file));
  if (files.length === 0) throw refusal(`neither ${built} nor ${prebuilt} is there for it`);
  let failure;
  for (const file of files) {
    try {
      return require(file);
    } catch (error) {
      failure ??= error;
    }
  }
  throw refusal(failure.message, failure);
}

module.exports.DBCore = load().DBCore;

// Names for the numbers that the methods return.
module.exports.ConnectResult = Object.freeze({ Connected: 0, Refused: -1, Failed: -2, OutOfPlace: -3 });
module.exports.WriteResult = Object.freeze({ Sent: 0, NoRight: -1, NotSent: -2, BadArgument: -3 });
module.exports.AlarmResult = Object.freeze({ Subscribed: 0, AlreadySubscribed: -1, Failed: -2, MissingArguments: -3 });
