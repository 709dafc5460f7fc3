#include "text/c_string.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <istream>
#include <ostream>

#include "platform/error.h"

namespace gw {

namespace {

constexpr std::string_view kSource = "CString";

[[noreturn]] void ThrowInvalidLength() {
  throw Error(errnum::kInvalidProcedureCall, std::string(kSource), "Invalid length");
}

[[noreturn]] void ThrowInvalidArgument() {
  throw Error(errnum::kInvalidProcedureCall, std::string(kSource),
              "Invalid procedure call or argument");
}

std::size_t Size(long n) { return static_cast<std::size_t>(n); }

}  // namespace

// ---- HorspoolSearcher ---------------------------------------------------------------------------

void HorspoolSearcher::SetPattern(std::string_view pattern) {
  if (pattern == pattern_) return;
  pattern_.assign(pattern);
  const std::size_t m = pattern_.size();
  const auto* p = reinterpret_cast<const unsigned char*>(pattern_.data());
  shift_.fill(static_cast<std::uint32_t>(m));
  for (std::size_t i = 0; i < m; ++i) shift_[p[i]] = static_cast<std::uint32_t>(m - 1 - i);
  mismatch_shift_ = m == 0 ? 1 : m;
  for (std::size_t j = m > 0 ? m - 1 : 0; j-- > 0;) {
    if (p[j] == p[m - 1]) {
      mismatch_shift_ = m - 1 - j;
      break;
    }
  }
}

long HorspoolSearcher::Find(std::string_view text, long start_pos) const noexcept {
  const std::size_t m = pattern_.size();
  const std::size_t n = text.size();
  if (m == 0) return 0;
  if (start_pos < 1) start_pos = 1;
  const std::size_t from = Size(start_pos - 1);
  if (from >= n || m > n - from) return 0;
  const auto* t = reinterpret_cast<const unsigned char*>(text.data());
  const auto* p = reinterpret_cast<const unsigned char*>(pattern_.data());
  if (m == 1) {
    const void* hit = std::memchr(t + from, p[0], n - from);
    return hit ? static_cast<long>(static_cast<const unsigned char*>(hit) - t) + 1 : 0;
  }
  const std::size_t last = m - 1;
  std::size_t pos = from + last;  // the byte under the pattern's last character
  while (pos < n) {
    const std::uint32_t s = shift_[t[pos]];
    if (s != 0) {
      pos += s;
      continue;
    }
    if (std::memcmp(t + pos - last, p, last) == 0) return static_cast<long>(pos - last) + 1;
    pos += mismatch_shift_;
  }
  return 0;
}

// ---- CString ------------------------------------------------------------------------------------

CString::CString() { SetBufferSize(kInitialCapacity); }

CString::CString(std::string_view value) {
  SetBufferSize(kInitialCapacity);
  SetValue(value);
}

void CString::SetBufferSize(long new_size, bool clear_it) {
  ReportAs("CString.SetBufferSize(newSize,clearIt)", Args(new_size, clear_it), [&] {
    if (new_size < 0) ThrowInvalidArgument();
    if (clear_it && length_ == 0) {
      buffer_.assign(Size(new_size), '\0');
    } else {
      buffer_.resize(Size(new_size), '\0');
    }
    length_ = std::min(length_, new_size);
  });
}

void CString::Reserve(std::size_t needed) {
  if (needed <= buffer_.size()) return;
  buffer_.resize(std::max(needed, buffer_.size() * 2), '\0');
}

void CString::SetValue(std::string_view value) {
  // `value` may point into our own buffer (`c.SetValue(c.View().substr(3))`).
  const bool inside = !buffer_.empty() && std::less_equal<>()(buffer_.data(), value.data()) &&
                      std::less<>()(value.data(), buffer_.data() + buffer_.size());
  if (inside) {
    if (!value.empty()) std::memmove(buffer_.data(), value.data(), value.size());
  } else {
    Reserve(value.size());
    if (!value.empty()) std::memcpy(buffer_.data(), value.data(), value.size());
  }
  length_ = static_cast<long>(value.size());
}

void CString::SetLength(long new_length) {
  if (new_length < 0) ThrowInvalidLength();
  if (new_length > length_) {
    Reserve(Size(new_length));
    std::fill(buffer_.begin() + length_, buffer_.begin() + new_length, ' ');
  }
  length_ = new_length;
}

CString CString::Left(long num_chars) const {
  if (num_chars < 0) ThrowInvalidLength();
  return CString(View().substr(0, Size(num_chars)));
}

CString CString::Right(long num_chars) const {
  if (num_chars < 0) ThrowInvalidLength();
  const std::size_t n = std::min(Size(num_chars), Size(length_));
  return CString(View().substr(Size(length_) - n));
}

CString CString::Mid(long start_pos, std::optional<long> num_chars) const {
  if (num_chars && *num_chars < 0) ThrowInvalidLength();
  return ReportAs("CString.Mid(startPos,NumChars)", Args(start_pos, num_chars), [&] {
    if (start_pos < 1) ThrowInvalidArgument();
    const std::size_t from = Size(start_pos - 1);
    if (from >= Size(length_)) return CString();
    return CString(View().substr(from, num_chars ? Size(*num_chars) : std::string_view::npos));
  });
}

void CString::SetLeft(long num_chars, std::string_view value) {
  if (num_chars < 0) ThrowInvalidLength();
  const std::size_t n = std::min({Size(num_chars), Size(length_), value.size()});
  if (n > 0) std::memmove(buffer_.data(), value.data(), n);
}

void CString::SetRight(long num_chars, std::string_view value) {
  if (num_chars < 0) ThrowInvalidLength();
  const std::size_t region = std::min(Size(num_chars), Size(length_));
  const std::size_t n = std::min(region, value.size());
  if (n > 0) std::memmove(buffer_.data() + (Size(length_) - region), value.data(), n);
}

void CString::SetMid(long start_pos, std::optional<long> num_chars, std::string_view value) {
  if (num_chars && *num_chars < 0) ThrowInvalidLength();
  ReportAs("CString.Mid(startPos,NumChars)", Args(start_pos, num_chars), [&] {
    if (start_pos < 1) ThrowInvalidArgument();
    const std::size_t from = Size(start_pos - 1);
    if (from >= Size(length_)) return;
    std::size_t region = Size(length_) - from;
    if (num_chars) region = std::min(region, Size(*num_chars));
    const std::size_t n = std::min(region, value.size());
    if (n > 0) std::memmove(buffer_.data() + from, value.data(), n);
  });
}

std::int16_t CString::Asc() const {
  return ReportAs("CString.Asc", [&] {
    if (length_ == 0) ThrowInvalidArgument();
    return static_cast<std::int16_t>(static_cast<unsigned char>(buffer_[0]));
  });
}

unsigned char CString::Char(long index) const {
  return ReportAs("CString.char(index)", Args(index), [&] {
    if (index < 1 || index > length_) {
      throw Error(errnum::kSubscriptOutOfRange, std::string(kSource), "Subscript out of range");
    }
    return static_cast<unsigned char>(buffer_[Size(index - 1)]);
  });
}

void CString::SetChar(long index, unsigned char value) {
  ReportAs("CString.char(index)", Args(index), [&] {
    if (index < 1 || index > length_) {
      throw Error(errnum::kSubscriptOutOfRange, std::string(kSource), "Subscript out of range");
    }
    buffer_[Size(index - 1)] = static_cast<char>(value);
  });
}

CString& CString::UCase() noexcept {
  for (long k = 0; k < length_; ++k) buffer_[Size(k)] = text::AsciiToUpper(buffer_[Size(k)]);
  return *this;
}

CString& CString::LCase() noexcept {
  for (long k = 0; k < length_; ++k) buffer_[Size(k)] = text::AsciiToLower(buffer_[Size(k)]);
  return *this;
}

CString& CString::ReverseStr() noexcept {
  auto* b = reinterpret_cast<unsigned char*>(buffer_.data());
  const std::size_t n = Size(length_);
  std::reverse(b, b + n);
  // Each multi-byte character now stands as its continuation bytes followed by its lead byte:
  // turn those back.
  std::size_t i = 0;
  while (i < n) {
    if ((b[i] & 0xC0) != 0x80) {
      ++i;
      continue;
    }
    std::size_t j = i;
    while (j < n && (b[j] & 0xC0) == 0x80) ++j;
    if (j < n && b[j] >= 0xC0) {
      std::reverse(b + i, b + j + 1);
      i = j + 1;
    } else {
      i = j;
    }
  }
  return *this;
}

CString& CString::Append(std::string_view text) {
  if (text.empty()) return *this;
  const bool inside = std::less_equal<>()(buffer_.data(), text.data()) &&
                      std::less<>()(text.data(), buffer_.data() + buffer_.size());
  const std::size_t offset = inside ? Size(text.data() - buffer_.data()) : 0;
  Reserve(Size(length_) + text.size());
  const char* source = inside ? buffer_.data() + offset : text.data();
  std::memmove(buffer_.data() + length_, source, text.size());
  length_ += static_cast<long>(text.size());
  return *this;
}

CString& CString::Replace(std::string_view search_str, std::string_view replace_str, long start_pos,
                          bool is_case_sensitive) {
  return ReportAs("CString.Replace(SearchStr,ReplaceStr,startPos,IsCaseSensitive)",
                  Args(search_str, replace_str, start_pos, is_case_sensitive), [&]() -> CString& {
                    if (start_pos < 1) start_pos = 1;
                    const std::string_view whole = View();
                    std::string out;
                    std::size_t at = std::min(Size(start_pos - 1), whole.size());
                    if (!search_str.empty()) {
                      text::NoCaseSearcher no_case;
                      if (!is_case_sensitive) no_case = text::NoCaseSearcher(search_str);
                      while (at < whole.size()) {
                        std::size_t hit;
                        if (is_case_sensitive) {
                          const long p = Find(search_str, static_cast<long>(at) + 1);
                          hit = p > 0 ? Size(p - 1) : text::npos;
                        } else {
                          hit = no_case.Find(whole, at);
                        }
                        if (hit == text::npos) break;
                        out.append(whole.substr(at, hit - at)).append(replace_str);
                        at = hit + search_str.size();
                      }
                    }
                    out.append(whole.substr(at));
                    SetValue(out);
                    return *this;
                  });
}

long CString::Find(std::string_view search, long start_pos) const {
  search_cache_.SetPattern(search);
  return search_cache_.Find(View(), start_pos);
}

void CString::WriteToFile(std::ostream& out, bool prefix_length) const {
  ReportAs("CString.WriteToFile(FileNum,PrefixLength)", [&] {
    if (prefix_length) {
      const auto n = static_cast<std::uint32_t>(length_);
      const char bytes[4] = {static_cast<char>(n & 0xFF), static_cast<char>((n >> 8) & 0xFF),
                             static_cast<char>((n >> 16) & 0xFF),
                             static_cast<char>((n >> 24) & 0xFF)};
      out.write(bytes, 4);
    }
    out.write(buffer_.data(), length_);
    if (!out) throw Error(errnum::kDeviceIOError, std::string(kSource), "Device I/O error");
  });
}

void CString::ReadFromFile(std::istream& in, bool prefix_length) {
  ReportAs("CString.ReadFromFile(FileNum,PrefixLength)", [&] {
    auto past_end = [] {
      return Error(errnum::kInputPastEndOfFile, std::string(kSource), "Input past end of file");
    };
    if (prefix_length) {
      unsigned char bytes[4];
      in.read(reinterpret_cast<char*>(bytes), 4);
      if (in.gcount() != 4) throw past_end();
      const auto n = static_cast<std::int32_t>(static_cast<std::uint32_t>(bytes[0]) |
                                               (static_cast<std::uint32_t>(bytes[1]) << 8) |
                                               (static_cast<std::uint32_t>(bytes[2]) << 16) |
                                               (static_cast<std::uint32_t>(bytes[3]) << 24));
      if (n < 0) ThrowInvalidLength();
      Reserve(Size(n));
      in.read(buffer_.data(), n);
      if (in.gcount() != n) throw past_end();
      length_ = n;
      return;
    }
    in.read(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    const auto got = static_cast<std::size_t>(in.gcount());
    std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(got), buffer_.end(), '\0');
    length_ = static_cast<long>(got);
  });
}

long CString::TrimToNull() noexcept {
  const void* zero = std::memchr(buffer_.data(), 0, buffer_.size());
  length_ = zero ? static_cast<long>(static_cast<const char*>(zero) - buffer_.data())
                 : static_cast<long>(buffer_.size());
  return length_;
}

long CString::GetFindCount(std::string_view searchstring, long max_count) const {
  return ReportAs("CString.GetFindCount(searchstring,MaxCount)", Args(searchstring, max_count),
                  [&] { return CountNoCase(View(), searchstring, max_count); });
}

long CString::CountNoCase(std::string_view text, std::string_view searchstring, long max_count) {
  if (searchstring.empty()) return 0;
  const text::NoCaseSearcher searcher(searchstring);
  long count = 0;
  std::size_t hit = searcher.Find(text, 0);
  while (hit != text::npos) {
    ++count;
    if (max_count != -1 && count > max_count) break;
    hit = searcher.Find(text, hit + 1);
  }
  return count;
}

void CString::CopyData(const char* source, long num_chars) {
  if (num_chars < 0) ThrowInvalidLength();
  SetValue(std::string_view(source, Size(num_chars)));
}

}  // namespace gw
