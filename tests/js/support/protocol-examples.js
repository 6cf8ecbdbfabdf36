'use strict';
// The worked examples of PROTOCOL.md. An example is a fenced block of kind "hex":
//
//   ; example: NAME (where)
//   -> bytes    ; comment          towards the server
//   <- bytes                       from the server
//   == bytes                       as they are before scrambling, or in a file
//   rr bytes                       random bytes of the scrambling
//
// Lines that follow each other with the same mark are one piece.

const fs = require('node:fs');
const path = require('node:path');

const FILE = path.join(__dirname, '..', '..', '..', 'PROTOCOL.md');

function parseLine(text, where) {
  const match = /^(->|<-|==|rr)((?: [0-9a-f]{2})+)(?: +; (.+))?$/.exec(text);
  if (!match) throw new Error(`PROTOCOL.md: ${where}: not a line of an example: ${text}`);
  return { mark: match[1], bytes: Buffer.from(match[2].replaceAll(' ', ''), 'hex'), comment: match[3] };
}

function parseBlock(block) {
  const [title, ...rest] = block.trimEnd().split('\n');
  const head = /^; example: ([^()]+?)(?: \((.+)\))?$/.exec(title);
  if (!head) throw new Error(`PROTOCOL.md: a block without a name: ${title}`);
  const lines = rest.map((text) => parseLine(text, head[1]));
  const pieces = [];
  for (const { mark, bytes } of lines) {
    const last = pieces.at(-1);
    if (last?.mark === mark) last.bytes = Buffer.concat([last.bytes, bytes]);
    else pieces.push({ mark, bytes });
  }
  return { name: head[1], where: head[2], lines, pieces };
}

/** All examples by name. Throws for a line that is none and for a name that stands twice. */
function readExamples(text = fs.readFileSync(FILE, 'utf8')) {
  const examples = new Map();
  for (const [, block] of text.matchAll(/^```hex\n([^]*?)^```$/gm)) {
    const example = parseBlock(block);
    if (examples.has(example.name)) throw new Error(`PROTOCOL.md: two examples "${example.name}"`);
    examples.set(example.name, example);
  }
  return examples;
}

/** The pieces of a mark, in order. */
const piecesOf = (example, mark) => example.pieces.filter((piece) => piece.mark === mark).map(({ bytes }) => bytes);

module.exports = { readExamples, piecesOf };
