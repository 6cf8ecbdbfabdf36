'use strict';
// Sessions and the life of the process and of workers: what keeps a process alive, how it ends, and what a callback
// that throws does to it.

const assert = require('node:assert/strict');
const path = require('node:path');
const { test } = require('node:test');
const { sharedServer, connect, untilConnections } = require('./support/server.js');
const { runProgram } = require('./support/child.js');
const { hex } = require('./support/wire.js');
const { patience } = require('./support/patience.js');

const sim = sharedServer();

// Begins every program: a session, and a driver whose tag A is followed when asked for.
const OPEN = `
  const core = new DBCore();
  if (core.Connect(args[0], 'operator', 'secret') !== 0) throw new Error('no session');
  const driver = core.GetDriver('D0');
  const print = (line) => process.stdout.write(line + '\\n');
  const follow = (callback) => { driver.SetTagNotify(callback); driver.ConnectTag('A'); };
`;

/** Runs a program against the server; `steps` are called in turn as it prints "step". */
function run(program, ...steps) {
  let taken = 0;
  const onOutput = (text) => {
    for (const printed = text.split('step\n').length - 1; taken < Math.min(printed, steps.length);) steps[taken++]();
  };
  return runProgram(OPEN + program, [sim.address], { onOutput });
}

test('a process with a session and no subscription ends by itself, and its session with it', async () => {
  const { code, signal, stdout } = await run(`print(driver.GetTagValue('B'));`);
  assert.deepEqual([code, signal, stdout], [0, null, '7\n']);
  await sim.waitFor('close', { kind: 'notification' });
  await untilConnections(sim, 0);
});

test('a process that follows tags stays alive until its server goes', async () => {
  const { code, stdout } = await run(
    `
    process.on('beforeExit', () => print('nothing left'));
    follow((name, tag, value) => { print(value); print('step'); });
    setTimeout(() => print('step'), 200).unref(); // fires only in a process that is kept alive
  `,
    () => sim.set('D0', 'A', 5),
    () => sim.closeAll(),
  );
  assert.deepEqual([code, stdout], [0, 'step\n5\nstep\nnothing left\n']);
});

test('a process that is subscribed to alarms stays alive, also without a server', async () => {
  const { code, stdout } = await run(
    `
    core.SetRtAlarmNotify(() => {}, false);
    print('step');
    while (core.GetDriver('D0') !== undefined) Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 1);
    setTimeout(() => { print('alive'); process.exit(3); }, 200).unref();
  `,
    () => sim.closeAll(),
  );
  assert.deepEqual([code, stdout], [3, 'step\nalive\n']);
});

test('process.exit() ends a process with a session and both subscriptions, with its code', async () => {
  const { code, signal, stdout, stderr } = await run(`
    follow(() => {});
    core.SetRtAlarmNotify(() => {}, true);
    process.on('exit', () => print('exit'));
    process.exit(5);
  `);
  assert.deepEqual([code, signal, stdout, stderr], [5, null, 'exit\n', '']);
});

test('process.exit() in a callback, with changes still coming, ends the process', async () => {
  const { code, signal, stderr } = await run(
    `
    follow((name, tag, value) => { if (value === 20) process.exit(6); });
    core.SetRtAlarmNotify(() => {}, false);
    print('step');
  `,
    () => {
      for (let value = 10; value < 2000; value++) sim.set('D0', 'A', value);
    },
  );
  assert.deepEqual([code, signal, stderr], [6, null, '']);
});

test('a process that ends by itself with a session open does so in well under the longest wait for it', async () => {
  const started = Date.now();
  const { code, stdout } = await run("driver.ConnectTag('A'); print('end');");
  assert.deepEqual([code, stdout], [0, 'end\n']);
  assert.ok(Date.now() - started < patience(5000));
});

test('several open sessions end with their process', async () => {
  const { code } = await run(`
    const more = Array.from({ length: 5 }, () => new DBCore());
    for (const one of more) {
      one.Connect(args[0], 'operator', 'secret');
      one.GetDriver('D0').SetTagNotify(() => {});
      one.SetRtAlarmNotify(() => {}, false);
    }
    process.exit(7);
  `);
  assert.equal(code, 7);
  await sim.waitFor('close', { kind: 'notification' }, { count: 6 });
  await untilConnections(sim, 0);
});

test('what a callback throws is an uncaught exception, and the next change is still told', async () => {
  const { code, stdout } = await run(
    `
    process.on('uncaughtException', (error) => print('uncaught ' + error.message));
    follow((name, tag, value) => {
      if (value === 1) throw new Error('from the callback');
      print('told ' + value);
      process.exit();
    });
    print('step');
  `,
    () => sim.notifyRaw([1, 2].map((value) => doubleOfA(value)).join('')),
  );
  assert.deepEqual([code, stdout], [0, 'step\nuncaught from the callback\ntold 2\n']);
});

/** A notification that A is this value. */
function doubleOfA(value) {
  const bytes = Buffer.alloc(8);
  bytes.writeDoubleLE(value);
  return hex([0, 0, 0, 0], bytes);
}

test('what a callback throws ends a process that does not handle it, with its message', async () => {
  const { code, stderr } = await run(
    `
    follow(() => { throw new Error('from the callback'); });
    print('step');
  `,
    () => sim.set('D0', 'A', 9),
  );
  assert.notEqual(code, 0);
  assert.match(stderr, /Error: from the callback/);
});

test('what an alarm callback throws is an uncaught exception, and the next alarm is still told', async () => {
  const { code, stdout } = await run(
    `
    process.on('uncaughtException', (error) => print('uncaught ' + error.message));
    core.SetRtAlarmNotify((begin) => {
      if (begin.getTime() === 1000) throw new Error('from the callback');
      print('told ' + begin.getTime());
      process.exit();
    }, false);
    print('step');
  `,
    () => {
      sim.raiseAlarm({ beginTime: 1 });
      sim.raiseAlarm({ beginTime: 2 });
    },
  );
  assert.deepEqual([code, stdout], [0, 'step\nuncaught from the callback\ntold 2000\n']);
  for (const { id } of await sim.alarms()) await sim.endAlarm(id);
});

test('changes that came before the server went away are told after it', async () => {
  const { code, stdout } = await run(
    `
    const told = [];
    follow((name, tag, value) => { told.push(value); });
    process.on('beforeExit', () => print(told.join()));
    print('step');
    while (driver.GetTagValue('A') !== 5); // JavaScript is busy: nothing is told yet
    print('step');
    while (core.GetDriver('D0') !== undefined);
    print('gone, told ' + told.length);
  `,
    () => sim.notifyRaw([1, 2, 3, 4, 5].map(doubleOfA).join('')),
    () => sim.closeNotification(),
  );
  assert.deepEqual([code, stdout], [0, 'step\nstep\ngone, told 0\n1,2,3,4,5\n']);
});

test('a worker has a class of its own, and its sessions end with it', async () => {
  const { code, stdout, stderr } = await run(
    `
    const { Worker } = require('node:worker_threads');
    const source = \`
      const { workerData, parentPort } = require('node:worker_threads');
      const { DBCore } = require(workerData.addon);
      const core = DBCore();
      const result = core.Connect(workerData.address, 'operator', 'secret');
      const driver = core.GetDriver('D0');
      driver.SetTagNotify((...change) => parentPort.postMessage(change));
      driver.ConnectTag('A');
      core.SetRtAlarmNotify(() => {}, true);
      parentPort.postMessage([result, core instanceof DBCore, driver.GetTagValue('B')]);
    \`;
    const addon = ${JSON.stringify(require.resolve('./support/addon.js'))};
    const worker = new Worker(source, { eval: true, workerData: { addon, address: args[0] } });
    const messages = [];
    worker.on('message', async (message) => {
      print(message.join());
      if (messages.push(message) === 1) { follow(() => {}); print('step'); return; }
      await worker.terminate();
      print('terminated ' + driver.GetTagValue('B') + ' ' + (DBCore() instanceof DBCore));
      process.exit();
    });
  `,
    () => sim.set('D0', 'A', 77),
  );
  assert.equal(stdout, '0,true,7\nstep\nD0,A,77\nterminated 7 true\n');
  assert.deepEqual([code, stderr], [0, '']);
});

test('a worker that ends by itself with a session open ends that session', async () => {
  const { code, stdout } = await run(`
    const { Worker } = require('node:worker_threads');
    const source = \`
      const { workerData } = require('node:worker_threads');
      const core = new (require(workerData.addon).DBCore)();
      core.Connect(workerData.address, 'operator', 'secret');
    \`;
    const addon = ${JSON.stringify(require.resolve('./support/addon.js'))};
    const worker = new Worker(source, { eval: true, workerData: { addon, address: args[0] } });
    worker.on('exit', (code) => print('worker ' + code + ', ' + driver.GetTagValue('B')));
  `);
  assert.deepEqual([code, stdout], [0, 'worker 0, 7\n']);
});

test('require and import give the same class', async () => {
  const { stdout } = await runProgram(`
    import(require.resolve(${JSON.stringify(path.join(__dirname, '../../index.js'))}))
      .then((module) => process.stdout.write(String(module.DBCore === require(${JSON.stringify(
        path.join(__dirname, '../../index.js'),
      )}).DBCore)));
  `);
  assert.equal(stdout, 'true');
});

test('a session of this process is left alone by all of that', () => {
  assert.equal(connect(sim).GetDriver('D0').GetTagValue('B'), 7);
});
