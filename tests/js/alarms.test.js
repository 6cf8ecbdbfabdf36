'use strict';
// Real-time alarms: the subscription, the alarms that are active at its time, and those that come later.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { after, test } = require('node:test');
const {
  sharedServer,
  connect,
  newCore,
  sent,
  removeMirror,
  serverDir,
  endSubscriptions,
  untilGone,
} = require('./support/server.js');
const { callLog, mustNotCall } = require('./support/events.js');
const { u16, u32, f64, hex } = require('./support/wire.js');

const sim = sharedServer({
  project: {
    name: 'Alarms',
    drivers: [{ name: 'D0', tags: [{ name: 'A', type: 'double', value: 1.5 }] }],
    alarms: { tags: ['Boiler.Temperature', '锅炉.温度'], texts: ['too high', '温度过高', 'boiler house'] },
  },
});

after(endSubscriptions);

const LIST_REQUESTS = ['RecData/textlist', 'RecData/taglist'].map((file) => hex(`4${file}\r\nHello:Yes\r\n\r\n`));

/** An alarm record. */
function alarm({ begin = 1000, end = 0, tag = 0, text = 0, text2 = 2, attr1 = 1, attr2 = 2, value1 = 3, value2 = 4 }) {
  return hex(u32(begin), u32(end), u16(tag), u16(text), u16(text2), [attr1, attr2], f64(value1), f64(value2));
}

const reply = (...alarms) => hex('n', u16(alarms.length)) + alarms.map(alarm).join('');
const notification = (command, fields) => hex([0xff, 0xff, command]) + alarm(fields);

const answerWith = (bytes) => sim.setFault({ step: 'alarms', action: 'reply', hex: bytes, count: 1 });

/** A new session with a subscription, its log, and the record cleared of what led there. */
async function subscribe(replay = false) {
  const core = connect(sim);
  const log = callLog();
  assert.equal(core.SetRtAlarmNotify(log, replay), 0);
  return { core, log };
}

test('a subscription is the single byte n, and then a request for each of the two lists', async () => {
  removeMirror(sim.address);
  const core = connect(sim);
  await sim.clearRequests();
  assert.equal(
    core.SetRtAlarmNotify(() => {}, false),
    0,
  );
  assert.deepEqual(await sent(sim), [hex('n'), ...LIST_REQUESTS]);
});

test('the callback gets ten arguments: two dates, texts and numbers', async () => {
  const { log } = await subscribe();
  await sim.notifyRaw(
    notification(1, {
      begin: 1700000000,
      tag: 1,
      text: 1,
      text2: 2,
      attr1: 200,
      attr2: 255,
      value1: 151.25,
      value2: -0.5,
    }),
  );
  const [args] = await log.until(1);
  const time = new Date(1700000000000);
  assert.deepEqual(args, [time, time, '锅炉.温度', 0, '温度过高', 'boiler house', 200, 151.25, -0.5, 255]);
  assert.deepEqual(
    args.map((arg) => typeof arg),
    ['object', 'object', 'string', 'number', 'string', 'string', 'number', 'number', 'number', 'number'],
  );
  assert.ok(args[0] instanceof Date && args[1] instanceof Date);
  assert.equal(log.receivers[0], globalThis);
});

test('an alarm that has ended has an end time of its own and 1 as its fourth argument', async () => {
  const { log } = await subscribe();
  await sim.notifyRaw(notification(3, { begin: 1000, end: 1060 }));
  const [[begin, end, , ended]] = await log.until(1);
  assert.deepEqual([begin, end, ended], [new Date(1000000), new Date(1060000), 1]);
});

test('an alarm that is active has its begin time in place of the end time', async () => {
  const { log } = await subscribe();
  await sim.notifyRaw(notification(3, { begin: 2000, end: 0 }));
  const [[begin, end, , ended]] = await log.until(1);
  assert.deepEqual([begin, end, ended], [new Date(2000000), new Date(2000000), 0]);
});

test('times up to the last of 32 bits are dates', async () => {
  const { log } = await subscribe();
  await sim.notifyRaw(notification(1, { begin: 0xffffffff, end: 0x80000000 }));
  const [[begin, end]] = await log.until(1);
  assert.deepEqual([begin.getTime(), end.getTime()], [0xffffffff * 1000, 0x80000000 * 1000]);
});

test('values are passed on as the doubles that they are', async () => {
  const { log } = await subscribe();
  await sim.notifyRaw(notification(1, { value1: NaN, value2: -Infinity, attr1: 0, attr2: 0 }));
  assert.deepEqual((await log.until(1))[0].slice(6), [0, NaN, -Infinity, 0]);
});

test('indexes behind the ends of the lists are "???", each for itself', async () => {
  const { log } = await subscribe();
  await sim.notifyRaw(notification(1, { tag: 2, text: 2, text2: 2 }) + notification(1, { tag: 1, text: 3, text2: 2 }));
  await sim.notifyRaw(notification(1, { tag: 0, text: 0, text2: 3 }));
  await sim.notifyRaw(notification(1, { tag: 65535, text: 65535, text2: 65535 }));
  const texts = (await log.until(4)).map((args) => [args[2], args[4], args[5]]);
  assert.deepEqual(texts, [
    ['???', 'boiler house', 'boiler house'],
    ['锅炉.温度', '???', 'boiler house'],
    ['Boiler.Temperature', 'too high', '???'],
    ['???', '???', '???'],
  ]);
});

test('alarms that the server raises and ends come in order, records 1 and 3', async () => {
  const { log } = await subscribe();
  const id = await sim.raiseAlarm({ tag: 0, text: 0, text2: 2, value1: 7, beginTime: 5000 });
  await sim.endAlarm(id, 5001);
  const calls = await log.until(2);
  assert.deepEqual(
    calls.map((args) => args[3]),
    [0, 1],
  );
  assert.deepEqual(calls[1].slice(0, 2), [new Date(5000000), new Date(5001000)]);
});

test('with replay the active alarms come in the order received, before SetRtAlarmNotify returns', async () => {
  const core = connect(sim);
  await answerWith(reply({ begin: 3, tag: 1 }, { begin: 1, end: 9 }, { begin: 2 }));
  const log = callLog();
  const result = core.SetRtAlarmNotify(log, true);
  assert.deepEqual(
    log.calls.map(([begin, end, tag, ended]) => [begin.getTime(), end.getTime(), tag, ended]),
    [
      [3000, 3000, '锅炉.温度', 0],
      [1000, 9000, 'Boiler.Temperature', 1],
      [2000, 2000, 'Boiler.Temperature', 0],
    ],
  );
  assert.equal(result, 0);
  assert.equal(log.receivers[0], globalThis);
  assert.deepEqual(
    log.calls.map((args) => args.length),
    [10, 10, 10],
  );
});

test('replayed alarms have the texts of lists that are fetched for them', async () => {
  removeMirror(sim.address);
  const core = connect(sim);
  await answerWith(reply({ tag: 1, text: 1 }));
  const log = callLog();
  core.SetRtAlarmNotify(log, true);
  assert.deepEqual([log.calls[0][2], log.calls[0][4]], ['锅炉.温度', '温度过高']);
});

test('without replay the active alarms are read and thrown away', async (t) => {
  const core = connect(sim);
  await answerWith(reply({}, {}, {}));
  assert.equal(core.SetRtAlarmNotify(mustNotCall(t), false), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5, 'the request connection is at the end of the reply');
});

test('a count of 0 subscribes and calls nothing', async () => {
  const core = connect(sim);
  const log = callLog();
  assert.equal(core.SetRtAlarmNotify(log, true), 0);
  assert.deepEqual(log.calls, []);
  await sim.notifyRaw(notification(1, {}));
  await log.until(1);
});

test('a thousand active alarms are replayed in order', async () => {
  const core = connect(sim);
  await answerWith(reply(...Array.from({ length: 1000 }, (_, i) => ({ begin: i + 1 }))));
  const log = callLog();
  assert.equal(core.SetRtAlarmNotify(log, true), 0);
  assert.deepEqual(
    log.calls.map(([begin]) => begin.getTime()),
    Array.from({ length: 1000 }, (_, i) => (i + 1) * 1000),
  );
});

test('a second call gives -1 without touching the connection, and the first callback stays', async (t) => {
  const { core, log } = await subscribe();
  await sim.clearRequests();
  assert.equal(core.SetRtAlarmNotify(mustNotCall(t), true), -1);
  assert.equal(core.SetRtAlarmNotify(mustNotCall(t), false), -1);
  core.GetDriver('D0').GetTagValue('A');
  assert.deepEqual(await sent(sim, 'n'), []);
  await sim.notifyRaw(notification(1, {}));
  await log.until(1);
});

test('two instances subscribe each for itself', async () => {
  const [one, other] = [await subscribe(), await subscribe()];
  await sim.raiseAlarm({ beginTime: 1 });
  await one.log.until(1);
  await other.log.until(1);
  for (const { id } of await sim.alarms()) await sim.endAlarm(id);
});

const BAD_HEADS = [
  ['another letter', { action: 'reply', hex: hex('x', [0, 0]) }],
  ['no more than its letter', { action: 'cut', bytes: 1 }],
  ['a head without its last byte', { action: 'cut', bytes: 2 }],
  ['an end', { action: 'close' }],
  ['a reset', { action: 'reset' }],
];
for (const [what, answer] of BAD_HEADS) {
  test(`an answer of ${what} gives -2, and a later try works`, async (t) => {
    const core = connect(sim);
    await sim.setFault({ step: 'alarms', count: 1, ...answer });
    assert.equal(core.SetRtAlarmNotify(mustNotCall(t), true), -2);
    assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
    const log = callLog();
    assert.equal(core.SetRtAlarmNotify(log, false), 0);
    await sim.notifyRaw(notification(1, {}));
    await log.until(1);
  });
}

test('after an answer of another letter a later try on the same session works', async () => {
  const core = connect(sim);
  await answerWith(hex('x', [0, 0]));
  assert.equal(
    core.SetRtAlarmNotify(() => {}, true),
    -2,
  );
  assert.equal(
    core.SetRtAlarmNotify(() => {}, true),
    0,
  );
});

test('an active alarm that is cut off gives -2 and calls nothing, not even for those before it', async (t) => {
  await sim.raiseAlarm({ beginTime: 1 });
  await sim.raiseAlarm({ beginTime: 2 });
  t.after(async () => {
    for (const { id } of await sim.alarms()) await sim.endAlarm(id);
  });
  const core = connect(sim);
  await sim.setFault({ step: 'alarms', action: 'cut', bytes: 3 + 2 * 32 - 1, count: 1 });
  assert.equal(core.SetRtAlarmNotify(mustNotCall(t), true), -2);
  assert.equal(core.SetRtAlarmNotify(mustNotCall(t), false), -2);
});

test('an answer that comes byte by byte, and one that takes its time, are taken', async () => {
  const id = await sim.raiseAlarm({ tag: 0, beginTime: 77 });
  for (const fault of [{ action: 'trickle' }, { action: 'delay', ms: 50 }]) {
    const core = connect(sim);
    await sim.setFault({ step: 'alarms', count: 1, ...fault });
    const log = callLog();
    assert.equal(core.SetRtAlarmNotify(log, true), 0);
    assert.deepEqual(
      log.calls.map(([begin]) => begin.getTime()),
      [77000],
    );
  }
  await sim.endAlarm(id);
});

/** A callback that throws for the alarm of second 1. (Made here, so that it does not hold the instance of its test.) */
function throwingLog(error) {
  const log = callLog();
  const callback = (...args) => {
    log(...args);
    if (args[0].getTime() === 1000) throw error;
  };
  return { log, callback };
}

test('what a callback throws during the replay reaches the caller, and the subscription stands', async () => {
  const core = connect(sim);
  await answerWith(reply({ begin: 1 }, { begin: 2 }, { begin: 3 }));
  const error = new Error('thrown by the callback');
  const { log, callback } = throwingLog(error);
  assert.throws(
    () => core.SetRtAlarmNotify(callback, true),
    (thrown) => thrown === error,
  );
  assert.equal(
    core.SetRtAlarmNotify(() => {}, true),
    -1,
  );
  await sim.notifyRaw(notification(1, { begin: 9 }));
  await log.until(2);
  assert.deepEqual(
    log.calls.map(([begin]) => begin.getTime()),
    [1000, 9000],
  );
});

test('a replayed callback that subscribes again gets -1', async () => {
  const core = connect(sim);
  await answerWith(reply({}));
  const results = [];
  const held = new WeakRef(core); // the subscription keeps its callback, which must not keep the instance
  const callback = () => results.push(held.deref().SetRtAlarmNotify(() => {}, true));
  assert.equal(core.SetRtAlarmNotify(callback, true), 0);
  assert.deepEqual(results, [-1]);
});

test('a callback that is no function gives 0 and installs nothing: a later one is taken', async () => {
  const core = connect(sim);
  await answerWith(reply({}));
  assert.equal(core.SetRtAlarmNotify(5, true), 0);
  assert.equal(core.SetRtAlarmNotify(undefined, false), 0);
  const log = callLog();
  assert.equal(core.SetRtAlarmNotify(log, false), 0);
  await sim.notifyRaw(notification(1, {}));
  await log.until(1);
});

test('alarms before a subscription are passed over, what comes with them is told', async () => {
  const core = connect(sim);
  const driver = core.GetDriver('D0');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('A');
  await sim.notifyRaw(notification(1, {}) + notification(3, {}) + hex([0, 0, 0, 0], f64(2)));
  assert.deepEqual(await log.until(1), [['D0', 'A', 2]]);
});

test('alarms of a later session of the same instance reach the same callback', async () => {
  const { core, log } = await subscribe();
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  assert.equal(
    core.SetRtAlarmNotify(() => {}, true),
    -1,
  );
  await sim.notifyRaw(notification(1, { begin: 42 }));
  assert.deepEqual(
    (await log.until(1)).map(([begin]) => begin.getTime()),
    [42000],
  );
});

test('alarms of a session after the server ended the first one reach the same callback', async () => {
  const { core, log } = await subscribe();
  await sim.closeAll();
  await untilGone(core, 'D0');
  assert.equal(
    core.SetRtAlarmNotify(() => {}, true),
    -1,
  );
  assert.equal(core.Connect(sim.address, 'operator', 'secret'), 0);
  await sim.notifyRaw(notification(3, { begin: 43, end: 44 }));
  assert.deepEqual((await log.until(1))[0].slice(0, 2), [new Date(43000), new Date(44000)]);
});

test('the lists are asked for once in the life of an instance', async () => {
  removeMirror(sim.address);
  const core = connect(sim);
  await answerWith(hex('x', [0, 0]));
  assert.equal(
    core.SetRtAlarmNotify(() => {}, false),
    -2,
  );
  assert.deepEqual((await sent(sim, '4')).slice(1), [], 'not for a subscription that fails');
  assert.equal(core.SetRtAlarmNotify(5, false), 0); // loads the lists, installs nothing
  assert.deepEqual((await sent(sim, '4')).slice(1), LIST_REQUESTS);
  await sim.clearRequests();
  assert.equal(
    core.SetRtAlarmNotify(() => {}, false),
    0,
  );
  assert.deepEqual(await sent(sim), [hex('n')]);
});

test('the lists are mirrored as the server has them, in GB2312', () => {
  removeMirror(sim.address);
  const core = connect(sim);
  core.SetRtAlarmNotify(() => {}, false);
  const read = (name) => fs.readFileSync(`${serverDir(sim.address)}/Alarms/RecData/${name}`).toString('hex');
  const gb = { 温度: [0xce, 0xc2, 0xb6, 0xc8], 过高: [0xb9, 0xfd, 0xb8, 0xdf], 锅炉: [0xb9, 0xf8, 0xc2, 0xaf] };
  assert.equal(read('textlist'), hex('too high\r\n', gb.温度, gb.过高, '\r\nboiler house\r\n'));
  assert.equal(read('taglist'), hex('Boiler.Temperature\r\n', gb.锅炉, '.', gb.温度, '\r\n'));
});

test('lists that the mirror holds are asked for with time and size, and kept when the server says so', async () => {
  connect(sim).SetRtAlarmNotify(() => {}, false);
  await sim.clearRequests();
  const { log } = await subscribe();
  const requests = await sim.requests({ command: '4' });
  assert.deepEqual(
    requests.map(({ fields }) => fields.headers.size),
    ['22', '1F'],
  );
  await sim.notifyRaw(notification(1, { tag: 1 }));
  assert.equal((await log.until(1))[0][2], '锅炉.温度');
});

test('lists that the server does not have leave "???" and no failure', async () => {
  removeMirror(sim.address);
  const core = connect(sim);
  await sim.setFault({ step: 'file', action: 'refuse' });
  const log = callLog();
  await answerWith(reply({}));
  assert.equal(core.SetRtAlarmNotify(log, true), 0);
  assert.deepEqual(
    [2, 4, 5].map((i) => log.calls[0][i]),
    ['???', '???', '???'],
  );
});

test('lines of the lists are entries as they stand: blanks kept, empty lines without a place', async () => {
  removeMirror(sim.address);
  const core = connect(sim);
  const list = Buffer.from('\r\n  blanks  \r\n\n\r\nlast without end').toString('hex');
  const body = `${Buffer.from(`Size:${(list.length / 2).toString(16)}\r\n\r\n`).toString('hex')}${list}`;
  await sim.setFault({ step: 'file', action: 'reply', hex: body });
  await answerWith(reply({ tag: 0, text: 1, text2: 2 }));
  const log = callLog();
  core.SetRtAlarmNotify(log, true);
  assert.deepEqual(
    [2, 4, 5].map((i) => log.calls[0][i]),
    ['  blanks  ', 'last without end', '???'],
  );
});

test('an instance whose server is gone gives -2 for a subscription', async () => {
  const core = connect(sim);
  await sim.closeAll();
  await untilGone(core, 'D0');
  assert.equal(
    core.SetRtAlarmNotify(() => {}, true),
    -2,
  );
  assert.equal(
    newCore().SetRtAlarmNotify(() => {}, true),
    -2,
  );
});
