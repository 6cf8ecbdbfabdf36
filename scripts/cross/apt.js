'use strict';
// Debian packages unpacked into a private folder: needs no root, installs nothing, leaves the host's apt alone.
const { spawnSync } = require('node:child_process');
const { existsSync, mkdirSync, readFileSync, readdirSync, rmSync, symlinkSync, writeFileSync } = require('node:fs');
const path = require('node:path');

const kLimitMs = 15 * 60 * 1000; // of one apt-get call
const kEtc = '/etc/apt';

// Only Debian's own archive: other sources may hold another Node.js, or nothing for the foreign architecture.
const kDebianUri = /^(https?|file|mirror\+\w+):\S*\/debian(-security)?\/?$/;

// One-line entries ("deb [options] uri suite component...") of the archive.
function oneLineEntries(text) {
  const entries = text.split('\n').filter((line) => /^\s*deb\s/.test(line));
  return entries.filter((line) => line.split(/\s+/).some((word) => kDebianUri.test(word)));
}

// Stanzas ("URIs: uri...") of the archive.
function stanzas(text) {
  const plain = text
    .split('\n')
    .filter((line) => !line.startsWith('#'))
    .join('\n');
  return plain.split(/\n\s*\n/).filter((stanza) => {
    const uris = /^URIs:\s*(.*)$/im.exec(stanza);
    return (
      uris !== null &&
      uris[1]
        .trim()
        .split(/\s+/)
        .every((uri) => kDebianUri.test(uri))
    );
  });
}

// Copies the host's sources of Debian's archive to a folder.
function copySources(folder) {
  const parts = path.join(kEtc, 'sources.list.d');
  const files = [path.join(kEtc, 'sources.list')];
  if (existsSync(parts)) files.push(...readdirSync(parts).map((name) => path.join(parts, name)));
  const texts = files.filter(existsSync).map((file) => ({ file, text: readFileSync(file, 'utf8') }));
  const lists = texts.filter(({ file }) => file.endsWith('.list')).flatMap(({ text }) => oneLineEntries(text));
  const deb822 = texts.filter(({ file }) => file.endsWith('.sources')).flatMap(({ text }) => stanzas(text));
  if (lists.length + deb822.length === 0) {
    throw new Error(`No source of Debian's archive in ${kEtc}: this needs a Debian 12 machine.`);
  }
  mkdirSync(folder, { recursive: true });
  writeFileSync(path.join(folder, 'debian.list'), `${lists.join('\n')}\n`);
  writeFileSync(path.join(folder, 'debian.sources'), `${deb822.join('\n\n')}\n`);
}

function options(folder, architecture, status) {
  const settings = {
    'APT::Architecture': architecture,
    'APT::Architectures': architecture,
    'APT::Install-Recommends': 'false',
    'APT::Sandbox::User': 'root',
    'APT::Update::Post-Invoke': '',
    'APT::Update::Post-Invoke-Success': '',
    'Acquire::Languages': 'none',
    'Acquire::Retries': '3',
    'Acquire::http::Timeout': '60',
    'Debug::NoLocking': 'true',
    'Dir::Cache': path.join(folder, 'cache'),
    'Dir::Cache::pkgcache': '',
    'Dir::Cache::srcpkgcache': '',
    'Dir::Etc::sourcelist': '/dev/null',
    'Dir::Etc::sourceparts': path.join(folder, 'sources'),
    'Dir::Log': path.join(folder, 'log'),
    'Dir::State': path.join(folder, 'state'),
    'Dir::State::status': status,
  };
  return ['-qq', '-y', ...Object.entries(settings).flatMap(([name, value]) => ['-o', `${name}=${value}`])];
}

// dpkg's own unpacking would replace the link lib -> usr/lib by a folder; tar keeps it.
function unpackInto(folder, archive) {
  const unpack = 'dpkg-deb --fsys-tarfile "$1" | tar -x -C "$2" --keep-directory-symlink --no-same-owner';
  const result = spawnSync('bash', ['-o', 'pipefail', '-c', unpack, 'unpack', archive, folder], { stdio: 'inherit' });
  if (result.status !== 0) throw new Error(`cannot unpack ${path.basename(archive)}`);
}

// Unpacks packages of one Debian architecture and what they depend on below `folder`.
//   complete  true: the whole closure, as for an empty system; false: only what this host does not have installed
//   skip      names of packages that are left out
function unpackPackages({ folder, architecture, packages, complete, skip = [] }) {
  const apt = path.join(folder, 'apt');
  for (const name of ['state/lists/partial', 'cache/archives/partial', 'log']) {
    mkdirSync(path.join(apt, name), { recursive: true });
  }
  copySources(path.join(apt, 'sources'));
  const noPackages = path.join(apt, 'status');
  writeFileSync(noPackages, '');
  const aptGet = (status, ...args) => {
    const all = [...options(apt, architecture, status), ...args];
    const env = { ...process.env, DEBIAN_FRONTEND: 'noninteractive', LC_ALL: 'C' };
    const result = spawnSync('apt-get', all, { stdio: ['ignore', 'inherit', 'inherit'], timeout: kLimitMs, env });
    return result.status === 0;
  };
  const status = complete ? noPackages : '/var/lib/dpkg/status';
  if (!aptGet(status, 'update')) {
    console.log('   warning: a package index could not be renewed; going on with the others');
  }
  if (!aptGet(status, 'install', '--download-only', ...packages)) {
    throw new Error(`apt-get could not download ${packages.join(', ')} for ${architecture}`);
  }
  if (complete) layOutRoot(folder);
  const archives = path.join(apt, 'cache', 'archives');
  for (const name of readdirSync(archives).filter((entry) => entry.endsWith('.deb'))) {
    if (!skip.includes(name.split('_')[0])) unpackInto(folder, path.join(archives, name));
  }
  rmSync(apt, { recursive: true, force: true });
}

// What a real system has before its first package.
function layOutRoot(folder) {
  for (const name of ['usr/lib', 'usr/bin', 'usr/sbin', 'etc']) mkdirSync(path.join(folder, name), { recursive: true });
  for (const name of ['lib', 'bin', 'sbin']) symlinkSync(`usr/${name}`, path.join(folder, name));
  writeFileSync(path.join(folder, 'etc', 'ld.so.cache'), ''); // else the emulated loader reads the host's
}

module.exports = { unpackPackages };
