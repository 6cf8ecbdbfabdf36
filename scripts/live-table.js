'use strict';
// The demo's display: a table that is redrawn in place on a terminal, plain lines elsewhere.

const redrawMs = 200;
const recentMs = 600; // how long a changed value stays highlighted
const alarmLines = 4;
const widths = { driver: 10, tag: 18, value: 20, count: 8 };

function formatValue(value) {
  if (typeof value === 'number') return String(Number(value.toFixed(3)));
  if (typeof value === 'string') return `'${value}'`;
  return String(value);
}

// Columns that a text takes on a terminal: Chinese characters take two.
function columns(text) {
  let sum = 0;
  for (const char of text) sum += char.codePointAt(0) >= 0x1100 ? 2 : 1;
  return sum;
}

function pad(text, width) {
  let cut = text;
  while (columns(cut) > width) cut = [...cut].slice(0, -1).join('');
  return cut + ' '.repeat(width - columns(cut));
}

class LiveTable {
  constructor(stream) {
    this.stream = stream;
    this.live = Boolean(stream.isTTY);
    this.rows = new Map();
    this.recentAlarms = [];
    this.notes = [];
    this.changes = 0;
    this.alarms = 0;
    this.awaited = undefined;
  }

  add(driver, tag, value) {
    this.rows.set(`${driver}\0${tag}`, { driver, tag, value, count: 0, changedAt: 0 });
  }

  change(driver, tag, value) {
    this.changes += 1;
    const row = this.rows.get(`${driver}\0${tag}`);
    Object.assign(row, { value, count: row.count + 1, changedAt: Date.now() });
    if (!this.live) this.line(`change ${driver} ${tag} = ${formatValue(value)}`);
    const wanted = this.awaited;
    if (wanted && wanted.driver === driver && wanted.tag === tag && wanted.value === value) {
      this.awaited = undefined;
      wanted.seen();
    }
  }

  // Calls seen once when the tag changes to that value.
  onChange(driver, tag, value, seen) {
    this.awaited = { driver, tag, value, seen };
  }

  alarm(text) {
    this.alarms += 1;
    this.recentAlarms = [...this.recentAlarms, text].slice(-alarmLines);
    if (!this.live) this.line(`alarm  ${text}`);
  }

  note(text) {
    this.notes.push(text);
    if (!this.live) this.line(`write  ${text}`);
  }

  start() {
    if (!this.live) return;
    this.stream.write('\x1b[?25l');
    process.once('exit', () => this.stream.write('\x1b[?25h'));
    this.drawn = 0;
    this.draw();
    this.timer = setInterval(() => this.draw(), redrawMs);
  }

  stop() {
    if (!this.live) return;
    clearInterval(this.timer);
    this.draw();
    this.stream.write('\x1b[?25h');
  }

  line(text) {
    this.stream.write(`${text}\n`);
  }

  // Rewrites the lines drawn before. What does not fit the screen's height is left out, so that the cursor can return.
  draw() {
    const room = (this.stream.rows || 24) - alarmLines - 6;
    const rows = [...this.rows.values()].filter((row) => row.count > 0);
    const shown = rows.slice(0, Math.max(room, 3));
    const lines = [
      `\x1b[1m${pad('driver', widths.driver)} ${pad('tag', widths.tag)} ${pad('value', widths.value)} changes\x1b[0m`,
      ...shown.map((row) => this.rowText(row)),
      rows.length > shown.length ? `... and ${rows.length - shown.length} more tags` : '',
      ...this.recentAlarms.map((text) => `\x1b[33malarm\x1b[0m ${text}`),
      ...this.notes.map((text) => `\x1b[36mwrite\x1b[0m ${text}`),
    ];
    const back = this.drawn > 0 ? `\x1b[${this.drawn}A` : '';
    this.stream.write(`${back}${lines.map((text) => `\x1b[2K${text}\n`).join('')}\x1b[J`);
    this.drawn = lines.length;
  }

  rowText({ driver, tag, value, count, changedAt }) {
    const text = pad(formatValue(value), widths.value);
    const shown = Date.now() - changedAt < recentMs ? `\x1b[32m${text}\x1b[0m` : text;
    return `${pad(driver, widths.driver)} ${pad(tag, widths.tag)} ${shown} ${String(count).padStart(7)}`;
  }
}

module.exports = { LiveTable, formatValue };
