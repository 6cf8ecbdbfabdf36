'use strict';
// Checks of user-given values. Each returns the value or throws an OptionError whose one line names the field:
// "plant.json: drivers[1].tags[0].type: unknown type "flaot"; expected one of ...".

const { OptionError } = require('./errors');
const { isGb2312, toGb2312 } = require('./text');

const show = (value) =>
  value === undefined
    ? 'nothing'
    : (JSON.stringify(value, (key, part) => (typeof part === 'bigint' ? String(part) : part))?.slice(0, 60) ??
      String(value));

class Check {
  /** `source` names the file or the set of options; paths are given per field. */
  constructor(source) {
    this.source = source;
  }

  fail(path, message) {
    const place = path === '' ? this.source : `${this.source}: ${path}`;
    throw new OptionError(`${place}: ${message}`);
  }

  expected(path, what, value) {
    return this.fail(path, `expected ${what}, found ${show(value)}`);
  }

  /** An object with no other fields than `fields`. */
  object(value, path, fields) {
    if (value === null || typeof value !== 'object' || Array.isArray(value)) this.expected(path, 'an object', value);
    for (const key of Object.keys(value)) {
      if (!fields.includes(key)) {
        this.fail(path === '' ? key : `${path}.${key}`, `unknown field; expected one of ${fields.join(', ')}`);
      }
    }
    return value;
  }

  list(value, path) {
    return Array.isArray(value) ? value : this.expected(path, 'a list', value);
  }

  number(value, path, low = -Infinity, high = Infinity) {
    if (typeof value === 'number' && value >= low && value <= high) return value;
    const span = Number.isFinite(low) || Number.isFinite(high) ? ` from ${low} to ${high}` : '';
    return this.expected(path, `a number${span}`, value);
  }

  integer(value, path, low, high) {
    if (Number.isInteger(value) && value >= low && value <= high) return value;
    return this.expected(path, `a whole number from ${low} to ${high}`, value);
  }

  boolean(value, path) {
    return typeof value === 'boolean' ? value : this.expected(path, 'true or false', value);
  }

  oneOf(value, path, kind, allowed) {
    if (allowed.includes(value)) return value;
    return this.fail(path, `unknown ${kind} ${show(value)}; expected one of ${allowed.join(', ')}`);
  }

  string(value, path, maxBytes = Infinity) {
    if (typeof value !== 'string') this.expected(path, 'a text', value);
    if (value.includes('\0')) this.fail(path, 'a text cannot hold a NUL character');
    const size = Buffer.byteLength(value, 'utf8');
    if (size > maxBytes) this.fail(path, `${size} bytes of UTF-8 are too many; at most ${maxBytes}`);
    return value;
  }

  /** A text whose characters all exist in GB2312, of at most `maxBytes` bytes there. */
  gbText(value, path, maxBytes) {
    this.string(value, path);
    if (!isGb2312(value)) this.fail(path, `${show(value)} has a character that GB2312 lacks`);
    const size = toGb2312(value).length;
    if (size > maxBytes) this.fail(path, `${size} bytes of GB2312 are too many; at most ${maxBytes}`);
    return value;
  }

  /** A name: as gbText, and not empty. */
  name(value, path, maxBytes) {
    if (this.gbText(value, path, maxBytes) === '') this.fail(path, 'a name cannot be empty');
    return value;
  }
}

module.exports = { Check, show };
