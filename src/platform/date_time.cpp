#include "platform/date_time.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "platform/error.h"

namespace gw {

namespace {

constexpr std::int64_t kMsPerDay = 86'400'000;

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's algorithm).
constexpr std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) noexcept {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

struct Civil {
  std::int64_t year;
  unsigned month;
  unsigned day;
};

constexpr Civil CivilFromDays(std::int64_t z) noexcept {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const std::int64_t y = static_cast<std::int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  return {y + (m <= 2), m, d};
}

bool IsLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(int y, int m) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeap(y) ? 29 : kDays[m - 1];
}

bool ValidParts(int y, int mo, int d, int h, int mi, int s, int ms) {
  return y >= 1 && y <= 9999 && mo >= 1 && mo <= 12 && d >= 1 && d <= DaysInMonth(y, mo) &&
         h >= 0 && h <= 23 && mi >= 0 && mi <= 59 && s >= 0 && s <= 59 && ms >= 0 && ms <= 999;
}

// Reads an unsigned number of 1 to `max_digits` digits at `i`.
bool ReadNumber(std::string_view t, std::size_t& i, int max_digits, int& out) {
  int digits = 0;
  out = 0;
  while (i < t.size() && t[i] >= '0' && t[i] <= '9' && digits < max_digits) {
    out = out * 10 + (t[i] - '0');
    ++i;
    ++digits;
  }
  return digits > 0;
}

bool ReadTime(std::string_view t, std::size_t& i, int& h, int& mi, int& s, int& ms) {
  h = mi = s = ms = 0;
  if (!ReadNumber(t, i, 2, h)) return false;
  if (i >= t.size() || t[i] != ':') return false;
  ++i;
  if (!ReadNumber(t, i, 2, mi)) return false;
  if (i < t.size() && t[i] == ':') {
    ++i;
    if (!ReadNumber(t, i, 2, s)) return false;
    if (i < t.size() && t[i] == '.') {
      ++i;
      const std::size_t start = i;
      int frac = 0;
      if (!ReadNumber(t, i, 3, frac)) return false;
      for (std::size_t n = i - start; n < 3; ++n) frac *= 10;
      ms = frac;
      while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i;  // finer digits are dropped
    }
  }
  // An AM/PM marker.
  while (i < t.size() && t[i] == ' ') ++i;
  if (i + 1 < t.size() && (t[i + 1] == 'M' || t[i + 1] == 'm')) {
    const char c = t[i];
    if (c == 'P' || c == 'p') {
      if (h < 12) h += 12;
      i += 2;
    } else if (c == 'A' || c == 'a') {
      if (h == 12) h = 0;
      i += 2;
    }
  }
  return true;
}

std::optional<DateTime> Make(int y, int mo, int d, int h, int mi, int s, int ms) {
  if (!ValidParts(y, mo, d, h, mi, s, ms)) return std::nullopt;
  return DateTime::FromParts(y, mo, d, h, mi, s, ms);
}

}  // namespace

DateTime DateTime::Now() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t secs = system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&secs, &local);
  const auto ms =
      static_cast<int>(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
  return FromParts(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                   local.tm_min, local.tm_sec, ms);
}

DateTime DateTime::FromParts(int year, int month, int day, int hour, int minute, int second,
                             int millisecond) {
  if (!ValidParts(year, month, day, hour, minute, second, millisecond)) {
    throw Error(errnum::kInvalidProcedureCall, "DateTime", "Invalid procedure call or argument");
  }
  DateTime dt;
  dt.empty_ = false;
  dt.ms_ =
      DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * kMsPerDay +
      ((hour * 60 + minute) * 60 + second) * 1000LL + millisecond;
  return dt;
}

std::optional<DateTime> DateTime::ParseUs(std::string_view t) {
  std::size_t i = 0;
  while (i < t.size() && t[i] == ' ') ++i;
  int mo, d, y;
  if (!ReadNumber(t, i, 2, mo)) return std::nullopt;
  if (i >= t.size() || (t[i] != '-' && t[i] != '/')) return std::nullopt;
  const char sep = t[i++];
  if (!ReadNumber(t, i, 2, d)) return std::nullopt;
  if (i >= t.size() || t[i] != sep) return std::nullopt;
  ++i;
  if (!ReadNumber(t, i, 4, y)) return std::nullopt;
  int h = 0, mi = 0, s = 0, ms = 0;
  while (i < t.size() && t[i] == ' ') ++i;
  if (i < t.size() && !ReadTime(t, i, h, mi, s, ms)) return std::nullopt;
  while (i < t.size() && t[i] == ' ') ++i;
  if (i != t.size()) return std::nullopt;
  return Make(y, mo, d, h, mi, s, ms);
}

std::optional<DateTime> DateTime::ParseIso(std::string_view t) {
  std::size_t i = 0;
  while (i < t.size() && t[i] == ' ') ++i;
  int y, mo, d;
  const std::size_t ystart = i;
  if (!ReadNumber(t, i, 4, y) || i - ystart != 4) return std::nullopt;
  if (i >= t.size() || t[i] != '-') return std::nullopt;
  ++i;
  if (!ReadNumber(t, i, 2, mo)) return std::nullopt;
  if (i >= t.size() || t[i] != '-') return std::nullopt;
  ++i;
  if (!ReadNumber(t, i, 2, d)) return std::nullopt;
  int h = 0, mi = 0, s = 0, ms = 0;
  if (i < t.size() && (t[i] == ' ' || t[i] == 'T')) {
    ++i;
    if (!ReadTime(t, i, h, mi, s, ms)) return std::nullopt;
  }
  while (i < t.size() && t[i] == ' ') ++i;
  if (i != t.size()) return std::nullopt;
  return Make(y, mo, d, h, mi, s, ms);
}

std::optional<DateTime> DateTime::Parse(std::string_view text) {
  if (auto iso = ParseIso(text)) return iso;
  return ParseUs(text);
}

DateTime DateTime::FromOADate(double days) {
  // 1899-12-30 is day -25569 from 1970-01-01. Negative OA dates count the time of day forwards.
  const double whole = std::trunc(days);
  const double frac = std::fabs(days - whole);
  DateTime dt;
  dt.empty_ = false;
  dt.ms_ = (static_cast<std::int64_t>(whole) - 25569) * kMsPerDay +
           static_cast<std::int64_t>(std::llround(frac * kMsPerDay));
  return dt;
}

double DateTime::ToOADate() const noexcept {
  if (empty_) return 0.0;
  const std::int64_t day = (ms_ >= 0 ? ms_ : ms_ - (kMsPerDay - 1)) / kMsPerDay;
  const std::int64_t rest = ms_ - day * kMsPerDay;
  const double oa_day = static_cast<double>(day + 25569);
  const double frac = static_cast<double>(rest) / kMsPerDay;
  return oa_day >= 0 ? oa_day + frac : oa_day - frac;
}

namespace {
struct Parts {
  int y, mo, d, h, mi, s, ms;
};
Parts Split(std::int64_t ms_total) {
  const std::int64_t day = (ms_total >= 0 ? ms_total : ms_total - (kMsPerDay - 1)) / kMsPerDay;
  std::int64_t rest = ms_total - day * kMsPerDay;
  const Civil c = CivilFromDays(day);
  Parts p{};
  p.y = static_cast<int>(c.year);
  p.mo = static_cast<int>(c.month);
  p.d = static_cast<int>(c.day);
  p.ms = static_cast<int>(rest % 1000);
  rest /= 1000;
  p.s = static_cast<int>(rest % 60);
  rest /= 60;
  p.mi = static_cast<int>(rest % 60);
  p.h = static_cast<int>(rest / 60);
  return p;
}
}  // namespace

int DateTime::Year() const noexcept { return empty_ ? 1899 : Split(ms_).y; }
int DateTime::Month() const noexcept { return empty_ ? 12 : Split(ms_).mo; }
int DateTime::Day() const noexcept { return empty_ ? 30 : Split(ms_).d; }
int DateTime::Hour() const noexcept { return empty_ ? 0 : Split(ms_).h; }
int DateTime::Minute() const noexcept { return empty_ ? 0 : Split(ms_).mi; }
int DateTime::Second() const noexcept { return empty_ ? 0 : Split(ms_).s; }
int DateTime::Millisecond() const noexcept { return empty_ ? 0 : Split(ms_).ms; }

std::string DateTime::ToUsText() const {
  if (empty_) return {};
  const Parts p = Split(ms_);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%02d-%02d-%04d %02d:%02d:%02d", p.mo, p.d, p.y, p.h, p.mi, p.s);
  return buf;
}

std::string DateTime::ToIsoText() const {
  if (empty_) return {};
  const Parts p = Split(ms_);
  char buf[40];
  if (p.ms != 0) {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d", p.y, p.mo, p.d, p.h, p.mi,
                  p.s, p.ms);
  } else {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", p.y, p.mo, p.d, p.h, p.mi, p.s);
  }
  return buf;
}

DateTime DateTime::AddMilliseconds(std::int64_t ms) const {
  DateTime dt = *this;
  if (dt.empty_) {
    dt = FromOADate(0.0);
  }
  dt.ms_ += ms;
  return dt;
}

std::int64_t DateTime::MillisecondsSince(const DateTime& earlier) const noexcept {
  if (empty_ || earlier.empty_) return 0;
  return ms_ - earlier.ms_;
}

}  // namespace gw
