'use strict';
// Workers with a session (session-worker.js).

const path = require('node:path');
const { setTimeout: pause } = require('node:timers/promises');
const { Worker } = require('node:worker_threads');
const { within } = require('./events.js');
const { patience } = require('./patience.js');

const LONGEST = 250; // ms from the start of a worker to its termination: its start, its Connect and a while of its session

const running = new Set();

/**
 * Starts a worker. `worker.ready` is what it posts first, `worker.message(name, count)` resolves to that property of
 * the count-th message that has it, `worker.ended` to its exit code.
 */
function startWorker(sim, options = {}) {
  const worker = new Worker(path.join(__dirname, 'session-worker.js'), {
    workerData: { address: sim.address, ...options },
  });
  running.add(worker);
  worker.once('exit', () => running.delete(worker));
  const messages = [];
  worker.messages = messages;
  let look = () => {};
  worker.on('message', (message) => {
    messages.push(message);
    look();
  });
  worker.ended = within(new Promise((resolve) => worker.once('exit', resolve)), 'the worker ends', patience(30000));
  worker.ended.catch(() => {});
  worker.message = (name, count = 1) =>
    within(
      new Promise((resolve) => {
        look = () => {
          const found = messages.filter((message) => message[name] !== undefined)[count - 1];
          if (found !== undefined) resolve(found[name]);
        };
        look();
      }),
      `message ${name}`,
      patience(20000),
    );
  Object.defineProperty(worker, 'ready', { get: () => worker.message('result').then(() => messages[0]) });
  return worker;
}

/** Starts a busy worker and terminates it at a random moment; resolves to its exit code and whether it had a session. */
async function terminateAtRandom(sim, longest = LONGEST) {
  const worker = startWorker(sim, { busy: true });
  await pause(Math.random() * longest);
  await worker.terminate();
  return { code: await worker.ended, connected: worker.messages.some(({ result }) => result === 0) };
}

/** Ends what a failed test has left running. */
const terminateAll = () => Promise.all([...running].map((worker) => worker.terminate()));

module.exports = { startWorker, terminateAtRandom, terminateAll };
