'use strict';
// How fast the library is, as a ratio to what the same bytes take on the same machine when nothing is done with them.
//   npm run bench [-- --seconds N] [--only TEXT]     N: for each figure (3)
// For each operation a session with the simulator is recorded. A server then plays it back, so that it costs next to
// nothing; against that server the library makes the operation again and again, and in turns with it a client that only
// sends the request's bytes and receives the answer's: the floor. The table gives the medians of both and of their
// ratio. On a busy machine both grow; the ratio is what can be compared.
const assert = require('node:assert/strict');
const { execFileSync, spawn } = require('node:child_process');
const { once } = require('node:events');
const { mkdtempSync, rmSync, writeFileSync } = require('node:fs');
const { tmpdir } = require('node:os');
const path = require('node:path');
const { parseArgs } = require('node:util');
const { DBCore } = require('..');
const { fail, run } = require('../scripts/run');
const { startSimulator } = require('../simulator');
const { startRecorder } = require('./record.js');

const buildDir = path.join(__dirname, '..', 'build', 'cmake', 'release');
const peer = path.join(buildDir, 'bench', 'vqdb_bench_peer');
const rounds = 9;
const warmUp = 50; // turns
const tagCount = 100;
const changesABlock = 170;
const blocksATurn = 8; // fit any receive buffer
const changesATurn = changesABlock * blocksATurn;
const bound = 10000; // ms for a turn
const text = '一号水泵出口压力过高请检查管道阀门状态'; // 19 characters

const project = {
  name: 'Bench',
  drivers: [
    { name: 'Plant', tags: [{ name: 'T{000}', type: 'double', count: tagCount + 1, value: 1.5 }] },
    { name: 'Texts', tags: [{ name: 'T{000}', type: 'string', count: tagCount, value: text }] },
  ],
};

const names = Array.from({ length: tagCount }, (_, i) => `T${String(i).padStart(3, '0')}`);
const allNames = names.join();
const otherName = `T${tagCount}`; // of Plant, never followed
const numbers = names.map((_, i) => i + 0.5);

// A block of changes as servers send it: driver and tag as words, the value as double; two records that tell nothing fill
// the block, so that none is cut in two.
function blockHex() {
  const records = Array.from({ length: changesABlock }, (_, i) => {
    const bytes = Buffer.alloc(12);
    bytes.writeUInt16LE(i % tagCount, 2);
    bytes.writeDoubleLE(i, 4);
    return bytes;
  });
  const block = Buffer.concat([...records, Buffer.from('ffff080000ffffff', 'hex')]);
  assert.equal(block.length, 2048);
  return block.toString('hex');
}

// An operation: `prepare` makes a session ready; `turn` is what is measured, until the promise of `end` is resolved. A
// turn holds `parts` (1) of what the table counts. In each turn the server sends `stream` on the notification connection.
const operations = [
  { name: 'read of 1 tag', turn: ({ plant }) => plant.GetTagValue('T000') },
  { name: `read of ${tagCount} numbers`, turn: ({ plant }) => plant.GetTagValue(allNames) },
  { name: `read of ${tagCount} Chinese texts`, turn: ({ texts }) => texts.GetTagValue(allNames) },
  { name: 'write of 1 tag', turn: ({ plant }) => plant.SetTagValue('T000', 2.5) },
  { name: `write of ${tagCount} numbers`, turn: ({ plant }) => plant.SetTagValue(allNames, numbers) },
  {
    name: 'change that reaches its callback',
    prepare({ plant, session }) {
      plant.SetTagNotify(() => {
        session.changes += 1;
        if (session.changes === changesATurn) session.done();
      });
      plant.ConnectTag(allNames);
    },
    turn({ plant, session }) {
      session.changes = 0;
      plant.GetTagValue(otherName); // is followed by the changes
    },
    end: ({ session }) =>
      new Promise((resolve, reject) => {
        const late = setTimeout(() => reject(new Error(`${session.changes} of ${changesATurn} changes came`)), bound);
        session.done = () => {
          clearTimeout(late);
          resolve();
        };
      }),
    parts: changesATurn,
    stream: { count: blocksATurn, hex: blockHex() },
  },
];

// --- the server that plays a session back ---

// A session as the server and the floor are to play it. What the last two requests were is known: `turn`, and one whose
// answer tells that the server has taken all before it.
async function recordSession(sim, operation) {
  const recorder = await startRecorder(sim.port);
  try {
    const opened = open(recorder.address, operation);
    const [requests, notifications] = await recorder.take();
    opened.settle();
    const settle = (await recorder.take())[0][0];
    operation.turn(opened);
    opened.settle();
    const steps = (await recorder.take())[0];
    const all = (side) => steps.map((step) => step[side]).join('');
    const before = (hex, end) => {
      assert(hex.endsWith(end), 'a request changes from one turn to the next');
      return hex.slice(0, hex.length - end.length);
    };
    const turn = {
      request: before(all('request'), settle.request),
      answer: before(all('answer'), settle.answer),
    };
    return { requests, notifications, turn };
  } finally {
    recorder.close();
  }
}

// The scripts for the server with a whole session, and with nothing but the turns.
function scriptsOf({ requests, notifications, turn }, { stream }) {
  const step = (connection) => (one) => `step ${connection} ${one.request.length / 2} ${one.answer || '-'}`;
  const loop = [`loop ${turn.request} ${turn.answer || '-'}`];
  if (stream) loop.push(`stream ${stream.count} ${stream.hex}`);
  const steps = [...requests.map(step(0)), step(1)(notifications[0])];
  return { session: [...steps, ...loop].join('\n'), floor: loop.join('\n') };
}

// For as long as `use` takes.
async function withPeer(script, use) {
  const child = spawn(peer, ['serve', script], { stdio: ['pipe', 'pipe', 'inherit'] });
  try {
    const [port] = await once(child.stdout, 'data');
    return await use(Number(port));
  } finally {
    child.stdin.end();
  }
}

// --- measuring ---

const removeMirror = (address) =>
  rmSync(`/tmp/vqbrowser/${address.replace(':', '_')}`, { recursive: true, force: true });

// A session as far as the server's script has steps.
function open(address, operation) {
  removeMirror(address); // of an earlier server with this port: its files would not be asked for
  const core = new DBCore();
  assert.equal(core.Connect(address, 'user', 'word'), 0, `no session with ${address}`);
  const [plant, texts] = ['Plant', 'Texts'].map((name) => core.GetDriver(name));
  const opened = { core, plant, texts, session: {}, settle: () => plant.GetTagValue(otherName) };
  operation.prepare?.(opened);
  operation.turn(opened); // asks for the names' ids
  opened.settle();
  removeMirror(address);
  return opened;
}

const seconds = (nanoseconds) => Number(nanoseconds) / 1e9;

async function timeLibrary(opened, operation, turns) {
  const begin = process.hrtime.bigint();
  for (let i = 0; i < turns; i++) {
    operation.turn(opened);
    if (operation.end) await operation.end(opened);
  }
  return seconds(process.hrtime.bigint() - begin) / turns;
}

const timeFloor = (script, turns) =>
  withPeer(script, (port) => seconds(execFileSync(peer, ['ask', String(port), script, String(turns)])) / turns);

const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

async function measure(sim, operation, folder, limit) {
  const scripts = scriptsOf(await recordSession(sim, operation), operation);
  const [session, floor] = Object.entries(scripts).map(([name, script]) => {
    const file = path.join(folder, name);
    writeFileSync(file, script);
    return file;
  });
  return withPeer(session, async (port) => {
    const opened = open(`127.0.0.1:${port}`, operation);
    await timeLibrary(opened, operation, warmUp);
    const turns = Math.ceil(limit / 2 / rounds / (await timeLibrary(opened, operation, warmUp)));
    const times = [];
    for (let round = 0; round < rounds; round++) {
      times.push({ library: await timeLibrary(opened, operation, turns), floor: await timeFloor(floor, turns) });
    }
    const parts = operation.parts ?? 1;
    return {
      operation: operation.name,
      'library, µs': Number(((1e6 * median(times.map((time) => time.library))) / parts).toFixed(3)),
      'floor, µs': Number(((1e6 * median(times.map((time) => time.floor))) / parts).toFixed(3)),
      ratio: Number(median(times.map((time) => time.library / time.floor)).toFixed(2)),
      turns: turns * rounds,
    };
  });
}

async function main() {
  const options = { seconds: { type: 'string', default: '3' }, only: { type: 'string', default: '' } };
  const { values } = parseArgs({ options });
  if (!(Number(values.seconds) > 0)) fail('--seconds takes a number above 0.');
  run('cmake', ['--build', buildDir, '--target', 'vqdb_bench_peer'], { stdio: ['ignore', 'ignore', 'inherit'] });
  const folder = mkdtempSync(path.join(tmpdir(), 'vqdb-bench-'));
  const sim = await startSimulator({ project, rate: 0 });
  try {
    const rows = [];
    for (const operation of operations.filter(({ name }) => name.includes(values.only))) {
      rows.push(await measure(sim, operation, folder, Number(values.seconds)));
    }
    console.table(rows);
  } finally {
    await sim.close();
    rmSync(folder, { recursive: true });
  }
}

main().then(
  () => process.exit(0),
  (error) => {
    console.error(error);
    process.exit(1);
  },
);
