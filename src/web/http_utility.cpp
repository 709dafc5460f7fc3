#include "web/http_utility.h"

#include "platform/error.h"
#include "platform/text.h"
#include "web/escaping_internal.h"
#include "web/http_header.h"
#include "web/uri.h"

namespace gw::web {

// ---- shared escaping -------------------------------------------------------------------------

namespace detail {

CharSet MakeCharSet(std::string_view members) {
  CharSet set;
  for (char c : members) set.set(static_cast<unsigned char>(c));
  return set;
}

void AppendPercentEscaped(std::string& out, std::string_view text, const CharSet& allowed,
                          bool pad) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  out.reserve(out.size() + text.size());
  for (char c : text) {
    if (Contains(allowed, c)) {
      out.push_back(c);
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    out.push_back('%');
    if (byte >= 16 || pad) out.push_back(kHex[byte >> 4]);
    out.push_back(kHex[byte & 15]);
  }
}

namespace {
int HexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}
}  // namespace

std::string PercentDecode(std::string_view text, const CharSet* keep, const char* source) {
  // Most texts have nothing to decode: copied in one piece up to the first "+" or "%" to change.
  std::size_t first = 0;
  while (first < text.size() &&
         ((text[first] != '+' && text[first] != '%') || (keep && Contains(*keep, text[first])))) {
    ++first;
  }
  if (first == text.size()) return std::string(text);
  std::string out;
  out.reserve(text.size());
  out.append(text.substr(0, first));
  for (std::size_t i = first; i < text.size(); ++i) {
    const char c = text[i];
    if (keep != nullptr && Contains(*keep, c)) {
      out.push_back(c);
    } else if (c == '+') {
      out.push_back(' ');
    } else if (c == '%') {
      // The next two characters are read as one hexadecimal number; at the very end of the text
      // there may be only one.
      const std::string_view digits = text.substr(i + 1, 2);
      int value = 0;
      bool ok = !digits.empty();
      for (char d : digits) {
        const int v = HexValue(d);
        ok = ok && v >= 0;
        value = value * 16 + v;
      }
      if (!ok) throw Error(gw::errnum::kTypeMismatch, source, "Type mismatch");
      out.push_back(static_cast<char>(value));
      i += 2;
    } else {
      out.push_back(c);
    }
  }
  return out;
}

}  // namespace detail

namespace HttpUtility {

namespace {

char CharAt(std::string_view s, long pos) noexcept {
  return pos >= 1 && pos <= static_cast<long>(s.size()) ? s[static_cast<std::size_t>(pos - 1)]
                                                        : '\0';
}

bool IsAsciiAlnum(char c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

bool IsWhiteSpace(char c) noexcept {
  return c == '\r' || c == ' ' || c == '\n' || c == '\t' || c == '\f' || c == '\v' || c == '\0';
}

long SkipSpace(std::string_view str, long pos) noexcept {
  if (pos < 1) pos = 1;
  const long len = static_cast<long>(str.size());
  while (pos <= len && IsWhiteSpace(str[static_cast<std::size_t>(pos - 1)])) ++pos;
  return pos;
}

long SkipChar(std::string_view str, long pos, char c) noexcept {
  if (pos < 1) pos = 1;
  const long len = static_cast<long>(str.size());
  while (pos <= len && str[static_cast<std::size_t>(pos - 1)] == c) ++pos;
  return pos;
}

namespace {

// Every occurrence of `entity` in `text` replaced by `by`.
void ReplaceEntity(std::string& text, const text::NoCaseSearcher& entity, std::string_view by) {
  std::size_t hit = entity.Find(text);
  if (hit == text::npos) return;
  std::string out;
  out.reserve(text.size());
  std::size_t pos = 0;
  for (; hit != text::npos; hit = entity.Find(text, pos)) {
    out.append(text, pos, hit - pos);
    out.append(by);
    pos = hit + entity.Needle().size();
  }
  out.append(text, pos, std::string::npos);
  text = std::move(out);
}

}  // namespace

std::string HTMLDecode(std::string_view text) {
  std::string out(text);
  // Every entity starts with "&", and a replacement only makes one from an "&" already there.
  if (out.find('&') == std::string::npos) return out;
  static const std::pair<text::NoCaseSearcher, std::string_view> kEntities[] = {
      {text::NoCaseSearcher("&nbsp;"), " "},
      {text::NoCaseSearcher("&amp;"), "&"},
      {text::NoCaseSearcher("&gt;"), ">"},
      {text::NoCaseSearcher("&lt;"), "<"},
      {text::NoCaseSearcher("&quot;"), "\""}};
  for (const auto& [entity, by] : kEntities) ReplaceEntity(out, entity, by);
  return out;
}

std::string HtmlEncode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t start = i;
    const char32_t cp = text::DecodeUtf8(text, i);
    switch (cp) {
      case '"':
        out += "&quot;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        if (cp < 32 || cp > 127) {
          out += "&#" + std::to_string(static_cast<unsigned long>(cp)) + ";";
        } else {
          out.append(text.substr(start, i - start));
        }
    }
  }
  return out;
}

std::string UrlEncode(std::string_view text) {
  static const detail::CharSet kAllowed = [] {
    detail::CharSet set = detail::MakeCharSet("%");
    for (int c = 0; c < 128; ++c) {
      if (IsAsciiAlnum(static_cast<char>(c))) set.set(static_cast<std::size_t>(c));
    }
    return set;
  }();
  std::string out;
  detail::AppendPercentEscaped(out, text::TrimSpaces(text), kAllowed, /*pad=*/true);
  return out;
}

std::string UrlDecode(std::string_view text) {
  return ReportAs("HttpUtility.UrlDecode(text)", Args(text),
                  [&] { return detail::PercentDecode(text, nullptr, "HttpUtility.UrlDecode"); });
}

std::string UrlEncodeForHtml(std::string_view text) {
  static const detail::CharSet kAllowed = ~detail::MakeCharSet("\"'&<%");
  std::string out;
  detail::AppendPercentEscaped(out, text::TrimSpaces(text), kAllowed, /*pad=*/true);
  return out;
}

HttpHeaderElements ParseHttpHeader(std::string_view header, bool /*dequote*/) {
  return ReportAs("HttpUtility.ParseHttpHeader(Header,dequote)", Args(header), [&] {
    HttpHeaderElements elements;
    if (header.empty()) return elements;
    const long len = static_cast<long>(header.size());
    long pos = 1;
    long landed = 1;
    bool first_pass = true;
    for (;;) {
      if (!first_pass) {
        // The ";" skip starts from `pos` itself, not from the end of the white space before it;
        // a space after ";" therefore becomes the first character of the next name.
        long next = SkipChar(header, pos, ';');
        if (next == landed) ++next;  // a pass that would start where the last one did moves on
        landed = next;
        pos = next;
        if (pos > len) break;
      }
      first_pass = false;
      const char c = CharAt(header, pos);
      if (c == ',') continue;
      if (c == '=' || c == ';' || c == '\'') {
        throw Error(errnum::kBadHeaderFormat, "HttpUtility.ParseHttpHeader",
                    "Bad header format: " + std::string(header) + ".  Empty element at position " +
                        std::to_string(pos));
      }
      long name_end = pos + 1;
      while (name_end <= len) {
        const char n = CharAt(header, name_end);
        if (IsWhiteSpace(n) || n == '=' || n == ';' || n == '\'') break;
        ++name_end;
      }
      auto element = std::make_shared<HttpHeaderElement>();
      element->SetName(std::string(header.substr(static_cast<std::size_t>(pos - 1),
                                                 static_cast<std::size_t>(name_end - pos))));
      pos = SkipSpace(header, name_end);
      if (CharAt(header, pos) == '=') {
        ++pos;
        element->SetValue(ParseHeaderValue(header, pos));
      }
      elements.Add(std::move(element));
    }
    return elements;
  });
}

std::string ParseHeaderValue(std::string_view header, long& beg_pos) {
  const long len = static_cast<long>(header.size());
  const long start = SkipSpace(header, beg_pos);
  long end = start;
  while (end <= len) {
    const char c = CharAt(header, end);
    if (IsWhiteSpace(c) || c == ',' || c == ';') break;
    ++end;
  }
  beg_pos = end;
  if (end <= start) return {};
  return std::string(
      header.substr(static_cast<std::size_t>(start - 1), static_cast<std::size_t>(end - start)));
}

namespace {

// The kind that a scheme of two or more characters names.
ResourceType ClassifyScheme(std::string_view scheme_text) {
  const std::string scheme = text::ToUpper(scheme_text);
  if (scheme == "HTTP" || scheme == "HTTPS" || scheme == "SHTTP") return ResourceType::http;
  if (scheme == "FILE") return ResourceType::FileSystem;
  if (scheme == "FTP" || scheme == "SFTP") return ResourceType::FTP;
  if (scheme == "MAILTO" || scheme == "MAILTO://") return ResourceType::email;
  return ResourceType::Invalid;
}

}  // namespace

ResourceType ClassifyResourceUri(std::string_view text, const Uri* base) {
  Uri uri;
  bool failed = false;
  try {
    uri.Parse(text, base);
  } catch (const Error&) {
    failed = true;
  }
  if (!failed && text::CountCodePoints(uri.scheme()) >= 2) return ClassifyScheme(uri.scheme());
  // No usable scheme: read it as a person would have written it.
  if (text.substr(std::min<std::size_t>(1, text.size()), 2) == ":\\") {
    return ResourceType::FileSystem;
  }
  if (text.substr(0, 2) == "\\\\") return ResourceType::FileSystem;
  if (text::StartsWithNoCase(text, "WWW")) return ResourceType::http;
  if (text::StartsWithNoCase(text, "FTP")) return ResourceType::FTP;
  if (text::StartsWithNoCase(text, "SECURE.")) return ResourceType::http;
  const std::size_t at = text.find('@');
  if (at != std::string_view::npos && at > 0) {
    const std::size_t dot = text.rfind('.');
    if (dot != std::string_view::npos && dot > at) return ResourceType::email;
  }
  for (std::string_view tld : {".com", ".net", ".org", ".edu", ".gov", ".mil"}) {
    if (text::FindNoCase(text, tld) != text::npos) return ResourceType::http;
  }
  return ResourceType::Unknown;
}

ResourceType ClassifyParsedUri(const Uri& uri) {
  // The external form starts with the scheme (lower case, trimmed, without ":/?#") and a colon, so
  // parsing it again finds the same scheme and does not fail; but a scheme "url" or "uri" would
  // be read there as a prefix, and a one-letter scheme (a drive letter) is classified by the text.
  const std::string& scheme = uri.scheme();
  if (scheme == "url" || scheme == "uri" || text::CountCodePoints(scheme) < 2) {
    return ClassifyResourceUri(uri.ToExternalForm());
  }
  return ClassifyScheme(scheme);
}

}  // namespace HttpUtility
}  // namespace gw::web
