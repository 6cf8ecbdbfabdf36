'use strict';
// The scrambling of the handshake bodies: 3 plain bytes become 4 wire bytes, the first of which is a random mask.
//
//   plain   p0 p1 p2      wire   r  p0+r  p1-r  p2^r      (all modulo 256)
//
// A tail of 1 or 2 plain bytes becomes 2 or 3 wire bytes. A prefix of the wire bytes decodes to a prefix of the plain
// ones, so a receiver may decode what has arrived and look whether the body is whole.

const crypto = require('node:crypto');

const mask = [(byte, r) => (byte + r) & 0xff, (byte, r) => (byte - r) & 0xff, (byte, r) => byte ^ r];
const unmask = [mask[1], mask[0], mask[2]];

/** Wire length of `length` plain bytes. */
function scrambledLength(length) {
  const tail = length % 3;
  return Math.floor(length / 3) * 4 + (tail === 0 ? 0 : tail + 1);
}

function scramble(plain) {
  const wire = Buffer.alloc(scrambledLength(plain.length));
  const masks = crypto.randomBytes(Math.ceil(plain.length / 3));
  let at = 0;
  for (let i = 0; i < plain.length; i++) {
    const r = masks[Math.floor(i / 3)];
    if (i % 3 === 0) wire[at++] = r;
    wire[at++] = mask[i % 3](plain[i], r);
  }
  return wire;
}

/** Plain bytes of `wire`; a lone mask byte at the end decodes to nothing. */
function unscramble(wire) {
  const plain = [];
  for (let i = 0; i < wire.length; i++) {
    const place = i % 4;
    if (place !== 0) plain.push(unmask[place - 1](wire[i], wire[i - place]));
  }
  return Buffer.from(plain);
}

module.exports = { scramble, unscramble, scrambledLength };
