'use strict';
// The examples of the documents, and what they are to print.
//
// In a Markdown file every fenced block of the language "js" is a program; one that begins with "import" is an ES module.
//   ```js setup    stands before each later block of the file that does not load the package itself
//   ```text        right behind a program, with at most one line of text between: what it prints. Without such a block
//                  it prints what stands in the comments behind its console.log calls, in that order.
// In a file of examples/ the comment that begins with "// Prints" at its end says what it prints, indented by two.
// "..." stands for anything within a line, and on a line of its own for any number of lines.

const FENCE = /^```(\S*) ?(.*)\n([^]*?)^```$/gm;
const OUTPUT_BEHIND = /^\n(?:[^\n`]+\n\n)?```text\n([^]*?)^```$/m;
const LOADS_PACKAGE = /require\('VqDBAccess'\)|from 'VqDBAccess'/;
const LOGGED = /console\.log\(.*\/\/ (.*)$/gm;
const PRINTS = /^\/\/ Prints.*\n((?:\/\/ {3}.*\n)+)$/m;

const lineAt = (text, index) => text.slice(0, index).split('\n').length;

function outputOf(code, behind) {
  const block = behind.match(OUTPUT_BEHIND);
  if (block && block.index === 0) return block[1];
  return [...code.matchAll(LOGGED)].map((match) => `${match[1]}\n`).join('');
}

/** The programs of a Markdown text: [{ line, code, module, expected }]. */
function examplesOf(markdown) {
  const found = [];
  let setup = '';
  for (const match of markdown.matchAll(FENCE)) {
    const [whole, language, mark, code] = match;
    if (language !== 'js') continue;
    if (mark === 'setup') setup = code;
    const expected = outputOf(code, markdown.slice(match.index + whole.length + 1));
    const complete = mark === 'setup' || LOADS_PACKAGE.test(code) ? code : setup + code;
    found.push({ line: lineAt(markdown, match.index), code: complete, module: /^import /m.test(code), expected });
  }
  return found;
}

/** What a program of examples/ says that it prints; undefined when it says nothing. */
function printsOf(program) {
  return program.match(PRINTS)?.[1].replace(/^\/\/ {3}/gm, '');
}

/** Whether an output is the expected one, with "..." as above. */
function fits(output, expected) {
  const escape = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
  const lines = expected.split('\n').slice(0, -1);
  const patterns = lines.map((line) =>
    line === '...' ? '(?:.*\\n)*?' : `${line.split('...').map(escape).join('.*')}\\n`,
  );
  return new RegExp(`^${patterns.join('')}$`).test(output);
}

module.exports = { examplesOf, printsOf, fits };
