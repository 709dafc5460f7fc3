#include "web/cookie.h"

#include "platform/error.h"
#include "platform/text.h"
#include "web/dictionary_utils.h"
#include "web/http_utility.h"

namespace gw::web {

namespace {

constexpr std::size_t npos = std::string_view::npos;

// The next occurrence of one character, remembered between calls so that a parse whose search
// positions mostly move forward scans the text about once.
class NextFinder {
 public:
  NextFinder(std::string_view text, char c) : text_(text), c_(c) {}
  std::size_t From(std::size_t from) {
    if (!(valid_ && from_ <= from && (found_ == npos || found_ >= from))) {
      from_ = from;
      found_ = text_.find(c_, from);
      valid_ = true;
    }
    return found_;
  }

 private:
  std::string_view text_;
  char c_;
  bool valid_ = false;
  std::size_t from_ = 0;
  std::size_t found_ = npos;
};

bool IsAsciiLetter(char c) noexcept { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

}  // namespace

bool Cookie::SetAttribute(std::string_view attrib_name, std::string attrib_val,
                          std::string_view /*set_cookie*/) {
  const std::string name = text::ToUpper(attrib_name);
  if (name == "EXPIRES") {
    expires_ = std::move(attrib_val);
  } else if (name == "DOMAIN") {
    domain_ = std::move(attrib_val);
  } else if (name == "SECURE") {
    secure_ = true;
  } else if (name == "PATH") {
    path_ = std::move(attrib_val);
  }
  // "MAX-AGE" and anything else: recognised and dropped.
  return true;
}

void CookieContainer::AddCookie(std::string_view name, std::shared_ptr<Cookie> cookie) {
  cookies_.Set(name, std::move(cookie));
}

std::shared_ptr<Cookie> CookieContainer::GetCookie(std::string_view name) const {
  const auto* cookie = cookies_.Find(name);
  return cookie == nullptr ? nullptr : *cookie;
}

void CookieContainer::LoadFromResponseHeaders(const HttpHeaders& headers) {
  ReportAs("CookieContainer.LoadFromResponseHeaders(Headers)", Args(headers), [&] {
    if (const auto* header = headers.Find("Set-Cookie"); header != nullptr && *header) {
      ParseCookies((*header)->Value());
    }
  });
}

std::string CookieContainer::GetRequestHeader() const {
  std::string out;
  for (const auto& [name, cookie] : cookies_) {
    out += name;
    out += '=';
    if (cookie) out += cookie->Value();
    out += "; ";
  }
  return out;
}

void CookieContainer::LoadFromRequestHeader(std::string_view header) {
  ReportAs("CookieContainer.LoadFromRequestHeader(Header)", Args(header), [&] {
    for (const std::string& piece : text::Split(header, ";")) ParseCookies(piece);
  });
}

void CookieContainer::MergeFrom(const CookieContainer& priority) {
  ReportAs("CookieContainer.MergeFrom(PriorityCookies)",
           [&] { cookies_ = DictionaryUtils::CombineDictionaries(priority.cookies_, cookies_); });
}

void CookieContainer::Deserialize(std::string_view text) {
  if (!text.empty()) LoadFromRequestHeader(text);
}

std::shared_ptr<CookieContainer> CookieContainer::Clone() const {
  auto copy = std::make_shared<CookieContainer>();
  copy->cookies_ = DictionaryUtils::CopyDictionary(cookies_);
  return copy;
}

void CookieContainer::ParseCookies(std::string_view s) {
  ReportAs("CookieContainer.ParseCookies(SetCookie)", [&] {
    const std::size_t n = s.size();
    NextFinder equals(s, '='), comma(s, ','), semicolon(s, ';');
    auto skip_space = [&](std::size_t p) {
      while (p < n && HttpUtility::IsWhiteSpace(s[p])) ++p;
      return p;
    };
    auto first_of = [](std::size_t a, std::size_t b) { return a < b ? a : b; };

    std::size_t pos = 0;
    for (;;) {
      pos = skip_space(pos);
      if (pos >= n) return;
      if (s[pos] == ',') {
        ++pos;
        continue;
      }
      const std::size_t eq = equals.From(pos);
      if (eq == npos) return;  // a name without "=": the parse ends, nothing more is added
      auto cookie = std::make_shared<Cookie>();
      cookie->SetName(std::string(text::TrimSpaces(s.substr(pos, eq - pos))));

      // The value ends at ";" or ",", but a comma ends it only when a "name=" follows before
      // the next ";" (so "a=1,2; b" keeps "1,2", and "a=1, b=2; c" is two cookies).
      const std::size_t value_start = skip_space(eq + 1);
      const std::size_t c = comma.From(value_start);
      const std::size_t sc = semicolon.From(value_start);
      std::size_t value_end = n;
      if (c == npos || sc == npos) {
        value_end = first_of(first_of(c, sc), n);
      } else if (sc < c) {
        value_end = sc;
      } else {
        const std::size_t next_eq = equals.From(c + 1);
        value_end = (next_eq == npos || next_eq >= sc) ? sc : s.rfind(',', next_eq);
      }
      cookie->SetValue(std::string(s.substr(value_start, value_end - value_start)));
      pos = value_end;

      while (pos < n && s[pos] != ',') {
        if (s[pos] == ';') {
          pos = skip_space(pos + 1);
          continue;
        }
        if (n - pos >= 6 && text::EqualsNoCase(s.substr(pos, 6), "SECURE")) {
          cookie->SetSecure(true);
          pos = skip_space(pos + 6);
          if (pos < n && s[pos] == ';') {
            pos = skip_space(pos + 1);
          } else if (pos < n && s[pos] != ',') {
            break;
          }
          continue;
        }
        const std::size_t attr_eq = equals.From(pos);
        if (attr_eq == npos) break;
        const std::string_view name = s.substr(pos, attr_eq - pos);
        std::size_t attr_start = skip_space(attr_eq + 1);
        if (text::EqualsNoCase(name, "EXPIRES")) {
          // Past the day name: "Wed, 09 Jun 2021 10:18:14 GMT" is kept as "09 Jun 2021 ...".
          if (attr_start < n && s[attr_start] == '"') attr_start = skip_space(attr_start + 1);
          while (attr_start < n && IsAsciiLetter(s[attr_start])) ++attr_start;
          attr_start = skip_space(attr_start);
          if (attr_start < n && s[attr_start] == ',') ++attr_start;
        }
        const std::size_t attr_end =
            first_of(first_of(comma.From(attr_start), semicolon.From(attr_start)), n);
        cookie->SetAttribute(
            name, std::string(text::TrimSpaces(s.substr(attr_start, attr_end - attr_start))), s);
        pos = attr_end;
        if (pos < n && s[pos] == ';') pos = skip_space(pos + 1);
      }
      AddCookie(cookie->Name(), cookie);
    }
  });
}

}  // namespace gw::web
