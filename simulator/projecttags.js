'use strict';
// The tags of a project: their types, values, ranges, waveforms and alarm limits, checked and with defaults filled in.
// An entry with "count" stands for many tags of one kind.

const values = require('./values');

const FIELDS = ['name', 'type', 'value', 'range', 'access', 'wave', 'alarms', 'count', 'start', 'comment'];
const WAVE_FIELDS = ['kind', 'period', 'phase', 'rate', 'steps', 'duty', 'tag', 'lag', 'noise'];
const WAVES = ['sine', 'triangle', 'ramp', 'square', 'random', 'counter', 'steps', 'clock', 'follow'];
const ALARM_FIELDS = ['above', 'below', 'text', 'text2', 'attr1', 'attr2', 'deadband'];
const MAX_TAGS = 65535; // ids 0 to 65534; 65535 means "no such tag"
const MAX_NAME = 252; // bytes; what fits a client's request for one tag's id
const MAX_ITEMS = 1000; // of an array
const SPECIAL = { NaN, Infinity, '-Infinity': -Infinity };

function checkType(check, type, field) {
  const code = values.typeCode(type);
  if (code !== undefined) return code;
  return check.oneOf(type, field, 'type', Object.keys(values.NAMES));
}

function checkInteger(check, code, value, field) {
  if (!Number.isInteger(value)) check.expected(field, 'a whole number', value);
  if (values.coerce(code, value) !== value) check.fail(field, `${value} is outside the range of the tag's type`);
  return value;
}

function checkFloat(check, code, value, field) {
  if (typeof value === 'string' && Object.hasOwn(SPECIAL, value)) return SPECIAL[value];
  if (code === 7 && typeof value === 'string') {
    const days = values.daysOfText(value);
    return Number.isNaN(days) ? check.expected(field, 'a date such as "2024-03-05T07:08:09"', value) : days;
  }
  return values.coerce(code, check.number(value, field));
}

function checkInt64(check, value, field) {
  const whole = Number.isSafeInteger(value) || (typeof value === 'string' && /^-?\d{1,19}$/.test(value));
  if (!whole) check.expected(field, 'a whole number, as text when it is large', value);
  if (BigInt.asIntN(64, BigInt(value)) !== BigInt(value)) check.fail(field, 'outside the range of 64 bits');
  return BigInt(value);
}

function checkArray(check, items, field) {
  if (check.list(items, field).length > MAX_ITEMS) check.fail(field, `at most ${MAX_ITEMS} items`);
  return items.map((item, i) => {
    const place = `${field}[${i}]`;
    check.object(item, place, ['type', 'value']);
    const code = checkType(check, item.type, `${place}.type`);
    return { code, value: checkValue(check, code, item.value, `${place}.value`) };
  });
}

/** A value of type `code` as the project gives it, in the form that the codec takes. */
function checkValue(check, code, value, field) {
  if (value === undefined) return values.coerce(code, undefined);
  if (code === 8) return check.string(value, field, values.MAX_TEXT);
  if (code === 11) return check.boolean(value, field);
  if (code === 20) return checkInt64(check, value, field);
  if (code === values.ARRAY) return checkArray(check, value, field);
  if (!values.carriesValue(code)) return value === null ? null : check.expected(field, 'null for this type', value);
  return [4, 5, 7].includes(code) ? checkFloat(check, code, value, field) : checkInteger(check, code, value, field);
}

function checkRange(check, range, field, code) {
  if (range === undefined) return null;
  if (!values.isNumeric(code)) check.fail(field, 'only numbers have a range');
  if (check.list(range, field).length !== 2) check.expected(field, '[low, high]', range);
  const [low, high] = range.map((end, i) => check.number(end, `${field}[${i}]`));
  if (low > high) check.fail(field, `low ${low} is above high ${high}`);
  return [low, high];
}

function checkWaveKind(check, wave, field, code) {
  const kind = check.oneOf(wave.kind, `${field}.kind`, 'waveform', WAVES);
  if (!values.carriesValue(code)) check.fail(field, 'values of this type do not change');
  const any = kind === 'steps' || (kind === 'clock' && code === 7);
  if (!any && !values.isNumeric(code) && code !== 11) check.fail(`${field}.kind`, `"${kind}" needs a number or a bool`);
  return kind;
}

function checkSteps(check, wave, field, code) {
  if (wave.kind !== 'steps') return undefined;
  const steps = check.list(wave.steps, `${field}.steps`);
  if (steps.length === 0) check.fail(`${field}.steps`, 'at least one step');
  return steps.map((step, i) => checkValue(check, code, step, `${field}.steps[${i}]`));
}

function checkWave(check, wave, field, code) {
  if (wave === undefined) return null;
  check.object(wave, field, WAVE_FIELDS);
  const kind = checkWaveKind(check, wave, field, code);
  const number = (key, fallback, low, high) => check.number(wave[key] ?? fallback, `${field}.${key}`, low, high);
  if (kind === 'follow') check.string(wave.tag, `${field}.tag`);
  return {
    kind,
    steps: checkSteps(check, wave, field, code),
    tag: wave.tag,
    period: number('period', 10, 0.001, 1e9),
    phase: number('phase', 0, -1e6, 1e6),
    duty: number('duty', 0.5, 0, 1),
    lag: number('lag', 5, 0, 1e9),
    noise: number('noise', 0, 0, 1e9),
    rate: wave.rate === undefined ? undefined : number('rate', 0, 0, 1000),
  };
}

function checkLimit(check, limit, field) {
  check.object(limit, field, ALARM_FIELDS);
  const side = ['above', 'below'].filter((key) => limit[key] !== undefined);
  if (side.length !== 1) check.fail(field, 'expected exactly one of above, below');
  const line = (key) => {
    const text = check.name(limit[key], `${field}.${key}`, 255);
    return /[\r\n]/.test(text) ? check.fail(`${field}.${key}`, 'a line cannot hold a line end') : text;
  };
  return {
    above: side[0] === 'above',
    limit: check.number(limit[side[0]], `${field}.${side[0]}`),
    deadband: check.number(limit.deadband ?? 0, `${field}.deadband`, 0),
    text: line('text'),
    text2: limit.text2 === undefined ? undefined : line('text2'),
    attr1: check.integer(limit.attr1 ?? 0, `${field}.attr1`, 0, 255),
    attr2: check.integer(limit.attr2 ?? 0, `${field}.attr2`, 0, 255),
  };
}

function checkLimits(check, limits, field, code) {
  if (limits === undefined) return [];
  if (!values.isNumeric(code) && code !== 11) check.fail(field, 'only numbers and bools have alarm limits');
  return check.list(limits, field).map((limit, i) => checkLimit(check, limit, `${field}[${i}]`));
}

function checkName(check, name, field) {
  check.name(name, field, MAX_NAME);
  if (name.includes(',')) check.fail(field, 'a tag name cannot hold a comma');
  if (name !== name.replace(/^ +| +$/g, '')) check.fail(field, 'a tag name cannot begin or end with a blank');
  return name;
}

function checkTag(check, tag, field) {
  check.object(tag, field, FIELDS);
  const code = checkType(check, tag.type, `${field}.type`);
  const range = checkRange(check, tag.range, `${field}.range`, code);
  const wave = checkWave(check, tag.wave, `${field}.wave`, code);
  const access = check.oneOf(tag.access ?? (wave ? 'r' : 'rw'), `${field}.access`, 'access', ['r', 'rw']);
  const limits = checkLimits(check, tag.alarms, `${field}.alarms`, code);
  const start = tag.value === undefined && range ? values.coerce(code, range[0]) : undefined;
  const value = start ?? checkValue(check, code, tag.value, `${field}.value`);
  return { name: checkName(check, tag.name, `${field}.name`), code, value, range, wave, access, limits };
}

/** The tags that an entry with "count" stands for: "T{0000}" becomes T0000, T0001, ... */
function expand(check, entry, tag, field) {
  if (entry.count === undefined) return [tag];
  const count = check.integer(entry.count, `${field}.count`, 1, MAX_TAGS);
  const start = check.integer(entry.start ?? 0, `${field}.start`, 0, 1e9);
  const place = /\{(0+)\}/.exec(tag.name);
  if (!place) check.fail(`${field}.name`, 'with "count" the name needs a place for the number, such as {0000}');
  return Array.from({ length: count }, (_, i) => {
    const number = String(start + i).padStart(place[1].length, '0');
    const wave = tag.wave && { ...tag.wave, phase: tag.wave.phase + i / count };
    return { ...tag, name: checkName(check, tag.name.replace(place[0], number), `${field}.name`), wave };
  });
}

function checkUniqueNames(check, tags, field) {
  const seen = new Set();
  for (const tag of tags) {
    if (seen.has(tag.name)) check.fail(field, `two tags are named ${JSON.stringify(tag.name)}`);
    seen.add(tag.name);
  }
}

function checkFollowed(check, tags, field) {
  tags.forEach((tag) => {
    if (!tag.wave || tag.wave.kind !== 'follow') return;
    const followed = tags.find((other) => other.name === tag.wave.tag);
    const fits = followed && followed !== tag && (values.isNumeric(followed.code) || followed.code === 11);
    const names = [tag.name, tag.wave.tag].map((name) => JSON.stringify(name));
    if (!fits) check.fail(field, `${names[0]} follows ${names[1]}, which is no number of this driver`);
  });
}

/** All tags of a driver in the order of their ids. */
function checkTags(check, list, field) {
  const tags = [];
  check.list(list, field).forEach((entry, i) => {
    const place = `${field}[${i}]`;
    tags.push(...expand(check, entry, checkTag(check, entry, place), place));
  });
  if (tags.length > MAX_TAGS) check.fail(field, `${tags.length} tags are too many; at most ${MAX_TAGS}`);
  checkUniqueNames(check, tags, field);
  checkFollowed(check, tags, field);
  return tags;
}

module.exports = { checkTags };
