'use strict';
// Cutting the bytes of a connection into requests. No request carries its length: each is whole when its own parts are.
//
//   '7' registration   16-byte identifier, or identifier, 6-byte hardware address, target name NUL; scrambled
//   '8' registration   identifier, host name NUL, 1 byte, 1 byte; scrambled
//   '3' project path   nothing              '9' login      user NUL, password NUL
//   '4' file           lines, blank line    '4' "Hello" hexadecimal count NUL: an acknowledgement
//   'L' tag ids        u16 driver, name NUL; any number of them
//   'b' connect        u16 n, then n times u16 driver, u16 tag, one byte
//   'H' read           u16 n, then n times u16 driver, u16 tag
//   'g' write          u16 n, then n times u16 driver, u16 tag, value with type word
//   'd' unadvise       i32 id               'n' alarms     nothing

const { Cursor, Incomplete } = require('./wire');
const { unscramble, scrambledLength } = require('./scramble');
const { ProtocolError } = require('./errors');
const { fromGb2312 } = require('./text');
const values = require('./values');

const MAX_REQUEST = 65536; // bytes; far above what any client sends
const ID_BYTES = 16;
const EXTENDED_NAME = ID_BYTES + 6; // offset of the target name in an extended registration body
const PLAIN_PACKET = 1 + scrambledLength(ID_BYTES);
const MAX_PACKET = 512; // registration packets

/** Offset behind the first zero byte at or after `start`, or -1. */
function behindZero(bytes, start) {
  const zero = bytes.indexOf(0, start);
  return zero < 0 ? -1 : zero + 1;
}

function registration(command, body) {
  return { command, length: 1 + scrambledLength(body.length), fields: { body: body.toString('hex') } };
}

function incompletePacket(bytes) {
  if (bytes.length >= MAX_PACKET) throw new ProtocolError('registration packet without end');
  return null;
}

function plainRegistration(bytes) {
  const request = registration('7', unscramble(bytes.subarray(1, PLAIN_PACKET)));
  request.fields.id = request.fields.body;
  return request;
}

function extendedRegistration(bytes) {
  const plain = unscramble(bytes.subarray(1, MAX_PACKET));
  const end = behindZero(plain, EXTENDED_NAME);
  if (end < 0) return incompletePacket(bytes);
  const request = registration('7', plain.subarray(0, end));
  request.fields.id = plain.toString('hex', 0, ID_BYTES);
  request.fields.mac = plain.toString('hex', ID_BYTES, EXTENDED_NAME);
  request.fields.target = plain.toString('utf8', EXTENDED_NAME, end - 1);
  return request;
}

/** First registration. More bytes than the plain body has tell the extended body apart where either may come. */
function parse7(bytes, { extended }) {
  if (extended || bytes.length > PLAIN_PACKET) return extendedRegistration(bytes);
  return bytes.length < PLAIN_PACKET ? null : plainRegistration(bytes);
}

function parse8(bytes) {
  const plain = unscramble(bytes.subarray(1, MAX_PACKET));
  const end = behindZero(plain, ID_BYTES);
  if (end < 0 || plain.length < end + 2) return incompletePacket(bytes);
  const request = registration('8', plain.subarray(0, end + 2));
  request.fields.id = plain.toString('hex', 0, ID_BYTES);
  request.fields.hostName = plain.toString('utf8', ID_BYTES, end - 1);
  request.fields.flag = plain[end];
  request.fields.last = plain[end + 1];
  return request;
}

const parseSingleByte = (bytes) => ({ command: String.fromCharCode(bytes[0]), length: 1, fields: {} });

function parse9(bytes) {
  const cursor = new Cursor(bytes, 1);
  const user = cursor.text().toString('utf8');
  const password = cursor.text().toString('utf8');
  return { command: '9', length: cursor.position, fields: { user, password } };
}

function parseAck(bytes) {
  const match = /^4Hello([0-9A-Fa-f]{1,8})\0/.exec(bytes.toString('latin1', 0, 16));
  return match && { command: '4', length: match[0].length, fields: { ack: parseInt(match[1], 16) } };
}

function headerLines(lines) {
  const headers = {};
  for (const line of lines) {
    const colon = line.indexOf(':');
    if (colon > 0) headers[line.slice(0, colon).trim().toLowerCase()] = line.slice(colon + 1).trim();
  }
  return headers;
}

function parse4(bytes) {
  const ack = parseAck(bytes);
  if (ack) return ack;
  const end = bytes.indexOf('\r\n\r\n', 0, 'latin1');
  if (end < 0) return null;
  const pathEnd = bytes.indexOf('\r\n', 0, 'latin1');
  const lines = bytes.toString('latin1', pathEnd, end).split('\r\n');
  const fields = { path: fromGb2312(bytes.subarray(1, pathEnd)), headers: headerLines(lines) };
  return { command: '4', length: end + 4, fields };
}

/** Entries of an 'L' request from `start` to the end of what has arrived; null while the last name is not whole. */
function tagNames(bytes, start) {
  if (bytes[bytes.length - 1] !== 0) return null;
  const cursor = new Cursor(bytes, start);
  const tags = [];
  do {
    const driver = cursor.u16();
    tags.push({ driver, name: Buffer.from(cursor.text()) });
  } while (cursor.left > 0);
  return tags;
}

function tagIdRequest(bytes, start) {
  const tags = tagNames(bytes, start);
  if (!tags) return null;
  const names = tags.map((tag) => ({ driver: tag.driver, name: fromGb2312(tag.name) }));
  const request = { command: 'L', length: bytes.length, fields: { tags: names }, tags };
  if (start === 0) request.fields.continued = true;
  return request;
}

const parseL = (bytes) => tagIdRequest(bytes, 1);

function parseEntries(command, extra) {
  return (bytes) => {
    const cursor = new Cursor(bytes, 1);
    const tags = [];
    for (let n = cursor.u16(); n > 0; n--) {
      tags.push({ driver: cursor.u16(), tag: cursor.u16() });
      cursor.take(extra);
    }
    return { command, length: cursor.position, fields: { tags } };
  };
}

function takeWrite(cursor) {
  const driver = cursor.u16();
  const tag = cursor.u16();
  const { code, value } = values.decode(cursor);
  if (value === undefined) throw new ProtocolError('write of an array');
  return { driver, tag, type: code, value };
}

function parseG(bytes) {
  const cursor = new Cursor(bytes, 1);
  const writes = [];
  for (let n = cursor.u16(); n > 0; n--) writes.push(takeWrite(cursor));
  return { command: 'g', length: cursor.position, fields: { writes } };
}

function parseD(bytes) {
  const cursor = new Cursor(bytes, 1);
  return { command: 'd', length: 5, fields: { id: cursor.i32() } };
}

const PARSERS = {
  7: parse7,
  8: parse8,
  9: parse9,
  3: parseSingleByte,
  4: parse4,
  L: parseL,
  b: parseEntries('b', 1),
  H: parseEntries('H', 0),
  g: parseG,
  d: parseD,
  n: parseSingleByte,
};

/**
 * A batch 'L' request may be cut by the network just behind a name. The first part was answered then; what follows
 * begins with a driver number where a command should stand, and its answer continues the first one.
 */
function parserFor(bytes, { first, afterTagIds }) {
  const command = String.fromCharCode(bytes[0]);
  if (first && command !== '7' && command !== '8') throw new ProtocolError('connection without registration');
  if (Object.hasOwn(PARSERS, command)) return PARSERS[command];
  return afterTagIds ? (all) => tagIdRequest(all, 0) : undefined;
}

/**
 * The first request in `bytes`: { command, length, fields }, or null while it is not whole.
 * `context`: first (only a registration may come), extended (its body can only be the extended one), afterTagIds (the
 * last request was an 'L').
 * Throws ProtocolError when no further bytes can make it a request.
 */
function parseRequest(bytes, context) {
  const parser = parserFor(bytes, context);
  if (!parser) throw new ProtocolError(`unknown command byte 0x${bytes[0].toString(16).padStart(2, '0')}`);
  let request = null;
  try {
    request = parser(bytes, context);
  } catch (error) {
    if (!(error instanceof Incomplete)) throw error;
  }
  if (!request && bytes.length >= MAX_REQUEST) throw new ProtocolError('request too long');
  return request;
}

module.exports = { parseRequest, MAX_REQUEST };
