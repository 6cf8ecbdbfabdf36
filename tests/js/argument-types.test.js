'use strict';
// Arguments of a wrong type: Node-API's own message is thrown as a plain Error.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { DBCore } = require('./support/addon.js');
const { sharedServer, connect, newCore, openDriver, sent } = require('./support/server.js');
const { callLog } = require('./support/events.js');

const sim = sharedServer();

/** Whether `error` is a plain Error with this message and no code. */
const plainError = (message) => (error) => {
  assert.equal(error.constructor, Error);
  assert.deepEqual([error.message, error.code], [message, undefined]);
  return true;
};

const NO_STRING = plainError('A string was expected');
const NO_STRINGS = [1, true, null, undefined, {}, [], Symbol('s'), 1n, () => {}, new String('text')];

for (const [place, argument] of ['address', 'user', 'password'].entries()) {
  test(`Connect throws "A string was expected" when its ${argument} is no string`, async () => {
    for (const wrong of NO_STRINGS) {
      const args = [sim.address, 'operator', 'secret'];
      args[place] = wrong;
      assert.throws(() => newCore().Connect(...args), NO_STRING);
    }
    assert.deepEqual(await sim.events({ event: 'open' }), []);
  });
}

test('GetDriver throws "A string was expected" when its name is no string', () => {
  const core = connect(sim);
  for (const wrong of NO_STRINGS) assert.throws(() => core.GetDriver(wrong), NO_STRING);
});

test('SetRtAlarmNotify throws "A boolean was expected" when its second argument is none', async () => {
  const core = connect(sim);
  await sim.clearRequests();
  for (const wrong of [0, 1, 'true', null, undefined, {}]) {
    assert.throws(() => core.SetRtAlarmNotify(() => {}, wrong), plainError('A boolean was expected'));
  }
  core.GetDriver('D0').GetTagValue('A');
  assert.deepEqual(await sent(sim, 'n'), []);
});

for (const method of ['ConnectTag', 'GetTagValue', 'SetTagValue']) {
  test(`${method} throws "A string was expected" when the tag name is no string, and sends nothing`, async () => {
    const driver = await openDriver(sim);
    for (const wrong of NO_STRINGS) assert.throws(() => driver[method](wrong, 1), NO_STRING);
    assert.deepEqual(await sent(sim), []);
  });
}

test('SetTagNotify throws "Invalid argument" when its callback is no function, and takes a later one', async () => {
  const driver = await openDriver(sim);
  for (const wrong of [1, 'text', {}, [], true, null, undefined, Symbol('s')]) {
    assert.throws(() => driver.SetTagNotify(wrong), plainError('Invalid argument'));
  }
  driver.ConnectTag('A');
  const log = callLog();
  driver.SetTagNotify(log);
  await sim.set('D0', 'A', 2);
  assert.deepEqual(await log.until(1), [['D0', 'A', 2]]);
});

for (const method of ['Connect', 'KeepALive', 'GetDriver', 'SetRtAlarmNotify']) {
  test(`${method} on an object that is no instance throws a TypeError`, () => {
    for (const stray of [{}, undefined, Object.create(DBCore.prototype)]) {
      assert.throws(() => DBCore.prototype[method].call(stray, 'one', 'two', 'three'), TypeError);
    }
  });
}
