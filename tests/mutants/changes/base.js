'use strict';
module.exports = [
  // CString.cpp
  [
    'CString.cpp',
    'while (run < size() && (*this)[run] == c) ++run;',
    'if (run < size() && (*this)[run] == c) ++run;',
    'trimming a byte on the left takes one byte of the run only',
  ],
  [
    'CString.cpp',
    'while (end > 0 && (*this)[end - 1] == c) --end;',
    'while (end > 1 && (*this)[end - 1] == c) --end;',
    'a text of nothing but the byte keeps one when trimmed on the right',
  ],
  [
    'CString.cpp',
    'return std::strchr(set, c) != nullptr;',
    "return c != '\\0' && std::strchr(set, c) != nullptr;",
    'a zero byte is no member of a set',
  ],
  ['CString.cpp', '  TrimRight(set);\n  TrimLeft(set);', '  TrimRight(set);', 'a trim by a set forgets the left side'],
  ['CString.cpp', '  TrimRight(c);\n  TrimLeft(c);', '  TrimLeft(c);', 'a trim by one byte forgets the right side'],
  [
    'CString.cpp',
    'find(oldText, copied, lenOld)',
    'find(oldText, copied + 1, lenOld)',
    'a replacement misses what follows the last one at once',
  ],
  [
    'CString.cpp',
    'if (newText != nullptr) result.append(newText);',
    'result.append(newText);',
    'replacing by null is no longer erasing',
  ],
  [
    'CString.cpp',
    "if (oldText == nullptr || *oldText == '\\0') return 0;",
    "if (oldText == nullptr) return 0;\n  if (*oldText == '\\0') return 1;",
    'replacing an empty text counts',
  ],
  [
    'CString.cpp',
    '  result.append(*this, copied, size() - copied);\n',
    '',
    'what follows the last replacement is lost',
  ],
  [
    'CString.cpp',
    'static_cast<size_t>(pos) < size();',
    'static_cast<size_t>(pos) <= size();',
    'a tokenizer position at the end counts as inside',
  ],
  [
    'CString.cpp',
    'pos = static_cast<int>(start + n + 1);',
    'pos = static_cast<int>(start + n);',
    'the position stays on the delimiter',
  ],
  [
    'CString.cpp',
    "if (delims == nullptr || *delims == '\\0') return CString();",
    "if (delims == nullptr || *delims == '\\0') {\n    pos = -1;\n    return CString();\n  }",
    'without delimiters the tokenizer ends instead of staying',
  ],
  [
    'CString.cpp',
    'if (pos < 0) return CString();',
    'if (pos < 0) {\n    pos = -1;\n    return CString();\n  }',
    'a negative position is changed',
  ],

  // Encoding.cpp
  ['Encoding.cpp', 'if (IsOpen()) iconv_close(cd_);', 'if (!IsOpen()) iconv_close(cd_);', 'converters stay open'],
  ['Encoding.cpp', "if (*s >= 'A' && *s <= 'Z')", "if (*s >= 'A' && *s < 'Z')", '"Z" is not lower-cased'],
  ['Encoding.cpp', "if (*s >= 'A' && *s <= 'Z')", "if (*s > 'A' && *s <= 'Z')", '"A" is not lower-cased'],
  ['Encoding.cpp', '"FromUtf8:iconv_open:"', '"FromUtf8:iconv_open"', 'a message without its colon'],
  ['Encoding.cpp', '"FromUtf16:iconv"}', '"FromUtf16:iconv:"}', 'a message with a colon too many'],
  ['Encoding.cpp', 'perror("ToUtf16:iconv");', 'perror("ToUtf16:iconv:");', 'a message with a colon too many'],
  ['Encoding.cpp', 'perror(conversion.openMessage);', ';', 'a missing conversion is not reported'],
  [
    'Encoding.cpp',
    '    text.resize(written);',
    '    if (written == space) text.resize(written);',
    'the unused space stays in the result',
  ],
  [
    'Encoding.cpp',
    'ConvertText(kToUtf8, src, bytes, bytes * 2, out);',
    'ConvertText(kToUtf8, src, bytes, bytes + 1, out);',
    'the UTF-8 form does not fit',
  ],
  ['Encoding.cpp', '(units + 1) * 3', 'units + 1', 'the GB2312 form of UCS-2 does not fit'],
  ['Encoding.cpp', '  outLen = 0;\n', '', 'the length of a failed conversion to UCS-2 is not zero'],
  [
    'Encoding.cpp',
    'outLen = static_cast<unsigned int>(written / 2);',
    'outLen = static_cast<unsigned int>(written);',
    'the length of a UCS-2 text counts bytes',
  ],
  [
    'Encoding.cpp',
    '    perror("ToUtf16:iconv");\n    return nullptr;',
    '    perror("ToUtf16:iconv");',
    'a partial UCS-2 text is given back',
  ],
  [
    'Encoding.cpp',
    'return ::ToUtf16(data(), outLen, 0);',
    'return ::ToUtf16(data(), outLen, static_cast<unsigned int>(size()));',
    'the member conversion to UCS-2 does not stop at a zero byte',
  ],
  ['Encoding.cpp', 'kUtf8[] = "UTF-8"', 'kUtf8[] = "UTF8"', 'another name for a code set'],

  // InitStringList.cpp
  ['InitStringList.cpp', 'kLineBuffer = 256;', 'kLineBuffer = 255;', 'a line holds one byte less'],
  [
    'InitStringList.cpp',
    'if (len_ < kMaxLine) {',
    'if (len_ < kMaxLine - 1) {',
    'a line of 255 bytes counts as too long',
  ],
  ['InitStringList.cpp', 'len_ = WholeCharacters();', ';', 'a long line may end in half a character'],
  [
    'InitStringList.cpp',
    "else if (len_ > 0 && bytes_[len_ - 1] == '\\r')",
    "else if (len_ > 1 && bytes_[len_ - 1] == '\\r')",
    'a line that is only CR becomes an entry',
  ],
  [
    'InitStringList.cpp',
    "if (bytes_[0] != '\\0') {",
    'if (len_ != 0) {',
    'a line that begins with a zero byte becomes an entry',
  ],
  [
    'InitStringList.cpp',
    'len_ = 0;\n    overlong_ = false;',
    'len_ = 0;',
    'every line behind a long one counts as too long',
  ],
  ['InitStringList.cpp', 'if (!list.empty()) return;', ';', 'a list is loaded a second time'],
  ['InitStringList.cpp', '    }\n  }\n  line.Finish(list);', '    }\n  }', 'a last line without a line end is lost'],
  [
    'InitStringList.cpp',
    'while (file.Read(&c, 1) > 0)',
    'while (file.Read(&c, 1) != 0)',
    'a read error does not end the list',
  ],

  // XFile.cpp
  ['XFile.cpp', 'if (fd_ >= 0) return true;', 'if (fd_ > 0) return true;', 'a file on descriptor 0 counts as closed'],
  ['XFile.cpp', '0600 : 0', '0640 : 0', 'new files can be read by the group'],
  ['XFile.cpp', 'flags | O_CLOEXEC', 'flags', 'child processes inherit open files'],
  ['XFile.cpp', 'ToUtf8(path, converted, 0);', 'converted = path;', 'a GB2312 path is not converted'],
  ['XFile.cpp', '  close(fd_);\n', '', 'descriptors are never closed'],
  ['XFile.cpp', '  close(fd_);\n  fd_ = -1;', '  close(fd_);', 'a closed file counts as open'],
  [
    'XFile.cpp',
    'while (result == -1 && errno == EINTR)',
    'if (result == -1 && errno == EINTR)',
    'a second signal ends a read',
  ],
  ['XFile.cpp', 'lseek64(fd_, off, whence) >= 0', 'lseek64(fd_, off, whence) > 0', 'a seek to the start fails'],
  [
    'XFile.cpp',
    'return SetFileSize64(n);',
    'return SetFileSize64(static_cast<int>(n));',
    'large sizes are taken as negative',
  ],
  [
    'XFile.cpp',
    'return lseek64(fd_, 0, SEEK_CUR);',
    'return lseek64(fd_, 0, SEEK_END);',
    'the position is the size, and moves there',
  ],
  ['XFile.cpp', 'XFile::~XFile() { Close(); }', 'XFile::~XFile() {}', 'the destructor leaves the file open'],

  // Wire.h
  [
    'Wire.h',
    'p[1] = static_cast<uint8_t>(v >> 8);',
    'p[1] = static_cast<uint8_t>(v);',
    'the high byte of a stored word',
  ],
  [
    'Wire.h',
    'StoreU32(p + 4, static_cast<uint32_t>(v >> 32));',
    'StoreU32(p + 4, static_cast<uint32_t>(v >> 31));',
    'the high half of a stored 64-bit integer',
  ],
  [
    'Wire.h',
    'static_cast<uint32_t>(LoadU16(p + 2)) << 16',
    'static_cast<uint32_t>(LoadU16(p + 2)) << 15',
    'the high half of a loaded 32-bit integer',
  ],
  [
    'Wire.h',
    '(static_cast<uint32_t>(p[1]) << 16)',
    '(static_cast<uint32_t>(p[1]) << 8)',
    'a byte of a loaded big-endian integer',
  ],
];
