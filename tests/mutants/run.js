'use strict';
// Shows that the tests notice what breaks: applies the changes of tests/mutants/changes, each alone, to a copy of the
// checkout, and runs the tests until one fails.
//   npm run mutants -- [--only FOLDER|ID[,...]] [--jobs N] [--work DIR] [--list]
// --only: the changes of a folder of src, or single ones ("base", "net.7"). --jobs: for compiling and testing (2).
// --work: where the copy and its build lie; kept, so that a second run builds only what has changed. Without it they lie
// in a temporary folder that goes away. --list: prints the changes and ends.
// A survivor that cannot be noticed carries its reason in the list. Ends with 0 when every other change was noticed, 1
// when one survived, 2 when the list does not fit the sources, does not compile, or the unchanged tests fail.
const { existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } = require('node:fs');
const { tmpdir } = require('node:os');
const path = require('node:path');
const { parseArgs } = require('node:util');
const { changed, folders, loadChanges, problems } = require('./changes');
const { copyCheckout } = require('./checkout');
const { Suite, stages } = require('./suite');

const root = path.join(__dirname, '..', '..');

class BadList extends Error {}

function options() {
  const { values } = parseArgs({
    options: {
      only: { type: 'string', default: '' },
      jobs: { type: 'string', default: '2' },
      work: { type: 'string' },
      list: { type: 'boolean', default: false },
    },
  });
  const jobs = Number(values.jobs);
  if (!Number.isInteger(jobs) || jobs < 1) throw new BadList(`--jobs ${values.jobs}: not a count`);
  return { ...values, jobs, only: values.only.split(',').filter((name) => name !== '') };
}

function select(changes, only) {
  for (const name of only) {
    if (!changes.some(({ folder, id }) => folder === name || id === name)) {
      throw new BadList(`--only ${name}: no such change`);
    }
  }
  return only.length === 0 ? changes : changes.filter(({ folder, id }) => only.includes(folder) || only.includes(id));
}

// Applies one change, runs the tests of a stage, restores. Gives the name of the test that failed, or undefined.
async function tryChange(change, stage, work, suite) {
  const file = path.join(work, change.file);
  const before = readFileSync(file, 'utf8');
  writeFileSync(file, changed(before, change));
  try {
    return await suite.firstFailure(stage, change.folder);
  } finally {
    writeFileSync(file, before);
  }
}

function report(change, outcome) {
  console.log(`${change.id.padEnd(11)} ${outcome}, ${change.seconds.toFixed(1)} s`);
  if (outcome === 'survived') console.log(`            ${change.file}: ${change.breaks}`);
}

// Stage by stage, so that each change meets the nearest tests first and what is built farther away is built only for
// the changes that those did not notice. Gives the changes that no stage noticed.
async function tryAll(changes, work, jobs) {
  const suite = new Suite(work, jobs);
  await suite.configure();
  let left = changes.map((change) => ({ ...change, seconds: 0 }));
  for (const stage of stages) {
    await suite.expectNoFailure(stage, folders(left));
    const unnoticed = [];
    for (const change of left) {
      const since = Date.now();
      const noticedBy = await tryChange(change, stage, work, suite);
      change.seconds += (Date.now() - since) / 1000;
      if (noticedBy !== undefined) report(change, `noticed by ${noticedBy}`);
      else unnoticed.push(change);
    }
    left = unnoticed;
  }
  for (const change of left) report(change, change.equivalent ? `explained: ${change.equivalent}` : 'survived');
  return left;
}

async function main() {
  const since = Date.now();
  const { only, jobs, list, work: kept } = options();
  const all = loadChanges();
  const wrong = problems(all, root);
  if (wrong.length > 0) throw new BadList(wrong.join('\n'));
  const changes = select(all, only);
  if (list) {
    for (const { id, file, breaks } of changes) console.log(`${id.padEnd(11)} ${file}: ${breaks}`);
    console.log(`${changes.length} changes`);
    return 0;
  }
  const work = kept !== undefined ? path.resolve(kept) : mkdtempSync(path.join(tmpdir(), 'vqdb-mutants-'));
  try {
    copyCheckout(root, path.join(work, 'checkout'));
    const left = await tryAll(changes, path.join(work, 'checkout'), jobs);
    const explained = left.filter(({ equivalent }) => equivalent).length;
    const survived = left.length - explained;
    const noticed = changes.length - left.length;
    const took = ((Date.now() - since) / 1000).toFixed(0);
    console.log(
      `${changes.length} changes: ${noticed} noticed, ${explained} explained, ${survived} survived; ${took} s`,
    );
    return survived === 0 ? 0 : 1;
  } finally {
    if (kept === undefined && existsSync(work)) rmSync(work, { recursive: true });
  }
}

main().then(
  (code) => process.exit(code),
  (error) => {
    console.error(error.message);
    process.exit(2);
  },
);
