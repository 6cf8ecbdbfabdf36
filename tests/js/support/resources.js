'use strict';
// What this process holds of the system: descriptors and threads.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { setTimeout: turn } = require('node:timers/promises');
const { patience } = require('./patience.js');

const BOUND = patience(10000); // ms

/** How many descriptors and threads there are now. */
function resources() {
  return {
    descriptors: fs.readdirSync('/proc/self/fd').length - 1, // one is that of the listing
    threads: fs.readdirSync('/proc/self/task').length,
  };
}

/** What the descriptors are, for the message of a failure. */
function openNow() {
  return fs
    .readdirSync('/proc/self/fd')
    .map((number) => {
      try {
        return `${number} ${fs.readlinkSync(`/proc/self/fd/${number}`)}`;
      } catch {
        return `${number} closed`; // that of the listing
      }
    })
    .join(', ');
}

/** What there is once it has stayed the same for a while. */
async function settled() {
  const deadline = Date.now() + BOUND;
  let last = resources();
  for (let same = 0; same < 20;) {
    await turn(1);
    const now = resources();
    same = now.descriptors === last.descriptors && now.threads === last.threads ? same + 1 : 0;
    last = now;
    assert.ok(Date.now() < deadline, 'descriptors and threads settle');
  }
  return last;
}

/** Waits until there are as many as `before`: a thread that has told of its end is still counted for a moment. */
async function backTo(before, what) {
  for (const deadline = Date.now() + BOUND; ;) {
    const now = resources();
    // A thread may still have been ending when they were counted before; a descriptor was closed then or was not.
    if (now.descriptors === before.descriptors && now.threads <= before.threads) return;
    if (Date.now() > deadline) assert.deepEqual(now, before, `${what}: not within ${BOUND} ms; open: ${openNow()}`);
    await turn(1);
  }
}

module.exports = { resources, settled, backTo };
