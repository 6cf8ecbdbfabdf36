// CString: the byte string used everywhere inside the library. Its text is GB2312; UTF-8 appears only at the edges
// (file-system paths, JavaScript). It is a std::string with the editing operations and code-set conversions that the
// rest of the system needs. All positions and counts are bytes.
// Threads: no shared state; objects may be used from any thread, one thread at a time per object.
// A null text or set that is passed in counts as nothing to do or nothing to convert.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

class XVariant;

class CString : public std::string {
 public:
  CString() = default;
  CString(const char* text) : std::string(text != nullptr ? text : "") {}
  CString(const char* bytes, size_t len) : std::string(bytes, len) {}
  CString(const std::string& other) : std::string(other) {}
  CString(std::string&& other) noexcept : std::string(std::move(other)) {}

  // UCS-2LE text of len 16-bit units, converted to GB2312 as FromUtf16 does.
  CString(const unsigned short* src, unsigned int len);

  // The text of a variant: a string variant's own text (empty when it owns none), any other as ToStringA with
  // precision -1. Defined with the variant's conversions (value/XVariantConvert.cpp).
  explicit CString(const XVariant& value);

  // Erases the run of bytes equal to c at the start / the end / both.
  void TrimLeft(char c);
  void TrimRight(char c);
  void Trim(char c);

  // The same with a zero-terminated set of bytes. A zero byte inside the string is a member of every set.
  void TrimLeft(const char* set);
  void TrimRight(const char* set);
  void Trim(const char* set);

  // Replaces each occurrence of oldText by newText, from left to right; inserted text is not searched again.
  // Returns the number of replacements. An empty oldText replaces nothing and returns 0. Both may point into this.
  int Replace(const char* oldText, const char* newText);

  // Erases every byte equal to c; returns how many there were.
  int Remove(char c);

  // Returns the next token at or behind pos and moves pos one past the delimiter that ended it. Runs of delimiters
  // never give empty tokens; a zero byte inside the text ends a token and is not skipped. pos becomes -1 (and the
  // result is empty) when no token is left; a negative pos stays as it is. With a null or empty delims nothing is ever
  // found: pos stays while it lies inside the text, else is -1.
  CString Tokenize(const char* delims, int& pos) const;

  // Replaces the content by the GB2312 form of len UCS-2LE units. What precedes an unconvertible unit is kept and
  // one line goes to standard error; an unavailable conversion leaves the string empty.
  void FromUtf16(const unsigned short* src, unsigned int len);

  // Replaces the content by the GB2312 form of len UTF-8 bytes; failures as FromUtf16.
  void FromUtf8(const char* src, unsigned int len);

  // Sets out to the UTF-8 form of the whole string; failures as FromUtf16. out may be this object.
  void ToUtf8(CString& out) const;

  // The UCS-2LE form of the text up to its first zero byte; see the free ToUtf16.
  unsigned short* ToUtf16(unsigned int& outLen) const;
};
