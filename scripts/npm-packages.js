'use strict';
// The npm packages of the checkout.
const { createHash } = require('node:crypto');
const { existsSync, readFileSync, writeFileSync } = require('node:fs');
const path = require('node:path');
const { run, step } = require('./run');

const root = path.join(__dirname, '..');

// Installs them again only when the lock file or Node.js has changed.
function installNpmPackages() {
  const stampFile = path.join(root, 'node_modules', '.vqdb-stamp');
  const lock = readFileSync(path.join(root, 'package-lock.json'));
  const stamp = createHash('sha256').update(lock).update(process.version).digest('hex');
  if (existsSync(stampFile) && readFileSync(stampFile, 'utf8') === stamp) return;
  step('installing npm packages');
  run('npm', ['ci', '--ignore-scripts', '--no-audit', '--no-fund'], { cwd: root });
  writeFileSync(stampFile, stamp);
}

module.exports = { installNpmPackages };
