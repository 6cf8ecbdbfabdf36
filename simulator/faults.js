'use strict';
// Faults: a table from a named step of the exchange to what goes wrong there, and how often. `deliver` is the one place
// where replies leave the server, so that every fault works at every step.

const { Check } = require('./check');
const { toBytes } = require('./wire');
const { writeOnce, settled, sleep } = require('./paced');

const STEPS = [
  'accept',
  'relay1',
  'relay2',
  'handshake1',
  'handshake2',
  'path',
  'login',
  'file',
  'file-body',
  'tagids',
  'connect',
  'read',
  'write',
  'unadvise',
  'alarms',
  'notification',
];

// action -> the parameter it takes and what stands for a missing one
const ACTIONS = {
  refuse: null,
  delay: ['ms', 1000],
  cut: ['bytes', 1],
  split: ['bytes', 1],
  trickle: ['ms', 0],
  letter: ['letter', 'x'],
  reply: ['hex', ''],
  close: null,
  reset: null,
  drop: null,
  hang: null,
};

const FIELDS = ['step', 'action', 'count', 'skip', 'ms', 'bytes', 'letter', 'hex'];

function checkParameter(check, spec, field) {
  const parameter = ACTIONS[spec.action];
  if (!parameter) return {};
  const [name, fallback] = parameter;
  const value = spec[name] ?? fallback;
  const place = `${field}.${name}`;
  if (name === 'ms') return { ms: check.integer(value, place, 0, 3600000) };
  if (name === 'bytes') return { bytes: check.integer(value, place, 0, 0x7fffffff) };
  if (name === 'letter') return { letter: check.string(value, place, 1) };
  return { hex: toBytes(value) ?? check.expected(place, 'hexadecimal bytes', value) };
}

/** A fault as it is given, checked: { step, action, count, skip, parameter }. Throws OptionError. */
function checkFault(spec, field = 'fault') {
  const check = new Check('options');
  check.object(spec, field, FIELDS);
  const step = check.oneOf(spec.step, `${field}.step`, 'step', STEPS);
  const action = check.oneOf(spec.action, `${field}.action`, 'action', Object.keys(ACTIONS));
  const count = spec.count === undefined ? Infinity : check.integer(spec.count, `${field}.count`, 1, 1e9);
  const skip = check.integer(spec.skip ?? 0, `${field}.skip`, 0, 1e9);
  return { step, action, count, skip, ...checkParameter(check, spec, field) };
}

class Faults {
  constructor(specs = []) {
    this.table = [];
    specs.forEach((spec, i) => this.add(spec, `faults[${i}]`));
  }

  add(spec, field) {
    this.table.push(checkFault(spec, field));
  }

  clear() {
    this.table = [];
  }

  /** Whether a fault for `step` is in the table. */
  awaits(step) {
    return this.table.some((fault) => fault.step === step && fault.count > 0);
  }

  /** The fault that strikes at this pass of `step`, or null. */
  take(step) {
    for (const fault of this.table) {
      if (fault.step !== step || fault.count === 0) continue;
      if (fault.skip > 0) {
        fault.skip--;
        continue;
      }
      fault.count--;
      return fault;
    }
    return null;
  }
}

/** Ways to write a reply badly; each resolves to whether the connection goes on. */
const WRITERS = {
  async cut(connection, bytes, fault) {
    await writeOnce(connection.socket, bytes.subarray(0, fault.bytes));
    connection.close();
    return false;
  },
  async split(connection, bytes, fault) {
    await writeOnce(connection.socket, bytes.subarray(0, fault.bytes));
    await settled(connection.socket, 0);
    return writeOnce(connection.socket, bytes.subarray(fault.bytes));
  },
  async trickle(connection, bytes, fault) {
    for (const byte of bytes) {
      if (!(await writeOnce(connection.socket, Buffer.from([byte])))) return false;
      await sleep(fault.ms);
    }
    return true;
  },
};

/** Faults without a reply. Resolves to whether the connection goes on. */
const ENDINGS = {
  async close(connection) {
    connection.close();
    return false;
  },
  async reset(connection) {
    connection.reset();
    return false;
  },
  async drop() {
    return true;
  },
  async hang(connection) {
    connection.hung = true;
    return true;
  },
};

function changedReply(fault, reply, refusal) {
  switch (fault?.action) {
    case 'refuse':
      return refusal;
    case 'reply':
      return fault.hex;
    case 'letter':
      return Buffer.concat([Buffer.from(fault.letter), reply.subarray(1)]);
    default:
      return reply;
  }
}

/**
 * Sends a reply through the fault table. `refusal`: what the action 'refuse' answers at this step; `refusalEnds`: the
 * connection is closed behind it. `seal`: applied to the bytes last (the scrambling of the second handshake reply).
 * `write`: how a healthy reply is written.
 * Resolves to whether the connection goes on.
 */
async function deliver(connection, step, reply, options = {}) {
  const { faults, refusal = Buffer.from('0'), seal = (bytes) => bytes, write = writeOnce } = options;
  if (connection.hung) return true;
  const fault = faults.take(step);
  if (fault && ENDINGS[fault.action]) return ENDINGS[fault.action](connection);
  if (fault?.action === 'delay') await sleep(fault.ms);
  const bytes = seal(changedReply(fault, reply, refusal));
  const writer = fault && WRITERS[fault.action];
  const goesOn = await (writer ? writer(connection, bytes, fault) : write(connection.socket, bytes));
  return goesOn && !(fault?.action === 'refuse' && options.refusalEnds);
}

/** A step without a reply: 'go' on, 'skip' what would be done, or 'end' (the connection is closed). */
async function strike(connection, faults, step) {
  const fault = connection.hung ? { action: 'hang' } : faults.take(step);
  if (!fault) return 'go';
  if (fault.action === 'delay') {
    await sleep(fault.ms);
    return 'go';
  }
  const ending = ENDINGS[fault.action];
  return !ending || (await ending(connection)) ? 'skip' : 'end';
}

module.exports = { Faults, checkFault, deliver, strike, STEPS, ACTIONS };
