'use strict';
// Replies that a server gives while a session is opened, for tests that put others in their place.

const SHARED = 58; // bytes of the acknowledgement before the one that it shares with the project name

/** The second reply of the registration, before it is scrambled. `acknowledgement`: its bytes by offset. */
function secondReply(projectName, acknowledgement = {}) {
  const own = Buffer.alloc(SHARED);
  for (const [offset, byte] of Object.entries(acknowledgement)) own[offset] = byte;
  const reply = Buffer.concat([Buffer.from('8'), own, Buffer.from(projectName), Buffer.from('\0second\0')]);
  return reply.toString('hex');
}

/** An accepted login with these rights. */
function loginReply(rights) {
  const reply = Buffer.alloc(9);
  reply[0] = 0x39;
  reply.writeUInt32LE(rights, 5);
  return reply.toString('hex');
}

/** The contents of RecData/drvinfo.dat for drivers given as [name, id, tag count]. */
function driverFile(...drivers) {
  return Buffer.concat(
    drivers.map(([name, id, tagCount]) => {
      const numbers = Buffer.alloc(4);
      numbers.writeUInt16LE(id, 0);
      numbers.writeUInt16LE(tagCount, 2);
      return Buffer.concat([Buffer.from(`${name}\0`), numbers]);
    }),
  );
}

/** A file reply: header lines, empty line, body. */
function fileReply(lines, body = '') {
  const header = [...lines, '', ''].join('\r\n');
  return Buffer.concat([Buffer.from(header), Buffer.from(body)]).toString('hex');
}

module.exports = { secondReply, loginReply, driverFile, fileReply };
