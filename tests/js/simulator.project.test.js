'use strict';
// What a user of the simulator may type wrong: one line that names the field, exit code 2. And the command itself.

const test = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { startSimulator } = require('../../simulator');
const { loadProject } = require('../../simulator/project');
const { loopback } = require('./support/loopback.js');
const { login } = require('./support/TinyClient');
const { smallPlant, tempDir, command } = require('./support/simulated');

const tag = (fields) => ({
  name: 'P',
  drivers: [{ name: 'A' }, { name: 'B', tags: [{ name: 'x', type: 'int16', ...fields }] }],
});
const file = (fields) => ({ name: 'P', files: [{ name: 'f', text: '', ...fields }] });
const TAG = 'drivers[1].tags[0]';

const BAD_PROJECTS = [
  [[], ': expected an object, found []'],
  [{}, ': name: expected a text, found nothing'],
  [{ name: 'P', drviers: [] }, ': drviers: unknown field; expected one of name, second,'],
  [{ name: 'a\u{1F600}' }, ': name: "a\u{1F600}" has a character that GB2312 lacks'],
  [{ name: 'ñ' }, ': name: "ñ" has a character that GB2312 lacks'],
  [{ name: 'x'.repeat(128) }, ': name: 128 bytes of GB2312 are too many; at most 127'],
  [
    { name: 'P', time: 'soon' },
    ': time: expected a date such as "2024-03-05T07:08:09Z" or seconds since 1970, found "soon"',
  ],
  [{ name: 'P', path: ['', '', '', '', ''] }, ': path: at most four texts'],
  [{ name: 'P', users: {} }, ': users: expected a list, found {}'],
  [{ name: 'P', users: [{ name: 'x'.repeat(36) }] }, ': users[0].name: 36 bytes of UTF-8 are too many; at most 35'],
  [
    { name: 'P', users: [{ name: 'x', rights: -1 }] },
    ': users[0].rights: expected a whole number from 0 to 4294967295, found -1',
  ],
  [
    { name: 'P', drivers: [{ name: 'A', id: 65535 }] },
    ': drivers[0].id: expected a whole number from 0 to 65534, found 65535',
  ],
  [{ name: 'P', drivers: [{ name: 'A' }, { name: 'A' }] }, ': drivers[1].name: "A" stands already at drivers[0]'],
  [{ name: 'P', drivers: [{ name: 'A', id: 1 }, { name: 'B' }] }, ': drivers[1].id: 1 stands already at drivers[0]'],
  [tag({ type: 'flaot' }), `: ${TAG}.type: unknown type "flaot"; expected one of empty, null, int16, int32, float,`],
  [tag({ type: 24 }), `: ${TAG}.type: unknown type 24; expected one of`],
  [tag({ name: 'a,b' }), `: ${TAG}.name: a tag name cannot hold a comma`],
  [tag({ name: ' a' }), `: ${TAG}.name: a tag name cannot begin or end with a blank`],
  [tag({ name: '' }), `: ${TAG}.name: a name cannot be empty`],
  [tag({ value: 1.5 }), `: ${TAG}.value: expected a whole number, found 1.5`],
  [tag({ value: 32768 }), `: ${TAG}.value: 32768 is outside the range of the tag's type`],
  [tag({ type: 'bool', value: 1 }), `: ${TAG}.value: expected true or false, found 1`],
  [tag({ type: 'double', value: 'x' }), `: ${TAG}.value: expected a number, found "x"`],
  [tag({ type: 'date', value: 'x' }), `: ${TAG}.value: expected a date such as "2024-03-05T07:08:09", found "x"`],
  [tag({ type: 'string', value: 'a\0' }), `: ${TAG}.value: a text cannot hold a NUL character`],
  [tag({ type: 'int64', value: '9223372036854775808' }), `: ${TAG}.value: outside the range of 64 bits`],
  [tag({ type: 'null', value: 1 }), `: ${TAG}.value: expected null for this type, found 1`],
  [tag({ type: 'array', value: [{ type: 'x' }] }), `: ${TAG}.value[0].type: unknown type "x"`],
  [tag({ range: [2, 1] }), `: ${TAG}.range: low 2 is above high 1`],
  [tag({ type: 'string', range: [0, 1] }), `: ${TAG}.range: only numbers have a range`],
  [tag({ wave: { kind: 'saw' } }), `: ${TAG}.wave.kind: unknown waveform "saw"; expected one of sine,`],
  [tag({ wave: { kind: 'steps' } }), `: ${TAG}.wave.steps: expected a list, found nothing`],
  [tag({ type: 'string', wave: { kind: 'sine' } }), `: ${TAG}.wave.kind: "sine" needs a number or a bool`],
  [tag({ wave: { kind: 'sine', period: 0 } }), `: ${TAG}.wave.period: expected a number from 0.001 to`],
  [
    tag({ wave: { kind: 'follow', tag: 'y' } }),
    ': drivers[1].tags: "x" follows "y", which is no number of this driver',
  ],
  [tag({ alarms: [{ text: 'a' }] }), `: ${TAG}.alarms[0]: expected exactly one of above, below`],
  [tag({ alarms: [{ above: 1 }] }), `: ${TAG}.alarms[0].text: expected a text, found nothing`],
  [tag({ access: 'w' }), `: ${TAG}.access: unknown access "w"; expected one of r, rw`],
  [tag({ count: 2 }), `: ${TAG}.name: with "count" the name needs a place for the number, such as {0000}`],
  [tag({ name: 'T{0}', count: 65536 }), `: ${TAG}.count: expected a whole number from 1 to 65535, found 65536`],
  [file({ base64: '' }), ': files[0]: expected exactly one of text, base64, path, size'],
  [file({ text: undefined, path: '/nowhere' }), ': files[0].path: "/nowhere" cannot be read: ENOENT'],
  [file({ encoding: 'latin1' }), ': files[0].encoding: unknown encoding "latin1"; expected one of gb2312, utf-8'],
  [{ name: 'P', alarms: { texts: ['a\nb'] } }, ': alarms.texts[0]: a line cannot hold a line end'],
  [
    { name: 'P', alarms: { texts: ['x'.repeat(256)] } },
    ': alarms.texts[0]: 256 bytes of GB2312 are too many; at most 255',
  ],
];

for (const [project, message] of BAD_PROJECTS) {
  test(`a project is refused with "${message.slice(2, 90)}"`, () => {
    assert.throws(
      () => loadProject(project),
      (error) => {
        assert.equal(error.code, 'ERR_SIMULATOR_OPTION');
        assert.equal(error.message.slice(0, 7 + message.length), `project${message}`);
        assert.equal(error.message.includes('\n'), false);
        return true;
      },
    );
  });
}

const BAD_JSON = [
  ['{\n  "name": x\n}', 'line 2, column 11'],
  ['{"name": "P",}', 'line 1, column 14'],
  ['{"name": "P"', 'line 1, column 13'],
  ['[1, 2 3]', 'line 1, column 7'],
  ['{"a": "\n"}', 'line 1, column 7'],
  ['', 'line 1, column 1'],
  ['{} x', 'line 1, column 4'],
];

for (const [text, place] of BAD_JSON) {
  test(`bad JSON ${JSON.stringify(text)} is placed at ${place}`, (t) => {
    const name = path.join(tempDir(t), 'p.json');
    fs.writeFileSync(name, text);
    assert.throws(() => loadProject(name), { message: `${name}: ${place}: not valid JSON` });
  });
}

test('a project file may begin with a byte order mark', (t) => {
  const name = path.join(tempDir(t), 'p.json');
  fs.writeFileSync(name, `\uFEFF${JSON.stringify(smallPlant())}`);
  assert.equal(loadProject(name).name, 'Plant');
});

test('startSimulator rejects with the line that the command prints', async () => {
  const code = 'ERR_SIMULATOR_OPTION';
  await assert.rejects(startSimulator({ prot: 1 }), {
    code,
    message: /^options: prot: unknown field; expected one of project,/,
  });
  await assert.rejects(startSimulator({ port: 65536 }), {
    code,
    message: 'options: port: expected a whole number from 0 to 65535, found 65536',
  });
  await assert.rejects(startSimulator({ ack: { 58: 1 } }), {
    code,
    message: 'options: ack.58: expected an offset from 0 to 57',
  });
  await assert.rejects(startSimulator({ project: tag({ type: 'flaot' }) }), {
    code,
    message: /^project: drivers\[1\]\.tags\[0\]\.type: unknown type "flaot"/,
  });
  await assert.rejects(startSimulator({ relay: { devices: { a: 'b' } } }), {
    code,
    message: /^options: relay\.devices\.a: expected true, HOST:PORT/,
  });
});

const BAD_COMMANDS = [
  [['--prot', '1'], '--prot: unknown option; --help lists them'],
  [['file.json'], 'file.json: unknown option; --help lists them'],
  [['--port'], '--port: needs a value (N)'],
  [['--port', '65536'], '--port: "65536" is no port; expected a whole number from 0 to 65535'],
  [['--port=8o'], '--port: "8o" is no port; expected a whole number from 0 to 65535'],
  [['--relay-port', '-1'], '--relay-port: "-1" is no port; expected a whole number from 0 to 65535'],
  [['--host', '10.255.255.1'], '--host: cannot listen on 10.255.255.1:0: this machine has no such address'],
  [['--chunk', '0'], '--chunk: expected a whole number from 1 to 60000, found 0'],
  [['--notify-block', '100'], '--notify-block: expected auto or one of 0, 256, 512, 1024, 2048, found 100'],
  [['--rate', 'fast'], '--rate: expected a number, found "fast"'],
  [['--device', 'd=nowhere'], '--device: expected true, HOST:PORT, lan or lan:IPV4:PORT, found "nowhere"'],
  [['--lan', '1.2.3.4'], '--lan: expected IPV4:PORT, found "1.2.3.4"'],
  [['--fault', 'read'], '--fault: expected STEP:ACTION[:VALUE][*COUNT], found "read"'],
  [['--fault', 'read:close:1'], '--fault: action close takes no value'],
  [['--verbose=1'], '--verbose: takes no value'],
  [['--project', '/nowhere.json'], '/nowhere.json: cannot be read: ENOENT'],
];

for (const [args, line] of BAD_COMMANDS) {
  test(`the command with ${args.join(' ')} ends with exit code 2 and one line`, async (t) => {
    const run = command(t, args);
    assert.deepEqual(await run.exit, { code: 2, signal: null });
    assert.equal(run.stderr, `${line}\n`);
    assert.equal(run.stdout, '');
  });
}

test('a port in use is named', async (t) => {
  const first = command(t, ['--host', loopback(1)]);
  await first.ready;
  const { port } = JSON.parse(first.stdout);
  const second = command(t, ['--host', loopback(1), '--port', String(port)]);
  assert.equal((await second.exit).code, 2);
  assert.equal(second.stderr, `--port: cannot listen on ${loopback(1)}:${port}: the address is in use\n`);
});

test('a field of a project file is named with the file', async (t) => {
  const name = path.join(tempDir(t), 'plant.json');
  fs.writeFileSync(name, JSON.stringify(tag({ type: 'flaot' })));
  const run = command(t, ['--project', name]);
  assert.equal((await run.exit).code, 2);
  assert.match(
    run.stderr,
    new RegExp(`^${name}: drivers\\[1\\]\\.tags\\[0\\]\\.type: unknown type "flaot"; expected one of [^\\n]*\\n$`),
  );
});

test('the command prints one line of JSON when it is ready, serves, and ends with 0 on SIGTERM and SIGINT', async (t) => {
  for (const signal of ['SIGTERM', 'SIGINT']) {
    const run = command(t, ['--port', '0', '--relay-port', '0', '--device', 'boiler', '--fault', 'path:delay:1*2']);
    await run.ready;
    const ready = JSON.parse(run.stdout);
    assert.equal(run.stdout.split('\n').length, 2);
    assert.deepEqual(ready, {
      host: '127.0.0.1',
      port: ready.port,
      address: `127.0.0.1:${ready.port}`,
      relay: { host: '127.0.0.1', port: ready.relay.port, devices: ['boiler'] },
      project: 'Demo plant',
      pid: run.child.pid,
    });
    const client = await login(ready.relay, 'operator', 'secret', 'boiler');
    assert.equal(client.rights, '390000000008000000');
    client.close();
    run.child.kill(signal);
    assert.deepEqual(await run.exit, { code: 0, signal: null });
    assert.equal(run.stderr, '');
  }
});

test('with --exit-with-stdin the command ends with its standard input', async (t) => {
  const run = command(t, ['--exit-with-stdin'], 'pipe');
  await run.ready;
  run.child.stdin.end();
  assert.deepEqual(await run.exit, { code: 0, signal: null });
});

test('--help lists every option and ends with 0', async (t) => {
  const run = command(t, ['--help']);
  assert.equal((await run.exit).code, 0);
  for (const flag of ['--project FILE', '--port N', '--relay-port N', '--device NAME[=TARGET]', '--exit-with-stdin']) {
    assert.ok(run.stdout.includes(`  ${flag} `), flag);
  }
});

test('the demo plant loads, moves, and has every type that JavaScript sees', () => {
  const { drivers, users } = loadProject(path.join(__dirname, '../../simulator/demo-plant.json'));
  const codes = new Set(drivers.flatMap((driver) => driver.tags.map((one) => one.code)));
  for (const code of [2, 3, 4, 5, 8, 11, 16, 17, 18, 19, 22, 23]) assert.ok(codes.has(code), `type ${code}`);
  assert.ok(
    drivers.some((driver) => /[一-龥]/.test(driver.name) && driver.tags.some((one) => /[一-龥]/.test(one.name))),
  );
  assert.ok(drivers.some((driver) => driver.tags.some((one) => one.wave && one.limits.length > 0)));
  assert.deepEqual(
    users.map(({ name, rights }) => [name, rights]),
    [
      ['operator', 8],
      ['viewer', 0],
    ],
  );
});
