'use strict';
// What this process holds of memory: resident, and given out by the C library's allocator.

const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const root = path.join(__dirname, '../../..');

/** Builds and loads the probe; without a compiler it measures nothing. */
function heapProbe() {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'heap-probe-'));
  const file = path.join(folder, 'heap-probe.node');
  try {
    execFileSync(
      'c++',
      [
        '-O1',
        '-shared',
        '-fPIC',
        `-I${path.join(root, 'node_modules/node-api-headers/include')}`,
        '-o',
        file,
        path.join(__dirname, 'heap-probe.cpp'),
      ],
      { stdio: ['ignore', 'ignore', 'inherit'] },
    );
    return require(file).inUse;
  } catch {
    return () => NaN;
  } finally {
    fs.rmSync(folder, { recursive: true, force: true });
  }
}

const inUse = heapProbe();

/** In bytes. Resident memory is what the kernel counts; `heap` is what malloc has given out. */
function memory() {
  const { rss, heapUsed, external } = process.memoryUsage();
  return { rss, heap: inUse(), js: heapUsed, external };
}

/** The slope of `values` over `places`, by least squares. */
function slope(places, values) {
  const mean = (list) => list.reduce((sum, value) => sum + value, 0) / list.length;
  const [x, y] = [mean(places), mean(values)];
  const over = places.reduce((sum, place, i) => sum + (place - x) * (values[i] - y), 0);
  return over / places.reduce((sum, place) => sum + (place - x) ** 2, 0);
}

module.exports = { memory, slope };
