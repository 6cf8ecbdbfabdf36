'use strict';
// The list of changes. changes/FOLDER.js exports an array of
//   [file below src/FOLDER, text, replacement, what that breaks, why nothing can notice it (left out: a test does)]
// The text must occur exactly once in its file; blanks and line ends in it stand for any of them, so that the layout of
// the code may change. An id is the folder and the place in its list: "net.7".
const { existsSync, readFileSync } = require('node:fs');
const path = require('node:path');

// The folders of src from the lowest up, each with those above it that use it.
const users = {
  base: ['value', 'net', 'files', 'driver', 'core'],
  value: ['driver', 'core'],
  net: ['files', 'driver', 'core'],
  files: ['core'],
  driver: ['core'],
  core: [],
  binding: [],
};
const order = Object.keys(users);

function loadChanges() {
  return order.flatMap((folder) => {
    const list = path.join(__dirname, 'changes', `${folder}.js`);
    return (existsSync(list) ? require(list) : []).map(([file, find, put, breaks, equivalent], index) => ({
      id: `${folder}.${index + 1}`,
      folder,
      file: `src/${folder}/${file}`,
      find,
      put,
      breaks,
      equivalent,
    }));
  });
}

function pattern(text) {
  return new RegExp(
    text
      .trim() // what stands before it may be a comment, which must not take the replacement in
      .split(/\s+/)
      .map((part) => part.replace(/[\\^$.*+?()[\]{}|]/g, '\\$&'))
      .join('\\s+'),
    'g',
  );
}

// The source with the change applied.
function changed(source, { find, put }) {
  return source.replace(pattern(find), () => put.trim());
}

// What is wrong with the list, one sentence each.
function problems(changes, root) {
  return changes.flatMap(({ id, file, find, put, breaks }) => {
    if (!breaks) return `${id}: does not say what it breaks`;
    if (find === put) return `${id}: changes nothing`;
    if (!existsSync(path.join(root, file))) return `${id}: no file ${file}`;
    const count = [...readFileSync(path.join(root, file), 'utf8').matchAll(pattern(find))].length;
    return count === 1 ? [] : `${id}: its text occurs ${count} times in ${file}:\n  ${find}`;
  });
}

function folders(changes) {
  return order.filter((name) => changes.some(({ folder }) => folder === name));
}

module.exports = { users, loadChanges, changed, problems, folders };
