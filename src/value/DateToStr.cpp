#include "value/DateToStr.h"

#include <cstdio>

namespace {

// One date field: its tokens in a pattern, and the format of the padded one.
struct DateField {
  const char* token;
  const char* paddedToken;
  const char* paddedFormat;
};

// In the order in which they are replaced. The year is padded with blanks, not zeros: intended behaviour.
constexpr DateField kFields[] = {
    {"$Y", "$2Y", "%2d"},  {"$M", "$2M", "%02d"}, {"$D", "$2D", "%02d"},
    {"$h", "$2h", "%02d"}, {"$m", "$2m", "%02d"}, {"$s", "$2s", "%02d"},
};
constexpr size_t kFieldCount = sizeof(kFields) / sizeof(kFields[0]);

constexpr size_t kNumberBuffer = 16;  // "-2147483648" and the terminator

CString Number(const char* format, int value) {
  char text[kNumberBuffer];
  snprintf(text, sizeof(text), format, value);
  return CString(text);
}

}  // namespace

int DateToStr(int year, int month, int day, int hour, int minute, int second, const CString& pattern, CString& out) {
  const int values[kFieldCount] = {year, month, day, hour, minute, second};
  int count = 0;
  out = pattern;
  for (size_t i = 0; i < kFieldCount; ++i) {
    const DateField& field = kFields[i];
    count = out.Replace(field.token, Number("%d", values[i]).c_str());
    if (count == 0) count = out.Replace(field.paddedToken, Number(field.paddedFormat, values[i]).c_str());
  }
  return count;
}
