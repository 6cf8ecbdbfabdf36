'use strict';
// The relay: clients reach servers through it by device name. The first registration names the device; the relay then
// registers with the device's server in the client's place, with the same identifier, and splices the two connections.
// The second registration carries the identifier alone and is spliced to the server of the first. A device may also be
// answered with "lan" and an address, upon which the client connects there by itself.

const net = require('node:net');
const { Listener } = require('./listener');
const { Connection } = require('./connection');
const { parseRequest } = require('./requests');
const { ProtocolError } = require('./errors');
const { firstReply } = require('./handshake');
const { scramble } = require('./scramble');
const { deliver } = require('./faults');
const { PacedWriter, sleep } = require('./paced');
const { EXTENDED_PORT } = require('./server');

const REGISTRATION_TIME = 30000; // ms for the first packet
const CONNECT_TIME = 5000; // ms to reach a device's server
const CONTEXT = { first: true, extended: true };
const PIECE = 2048; // bytes of a notification piece: what clients receive at once

function openTo({ host, port }) {
  return new Promise((resolve, reject) => {
    const socket = net.connect({ host, port, noDelay: true, timeout: CONNECT_TIME });
    const failed = () => {
      socket.destroy();
      reject(new ProtocolError(`device server ${host}:${port} cannot be reached`));
    };
    socket
      .once('error', failed)
      .once('timeout', failed)
      .once('connect', () => {
        socket.off('error', failed).off('timeout', failed).setTimeout(0);
        socket.on('error', () => {});
        resolve(socket);
      });
  });
}

/** Both ends of a splice end together, after what was written has gone out. */
function endTogether(one, other) {
  one.on('close', () => other.destroySoon());
  other.on('close', () => one.destroySoon());
}

/** Passes notifications on in pieces that the client receives one by one, so that records stay whole. */
async function passPieces(writer, upstream, bytes) {
  upstream.pause();
  for (let at = 0; at < bytes.length; at += PIECE) {
    if (!(await writer.write(bytes.subarray(at, at + PIECE), true))) break;
  }
  upstream.resume();
}

class Relay {
  /** `relay`: { host, port, devices: Map name -> { kind, host, port } }; `ownAddress` gives that of this server. */
  constructor(relay, { faults, recorder, log, ownAddress }) {
    Object.assign(this, { relay, faults, recorder, log, ownAddress });
    this.listener = new Listener('--relay-', (socket) => this.accept(socket));
    this.waiting = new Map(); // identifier -> server of a client whose first connection stands
    this.lastConnection = 0;
  }

  listen() {
    return this.listener.open(this.relay.host, this.relay.port);
  }

  get port() {
    return this.listener.port;
  }

  accept(socket) {
    const connection = new Connection(socket, `relay-${++this.lastConnection}`);
    this.serve(connection).catch((error) => {
      this.log(`${connection.id} (${connection.remote}): ${error.message}`);
      connection.close();
    });
  }

  async serve(connection) {
    const request = await this.registration(connection);
    if (!request) return connection.close();
    this.recorder.add('request', {
      connection: 'relay',
      conn: connection.id,
      command: request.command,
      fields: request.fields,
      bytes: Buffer.from(connection.bytes.subarray(0, request.length)),
    });
    return request.command === '7' ? this.first(connection, request) : this.second(connection, request);
  }

  async registration(connection) {
    const deadline = Date.now() + REGISTRATION_TIME;
    for (;;) {
      const request = connection.bytes.length > 0 ? parseRequest(connection.bytes, CONTEXT) : null;
      if (request || !(await connection.more(Math.max(1, deadline - Date.now())))) return request;
    }
  }

  /** Answers that end the exchange with the relay: refusal and "lan". */
  async answer(connection, step, reply, seal) {
    await deliver(connection, step, reply, { faults: this.faults, seal });
    connection.close();
  }

  targetOf(device) {
    return device.kind === 'self' ? this.ownAddress() : device;
  }

  lanAddress(device) {
    const { host, port } = device.port ? device : this.ownAddress();
    return `${host}:${port}`;
  }

  /** A connection to the device's server for a client that is still there. */
  async reach(connection, target) {
    const upstream = await openTo(target);
    if (!connection.ended) return upstream;
    upstream.destroy();
    throw new ProtocolError('the client has gone');
  }

  async first(connection, request) {
    const device = this.relay.devices.get(request.fields.target);
    if (!device) return this.answer(connection, 'relay1', Buffer.from('0'));
    if (device.kind === 'lan') return this.answer(connection, 'relay1', firstReply(this.lanAddress(device)));
    if (!(await this.spared(connection, 'relay1'))) return undefined;
    const target = this.targetOf(device);
    const upstream = await this.reach(connection, target);
    const { id } = request.fields;
    this.waiting.set(id, target);
    connection.socket.on('close', () => this.waiting.delete(id));
    const own = Buffer.concat([Buffer.from('7'), scramble(Buffer.from(id, 'hex'))]);
    const passedOn = target.port === EXTENDED_PORT ? connection.bytes.subarray(0, request.length) : own;
    return this.splice(connection, upstream, request.length, passedOn);
  }

  /** Whether no fault stands against a splice; one that does, but for a delay, is answered as a refusal. */
  async spared(connection, step, seal) {
    const fault = this.faults.take(step);
    if (!fault) return true;
    if (fault.action === 'delay') {
      await sleep(fault.ms);
      return true;
    }
    await deliver(connection, step, Buffer.from('0'), { faults: { take: () => fault }, seal });
    if (!connection.hung) connection.close();
    return false;
  }

  async second(connection, request) {
    const target = this.waiting.get(request.fields.id);
    if (!target) return this.answer(connection, 'relay2', Buffer.from('0'), scramble);
    if (!(await this.spared(connection, 'relay2', scramble))) return undefined;
    const upstream = await this.reach(connection, target);
    const passedOn = connection.bytes.subarray(0, request.length);
    return this.splice(connection, upstream, request.length, passedOn, true);
  }

  /** Joins client and server for good: `passedOn` stands for the client's first `used` bytes. */
  splice(connection, upstream, used, passedOn, notifications = false) {
    upstream.write(passedOn);
    const rest = connection.detach().subarray(used);
    if (rest.length > 0) upstream.write(rest);
    const client = connection.socket;
    endTogether(client, upstream);
    client.pipe(upstream);
    const writer = new PacedWriter(client);
    if (notifications) upstream.on('data', (bytes) => passPieces(writer, upstream, bytes));
    else upstream.pipe(client);
  }

  close() {
    this.listener.close();
  }
}

module.exports = { Relay };
