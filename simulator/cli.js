#!/usr/bin/env node
'use strict';
// The command. Prints its address as one line of JSON when ready; ends on SIGTERM, SIGINT and, when asked, with its
// standard input. Exit codes: 0 ended as asked, 2 bad option or project (one line on standard error).

const { parseArguments, helpText } = require('./options');
const { Simulator } = require('./simulator');
const { OptionError } = require('./errors');

function end(simulator) {
  simulator.stop();
  process.exit(0);
}

async function run(args) {
  const { options, exitWithStdin, help } = parseArguments(args);
  if (help) {
    process.stdout.write(helpText());
    return;
  }
  const simulator = new Simulator(options);
  for (const signal of ['SIGTERM', 'SIGINT']) process.on(signal, () => end(simulator));
  process.stdout.on('error', () => {});
  process.stderr.on('error', () => {});
  await simulator.start();
  process.stdout.write(`${JSON.stringify(simulator.describe())}\n`);
  if (exitWithStdin) {
    process.stdin
      .on('end', () => end(simulator))
      .on('close', () => end(simulator))
      .resume();
  }
}

run(process.argv.slice(2)).catch((error) => {
  process.stderr.write(`${error instanceof OptionError ? error.message : error.stack}\n`);
  process.exitCode = error instanceof OptionError ? 2 : 1;
});
