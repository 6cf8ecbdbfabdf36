'use strict';
// Text of the wire: names and list files are GB2312, string values and the login are UTF-8.

const iconv = require('iconv-lite');

// The codec knows more characters than GB2312; those would arrive at a client as text it cannot convert.
function isGb2312Pair(lead, trail) {
  if (trail < 0xa1 || trail > 0xfe) return false;
  if (lead === 0xa2 && (trail < 0xb1 || trail > 0xfc)) return false;
  return (lead >= 0xa1 && lead <= 0xa9) || (lead >= 0xb0 && lead <= 0xf7);
}

/** Whether every character of `text` exists in GB2312. */
function isGb2312(text) {
  const bytes = iconv.encode(text, 'gb2312');
  if (iconv.decode(bytes, 'gb2312') !== text) return false;
  for (let i = 0; i < bytes.length; i++) {
    if (bytes[i] >= 0x80 && !isGb2312Pair(bytes[i], bytes[++i])) return false;
  }
  return true;
}

const toGb2312 = (text) => iconv.encode(text, 'gb2312');
const fromGb2312 = (bytes) => iconv.decode(bytes, 'gb2312');

module.exports = { isGb2312, toGb2312, fromGb2312 };
