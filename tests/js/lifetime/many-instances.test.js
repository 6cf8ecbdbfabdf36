'use strict';
// Many instances in one process, and many sessions on one instance.

const assert = require('node:assert/strict');
const { after, beforeEach, test } = require('node:test');
const { sharedServer, connect, newCore, collectInstances, untilConnections } = require('../support/server.js');
const { callLog } = require('../support/events.js');
const { settled, backTo } = require('../support/resources.js');

const sim = sharedServer();

let before;
beforeEach(async () => {
  connect(sim);
  await collectInstances();
  before = await settled();
});
after(collectInstances);

/** Instances that follow A and the alarms, each with a log of its own. */
function followers(count) {
  return Array.from({ length: count }, () => {
    const core = connect(sim);
    const [changes, alarms] = [callLog(), callLog()];
    core.GetDriver('D0').SetTagNotify(changes);
    core.GetDriver('D0').ConnectTag('A');
    assert.equal(core.SetRtAlarmNotify(alarms, false), 0);
    return { core, changes, alarms };
  });
}

async function eachHears(all, value) {
  await sim.set('D0', 'A', value);
  const id = await sim.raiseAlarm({ beginTime: value });
  for (const { changes, alarms } of all) {
    assert.deepEqual((await changes.until(1)).splice(0), [['D0', 'A', value]]);
    assert.deepEqual(
      (await alarms.until(1)).splice(0).map(([begin]) => begin.getTime()),
      [value * 1000],
    );
  }
  await sim.endAlarm(id);
  for (const { alarms } of all) await alarms.until(1).then((calls) => calls.splice(0));
}

test('two instances have sessions of their own: the end of one leaves the other alone', async () => {
  const [one, other] = followers(2);
  await eachHears([one, other], 11);
  const driver = one.core.GetDriver('D0');
  const { session } = (await sim.connections())[0];
  await sim.closeNotification(session);
  await sim.waitFor('close', { session, kind: 'request' });
  assert.equal(driver.GetTagValue('B'), undefined);
  assert.equal(other.core.GetDriver('D0').GetTagValue('B'), 7);
  await eachHears([other], 12);
});

test('fifty instances hear every change and alarm, each once, and end without trace', async () => {
  await (async () => {
    const all = followers(50);
    await untilConnections(sim, 100);
    await eachHears(all, 21);
    await sim.set('D0', 'B', 22);
    for (const { core } of all) assert.equal(core.GetDriver('D0').GetTagValue('B'), 22);
    await sim.set('D0', 'B', 7);
  })();
  await collectInstances();
  await backTo(before, 'descriptors and threads');
  await untilConnections(sim, 0);
});

test('twenty instances lose their server at once, and have it again', async () => {
  const all = followers(20);
  await sim.closeAll();
  for (const { core } of all) assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  await untilConnections(sim, 40);
  for (const { core, changes } of all) {
    core.GetDriver('D0').SetTagNotify(changes);
    core.GetDriver('D0').ConnectTag('A');
  }
  await eachHears(all, 31);
});

test('Connect again and again on one instance: each time a new session, and no trace of the others', async () => {
  const core = newCore();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  const open = await settled();
  for (let round = 0; round < 20; round++) {
    const driver = core.GetDriver('D0');
    driver.SetTagNotify(() => {});
    driver.ConnectTag('A,B');
    assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
    assert.equal(driver.GetTagValue('B'), undefined);
  }
  assert.equal(core.GetDriver('D0').GetTagValue('B'), 7);
  await backTo(open, 'descriptors and threads');
  await untilConnections(sim, 2);
});

test('Connect again and again with every result: only the last session stands', async () => {
  const core = newCore();
  const connectTo = (address, user = 'operator') => core.Connect(address, user, 'secret');
  await sim.setFault({ step: 'login', action: 'refuse', skip: 1, count: 1 });
  assert.deepEqual(
    [
      connectTo(sim.address),
      connectTo(sim.address),
      connectTo('127.0.0.1:1'),
      connectTo('p2p'),
      connectTo(sim.address),
      connectTo(sim.address),
    ],
    [0, -1, -2, -2, 0, 0],
  );
  await backTo({ descriptors: before.descriptors + 2, threads: before.threads + 1 }, 'one session');
});
