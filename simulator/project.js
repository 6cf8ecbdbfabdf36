'use strict';
// Reading a project: from a JSON file or an object to checked, complete data. Everything that the rest of the server
// relies on is checked here, so that a mistake shows at the start as one line and not later as a strange byte.
//
// The result: { source, name, second, path, time, users, drivers, files, alarms }; see README.md for the file format.

const fs = require('node:fs');
const path = require('node:path');
const { Check } = require('./check');
const { OptionError } = require('./errors');
const { errorPlace } = require('./jsontext');
const { checkTags } = require('./projecttags');

const FIELDS = ['name', 'second', 'path', 'time', 'users', 'drivers', 'files', 'alarms', 'comment'];
const MAX_DRIVERS = 4096;
const MAX_LINE = 255; // bytes of one line of a list file
const MAX_FILE = 256 * 1024 * 1024;
const WRITE_RIGHT = 8;

function readText(file) {
  try {
    return fs.readFileSync(file, 'utf8').replace(/^\uFEFF/, '');
  } catch (error) {
    throw new OptionError(`${file}: cannot be read: ${error.code || error.message}`);
  }
}

function parseText(text, file) {
  try {
    return JSON.parse(text);
  } catch {
    const { line, column } = errorPlace(text);
    throw new OptionError(`${file}: line ${line}, column ${column}: not valid JSON`);
  }
}

/** Seconds since 1970 (UTC) of a number or a date text. */
function checkTime(check, value, field, fallback) {
  if (value === undefined) return fallback;
  if (typeof value !== 'string') return check.integer(value, field, 0, 0xffffffff);
  const seconds = Math.floor(Date.parse(value) / 1000);
  if (seconds >= 0 && seconds <= 0xffffffff) return seconds;
  return check.expected(field, 'a date such as "2024-03-05T07:08:09Z" or seconds since 1970', value);
}

function checkUser(check, user, field) {
  check.object(user, field, ['name', 'password', 'rights']);
  return {
    name: check.string(user.name, `${field}.name`, 35),
    password: check.string(user.password ?? '', `${field}.password`, 35),
    rights: check.integer(user.rights ?? 0, `${field}.rights`, 0, 0xffffffff),
  };
}

function checkUsers(check, users) {
  if (users === undefined) return null;
  return check.list(users, 'users').map((user, i) => checkUser(check, user, `users[${i}]`));
}

function checkUnique(check, items, key, field) {
  const seen = new Map();
  items.forEach((item, i) => {
    const value = item[key];
    if (seen.has(value)) {
      check.fail(`${field}[${i}].${key}`, `${JSON.stringify(value)} stands already at ${field}[${seen.get(value)}]`);
    }
    seen.set(value, i);
  });
}

function checkDriver(check, driver, field, index) {
  check.object(driver, field, ['name', 'id', 'tags', 'comment']);
  if (check.gbText(driver.name, `${field}.name`, 127) !== '') check.string(driver.name, `${field}.name`, 127);
  return {
    name: driver.name,
    id: check.integer(driver.id ?? index, `${field}.id`, 0, 0xfffe),
    tags: checkTags(check, driver.tags ?? [], `${field}.tags`),
  };
}

function checkDrivers(check, drivers) {
  const list = check.list(drivers ?? [], 'drivers');
  if (list.length > MAX_DRIVERS) check.fail('drivers', `${list.length} are too many; at most ${MAX_DRIVERS}`);
  const checked = list.map((driver, i) => checkDriver(check, driver, `drivers[${i}]`, i));
  checkUnique(check, checked, 'name', 'drivers');
  checkUnique(check, checked, 'id', 'drivers');
  return checked;
}

function readProjectFile(check, name, field, folder) {
  const file = path.resolve(folder, check.string(name, field));
  try {
    return { bytes: fs.readFileSync(file), time: Math.floor(fs.statSync(file).mtimeMs / 1000) };
  } catch (error) {
    return check.fail(field, `${JSON.stringify(name)} cannot be read: ${error.code || error.message}`);
  }
}

const filler = (size) => Buffer.from(Uint8Array.from({ length: size }, (_, i) => i % 251));

/** Contents of a file entry: { bytes or text, time }. */
function checkContents(check, file, field, folder) {
  const given = ['text', 'base64', 'path', 'size'].filter((key) => file[key] !== undefined);
  if (given.length !== 1) check.fail(field, 'expected exactly one of text, base64, path, size');
  if (given[0] === 'path') return readProjectFile(check, file.path, `${field}.path`, folder);
  if (given[0] === 'size') return { bytes: filler(check.integer(file.size, `${field}.size`, 0, MAX_FILE)) };
  const text = check.string(file[given[0]], `${field}.${given[0]}`);
  if (given[0] === 'base64') return { bytes: Buffer.from(text, 'base64') };
  if (file.encoding !== 'utf-8') check.gbText(text, `${field}.text`, MAX_FILE);
  return { text };
}

function checkFile(check, file, field, base) {
  const flags = ['gz', 'append', 'hello'];
  check.object(file, field, ['name', 'text', 'base64', 'path', 'size', 'encoding', 'time', 'header', ...flags]);
  for (const flag of flags) if (file[flag] !== undefined) check.boolean(file[flag], `${field}.${flag}`);
  const name = check.name(file.name, `${field}.name`, 200);
  const encoding = check.oneOf(file.encoding ?? 'gb2312', `${field}.encoding`, 'encoding', ['gb2312', 'utf-8']);
  const contents = checkContents(check, file, field, base.folder);
  const time = checkTime(check, file.time, `${field}.time`, contents.time ?? base.time);
  const header = file.header === undefined ? undefined : check.string(file.header, `${field}.header`, 2048);
  return { ...contents, name, encoding, time, header, gz: file.gz, append: file.append, hello: file.hello };
}

function checkLines(check, lines, field) {
  return check.list(lines ?? [], field).map((line, i) => {
    const place = `${field}[${i}]`;
    if (/[\r\n]/.test(check.name(line, place, MAX_LINE))) check.fail(place, 'a line cannot hold a line end');
    return line;
  });
}

function checkAlarms(check, alarms = {}) {
  check.object(alarms, 'alarms', ['texts', 'tags']);
  return {
    texts: checkLines(check, alarms.texts, 'alarms.texts'),
    tags: checkLines(check, alarms.tags, 'alarms.tags'),
  };
}

function checkPath(check, texts = ['']) {
  const list = check.list(texts, 'path');
  if (list.length > 4) check.fail('path', 'at most four texts');
  return [0, 1, 2, 3].map((i) => check.gbText(list[i] ?? '', `path[${i}]`, 500));
}

/** `base`: the folder that file paths start from, and the time of files that give none. */
function checkProject(raw, source, base) {
  const check = new Check(source);
  check.object(raw, '', FIELDS);
  const time = checkTime(check, raw.time, 'time', base.time);
  const files = check.list(raw.files ?? [], 'files');
  return {
    source,
    name: check.gbText(raw.name, 'name', 127),
    second: check.gbText(raw.second ?? '', 'second', 127),
    path: checkPath(check, raw.path),
    time,
    users: checkUsers(check, raw.users),
    drivers: checkDrivers(check, raw.drivers),
    files: files.map((file, i) => checkFile(check, file, `files[${i}]`, { folder: base.folder, time })),
    alarms: checkAlarms(check, raw.alarms),
  };
}

function loadFile(file) {
  const text = readText(file);
  const time = Math.floor(fs.statSync(file).mtimeMs / 1000);
  return checkProject(parseText(text, file), file, { folder: path.dirname(path.resolve(file)), time });
}

/** A project from the path of its file or from an object. Throws OptionError. */
function loadProject(project) {
  if (typeof project === 'string') return loadFile(project);
  return checkProject(project, 'project', { folder: process.cwd(), time: Math.floor(Date.now() / 1000) });
}

module.exports = { loadProject, WRITE_RIGHT };
