'use strict';
// Every example of the documents runs, ends by itself with 0, and prints what stands there.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawn } = require('node:child_process');
const { describe, test } = require('node:test');
const { startSimulator } = require('../../simulator');
const { examplesOf, fits, printsOf } = require('./support/documents.js');
const { patience } = require('./support/patience.js');

const ROOT = path.join(__dirname, '../..');
const PRELOAD = path.join(__dirname, 'support/document-program.js');
const DOCUMENTS = ['README.md', 'docs/api.md'];
const WRITTEN_ADDRESS = '127.0.0.1:8080'; // the server's address in the documents
const BOUND = patience(60000); // ms

const read = (file) => fs.readFileSync(path.join(ROOT, file), 'utf8');
const mirrorOf = (address) => `/tmp/vqbrowser/${address.replaceAll(':', '_')}`;

/** Runs node with these arguments in the package's folder; resolves to what came of it. */
function runNode(args, env) {
  const child = spawn(process.execPath, ['--require', PRELOAD, ...args], {
    cwd: ROOT,
    env: { ...process.env, ...env },
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  const result = { stdout: '', stderr: '' };
  for (const stream of ['stdout', 'stderr']) {
    child[stream].setEncoding('utf8').on('data', (text) => {
      result[stream] += text;
    });
  }
  const timer = setTimeout(() => child.kill('SIGKILL'), BOUND);
  return new Promise((resolve) => {
    child.on('close', (code, signal) => {
      clearTimeout(timer);
      resolve({ ...result, code, signal });
    });
  });
}

/** Runs a program of the documents and compares; removes the mirrors that it has made. */
async function check(t, args, expected) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'docs-test-'));
  const addresses = path.join(folder, 'addresses');
  fs.writeFileSync(addresses, '');
  t.after(() => {
    const used = fs.readFileSync(addresses, 'utf8').split('\n').slice(0, -1);
    for (const address of used) fs.rmSync(mirrorOf(address), { recursive: true, force: true });
    fs.rmSync(folder, { recursive: true });
  });
  const { stdout, stderr, code, signal } = await runNode(args, { VQDB_TEST_ADDRESSES: addresses });
  assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' });
  assert.ok(fits(stdout, expected), `printed:\n${stdout}\nbut is to print:\n${expected}`);
}

for (const file of DOCUMENTS) {
  describe(`the examples of ${file}`, { concurrency: 2 }, () => {
    for (const { line, code, module, expected } of examplesOf(read(file))) {
      test(`the one at line ${line} prints what stands there`, async (t) => {
        const sim = await startSimulator();
        t.after(async () => {
          await sim.close();
          fs.rmSync(mirrorOf(sim.address), { recursive: true, force: true });
        });
        const program = code.replaceAll(WRITTEN_ADDRESS, sim.address);
        await check(t, [...(module ? ['--input-type=module'] : []), '-e', program], expected);
      });
    }
  });
}

describe('the programs of examples/', { concurrency: 2 }, () => {
  const names = fs
    .readdirSync(path.join(ROOT, 'examples'))
    .filter((name) => name.endsWith('.js') && name !== 'support.js');
  for (const name of names) {
    test(`${name} prints what it says`, async (t) => {
      const expected = printsOf(read(`examples/${name}`));
      assert.ok(expected, 'it says what it prints');
      await check(t, [path.join('examples', name)], expected);
    });

    test(`${name} stands in the table of examples/README.md`, () => {
      assert.ok(read('examples/README.md').includes(`[${name}](${name})`));
    });
  }

  test('there are some', () => {
    assert.ok(names.length >= 6);
  });
});

test('an address on the command line takes the place of the simulated plant, and a failure ends with 1', async () => {
  const { stdout, stderr, code } = await runNode(['examples/connect-and-read.js', '127.0.0.1:1']);
  assert.deepEqual({ stdout, code }, { stdout: '', code: 1 });
  assert.match(stderr, /^No session with 127\.0\.0\.1:1: /);
});

describe('links between the documents', () => {
  const files = [...DOCUMENTS, 'CONTRIBUTING.md', 'PROTOCOL.md', 'simulator/README.md', 'examples/README.md'];
  files.push(
    ...fs
      .readdirSync(path.join(ROOT, 'docs'))
      .filter((name) => /\.md$/.test(name) && name !== 'api.md')
      .map((name) => `docs/${name}`),
  );
  const headingsOf = (file) =>
    [...read(file).matchAll(/^#+ (.*)$/gm)].map(([, heading]) =>
      heading
        .toLowerCase()
        .replace(/[^\p{L}\p{N} _-]/gu, '')
        .replaceAll(' ', '-'),
    );

  for (const file of files) {
    test(`${file} leads to files and headings that are there`, () => {
      const prose = read(file)
        .replace(/^```[^]*?^```$/gm, '')
        .replace(/`[^`\n]*`/g, '');
      for (const [, target] of prose.matchAll(/\]\(\s*([^)\s]+)\)/g)) {
        if (/^https?:/.test(target)) continue;
        const [to, heading] = target.split('#');
        const there = to === '' ? file : path.join(path.dirname(file), to);
        assert.ok(fs.existsSync(path.join(ROOT, there)), `${target} is there`);
        if (heading) assert.ok(headingsOf(there).includes(heading), `${target}: the heading is there`);
      }
    });
  }
});

test('the commands that the documents name are scripts of the package', () => {
  const { scripts } = require('../../package.json');
  for (const file of [...DOCUMENTS, 'CONTRIBUTING.md', 'examples/README.md']) {
    for (const [, name] of read(file).matchAll(/npm run ([\w:-]+)/g)) assert.ok(name in scripts, `${file}: ${name}`);
  }
});

describe('the comparison', () => {
  const example = (text) => examplesOf(`text\n\n${text}`)[0];

  test('takes the output from the block behind a program', () => {
    const text = '```js\nconsole.log(1); // one\n```\n\nprints\n\n```text\n1\n```\n';
    assert.equal(example(text).expected, '1\n');
  });

  test('takes it from the comments behind console.log when no such block follows', () => {
    const text =
      '```js\nconsole.log(1); // 1\nf(2); // not this\n  console.log(3); // 3\n```\n\nA text.\n\nMore.\n\n```text\n1\n```\n';
    assert.equal(example(text).expected, '1\n3\n');
  });

  test('puts the setup block before the blocks that do not load the package', () => {
    const [setup, short, whole] = examplesOf(
      "```js setup\nconst a = 1;\n```\n```js\nf(a);\n```\n```js\nrequire('VqDBAccess');\n```\n```sh\nls\n```\n",
    );
    assert.deepEqual(
      [setup.code, short.code, whole.code],
      ['const a = 1;\n', 'const a = 1;\nf(a);\n', "require('VqDBAccess');\n"],
    );
  });

  for (const [expected, output] of [
    ['1\n', '1\n'],
    ['a...c\n', 'abc\n'],
    ['a\n...\nb\n', 'a\nx\ny\nb\n'],
    ['a\n...\nb\n', 'a\nb\n'],
    ['', ''],
  ]) {
    test(`takes ${JSON.stringify(output)} for ${JSON.stringify(expected)}`, () => assert.ok(fits(output, expected)));
  }

  for (const [expected, output] of [
    ['1\n', '2\n'],
    ['1\n', '1\n1\n'],
    ['1\n', ''],
    ['', '1\n'],
    ['a...c\n', 'a\nc\n'],
    ['a.c\n', 'abc\n'],
  ]) {
    test(`refuses ${JSON.stringify(output)} for ${JSON.stringify(expected)}`, () => assert.ok(!fits(output, expected)));
  }
});

test('the table of faults names tests that there are', () => {
  const suites = fs
    .readdirSync(path.join(ROOT, 'tests'), { recursive: true })
    .filter((name) => /_test\.cpp$/.test(name))
    .map((name) => read(`tests/${name}`));
  const [, table] = read('docs/reliability.md').match(/## Faults([^]*?)\n## /);
  const shown = table.match(/^\| .* \|$/gm).slice(1);
  assert.ok(shown.length >= 20);
  for (const row of shown) {
    const name = row.split('|').at(-2).trim();
    const [file, ...rest] = name.split(': ');
    if (rest.length > 0) {
      const folder = ['tests/js', 'tests/js/lifetime'].find((at) => fs.existsSync(path.join(ROOT, at, file)));
      assert.ok(folder && read(`${folder}/${file}`).includes(rest.join(': ')), name);
    } else {
      const title = name.replace('.', ', ');
      assert.ok(
        suites.some((text) => text.includes(`TEST_F(${title})`)),
        name,
      );
    }
  }
});
