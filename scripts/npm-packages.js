'use strict';
// The npm packages of the checkout.
const { createHash } = require('node:crypto');
const { existsSync, readFileSync, writeFileSync } = require('node:fs');
const path = require('node:path');
const { run, step } = require('./run');

const root = path.join(__dirname, '..');

// Installs them again only when the lock file or Node.js has changed. `tools`: with those for checking, types and
// packing, which are nine in ten of them; without, what is there of them stays.
function installNpmPackages({ tools = false } = {}) {
  const stampFile = path.join(root, 'node_modules', '.vqdb-stamp');
  const lock = readFileSync(path.join(root, 'package-lock.json'));
  const stamp = createHash('sha256').update(lock).update(process.version).digest('hex');
  const withTools = `${stamp} tools`;
  const installed = existsSync(stampFile) ? readFileSync(stampFile, 'utf8') : '';
  if (installed === withTools || (!tools && installed === stamp)) return;
  step('installing npm packages');
  const omit = tools ? [] : ['--omit=dev'];
  run('npm', ['ci', '--ignore-scripts', '--no-audit', '--no-fund', ...omit], { cwd: root });
  writeFileSync(stampFile, tools ? withTools : stamp);
}

module.exports = { installNpmPackages };
