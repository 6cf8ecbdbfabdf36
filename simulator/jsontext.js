'use strict';
// JSON text with an error message that names line and column, which JSON.parse does not do in every release.

const TOKENS = {
  blank: /[ \t\r\n]*/y,
  string: /"(?:[^"\\\u0000-\u001f]|\\(?:["\\/bfnrt]|u[0-9a-fA-F]{4}))*"/y,
  scalar: /-?(?:0|[1-9]\d*)(?:\.\d+)?(?:[eE][+-]?\d+)?|true|false|null/y,
};

class Scanner {
  constructor(text) {
    this.text = text;
    this.at = 0;
  }

  match(token) {
    const pattern = TOKENS[token];
    pattern.lastIndex = this.at;
    const found = pattern.exec(this.text);
    if (found) this.at = pattern.lastIndex;
    return Boolean(found);
  }

  take(character) {
    this.match('blank');
    if (this.text[this.at] !== character) return false;
    this.at++;
    return true;
  }

  /** Comma-separated items up to `close`; false at the first character that does not fit. */
  list(close, item) {
    if (this.take(close)) return true;
    while (item()) {
      if (this.take(close)) return true;
      if (!this.take(',')) return false;
    }
    return false;
  }

  member() {
    this.match('blank');
    return this.match('string') && this.take(':') && this.value();
  }

  value() {
    if (this.take('{')) return this.list('}', () => this.member());
    if (this.take('[')) return this.list(']', () => this.value());
    return this.match('string') || this.match('scalar');
  }
}

/** Where `text` stops being JSON: { line, column }, counted from 1. */
function errorPlace(text) {
  const scanner = new Scanner(text);
  scanner.value();
  scanner.match('blank');
  const before = text.slice(0, scanner.at).split('\n');
  return { line: before.length, column: before[before.length - 1].length + 1 };
}

module.exports = { errorPlace };
