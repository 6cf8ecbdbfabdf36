'use strict';
// Reads the reports that a sanitizer left in a folder, and picks those that concern us.
//
// Node.js frees little when it exits, and keeps much where LeakSanitizer does not look, so its processes report leaks of
// their own. A leak is ours when our library asked for the memory: itself, or by calling a Node-API function that did.
// Every other kind of report concerns us whatever its frames are.
const { readFileSync, readdirSync } = require('node:fs');
const path = require('node:path');

const library = 'VqDBAccess.node';

// Frames as "#2 FUNCTION SOURCE <MODULE>".
const frameFormat = "'    #%n %f %S <%m>'";
const framePattern = /^ +#\d+ (.*) <(.*)>$/gm;

const isAllocator = ({ name, module }) => /lib(asan|stdc\+\+)\.so/.test(module) || name.startsWith('napi_');

// A leak without a frame is the end of a report whose process was ended while it wrote.
function isOurLeak(record) {
  const frames = [...record.matchAll(framePattern)].map(([, name, module]) => ({ name, module }));
  const asker = frames.find((frame) => !isAllocator(frame));
  return asker === undefined ? frames.length > 0 : asker.module.endsWith(`/${library}`);
}

// The parts of a report that concern us, as texts.
function concerns(report) {
  const [head, ...records] = report.split(/^(?=(?:Direct|Indirect) leak of )/m);
  const leaks = records.filter(isOurLeak);
  const other = head.replace(/^=*\n*==\d+==ERROR: LeakSanitizer: detected memory leaks\s*/m, '').trim();
  return other === '' ? leaks : [report];
}

// All that concerns us in the reports of a folder.
function readReports(folder) {
  return readdirSync(folder).flatMap((name) => concerns(readFileSync(path.join(folder, name), 'utf8')));
}

module.exports = { frameFormat, readReports };
