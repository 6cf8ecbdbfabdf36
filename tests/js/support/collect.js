'use strict';
// Collecting garbage on demand: an instance that nobody holds any more ends its session and its alarm subscription,
// which otherwise keeps the process alive.

const assert = require('node:assert/strict');
const { setTimeout: turn } = require('node:timers/promises');
const v8 = require('node:v8');
const vm = require('node:vm');
const { patience } = require('./patience.js');

v8.setFlagsFromString('--expose-gc');
const collect = vm.runInNewContext('gc');

const BOUND = patience(5000); // ms

/** Collects until none of the objects that these WeakRefs hold is left and their finalisers have run. */
async function collectAll(refs, what) {
  for (const deadline = Date.now() + BOUND; ;) {
    await turn(1); // an object that was looked at lives to the end of that turn
    collect();
    if (refs.every((ref) => ref.deref() === undefined)) break;
    assert.ok(Date.now() < deadline, `${what}: not within ${BOUND} ms`);
  }
  await turn(1); // finalisers have a turn of their own
}

module.exports = { collectAll };
