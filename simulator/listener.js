'use strict';
// A listening TCP socket that can stop and start again on the same port, and knows its connections.

const net = require('node:net');
const { OptionError } = require('./errors');

const REASONS = {
  EADDRINUSE: 'the address is in use',
  EACCES: 'not permitted',
  EADDRNOTAVAIL: 'this machine has no such address',
  ENOTFOUND: 'the name is unknown',
};

const HOST_ERRORS = ['EADDRNOTAVAIL', 'ENOTFOUND', 'EAI_AGAIN', 'EINVAL'];

class Listener {
  /** `flag` is what the names of its options begin with, for errors; `accept` gets each socket. */
  constructor(flag, accept) {
    this.flag = flag;
    this.accept = accept;
    this.sockets = new Set();
    this.server = null;
  }

  /** Listens; resolves when connections are taken. */
  open(host, port) {
    const server = net.createServer((socket) => this.taken(socket));
    return new Promise((resolve, reject) => {
      server.once('error', (error) => {
        const field = `${this.flag}${HOST_ERRORS.includes(error.code) ? 'host' : 'port'}`;
        reject(new OptionError(`${field}: cannot listen on ${host}:${port}: ${REASONS[error.code] || error.code}`));
      });
      server.listen({ host, port, backlog: 511 }, () => {
        server.on('error', () => {});
        this.server = server;
        this.host = host;
        this.port = server.address().port;
        resolve();
      });
    });
  }

  taken(socket) {
    this.sockets.add(socket);
    socket.on('close', () => this.sockets.delete(socket));
    this.accept(socket);
  }

  /** New connections are refused from now on; those that stand go on. */
  stop() {
    return new Promise((resolve) => {
      if (!this.server) resolve();
      else {
        this.server.close(() => {});
        this.server = null;
        setImmediate(resolve);
      }
    });
  }

  /** Takes connections again, on the port as before. */
  resume() {
    return this.server ? Promise.resolve() : this.open(this.host, this.port);
  }

  close() {
    this.stop();
    for (const socket of this.sockets) socket.destroy();
  }
}

module.exports = { Listener };
