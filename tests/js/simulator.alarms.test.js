'use strict';
// Alarms of the simulator: by limits and on command, in the reply to 'n' and as notification records.

const test = require('node:test');
const assert = require('node:assert');
const { login, register, hex } = require('./support/TinyClient');
const { simulate, smallPlant } = require('./support/simulated');

const limited = (extra = {}) => ({
  name: 'P',
  drivers: [
    {
      name: 'D',
      tags: [
        {
          name: 'x',
          type: 'double',
          value: 1,
          alarms: [
            { above: 10, deadband: 2, text: 'high', text2: 'tank', attr1: 3, attr2: 4 },
            { below: 0, text: '过低', attr1: 1 },
          ],
        },
      ],
    },
  ],
  ...extra,
});

async function follow(t, options) {
  const sim = await simulate(t, options);
  const client = await login(sim);
  t.after(() => client.close());
  return { sim, ...client };
}

const real = (number) => {
  const bytes = Buffer.alloc(8);
  bytes.writeDoubleLE(number);
  return bytes.toString('hex');
};
const near = (seconds) => assert.ok(Math.abs(seconds - Date.now() / 1000) < 5, `${seconds} is not now`);

test('a limit passed raises record 1, and passed back by the deadband ends it with record 3', async (t) => {
  const { sim, notify } = await follow(t, { project: limited() });
  await sim.set('D', 'x', 10); // at the limit: nothing
  await sim.set('D', 'x', 11);
  const raised = hex(await notify.read(35));
  assert.equal(raised.toString('hex', 0, 3), 'ffff01');
  near(raised.readUInt32LE(3));
  assert.equal(raised.toString('hex', 7), '00000000' + '0000' + '0000' + '0100' + '03' + '04' + real(11) + real(10));
  await sim.set('D', 'x', 9); // within the deadband: nothing
  assert.equal((await sim.alarms()).length, 1);
  await sim.set('D', 'x', 8);
  const ended = hex(await notify.read(35));
  assert.equal(ended.toString('hex', 0, 3), 'ffff03');
  assert.equal(ended.readUInt32LE(3), raised.readUInt32LE(3));
  near(ended.readUInt32LE(7));
  assert.equal(ended.toString('hex', 11), raised.toString('hex', 11));
});

test('a lower limit has the driver name as its second text when none is given', async (t) => {
  const { sim, notify } = await follow(t, { project: limited() });
  await sim.set('D', 'x', -1);
  assert.equal(
    hex(await notify.read(35)).toString('hex', 11),
    '0000' + '0200' + '0300' + '01' + '00' + real(-1) + real(0),
  );
});

test('the reply to n holds the active alarms in the order in which they arose', async (t) => {
  const { sim, request } = await follow(t, { project: limited() });
  request.send('n');
  assert.equal(await request.read(3), '6e0000');
  await sim.raiseAlarm({ tag: 'D.x', text: 'high', text2: 9, attr1: 5, attr2: 6, value1: 1, value2: 2, beginTime: 7 });
  await sim.raiseAlarm({ beginTime: 8 });
  request.send('n');
  const first = '07000000' + '00000000' + '0000' + '0000' + '0900' + '05' + '06' + real(1) + real(2);
  const second = '08000000' + '00000000' + 'ffff' + 'ffff' + 'ffff' + '00' + '00' + real(0) + real(0);
  assert.equal(await request.read(3 + 64), '6e0200' + first + second);
});

test('an alarm on command is raised and ended', async (t) => {
  const { sim, notify } = await follow(t, { project: limited() });
  const id = await sim.raiseAlarm({ tag: 0, text: 1, text2: 2, beginTime: 100 });
  const body = (end) => '64000000' + end + '0000' + '0100' + '0200' + '0000' + real(0) + real(0);
  assert.equal(await notify.read(35), 'ffff01' + body('00000000'));
  assert.equal(await sim.endAlarm(id, 200), true);
  assert.equal(await notify.read(35), 'ffff03' + body('c8000000'));
  assert.equal(await sim.endAlarm(id), false);
  assert.deepEqual(await sim.alarms(), []);
});

test('a line that clients cannot know is an error of the command', async (t) => {
  const { sim } = await follow(t, { project: limited() });
  await assert.rejects(sim.raiseAlarm({ text: 'new' }), /text: no line "new"/);
});

test('a value beyond its limit at the start is an active alarm', async (t) => {
  const project = limited();
  project.drivers[0].tags[0].value = 20;
  const { sim } = await follow(t, { project });
  assert.deepEqual(
    (await sim.alarms()).map(({ value1, value2 }) => [value1, value2]),
    [[20, 10]],
  );
});

test('clients hear of alarms only after their login', async (t) => {
  const { sim, notify } = await follow(t, { project: limited({ users: [{ name: 'operator', password: 'secret' }] }) });
  const stranger = await register(sim);
  await sim.raiseAlarm({ beginTime: 1 });
  await notify.read(35);
  stranger.request.send('9operator\0secret\0');
  await stranger.request.read(9);
  await sim.raiseAlarm({ beginTime: 2 });
  assert.equal((await stranger.notify.read(35)).slice(0, 14), 'ffff01' + '02000000');
});

test('an alarm with a value of a wrong kind is refused and not kept', async (t) => {
  const { sim } = await follow(t, { project: limited() });
  await assert.rejects(sim.raiseAlarm({ value1: 'much' }), {
    message: 'alarm: value1: expected a number, found "much"',
  });
  assert.deepEqual(await sim.alarms(), []);
});

test('the list files hold one line for each entry, in GB2312, those of the project first', async (t) => {
  const project = limited({ alarms: { texts: ['first', 'tank'], tags: ['Other'] } });
  const { request } = await follow(t, { project });
  const body = async (name) => {
    request.send(`4RecData/${name}\r\n\r\n`);
    await request.until(() => /Size:\w+\r\n\r\n/.test(request.bytes.toString('latin1')), 'the header');
    const text = request.bytes.toString('latin1');
    const end = text.indexOf('\r\n\r\n') + 4;
    const size = parseInt(/Size:(\w+)/.exec(text)[1], 16);
    return hex(await request.read(end + size))
      .subarray(end)
      .toString('latin1');
  };
  assert.equal(await body('textlist'), 'first\r\ntank\r\nhigh\r\n\xb9\xfd\xb5\xcd\r\nD\r\n');
  assert.equal(await body('taglist'), 'Other\r\nD.x\r\n');
});

test('waveforms raise and end alarms by themselves', async (t) => {
  const tag = {
    name: 'x',
    type: 'bool',
    wave: { kind: 'square', period: 0.2 },
    alarms: [{ above: 0.5, text: 'on' }],
  };
  const project = smallPlant({ drivers: [{ name: 'D', tags: [tag] }] });
  const { notify } = await follow(t, { project, rate: 100 });
  const commands = [];
  for (let i = 0; i < 4; i++) commands.push((await notify.read(35)).slice(0, 6));
  assert.equal(commands.join(' ').includes('ffff01 ffff03 ffff01'), true);
});
