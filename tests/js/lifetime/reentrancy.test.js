'use strict';
// JavaScript that the library runs in the middle of its own work, and that calls the library again: elements of arrays
// that are written, setters that arrays inherit, callbacks in the replay of alarms.

const assert = require('node:assert/strict');
const { after, test } = require('node:test');
const { setFlagsFromString } = require('node:v8');
const { runInNewContext } = require('node:vm');
const { DBCore } = require('../support/addon.js');
const { sharedServer, connect, sent, collectInstances, untilGone } = require('../support/server.js');
const { collectAll } = require('../support/collect.js');
const { runProgram } = require('../support/child.js');
const { callLog } = require('../support/events.js');

setFlagsFromString('--expose-gc');
const gc = runInNewContext('gc');

const sim = sharedServer();
after(collectInstances);

// Made here, so that it holds no instance: an alarm callback that did would keep it for good.
function idle() {}

/** [1, ...] with a getter at `index`. */
const withGetter = (act, index = 0, length = 2) =>
  Object.defineProperty(
    Array.from({ length }, (_, i) => i + 1),
    index,
    { get: act },
  );

function open() {
  const core = connect(sim);
  return { core, driver: core.GetDriver('D0') };
}

test('Connect in an element that is being written gives -2 and changes nothing; the write is made', async () => {
  const { core, driver } = open();
  const results = [];
  const values = withGetter(() => {
    results.push(core.Connect(sim.address, 'operator', 'secret'));
    return 41;
  });
  assert.equal(driver.SetTagValue('A,B', values), 0);
  assert.deepEqual(results, [-2]);
  assert.equal(driver.GetTagValue('A'), 41);
  assert.equal((await sim.connections()).length, 2);
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0, 'outside it connects');
});

test('reads, writes, connects and subscriptions in an element that is being written do their work', async () => {
  const { core, driver } = open();
  const results = [];
  const values = withGetter(() => {
    driver.SetTagNotify(idle);
    driver.ConnectTag('C');
    results.push(
      driver.GetTagValue('B'),
      driver.SetTagValue('F', 9),
      core.GetDriver('D1').GetTagValue('B'),
      core.SetRtAlarmNotify(idle, false),
    );
    return 51;
  }, 1);
  const [, before] = driver.GetTagValue('A,B');
  assert.equal(driver.SetTagValue('A,B', values), 0);
  assert.deepEqual(results, [before, 0, 0.25, 0]);
  assert.deepEqual(driver.GetTagValue('A,B,F'), [1, 51, 9]);
  assert.equal((await sent(sim, 'g')).length, 2);
});

test('an exception of an element reaches the caller and nothing is written', async () => {
  const { driver } = open();
  assert.throws(
    () =>
      driver.SetTagValue(
        'A,B',
        withGetter(() => {
          throw new RangeError('mine');
        }),
      ),
    { message: 'mine' },
  );
  assert.deepEqual(await sent(sim, 'g'), []);
  assert.equal(typeof driver.GetTagValue('A'), 'number');
});

test('an array that shrinks while it is written gives -3', () => {
  const { driver } = open();
  const values = withGetter(() => {
    values.length = 1;
    return 1;
  });
  assert.equal(driver.SetTagValue('A,B', values), -3);
});

test('a Proxy is no array of its own kind: an array behind it is written, what its traps do included', () => {
  const { core, driver } = open();
  const asked = [];
  const values = new Proxy([61, 62], {
    get(target, key) {
      asked.push(key);
      assert.equal(core.Connect(sim.address, 'operator', 'secret'), -2);
      gc();
      return target[key];
    },
  });
  assert.equal(driver.SetTagValue('A,B', values), -3, 'Node-API takes it for no array');
  assert.deepEqual(asked, []);
  assert.equal(
    driver.SetTagValue(
      'A,B',
      Object.setPrototypeOf(
        [61],
        new Proxy([], {
          get: (target, key) => (gc(), key === '1' ? 62 : target[key]),
        }),
      ),
    ),
    -3,
    'an element past the end is missing, whatever is inherited',
  );
});

test('collecting garbage in an element whose instance nobody holds: the write is made, the session ends after it', async () => {
  const driver = unheldDriver();
  assert.equal(
    driver.SetTagValue(
      'A,B',
      withGetter(() => (gc(), gc(), 71)),
    ),
    0,
  );
  assert.deepEqual(driver.GetTagValue('A,B'), [71, 2]);
  await collectInstances();
  assert.equal(driver.GetTagValue('B'), undefined);
});

function unheldDriver() {
  const core = new DBCore();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  return core.GetDriver('D0');
}

test('an instance that is collected while many of its reads and writes run ends after them', async () => {
  for (let round = 0; round < 5; round++) {
    const driver = unheldDriver();
    const values = withGetter(() => (gc(), 0));
    for (let i = 0; i < 5; i++) {
      driver.SetTagValue('A,B', values);
      await new Promise(setImmediate); // where finalisers run
      gc();
      driver.GetTagValue('A,B');
    }
    assert.equal(driver.SetTagValue('A', 1), -2, 'collected meanwhile');
  }
});

test('a server that goes away while an element is read: the write fails, the driver ends after it', async () => {
  const { core, driver } = open();
  const values = withGetter(() => {
    sim.closeNotification().catch(() => {});
    while (core.GetDriver('none') === undefined && !gone(driver)) gc();
    return 81;
  });
  assert.equal(driver.SetTagValue('A,B', values), -2);
  await untilGone(core, 'D0'); // by the receive thread, when it is not through with the end yet
  assert.equal(driver.GetTagValue('A'), undefined);
});

// Asks for a name that is not known yet, so that the server is asked.
let asked = 0;
const gone = (driver) => driver.GetTagValue(`B,ask${asked++}`) === undefined;

test('writing without end from within an element ends with a RangeError of JavaScript', () => {
  const { driver } = open();
  const values = withGetter(() => driver.SetTagValue('A,B', values));
  assert.throws(() => driver.SetTagValue('A,B', values), RangeError);
  assert.equal(driver.SetTagValue('A,B', [1, 7]), 0);
  assert.equal(driver.GetTagValue('B'), 7); // the server has taken it
});

test('a setter that all arrays inherit is run by a read, and may use the library', async () => {
  const { code, stdout, stderr } = await runProgram(
    `
    const core = new DBCore();
    core.Connect(args[0], 'operator', 'secret');
    const driver = core.GetDriver('D1');
    let runs = 0;
    let results = '';
    Object.defineProperty(Array.prototype, '1', { configurable: true, set(value) {
      if (runs++ > 0) return;
      results += value + ' ' + core.Connect(args[0], 'operator', 'secret') + ' ' + driver.GetTagValue('A');
    } });
    driver.GetTagValue('A,B');
    delete Array.prototype[1];
    console.log(runs, results);
  `,
    [sim.address],
  );
  assert.deepEqual([code, stdout, stderr], [0, '1 0.25 -2 -2\n', '']);
});

/**
 * Calls act(core) while the one active alarm is replayed. Gives the result of the subscription and the log of its calls;
 * the callback holds the instance no longer then.
 */
async function replay(core, act) {
  const id = await sim.raiseAlarm({ beginTime: 5 });
  const log = callLog();
  const held = { core, act };
  const result = core.SetRtAlarmNotify((...args) => {
    log(...args);
    held.act?.(held.core);
  }, true);
  delete held.core;
  delete held.act;
  await sim.endAlarm(id);
  return { result, log };
}

const connectAgain = (core, address = sim.address) => core.Connect(address, 'operator', 'secret');

test('Connect in the replay of alarms opens a new session, whose alarms are told', async () => {
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  const results = [];
  const { result, log } = await replay(core, (same) => results.push(connectAgain(same)));
  assert.deepEqual([result, results], [0, [0]]);
  assert.equal(driver.GetTagValue('B'), undefined, 'a driver of the former session');
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
  assert.equal((await log.until(2))[1][3], 1, 'the end of the alarm');
});

test('Connect that fails in the replay of alarms leaves the subscription to later sessions', async () => {
  const core = connect(sim);
  const results = [];
  const { result, log } = await replay(core, (same) => results.push(connectAgain(same, '127.0.0.1:1')));
  assert.deepEqual([result, results, core.GetDriver('D0')], [0, [-2], undefined]);
  assert.equal(connectAgain(core), 0);
  const id = await sim.raiseAlarm({ beginTime: 6 });
  assert.equal((await log.until(2))[1][0].getTime(), 6000);
  await sim.endAlarm(id);
});

test('SetRtAlarmNotify, GetDriver, reads and collections in the replay of alarms do their work', async () => {
  const results = [];
  const { result } = await replay(connect(sim), (core) => {
    gc();
    results.push(core.SetRtAlarmNotify(idle, true), core.GetDriver('D0').GetTagValue('B'), connectAgain(new DBCore()));
    gc();
  });
  assert.deepEqual([result, results], [0, [-1, 7, 0]]);
});

test('a subscription whose instance nobody else holds ends with the instance, after the replay', async () => {
  let calls = 0;
  const instance = await subscribedInstance(() => {
    gc();
    calls++;
  });
  assert.equal(calls, 1);
  await collectAll([instance], 'the instance');
});

async function subscribedInstance(act) {
  const id = await sim.raiseAlarm({ beginTime: 5 });
  const instance = subscribed(act);
  await sim.endAlarm(id);
  return instance;
}

function subscribed(act) {
  const core = new DBCore();
  connectAgain(core);
  const held = { act };
  core.SetRtAlarmNotify(() => held.act?.(), true);
  delete held.act;
  return new WeakRef(core);
}

test('Connect in a callback for changes ends the session that told of them', async () => {
  const { core, driver } = open();
  const log = callLog();
  driver.SetTagNotify((...args) => {
    if (log.calls.length === 0) assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
    log(...args);
  });
  driver.ConnectTag('A');
  const value = driver.GetTagValue('A');
  await sim.set('D0', 'A', value + 1);
  assert.deepEqual(await log.until(1), [['D0', 'A', value + 1]]);
  assert.equal(driver.GetTagValue('A'), undefined);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), value + 1);
});
