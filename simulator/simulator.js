'use strict';
// The whole simulator in one object: plant, waveforms, alarms, files, server and relay, and the commands that tests and
// operators give it. Runs in the process that makes it; index.js runs one in a child process.

const { completeOptions, runtimeOptions } = require('./options');
const { loadProject } = require('./project');
const { Plant } = require('./plant');
const { Waveforms } = require('./waveforms');
const { Alarms } = require('./alarms');
const { Files } = require('./files');
const { Faults } = require('./faults');
const { Recorder } = require('./recorder');
const { Server } = require('./server');
const { Relay } = require('./relay');
const { toBytes } = require('./wire');

const logTo = (stream) => (line) => stream.write(`${new Date().toISOString()} ${line}\n`);

class Simulator {
  /** `options` as completeOptions gives them. Throws OptionError for a bad project. */
  constructor(options) {
    this.options = options;
    this.log = options.verbose ? logTo(process.stderr) : () => {};
    this.project = loadProject(options.project);
    this.plant = new Plant(this.project);
    this.alarmBook = new Alarms(this.plant, this.project);
    this.files = new Files(this.project, this.plant, this.alarmBook);
    this.faults = new Faults(options.faults);
    this.recorder = new Recorder(options.record);
    this.server = new Server({
      options,
      project: this.project,
      plant: this.plant,
      alarms: this.alarmBook,
      files: this.files,
      faults: this.faults,
      recorder: this.recorder,
      log: this.log,
    });
    this.relay =
      options.relay &&
      new Relay(options.relay, {
        faults: this.faults,
        recorder: this.recorder,
        log: this.log,
        ownAddress: () => this.ownAddress(),
      });
  }

  ownAddress() {
    const { host } = this.options;
    return { host: host === '0.0.0.0' ? '127.0.0.1' : host, port: this.server.listener.port };
  }

  async start() {
    await this.server.listen();
    try {
      await this.relay?.listen();
    } catch (error) {
      this.server.close();
      throw error;
    }
    this.waveforms = new Waveforms(this.plant, this.options);
  }

  /** What is printed when ready. */
  describe() {
    const { host } = this.options;
    const { port } = this.server.listener;
    const relay = this.relay && {
      host: this.options.relay.host,
      port: this.relay.port,
      devices: [...this.options.relay.devices.keys()],
    };
    return { host, port, address: `${host}:${port}`, relay, project: this.project.name, pid: process.pid };
  }

  stop() {
    this.waveforms?.stop();
    this.recorder.stop();
    this.server.close();
    this.relay?.close();
  }

  sessionsOf(number) {
    return [...this.server.sessions.values()].filter((one) => number === undefined || one.number === number);
  }
}

// The commands. Each gets the simulator and its arguments; what it gives back must survive a process border.
const COMMANDS = {
  requests: (sim, match = {}) => sim.recorder.list({ ...match, event: 'request' }),
  events: (sim, match) => sim.recorder.list(match),
  clearRequests: (sim) => sim.recorder.clear(),
  waitFor(sim, event, match, limits) {
    return sim.recorder.waitFor(event, match ?? {}, typeof limits === 'number' ? { timeout: limits } : limits);
  },
  get: (sim, driver, tag) => sim.plant.named(driver, tag).value,
  set(sim, driver, tagName, value) {
    const tag = sim.plant.named(driver, tagName);
    tag.wave = null;
    sim.plant.store(tag, value, true);
  },
  notifyRaw(sim, bytes, session) {
    const raw = toBytes(bytes);
    if (!raw) throw new Error('notifyRaw: expected a Buffer or hexadecimal text');
    for (const one of sim.sessionsOf(session)) one.notifier?.pushRaw(raw);
  },
  raiseAlarm: (sim, alarm) => sim.alarmBook.raise(alarm ?? {}),
  endAlarm: (sim, id, endTime) => sim.alarmBook.end(id, endTime),
  alarms: (sim) => sim.alarmBook.list(),
  setFault: (sim, fault) => sim.faults.add(fault),
  clearFaults: (sim) => sim.faults.clear(),
  configure(sim, given) {
    Object.assign(sim.options, runtimeOptions(given));
    if (given.rate !== undefined) sim.waveforms.setRate(sim.options.rate);
  },
  connections: (sim) =>
    [...sim.server.connections.values()].map(({ id, kind, remote, session }) => ({
      id,
      kind,
      remote,
      session: session?.number,
      user: session?.user ?? null,
      rights: session?.rights ?? 0,
      advised: session?.advised.size ?? 0,
    })),
  closeNotification: (sim, session) => closeKind(sim, 'notification', session),
  closeRequest: (sim, session) => closeKind(sim, 'request', session),
  closeAll: (sim) => [...sim.server.connections.values()].forEach((connection) => connection.close()),
  stopListening: (sim) => sim.server.listener.stop(),
  startListening: (sim) => sim.server.listener.resume(),
};

function closeKind(sim, kind, session) {
  sim.server.ofKind(kind, session).forEach((connection) => connection.close());
}

/** Runs a command by name; resolves to its result. */
async function runCommand(simulator, name, args) {
  if (!Object.hasOwn(COMMANDS, name)) throw new Error(`unknown command ${name}`);
  return COMMANDS[name](simulator, ...args);
}

/** A started simulator from options as given in JavaScript. */
async function createSimulator(given) {
  const simulator = new Simulator(completeOptions(given));
  await simulator.start();
  return simulator;
}

module.exports = { Simulator, createSimulator, runCommand, COMMAND_NAMES: Object.keys(COMMANDS) };
