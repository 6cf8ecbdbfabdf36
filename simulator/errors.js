'use strict';
// The two kinds of failure that the simulator tells apart: what its user typed wrong (one clear line, exit code 2)
// and what a client sent wrong (that client's connection is closed, nothing else happens).

class OptionError extends Error {
  constructor(message) {
    super(message);
    this.name = 'OptionError';
    this.code = 'ERR_SIMULATOR_OPTION';
  }
}

class ProtocolError extends Error {
  constructor(message) {
    super(message);
    this.name = 'ProtocolError';
  }
}

module.exports = { OptionError, ProtocolError };
