'use strict';
// Waiting for what happens, under a bound.

const assert = require('node:assert/strict');
const { patience } = require('./patience.js');

const BOUND = patience(5000); // ms

/** Rejects when `promise` has not settled after `bound` ms. */
function within(promise, what, bound = BOUND) {
  let timer;
  const late = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`${what}: not within ${bound} ms`)), bound);
  });
  return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}

/**
 * A callback that keeps its calls: `calls` holds the argument lists, `receivers` each call's `this`; `until(count)`
 * resolves to the calls when so many have come.
 */
function callLog() {
  let look = () => {};
  function log(...args) {
    log.calls.push(args);
    log.receivers.push(this);
    look();
  }
  log.calls = [];
  log.receivers = [];
  log.until = (count, bound) =>
    within(
      new Promise((resolve) => {
        look = () => {
          if (log.calls.length >= count) resolve(log.calls);
        };
        look();
      }),
      `${count} calls`,
      bound,
    );
  return log;
}

/** Wraps `fn`; the test fails unless it has been called exactly `times` times when it ends. */
function mustCall(t, fn = () => {}, times = 1) {
  let calls = 0;
  t.after(() => assert.equal(calls, times, `calls of ${fn.name || 'a callback'}`));
  return function called(...args) {
    calls++;
    return fn.apply(this, args);
  };
}

const mustNotCall = (t, fn) => mustCall(t, fn, 0);

module.exports = { within, callLog, mustCall, mustNotCall };
