'use strict';
// The class: how instances are made and what answers without a server.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { DBCore } = require('./support/addon.js');
const { sharedServer, connect, newCore, sent } = require('./support/server.js');

const sim = sharedServer();

const METHODS = ['Connect', 'KeepALive', 'GetDriver', 'SetRtAlarmNotify'];

test('the class is named DBCore and has its four methods and no others', () => {
  assert.equal(DBCore.name, 'DBCore');
  assert.deepEqual(Reflect.ownKeys(DBCore.prototype).sort(), ['constructor', ...METHODS].sort());
  for (const name of METHODS) {
    const { value, writable, enumerable, configurable } = Object.getOwnPropertyDescriptor(DBCore.prototype, name);
    assert.equal(typeof value, 'function');
    assert.deepEqual([writable, enumerable, configurable], [false, false, false]);
  }
});

test('an instance has no properties of its own', () => {
  assert.deepEqual(Object.getOwnPropertyNames(new DBCore()), []);
});

test('a plain call without new gives a working instance of the class', () => {
  const core = DBCore();
  assert.ok(core instanceof DBCore);
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
});

test('arguments of the constructor are ignored, with new and without', () => {
  assert.ok(new DBCore('127.0.0.1', 1, {}) instanceof DBCore);
  assert.ok(DBCore('127.0.0.1', 1, {}) instanceof DBCore);
});

test('a class derived from DBCore works', () => {
  class Session extends DBCore {
    open(address) {
      return this.Connect(address, 'operator', 'secret');
    }
  }
  const session = new Session();
  assert.equal(session.open(sim.address), 0);
  assert.equal(session.GetDriver('D0').GetTagValue('B'), 7);
});

test('KeepALive gives undefined and sends nothing, with and without a session', async () => {
  assert.equal(newCore().KeepALive(), undefined);
  const core = connect(sim);
  await sim.clearRequests();
  assert.equal(core.KeepALive(), undefined);
  assert.equal(core.KeepALive('argument'), undefined);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
  assert.deepEqual(
    (await sim.requests()).map(({ command }) => command),
    ['L', 'H'],
  );
});

test('Connect with fewer than three arguments gives -3 and makes no network traffic', async () => {
  const core = newCore();
  assert.equal(core.Connect(), -3);
  assert.equal(core.Connect(sim.address), -3);
  assert.equal(core.Connect(sim.address, 'operator'), -3);
  assert.deepEqual(await sim.events({ event: 'open' }), []);
});

test('Connect ignores a fourth argument', () => {
  assert.equal(newCore().Connect(sim.address, 'operator', 'secret', 'more'), 0);
});

test('GetDriver without argument gives undefined', () => {
  assert.equal(connect(sim).GetDriver(), undefined);
});

test('GetDriver of a name that no driver has gives undefined', () => {
  const core = connect(sim);
  assert.equal(core.GetDriver('D2'), undefined);
  assert.equal(core.GetDriver(''), undefined);
});

test('GetDriver of a name that differs only in case gives undefined', () => {
  const core = connect(sim);
  assert.equal(core.GetDriver('d0'), undefined);
  assert.ok(core.GetDriver('D0'));
});

test('GetDriver before Connect gives undefined', () => {
  assert.equal(newCore().GetDriver('D0'), undefined);
});

test('SetRtAlarmNotify with fewer than two arguments gives -3 and sends nothing', async () => {
  const core = connect(sim);
  await sim.clearRequests();
  assert.equal(core.SetRtAlarmNotify(), -3);
  assert.equal(
    core.SetRtAlarmNotify(() => {}),
    -3,
  );
  core.GetDriver('D0').GetTagValue('A');
  assert.deepEqual(await sent(sim, 'n'), []);
});

test('SetRtAlarmNotify before Connect gives -2', () => {
  assert.equal(
    newCore().SetRtAlarmNotify(() => {}, false),
    -2,
  );
});
