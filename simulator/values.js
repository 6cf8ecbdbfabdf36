'use strict';
// Tag values: the type table, their encoding on the wire, and how a value of another kind becomes one of a tag's type.
//
// A value on the wire is a 16-bit type word (left out in notifications) and then, by type, 1 to 8 little-endian bytes, a
// zero-terminated text, or nothing. An array is the word 0x2000, a 16-bit count and that many values with type words.
// In this program a value is a number, a BigInt (int64), a boolean, a string, null (types without a value) or, for
// arrays, a list of { code, value }.

const { u16, zeroTerminated } = require('./wire');

const ARRAY = 0x2000;
const MAX_TEXT = 2000; // bytes: a notification record must fit into one receive of the client

// width, Buffer method, smallest and largest value
const INTEGERS = new Map([
  [2, [2, 'Int16LE', -0x8000, 0x7fff]],
  [3, [4, 'Int32LE', -0x80000000, 0x7fffffff]],
  [16, [1, 'Int8', -0x80, 0x7f]],
  [17, [1, 'UInt8', 0, 0xff]],
  [18, [2, 'UInt16LE', 0, 0xffff]],
  [19, [4, 'UInt32LE', 0, 0xffffffff]],
  [22, [4, 'Int32LE', -0x80000000, 0x7fffffff]],
  [23, [4, 'UInt32LE', 0, 0xffffffff]],
]);
const FLOATS = new Map([
  [4, [4, 'FloatLE']],
  [5, [8, 'DoubleLE']],
  [7, [8, 'DoubleLE']],
]);

const NAMES = {
  empty: 0,
  null: 1,
  int16: 2,
  int32: 3,
  float: 4,
  double: 5,
  currency: 6,
  date: 7,
  string: 8,
  dispatch: 9,
  error: 10,
  bool: 11,
  variant: 12,
  unknown: 13,
  decimal: 14,
  reserved: 15,
  int8: 16,
  uint8: 17,
  uint16: 18,
  uint32: 19,
  int64: 20,
  uint64: 21,
  int: 22,
  uint: 23,
  array: ARRAY,
};

/** Type code of a type's name or number, or undefined. */
function typeCode(type) {
  if (typeof type === 'string') return Object.hasOwn(NAMES, type) ? NAMES[type] : undefined;
  return Object.values(NAMES).includes(type) ? type : undefined;
}

/** Whether values of this type have bytes of their own, so that a change can be notified. */
const carriesValue = (code) => INTEGERS.has(code) || FLOATS.has(code) || [8, 11, 20].includes(code);

const isNumeric = (code) => INTEGERS.has(code) || FLOATS.has(code) || code === 20;

function encodeInt64(value) {
  const bytes = Buffer.alloc(8);
  bytes.writeBigInt64LE(value);
  return bytes;
}

function encodeNumber([width, kind], value) {
  const bytes = Buffer.alloc(width);
  bytes[`write${kind}`](value);
  return bytes;
}

const encodeArray = (items) =>
  Buffer.concat([u16(items.length), ...items.map((item) => encode(item.code, item.value))]);

/** Bytes of a value, without its type word. */
function encodeBare(code, value) {
  const number = INTEGERS.get(code) || FLOATS.get(code);
  if (number) return encodeNumber(number, value);
  switch (code) {
    case 8:
      return zeroTerminated(Buffer.from(value, 'utf8'));
    case 11:
      return Buffer.from([value ? 1 : 0]);
    case 20:
      return encodeInt64(value);
    case ARRAY:
      return encodeArray(value);
    default:
      return Buffer.alloc(0);
  }
}

/** Bytes of a value with its type word in front. */
const encode = (code, value) => Buffer.concat([u16(code), encodeBare(code, value)]);

/** Takes a value with its type word from a cursor: { code, value }. Arrays are not taken (value undefined). */
function decode(cursor) {
  const code = cursor.u16();
  const number = INTEGERS.get(code) || FLOATS.get(code);
  if (number) return { code, value: cursor.take(number[0])[`read${number[1]}`](0) };
  switch (code) {
    case 8:
      return { code, value: cursor.text().toString('utf8') };
    case 11:
      return { code, value: cursor.u8() !== 0 };
    case 20:
      return { code, value: cursor.take(8).readBigInt64LE(0) };
    case ARRAY:
      return { code, value: undefined };
    default:
      return { code, value: null };
  }
}

/** Text cut to MAX_TEXT bytes of UTF-8 at a character's border, up to its first NUL. */
function limitText(text) {
  const bytes = Buffer.from(text.split('\0', 1)[0], 'utf8');
  if (bytes.length <= MAX_TEXT) return bytes.toString('utf8');
  let end = MAX_TEXT;
  while ((bytes[end] & 0xc0) === 0x80) end--;
  return bytes.toString('utf8', 0, end);
}

/** Days since 1899-12-30 of a wall-clock text such as "2024-03-05T07:08:09", or NaN. */
function daysOfText(text) {
  if (!/^\d{4}-\d\d-\d\d([T ]\d\d:\d\d(:\d\d(\.\d+)?)?)?$/.test(text)) return NaN;
  const iso = text.length === 10 ? `${text}T00:00:00Z` : `${text.replace(' ', 'T')}Z`;
  return Date.parse(iso) / 86400000 + 25569;
}

/** Days since 1899-12-30 of the local wall clock at `date`. */
const daysOfDate = (date) => (date.getTime() - date.getTimezoneOffset() * 60000) / 86400000 + 25569;

function toNumber(value) {
  if (typeof value === 'string') return value.trim() === '' ? 0 : Number(value);
  if (value === null || value === undefined || typeof value === 'object') return 0;
  return Number(value);
}

function toInteger(value, low, high) {
  const number = toNumber(value);
  if (Number.isNaN(number)) return 0;
  return Math.min(high, Math.max(low, Math.trunc(number))) + 0; // + 0 turns -0 into 0
}

function toInt64(value) {
  if (typeof value === 'string' && /^\s*[-+]?\d+\s*$/.test(value)) return BigInt.asIntN(64, BigInt(value.trim()));
  if (typeof value === 'bigint') return BigInt.asIntN(64, value);
  const number = Math.trunc(toNumber(value));
  if (Number.isNaN(number)) return 0n;
  if (number >= 2 ** 63) return 2n ** 63n - 1n;
  return number < -(2 ** 63) ? -(2n ** 63n) : BigInt(number);
}

function toFloat(code, value) {
  if (code === 7 && value instanceof Date) return daysOfDate(value);
  if (code === 7 && typeof value === 'string' && !Number.isNaN(daysOfText(value))) return daysOfText(value);
  const number = toNumber(value);
  return code === 4 ? Math.fround(number) : number;
}

function toBool(value) {
  if (typeof value !== 'string') return toNumber(value) !== 0;
  return value.trim().toLowerCase() === 'true' || (Number(value) !== 0 && !Number.isNaN(Number(value)));
}

/** The value as one of type `code`: numbers are held within the type's range, nonsense becomes 0, false or "". */
function coerce(code, value) {
  const integer = INTEGERS.get(code);
  if (integer) return toInteger(value, integer[2], integer[3]);
  if (FLOATS.has(code)) return toFloat(code, value);
  switch (code) {
    case 8:
      return limitText(value === null || value === undefined ? '' : String(value));
    case 11:
      return toBool(value);
    case 20:
      return toInt64(value);
    case ARRAY:
      return Array.isArray(value) ? value : [];
    default:
      return null;
  }
}

module.exports = {
  ARRAY,
  MAX_TEXT,
  NAMES,
  typeCode,
  carriesValue,
  isNumeric,
  encode,
  encodeBare,
  decode,
  coerce,
  daysOfText,
  daysOfDate,
};
