'use strict';
// What the kernel still holds of a connection's bytes. Linux lists it for every TCP socket of this machine:
//
//   sl  local_address rem_address   st tx_queue:rx_queue ...      (addresses as hexadecimal of the memory's order)
//
// tx_queue counts bytes sent and not yet acknowledged; rx_queue counts bytes received and not yet read. Making the
// list takes the kernel some milliseconds, so it must not be asked for at every write.

const fs = require('node:fs');
const { ipv4 } = require('./wire');

const TABLE = '/proc/net/tcp';

function endpoint(address, port) {
  const bytes = ipv4(address || '');
  if (!bytes || !port) return null;
  const host = bytes.reverse().toString('hex').toUpperCase();
  return `${host}:${port.toString(16).toUpperCase().padStart(4, '0')}`;
}

function readTable() {
  try {
    return fs.readFileSync(TABLE, 'latin1');
  } catch {
    return '';
  }
}

/** The two queues of the socket from `from` to `to`, or null when it is not in the table. */
function queuesOf(table, from, to) {
  const found = new RegExp(` ${from} ${to} [0-9A-F]{2} ([0-9A-F]{8}):([0-9A-F]{8}) `).exec(table);
  return found && { sent: parseInt(found[1], 16), received: parseInt(found[2], 16) };
}

/**
 * How far the peer is with what was written to `socket`: { unacknowledged, unread } in bytes. `unread` counts what the
 * peer's program has not taken from its kernel; 0 when the peer is on another machine. Null when nothing is known.
 */
function queueState(socket) {
  const local = endpoint(socket.localAddress, socket.localPort);
  const remote = endpoint(socket.remoteAddress, socket.remotePort);
  if (!local || !remote) return null;
  const table = readTable();
  const own = queuesOf(table, local, remote);
  const peer = queuesOf(table, remote, local);
  return own && { unacknowledged: own.sent, unread: peer ? peer.received : 0 };
}

module.exports = { queueState };
