'use strict';
// Mirrors that cannot be written: the session stands, what cannot be kept is missing from it, and the next Connect works
// once the mirror can be written again.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');
const { runProgram } = require('./support/child.js');
const { MIRRORS, serverDir, removeMirror, sharedServer, newCore } = require('./support/server.js');

const sim = sharedServer();
const isRoot = process.getuid() === 0;
const NOBODY = 65534;

const driverFile = (address) => path.join(serverDir(address), 'Small', 'RecData', 'drvinfo.dat');

// Begins a program of an ordinary user, for whom rights count. `state` is the result of Connect and a value.
const ORDINARY = `
  const fs = require('node:fs');
  if (process.getuid() === 0) { process.setgid(${NOBODY}); process.setuid(${NOBODY}); }
  const core = new DBCore();
  const state = () => [core.Connect(args[0], 'operator', 'secret'), core.GetDriver('D0')?.GetTagValue('A') ?? null];
`;

/** Lets other users into the mirrors' folder for the length of a test; only root's tests need that. */
function openMirrors(t) {
  fs.mkdirSync(MIRRORS, { recursive: true, mode: 0o700 });
  if (!isRoot) return;
  const { mode } = fs.statSync(MIRRORS);
  fs.chmodSync(MIRRORS, 0o711);
  t.after(() => fs.chmodSync(MIRRORS, mode));
}

function giveToNobody(folder) {
  fs.chownSync(folder, NOBODY, NOBODY);
  for (const name of fs.readdirSync(folder, { recursive: true })) fs.chownSync(path.join(folder, name), NOBODY, NOBODY);
}

test('a full disk: a session without what does not fit, and a whole one once there is room', () => {
  const core = newCore();
  const open = () => core.Connect(sim.address, 'operator', 'secret');
  assert.equal(open(), 0);
  const file = driverFile(sim.address);
  fs.rmSync(file);
  fs.symlinkSync('/dev/full', file); // takes no byte
  assert.equal(open(), 0);
  assert.equal(core.GetDriver('D0'), undefined);
  fs.rmSync(file);
  assert.equal(open(), 0);
  assert.equal(core.GetDriver('D0').GetTagValue('A'), 1.5);
});

test('a mirror that cannot be written: a session with what was there, and a whole one once it can', async (t) => {
  openMirrors(t);
  const folder = serverDir(sim.address);
  fs.mkdirSync(folder, { recursive: true, mode: 0o700 });
  if (isRoot) giveToNobody(folder);
  const file = driverFile(sim.address);
  const { stdout, stderr } = await runProgram(
    `${ORDINARY}
    const [, file, folder] = args;
    const states = [state()];
    fs.chmodSync(folder, 0o500);
    states.push(state());
    fs.chmodSync(folder, 0o700);
    fs.rmSync(file);
    fs.chmodSync(folder, 0o500);
    states.push(state());
    fs.chmodSync(folder, 0o700);
    states.push(state());
    console.log(JSON.stringify(states));
    process.exit();
  `,
    [sim.address, file, path.dirname(file)],
  );
  assert.equal(stdout, '[[0,1.5],[0,1.5],[0,null],[0,1.5]]\n', stderr);
});

const skip = isRoot ? false : 'only root can give a directory away';
test(
  'a mirror of another user: a session without drivers, and a whole one once it is given over',
  { skip },
  async (t) => {
    openMirrors(t);
    removeMirror(sim.address);
    assert.equal(newCore().Connect(sim.address, 'operator', 'secret'), 0);
    const { stdout, stderr } = await runProgram(
      `${ORDINARY}
    console.log(JSON.stringify(state()));
    while (true) {
      const now = state();
      if (now[1] !== null) { console.log(JSON.stringify(now)); process.exit(); }
    }
  `,
      [sim.address],
      { onOutput: () => giveToNobody(serverDir(sim.address)) },
    );
    assert.equal(stdout, '[0,null]\n[0,1.5]\n', stderr);
  },
);
