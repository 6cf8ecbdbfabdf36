'use strict';
// Many notifications at once, for an instance whose JavaScript thread does not take them meanwhile.

const assert = require('node:assert/strict');
const { hex, u16 } = require('./wire.js');
const { patience } = require('./patience.js');

const BOUND = patience(20000); // ms

// Tags of type int32: Q is what is flooded, M marks the end.
const FLOOD_PROJECT = {
  name: 'Flood',
  drivers: [
    {
      name: 'D0',
      tags: [
        { name: 'Q', type: 'int32', value: 5 },
        { name: 'M', type: 'int32', value: 0 },
      ],
    },
  ],
};

// A record is all zeros: driver 0, tag 0, value 0. So a receive may begin anywhere, and only the last record of a receive
// can be lost by its border.
const RECORD = 8;
const queuedRecords = (count) => Buffer.alloc(count * RECORD);

// 58 alarms filled up to one receive of 2048 bytes. A receive that begins elsewhere loses some of them.
const ALARM_BLOCK = hex(
  ...Array(58)
    .fill([[0xff, 0xff, 1], Buffer.alloc(32)])
    .flat(),
  Array(18).fill(0xff),
);
const alarmRecords = (blocks) => Buffer.from(ALARM_BLOCK.repeat(blocks), 'hex');

/** A notification that M is this value. */
const mark = (value) => hex(u16(0), u16(1), [value, 0, 0, 0]);

/**
 * Lets the server send these bytes and waits, without giving the JavaScript thread to anybody else, until the instance
 * has queued them all. `driver` is D0, connected to Q and M.
 */
function queueUp(sim, driver, bytes, marker = 77) {
  const late = Date.now() + BOUND;
  const send = (piece) => sim.notifyRaw(piece).catch(() => {}); // leaves at once: the answer is not waited for
  send(bytes);
  for (let tries = 0; driver.GetTagValue('M') !== marker; tries++) {
    if (tries % 1000 === 0) send(mark(marker)); // again, should a border have cut it
    Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 0.1);
    assert.ok(Date.now() < late, 'the notifications are queued');
  }
}

module.exports = { FLOOD_PROJECT, queuedRecords, alarmRecords, mark, queueUp };
