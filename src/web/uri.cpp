#include "web/uri.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/error.h"
#include "platform/text.h"
#include "web/escaping_internal.h"
#include "web/http_utility.h"

namespace gw::web {

namespace {

using detail::CharSet;
using detail::Contains;
using detail::MakeCharSet;

// The process-wide tables: built once, on first use, and never changed afterwards.
struct StaticURIVariables {
  std::unordered_map<std::string, long> default_port;
  std::unordered_set<std::string> generic;
  std::unordered_set<std::string> semi_generic;

  // Sets for escaping: a byte outside the set is escaped.
  CharSet uri_chars;
  CharSet path_chars;
  CharSet query_chars;
  CharSet fragment_chars;
  CharSet opaque_chars;
  CharSet user_info_chars;

  // Sets for unescaping: a byte inside the set is copied as it is.
  CharSet scheme_reserved;
  CharSet user_info_reserved;
  CharSet host_reserved;
  CharSet path_reserved;
  CharSet query_reserved;
  CharSet empty;

  StaticURIVariables() {
    default_port = {{"http", 80},     {"shttp", 80},  {"http-ng", 80},   {"coffee", 80},
                    {"https", 443},   {"ftp", 21},    {"telnet", 23},    {"nntp", 119},
                    {"news", 119},    {"snews", 563}, {"hnews", 80},     {"smtp", 25},
                    {"gopher", 70},   {"wais", 210},  {"whois", 43},     {"whois++", 63},
                    {"rwhois", 4321}, {"imap", 143},  {"pop", 110},      {"prospero", 1525},
                    {"irc", 194},     {"ldap", 389},  {"nfs", 2049},     {"z39.50r", 210},
                    {"z39.50s", 210}, {"vemmi", 575}, {"videotex", 516}, {"cmp", 829}};
    generic = {"http",  "https", "shttp", "coffee", "ftp", "file", "nntp", "news", "snews",
               "hnews", "imap",  "wais",  "nfs",    "sip", "sips", "sipt", "sipu"};
    semi_generic = {"ldap",     "irc", "gopher", "videotex", "rwhois",  "whois++", "smtp", "telnet",
                    "prospero", "pop", "vemmi",  "z39.50r",  "z39.50s", "stream",  "cmp"};

    const CharSet alphanumeric =
        MakeCharSet("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
    // The apostrophe is deliberately not a mark: it is always escaped as "%27" (and so is the
    // backslash).
    const CharSet mark = MakeCharSet("-_.!~*()");
    const CharSet reserved = MakeCharSet(";/?:@&=+$,");
    const CharSet unreserved = alphanumeric | mark;
    uri_chars = unreserved | reserved | MakeCharSet("%");
    path_chars = unreserved | MakeCharSet("%:@&=+$,/;");
    query_chars = uri_chars;
    fragment_chars = uri_chars;
    opaque_chars = uri_chars;
    // Only the unreserved characters: "%", ";", ":", "&", "=", "+", "$" and "," in user info are
    // escaped, even when the text was escaped already.
    user_info_chars = unreserved;

    scheme_reserved = MakeCharSet(":");
    user_info_reserved = MakeCharSet("@");
    host_reserved = MakeCharSet(":/?#");
    path_reserved = MakeCharSet("/;?#");
    query_reserved = MakeCharSet("#");
  }

  static const StaticURIVariables& Get() {
    static const StaticURIVariables tables;
    return tables;
  }
};

const StaticURIVariables& Tables() { return StaticURIVariables::Get(); }

std::string Escape(std::string_view data, const CharSet& allowed) {
  std::string out;
  detail::AppendPercentEscaped(out, text::TrimSpaces(data), allowed, /*pad=*/false);
  return out;
}

std::string Unescape(std::string_view data, const CharSet& reserved) {
  return detail::PercentDecode(data, &reserved, "Uri.Unescape");
}

std::string NormalizedScheme(std::string_view s) { return text::ToLower(text::TrimSpaces(s)); }

// A port text as the runtime reads a number: a numeric text that fits a Long, rounded; anything
// else is no port.
bool TryReadPort(const std::string& text, long& port) {
  // Plain digits read as themselves (the common case, without the runtime's conversion).
  if (!text.empty() && text.size() <= 9 &&
      std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    port = std::stol(text);
    return true;
  }
  const Variant value(text);
  if (!value.IsNumeric()) return false;
  try {
    port = value.ToLong();
    return true;
  } catch (const Error&) {
    return false;  // out of range: as malformed as a word
  }
}

// ParseFileName: the last segment when a dot lies inside it (not at its end).
std::string ParseFileName(std::string_view s) {
  const std::size_t a = s.rfind('/');
  const std::size_t b = s.rfind('.');
  if (a == std::string_view::npos || a + 1 >= s.size()) return {};
  if (b == std::string_view::npos || b <= a || b + 1 >= s.size()) return {};
  return std::string(s.substr(a + 1));
}

// ParseFileExt: one to five characters after the last dot.
std::string ParseFileExt(std::string_view s) {
  const std::size_t b = s.rfind('.');
  if (b == std::string_view::npos) return {};
  const long n = static_cast<long>(s.size());
  const long pos = static_cast<long>(b) + 1;  // 1-based
  if (pos > n - 6 && pos <= n - 1) return std::string(s.substr(b + 1));
  return {};
}

std::string RemoveFileFromPath(std::string_view s) {
  const std::string file = ParseFileName(s);
  if (file.empty()) return std::string(s);
  const std::size_t at = text::RFindNoCase(s, file);
  if (at == text::npos) return std::string(s);
  std::string out(s.substr(0, at));
  out.append(s.substr(at + file.size()));
  return out;
}

}  // namespace

// ---- properties ------------------------------------------------------------------------------

std::string Uri::PathAndQuery() const {
  if (query_.empty()) return path_;
  return path_ + "?" + query_;
}

std::string Uri::FileName() const { return ParseFileName(path_); }
std::string Uri::FileExtension() const { return ParseFileExt(FileName()); }
std::string Uri::PathWithoutFile() const { return RemoveFileFromPath(path_); }

bool Uri::UsesGenericSyntax(std::string_view pScheme) {
  return Tables().generic.count(NormalizedScheme(pScheme)) != 0;
}

bool Uri::UsesSemiGenericSyntax(std::string_view pScheme) {
  return Tables().semi_generic.count(NormalizedScheme(pScheme)) != 0;
}

long Uri::DefaultPort(std::string_view pScheme) {
  const auto& table = Tables().default_port;
  const auto it = table.find(NormalizedScheme(pScheme));
  return it == table.end() ? 0 : it->second;
}

std::shared_ptr<Uri> Uri::Clone() const {
  auto copy = std::make_shared<Uri>();
  copy->SetFragment(fragment_);
  copy->SetHost(host_);
  copy->SetPort(port_);
  copy->SetOpaquePart(opaque_);
  copy->SetPath(path_);
  copy->SetQueryString(query_);
  copy->SetScheme(scheme_);
  copy->SetUserInfo(user_info_);
  return copy;
}

// ---- Parse -----------------------------------------------------------------------------------

void Uri::Parse(std::string_view relUri, const Uri* base) {
  ReportAs("Uri.Parse(relUri,base)", Args(relUri, base), [&] { ParseImpl(relUri, base); });
}

void Uri::ParseImpl(std::string_view rel, const Uri* base) {
  const StaticURIVariables& t = Tables();
  scheme_.clear();
  host_.clear();
  opaque_.clear();
  path_.clear();
  query_.clear();
  fragment_.clear();
  user_info_.clear();
  link_text_.clear();
  port_ = -1;
  syntax_ = Syntax::kOpaque;
  hash_code_.clear();

  // [pos, len) is the text that counts: white space off both ends, but a one-character text is
  // never shortened.
  std::size_t len = rel.size();
  while (len > 1 && HttpUtility::IsWhiteSpace(rel[len - 1])) --len;
  std::size_t pos = 0;
  while (pos < len && HttpUtility::IsWhiteSpace(rel[pos])) ++pos;
  auto slice = [&](std::size_t from, std::size_t to) {
    return from < to ? rel.substr(from, to - from) : std::string_view();
  };
  auto find_any = [&](std::string_view stops, std::size_t from) {
    for (std::size_t k = from; k < len; ++k) {
      for (const char stop : stops) {
        if (rel[k] == stop) return k;
      }
    }
    return len;
  };

  if (len >= pos + 4 && rel[pos + 3] == ':') {
    const std::string prefix = text::AsciiLower(rel.substr(pos, 3));
    if (prefix == "url" || prefix == "uri") pos += 4;
  }

  std::string found_scheme;
  const std::size_t stop = find_any(":/?#", pos);
  if (stop < len && rel[stop] == ':') {
    found_scheme = NormalizedScheme(slice(pos, stop));
    pos = stop + 1;
  }

  std::string final_scheme = found_scheme;
  if (final_scheme.empty()) {
    if (base == nullptr) {
      throw Error(errnum::kNoScheme, "Uri.Parse", "No Scheme found in Uri: " + std::string(rel));
    }
    final_scheme = base->scheme_;
  }
  scheme_ = final_scheme;
  if (t.generic.count(final_scheme)) {
    syntax_ = Syntax::kGeneric;
  } else if (t.semi_generic.count(final_scheme)) {
    syntax_ = Syntax::kSemiGeneric;
  }

  if (syntax_ == Syntax::kOpaque) {
    if (base != nullptr && found_scheme.empty()) {
      throw Error(errnum::kCannotResolve, "Uri.Parse",
                  "Can't resolve relative URI for scheme " + final_scheme);
    }
    opaque_ = Escape(slice(pos, len), t.opaque_chars);
    if (!opaque_.empty() && opaque_[0] == '/') opaque_.replace(0, 1, "%2F");
    return;
  }

  if (len >= pos + 2 && rel[pos] == '/' && rel[pos + 1] == '/') {
    pos += 2;
    const std::size_t end = find_any("/?#", pos);
    ParseAuthority(slice(pos, end), final_scheme);
    pos = end;
  }

  if (syntax_ == Syntax::kSemiGeneric) {
    path_ = Escape(slice(pos, len), t.uri_chars);
    if (!path_.empty() && path_[0] != '/') path_.insert(0, "/");
  } else {
    const std::size_t path_end = find_any("?#", pos);
    path_ = Escape(slice(pos, path_end), t.path_chars);
    pos = path_end;
    if (pos < len && rel[pos] == '?') {
      const std::size_t query_end = find_any("#", pos + 1);
      // A link taken from HTML text carries "&amp;" for its separators.
      query_ = Escape(HttpUtility::HTMLDecode(slice(pos + 1, query_end)), t.query_chars);
      pos = query_end;
    }
    if (pos < len && rel[pos] == '#') fragment_ = Escape(slice(pos + 1, len), t.fragment_chars);
  }

  if (base == nullptr) return;
  if (!found_scheme.empty() && !text::EqualsNoCase(found_scheme, base->scheme_)) return;
  scheme_ = base->scheme_;
  if (!host_.empty()) return;
  user_info_ = base->user_info_;
  host_ = base->host_;
  port_ = base->port_;
  if (syntax_ == Syntax::kSemiGeneric) return;
  if (path_.empty() && query_.empty()) {
    path_ = base->path_;
    query_ = base->query_;
    return;
  }
  if (!path_.empty() && path_[0] == '/') return;  // absolute path: kept exactly, dots and all
  if (!base->path_.empty()) {
    // Up to and including the base path's last "/"; a base path without one contributes nothing.
    const std::size_t slash = base->path_.rfind('/');
    const std::size_t keep = slash == std::string::npos ? 0 : slash + 1;
    path_.insert(0, base->path_, 0, keep);
  } else {
    path_.insert(0, "/");
  }
  path_ = CanonicalizePath(path_);
}

void Uri::ParseAuthority(std::string_view auth, std::string_view scheme) {
  ReportAs("Uri.ParseAuthority(auth,scheme)", Args(auth, scheme), [&] {
    const StaticURIVariables& t = Tables();
    const std::size_t len = auth.size();
    std::size_t host_start = 0;
    // An "@" in the last position is part of the host.
    if (len > 1) {
      const std::size_t at = auth.substr(0, len - 1).find('@');
      if (at != std::string_view::npos) {
        user_info_ = Escape(auth.substr(0, at), t.user_info_chars);
        host_start = at + 1;
      }
    }
    std::size_t idx = 0;
    if (host_start < len && auth[host_start] == '[') {
      const std::size_t close = auth.find(']', host_start + 1);
      if (close == std::string_view::npos) {
        throw Error(errnum::kNoClosingBracket, "Uri.ParseAuthority",
                    "No closing ']' found for opening '[' at position " +
                        std::to_string(host_start + 1) + " in authority '" + std::string(auth) +
                        "'");
      }
      host_ = std::string(auth.substr(host_start + 1, close - host_start - 1));
      idx = close + 1;
    } else {
      idx = auth.find(':', host_start);
      if (idx == std::string_view::npos) idx = len;
      host_ = Escape(auth.substr(host_start, idx - host_start), t.uri_chars);
    }
    if (idx + 1 < len && auth[idx] == ':') {
      const std::string port_text = Unescape(auth.substr(idx + 1), t.empty);
      long port = -1;
      if (TryReadPort(port_text, port)) port_ = port == DefaultPort(scheme) ? -1 : port;
    }
  });
}

// ---- CanonicalizePath ------------------------------------------------------------------------

std::string Uri::CanonicalizePath(std::string_view P) {
  const std::size_t len = P.size();
  const std::size_t first = P.find("/.");
  if (first == std::string_view::npos) return std::string(P);
  auto at = [&](std::size_t k) { return k < len ? P[k] : '\0'; };
  // Only the first "/." decides whether the path has dot segments at all.
  const bool dot_segment = first + 2 == len || at(first + 2) == '/' ||
                           (at(first + 2) == '.' && (first + 3 == len || at(first + 3) == '/'));
  if (!dot_segment) return std::string(P);

  // The walk over the shrinking path, done as a copy: `out` holds the path before the current
  // position (1-based `idx` = out.size() + 1) and P[in...] the untouched rest. `beg` is the
  // 1-based position below which ".." may not back up. `slashes` holds the 0-based positions of
  // the slashes in `out`, so that backing up to the previous "/" takes constant time.
  std::string out;
  out.reserve(len);
  std::vector<std::size_t> slashes;
  auto push = [&](char c) {
    if (c == '/') slashes.push_back(out.size());
    out.push_back(c);
  };
  auto truncate = [&](std::size_t size) {
    out.resize(size);
    while (!slashes.empty() && slashes.back() >= size) slashes.pop_back();
  };
  push(P[0]);
  std::size_t in = 1;
  std::size_t beg = 1;
  while (in < len) {
    const std::size_t idx = out.size() + 1;
    if (P[in] == '.' && !out.empty() && out.back() == '/') {
      if (in + 1 == len) break;  // trailing "/.": drop the dot, keep the slash
      if (P[in + 1] == '/') {    // "/./": drop "./" and look at the same position again
        in += 2;
        continue;
      }
      if (P[in + 1] == '.' && (in + 2 == len || P[in + 2] == '/')) {  // "/.." or "/../"
        if (idx < beg + 2) {
          beg = idx + 2;  // nothing to back up over: keep it and never back up past it
        } else if (slashes.size() >= 2 && slashes[slashes.size() - 2] + 1 >= beg) {
          // The previous "/" (1-based j, not below `beg`) before the one in front of the dots.
          // Remove from it through the dots; when ".." ended the path a "/" stays.
          const std::size_t j = slashes[slashes.size() - 2] + 1;
          truncate(in + 2 == len ? j : j - 1);
          in += 2;
          continue;
        }
        // Otherwise no "/" lies between `beg` and the dots: the segment stays.
      }
    }
    push(P[in]);
    ++in;
  }
  return out;
}

// ---- text forms ------------------------------------------------------------------------------

void Uri::AssemblePath(std::string& out, bool print_empty, bool include_fragment,
                       bool unescape) const {
  const StaticURIVariables& t = Tables();
  if (print_empty && path_.empty()) out += "/";
  if (!path_.empty()) out += unescape ? Unescape(path_, t.path_reserved) : path_;
  if (!query_.empty()) out += "?" + (unescape ? Unescape(query_, t.query_reserved) : query_);
  if (include_fragment && !fragment_.empty()) {
    out += "#" + (unescape ? Unescape(fragment_, t.empty) : fragment_);
  }
}

std::string Uri::Stringify(bool unescape) const {
  const StaticURIVariables& t = Tables();
  std::string out;
  if (!scheme_.empty()) out += (unescape ? Unescape(scheme_, t.scheme_reserved) : scheme_) + ":";
  if (!opaque_.empty()) {
    out += unescape ? Unescape(opaque_, t.empty) : opaque_;
    return out;
  }
  if (!user_info_.empty() || !host_.empty() || port_ != -1) out += "//";
  if (!user_info_.empty()) {
    out += (unescape ? Unescape(user_info_, t.user_info_reserved) : user_info_) + "@";
  }
  if (!host_.empty()) {
    if (host_.find(':') != std::string::npos) {
      out += "[" + host_ + "]";
    } else {
      out += unescape ? Unescape(host_, t.host_reserved) : host_;
    }
  }
  if (port_ != -1) out += ":" + std::to_string(port_);
  AssemblePath(out, /*print_empty=*/false, /*include_fragment=*/true, unescape);
  return out;
}

std::string Uri::ToExternalForm() const {
  return ReportAs("Uri.ToExternalForm", [&] { return Stringify(false); });
}

std::string Uri::ToString() const {
  return ReportAs("Uri.ToString", [&] { return Stringify(true); });
}

const std::string& Uri::HashCode() const {
  if (!hash_code_.empty()) return hash_code_;
  hash_code_ = ReportAs("Uri.HashCode", [&] {
    const StaticURIVariables& t = Tables();
    std::string h;
    h.reserve(scheme_.size() + opaque_.size() + user_info_.size() + host_.size() + path_.size() +
              query_.size() + 16);
    // Lower case, unescaped, lower case again (an escape may stand for a capital). A plain ASCII
    // text with nothing to unescape is its lower case.
    const auto add_lower_unescaped = [&h](std::string_view s, const CharSet& reserved) {
      if (s.find_first_of("%+") == std::string_view::npos && text::IsAscii(s)) {
        for (const char c : s) h.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
      } else {
        h += text::ToLower(Unescape(text::ToLower(s), reserved));
      }
    };
    if (!scheme_.empty()) {
      add_lower_unescaped(scheme_, t.scheme_reserved);
      h += ':';
    }
    if (!opaque_.empty()) {
      add_lower_unescaped(opaque_, t.empty);
      return h;
    }
    if (!user_info_.empty() || !host_.empty() || port_ != -1) h += "//";
    if (!user_info_.empty()) {
      h += Unescape(user_info_, t.user_info_reserved);
      h += '@';
    }
    if (host_.find(':') != std::string::npos) {
      h += '[';
      h += text::ToLower(host_);
      h += ']';
    } else {
      add_lower_unescaped(host_, t.host_reserved);
    }
    h += ':';
    h += std::to_string(port_ == -1 ? DefaultPort(scheme_) : port_);
    if (!path_.empty()) add_lower_unescaped(path_, t.path_reserved);
    if (!query_.empty()) {
      h += '?';
      h += Unescape(query_, t.query_reserved);
    }
    return h;
  });
  return hash_code_;
}

}  // namespace gw::web
