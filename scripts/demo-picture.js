'use strict';
// Makes docs/demo.svg, the picture of the demo: runs it in a terminal of its own (tmux), takes the screen at a lively
// moment, and draws it.
//   node scripts/demo-picture.js
const { mkdtempSync, rmSync, writeFileSync } = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { capture, fail, run } = require('./run');

const root = path.join(__dirname, '..');
const target = path.join(root, 'docs', 'demo.svg');

const kFirstLine = 'Following changes'; // what stands above it is left out
const kColumns = 92;
const kRows = 30;
const kLimitMs = 60000;
const kLookMs = 150;
const kLooks = 12; // how many screens are looked at once the written value is back; the liveliest is taken

// The terminal, under a server of its own.
const folder = mkdtempSync(path.join(os.tmpdir(), 'demo-picture-'));
const kTmux = ['-S', path.join(folder, 'terminal'), '-f', '/dev/null'];
const tmux = (...args) => capture('tmux', [...kTmux, ...args]);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

const kChanged = /\x1b\[32m/g; // a value that has just changed
const liveliness = (screen) => screen.match(kChanged)?.length ?? 0;

async function takeScreen() {
  const deadline = Date.now() + kLimitMs;
  const screens = [];
  while (screens.length < kLooks && Date.now() < deadline) {
    await sleep(kLookMs);
    const screen = tmux('capture-pane', '-e', '-p', '-t', 'demo');
    if (screen === undefined) break; // the demo has ended
    if (screen.includes('came back')) screens.push(screen);
  }
  if (screens.length === 0) fail('The demo did not come to its written value.');
  return screens.reduce((best, screen) => (liveliness(screen) > liveliness(best) ? screen : best));
}

// What the screen's colour codes mean here. 0, 22 and 39 lead back.
const kColours = {
  31: '#ff7b72',
  32: '#56d364',
  33: '#e3b341',
  34: '#79c0ff',
  35: '#d2a8ff',
  36: '#39c5cf',
  37: '#ffffff',
};
const kPlain = { fill: '#c9d1d9', bold: false };

function withCode(style, code) {
  if (code === 0) return kPlain;
  if (code === 1) return { ...style, bold: true };
  if (code === 22) return { ...style, bold: false };
  if (code === 39) return { ...style, fill: kPlain.fill };
  if (code === 49) return style; // the background is always the same
  if (!(code in kColours)) fail(`The screen has a colour code that is not known here: ${code}.`);
  return { ...style, fill: kColours[code] };
}

const isWide = (char) => char.codePointAt(0) >= 0x1100; // Chinese characters take two columns
const columnsOf = (text) => [...text].reduce((sum, char) => sum + (isWide(char) ? 2 : 1), 0);

// A line's pieces of one style and one width of characters: [{ column, text, style }]. Colours go on from line to line.
function pieces(line, style) {
  const found = [];
  let column = 0;
  for (const [, codes, text] of line.matchAll(/\x1b\[([\d;]*)m|([^\x1b]+)/g)) {
    if (text === undefined) {
      style = codes.split(';').map(Number).reduce(withCode, style);
      continue;
    }
    for (const [part] of text.matchAll(/[\u1100-\uffff]+|[^\u1100-\uffff]+/g)) {
      for (const { 0: word, index } of part.matchAll(/\S+(?: \S+)*/g)) {
        found.push({ column: column + columnsOf(part.slice(0, index)), text: word, style });
      }
      column += columnsOf(part);
    }
  }
  return { found, style };
}

const kFontSize = 14;
const kWideFontSize = 16;
const kCell = 8.4; // width of a column
const kLine = 19;
const kMargin = 16;
const kBar = 34; // the window's bar
const kFonts =
  "ui-monospace, 'DejaVu Sans Mono', Menlo, Consolas, 'Noto Sans Mono CJK SC', 'Noto Sans CJK SC', " +
  "'WenQuanYi Micro Hei Mono', 'PingFang SC', 'Microsoft YaHei', monospace";

const escapeXml = (text) =>
  text.replace(/[&<>"]/g, (char) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' })[char]);
const number = (value) => String(Number(value.toFixed(1)));

// Each piece says how long it is, or where each wide character stands, so that the columns hold whatever font is there.
function textElement({ column, text, style }, y) {
  const chars = [...text];
  const x = (at) => number(kMargin + at * kCell);
  const places = isWide(chars[0])
    ? `x="${chars.map((_, i) => x(column + 2 * i)).join(' ')}" font-size="${kWideFontSize}"`
    : `x="${x(column)}" textLength="${number(chars.length * kCell)}"`;
  const bold = style.bold ? ' font-weight="bold"' : '';
  return `<text ${places} y="${y}" fill="${style.fill}"${bold}>${escapeXml(text)}</text>`;
}

function draw(screen) {
  const all = screen.trimEnd().split('\n');
  const lines = all.slice(all.findIndex((line) => line.startsWith(kFirstLine)));
  const elements = [];
  let style = kPlain;
  lines.forEach((line, i) => {
    const result = pieces(line, style);
    style = result.style;
    elements.push(...result.found.map((piece) => textElement(piece, kBar + kMargin + i * kLine + 6)));
  });
  const width = Math.ceil(2 * kMargin + kColumns * kCell);
  const height = kBar + 2 * kMargin + (lines.length - 1) * kLine;
  const title = textElement({ column: 10, text: '$ npm run demo', style: { fill: '#8b949e', bold: false } }, 22);
  return `<svg xmlns="http://www.w3.org/2000/svg" width="${width}" height="${height}" viewBox="0 0 ${width} ${height}" role="img">
<title>The demo: a live table of tags with their values and numbers of changes, alarms, and a written set-point</title>
<rect width="${width}" height="${height}" rx="8" fill="#0d1117"/>
<circle cx="20" cy="17" r="6" fill="#f85149"/><circle cx="40" cy="17" r="6" fill="#e3b341"/><circle cx="60" cy="17" r="6" fill="#56d364"/>
<g font-family="${kFonts}" font-size="${kFontSize}" xml:space="preserve">
${[title, ...elements].join('\n')}
</g>
</svg>
`;
}

async function main() {
  const command = `exec '${process.execPath}' '${path.join(root, 'scripts', 'demo.js')}'`;
  const size = ['-x', String(kColumns), '-y', String(kRows)];
  run('tmux', [...kTmux, 'new-session', '-d', '-s', 'demo', ...size, command]);
  process.once('exit', () => {
    tmux('kill-server');
    rmSync(folder, { recursive: true, force: true });
  });
  writeFileSync(target, draw(await takeScreen()));
  console.log(`${path.relative(process.cwd(), target)} is made.`);
}

main();
