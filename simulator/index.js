'use strict';
// Starting a simulator from JavaScript. It runs in a child process, so that a client that blocks this process cannot
// block the server it waits for. See README.md for options and commands.

const path = require('node:path');
const { fork } = require('node:child_process');
const { OptionError } = require('./errors');
const { COMMAND_NAMES } = require('./simulator');
const { scramble, unscramble } = require('./scramble');

const START_TIME = 20000; // ms until the child must be ready
const CLOSE_TIME = 3000; // ms for an orderly end before the child is killed

const failure = ({ error, failed, code }) =>
  code === 'ERR_SIMULATOR_OPTION' ? new OptionError(failed ?? error) : new Error(failed ?? error);

class SimulatorProcess {
  constructor() {
    this.child = fork(path.join(__dirname, 'child.js'), [], {
      serialization: 'advanced',
      stdio: ['ignore', 'ignore', 'inherit', 'ipc'],
      execArgv: [],
    });
    this.calls = new Map();
    this.lastCall = 0;
    this.exited = new Promise((resolve) => this.child.once('exit', (code) => resolve(code)));
    this.exited.then(() => this.abandonCalls());
  }

  /** Resolves to the child's description of itself. */
  start(options) {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => this.child.kill('SIGKILL'), START_TIME);
      this.exited.then((code) => reject(new Error(`the simulator ended before it was ready (exit code ${code})`)));
      this.child.once('message', (message) => {
        clearTimeout(timer);
        if (message.ready) resolve(message.ready);
        else reject(failure(message));
      });
      this.child.send({ start: options }, (error) => error && reject(error));
    });
  }

  /** From now on the child does not keep this process alive, but for the time of a command. */
  serve() {
    this.child.on('message', (message) => this.answered(message));
    this.rest();
  }

  rest() {
    if (this.calls.size > 0) return;
    this.child.unref();
    this.child.channel?.unref();
  }

  call(name, args) {
    return new Promise((resolve, reject) => {
      const number = ++this.lastCall;
      this.calls.set(number, { resolve, reject });
      this.child.ref();
      this.child.channel?.ref();
      if (!this.child.connected) this.abandonCalls();
      else this.child.send({ call: number, name, args }, (error) => error && this.abandonCalls());
    });
  }

  answered(message) {
    const call = this.calls.get(message.answer);
    this.calls.delete(message.answer);
    this.rest();
    if (message.error !== undefined) call?.reject(failure(message));
    else call?.resolve(message.result);
  }

  abandonCalls() {
    for (const { reject } of this.calls.values()) reject(new Error('the simulator has ended'));
    this.calls.clear();
    this.rest();
  }

  /** Ends the child; resolves when it is gone. */
  async close() {
    this.child.ref();
    const timer = setTimeout(() => this.child.kill('SIGKILL'), CLOSE_TIME);
    if (this.child.connected) this.child.disconnect();
    await this.exited;
    clearTimeout(timer);
  }
}

/** Starts a simulator; resolves when it takes connections. Rejects with an OptionError for bad options or projects. */
async function startSimulator(options = {}) {
  const running = new SimulatorProcess();
  let description;
  try {
    description = await running.start(options);
  } catch (error) {
    await running.close();
    throw error;
  }
  running.serve();
  const commands = COMMAND_NAMES.map((name) => [name, (...args) => running.call(name, args)]);
  return {
    ...description,
    pid: running.child.pid,
    exited: running.exited,
    close: () => running.close(),
    ...Object.fromEntries(commands),
  };
}

module.exports = { startSimulator, OptionError, scramble, unscramble };
