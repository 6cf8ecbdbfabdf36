'use strict';
// The tests of a copy of the checkout, in stages from the nearest to the farthest: the C++ test program of the changed
// folder, those of the folders that use it, the JavaScript tests of the add-on. Each stage builds only what it needs.
const { spawn } = require('node:child_process');
const { readdirSync } = require('node:fs');
const path = require('node:path');
const { users } = require('./changes');

const programs = ['base', 'value', 'net', 'files', 'driver', 'core']; // the folders that have one; the add-on's has none

// A program hangs when it takes so many times as long as without a change, and so many milliseconds at least.
const patience = 10;
const leastPatience = 10000;

const stages = ['near', 'far', 'js'];

const running = new Set(); // process groups
for (const signal of ['SIGINT', 'SIGTERM']) {
  process.on(signal, () => {
    running.forEach(end);
    process.exit(1);
  });
}

function end(group) {
  try {
    process.kill(-group, 'SIGKILL');
  } catch {
    // it has ended by itself
  }
}

// Runs a program in a process group of its own, with its output going line by line to `onLine`, which may return true
// to end it. Gives { code, lines, late }; late: it was ended for running too long.
function start(command, args, { cwd, env, limit, onLine = () => false }) {
  return new Promise((resolve, reject) => {
    const child = spawn(command, args, { cwd, env, detached: true, stdio: ['ignore', 'pipe', 'pipe'] });
    const lines = [];
    const result = { lines, late: false };
    running.add(child.pid);
    const timer =
      limit &&
      setTimeout(() => {
        result.late = true;
        end(child.pid);
      }, limit);
    for (const stream of [child.stdout, child.stderr]) {
      let rest = '';
      stream.setEncoding('utf8').on('data', (text) => {
        const parts = (rest + text).split('\n');
        rest = parts.pop();
        for (const line of parts) {
          lines.push(line);
          if (onLine(line)) end(child.pid);
        }
      });
    }
    child.on('error', reject);
    child.on('close', (code) => {
      clearTimeout(timer);
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
    await this.must('cmake', ['-G', 'Ninja', '-S', this.checkout, '-B', this.build, ...flags]);
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
      return this.runJs();
    }
    const names = (stage === 'near' ? [folder] : users[folder]).filter((name) => programs.includes(name));
    await this.compile(names.map((name) => `vqdb_${name}_tests`));
    for (const name of names) {
      const failure = await this.runProgram(name);
      if (failure !== undefined) return failure;
    }
    return undefined;
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

  // Without the stress tests: they take longer than all others together, for what a single change seldom shows in.
  async runProgram(name) {
    const program = path.join(this.build, 'tests', name, `vqdb_${name}_tests`);
    let inside = '';
    const { code, lines, late } = await this.limited(name, program, ['--gtest_fail_fast', '--gtest_filter=-*Stress*'], {
      onLine: (line) => {
        inside = line.match(/^\[ RUN +\] (\S+)/)?.[1] ?? inside;
      },
    });
    if (code === 0) return undefined;
    const failed = lines.map((line) => line.match(/^\[ +FAILED +\] (\S+?),? /)?.[1]).find(Boolean);
    return late ? `${inside} (hangs)` : (failed ?? `${inside} (crashes)`);
  }

  // The tests of tests/js but those of the simulator, which is not built from src.
  async runJs() {
    const folder = path.join(this.checkout, 'tests', 'js');
    const names = readdirSync(folder).filter((name) => name.endsWith('.test.js') && !name.startsWith('simulator.'));
    const env = { ...process.env, VQDB_TEST_ADDON: path.join(this.build, 'VqDBAccess.node') };
    const args = ['--test', `--test-concurrency=${this.jobs}`, '--test-reporter=tap'];
    let failed;
    const { code, late } = await this.limited(
      'js',
      process.execPath,
      [...args, ...names.map((name) => path.join(folder, name))],
      {
        env,
        onLine: (line) => {
          failed ??= line.match(/^ *not ok \d+ - (.*)/)?.[1];
          return failed !== undefined;
        },
      },
    );
    if (code === 0 && failed === undefined) return undefined;
    return failed ?? (late ? 'the JavaScript tests (hang)' : 'the JavaScript tests (end)');
  }
}

module.exports = { Suite, stages };
