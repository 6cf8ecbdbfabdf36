'use strict';
// The private downloads: below the user's cache, never in the checkout.
const { existsSync, mkdirSync, readFileSync, readdirSync, renameSync, rmSync, writeFileSync } = require('node:fs');
const os = require('node:os');
const path = require('node:path');

// The folder; `given` (option --cache) wins.
function cacheFolder(given) {
  if (given !== undefined) return path.resolve(given);
  return path.join(process.env.XDG_CACHE_HOME || path.join(os.homedir(), '.cache'), 'vqdbaccess');
}

// Removes what makers of a folder left that were killed.
function removeAbandoned(cache, name) {
  const entries = existsSync(cache) ? readdirSync(cache) : [];
  for (const entry of entries.filter((other) => other.startsWith(`${name}.`))) {
    const isAlive = existsSync(`/proc/${entry.slice(name.length + 1)}`);
    if (!isAlive) rmSync(path.join(cache, entry), { recursive: true, force: true });
  }
}

// The finished folder `name` of the cache; `recipe` (any JSON) says how it is made, and a folder made by another one is
// made again. `make(folder)` fills it; what it leaves half done after a failure is never taken for finished, and of
// two makers at once the later one's work is dropped.
function cachedFolder(cache, name, recipe, make) {
  const folder = path.join(cache, name);
  const stamp = path.join(folder, '.made-by');
  const wanted = JSON.stringify(recipe);
  const isMade = () => existsSync(stamp) && readFileSync(stamp, 'utf8') === wanted;
  if (isMade()) return folder;
  removeAbandoned(cache, name);
  const partial = `${folder}.${process.pid}`;
  mkdirSync(partial, { recursive: true });
  try {
    make(partial);
    writeFileSync(path.join(partial, '.made-by'), wanted);
    if (isMade()) return folder;
    rmSync(folder, { recursive: true, force: true });
    renameSync(partial, folder);
  } finally {
    rmSync(partial, { recursive: true, force: true });
  }
  return folder;
}

module.exports = { cacheFolder, cachedFolder };
