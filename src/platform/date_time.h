// A date and time of day on the local wall clock, with an empty value.
//
// Dates are naive (no time zone), as the run history shows them. Two text forms:
//  - "mm-dd-yyyy hh:mm:ss", the form the library writes into SQL text and messages;
//  - "yyyy-mm-dd hh:mm:ss[.fff]", the form stored in SQLite columns so that dates sort as dates.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace gw {

class DateTime {
 public:
  // The empty date.
  constexpr DateTime() = default;

  static DateTime Now();
  // Fails with error 5 when the parts do not make a date.
  static DateTime FromParts(int year, int month, int day, int hour = 0, int minute = 0,
                            int second = 0, int millisecond = 0);
  // "mm-dd-yyyy hh:mm:ss", with "-" or "/" and an optional time ("m/d/yyyy" works too).
  static std::optional<DateTime> ParseUs(std::string_view text);
  // "yyyy-mm-dd", "yyyy-mm-dd hh:mm:ss", "yyyy-mm-ddThh:mm:ss", optional ".fff".
  static std::optional<DateTime> ParseIso(std::string_view text);
  // Either form.
  static std::optional<DateTime> Parse(std::string_view text);
  // OLE automation date: days since 1899-12-30, the fraction being the time of day.
  static DateTime FromOADate(double days);

  bool IsEmpty() const noexcept { return empty_; }

  int Year() const noexcept;
  int Month() const noexcept;
  int Day() const noexcept;
  int Hour() const noexcept;
  int Minute() const noexcept;
  int Second() const noexcept;
  int Millisecond() const noexcept;

  std::string ToUsText() const;   // "mm-dd-yyyy hh:mm:ss"; "" when empty
  std::string ToIsoText() const;  // "yyyy-mm-dd hh:mm:ss"; "" when empty
  double ToOADate() const noexcept;

  DateTime AddMilliseconds(std::int64_t ms) const;
  DateTime AddSeconds(std::int64_t s) const { return AddMilliseconds(s * 1000); }
  DateTime AddDays(std::int64_t d) const { return AddMilliseconds(d * 86'400'000); }
  // this - earlier, in milliseconds (0 when either is empty).
  std::int64_t MillisecondsSince(const DateTime& earlier) const noexcept;

  // Empty dates sort first and equal each other.
  friend bool operator==(const DateTime& a, const DateTime& b) noexcept {
    return a.empty_ == b.empty_ && (a.empty_ || a.ms_ == b.ms_);
  }
  friend std::strong_ordering operator<=>(const DateTime& a, const DateTime& b) noexcept {
    if (a.empty_ || b.empty_) return b.empty_ <=> a.empty_;
    return a.ms_ <=> b.ms_;
  }

 private:
  // Milliseconds since 1970-01-01 00:00:00 on the wall clock.
  std::int64_t ms_ = 0;
  bool empty_ = true;
};

}  // namespace gw
