'use strict';
// Chinese names and texts: GB2312 on the wire and in the mirrored files, UTF-8 in JavaScript and in the file system.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { test } = require('node:test');
const { sharedServer, connect, openDriver, sent, removeMirror, serverDir } = require('./support/server.js');
const { callLog } = require('./support/events.js');
const { runProgram } = require('./support/child.js');
const { hex } = require('./support/wire.js');

const GB = {
  锅炉: [0xb9, 0xf8, 0xc2, 0xaf],
  温度: [0xce, 0xc2, 0xb6, 0xc8],
  备注: [0xb1, 0xb8, 0xd7, 0xa2],
  示范工程: [0xca, 0xbe, 0xb7, 0xb6, 0xb9, 0xa4, 0xb3, 0xcc],
};
const sim = sharedServer({
  project: {
    name: '示范工程',
    drivers: [
      {
        name: '锅炉',
        tags: [
          { name: '温度', type: 'double', value: 85 },
          { name: '备注', type: 'string', value: '一切正常' },
        ],
      },
    ],
    alarms: { tags: ['锅炉.温度'], texts: ['温度过高', '锅炉房'] },
  },
});

/** The mirror's path of a project directory, its name as bytes. */
const projectDir = (name) => Buffer.concat([Buffer.from(`${serverDir(sim.address)}/`), Buffer.from(name)]);
const inside = (directory, name) => Buffer.concat([directory, Buffer.from(`/${name}`)]);

test('a Chinese tag name is asked for in GB2312', async () => {
  const driver = await openDriver(sim, '锅炉');
  assert.equal(driver.GetTagValue('温度'), 85);
  assert.deepEqual(await sent(sim, 'L'), [hex('L', [0, 0], GB.温度, [0])]);
});

test('a list of Chinese names is split at its commas', async () => {
  const driver = await openDriver(sim, '锅炉');
  assert.deepEqual(driver.GetTagValue('温度, 备注'), [85, '一切正常']);
  assert.deepEqual(await sent(sim, 'L'), [hex('L', [0, 0], GB.温度, [0, 0, 0], GB.备注, [0])]);
});

test('a Chinese text is written and told in UTF-8, with the names of driver and tag', async () => {
  const driver = await openDriver(sim, '锅炉');
  const log = callLog();
  driver.SetTagNotify(log);
  driver.ConnectTag('备注,温度');
  await sim.clearRequests();
  assert.equal(driver.SetTagValue('备注', '水位正常'), 0);
  assert.deepEqual(await log.until(1), [['锅炉', '备注', '水位正常']]);
  assert.deepEqual(await sent(sim, 'g'), [hex('g', [1, 0, 0, 0, 1, 0, 8, 0], '水位正常\0')]);
  assert.equal(driver.GetTagValue('备注'), '水位正常');
});

test('a Chinese project has a directory under each form of its name, and the tree under both', () => {
  removeMirror(sim.address);
  connect(sim);
  const names = fs.readdirSync(serverDir(sim.address), { encoding: 'buffer' }).map((name) => name.toString('hex'));
  assert.deepEqual(names.sort(), [hex(GB.示范工程), hex('示范工程')].sort());
  for (const name of [GB.示范工程, '示范工程']) {
    for (const sub of ['Window', 'Media', 'RecData', 'RecData/Event', 'RecData/Alarm2']) {
      assert.ok(fs.statSync(inside(projectDir(name), sub)).isDirectory(), sub);
    }
  }
});

test('the files of a Chinese project are stored under the UTF-8 form, and current for the next session', async () => {
  removeMirror(sim.address);
  connect(sim);
  const stored = fs.readFileSync(inside(projectDir('示范工程'), 'RecData/drvinfo.dat'));
  assert.equal(stored.toString('hex'), hex(GB.锅炉, [0, 0, 0, 2, 0]));
  assert.ok(!fs.existsSync(inside(projectDir(GB.示范工程), 'RecData/drvinfo.dat')));
  await sim.clearRequests();
  assert.ok(connect(sim).GetDriver('锅炉'));
  assert.deepEqual(await sent(sim, '4'), []);
});

test('a name that GB2312 does not hold is no tag and no driver', async () => {
  const core = connect(sim);
  assert.equal(core.GetDriver('🚰'), undefined);
  assert.equal(core.GetDriver('锅炉').GetTagValue('🚰'), undefined);
});

test('of a text that does not convert, what precedes the character counts, and one line says so', async () => {
  const { code, stdout, stderr } = await runProgram(
    `
    const core = new DBCore();
    core.Connect(args[0], 'operator', 'secret');
    const driver = core.GetDriver('锅炉🚰xyz');
    console.log(JSON.stringify([driver.GetTagValue('温度🚰'), driver.GetTagValue('温度,温🚰度,备注')]));
  `,
    [sim.address],
  );
  assert.equal(stdout, '[85,[85,null]]\n', stderr);
  assert.equal(stderr, 'FromUtf8:iconv:: Invalid or incomplete multibyte or wide character\n'.repeat(3));
  assert.equal(code, 0);
});
