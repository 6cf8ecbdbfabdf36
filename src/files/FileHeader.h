// The header block that precedes a transferred file: lines "Name: value" LF, ended by an empty line. The parser is fed
// bytes and never looks past their end. Threads: no state.
#pragma once

#include <cstdint>

#include "base/CString.h"

// Bytes that a header name and a header value can have; their buffers hold one more for the terminating zero.
constexpr int kHeaderNameMax = 63;
constexpr int kHeaderValueMax = 255;

// A parsed header. The values here are those of a header that says nothing.
//
//   header       value             field
//   Size         hexadecimal       size
//   UseLast      Yes / other       useLast
//   Exist        Yes / other       exist
//   GZ           Yes / other       gz
//   FileTime     hexadecimal       fileTime
//   FileName     text              fileName
//   Append       Yes / other       append
//   Hello        Yes / other       hello
struct SCFileInfo {
  bool useLast = false;   // the local copy is good as it is
  bool exist = true;      // the server has the file
  bool gz = false;        // the body belongs into the ".gz" companion
  bool append = false;    // the body continues the local file
  bool hello = false;     // the server waits for acknowledgements
  uint32_t fileTime = 0;  // seconds since 1970, UTC
  uint32_t size = 0;      // bytes of body behind the header
  CString fileName;       // carried, never used as a path
};

// Reads one header line of buf[pos..len). 1 with name and value zero-terminated, or 0 at the end of the block, at the
// end of the bytes, or when a name or value is too long; pos is behind every byte consumed in each case.
// Tabs, carriage returns, spaces and, behind the first, colons are dropped wherever they stand.
// REQUIRES: room for nameMax + 1 bytes at name and valueMax + 1 at value.
int ReadHttpCont(const char* buf, int& pos, int len, char* name, int nameMax, char* value, int valueMax);

// Reads header lines from the start of buf into info; returns the offset of the body: behind the empty line, or where
// reading stopped. Names match in any case, unknown ones are skipped, a repeated one overwrites. Numbers above 32 bits
// count as 0xFFFFFFFF; negative ones as what they are modulo 2^32.
int GetFileInfoByBuf(const char* buf, int len, SCFileInfo& info);
