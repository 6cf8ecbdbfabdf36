'use strict';
// Node.js 18 of Debian, for another architecture under its emulator or for this one, started by a small shell program.
const { mkdirSync, readFileSync, writeFileSync } = require('node:fs');
const path = require('node:path');
const { emulator, nodeRoot } = require('./parts');

// Debian's Node.js reads parts of its own library from this absolute path. A private copy for the host's architecture
// gets a path of the same length instead: descriptor 9, which the shell program opens on the folder.
const kShared = '/usr/share/nodejs/';
const kDescriptor = '/proc/self/fd/9///';

function redirectSharedFolder(root) {
  const library = path.join(root, 'usr', 'lib', 'x86_64-linux-gnu', 'libnode.so.108');
  const bytes = readFileSync(library);
  for (let at = bytes.indexOf(`\0${kShared}`); at >= 0; at = bytes.indexOf(`\0${kShared}`, at + 1)) {
    bytes.write(kDescriptor, at + 1, 'latin1');
  }
  writeFileSync(library, bytes);
}

// The command line that runs a program of the architecture; emulated ones look up absolute paths in the root first.
function runnerOf(name, cache) {
  const root = nodeRoot(cache, name, name === process.arch ? redirectSharedFolder : () => {});
  if (name !== process.arch) return { root, runner: [emulator(cache, name), '-L', root] };
  const libraries = path.join(root, 'usr', 'lib', 'x86_64-linux-gnu');
  return { root, runner: [path.join(root, 'lib64', 'ld-linux-x86-64.so.2'), '--library-path', libraries] };
}

const quote = (text) => `'${text.replaceAll("'", "'\\''")}'`;

// The simulator is the far end of the connection, as on another machine: this machine's own Node.js runs it, which spares
// the emulator half of its work.
function nativeSimulator() {
  const scripts = ['child.js', 'cli.js'].map((script) => `*/simulator/${script}`).join('|');
  return `case "$1" in ${scripts}) unset NODE_OPTIONS; exec ${quote(process.execPath)} "$@" ;; esac`;
}

// Writes the program `node` into `folder` and gives its path. process.execPath is made to name it, too, so that child
// processes, `node --test` among them, run in the same way.
function writeNodeProgram(name, cache, folder) {
  const { root, runner } = runnerOf(name, cache);
  const program = path.join(folder, 'node');
  const preload = path.join(folder, 'exec-path.cjs');
  mkdirSync(folder, { recursive: true });
  writeFileSync(preload, `process.execPath = ${JSON.stringify(program)};\n`);
  const lines = [
    '#!/bin/sh',
    'unset LD_LIBRARY_PATH',
    ...(name === process.arch ? [] : [nativeSimulator()]),
    `exec 9<${quote(path.join(root, kShared))}`,
    'case "$NODE_OPTIONS" in *exec-path.cjs*) ;; *)',
    `  export NODE_OPTIONS=${quote(`--require "${preload}"`)}" $NODE_OPTIONS" ;;`,
    'esac',
    `exec ${runner.map(quote).join(' ')} ${quote(path.join(root, 'usr/bin/node'))} "$@"`,
  ];
  writeFileSync(program, `${lines.join('\n')}\n`, { mode: 0o755 });
  return program;
}

module.exports = { runnerOf, writeNodeProgram };
