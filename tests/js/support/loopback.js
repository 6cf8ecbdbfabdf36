'use strict';
// Loopback addresses. Port 3968 has a meaning of its own, so each test of it has an address to itself. The addresses of
// a process are its own, too: test files, and whole runs of the tests, do not meet.

const { pid } = process;

/** The address of a place in this process, 1 to 254. */
const loopback = (place) => `127.${128 + (pid & 0x7f)}.${(pid >> 7) & 0xff}.${place}`;

module.exports = { loopback };
