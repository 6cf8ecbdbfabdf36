'use strict';
// The tests of a copy of the checkout, in stages from the nearest to the farthest: the C++ test program of the changed
// folder, those of the folders that use it, the JavaScript tests of the add-on. Each stage builds only what it needs.
const { spawn } = require('node:child_process');
const { readdirSync } = require('node:fs');
const path = require('node:path');
const { users } = require('./changes');

const programs = ['base', 'value', 'net', 'files', 'driver', 'core', 'binding']; // the folders that have one

// A program hangs when it takes so many times as long as without a change, and so many milliseconds at least; a test
// program also when it prints nothing for a while: it prints a line before each of its tests.
const patience = 10;
const leastPatience = 10000;
const longestSilence = 30000;

const stages = ['near', 'far', 'js'];

const running = new Set(); // process groups
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.on(signal, () => {
    running.forEach((group) => end(group, 'SIGTERM')); // ninja then ends its compilers, too
    process.exit(1);
  });
}

function end(group, signal = 'SIGKILL') {
  try {
    process.kill(-group, signal);
  } catch {
    // it has ended by itself
  }
}

// Runs a program in a process group of its own, with its output going line by line to `onLine`, which may return true
// to end it. Gives { code, lines, late }; late: it was ended for running too long.
function start(command, args, { cwd, env, limit, silence, onLine = () => false }) {
  return new Promise((resolve, reject) => {
    const child = spawn(command, args, { cwd, env, detached: true, stdio: ['ignore', 'pipe', 'pipe'] });
    const lines = [];
    const result = { lines, late: false };
    running.add(child.pid);
    const giveUp = () => {
      result.late = true;
      end(child.pid);
    };
    const timer = limit && setTimeout(giveUp, limit);
    const silent = silence && setTimeout(giveUp, silence);
    for (const stream of [child.stdout, child.stderr]) {
      let rest = '';
      stream.setEncoding('utf8').on('data', (text) => {
        const parts = (rest + text).split('\n');
        rest = parts.pop();
        for (const line of parts) {
          lines.push(line);
          silent?.refresh();
          if (onLine(line)) end(child.pid);
        }
      });
    }
    child.on('error', reject);
    child.on('close', (code) => {
      clearTimeout(timer);
      clearTimeout(silent);
      running.delete(child.pid);
      resolve({ ...result, code });
    });
  });
}

class Suite {
  constructor(checkout, jobs) {
    this.checkout = checkout;
    this.jobs = jobs;
    this.build = path.join(checkout, '..', 'build');
    this.usual = new Map(); // program -> milliseconds that it takes without a change
  }

  async configure() {
    const flags = ['-DCMAKE_BUILD_TYPE=Debug', '-DCMAKE_CXX_FLAGS_DEBUG=-O0', '-DVQDB_TESTS=ON'];
    const addonDir = path.join(this.checkout, 'build', 'Release'); // where the package looks for it
    const places = ['-S', this.checkout, '-B', this.build, `-DVQDB_ADDON_DIR=${addonDir}`];
    await this.must('cmake', ['-G', 'Ninja', ...places, ...flags]);
  }

  // Runs what the changes of these folders meet in a stage with the checkout unchanged, and notes how long it takes.
  async expectNoFailure(stage, folders) {
    for (const folder of folders) {
      const failure = await this.firstFailure(stage, folder);
      if (failure !== undefined) throw new Error(`without any change: ${failure} fails`);
    }
  }

  // The name of the first test of a stage that fails with the checkout as it stands; undefined when none does.
  async firstFailure(stage, folder) {
    if (stage === 'js') {
      await this.compile(['VqDBAccess']);
      return this.steadyFailure((without) => this.runJs(without));
    }
    const names = (stage === 'near' ? [folder] : users[folder]).filter((name) => programs.includes(name));
    await this.compile(names.map((name) => `vqdb_${name}_tests`));
    for (const name of names) {
      const failure = await this.steadyFailure((without, only) => this.runProgram(name, without, only));
      if (failure !== undefined) return failure;
    }
    return undefined;
  }

  // Runs tests until one fails that fails again when it is run alone. On a busy machine a test may fail, or take too
  // long, without cause; such a test is left out of the next run. Gives the failure's name, or undefined.
  async steadyFailure(run) {
    const without = [];
    for (;;) {
      const failure = await run(without);
      if (failure === undefined) return undefined;
      if (failure.test === undefined || (await run(without, failure.test)) !== undefined) return failure.name;
      without.push(failure.test);
    }
  }

  // Runs a test program under the limit that its first run has set.
  async limited(name, command, args, options) {
    const usual = this.usual.get(name);
    const since = Date.now();
    const limit = usual === undefined ? undefined : Math.max(patience * usual, leastPatience);
    const result = await start(command, args, { ...options, limit });
    if (usual === undefined) this.usual.set(name, Date.now() - since);
    return result;
  }

  async must(command, args) {
    const { code, lines } = await start(command, args, {});
    if (code !== 0) {
      throw new Error([`${command} ${args.join(' ')} ended with ${code}`, ...lines.slice(-20)].join('\n'));
    }
  }

  async compile(targets) {
    if (targets.length > 0) await this.must('ninja', ['-C', this.build, '-j', `${this.jobs}`, ...targets]);
  }

  // Runs a C++ test program, or the test `only` of it. Gives { name, test } of the first failure, or undefined.
  // Without the stress tests and the hostile server's: they take longer than all others together, for what a single
  // change seldom shows in.
  async runProgram(name, without, only = `-${['*Stress*', 'Hostile*', ...without].join(':')}`) {
    const program = path.join(this.build, 'tests', name, `vqdb_${name}_tests`);
    let inside;
    const { code, lines, late } = await this.limited(name, program, ['--gtest_fail_fast', `--gtest_filter=${only}`], {
      silence: longestSilence,
      onLine: (line) => {
        inside = line.match(/^\[ RUN +\] (\S+)/)?.[1] ?? inside;
      },
    });
    if (code === 0) return undefined;
    const failed = lines.map((line) => line.match(/^\[ +FAILED +\] (\S+?),? /)?.[1]).find(Boolean);
    if (!late && failed !== undefined) return { name: failed, test: failed };
    return { name: `${inside ?? program} (${late ? 'hangs' : 'crashes'})`, test: inside };
  }

  // Runs the tests of tests/js, or the file `only` of them. Gives { name, test } of the first failure, test being its
  // file, or undefined. Without those of what is not built from src: the simulator, the documents, the loader.
  async runJs(without, only) {
    const folder = path.join(this.checkout, 'tests', 'js');
    const files = readdirSync(folder)
      .filter((name) => name.endsWith('.test.js') && !/^(simulator|docs|loader)\./.test(name))
      .map((name) => path.join(folder, name))
      .filter((file) => !without.includes(file));
    const args = ['--test', `--test-concurrency=${this.jobs}`, '--test-reporter=tap', ...(only ? [only] : files)];
    let name;
    let test;
    const { code, late } = await this.limited('js', process.execPath, args, {
      onLine: (line) => {
        name ??= line.match(/^ *not ok \d+ - (.*)/)?.[1];
        // Behind a failed test stands where it is: FILE:LINE:COLUMN.
        if (name !== undefined) test ??= line.match(/^ *location: '(.*):\d+:\d+'/)?.[1];
        return test !== undefined;
      },
    });
    if (code === 0) return undefined;
    return { name: name ?? `the JavaScript tests (${late ? 'hang' : 'end'})`, test };
  }
}

module.exports = { Suite, stages };
