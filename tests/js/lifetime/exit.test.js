'use strict';
// A process ends in every state of its sessions: with its own exit code, without a signal, and soon.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { sharedServer } = require('../support/server.js');
const { runProgram } = require('../support/child.js');
const { runFlooded } = require('../support/flood-program.js');
const { FLOOD_PROJECT, alarmRecords, mark, queuedRecords } = require('../support/flood.js');

const sim = sharedServer({ project: FLOOD_PROJECT, notifyBlock: 0 });

const run = (program, ...steps) => runFlooded(sim, program, ...steps);

/** Sends notifications and, until the client is gone, the mark that M is 77. */
const sendAndMark = (bytes) => async () => {
  const [{ session }] = await sim.connections();
  const isThere = async () => (await sim.connections()).some((one) => one.session === session);
  await sim.notifyRaw(bytes);
  for (let left = 20; left > 0 && (await isThere()); left--) {
    await sim.notifyRaw(mark(77), session).catch(() => {}); // it may have gone just now
    await new Promise((resolve) => setTimeout(resolve, 50)); // between marks; nothing waits for this
  }
};

const manyChanges = sendAndMark(queuedRecords(100000));

// What a process has asked for when it ends.
const USES = {
  'a session alone': '',
  'changes followed': 'driver.SetTagNotify(() => {});',
  'alarms subscribed': 'core.SetRtAlarmNotify(() => {}, true);',
  'everything in use': 'driver.SetTagNotify(() => {}); core.SetRtAlarmNotify(() => {}, true); driver.GetTagValue("Q");',
};

// How it ends, and the exit code.
const ENDINGS = { 'process.exit(3)': 3, 'setImmediate(() => process.exit(4))': 4, 'throw new Error("the end")': 1 };

/** Runs `program` with an ending, and looks at exit code and signal. */
async function ends([ending, expected], program, ...steps) {
  const { code, signal } = await run(program(ending), ...steps);
  assert.deepEqual([ending, code, signal], [ending, expected, null]);
}

for (const [state, use] of Object.entries(USES)) {
  test(`a process with ${state} ends by process.exit() and by an exception`, async () => {
    // One after the other: of programs that connect at the same moment one may fail.
    for (const how of Object.entries(ENDINGS)) await ends(how, (ending) => `${use} ${ending};`);
  });
}

test('a process that nothing keeps alive ends by itself, with its exit code', async () => {
  const { code, signal } = await run('process.exitCode = 5;');
  assert.deepEqual([code, signal], [5, null]);
});

test('in an exit handler the session still answers', async () => {
  const { code, stdout } = await run('process.on("exit", () => print(driver.GetTagValue("Q"))); process.exit(6);');
  assert.deepEqual([code, stdout], [6, '5\n']);
});

test('process.exit() ends a process with 100,000 changes queued', async () => {
  const { code, signal, stdout } = await run(
    `
    driver.SetTagNotify(() => print('told'));
    print('step');
    until(() => marked(77));
    process.exit(7);
  `,
    manyChanges,
  );
  assert.deepEqual([code, signal, stdout], [7, null, 'step\n']);
});

test('an exception ends a process with 100,000 changes queued', async () => {
  const { code, signal, stderr } = await run(
    `
    driver.SetTagNotify(() => { throw new Error('on the first'); });
    print('step');
    until(() => marked(77));
  `,
    manyChanges,
  );
  assert.deepEqual([code, signal], [1, null]);
  assert.equal(stderr.match(/Error: on the first/g).length, 1);
});

test('a process with 100,000 changes queued whose server goes away tells them all and ends by itself', async () => {
  const { code, signal, stdout } = await run(
    `
    let told = 0;
    driver.SetTagNotify(() => told++);
    process.on('beforeExit', () => print(told >= 99500 ? 'all told' : told));
    print('step');
    until(() => marked(77));
    print('step');
    until(() => core.GetDriver('D0') === undefined);
  `,
    manyChanges,
    () => sim.closeAll(),
  );
  assert.deepEqual([code, signal, stdout], [0, null, 'step\nstep\nall told\n']);
});

test('process.exit() ends a process with many alarms queued', async () => {
  const { code, signal, stdout } = await run(
    `
    core.SetRtAlarmNotify(() => print('told'), false);
    print('step');
    until(() => marked(77));
    process.exit(8);
  `,
    sendAndMark(alarmRecords(500)),
  );
  assert.deepEqual([code, signal, stdout], [8, null, 'step\n']);
});

test('process.exit() ends a process while changes stream in', async () => {
  const { code, signal } = await run(
    `
    let told = 0;
    driver.SetTagNotify(() => { if (++told === 500) process.exit(9); });
    print('step');
  `,
    manyChanges,
  );
  assert.deepEqual([code, signal], [9, null]);
});

test('process.exit() in the callback for alarms ends the process', async () => {
  const { code, signal } = await run(
    `
    core.SetRtAlarmNotify(() => process.exit(10), false);
    print('step');
  `,
    () => sim.notifyRaw(alarmRecords(20)),
  );
  assert.deepEqual([code, signal], [10, null]);
});

test('process.exit() in the replay of alarms ends the process', async () => {
  const id = await sim.raiseAlarm({});
  const { code, signal } = await run('core.SetRtAlarmNotify(() => process.exit(11), true);');
  assert.deepEqual([code, signal], [11, null]);
  await sim.endAlarm(id);
});

test('process.exit() in an element of an array that is being written ends the process', async () => {
  const { code, signal } = await run(`
    driver.SetTagValue('Q,M', Object.defineProperty([1, 2], 1, { get() { process.exit(12); } }));
  `);
  assert.deepEqual([code, signal], [12, null]);
});

test('a process whose server has closed ends by itself, by process.exit() and by an exception', async () => {
  const program = (ending) => `
    driver.SetTagNotify(() => {});
    print('step');
    until(() => core.GetDriver('D0') === undefined);
    ${ending};
  `;
  for (const how of Object.entries({ ...ENDINGS, 'process.exitCode = 13': 13 })) {
    await ends(how, program, () => sim.closeAll());
  }
});

test('a process ends while its server is closing', async () => {
  const { code, signal } = await run(
    `
    driver.SetTagNotify(() => {});
    print('step');
    driver.GetTagValue('unknown'); // asks the server, which answers with its end
    process.exit(14);
  `,
    () => sim.closeAll(),
  );
  assert.deepEqual([code, signal], [14, null]);
});

test('a signal ends a process inside Connect at once', async () => {
  await sim.setFault({ step: 'handshake1', action: 'hang' });
  const running = runProgram(
    `
    process.stdout.write(process.pid + ' step');
    new DBCore().Connect(args[0], 'operator', 'secret');
  `,
    [sim.address],
    {
      onOutput: async (text) => {
        await sim.waitFor('request', { command: '7' });
        process.kill(parseInt(text, 10), 'SIGTERM');
      },
    },
  );
  assert.equal((await running).signal, 'SIGTERM');
});

test('process.exit() ends a process one of whose workers is inside Connect when that returns', async () => {
  await sim.setFault({ step: 'handshake1', action: 'delay', ms: 4000 });
  const running = runProgram(
    `
    const { Worker } = require('node:worker_threads');
    const source = "const { workerData } = require('node:worker_threads');" +
      "const { DBCore } = require(workerData.addon); new DBCore().Connect(workerData.address, 'operator', 'secret');";
    new Worker(source, { eval: true, workerData: { addon: ${JSON.stringify(require.resolve('../support/addon.js'))},
      address: args[0] } });
    process.once('SIGUSR2', () => process.exit(15));
    process.stdout.write(process.pid + ' step');
  `,
    [sim.address],
    {
      onOutput: async (text) => {
        await sim.waitFor('request', { command: '7' });
        process.kill(parseInt(text, 10), 'SIGUSR2');
      },
    },
  );
  const { code, signal } = await running;
  assert.deepEqual([code, signal], [15, null]);
});
