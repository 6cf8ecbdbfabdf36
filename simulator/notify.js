'use strict';
// The notification stream of one client. Records wait in a queue and leave in blocks.
//
// The client parses each receive of at most 2048 bytes by itself and never joins a record across two receives. So a
// record must never lie across the border of two receives, although TCP keeps no borders:
// - Every block has the same size, which divides 2048, and is filled up with records that clients skip. The border of
//   any receive that begins at a multiple of the block size and takes whole blocks is then a border of blocks.
// - Blocks are paced (see paced.js), so that each arrives whole: 2048 bytes fit one segment on loopback, 1024 one
//   segment of an Ethernet.
// - With block size 0 records leave bare; each write then waits until the client has read the one before, which can
//   only be seen on the same machine.
//
//   skipped records   FF FF, command, zeros: command 255 takes 3 bytes, 8 takes 5, 2 takes 7, 6 takes 20, 4 takes 43

const { PacedWriter, settled } = require('./paced');
const { deliver } = require('./faults');

const RECEIVE = 2048; // bytes that the client takes at once
const SKIPPED = [
  [43, 4],
  [20, 6],
  [7, 2],
  [5, 8],
  [3, 255],
];
const CANNOT_FILL = new Set([1, 2, 4]); // every other length is a sum of skipped records
const MAX_QUEUE = 200000; // records
const DIGEST_TIME = 50; // ms in which a client surely has decoded a reply that it has received

/** Skipped records of together `length` bytes. */
function filling(length) {
  const bytes = Buffer.alloc(length);
  for (let at = 0; at < length;) {
    const [size, command] = SKIPPED.find(([whole]) => whole <= length - at && !CANNOT_FILL.has(length - at - whole));
    bytes.fill(0xff, at, at + 2);
    bytes[at + 2] = command;
    at += size;
  }
  return bytes;
}

/** Block size for a peer: what the option says, or by 'auto' what fits one segment on the way to it. */
function blockSizeFor(socket, option) {
  if (option !== 'auto') return option;
  return /^127\./.test(socket.remoteAddress || '') ? 2048 : 1024;
}

/** Of records with the same key (a tag) only the newest, in the order of these. */
function newestOnly(queue) {
  const last = new Map();
  queue.forEach((item, i) => last.set(item.key ?? Symbol('own'), i));
  return [...last.values()].sort((a, b) => a - b).map((i) => queue[i]);
}

class Notifier {
  constructor(connection, options, faults, log) {
    Object.assign(this, { connection, options, faults, log });
    this.writer = new PacedWriter(connection.socket);
    this.queue = [];
    this.head = 0;
    this.running = false;
    this.held = null;
    this.holdTimer = null;
  }

  get pending() {
    return this.queue.length - this.head;
  }

  /** Queues a record. `key` names what it tells of: when the client cannot keep up, only the newest stays. */
  push(bytes, key) {
    const size = blockSizeFor(this.connection.socket, this.options.notifyBlock);
    const room = size === 0 ? RECEIVE : size - 5; // 5: so that the rest can always be filled
    if (bytes.length > room) return this.log(`notification of ${bytes.length} bytes does not fit a block; not sent`);
    return this.add({ bytes, key });
  }

  /** Queues bytes that are written as they stand, as one write that the client receives by itself. */
  pushRaw(bytes) {
    this.add({ bytes, raw: true });
  }

  add(item) {
    this.queue.push(item);
    if (this.pending > MAX_QUEUE) this.shorten();
    this.start();
  }

  shorten() {
    this.queue = newestOnly(this.queue.slice(this.head)).slice(-MAX_QUEUE / 2);
    this.head = 0;
  }

  /**
   * Holds records back while a reply to 'b' is on its way: a client that is told of a tag whose type it has not learnt
   * yet throws the rest of that receive away. Ends with the client's next request, or by releaseAfterReply.
   */
  hold() {
    clearTimeout(this.holdTimer);
    this.held = Symbol('hold');
    return this.held;
  }

  /** Ends `hold` a short time after the client has read the reply, should it send nothing more. */
  releaseAfterReply(hold, requestSocket) {
    if (this.held !== hold) return;
    this.holdTimer = setTimeout(async () => {
      await settled(requestSocket, 0);
      if (this.held === hold) this.release();
    }, DIGEST_TIME);
  }

  release() {
    clearTimeout(this.holdTimer);
    this.held = null;
    this.start();
  }

  start() {
    if (this.running || this.held || this.pending === 0) return;
    this.running = true;
    setImmediate(() => this.run());
  }

  async run() {
    while (this.pending > 0 && !this.held && !this.connection.ended) {
      const { bytes, alone } = this.nextBlock();
      const write = (socket, block) => this.writer.write(block, alone);
      if (!(await deliver(this.connection, 'notification', bytes, { faults: this.faults, write }))) break;
    }
    this.running = false;
    if (this.connection.ended) this.stop();
    else this.start();
  }

  nextBlock() {
    if (this.queue[this.head].raw) return { bytes: this.shift().bytes, alone: true };
    const size = blockSizeFor(this.connection.socket, this.options.notifyBlock);
    return size === 0 ? { bytes: this.bareBlock(), alone: true } : { bytes: this.filledBlock(size), alone: false };
  }

  shift() {
    const item = this.queue[this.head];
    this.queue[this.head++] = undefined;
    if (this.head === this.queue.length || this.head > 4096) {
      this.queue = this.queue.slice(this.head);
      this.head = 0;
    }
    return item;
  }

  /** Takes queued records while `fits` allows the length they come to. */
  takeRecords(fits) {
    const records = [];
    let length = 0;
    while (this.pending > 0 && !this.queue[this.head].raw && fits(length + this.queue[this.head].bytes.length)) {
      records.push(this.shift().bytes);
      length += records[records.length - 1].length;
    }
    return Buffer.concat(records);
  }

  bareBlock() {
    return this.takeRecords((length) => length <= RECEIVE);
  }

  filledBlock(size) {
    const records = this.takeRecords((length) => length <= size && !CANNOT_FILL.has(size - length));
    return Buffer.concat([records, filling(size - records.length)]);
  }

  stop() {
    clearTimeout(this.holdTimer);
    this.held = null;
    this.queue = [];
    this.head = 0;
  }
}

module.exports = { Notifier, filling, CANNOT_FILL };
