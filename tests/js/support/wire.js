'use strict';
// Bytes of requests and values as tests expect them on the wire, little-endian.

const number = (width, method) => (value) => {
  const bytes = Buffer.alloc(width);
  bytes[method](value);
  return bytes;
};

const u16 = number(2, 'writeUInt16LE');
const u32 = number(4, 'writeUInt32LE');
const f64 = number(8, 'writeDoubleLE');

/** The parts back to back as hexadecimal text; a string part stands for its UTF-8 bytes, an array for its bytes. */
const hex = (...parts) => Buffer.concat(parts.map((part) => Buffer.from(part))).toString('hex');

module.exports = { u16, u32, f64, hex };
