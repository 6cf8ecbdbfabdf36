// Every type of value that can come from a server, with the bytes of one value and what JavaScript gets for it.
#pragma once

#include <cstdint>
#include <string>

struct ValueType {
  uint16_t code;
  const char* bytes;  // of one value, hexadecimal; empty: the type has none
  const char* shown;  // as FakeNapi::Show gives it; "nothing": no value, undefined to JavaScript
};

constexpr ValueType kSizedTypes[] = {
    {2, "FF FF", "-1"},
    {3, "FE FF FF FF", "-2"},
    {4, "00 00 C0 3F", "1.5"},
    {5, "00 00 00 00 00 00 04 C0", "-2.5"},
    {7, "00 00 00 00 80 F8 D8 40", "nothing"},
    {8, "41 42 00", "'AB'"},
    {11, "05", "true"},
    {16, "FF", "255"},
    {17, "FE", "254"},
    {18, "FF FF", "65535"},
    {19, "FF FF FF FF", "4294967295"},
    {20, "01 02 03 04 05 06 07 08", "nothing"},
    {22, "00 00 00 80", "-2147483648"},
    {23, "00 00 00 80", "2147483648"},
};

constexpr ValueType kBareTypes[] = {
    {0, "", "nothing"},  {1, "", "nothing"},  {6, "", "nothing"},  {9, "", "nothing"},      {10, "", "nothing"},
    {12, "", "nothing"}, {13, "", "nothing"}, {14, "", "nothing"}, {15, "", "nothing"},     {21, "", "nothing"},
    {24, "", "nothing"}, {25, "", "nothing"}, {64, "", "nothing"}, {0x200C, "", "nothing"}, {0xFFFF, "", "nothing"},
};

// A number as two little-endian bytes.
inline std::string Word(unsigned int value) {
  return {static_cast<char>(value & 0xFF), static_cast<char>((value >> 8) & 0xFF)};
}
