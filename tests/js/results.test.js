'use strict';
// The names of the result codes, exported beside the class.

const assert = require('node:assert/strict');
const { test } = require('node:test');
const { AlarmResult, ConnectResult, WriteResult } = require('../../index.js');
const { connect, newCore, sharedServer } = require('./support/server.js');

const sim = sharedServer();

test('the names stand for the numbers that the methods return, and are fixed', () => {
  assert.deepEqual(ConnectResult, { Connected: 0, Refused: -1, Failed: -2, OutOfPlace: -3 });
  assert.deepEqual(WriteResult, { Sent: 0, NoRight: -1, NotSent: -2, BadArgument: -3 });
  assert.deepEqual(AlarmResult, { Subscribed: 0, AlreadySubscribed: -1, Failed: -2, MissingArguments: -3 });
  for (const names of [ConnectResult, WriteResult, AlarmResult]) assert.ok(Object.isFrozen(names));
});

test('an ES module can import class and names one by one', async () => {
  const names = ['AlarmResult', 'ConnectResult', 'DBCore', 'WriteResult'];
  const exported = await import('../../index.js');
  for (const name of names) assert.equal(exported[name], require('../../index.js')[name]);
});

test('a session, a write and a missing subscription answer by these names', () => {
  const core = connect(sim);
  assert.equal(core.Connect(sim.address), ConnectResult.OutOfPlace);
  assert.equal(core.GetDriver('D0').SetTagValue('A', 2), WriteResult.Sent);
  assert.equal(core.GetDriver('D0').SetTagValue('A', null), WriteResult.BadArgument);
  assert.equal(
    newCore().SetRtAlarmNotify(() => {}, false),
    AlarmResult.Failed,
  );
  assert.equal(
    newCore().SetRtAlarmNotify(() => {}),
    AlarmResult.MissingArguments,
  );
  assert.equal(newCore().Connect('127.0.0.1:1', 'operator', 'secret'), ConnectResult.Failed);
});
