'use strict';
// The demo: a simulated plant in a process of its own, and this program as its operator display. It connects, reads
// every tag once, follows the changes for some seconds, writes a set-point, sees it come back, shows the alarms, and
// ends by itself. On a terminal it draws a live table; else it prints one plain line per change.
const { DBCore } = require('..');
const { startSimulator } = require('../simulator');
const plant = require('../simulator/demo-plant.json');
const { LiveTable, formatValue } = require('./live-table');

const followMs = 7000;
const writeAfterMs = 2500;
const shownTags = 8; // a driver; the rest is counted
const user = 'operator';
const password = 'secret';
const setPoint = { driver: '锅炉', tag: '温度设定', value: 120 };

function fail(sentence) {
  console.error(sentence);
  process.exit(1);
}

// The tags of the plant by driver. A client knows its tags' names from its display's design; the demo from the plant.
function tagNames(driver) {
  return driver.tags.filter((tag) => tag.count === undefined).map((tag) => tag.name);
}

// Names that were never asked for come back behind those that were: read once to make all known, then in list order.
function readAll(driver, names) {
  driver.GetTagValue(names.join(','));
  return [].concat(driver.GetTagValue(names.join(',')));
}

function connect(address) {
  const db = new DBCore();
  console.log(`Connecting to the simulated plant at ${address} as ${user} ...`);
  const started = process.hrtime.bigint();
  const result = db.Connect(address, user, password);
  if (result !== 0) fail(`Connect gave ${result}; see the table of results in the README.`);
  console.log(`Connected in ${Number((process.hrtime.bigint() - started) / 1000000n)} ms: Connect gave 0.\n`);
  return db;
}

function printTags(db, table) {
  console.log('Reading every tag (GetTagValue):');
  for (const { name, tags } of plant.drivers) {
    const names = tagNames({ tags });
    if (names.length === 0) continue;
    const values = readAll(db.GetDriver(name), names);
    names.forEach((tag, i) => table.add(name, tag, values[i]));
    const shown = names.slice(0, shownTags).map((tag, i) => `${tag} = ${formatValue(values[i])}`);
    const rest = names.length > shownTags ? ` ... and ${names.length - shownTags} more` : '';
    console.log(`  ${name}: ${shown.join(', ')}${rest}`);
  }
  console.log();
}

function follow(db, table) {
  for (const { name, tags } of plant.drivers) {
    const names = tagNames({ tags });
    if (names.length === 0) continue;
    const driver = db.GetDriver(name);
    driver.SetTagNotify((driverName, tag, value) => table.change(driverName, tag, value));
    driver.ConnectTag(names.join(','));
  }
  const result = db.SetRtAlarmNotify((begin, end, tag, ended, text, text2) => {
    const time = (ended ? end : begin).toLocaleTimeString('en-GB');
    table.alarm(`${time} ${ended ? 'ended ' : 'raised'} ${tag}: ${text} (${text2})`);
  }, true);
  if (result !== 0) fail(`SetRtAlarmNotify gave ${result}.`);
}

// Writes the set-point; resolves to the milliseconds until the change came back.
function writeAndAwait(db, table) {
  const { driver, tag, value } = setPoint;
  return new Promise((resolve) => {
    const started = process.hrtime.bigint();
    table.onChange(driver, tag, value, () => resolve(Number(process.hrtime.bigint() - started) / 1e6));
    const result = db.GetDriver(driver).SetTagValue(tag, value);
    table.note(`SetTagValue('${tag}', ${value}) gave ${result}; waiting for the change to come back ...`);
    if (result !== 0) fail(`SetTagValue gave ${result}.`);
  });
}

const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function main() {
  console.log('VqDBAccess demo. The plant is simulated (simulator/demo-plant.json): nothing real is touched.');
  const simulator = await startSimulator({});
  const db = connect(simulator.address);
  const table = new LiveTable(process.stdout);
  printTags(db, table);
  console.log(
    `Following changes and alarms for ${followMs / 1000} seconds (SetTagNotify, ConnectTag, SetRtAlarmNotify):`,
  );
  table.start();
  follow(db, table);
  await pause(writeAfterMs);
  const back = await Promise.race([writeAndAwait(db, table), pause(5000)]);
  if (back === undefined) fail('The written value did not come back.');
  table.note(
    `${setPoint.driver} ${setPoint.tag} = ${setPoint.value} came back as a change after ${back.toFixed(1)} ms.`,
  );
  await pause(followMs - writeAfterMs);
  table.stop();
  db.KeepALive(); // a session lasts as long as its instance, and an instance as long as something uses it
  await simulator.close();
  console.log(
    `\n${table.changes} changes and ${table.alarms} alarm messages received, the written set-point seen. ` +
      'Next: the dozen lines in README.md.',
  );
  process.exit(0);
}

main().catch((error) => fail(`The demo failed: ${error.message}`));
