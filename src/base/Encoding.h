// Conversions out of GB2312 and the ASCII lower-casing helper. The only users of iconv are here and in the CString
// members declared in CString.h. Each call opens and closes its own converter, so any thread may convert at any time.
#pragma once

#include "base/CString.h"

// Loads the converters of all conversions and keeps them for the life of the process. Without it the C library loads a
// converter from its file when it is first wanted; when that fails for want of a descriptor it never tries again, and
// every later conversion of the process fails. To be called early; any thread, any number of times.
void KeepConvertersLoaded();

// Lower-cases 'A'..'Z' in place up to the zero byte; all other bytes, GB2312 double-byte characters too, stay.
void _strlwr(char* s);

// Sets out to the UTF-8 form of len GB2312 bytes at src (len 0: up to the first zero byte). What precedes an
// unconvertible byte is kept and one line goes to standard error.
void ToUtf8(const char* src, CString& out, unsigned int len);

// Returns the UCS-2LE form of len GB2312 bytes at src (len 0: up to the first zero byte) and sets outLen to its length
// in 16-bit units; the caller frees it with delete[]. It is not terminated. Null, with outLen 0, on any failure: a
// partial result is thrown away, and one line goes to standard error.
unsigned short* ToUtf16(const char* src, unsigned int& outLen, unsigned int len);
