'use strict';
// Writing with borders that survive TCP. The client parses each receive on its notification connection by itself and
// never joins a record across two receives, but TCP keeps no borders: what cannot leave at once waits in the kernel,
// where it is merged with the next write and cut anywhere. What does leave at once arrives whole, provided that it fits
// one segment. So a paced writer never lets writes wait in the kernel: after every few kilobytes it makes sure that the
// peer has them, before any window can be full. A write that must be a receive of its own ('alone') waits until the
// peer's program has read everything before it, and the next write waits for it in turn.

const { queueState } = require('./tcpqueue');

const IN_FLIGHT = 16384; // bytes written without a look; well below the smallest send and receive windows
const LONGEST_POLL = 100; // ms between two looks at a peer that does not read
const BLIND_PAUSE = 2; // ms in place of a look where the kernel's queues cannot be seen
const LONGEST_WAIT = 2000; // ms to wait for a peer's program to read what has arrived

const sleep = (ms) => new Promise((resolve) => (ms > 0 ? setTimeout(resolve, ms) : setImmediate(resolve)));

/**
 * Resolves when the peer's kernel has everything that was written and the peer's program has left at most `unread`
 * bytes of it (as far as that can be seen), or when the socket has ended. A peer's program that does not read is waited
 * for `patience` ms.
 */
async function settled(socket, unread, patience = LONGEST_WAIT) {
  const started = Date.now();
  for (let pause = 0; !socket.destroyed; pause = Math.min(LONGEST_POLL, pause * 2 + 1)) {
    const state = queueState(socket);
    if (!state) return sleep(BLIND_PAUSE);
    const impatient = Date.now() - started >= patience;
    if (state.unacknowledged === 0 && (state.unread <= unread || impatient)) return undefined;
    await sleep(pause);
  }
  return undefined;
}

/** Writes `bytes` as one system call; resolves to true when the kernel took them, to false when the socket has ended. */
function writeOnce(socket, bytes) {
  return new Promise((resolve) => {
    if (socket.destroyed || !socket.writable) resolve(false);
    else socket.write(bytes, (error) => resolve(!error));
  });
}

class PacedWriter {
  constructor(socket) {
    this.socket = socket;
    this.inFlight = 0; // bytes since the last look
    this.lastAlone = false;
  }

  /** Writes one piece; `alone`: the peer receives it by itself. Resolves as writeOnce does. */
  async write(bytes, alone = false) {
    if (this.inFlight > 0 && (alone || this.lastAlone)) await this.look(0, LONGEST_WAIT);
    else if (this.inFlight + bytes.length > IN_FLIGHT) await this.look(IN_FLIGHT, Infinity);
    this.inFlight += bytes.length;
    this.lastAlone = alone;
    return writeOnce(this.socket, bytes);
  }

  async look(unread, patience) {
    await settled(this.socket, unread, patience);
    this.inFlight = 0;
  }
}

module.exports = { PacedWriter, writeOnce, settled, sleep };
