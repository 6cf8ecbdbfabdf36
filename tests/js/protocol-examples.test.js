'use strict';
// Every worked example of PROTOCOL.md is right: decoded by the simulator's codecs, which share nothing with the
// library, and replayed to the library itself.

const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const { after, test } = require('node:test');
const { readExamples, piecesOf } = require('./support/protocol-examples.js');
const { parseRequest } = require('../../simulator/requests');
const { scramble, unscramble, scrambledLength } = require('../../simulator/scramble');
const values = require('../../simulator/values');
const { Cursor } = require('../../simulator/wire');
const { fromGb2312 } = require('../../simulator/text');

const TIME = 1709622489; // 2024-03-05 07:08:09 UTC, the time of everything in the examples

const examples = readExamples();
const unchecked = new Set(examples.keys());
after(() => assert.deepEqual([...unchecked], [], 'every example has a test'));

function example(name) {
  assert.ok(examples.has(name), `PROTOCOL.md has the example "${name}"`);
  unchecked.delete(name);
  return examples.get(name);
}

const only = (pieces) => {
  assert.equal(pieces.length, 1);
  return pieces[0];
};
const requestBytes = (name) => only(piecesOf(example(name), '->'));
const replyBytes = (name) => only(piecesOf(example(name), '<-'));
const storedBytes = (name) => only(piecesOf(example(name), '=='));

/** What the example's request says; it must be whole and nothing may follow it. */
function fieldsOf(name, extended = false) {
  const bytes = requestBytes(name);
  const { length, fields } = parseRequest(bytes, { extended });
  assert.equal(length, bytes.length);
  return fields;
}

/** Calls take(cursor) until the bytes are used up. */
function takeAll(bytes, take) {
  const cursor = new Cursor(bytes);
  const taken = [];
  while (cursor.left > 0) taken.push(take(cursor));
  return taken;
}

const typedValue = (cursor) => Object.values(values.decode(cursor));

/** [more flag or nothing, values] of each chunk of a reply. */
function chunksOf(bytes, letter, flagged) {
  return takeAll(bytes, (cursor) => {
    assert.equal(cursor.u8(), letter.charCodeAt(0));
    const more = flagged ? [cursor.u8()] : [];
    return [...more, takeAll(cursor.take(cursor.u16()), typedValue)];
  });
}

function alarmOf(cursor) {
  const [begin, end] = [cursor.i32() >>> 0, cursor.i32() >>> 0];
  const lines = [cursor.u16(), cursor.u16(), cursor.u16()];
  const attributes = [cursor.u8(), cursor.u8()];
  const numbers = [cursor.take(8).readDoubleLE(0), cursor.take(8).readDoubleLE(0)];
  return { begin, end, lines, attributes, numbers };
}

const ALARM = { begin: TIME, end: 0, lines: [0, 0, 1], attributes: [3, 1], numbers: [151.5, 150] };

test('the scrambling example decodes to its plain bytes, and its masks are the random bytes', () => {
  const { pieces } = example('scrambling');
  const [plain, random, wire] = pieces.map(({ bytes }) => bytes);
  assert.deepEqual(unscramble(wire), plain);
  assert.deepEqual([wire[0], wire[4]], [...random]);
});

test('the sizes that the text gives for scrambled bytes are right', () => {
  assert.equal(scrambledLength(16), 22);
  assert.deepEqual([380, 384].map(scrambledLength), [507, 512]);
  for (let n = 0; n < 400; n++) {
    const size = 4 * Math.floor(n / 3) + (n % 3 === 0 ? 0 : (n % 3) + 1);
    assert.equal(scramble(Buffer.alloc(n)).length, size);
  }
});

for (const [name, target] of [
  ['first exchange, direct', undefined],
  ['first exchange, extended', 'dev7'],
]) {
  test(`${name}: the body on the wire is the plain one`, () => {
    const fields = fieldsOf(name, target !== undefined);
    assert.equal(fields.body, storedBytes(name).toString('hex'));
    assert.equal(fields.target, target);
    const id = Buffer.from(fields.id, 'hex');
    assert.deepEqual([id.readUInt32LE(0), id.readUInt32LE(8), id.readUInt32LE(12)], [TIME, TIME, 123456]);
    assert.deepEqual(replyBytes(name), Buffer.from('7'));
  });
}

test('the extended body has six zero bytes for the hardware address', () => {
  assert.equal(fieldsOf('first exchange, extended', true).mac, '000000000000');
});

test('the lan answer names 192.168.0.10 and port 8080', () => {
  const bytes = replyBytes('first exchange, lan');
  assert.equal(bytes.toString('latin1', 0, 4), '7lan');
  assert.deepEqual([[...bytes.subarray(4, 8)], bytes.readUInt16BE(8)], [[192, 168, 0, 10], 8080]);
});

test('the refusals are the letter 0, scrambled on the notification connection', () => {
  assert.deepEqual(replyBytes('first exchange, refused'), Buffer.from('0'));
  assert.deepEqual(storedBytes('second exchange, refused'), Buffer.from('0'));
  assert.deepEqual(unscramble(replyBytes('second exchange, refused')), Buffer.from('0'));
});

test('the second exchange carries the identifier of the first', () => {
  const { id, body, ...fields } = fieldsOf('second exchange');
  assert.equal(id, fieldsOf('first exchange, direct').id);
  assert.equal(body, piecesOf(examples.get('second exchange'), '==')[0].toString('hex'));
  assert.deepEqual(fields, { hostName: 'panel7', flag: 1, last: 1 });
});

test('the reply of the second exchange tells time and size of the driver file and the project name', () => {
  const plain = unscramble(replyBytes('second exchange'));
  assert.deepEqual(plain, piecesOf(examples.get('second exchange'), '==')[1]);
  assert.equal(plain[0], '8'.charCodeAt(0));
  const record = plain.subarray(1, 60);
  assert.deepEqual(
    [record[21], record.readUInt32BE(50), record.readUInt32BE(54), record[58]],
    [16, TIME, storedBytes('driver file').length, 'P'.charCodeAt(0)],
  );
  assert.deepEqual(
    takeAll(plain.subarray(59), (cursor) => cursor.text().toString()),
    ['Plant', ''],
  );
});

test('the project path request is one byte, its reply four texts', () => {
  assert.deepEqual(fieldsOf('project path'), {});
  const reply = replyBytes('project path');
  assert.equal(reply[0], '3'.charCodeAt(0));
  assert.deepEqual(
    takeAll(reply.subarray(1), (cursor) => cursor.text().toString()),
    ['D:\\Plant\\', '', '', ''],
  );
});

test('the login is answered with rights of 8, or refused', () => {
  assert.deepEqual(fieldsOf('login'), { user: 'operator', password: 'secret' });
  const reply = replyBytes('login');
  assert.equal(reply.toString('hex'), '390000000008000000');
  assert.deepEqual(fieldsOf('login, refused'), { user: 'operator', password: 'wrong' });
  assert.deepEqual(replyBytes('login, refused'), Buffer.from('0'));
});

test('a new file comes with a header of lines and a body of the size announced', () => {
  assert.deepEqual(fieldsOf('file, new'), { path: 'RecData/drvinfo.dat', headers: { hello: 'Yes' } });
  const [header, body] = replyBytes('file, new').toString('latin1').split('\r\n\r\n');
  const file = storedBytes('driver file');
  const hex = (number) => number.toString(16).toUpperCase();
  assert.deepEqual(header.split('\r\n'), [
    'Exist:Yes',
    'FileName:drvinfo.dat',
    `FileTime:${hex(TIME)}`,
    `Size:${hex(file.length)}`,
    'Hello:Yes',
  ]);
  assert.equal(body, file.toString('latin1'));
});

test('a current file is told of by time and size, and not sent', () => {
  const { path: name, headers } = fieldsOf('file, current');
  assert.equal(name, 'RecData/textlist');
  assert.deepEqual(
    [parseInt(headers.lasttime, 16), parseInt(headers.size, 16), headers.hello],
    [TIME, storedBytes('line list').length, 'Yes'],
  );
  assert.equal(replyBytes('file, current').toString('latin1'), 'UseLast:Yes\r\n\r\n');
});

test('a missing file is answered with Exist:No', () => {
  assert.equal(fieldsOf('file, missing').path, 'RecData/taglist');
  assert.equal(replyBytes('file, missing').toString('latin1'), 'Exist:No\r\n\r\n');
});

test('the acknowledgement counts 131072 bytes', () => {
  assert.deepEqual(fieldsOf('file, acknowledgement'), { ack: 131072 });
});

test('the table of acknowledgement windows adds up', () => {
  const text = fs.readFileSync(path.join(__dirname, '..', '..', 'PROTOCOL.md'), 'utf8');
  const rows = [...text.matchAll(/^\| (\d+) \| (\d+) \| "4Hello([0-9A-F]+)" NUL \| (\d+) \|$/gm)];
  assert.equal(rows.length, 15);
  let all = 0;
  rows.forEach(([, number, size, hex, total], i) => {
    const window = Math.max(8192, 131072 - 10240 * i);
    all += window;
    assert.deepEqual([Number(number), Number(size), parseInt(hex, 16), Number(total)], [i + 1, window, window, all]);
  });
});

test('the driver file names two drivers with their ids and tag counts', () => {
  const record = (cursor) => [fromGb2312(cursor.text()), cursor.u16(), cursor.u16()];
  assert.deepEqual(takeAll(storedBytes('driver file'), record), [
    ['Pumps', 0, 2],
    ['锅炉', 3, 3],
  ]);
});

test('the line list has two lines', () => {
  assert.equal(fromGb2312(storedBytes('line list')), '温度过高\r\n锅炉\r\n');
});

test('a batch of four names is answered with four ids, 65535 for the unknown one', () => {
  const names = ['温度', 'NoSuch', 'Setpoint', 'Mode'];
  assert.deepEqual(
    fieldsOf('tag ids, batch').tags,
    names.map((name) => ({ driver: 3, name })),
  );
  const reply = replyBytes('tag ids, batch');
  assert.equal(reply[0], 'L'.charCodeAt(0));
  assert.deepEqual(
    takeAll(reply.subarray(1), (cursor) => [cursor.u16(), cursor.u16()]),
    [
      [0, 0],
      [65535, 0],
      [1, 0],
      [2, 0],
    ],
  );
});

test('one name is asked for with the same bytes as a batch of one', () => {
  assert.deepEqual(fieldsOf('tag id, one name').tags, [{ driver: 3, name: '温度' }]);
  assert.equal(replyBytes('tag id, one name').toString('hex'), '4c0000');
});

test('a read of three tags is answered in two chunks', () => {
  assert.deepEqual(
    fieldsOf('read').tags,
    [0, 1, 2].map((tag) => ({ driver: 3, tag })),
  );
  assert.deepEqual(chunksOf(replyBytes('read'), 'H', true), [
    [
      1,
      [
        [4, 36.5],
        [5, 40],
      ],
    ],
    [0, [[8, 'auto']]],
  ]);
});

test('a connect of two tags is answered with their values', () => {
  assert.deepEqual(
    fieldsOf('connect').tags,
    [0, 2].map((tag) => ({ driver: 3, tag })),
  );
  assert.equal(requestBytes('connect').length, 3 + 2 * 5);
  assert.deepEqual(chunksOf(replyBytes('connect'), 'b', false), [
    [
      [
        [4, 36.5],
        [8, 'auto'],
      ],
    ],
  ]);
});

test('writes carry the type of the JavaScript value', () => {
  const writes = (name) => fieldsOf(name).writes.map(({ driver, tag, type, value }) => [driver, tag, type, value]);
  assert.deepEqual(writes('write, one tag'), [[3, 1, 5, 3]]);
  assert.deepEqual(writes('write, several tags'), [
    [3, 0, 11, true],
    [3, 1, 5, 41.5],
    [3, 2, 8, '手动'],
  ]);
  for (const name of ['write, one tag', 'write, several tags']) assert.deepEqual(piecesOf(example(name), '<-'), []);
});

test('the unadvise example names driver 3 and tag 2', () => {
  assert.deepEqual(fieldsOf('unadvise'), { id: 3 * 65536 + 2 });
  assert.deepEqual(replyBytes('unadvise'), Buffer.from('d'));
});

test('the alarms request is answered with one alarm', () => {
  assert.deepEqual(fieldsOf('alarms'), {});
  const reply = replyBytes('alarms');
  assert.deepEqual([reply[0], reply.readUInt16LE(1)], ['n'.charCodeAt(0), 1]);
  assert.deepEqual(takeAll(reply.subarray(3), alarmOf), [ALARM]);
});

test('each line of the value examples is one value, of the types 0 to 23', () => {
  const { lines } = example('values with type word');
  const decoded = lines.map(({ bytes }) => only(takeAll(bytes, values.decode)));
  assert.deepEqual(
    decoded.map(({ code }) => code),
    Array.from({ length: 24 }, (_, code) => code),
  );
  const told = new Map([
    [2, -2],
    [3, -70000],
    [4, 36.5],
    [5, 40],
    [7, values.daysOfText('2024-03-05T12:00')],
    [8, '温度'],
    [11, true],
    [16, -1],
    [17, 254],
    [18, 65000],
    [19, 4000000000],
    [20, -5n],
    [22, 7],
    [23, 7],
  ]);
  for (const { code, value } of decoded) assert.deepEqual(value, told.get(code) ?? null);
  lines.forEach(({ bytes }, i) => assert.deepEqual(values.encode(decoded[i].code, decoded[i].value), bytes));
});

test('the array example holds two values with type words', () => {
  const items = [
    { code: 3, value: 5 },
    { code: 3, value: 6 },
  ];
  assert.deepEqual(storedBytes('array'), values.encode(values.ARRAY, items));
});

test('the notification records follow each other without a gap', () => {
  const cursor = new Cursor(replyBytes('notification records'));
  const head = () => [cursor.u16(), cursor.u16()];
  const core = () => [cursor.u16(), cursor.u8()];
  assert.deepEqual([head(), cursor.take(4).readFloatLE(0)], [[3, 0], 37.25]);
  assert.deepEqual([head(), cursor.text().toString()], [[3, 2], '手动']);
  assert.deepEqual([core(), head(), cursor.u8()], [[0xffff, 9], [3, 1], 0]);
  assert.deepEqual([core(), head(), cursor.text().toString()], [[0xffff, 17], [3, 1], 'abc']);
  assert.deepEqual([core(), cursor.u16()], [[0xffff, 8], 0]);
  assert.deepEqual([core(), alarmOf(cursor)], [[0xffff, 3], { ...ALARM, end: TIME + 60 }]);
  assert.deepEqual([core(), cursor.left], [[0xffff, 255], 0]);
});

test('the library sends the requests of the examples and understands their replies', () => {
  const program = path.join(__dirname, 'support', 'protocol-replay.js');
  const { stdout, stderr, status } = spawnSync(process.execPath, [program], { encoding: 'utf8', timeout: 60000 });
  assert.equal(status, 0, stderr);
  const { answered, ...result } = JSON.parse(stdout);
  const time = (seconds) => new Date(seconds * 1000).toISOString();
  const shown = (end, ended) => [time(TIME), time(end), '???', ended, '温度过高', '锅炉', 3, 151.5, 150, 1];
  assert.deepEqual(result, {
    connect: 0,
    read: [36.5, null, 40, 'auto'],
    written: 0,
    writtenList: 0,
    subscribed: 0,
    changes: [
      ['锅炉', '温度', 37.25],
      ['锅炉', 'Mode', '手动'],
    ],
    alarms: [shown(TIME, 0), shown(TIME + 60, 1)],
    wrong: null,
  });
  assert.deepEqual(answered, [
    'login',
    'file, new',
    'tag ids, batch',
    'read',
    'connect',
    'write, one tag',
    'write, several tags',
    'alarms',
    'file, current',
    'file, missing',
  ]);
});
