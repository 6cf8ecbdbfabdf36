'use strict';
// What happened, in order: every request with its bytes, and the events around them. Bounded in entries and in bytes, so
// that a server can run for years; the oldest entries go first.

const MAX_BYTES = 8 * 1024 * 1024; // of request bytes; what they mean takes several times that

/** Whether `value` holds everything that `match` does. */
function contains(value, match) {
  if (match === null || typeof match !== 'object') return Object.is(value, match);
  if (value === null || typeof value !== 'object') return false;
  return Object.keys(match).every((key) => contains(value[key], match[key]));
}

class Recorder {
  constructor(limit) {
    this.limit = limit;
    this.lastSeq = 0;
    this.waiters = new Set();
    this.clear();
  }

  clear() {
    this.entries = [];
    this.first = 0; // index of the oldest entry kept
    this.bytes = 0;
  }

  add(event, details) {
    const entry = { seq: ++this.lastSeq, time: Date.now(), event, ...details };
    this.entries.push(entry);
    this.bytes += entry.bytes ? entry.bytes.length : 0;
    while (this.entries.length - this.first > this.limit || this.bytes > MAX_BYTES) this.dropOldest();
    for (const waiter of this.waiters) waiter.see(entry);
  }

  dropOldest() {
    const { bytes } = this.entries[this.first];
    this.bytes -= bytes ? bytes.length : 0;
    this.entries[this.first++] = undefined;
    if (this.first > 1024 && this.first * 2 > this.entries.length) {
      this.entries = this.entries.slice(this.first);
      this.first = 0;
    }
  }

  /** Entries that contain `match`, with their bytes as hexadecimal text. */
  list(match = {}) {
    return this.entries
      .slice(this.first)
      .map(present)
      .filter((entry) => contains(entry, match));
  }

  /** The `count`-th entry of `event` after number `since` that contains `match`; rejects after `timeout` ms. */
  waitFor(event, match = {}, { timeout = 5000, since = 0, count = 1 } = {}) {
    const wanted = { ...match, event };
    const past = this.list(wanted).filter((entry) => entry.seq > since);
    if (past.length >= count) return Promise.resolve(past[count - 1]);
    return new Promise((resolve, reject) => {
      const waiter = { left: count - past.length, see: (entry) => this.seen(waiter, wanted, entry, resolve) };
      waiter.timer = setTimeout(() => {
        this.waiters.delete(waiter);
        reject(new Error(`no ${event} ${JSON.stringify(match)} within ${timeout} ms`));
      }, timeout);
      this.waiters.add(waiter);
    });
  }

  seen(waiter, wanted, entry, resolve) {
    const shown = present(entry);
    if (!contains(shown, wanted) || --waiter.left > 0) return;
    clearTimeout(waiter.timer);
    this.waiters.delete(waiter);
    resolve(shown);
  }

  stop() {
    for (const waiter of this.waiters) clearTimeout(waiter.timer);
    this.waiters.clear();
  }
}

function present({ bytes, ...entry }) {
  return bytes ? { ...entry, hex: bytes.toString('hex') } : entry;
}

module.exports = { Recorder, contains };
