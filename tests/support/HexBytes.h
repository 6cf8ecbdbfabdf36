// Bytes written as hexadecimal text, so that a test shows what is on the wire.
#pragma once

#include <cctype>
#include <stdexcept>
#include <string>

// "33 61 00" -> the three bytes; blanks are ignored.
inline std::string FromHex(const std::string& hex) {
  std::string bytes;
  std::string digits;
  for (const char c : hex) {
    if (c == ' ') continue;
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) throw std::invalid_argument("not hexadecimal: " + hex);
    digits += c;
    if (digits.size() < 2) continue;
    bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
    digits.clear();
  }
  if (!digits.empty()) throw std::invalid_argument("half a byte: " + hex);
  return bytes;
}

// The bytes as "33 61 00".
inline std::string ToHex(const std::string& bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  for (const char c : bytes) {
    const auto value = static_cast<unsigned char>(c);
    if (!hex.empty()) hex += ' ';
    hex += kDigits[value >> 4];
    hex += kDigits[value & 15];
  }
  return hex;
}
