'use strict';
// How long tests wait for what should come: on a machine that is slow by a known factor (an emulated one, say), which
// the environment variable VQDB_TEST_SLOWNESS names, so many times longer.

const slowness = Number(process.env.VQDB_TEST_SLOWNESS ?? 1);

const patience = (milliseconds) => milliseconds * slowness;

module.exports = { patience };
