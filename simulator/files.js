'use strict';
// The project's files as clients mirror them: those of the project, and the driver and list files made from it. Also the
// decision how a request is answered; transfer.js does the sending.
//
//   RecData/drvinfo.dat   per driver: name (GB2312) NUL, u16 id, u16 number of tags
//   RecData/textlist      the lines that alarm texts refer to, one a line, GB2312
//   RecData/taglist       the lines that alarm tags refer to

const zlib = require('node:zlib');
const path = require('node:path');
const { u16, zeroTerminated } = require('./wire');
const { toGb2312 } = require('./text');

const DRIVER_FILE = 'RecData/drvinfo.dat';
const SAME_TIME = 3; // seconds that a time may differ by and still be the same
const MAX_TIME = 0xffffffff;

const slashed = (name) => name.replace(/\\/g, '/');
const keyOf = (name) => slashed(name).toLowerCase();
const hex = (number) => number.toString(16).toUpperCase();

function driverFile(plant) {
  return Buffer.concat(
    plant.drivers.flatMap((driver) => [zeroTerminated(toGb2312(driver.name)), u16(driver.id), u16(driver.tags.length)]),
  );
}

function encodeText(file) {
  if (file.bytes) return file.bytes;
  return file.encoding === 'utf-8' ? Buffer.from(file.text, 'utf8') : toGb2312(file.text);
}

class Files {
  constructor(project, plant, alarms) {
    this.byName = new Map();
    const made = (name, bytes) => this.add({ name, bytes, time: project.time });
    made(DRIVER_FILE, driverFile(plant));
    made('RecData/textlist', alarms.texts.bytes());
    made('RecData/taglist', alarms.tags.bytes());
    for (const file of project.files) this.add({ ...file, bytes: encodeText(file) });
  }

  /** Enters a file; one of the project stands before a made one of the same name. */
  add(file) {
    const body = file.gz ? zlib.gzipSync(file.bytes) : file.bytes;
    this.byName.set(keyOf(file.name), { ...file, body });
  }

  /** The file of a name, without regard to case and with either slash, or undefined. */
  find(name) {
    return this.byName.get(keyOf(name));
  }

  get driverFile() {
    return this.find(DRIVER_FILE);
  }
}

const hexHeader = (text) => (/^[0-9A-Fa-f]{1,8}$/.test(text ?? '') ? parseInt(text, 16) : undefined);

/**
 * Whether the copy that the client tells of is the file as it stands. Time and size must both fit: a transfer that broke
 * off leaves a part with the full file's time. A wrong size only means that the file is sent again.
 */
function isCurrent(file, headers) {
  const [time, size] = file.gz ? [headers.gztime, headers.gzsize] : [headers.lasttime, headers.size];
  if (hexHeader(time) === undefined) return false;
  return Math.abs(hexHeader(time) - file.time) <= SAME_TIME && hexHeader(size) === file.body.length;
}

/** Offset from which a growing file is sent to a client that holds its beginning, or 0 for all of it. */
function appendOffset(file, headers) {
  if (!file.append || file.gz || hexHeader(headers.lasttime) === undefined) return 0;
  const held = hexHeader(headers.size) ?? 0;
  return held < file.body.length ? held : 0;
}

const headerBlock = (lines) => toGb2312(`${lines.map((line) => `${line}\r\n`).join('')}\r\n`);

/** What a file request is answered with: { header, body, hello }. `file` is undefined when there is none. */
function answer(file, headers, helloAllowed) {
  const none = Buffer.alloc(0);
  if (!file) return { header: headerBlock(['Exist:No']), body: none, hello: false };
  const hello = helloAllowed && file.hello !== false && /^yes/i.test(headers.hello ?? '');
  if (file.header !== undefined) return { header: Buffer.from(file.header, 'latin1'), body: file.body, hello: false };
  if (isCurrent(file, headers)) return { header: headerBlock(['UseLast:Yes']), body: none, hello: false };
  const offset = appendOffset(file, headers);
  const body = file.body.subarray(offset);
  const lines = [
    'Exist:Yes',
    `FileName:${path.posix.basename(slashed(file.name))}`,
    `FileTime:${hex(Math.min(MAX_TIME, file.time))}`,
    `Size:${hex(body.length)}`,
    ...(file.gz ? ['GZ:Yes'] : []),
    ...(offset > 0 ? ['Append:Yes'] : []),
    ...(hello ? ['Hello:Yes'] : []),
  ];
  return { header: headerBlock(lines), body, hello };
}

module.exports = { Files, answer };
