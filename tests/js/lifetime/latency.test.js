'use strict';
// The end of a session is through soon. The bounds are generous, for busy machines; npm run stress -- latency prints
// figures.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { startServer } = require('../support/server.js');
const latency = require('../support/latency.js');
const { patience } = require('../support/patience.js');

const BOUND = patience(2000); // ms; well under the time-outs of requests (8 s) and of a disconnect (16 s)

for (const [name, what] of Object.entries({
  readWhenServerDies: 'a read in flight when the server dies returns',
  readWhenServerCloses: 'a read in flight when the server closes the notification connection returns',
  disconnectBySecondConnect: 'a second Connect ends the open session',
  disconnectByCollection: 'the collection of an instance ends its session',
})) {
  test(`${what} soon`, async (t) => {
    const duration = await latency[name](await startServer(t));
    assert.ok(duration < BOUND, `${duration} ms`);
  });
}
