'use strict';
// A client of the tag database in a few lines of its own, for tests of the simulator: it knows how the two connections
// are opened and nothing more. Everything else a test sends and expects as bytes.

const net = require('node:net');
const { patience } = require('./patience.js');

const BOUND = patience(5000); // ms after which a missing byte is a failure

class Peer {
  static open(port, host = '127.0.0.1') {
    return new Promise((resolve, reject) => {
      const socket = net.connect({ port, host });
      socket.once('error', reject).once('connect', () => resolve(new Peer(socket)));
    });
  }

  constructor(socket) {
    this.socket = socket;
    this.bytes = Buffer.alloc(0);
    this.chunks = []; // as TCP delivered them
    this.ended = false;
    this.look = () => {};
    socket.setNoDelay(true);
    socket.on('data', (chunk) => {
      this.chunks.push(chunk);
      this.bytes = Buffer.concat([this.bytes, chunk]);
      this.look();
    });
    socket.on('error', (error) => {
      this.error = error.code;
    });
    socket.on('close', () => {
      this.ended = true;
      this.look();
    });
  }

  send(...parts) {
    this.socket.write(Buffer.concat(parts.map((part) => Buffer.from(part))));
  }

  /** Resolves when `done()` is true; rejects when the time is over. */
  until(done, what) {
    return new Promise((resolve, reject) => {
      const late = () => new Error(`${what}: ${this.bytes.length} came: ${this.bytes.toString('hex', 0, 64)}`);
      const timer = setTimeout(() => finish(reject, late()), BOUND);
      const finish = (settle, value) => {
        clearTimeout(timer);
        this.look = () => {};
        settle(value);
      };
      this.look = () => {
        if (done()) finish(resolve);
      };
      this.look();
    });
  }

  /** Exactly `count` bytes, as hexadecimal text; fewer when the connection ends. */
  async read(count) {
    await this.until(() => this.bytes.length >= count || this.ended, `${count} bytes`);
    const part = this.bytes.subarray(0, count);
    this.bytes = this.bytes.subarray(part.length);
    return part.toString('hex');
  }

  /** Everything up to the end of the connection, as hexadecimal text. */
  async readToEnd() {
    await this.until(() => this.ended, 'the end of the connection');
    return this.read(this.bytes.length);
  }

  /** From now on what comes stays in the kernel, as with a program that does not read; `resume` takes it up again. */
  stall() {
    this.socket._handle.readStop();
  }

  resume() {
    this.socket._handle.readStart();
  }

  close() {
    this.socket.destroy();
  }
}

/** Scrambled with the mask bytes of a fixed row, so that the bytes sent are always the same. */
function scrambled(plain, firstMask = 0x11) {
  const out = [];
  plain.forEach((byte, i) => {
    const r = (firstMask + Math.floor(i / 3) * 7) & 0xff;
    if (i % 3 === 0) out.push(r);
    out.push([byte + r, byte - r, byte ^ r][i % 3] & 0xff);
  });
  return Buffer.from(out);
}

function plainOf(wire) {
  const out = [];
  for (let i = 0; i < wire.length; i += 4) {
    const [r, a, b, c] = wire.subarray(i, i + 4);
    if (a !== undefined) out.push((a - r) & 0xff);
    if (b !== undefined) out.push((b + r) & 0xff);
    if (c !== undefined) out.push(c ^ r);
  }
  return Buffer.from(out);
}

let clients = 0;

function identifier() {
  const ident = Buffer.alloc(16, 0xa0);
  ident.writeUInt32BE(process.pid, 0);
  ident.writeUInt32BE(++clients, 4);
  return ident;
}

/** The extended registration body: identifier, hardware address, target NUL. */
const extendedBody = (ident, target) => Buffer.concat([ident, Buffer.alloc(6), Buffer.from(`${target}\0`)]);
const secondBody = (ident, flag = 1) => Buffer.concat([ident, Buffer.from('tester\0'), Buffer.from([flag, 1])]);

/** Opens and registers both connections; `target` makes the registration body the extended one. */
async function register({ port, host }, target) {
  const ident = identifier();
  const request = await Peer.open(port, host);
  request.send('7', scrambled(target === undefined ? ident : extendedBody(ident, target)));
  const first = await request.read(1);
  const notify = await Peer.open(port, host);
  notify.send('8', scrambled(secondBody(ident)));
  await notify.until(() => plainOf(notify.bytes).length >= 60 || notify.ended, 'the second reply');
  const second = plainOf(notify.bytes);
  notify.bytes = Buffer.alloc(0);
  notify.chunks = [];
  return { ident, request, notify, first, second };
}

/** Registered and logged in. */
async function login(address, user = 'operator', password = 'secret', target = undefined) {
  const client = await register(address, target);
  client.request.send(`9${user}\0${password}\0`);
  client.rights = await client.request.read(9);
  client.close = () => {
    client.request.close();
    client.notify.close();
  };
  return client;
}

const hex = (text) => Buffer.from(text.replace(/\s+/g, ''), 'hex');

module.exports = { Peer, scrambled, plainOf, identifier, extendedBody, secondBody, register, login, hex };
