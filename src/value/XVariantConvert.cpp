// Conversions of a variant. Everything here gives equal results on 32-bit and 64-bit machines: integers are read and
// truncated in 64 bits and then cut to the target's width, whatever the width of long is.
//
// Numbers are printed and read with the decimal point of the process's LC_NUMERIC locale; Node.js leaves it at "C".
// Dates go through the process's time zone (TZ), as the C library keeps it.
//
// On 32-bit x86 the SSE registers are asked for (Node.js needs them anyway): the x87 registers keep more bits than a
// float or a double has, so half a unit or the last second would be rounded otherwise than elsewhere.
#if defined(__i386__) && defined(__GNUC__) && !defined(__clang__)
#pragma GCC target("sse2,fpmath=sse")
#endif

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include "value/XVariant.h"

namespace {

constexpr int kPlainPrecision = -1;  // "%g"
constexpr int kMaxPrecision = 10;
constexpr double kEpochDays = 25569.0;  // 1970-01-01 in days since 1899-12-30
constexpr double kDaySeconds = 86400.0;
constexpr size_t kFloatText = 336;  // sign, 309 digits of the largest double, point, 10 decimals, terminator
constexpr size_t kDateText = 96;    // a year of up to 20 characters, five numbers of up to 11, separators, terminator

bool HasDecimals(int precision) { return precision >= 1 && precision <= kMaxPrecision; }

const char* TextOf(const std::string* text) { return text != nullptr ? text->c_str() : ""; }

int32_t CutTo32(int64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }

// Truncates toward zero; 0 for NaN and for what 64 bits cannot hold.
int64_t Truncate(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63, exact
  return value >= -kLimit && value < kLimit ? static_cast<int64_t>(value) : 0;
}

// Half is added in the value's own precision: 0.49999997f becomes 1.0f and so rounds to 1.
template <typename Float>
Float AddHalf(Float value) {
  const Float half = static_cast<Float>(0.5);
  return value < 0 ? value - half : value + half;
}

void PrintInteger(int64_t value, int precision, CString& text) {
  text = std::to_string(value);
  if (HasDecimals(precision)) text.append(1, '.').append(static_cast<size_t>(precision), '0');
}

// withHalf: value moved away from zero by one half, for precision 0.
void PrintFloat(double value, double withHalf, int precision, CString& text) {
  char buffer[kFloatText];
  if (precision == 0) {
    text = std::to_string(CutTo32(Truncate(withHalf)));
    return;
  }
  if (HasDecimals(precision)) {
    snprintf(buffer, sizeof(buffer), "%.*f", precision, value);
  } else {
    snprintf(buffer, sizeof(buffer), "%g", value);
  }
  text = buffer;
}

// The wall-clock date of a day count. The half second rounds only dates from 1970 on: truncation goes toward zero, so
// whole seconds before 1970 (UTC) print one second late. Daylight saving moves the text, not the day count. Both are
// intended behaviour. NaN and day counts beyond 64-bit seconds print as second 0.
void PrintDate(double days, CString& text) {
  tzset();
  const double seconds = (days - kEpochDays) * kDaySeconds + static_cast<double>(timezone) + 0.5;
  const int64_t whole = Truncate(seconds);
  const time_t when = static_cast<time_t>(whole);
  struct tm local = {};
  text.clear();
  if (when != whole || localtime_r(&when, &local) == nullptr) return;
  char buffer[kDateText];
  snprintf(buffer, sizeof(buffer), "%" PRId64 "-%02d-%02d %02d:%02d:%02d", int64_t{local.tm_year} + 1900,
           local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  text = buffer;
}

// Hexadecimal "RRGGBB" gives 0xBBGGRR.
int64_t ColourOf(const char* hex) {
  const uint32_t rgb = static_cast<uint32_t>(strtoull(hex, nullptr, 16));
  return ((rgb & 0x0000ff) << 16) | (rgb & 0x00ff00) | ((rgb & 0xff0000) >> 16);
}

// Read unsigned in 64 bits: a minus sign negates, what is larger gives all ones.
int64_t IntegerOf(const char* text) {
  if (*text == '#') return ColourOf(text + 1);
  return static_cast<int64_t>(strtoull(text, nullptr, 10));
}

struct DateFields {
  int32_t year = 2000, month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

// Reads up to six integers as sscanf does with "%d-%d-%d %d:%d:%d" and returns how many; fields not present keep their
// values. Written out because sscanf leaves a number outside int undefined: here its low 32 bits count.
int ScanDate(const char* text, DateFields& date) {
  int32_t* const fields[] = {&date.year, &date.month, &date.day, &date.hour, &date.minute, &date.second};
  constexpr char kSeparators[] = {'\0', '-', '-', ' ', ':', ':'};  // in front of each field
  int count = 0;
  for (int32_t* field : fields) {
    const char separator = kSeparators[count];
    // strtoll skips blanks, so the blank in front of the hour needs no step of its own.
    if (separator != '\0' && separator != ' ' && *text++ != separator) break;
    char* end = nullptr;
    const int64_t number = strtoll(text, &end, 10);
    if (end == text) break;
    *field = CutTo32(number);
    text = end;
    ++count;
  }
  return count;
}

// The day count of a wall-clock date; fields outside their range carry over. A date that mktime cannot express counts
// as its result -1 does.
double DaysOf(const DateFields& date) {
  struct tm local = {};
  local.tm_year = CutTo32(int64_t{date.year} - 1900);
  local.tm_mon = CutTo32(int64_t{date.month} - 1);
  local.tm_mday = date.day;
  local.tm_hour = date.hour;
  local.tm_min = date.minute;
  local.tm_sec = date.second;
  local.tm_isdst = 0;
  const int64_t seconds = mktime(&local);  // a statement of its own: it is mktime that brings timezone up to date
  return static_cast<double>(seconds - timezone) / kDaySeconds + kEpochDays;
}

}  // namespace

CString::CString(const XVariant& value) { value.ToStringA(*this, kPlainPrecision); }

bool XVariant::ToStringA(CString& text, int precision) const {
  switch (vt) {
    case VT_I2:
    case VT_I4:
    case VT_INT:
    case VT_I1:
    case VT_UI1:
    case VT_UI2:
    case VT_UI4:
    case VT_UINT:
      PrintInteger(ToInt64(), precision, text);
      return true;
    case VT_I8:
      text = std::to_string(CutTo32(i64));  // deliberate: the low 32 bits, never with decimals
      return true;
    case VT_R4:
      PrintFloat(static_cast<double>(f32), static_cast<double>(AddHalf(f32)), precision, text);
      return true;
    case VT_R8:
      PrintFloat(f64, AddHalf(f64), precision, text);
      return true;
    case VT_DATE:
      PrintDate(f64, text);
      return true;
    case VT_BSTR:
      text = TextOf(str);
      return true;
    case VT_BOOL:
      text = byte != 0 ? "1" : "0";
      return true;
    default:
      text.clear();
      return false;
  }
}

float XVariant::ToFloat() const {
  if (vt == VT_R4) return f32;
  if (vt == VT_I8) return static_cast<float>(i64);  // not by way of double: one rounding only
  return static_cast<float>(ToDouble());            // what is too large gives an infinity
}

double XVariant::ToDouble() const {
  switch (vt) {
    case VT_R4:
      return static_cast<double>(f32);
    case VT_R8:
    case VT_DATE:
      return f64;
    case VT_BSTR:
      return strtod(TextOf(str), nullptr);
    case VT_BOOL:
      return byte != 0 ? 1.0 : 0.0;
    default:
      return static_cast<double>(ToInt64());
  }
}

double XVariant::ToDate() const {
  if (vt != VT_BSTR) return ToDouble();
  DateFields date;
  if (ScanDate(TextOf(str), date) == 0) return 0.0;
  return DaysOf(date);
}

int32_t XVariant::ToInt() const { return CutTo32(ToInt64()); }

int64_t XVariant::ToInt64() const {
  switch (vt) {
    case VT_I2:
      return i16;
    case VT_UI2:
      return u16;
    case VT_I4:
    case VT_INT:
      return i32;
    case VT_UI4:
    case VT_UINT:
      return u32;
    case VT_R4:
      return Truncate(static_cast<double>(f32));
    case VT_R8:
    case VT_DATE:
      return Truncate(f64);
    case VT_BSTR:
      return IntegerOf(TextOf(str));
    case VT_BOOL:
    case VT_I1:
    case VT_UI1:
      return byte;  // deliberate: type 16 too is read as unsigned
    case VT_I8:
      return i64;
    default:
      return 0;
  }
}

bool XVariant::ToBool() const { return ToInt() != 0; }

int XVariant::ChangeType(uint16_t newType, const XVariant* source) {
  if (vt == newType) return 0;
  const XVariant old(std::move(*this));
  const XVariant& from = source != nullptr ? *source : old;
  Clear();
  vt = newType;
  switch (newType) {
    case VT_I2:
    case VT_UI2:
      u16 = static_cast<uint16_t>(from.ToInt());
      return 0;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
      i32 = from.ToInt();
      return 0;
    case VT_I1:
    case VT_UI1:
      byte = static_cast<uint8_t>(from.ToInt());
      return 0;
    case VT_BOOL:
      byte = static_cast<uint8_t>(from.ToInt() != 0);
      return 0;
    case VT_R4:
      f32 = from.ToFloat();
      return 0;
    case VT_R8:
      f64 = from.ToDouble();
      return 0;
    case VT_DATE:
      f64 = from.ToDate();
      return 0;
    case VT_I8:
      i64 = from.ToInt64();
      return 0;
    case VT_BSTR: {
      const CString text(from);
      SetString(text.c_str(), text.size());
      return 0;
    }
    default:
      return 1;
  }
}
