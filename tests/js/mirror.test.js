'use strict';
// The local tree that the files of a project are mirrored in.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { test } = require('node:test');
const { MIRRORS, sharedServer, connect, newCore, removeMirror, serverDir } = require('./support/server.js');
const { secondReply } = require('./support/replies.js');

const sim = sharedServer();

const SUBDIRECTORIES = [
  '3DWnd',
  'CtmGph',
  'DBDrv',
  'ExtData',
  'Media',
  'RecData',
  'RecData/Alarm2',
  'RecData/Event',
  'Report',
  'ScnDrv',
  'SysCfg',
  'Window',
];

const project = (name = 'Small') => `${serverDir(sim.address)}/${name}`;
const mode = (path) => fs.statSync(path).mode & 0o7777;

/** All directories below one, as paths from there, in order. */
function directories(top, from = '') {
  const names = fs.readdirSync(`${top}/${from}`, { withFileTypes: true }).filter((entry) => entry.isDirectory());
  return names.flatMap(({ name }) => [`${from}${name}`, ...directories(top, `${from}${name}/`)]).sort();
}

/** Connects to a server that gives its project this name (bytes or ASCII text). */
async function openProject(name) {
  await sim.setFault({ step: 'handshake2', action: 'reply', hex: secondReply(name), count: 1 });
  return newCore().Connect(sim.address, 'operator', 'secret');
}

test('a session makes the directories of its project, and no others', () => {
  removeMirror(sim.address);
  connect(sim);
  assert.deepEqual(fs.readdirSync(serverDir(sim.address)), ['Small']);
  assert.deepEqual(directories(project()), SUBDIRECTORIES);
});

test('a colon of the address is an underline in the directory', () => {
  connect(sim);
  assert.equal(serverDir(sim.address), `${MIRRORS}/127.0.0.1_${sim.port}`);
  assert.ok(fs.statSync(serverDir(sim.address)).isDirectory());
});

test("the directories are the owner's alone", () => {
  removeMirror(sim.address);
  connect(sim);
  for (const path of [serverDir(sim.address), project(), ...SUBDIRECTORIES.map((name) => `${project()}/${name}`)]) {
    assert.equal(mode(path), 0o700, path);
  }
});

test("server, project, events and alarms are made the owner's again, the other directories stay as they are", () => {
  connect(sim);
  const all = [serverDir(sim.address), project(), ...SUBDIRECTORIES.map((name) => `${project()}/${name}`)];
  all.forEach((path) => fs.chmodSync(path, 0o755));
  connect(sim);
  const mended = all.filter((path) => mode(path) === 0o700).map((path) => path.slice(serverDir(sim.address).length));
  assert.deepEqual(mended, ['', '/Small', '/Small/RecData/Alarm2', '/Small/RecData/Event']);
  removeMirror(sim.address);
});

test('a second session leaves the tree and the files in it', () => {
  removeMirror(sim.address);
  connect(sim);
  fs.writeFileSync(`${project()}/Window/main.wnd`, 'kept');
  connect(sim);
  assert.deepEqual(directories(project()), SUBDIRECTORIES);
  assert.equal(fs.readFileSync(`${project()}/Window/main.wnd`, 'utf8'), 'kept');
});

test('an empty project name gives -3 and makes nothing', async () => {
  removeMirror(sim.address);
  assert.equal(await openProject(''), -3);
  assert.ok(!fs.existsSync(serverDir(sim.address)));
});

/** Directories that a project of such a name would make outside of its server's. */
const strays = () => ['x', 'a', 'etc', 'Window', 'RecData'].filter((name) => fs.existsSync(`${MIRRORS}/${name}`));

for (const name of ['/', 'a/b', '/etc', '..', '.', '../x', 'a/..', 'a/']) {
  test(`a project named "${name}" gives -3 and makes nothing`, async () => {
    removeMirror(sim.address);
    const before = strays();
    assert.equal(await openProject(name), -3);
    assert.ok(!fs.existsSync(serverDir(sim.address)));
    assert.deepEqual(strays(), before);
  });
}

test('a refused project name closes both connections before the login', async () => {
  await openProject('..');
  await sim.waitFor('close', { kind: 'request' });
  await sim.waitFor('close', { kind: 'notification' });
  assert.deepEqual(await sim.requests({ command: '9' }), []);
});

for (const name of ['...', '.hidden', '..x', 'a..b', 'a b', 'x'.repeat(200)]) {
  test(`a project named "${name.slice(0, 20)}" is mirrored`, async () => {
    removeMirror(sim.address);
    assert.equal(await openProject(name), 0);
    assert.deepEqual(fs.readdirSync(serverDir(sim.address)), [name]);
    assert.ok(fs.existsSync(`${project(name)}/RecData/drvinfo.dat`));
  });
}

test('two projects of one server have a directory each', async () => {
  removeMirror(sim.address);
  assert.equal(await openProject('One'), 0);
  assert.equal(await openProject('Two'), 0);
  assert.deepEqual(fs.readdirSync(serverDir(sim.address)).sort(), ['One', 'Two']);
});

test('a login that is refused leaves the tree that was made for it', () => {
  removeMirror(sim.address);
  return sim.setFault({ step: 'login', action: 'refuse' }).then(() => {
    assert.equal(newCore().Connect(sim.address, 'operator', 'secret'), -1);
    assert.deepEqual(directories(project()), SUBDIRECTORIES);
    assert.deepEqual(fs.readdirSync(`${project()}/RecData`).sort(), ['Alarm2', 'Event']);
  });
});
