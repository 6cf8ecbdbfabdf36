'use strict';
// The replies of the two registrations.
//
//   first    '7', or '7' "lan" IPv4 address (4 bytes), u16 port, both in network order; plain
//   second   '8', 59-byte acknowledgement, of which the project name's first byte is the last one, the rest of the
//            project name NUL, second text NUL; scrambled with its letter
//   acknowledgement: offset 50 u32 time and 54 u32 size of RecData/drvinfo.dat, both big-endian

const { u32be, ipv4, zeroTerminated } = require('./wire');
const { toGb2312 } = require('./text');

const ACK_OWN_BYTES = 58; // of the acknowledgement, before the byte that it shares with the project name
const ACK_TIME = 50;

function lanReply(address) {
  const [host, port] = address.split(':');
  const bytes = Buffer.concat([Buffer.from('7lan'), ipv4(host), Buffer.alloc(2)]);
  bytes.writeUInt16BE(Number(port), 8);
  return bytes;
}

/** First reply; `lan` is "IPV4:PORT" or falsy. */
const firstReply = (lan) => (lan ? lanReply(lan) : Buffer.from('7'));

/** Second reply before scrambling. `ack`: bytes by offset that stand over the usual ones. */
function secondReply(project, driverFile, ack) {
  const own = Buffer.alloc(ACK_OWN_BYTES);
  u32be(driverFile.time).copy(own, ACK_TIME);
  u32be(driverFile.body.length).copy(own, ACK_TIME + 4);
  for (const [offset, byte] of Object.entries(ack)) own[Number(offset)] = byte;
  const texts = [project.name, project.second].map((text) => zeroTerminated(toGb2312(text)));
  return Buffer.concat([Buffer.from('8'), own, ...texts]);
}

module.exports = { firstReply, secondReply, ACK_OWN_BYTES };
