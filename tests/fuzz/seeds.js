'use strict';
// Writes the seed corpora: packets as a well-behaved server sends them, and the odd ones that the protocol allows.
//   node tests/fuzz/seeds.js
// A seed is laid out as its harness reads it: option bytes, then segments (see support/Input.h).
const { mkdirSync, writeFileSync } = require('node:fs');
const path = require('node:path');

const part = (value) => (typeof value === 'number' ? Buffer.from([value]) : Buffer.from(value, 'latin1'));
const bytes = (...values) => Buffer.concat(values.map(part));
const u16 = (n) => bytes(n & 255, n >> 8);
const u32 = (n) => bytes(u16(n & 0xffff), u16(n >>> 16));
const f64 = (n) => {
  const b = Buffer.alloc(8);
  b.writeDoubleLE(n);
  return b;
};
const f32 = (n) => {
  const b = Buffer.alloc(4);
  b.writeFloatLE(n);
  return b;
};
const nul = (text) => bytes(text, 0);

// One segment: a backslash is doubled, and a backslash with a line feed ends it.
function segment(...parts) {
  const escaped = [...bytes(...parts)].flatMap((c) => (c === 0x5c ? [c, c] : [c]));
  return bytes(Buffer.from(escaped), '\\\n');
}
const segments = (...list) => bytes(...list.map((content) => segment(content)));
const end = segment();

// Scrambled with masks of one value.
function scrambled(plain, mask = 0) {
  const wire = [];
  [...bytes(plain)].forEach((p, i) => {
    if (i % 3 === 0) wire.push(mask);
    wire.push([p + mask, p - mask, p ^ mask][i % 3] & 255);
  });
  return Buffer.from(wire);
}

function acknowledgement(time, size) {
  const head = Buffer.from(Array.from({ length: 50 }, (_, i) => (i === 21 ? 16 : i)));
  const big = Buffer.alloc(8);
  big.writeUInt32BE(time, 0);
  big.writeUInt32BE(size, 4);
  return bytes(head, big);
}
const secondReply = (project, second = 'second') => bytes('8', acknowledgement(7, 0), nul(project), nul(second));

// --- values

const values = {
  empty: u16(0),
  null: u16(1),
  i2: bytes(u16(2), u16(0xfffe)),
  i4: bytes(u16(3), u32(123456)),
  r4: bytes(u16(4), f32(1.5)),
  r8: bytes(u16(5), f64(3)),
  date: bytes(u16(7), f64(45325.17)),
  text: bytes(u16(8), nul('AB')),
  emptyText: bytes(u16(8), 0),
  bool: bytes(u16(11), 5),
  i1: bytes(u16(16), 255),
  ui1: bytes(u16(17), 200),
  ui2: bytes(u16(18), u16(65535)),
  ui4: bytes(u16(19), u32(0xffffffff)),
  i8: bytes(u16(20), f64(1e18)),
  ui8: u16(21),
  int: bytes(u16(22), u32(7)),
  uint: bytes(u16(23), u32(8)),
  array: bytes(u16(0x2000), u16(2), u16(3), u32(1), u16(3), u32(2)),
  nan: bytes(u16(5), 0, 0, 0, 0, 0, 0, 0xf8, 0x7f),
  infinity: bytes(u16(4), f32(Infinity)),
  huge: bytes(u16(5), f64(1e300)),
  farDate: bytes(u16(7), f64(1e14)),
  dateText: bytes(u16(8), nul('2024-02-03 04:05:06')),
  colour: bytes(u16(8), nul('#102030')),
  minus: bytes(u16(8), nul('-1')),
  cutText: bytes(u16(8), 'no end'),
};
const all = bytes(...Object.values(values).slice(0, 18));

const seeds = {};
const seed = (harness, name, ...parts) => {
  (seeds[harness] ??= {})[name] = bytes(...parts);
};

for (const [name, value] of Object.entries(values)) seed('variant', name, 3, value);
seed('variant', 'all', 12, all);
seed('variant', 'no-bytes', 3);

// --- text and files

seed('text', 'tokens', ',', segments(',', 'aa'), ',,a,,b,');
seed('text', 'blanks', ' ', segments(' \t', ''), ' \t a b \t');
seed('text', 'no-delimiters', 'x', segments('', 'y'), 'abc');
seed('text', 'replace', 'a', segments('a', 'aa'), 'aaa');
seed('text', 'zero-byte', 0, segments(',', ''), 'a', 0, ',b', 0);
seed('text', 'upper', 'Z', segments('-', '_'), 'ABC-Zz', 0xd6, 0xd0);

const zhong = bytes(0xd6, 0xd0, 0xce, 0xc4);
seed('encoding', 'ascii', 'Hello, 123');
seed('encoding', 'gb2312', zhong, 'a', zhong);
seed('encoding', 'half-character', 'a', zhong.subarray(0, 3));
seed('encoding', 'not-gb2312', 'a', 0xff, 0xa1);
seed('encoding', 'utf8', Buffer.from('中文a文'));
seed('encoding', 'not-in-gb2312', Buffer.from('a\u20ac\u{1f600}'));
seed('encoding', 'ucs2', Buffer.from('中文ab', 'utf16le'));

seed('line_list', 'lines', 'a\r\n\r\nb\nc');
seed('line_list', 'no-line-feed', 'x\r');
seed('line_list', 'gb2312', zhong, '\r\n', zhong, '\n');
for (const n of [255, 256, 257]) seed('line_list', `long-${n}`, 'L'.repeat(n), '\r\nnext\n');
seed('line_list', 'long-cut-character', 'L'.repeat(254), zhong, '\n');
seed('line_list', 'zero-byte', 'a', 0, 'b\n', 0, 'c\n');

const record = (name, id, count) => bytes(nul(name), u16(id), u16(count));
const driverFile = bytes(record('AB', 3, 16), record('D', 1, 40), record(zhong, 0, 2));
seed('driver_file', 'one', record('AB', 3, 16));
seed('driver_file', 'several', driverFile);
seed('driver_file', 'same-name-twice', record('A', 1, 1), record('A', 2, 2));
seed('driver_file', 'empty-name', record('', 9, 9));
seed('driver_file', 'four-bytes', 0, 1, 2, 3);
seed('driver_file', 'cut-record', record('AB', 3, 16), 'CD', 0, 1, 2, 3);
seed('driver_file', 'no-terminator', record('AB', 3, 16), 'endless name');

seed('scramble', 'empty', u16(4));
seed('scramble', 'ack', u16(512), scrambled(secondReply('demo'), 0x5a));
for (let n = 1; n <= 8; ++n) seed('scramble', `length-${n}`, u16(8), '12345678'.slice(0, n));
seed('scramble', 'room-383', u16(512), 'x'.repeat(383));
seed('scramble', 'room-384', u16(512), 'x'.repeat(384));

const header = (...lines) => `${lines.join('\r\n')}\r\n\r\n`;
const wholeHeader = header(
  'Size:5',
  'UseLast:No',
  'Exist:Yes',
  'GZ:No',
  'FileTime:65C0A1B2',
  'FileName: my file.txt',
  'Append:no',
  'Hello:YES',
);
const rooms = bytes(63, 255);
seed('file_header', 'whole', rooms, wholeHeader, 'hello');
seed(
  'file_header',
  'sizes',
  rooms,
  header('size:1A', 'Size:FFFFFFFF', 'Size:123456789ABCDEF0123', 'Size:-1', 'FileTime:0x10'),
);
seed('file_header', 'colons', rooms, header('FileName:a:b', ':no name'));
seed('file_header', 'cut', rooms, 'Size:10\r\nUse');
seed('file_header', 'long-name', rooms, 'N'.repeat(64), ':1\n\n');
seed('file_header', 'long-value', rooms, 'FileName:', 'v'.repeat(256), '\n\n');
seed('file_header', 'no-room', 0, 0, 'a:b\n\n');

const fetch = (options, held, time) => bytes(options, held, u16(time));
seed('get_file', 'body-with-header', fetch(0, 0, 0), segments(`${header('Size:5')}hello`));
seed('get_file', 'body-behind-header', fetch(0, 0, 0), segments(header('Size:A', 'FileTime:10'), 'hello', 'world'));
seed('get_file', 'current', fetch(5, 20, 1000));
seed('get_file', 'use-last', fetch(1, 20, 1000), segments(header('UseLast:Yes')));
seed('get_file', 'gone', fetch(3, 20, 1000), segments(header('Exist:No')));
seed('get_file', 'append', fetch(1, 20, 1000), segments(`${header('Size:3', 'Append:Yes')}abc`));
seed('get_file', 'gz', fetch(2, 20, 1000), segments(`${header('Size:3', 'GZ:Yes')}abc`));
seed('get_file', 'too-much', fetch(0, 0, 0), segments(`${header('Size:2')}`, 'abcdef'));
seed('get_file', 'cut-body', fetch(16, 0, 0), segments(`${header('Size:FFFFFFFF')}`, 'abc'), end);
seed(
  'get_file',
  'acknowledged',
  fetch(8, 0, 0),
  segments(header('Size:A000', 'Hello:Yes')),
  segments(...Array(3).fill('x'.repeat(14000))),
);
seed(
  'get_file',
  'endless-header',
  fetch(0, 0, 0),
  segments('Header:value\r\n'.repeat(200)),
  segments('Header:value\r\n'),
);

// --- connections

const lan = (port) => bytes('7lan', 127, 0, 0, 1, port >> 8, port & 255);
const accepted = (project) => segments('7', scrambled(secondReply(project), 0x5a));
seed('handshake', 'direct', 8, accepted('demo'));
seed('handshake', 'direct-port', 1, accepted(zhong));
seed('handshake', 'relay', 3, accepted('demo'));
seed('handshake', 'relay-address', 4, accepted('demo'));
seed('handshake', 'no-device', 5);
seed('handshake', 'lan', 3, segments(lan(8000)), accepted('demo'));
seed('handshake', 'lan-ring', 3, segments(...Array(20).fill(lan(3968))));
seed('handshake', 'lan-cut', 2, segments(lan(8000).subarray(0, 9)), accepted('demo'));
seed('handshake', 'refused', 0, segments('0'));
seed('handshake', 'client-refused', 0, segments('7', scrambled('0', 9)));
seed('handshake', 'no-reply', 0, end);
seed('handshake', 'other-address', 7, segments(':localhost:99999999999'), accepted('demo'));
seed('handshake', 'long-device', 7, segments(`p2p:${'d'.repeat(255)}`), accepted('demo'));
seed('handshake', 'longer-device', 7, segments(`p2p:${'d'.repeat(256)}`), accepted('demo'));
seed('handshake', 'ack-only', 0, segments('7', scrambled(secondReply('', '').subarray(0, 60))));
seed('handshake', 'ack-cut', 0, segments('7', scrambled(secondReply('').subarray(0, 59))));
seed('handshake', 'texts-fill-packet', 0, segments('7', scrambled(`8${'p'.repeat(383)}`)));

seed('project', 'path', segments('demo', bytes('3', nul('/db/demo/'), nul('a'), nul('b'), nul('c'))));
seed('project', 'cut', segments('..', bytes('3', '/db/demo')));
seed('project', 'slash', segments('../x', '0'));
seed('project', 'dots-and-bad-byte', segments(bytes('..', 0xff), '3'));
seed('project', 'gb2312', segments(zhong, bytes('3', nul(zhong))));

const driverRecord = (slot, tag, value) => bytes(u16(slot), u16(tag), value);
const coreRecord = (command, body) => bytes(u16(0xffff), command, body);
const alarm = bytes(u32(1700000000), u32(0), u16(0), u16(0), u16(1), 3, 4, f64(1.5), f64(-2.5));
const lengths = { 2: 7, 4: 43, 5: 7, 6: 20, 7: 7, 8: 5, 255: 3, 10: 15, 13: 15, 9: 8, 14: 8, 22: 8 };
const noAlarms = segments(bytes('n', u16(0)));
const typed = [
  [2, u16(1)],
  [3, u32(2)],
  [4, f32(3)],
  [5, f64(4)],
  [7, f64(5)],
  [8, nul('six')],
  [11, 7],
  [16, 8],
  [17, 9],
  [18, u16(10)],
  [19, u32(11)],
  [20, f64(12)],
  [22, u32(13)],
  [23, u32(14)],
];
const everyType = bytes(...typed.map(([tag, value]) => driverRecord(1, tag, bytes(value))));
const body = bytes(u16(1), u16(2), Buffer.alloc(40));
const everyCommand = bytes(
  ...Object.entries(lengths).map(([command, length]) => coreRecord(Number(command), body.subarray(0, length - 3))),
);
seed('notify', 'every-type', 1, segments(everyType));
seed('notify', 'every-type-silent', 0, segments(everyType));
seed('notify', 'every-command', 0, segments(everyCommand));
seed(
  'notify',
  'alarms',
  3,
  noAlarms,
  segments(coreRecord(1, alarm), bytes(coreRecord(3, alarm), coreRecord(1, alarm))),
);
seed('notify', 'alarms-unheard', 0, segments(coreRecord(1, alarm)));
seed('notify', 'event-text', 0, segments(coreRecord(17, bytes(u16(1), u16(2), nul('abc')))));
seed('notify', 'event-endless-text', 0, segments(coreRecord(17, bytes(u16(1), u16(2), 'abc'))));
seed('notify', 'empty-slot', 0, segments(driverRecord(0, 1, u16(1))));
seed('notify', 'no-slot', 0, segments(driverRecord(5, 1, u16(1))));
seed('notify', 'no-tag', 0, segments(driverRecord(1, 40, u16(1))));
seed('notify', 'unknown-type', 0, segments(driverRecord(1, 0, u16(1)), driverRecord(1, 27, u16(1))));
seed('notify', 'cut', 1, segments(everyType.subarray(0, 37)));
seed('notify', 'queue-closing', 27, noAlarms, segments(bytes(everyType, coreRecord(1, alarm))), segments(everyType));
seed('notify', 'queue-full', 11, noAlarms, segments(bytes(everyType, coreRecord(1, alarm))));
seed('notify', 'callbacks-throw', 7, noAlarms, segments(bytes(everyType, coreRecord(1, alarm))));
seed('notify', 'creation-fails', 0xe3, noAlarms, segments(bytes(everyType, coreRecord(1, alarm))));
seed('notify', 'full-chunk', 1, segments(bytes(...Array(341).fill(driverRecord(1, 2, u16(0x1234)))).subarray(0, 2048)));

const readChunk = (more, ...parts) => bytes('H', more, u16(bytes(...parts).length), ...parts);
const connectChunk = (...parts) => bytes('b', u16(bytes(...parts).length), ...parts);
seed('reply_read', 'one', 1, 0, segments(readChunk(0, values.i4)));
seed('reply_read', 'all', 18, 0, segments(readChunk(0, all)));
seed(
  'reply_read',
  'chunks',
  3,
  0,
  segments(readChunk(1, values.i4), readChunk(1, values.text), readChunk(0, values.r8)),
);
seed('reply_read', 'split', 2, 0, segments('H', bytes(0, 10), bytes(0), values.text, values.text));
seed('reply_read', 'empty-chunks', 2, 0, segments(...Array(40).fill(readChunk(1))));
seed('reply_read', 'cut', 2, 0, segments(readChunk(0, values.i4).subarray(0, 7)), end);
seed('reply_read', 'wrong-letter', 1, 0, segments('b'));
seed('reply_read', 'too-few', 40, 0, segments(readChunk(0, values.i4)));
seed('reply_read', 'too-many', 1, 0, segments(readChunk(1, values.i4, values.i4)));
seed('reply_read', 'array', 3, 0, segments(readChunk(0, values.array)));
seed('reply_read', 'creation-fails', 3, 3, segments(readChunk(0, values.i4, values.text, values.bool)));
seed('reply_connect', 'one', 1, segments(connectChunk(values.i4)));
seed('reply_connect', 'all', 18, segments(connectChunk(all)));
seed('reply_connect', 'chunks', 2, segments(connectChunk(values.i4), connectChunk(values.text)));
seed('reply_connect', 'empty-chunks', 2, segments(...Array(40).fill(connectChunk())));
seed('reply_connect', 'cut-then-again', 2, segments(connectChunk(values.i4, values.cutText), connectChunk(values.r8)));
seed('reply_connect', 'wrong-letter', 1, segments('H'));

const ids = (...list) => bytes('L', ...list.map((id) => bytes(u16(id), 0, 0)));
seed('reply_tagid', 'batch', segments('A, B', 'C'), segments(ids(0, 39), bytes('L', u16(7)), ids(1)));
seed(
  'reply_tagid',
  'unknown',
  segments('X,Y', 'Z'),
  segments(ids(65535, 40), bytes('L', u16(65535)), ids(2, 3, 4), 'd'),
);
seed('reply_tagid', 'split-single', segments('', 'Z'), segments('L', bytes(5), bytes(0), ids(1, 2, 3, 4)));
seed('reply_tagid', 'wrong-letter', segments('A', 'B'), segments('b', 'b', 'b'));
seed(
  'reply_tagid',
  'two-batches',
  segments(Array.from({ length: 130 }, (_, i) => `Tag${i}`).join(','), ''),
  segments(ids(...Array(110).fill(1)), ids(...Array(60).fill(2))),
);
seed('reply_tagid', 'long-name', segments('n'.repeat(800), 'm'.repeat(300)), segments(ids(1)));

const emptyFile = header('Size:0');
const alarmReply = (...alarms) => bytes('n', u16(alarms.length), ...alarms);
seed('reply_alarm', 'none', 0, segments(alarmReply(), emptyFile, emptyFile));
seed(
  'reply_alarm',
  'two',
  1,
  segments(alarmReply(alarm, alarm), `${header('Size:A')}high\r\nlow\n`, `${header('Size:5')}pump\n`),
);
seed('reply_alarm', 'discarded', 0, segments(alarmReply(alarm, alarm, alarm), emptyFile, emptyFile));
seed('reply_alarm', 'too-few', 1, segments(bytes('n', u16(9), alarm)), end);
seed('reply_alarm', 'wrong-letter', 1, segments('N', 'xx'));
seed('reply_alarm', 'callbacks-throw', 3, segments(alarmReply(alarm, alarm), emptyFile, emptyFile));
seed('reply_alarm', 'creation-fails', 0x25, segments(alarmReply(alarm), emptyFile, emptyFile));

// --- whole sessions: replies in the order in which the client receives, and the steps between (see session.cpp)

const login = bytes('9', Buffer.alloc(4), u32(0xff), Buffer.alloc(3));
const sent = (file) => bytes(header(`Size:${file.length.toString(16)}`, 'FileTime:10'), file);
const start = (project, file = driverFile) => bytes(accepted(project), segments(login, sent(file)));
const [
  reconnect,
  disconnect,
  closeLast,
  deliver,
  alarms,
  callbacks,
  unadvise,
  queueing,
  closeFirst,
  notifyTags,
  read,
  connect,
  write,
  closeInside,
  tagId,
] = [0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 13, 15, 16, 17];
const values2 = bytes(values.i4, values.text);
const connectTags = bytes(connect, segments('D', 'A,B', ids(1, 2), connectChunk(values2)));
const changes = segment(driverRecord(1, 1, u32(5)), driverRecord(1, 2, nul('new')), coreRecord(1, alarm));
seed('session', 'connect', start('demo'));
seed('session', 'read', start('demo'), read, segments('D', 'A,B', ids(1, 2), readChunk(0, values2)));
seed(
  'session',
  'follow',
  start('demo'),
  notifyTags,
  segments('D'),
  connectTags,
  deliver,
  changes,
  callbacks,
  deliver,
  changes,
  callbacks,
);
seed('session', 'read-what-was-notified', start('demo'), connectTags, deliver, changes, read, segments('D', 'A,B'));
seed(
  'session',
  'write',
  start('demo'),
  write,
  segments('D', 'A'),
  1,
  segments(ids(1)),
  write,
  segments('D', 'A,B'),
  255,
  segments(ids(2)),
  write,
  segments('D', 'A'),
  100,
  write,
  segments('D', 'B'),
  128,
);
seed(
  'session',
  'alarms',
  start('demo'),
  alarms,
  1,
  segments(alarmReply(alarm), `${header('Size:A')}high\r\nlow\n`, emptyFile),
  deliver,
  segment(coreRecord(1, alarm), coreRecord(3, alarm)),
  callbacks,
);
seed('session', 'server-closes', start('demo'), connectTags, closeLast, read, segments('D', 'A'));
seed(
  'session',
  'server-closes-during-a-read',
  start('demo'),
  notifyTags,
  segments('D'),
  connectTags,
  closeInside,
  segments('D', 'C', ids(3), readChunk(0, values.i4)),
  read,
  segments('D', 'A'),
  reconnect,
  start('demo'),
  connectTags,
);
seed(
  'session',
  'tag-id',
  start('demo'),
  tagId,
  segments('D', 'A', bytes('L', u16(1))),
  tagId,
  segments('D', 'B', 'L', u16(2)),
);
seed(
  'session',
  'tag-event',
  start('demo'),
  connectTags,
  deliver,
  segment(coreRecord(17, bytes(u16(1), u16(2), nul('abc'))), driverRecord(1, 1, u32(5))),
);
seed('session', 'reconnect', start('demo'), connectTags, reconnect, start('other'), connectTags, deliver, changes);
seed(
  'session',
  'notified-before-the-driver-is-asked-for',
  start('demo'),
  connectTags,
  reconnect,
  start('demo'),
  deliver,
  changes,
);
seed(
  'session',
  'disconnect',
  start('demo'),
  connectTags,
  disconnect,
  read,
  segments('D', 'A'),
  reconnect,
  start('demo'),
);
seed('session', 'unadvise', start('demo'), unadvise, 5, segments('d'));
seed('session', 'queue-full', start('demo'), notifyTags, segments('D'), connectTags, queueing, 4, deliver, changes);
seed('session', 'close-first', start('demo'), closeFirst);
seed('session', 'name-with-slash', start('../demo'));
seed('session', 'name-of-dots', start('..'));
seed('session', 'gb2312-name', start(zhong), connectTags);
seed('session', 'login-refused', accepted('demo'), segments('0'));
seed('session', 'login-out-of-place', accepted('demo'), segments('H'));
seed('session', 'no-driver-file', accepted('demo'), segments(login, header('Exist:No')), read, segments('D', 'A'));
seed('session', 'driver-gap', start('demo', record('D', 65535, 1)), connectTags);

for (const [harness, files] of Object.entries(seeds)) {
  const folder = path.join(__dirname, 'corpus', harness);
  mkdirSync(folder, { recursive: true });
  for (const [name, content] of Object.entries(files)) writeFileSync(path.join(folder, name), content);
}
