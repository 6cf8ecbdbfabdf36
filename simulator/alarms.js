'use strict';
// Alarms: the two lists of lines that records refer to, the active alarms, and the limits of tags that raise and end
// them. A raised or ended alarm is emitted as a notification record.
//
//   alarm record, 32 bytes   u32 begin, u32 end (0 while active; seconds since 1970 UTC), u16 line of the tag list,
//                            u16 and u16 lines of the text list, u8, u8, f64 value, f64 limit
//   notification             FF FF, 1 (raised) or 3 (ended), then the alarm record

const { EventEmitter } = require('node:events');
const { OptionError } = require('./errors');
const { show } = require('./check');
const { toGb2312 } = require('./text');

const RAISED = 1;
const ENDED = 3;
const NO_LINE = 0xffff;
const MAX_LINE = 255; // bytes of GB2312
const MAX_ACTIVE = 10000;

const now = () => Math.floor(Date.now() / 1000);

/** Lines in the order in which they first came. */
class Lines {
  constructor(lines) {
    this.lines = [];
    lines.forEach((line) => this.add(line));
  }

  add(line) {
    if (toGb2312(line).length > MAX_LINE) throw new OptionError(`alarm line of more than ${MAX_LINE} bytes: ${line}`);
    if (!this.lines.includes(line)) this.lines.push(line);
    return this.lines.indexOf(line);
  }

  /** Number of a line that is given as text or as a number. */
  index(line, field) {
    if (line === undefined) return NO_LINE;
    if (Number.isInteger(line) && line >= 0 && line <= NO_LINE) return line;
    const index = this.lines.indexOf(line);
    if (index < 0) throw new Error(`alarm: ${field}: no line ${JSON.stringify(line)} in the list that clients load`);
    return index;
  }

  bytes() {
    return toGb2312(this.lines.map((line) => `${line}\r\n`).join(''));
  }
}

function encodeAlarm(alarm) {
  const bytes = Buffer.alloc(32);
  bytes.writeUInt32LE(alarm.beginTime >>> 0, 0);
  bytes.writeUInt32LE(alarm.endTime >>> 0, 4);
  bytes.writeUInt16LE(alarm.tagIndex, 8);
  bytes.writeUInt16LE(alarm.textIndex1, 10);
  bytes.writeUInt16LE(alarm.textIndex2, 12);
  bytes[14] = alarm.attr1;
  bytes[15] = alarm.attr2;
  bytes.writeDoubleLE(alarm.value1, 16);
  bytes.writeDoubleLE(alarm.value2, 24);
  return bytes;
}

class Alarms extends EventEmitter {
  constructor(plant, project) {
    super();
    this.active = new Map();
    this.lastId = 0;
    this.texts = new Lines(project.alarms.texts);
    this.tags = new Lines(project.alarms.tags);
    for (const tag of plant.tags()) this.prepare(tag);
    for (const tag of plant.tags()) this.check(tag);
    plant.on('change', (tag) => this.check(tag));
  }

  /** Enters the lines that a tag's limits refer to. */
  prepare(tag) {
    for (const limit of tag.limits) {
      limit.tag = `${tag.driver.name}.${tag.name}`;
      limit.text2 ??= tag.driver.name;
      this.tags.add(limit.tag);
      this.texts.add(limit.text);
      this.texts.add(limit.text2);
    }
    // Tags made by one "count" entry share their limits' definition, not their state.
    tag.limits = tag.limits.map((limit) => ({ ...limit, raised: 0 }));
  }

  check(tag) {
    for (const limit of tag.limits) this.checkLimit(limit, Number(tag.value));
  }

  checkLimit(limit, value) {
    const beyond = limit.above ? value > limit.limit : value < limit.limit;
    const back = limit.above ? value <= limit.limit - limit.deadband : value >= limit.limit + limit.deadband;
    if (!limit.raised && beyond) limit.raised = this.raise({ ...limit, value1: value, value2: limit.limit });
    else if (limit.raised && back) {
      this.end(limit.raised);
      limit.raised = 0;
    }
  }

  /** Raises an alarm and gives its id; 0 when there are too many. */
  raise({ tag, text, text2, attr1 = 0, attr2 = 0, value1 = 0, value2 = 0, beginTime = now() }) {
    if (this.active.size >= MAX_ACTIVE) return 0;
    const id = ++this.lastId;
    const alarm = {
      id,
      beginTime,
      endTime: 0,
      tagIndex: this.tags.index(tag, 'tag'),
      textIndex1: this.texts.index(text, 'text'),
      textIndex2: this.texts.index(text2, 'text2'),
      attr1,
      attr2,
      value1,
      value2,
    };
    for (const [field, value] of Object.entries(alarm)) {
      if (typeof value !== 'number') throw new Error(`alarm: ${field}: expected a number, found ${show(value)}`);
    }
    this.active.set(id, alarm);
    this.announce(RAISED, alarm);
    return id;
  }

  /** Ends an active alarm; false when there is none of that id. */
  end(id, endTime = now()) {
    const alarm = this.active.get(id);
    if (!alarm) return false;
    this.active.delete(id);
    this.announce(ENDED, { ...alarm, endTime });
    return true;
  }

  announce(command, alarm) {
    const record = Buffer.concat([Buffer.from([0xff, 0xff, command]), encodeAlarm(alarm)]);
    this.emit('record', record, { ...alarm, state: command === RAISED ? 'raised' : 'ended' });
  }

  list() {
    return [...this.active.values()];
  }

  records() {
    return this.list().map(encodeAlarm);
  }
}

module.exports = { Alarms };
