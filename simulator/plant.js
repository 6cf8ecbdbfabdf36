'use strict';
// The running plant: drivers and tags with their present values. A change is encoded once as a notification record and
// handed to every follower (a client session that connected the tag); listeners of 'change' see it too.
//
//   notification record   u16 driver id, u16 tag id, value without type word

const { EventEmitter } = require('node:events');
const { u16 } = require('./wire');
const { toGb2312 } = require('./text');
const values = require('./values');

const NO_TAG = 65535;

class Tag {
  constructor(driver, index, definition) {
    Object.assign(this, definition);
    this.driver = driver;
    this.index = index;
    this.followers = new Set();
  }

  /** The value with its type word, as replies carry it. */
  typedValue() {
    return values.encode(this.code, this.value);
  }

  record() {
    return Buffer.concat([u16(this.driver.id), u16(this.index), values.encodeBare(this.code, this.value)]);
  }

  /** `value` as this tag can hold it: of its type and within its range. */
  fit(value) {
    const fitted = values.coerce(this.code, value);
    if (!this.range || !values.isNumeric(this.code) || Number.isNaN(fitted)) return fitted;
    const held = Math.min(this.range[1], Math.max(this.range[0], Number(fitted)));
    return held === Number(fitted) ? fitted : values.coerce(this.code, held);
  }
}

class Driver {
  constructor({ id, name, tags }) {
    this.id = id;
    this.name = name;
    this.tags = tags.map((tag, index) => new Tag(this, index, tag));
    this.byName = new Map(this.tags.map((tag) => [tag.name, tag]));
    // Requests carry names as GB2312 bytes; they are compared as bytes, so that nothing is lost in a conversion.
    this.byBytes = new Map(this.tags.map((tag) => [toGb2312(tag.name).toString('latin1'), tag.index]));
  }
}

class Plant extends EventEmitter {
  constructor(project) {
    super();
    this.drivers = project.drivers.map((driver) => new Driver(driver));
    this.byId = new Map(this.drivers.map((driver) => [driver.id, driver]));
  }

  *tags() {
    for (const driver of this.drivers) yield* driver.tags;
  }

  /** The tag of two ids from the wire, or undefined. */
  find(driverId, tagId) {
    return this.byId.get(driverId)?.tags[tagId];
  }

  tagId(driverId, nameBytes) {
    return this.byId.get(driverId)?.byBytes.get(nameBytes.toString('latin1')) ?? NO_TAG;
  }

  /** The tag that a command names: driver by name or id, tag by name or id. Throws when there is none. */
  named(driverName, tagName) {
    const driver = this.drivers.find((one) => one.name === driverName) ?? this.byId.get(driverName);
    if (!driver) throw new Error(`no driver ${JSON.stringify(driverName)}`);
    const tag = driver.byName.get(tagName) ?? driver.tags[tagName];
    if (!tag) throw new Error(`no tag ${JSON.stringify(tagName)} in driver ${JSON.stringify(driver.name)}`);
    return tag;
  }

  /** Stores a value. Followers hear of it when it differs from the one before, or always with `always`. */
  store(tag, value, always = false) {
    const before = tag.value;
    tag.value = tag.fit(value);
    if (!values.carriesValue(tag.code) || (!always && Object.is(before, tag.value))) return;
    if (tag.followers.size > 0) {
      const record = tag.record();
      for (const follower of tag.followers) follower.notify(tag, record);
    }
    this.emit('change', tag);
  }
}

module.exports = { Plant, NO_TAG };
