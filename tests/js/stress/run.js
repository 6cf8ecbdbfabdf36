'use strict';
// Runs stress programs: npm run stress -- [NAME...] [--rounds N] [--seed N]; all of them without a name.
//   cycles    sessions that begin and end, ended by either side at random states            10000 rounds
//   workers   workers with a session that are terminated at random moments                    500
//   exits     processes with sessions that exit at random moments                             200
//   soak      changes, reads, writes and a reconnect every few seconds; rounds are minutes     30
//   latency   how soon the end of a session is through                                         20
// Each ends with its figures; the exit code is 1 when one of them found something.
const { parseArgs } = require('node:util');

const NAMES = ['latency', 'exits', 'workers', 'cycles', 'soak'];
const USAGE = `usage: npm run stress -- [${NAMES.join('|')}...] [--rounds N] [--seed N]`;

function options() {
  try {
    const { values, positionals } = parseArgs({
      allowPositionals: true,
      options: { rounds: { type: 'string' }, seed: { type: 'string' } },
    });
    const number = (text) => (text === undefined ? undefined : Number(text));
    const [rounds, seed] = [number(values.rounds), number(values.seed)];
    const valid = (value) => value === undefined || (Number.isInteger(value) && value > 0);
    if (!valid(rounds) || !valid(seed) || !positionals.every((name) => NAMES.includes(name))) {
      throw new Error('bad value');
    }
    return { names: positionals.length > 0 ? positionals : NAMES, rounds, seed: seed ?? (Date.now() % 1e9) + 1 };
  } catch (error) {
    console.error(`${error.message}\n${USAGE}`);
    return process.exit(2);
  }
}

async function main() {
  const { names, rounds, seed } = options();
  for (const name of names) {
    console.log(`== ${name}, seed ${seed}`);
    const started = Date.now();
    await require(`./${name}.js`)({ rounds, seed });
    console.log(`   ${((Date.now() - started) / 1000).toFixed(0)} s`);
  }
}

main().then(
  () => process.exit(0),
  (error) => {
    console.error(error);
    process.exit(1);
  },
);
