'use strict';
// A copy of the checkout as it stands: tracked and new files, without what is ignored (build folders, packages).
const { execFileSync } = require('node:child_process');
const { copyFileSync, existsSync, mkdirSync, readFileSync, rmSync, symlinkSync } = require('node:fs');
const path = require('node:path');

function git(root, ...args) {
  return execFileSync('git', args, { cwd: root, encoding: 'utf8', maxBuffer: 1 << 26 })
    .split('\0')
    .filter(Boolean);
}

function sameContent(a, b) {
  return existsSync(b) && readFileSync(a).equals(readFileSync(b));
}

// Copies what differs, so that a copy that was made before keeps the times of its other files, and its build.
function copyCheckout(root, target) {
  for (const name of git(root, 'ls-files', '-z', '--cached', '--others', '--exclude-standard')) {
    const from = path.join(root, name);
    const to = path.join(target, name);
    if (!existsSync(from)) {
      rmSync(to, { force: true });
    } else if (!sameContent(from, to)) {
      mkdirSync(path.dirname(to), { recursive: true });
      copyFileSync(from, to);
    }
  }
  const packages = path.join(target, 'node_modules');
  if (!existsSync(packages)) symlinkSync(path.join(root, 'node_modules'), packages);
}

module.exports = { copyCheckout };
