'use strict';
// Byte helpers: little-endian integers, zero-terminated texts and a cursor over received bytes. A cursor that runs out
// throws Incomplete, which means "wait for more bytes", never "look past the end".

class Incomplete extends Error {}

const u8 = (value) => Buffer.from([value & 0xff]);

function u16(value) {
  const bytes = Buffer.alloc(2);
  bytes.writeUInt16LE(value & 0xffff);
  return bytes;
}

function u32(value) {
  const bytes = Buffer.alloc(4);
  bytes.writeUInt32LE(value >>> 0);
  return bytes;
}

function u32be(value) {
  const bytes = Buffer.alloc(4);
  bytes.writeUInt32BE(value >>> 0);
  return bytes;
}

/** The bytes followed by a zero byte. */
const zeroTerminated = (bytes) => Buffer.concat([bytes, Buffer.alloc(1)]);

/** Four bytes of a dotted IPv4 address in network order, or null when the text is not one. */
function ipv4(text) {
  const match = /^(\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3})$/.exec(text);
  if (!match) return null;
  const parts = match.slice(1).map(Number);
  return parts.every((part) => part <= 255) ? Buffer.from(parts) : null;
}

/** Bytes from a Buffer, a Uint8Array or hexadecimal text (blanks allowed); null when it is none of these. */
function toBytes(value) {
  if (value instanceof Uint8Array) return Buffer.from(value);
  if (typeof value !== 'string') return null;
  const digits = value.replace(/\s+/g, '');
  return /^([0-9a-fA-F]{2})*$/.test(digits) ? Buffer.from(digits, 'hex') : null;
}

class Cursor {
  constructor(bytes, position = 0) {
    this.bytes = bytes;
    this.position = position;
  }

  get left() {
    return this.bytes.length - this.position;
  }

  take(count) {
    if (this.left < count) throw new Incomplete();
    const part = this.bytes.subarray(this.position, this.position + count);
    this.position += count;
    return part;
  }

  u8() {
    return this.take(1)[0];
  }

  u16() {
    return this.take(2).readUInt16LE(0);
  }

  i32() {
    return this.take(4).readInt32LE(0);
  }

  /** The bytes up to the next zero byte, which is taken too. */
  text() {
    const end = this.bytes.indexOf(0, this.position);
    if (end < 0) throw new Incomplete();
    const part = this.bytes.subarray(this.position, end);
    this.position = end + 1;
    return part;
  }
}

module.exports = { Incomplete, Cursor, u8, u16, u32, u32be, zeroTerminated, ipv4, toBytes };
