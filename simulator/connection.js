'use strict';
// One accepted TCP connection: the bytes that have come and are not used yet, and waiting for more of them. A client
// that sends faster than it is served is held back by TCP, not by memory.

const HIGH_WATER = 256 * 1024; // bytes held before the socket is paused

class Connection {
  constructor(socket, id) {
    this.socket = socket;
    this.id = id;
    this.bytes = Buffer.alloc(0);
    this.ended = false;
    this.hung = false; // a fault: nothing is answered any more
    this.wake = null;
    this.remote = `${socket.remoteAddress}:${socket.remotePort}`;
    this.onData = (chunk) => this.received(chunk);
    this.onEnd = () => this.finish();
    socket.setNoDelay(true);
    socket.setKeepAlive(true, 30000);
    socket.on('data', this.onData).on('end', this.onEnd).on('close', this.onEnd);
    socket.on('error', (error) => {
      this.error = error;
    });
  }

  received(chunk) {
    this.bytes = this.bytes.length > 0 ? Buffer.concat([this.bytes, chunk]) : chunk;
    if (this.bytes.length > HIGH_WATER) this.socket.pause();
    this.wake?.(true);
  }

  finish() {
    this.ended = true;
    this.wake?.(false);
  }

  /** Drops the first `count` bytes. */
  consume(count) {
    this.bytes = this.bytes.subarray(count);
    if (this.bytes.length <= HIGH_WATER && this.socket.isPaused()) this.socket.resume();
  }

  /** Waits for more bytes: false at the end of the connection or after `timeout` ms (0: no limit). */
  more(timeout = 0) {
    if (this.ended) return Promise.resolve(false);
    return new Promise((resolve) => {
      const timer = timeout > 0 ? setTimeout(() => this.wake(false), timeout) : undefined;
      this.wake = (result) => {
        clearTimeout(timer);
        this.wake = null;
        resolve(result);
      };
    });
  }

  /** Gives the socket away with the bytes not used yet; this connection reads no more. */
  detach() {
    this.socket.off('data', this.onData);
    const rest = this.bytes;
    this.bytes = Buffer.alloc(0);
    return rest;
  }

  /** Closes after what was written has gone out; a peer that does not read cannot hold it open. */
  close() {
    this.finish();
    if (this.socket.destroyed) return;
    this.socket.end();
    this.socket.destroySoon();
    setTimeout(() => this.socket.destroy(), 1000).unref();
  }

  /** Ends with a reset instead of an orderly close. */
  reset() {
    this.finish();
    if (this.socket.resetAndDestroy) this.socket.resetAndDestroy();
    else this.socket.destroy();
  }
}

module.exports = { Connection };
