'use strict';
// The options, once for the command line and for JavaScript: a table with each option's check, and the two ways in.

const path = require('node:path');
const { Check } = require('./check');
const { OptionError } = require('./errors');
const { checkFault, ACTIONS } = require('./faults');
const { ipv4 } = require('./wire');
const { MAX_RATE } = require('./waveforms');
const { ACK_OWN_BYTES } = require('./handshake');

const DEMO_PROJECT = path.join(__dirname, 'demo-plant.json');
const BLOCK_SIZES = [0, 256, 512, 1024, 2048]; // what divides the client's receive of 2048 bytes

const check = new Check('options');

function checkAddress(value, field) {
  const [host, port, more] = String(value).split(':');
  const fits = typeof value === 'string' && ipv4(host) && /^\d{1,5}$/.test(port ?? '') && more === undefined;
  if (!fits || Number(port) < 1 || Number(port) > 65535) check.expected(field, 'IPV4:PORT', value);
  return value;
}

function checkAck(value, field) {
  if (value === null || typeof value !== 'object') check.expected(field, 'bytes by offset', value);
  for (const [offset, byte] of Object.entries(value)) {
    const known = /^\d+$/.test(offset) && Number(offset) < ACK_OWN_BYTES;
    if (!known) check.fail(`${field}.${offset}`, `expected an offset from 0 to ${ACK_OWN_BYTES - 1}`);
    check.integer(byte, `${field}.${offset}`, 0, 255);
  }
  return { ...value };
}

function checkBlock(value, field) {
  if (value === 'auto' || BLOCK_SIZES.includes(value)) return value;
  return check.expected(field, `auto or one of ${BLOCK_SIZES.join(', ')}`, value);
}

/** Where a device's connections go: { kind: 'self' | 'lan' | 'server', host, port }. */
function checkDevice(target, field) {
  if (target === true) return { kind: 'self' };
  if (target === 'lan') return { kind: 'lan' };
  const lan = typeof target === 'string' && target.startsWith('lan:');
  const text = lan ? target.slice(4) : target;
  if (lan) checkAddress(text, field);
  const match = /^([^:\s]+):(\d{1,5})$/.exec(text);
  if (!match || Number(match[2]) < 1 || Number(match[2]) > 65535) {
    check.expected(field, 'true, HOST:PORT, lan or lan:IPV4:PORT', target);
  }
  return { kind: lan ? 'lan' : 'server', host: match[1], port: Number(match[2]) };
}

function checkRelay(value, field) {
  if (value === null) return null;
  check.object(value, field, ['host', 'port', 'devices']);
  const devices = value.devices ?? {};
  if (devices === null || typeof devices !== 'object') check.expected(`${field}.devices`, 'an object', devices);
  return {
    host: check.string(value.host ?? '127.0.0.1', `${field}.host`),
    port: check.integer(value.port ?? 3968, `${field}.port`, 0, 65535),
    devices: new Map(
      Object.entries(devices).map(([name, target]) => [name, checkDevice(target, `${field}.devices.${name}`)]),
    ),
  };
}

function checkProject(value, field) {
  const given = typeof value === 'string' || (value !== null && typeof value === 'object');
  return given ? value : check.expected(field, 'the path of a project file, or a project', value);
}

const checkFaults = (value, field) => {
  check.list(value, field).forEach((fault, i) => checkFault(fault, `${field}[${i}]`));
  return value;
};

// name -> [default, check]; those in RUNTIME may be changed while the server runs
const OPTIONS = {
  project: [DEMO_PROJECT, checkProject],
  host: ['127.0.0.1', (value, field) => check.string(value, field)],
  port: [0, (value, field) => check.integer(value, field, 0, 65535)],
  relay: [null, checkRelay],
  lan: [null, (value, field) => (value === null ? null : checkAddress(value, field))],
  rate: [2, (value, field) => check.number(value, field, 0, MAX_RATE)],
  chunk: [1024, (value, field) => check.integer(value, field, 1, 60000)],
  notifyBlock: ['auto', checkBlock],
  hello: [true, (value, field) => check.boolean(value, field)],
  ackTimeout: [10000, (value, field) => check.integer(value, field, 1, 3600000)],
  ack: [{}, checkAck],
  faults: [[], checkFaults],
  record: [50000, (value, field) => check.integer(value, field, 1, 1000000)],
  seed: [1, (value, field) => check.integer(value, field, 0, 0xffffffff)],
  verbose: [false, (value, field) => check.boolean(value, field)],
};
const RUNTIME = ['ack', 'lan', 'rate', 'chunk', 'notifyBlock', 'hello', 'ackTimeout'];

function checked(given, names) {
  check.object(given, '', names);
  const result = {};
  for (const name of names) if (given[name] !== undefined) result[name] = OPTIONS[name][1](given[name], name);
  return result;
}

/** All options, with defaults, from those given in JavaScript. Throws OptionError. */
function completeOptions(given = {}) {
  const defaults = Object.fromEntries(Object.entries(OPTIONS).map(([name, [value]]) => [name, value]));
  return { ...defaults, ...checked(given, Object.keys(OPTIONS)) };
}

/** Options that a running server takes. */
const runtimeOptions = (given) => checked(given, RUNTIME);

function numberArgument(text, flag) {
  if (/^-?\d+(\.\d+)?$/.test(text)) return Number(text);
  throw new OptionError(`${flag}: expected a number, found ${JSON.stringify(text)}`);
}

function faultArgument(text, flag) {
  const match = /^([^:*]+):([^:*]+)(?::([^*]*))?(?:\*(\d+))?$/.exec(text);
  if (!match) throw new OptionError(`${flag}: expected STEP:ACTION[:VALUE][*COUNT], found ${JSON.stringify(text)}`);
  const [, step, action, value, count] = match;
  const fault = { step, action, ...(count === undefined ? {} : { count: Number(count) }) };
  const parameter = Object.hasOwn(ACTIONS, action) && ACTIONS[action];
  if (value !== undefined && !parameter) throw new OptionError(`${flag}: action ${action} takes no value`);
  if (value !== undefined) {
    fault[parameter[0]] = /^(ms|bytes)$/.test(parameter[0]) ? numberArgument(value, flag) : value;
  }
  return fault;
}

function addDevice(options, text) {
  const at = text.indexOf('=');
  const relay = relayOf(options);
  relay.devices[at < 0 ? text : text.slice(0, at)] = at < 0 ? true : text.slice(at + 1);
}

function relayOf(options) {
  options.relay ??= { devices: {} };
  return options.relay;
}

// flag -> [text of its value or null, what it does with the options and the value, help]
const FLAGS = {
  '--project': [
    'FILE',
    (o, text) => {
      o.project = text;
    },
    'project to serve (default: the demo plant)',
  ],
  '--host': [
    'ADDRESS',
    (o, text) => {
      o.host = text;
    },
    'IPv4 address to listen on (default 127.0.0.1)',
  ],
  '--port': [
    'N',
    (o, text, flag) => {
      o.port = portArgument(text, flag);
    },
    'port; 0 takes any free one (default 0)',
  ],
  '--relay-port': [
    'N',
    (o, text, flag) => {
      relayOf(o).port = portArgument(text, flag);
    },
    'run a relay on this port too (clients expect 3968)',
  ],
  '--relay-host': [
    'ADDRESS',
    (o, text) => {
      relayOf(o).host = text;
    },
    'IPv4 address of the relay',
  ],
  '--device': ['NAME[=TARGET]', addDevice, 'device of the relay: this server, HOST:PORT, lan or lan:IPV4:PORT'],
  '--lan': [
    'IPV4:PORT',
    (o, text) => {
      o.lan = text;
    },
    'answer the first exchange with "lan" and this address',
  ],
  '--rate': [
    'N',
    (o, text, flag) => {
      o.rate = numberArgument(text, flag);
    },
    'changes a second of every moving tag; 0 stops them (default 2)',
  ],
  '--chunk': [
    'N',
    (o, text, flag) => {
      o.chunk = numberArgument(text, flag);
    },
    'bytes of values in one reply chunk (default 1024)',
  ],
  '--notify-block': [
    'N',
    (o, text, flag) => {
      o.notifyBlock = text === 'auto' ? text : numberArgument(text, flag);
    },
    'size of notification blocks: auto, 0, 256, 512, 1024, 2048',
  ],
  '--no-hello': [
    null,
    (o) => {
      o.hello = false;
    },
    'no flow control in file transfers',
  ],
  '--ack-timeout': [
    'MS',
    (o, text, flag) => {
      o.ackTimeout = numberArgument(text, flag);
    },
    'longest wait for an acknowledgement (default 10000)',
  ],
  '--fault': [
    'STEP:ACTION[:VALUE][*COUNT]',
    (o, text, flag) => {
      (o.faults ??= []).push(faultArgument(text, flag));
    },
    'let something go wrong; may be repeated',
  ],
  '--record': [
    'N',
    (o, text, flag) => {
      o.record = numberArgument(text, flag);
    },
    'entries of the record (default 1000)',
  ],
  '--seed': [
    'N',
    (o, text, flag) => {
      o.seed = numberArgument(text, flag);
    },
    'seed of the random waveforms (default 1)',
  ],
  '--verbose': [
    null,
    (o) => {
      o.verbose = true;
    },
    'log to standard error',
  ],
  '--exit-with-stdin': [
    null,
    (o, text, flag, mode) => {
      mode.exitWithStdin = true;
    },
    'end when standard input closes',
  ],
  '--help': [
    null,
    (o, text, flag, mode) => {
      mode.help = true;
    },
    'this text',
  ],
};

function portArgument(text, flag) {
  if (/^\d{1,5}$/.test(text) && Number(text) <= 65535) return Number(text);
  throw new OptionError(`${flag}: ${JSON.stringify(text)} is no port; expected a whole number from 0 to 65535`);
}

/** Names the flag in place of the JavaScript name in an error of a check: "options: chunk: ..." -> "--chunk: ...". */
function flagError(error) {
  const match = /^options: ([a-zA-Z]+)[^:]*: (.*)$/.exec(error.message);
  if (!match) return error;
  const own = { relay: 'device', faults: 'fault' }[match[1]];
  const flag = own ?? match[1].replace(/[A-Z]/g, (letter) => `-${letter.toLowerCase()}`);
  return new OptionError(`--${flag}: ${match[2]}`);
}

/** Options of the command line: { options, exitWithStdin, help }. Throws OptionError. */
function parseArguments(args) {
  const mode = { exitWithStdin: false, help: false };
  const given = { record: 1000 };
  for (let i = 0; i < args.length; i++) {
    const equals = args[i].startsWith('--') ? args[i].indexOf('=') : -1;
    const flag = equals < 0 ? args[i] : args[i].slice(0, equals);
    if (!Object.hasOwn(FLAGS, flag)) throw new OptionError(`${flag}: unknown option; --help lists them`);
    const [wanted, apply] = FLAGS[flag];
    if (!wanted && equals >= 0) throw new OptionError(`${flag}: takes no value`);
    const value = equals >= 0 ? args[i].slice(equals + 1) : wanted ? args[++i] : undefined;
    if (wanted && value === undefined) throw new OptionError(`${flag}: needs a value (${wanted})`);
    apply(given, value, flag, mode);
  }
  return { ...mode, options: completeFromFlags(given) };
}

function completeFromFlags(given) {
  try {
    return completeOptions(given);
  } catch (error) {
    throw error instanceof OptionError ? flagError(error) : error;
  }
}

function helpText() {
  const rows = Object.entries(FLAGS).map(([flag, [value, , help]]) => [value ? `${flag} ${value}` : flag, help]);
  const width = Math.max(...rows.map(([left]) => left.length)) + 2;
  const lines = rows.map(([left, help]) => `  ${left.padEnd(width)}${help}`);
  const head = 'Usage: vqdb-simulator [options]\n\nA tag database server to work against without a plant.\n\n';
  return `${head}${lines.join('\n')}\n`;
}

module.exports = { completeOptions, runtimeOptions, parseArguments, helpText };
