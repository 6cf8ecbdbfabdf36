'use strict';
// The child process behind startSimulator. Takes the options and then commands from its parent over the process channel
// and answers each; ends when the parent goes away. Nothing here waits for the parent.
//
//   parent -> child   { start: options }, then { call: number, name, args }
//   child -> parent   { ready: description } or { failed: message, code }, then { answer: number, result | error }

const { createSimulator, runCommand } = require('./simulator');

let simulator = null;

function send(message) {
  if (process.connected) process.send(message, () => {});
}

async function start(options) {
  try {
    simulator = await createSimulator(options);
    send({ ready: simulator.describe() });
  } catch (error) {
    send({ failed: error.message, code: error.code });
    process.disconnect();
  }
}

async function call({ call: number, name, args }) {
  try {
    send({ answer: number, result: await runCommand(simulator, name, args) });
  } catch (error) {
    send({ answer: number, error: error.message, code: error.code });
  }
}

function end() {
  simulator?.stop();
  process.exit(0);
}

process.on('message', (message) => ('start' in message ? start(message.start) : call(message)));
process.on('disconnect', end);
process.on('SIGTERM', end);
process.on('SIGINT', () => {}); // a terminal's Ctrl+C is for the parent, whose end is ours
