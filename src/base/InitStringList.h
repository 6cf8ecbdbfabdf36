// Line-list files: one entry a line, GB2312 text, LF or CR LF line ends.
#pragma once

#include <vector>

#include "base/CString.h"

// The most entries of a list: what refers to them has 16 bits.
constexpr size_t kMaxListEntries = 65536;

// Fills list with the non-empty lines of the file at path (GB2312), each converted to UTF-8 without its line end.
// An entry's index is its place among the non-empty lines, from 0. A line longer than 255 bytes keeps its first 255,
// cut back to a whole character. Reading ends behind the last entry that a list may have. A list that is not empty is
// left as it is; a file that cannot be opened adds nothing; a read error ends the reading as the end of the file does.
void InitStringList(const char* path, std::vector<CString>& list);
