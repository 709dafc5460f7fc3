#include "text/b_string.h"

#include <variant>

#include "platform/error.h"
#include "platform/text.h"

namespace gw {

namespace {

constexpr std::string_view kSubStringLog = "BString.SubString(Start,Length)";

[[noreturn]] void ThrowInvalidArgument() {
  throw Error(errnum::kInvalidProcedureCall, "BString", "Invalid procedure call or argument");
}

// The runtime's `Mid` on byte positions, with SubString's argument rules.
std::string_view Cut(std::string_view s, long start, long length) {
  if (length == 0) return {};
  if (start < 1) ThrowInvalidArgument();
  if (length < 0 && length != BString::kToEnd) ThrowInvalidArgument();
  const auto from = static_cast<std::size_t>(start - 1);
  if (from >= s.size()) return {};
  if (length == BString::kToEnd) return s.substr(from);
  return s.substr(from, static_cast<std::size_t>(length));
}

// Cut, reported as SubString: the steps of the token operations are SubString calls, and a
// failure in one of them shows that frame in its call stack.
std::string_view SubView(std::string_view s, long start, long length = BString::kToEnd) {
  return ReportAs(kSubStringLog, [&] { return Cut(s, start, length); });
}

// The runtime's `InStr(1, s, needle)`: nothing is found in an empty text, and an empty needle is
// found at the start of any other.
long InStrFrom1(std::string_view s, std::string_view needle, bool case_sensitive) {
  if (s.empty()) return 0;
  return text::InStr(1, s, needle, !case_sensitive);
}

long ToLong(std::size_t n) { return static_cast<long>(n); }

}  // namespace

std::string_view BString::TextView(std::string& scratch) const {
  if (const auto* s = std::get_if<std::string>(&value_.Raw())) return *s;
  scratch = value_.ToString();
  return scratch;
}

std::string BString::ToString() const& {
  return ReportAs("BString.ToString", [&] { return value_.ToString(); });
}

std::string BString::ToString() && {
  return ReportAs("BString.ToString", [&] {
    if (auto* s = std::get_if<std::string>(&value_.Raw())) {
      return std::string(std::move(const_cast<std::string&>(*s)));
    }
    return value_.ToString();
  });
}

long BString::Length() const {
  return ReportAs("BString.Length", [&] {
    std::string scratch;
    return ToLong(TextView(scratch).size());
  });
}

bool BString::EqualTo(std::string_view other_string, bool case_sensitive) const {
  return ReportAs("BString.EqualTo(OtherString,CaseSensitive)", Args(other_string, case_sensitive),
                  [&] {
                    std::string scratch;
                    const std::string_view s = TextView(scratch);
                    return case_sensitive ? s == other_string : text::EqualsNoCase(s, other_string);
                  });
}

BString BString::ToLower() const {
  return ReportAs("BString.ToLower", [&] {
    std::string scratch;
    return BString(text::ToLower(TextView(scratch)));
  });
}

BString BString::ToUpper() const {
  return ReportAs("BString.ToUpper", [&] {
    std::string scratch;
    return BString(text::ToUpper(TextView(scratch)));
  });
}

BString BString::Trim() const {
  return ReportAs("BString.Trim", [&] {
    std::string scratch;
    return BString(text::TrimSpaces(TextView(scratch)));
  });
}

long BString::IndexOf(std::string_view str, bool case_sensitive) const {
  return ReportAs("BString.IndexOf(Str,CaseSensitive)", Args(str, case_sensitive), [&] {
    std::string scratch;
    return InStrFrom1(TextView(scratch), str, case_sensitive);
  });
}

long BString::LastIndexOf(std::string_view str, bool case_sensitive) const {
  return ReportAs("BString.LastIndexOf(Str,CaseSensitive)", Args(str, case_sensitive), [&] {
    std::string scratch;
    const std::string_view s = TextView(scratch);
    if (s.empty()) return 0L;
    if (str.empty()) return ToLong(s.size());
    const std::size_t hit = text::RFind(s, str, !case_sensitive);
    return hit == text::npos ? 0L : ToLong(hit + 1);
  });
}

BString BString::ReplaceStr(std::string_view old_value, std::string_view new_value,
                            bool case_sensitive) const {
  return ReportAs(
      "BString.ReplaceStr(OldValue,NewValue,CaseSensitive)",
      Args(old_value, new_value, case_sensitive), [&] {
        std::string scratch;
        return BString(text::ReplaceAll(TextView(scratch), old_value, new_value, !case_sensitive));
      });
}

BString BString::SubString(long start, long length) const {
  return ReportAs(kSubStringLog, [&] {
    std::string scratch;
    return BString(Cut(TextView(scratch), start, length));
  });
}

BString BString::Remove(long start_idx, long count) const {
  return ReportAs("BString.Remove(startIdx,Count)", Args(start_idx, count), [&] {
    std::string scratch;
    const std::string_view s = TextView(scratch);
    const std::string_view head = SubView(s, 1, start_idx - 1);
    const std::string_view tail = SubView(s, start_idx + count);
    std::string out;
    out.reserve(head.size() + tail.size());
    out.append(head).append(tail);
    return BString(std::move(out));
  });
}

BString BString::CharAt(long position) const {
  return ReportAs("BString.CharAt(Position)", Args(position), [&] {
    std::string scratch;
    return BString(SubView(TextView(scratch), position, 1));
  });
}

bool BString::CompSubStr(std::string_view str, long position, bool case_sensitive) const {
  return ReportAs(
      "BString.CompSubStr(Str,Position,CaseSensitive)", Args(str, position, case_sensitive), [&] {
        std::string scratch;
        const std::string_view part = SubView(TextView(scratch), position, ToLong(str.size()));
        return case_sensitive ? part == str : text::EqualsNoCase(part, str);
      });
}

BString BString::ValueBetweenTokens(std::string_view start_token, std::string_view end_token,
                                    long start_position, bool case_sensitive) const {
  return ReportAs("BString.ValueBetweenTokens(StartToken,EndToken,StartPos,CaseSensitive)",
                  Args(start_token, end_token), [&] {
                    std::string scratch;
                    std::string_view search = SubView(TextView(scratch), start_position);
                    const long p = InStrFrom1(search, start_token, case_sensitive);
                    if (p < 1) return BString(std::string());
                    search = search.substr(static_cast<std::size_t>(p - 1) + start_token.size());
                    const long p2 = InStrFrom1(search, end_token, case_sensitive);
                    if (p2 < 1) return BString(std::string());
                    return BString(search.substr(0, static_cast<std::size_t>(p2 - 1)));
                  });
}

BString BString::ValueBetweenTokensAdvanced(std::string_view start_token,
                                            std::string_view end_token, long start_position,
                                            bool case_sensitive,
                                            bool return_empty_when_token_not_found,
                                            std::string* string_before_out,
                                            std::string* string_after_out) const {
  return ReportAs(
      "BString.ValueBetweenTokensAdvanced(StartToken,EndToken,StartPos,CaseSensitive,"
      "ReturnEmptyWhenTokenNotFound,StringBeforeOut,StringAfterOut)",
      Args(start_token, end_token), [&] {
        std::string scratch;
        const std::string_view s = TextView(scratch);
        const std::string_view search = SubView(s, start_position);
        const long p1 = InStrFrom1(search, start_token, case_sensitive);
        long p2 = 0;
        std::string_view value;
        if (p1 >= 1) {
          const std::string_view rest =
              search.substr(static_cast<std::size_t>(p1 - 1) + start_token.size());
          p2 = InStrFrom1(rest, end_token, case_sensitive);
          if (p2 >= 1) {
            value = rest.substr(0, static_cast<std::size_t>(p2 - 1));
          } else if (!return_empty_when_token_not_found) {
            value = rest;
          }
        } else if (!return_empty_when_token_not_found) {
          p2 = InStrFrom1(search, end_token, case_sensitive);
          value = p2 >= 1 ? search.substr(0, static_cast<std::size_t>(p2 - 1)) : search;
        }

        std::string_view before;
        const bool write_before = p1 > 1;
        if (write_before) {
          long n = p1 + start_position - 2;
          if (p1 + start_position <= 2) n = p1 + start_position - 1;
          before = SubView(s, 1, n);
        }
        // The formula is evaluated (and can fail) even when the caller does not ask for the text.
        const long after_start =
            p1 + start_position + p2 + ToLong(start_token.size()) + ToLong(end_token.size()) - 2;
        const std::string_view after = SubView(s, after_start);

        BString result{std::string(value)};
        if (write_before && string_before_out) string_before_out->assign(before);
        if (string_after_out) string_after_out->assign(after);
        return result;
      });
}

BString BString::ReplaceInsideTokens(std::string_view start_token, std::string_view end_token,
                                     std::string_view pattern,
                                     std::string_view replace_string) const {
  return ReportAs(
      "BString.ReplaceInsideTokens(StartToken,EndToken,Pattern,ReplaceString)",
      Args(start_token, end_token, pattern, replace_string), [&] {
        BString working(ToString());
        // An empty start token is found at every start position, so the walk would never end.
        if (start_token.empty()) return working;
        std::string before, after;
        std::string stretch =
            working
                .ValueBetweenTokensAdvanced(start_token, end_token, 1, false, true, &before, &after)
                .ToString();
        while (!stretch.empty()) {
          const std::string replaced = text::ReplaceAll(stretch, pattern, replace_string, true);
          const long next = ToLong(before.size() + start_token.size() + replaced.size());
          std::string joined;
          joined.reserve(before.size() + start_token.size() + replaced.size() + end_token.size() +
                         after.size());
          joined.append(before)
              .append(start_token)
              .append(replaced)
              .append(end_token)
              .append(after);
          working.SetValue(std::move(joined));
          before.clear();
          after.clear();
          stretch = working
                        .ValueBetweenTokensAdvanced(start_token, end_token, next, false, true,
                                                    &before, &after)
                        .ToString();
        }
        return working;
      });
}

}  // namespace gw
