'use strict';
// Loopback addresses. Port 3968 has a meaning of its own, so each test of it has an address to itself; tests that run
// side by side do not meet.

/** The address of a place: file number and test number, 0 to 255. */
const loopback = (file, number) => `127.98.${file}.${number}`;

module.exports = { loopback };
