#include "platform/db/connection_string.h"

#include "platform/text.h"

namespace gw::db {

ConnectionProperties ConnectionProperties::Parse(std::string_view s) {
  ConnectionProperties props;
  std::size_t i = 0;
  while (i < s.size()) {
    // key
    const std::size_t eq = s.find('=', i);
    const std::size_t semi = s.find(';', i);
    if (eq == std::string_view::npos || (semi != std::string_view::npos && semi < eq)) {
      // A piece without "=": skipped.
      if (semi == std::string_view::npos) break;
      i = semi + 1;
      continue;
    }
    const std::string key(text::TrimWhitespace(s.substr(i, eq - i)));
    i = eq + 1;
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
    std::string value;
    if (i < s.size() && (s[i] == '"' || s[i] == '\'')) {
      text::ReadQuoted(s, i, s[i], value);
      const std::size_t end = s.find(';', i);
      i = end == std::string_view::npos ? s.size() : end + 1;
    } else {
      const std::size_t end = s.find(';', i);
      const std::size_t stop = end == std::string_view::npos ? s.size() : end;
      value = std::string(text::TrimWhitespace(s.substr(i, stop - i)));
      i = end == std::string_view::npos ? s.size() : end + 1;
    }
    if (!key.empty()) props.Set(key, value);
  }
  return props;
}

std::optional<std::string> ConnectionProperties::Find(std::string_view key) const {
  for (const auto& [k, v] : items_) {
    if (text::EqualsNoCase(k, key)) return v;
  }
  return std::nullopt;
}

std::string ConnectionProperties::Get(std::string_view key) const {
  return Find(key).value_or(std::string());
}

void ConnectionProperties::Set(std::string_view key, std::string_view value) {
  for (auto& [k, v] : items_) {
    if (text::EqualsNoCase(k, key)) {
      v = std::string(value);
      return;
    }
  }
  items_.emplace_back(std::string(key), std::string(value));
}

void ConnectionProperties::Remove(std::string_view key) {
  std::erase_if(items_, [&](const auto& kv) { return text::EqualsNoCase(kv.first, key); });
}

std::string ConnectionProperties::ToString() const {
  std::string out;
  for (const auto& [k, v] : items_) {
    out += k;
    out += '=';
    const bool needs_quotes = v.find_first_of(";\"'") != std::string::npos ||
                              (!v.empty() && (v.front() == ' ' || v.back() == ' '));
    if (needs_quotes) {
      const char q = v.find('"') == std::string::npos ? '"' : '\'';
      out += q;
      for (char c : v) {
        if (c == q) out += q;
        out += c;
      }
      out += q;
    } else {
      out += v;
    }
    out += ';';
  }
  return out;
}

std::string MaskPasswords(std::string_view s) {
  // Works on the text as written, so that everything but the secrets reads as the user gave it.
  std::string out;
  std::size_t i = 0;
  while (i < s.size()) {
    const std::size_t eq = s.find('=', i);
    const std::size_t semi = s.find(';', i);
    if (eq == std::string_view::npos || (semi != std::string_view::npos && semi < eq)) {
      const std::size_t stop = semi == std::string_view::npos ? s.size() : semi + 1;
      out.append(s.substr(i, stop - i));
      i = stop;
      continue;
    }
    const std::string_view key = text::TrimWhitespace(s.substr(i, eq - i));
    out.append(s.substr(i, eq + 1 - i));
    i = eq + 1;
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) out += s[i++];
    // The value's span, without its quotes.
    std::size_t value_begin = i;
    std::size_t value_end;
    std::size_t after;
    char quote = 0;
    if (i < s.size() && (s[i] == '"' || s[i] == '\'')) {
      quote = s[i];
      value_begin = ++i;
      while (i < s.size() && !(s[i] == quote && (i + 1 >= s.size() || s[i + 1] != quote))) {
        i += s[i] == quote ? 2 : 1;
      }
      value_end = i;
      after = i < s.size() ? i + 1 : i;
    } else {
      const std::size_t stop = s.find(';', i);
      value_end = stop == std::string_view::npos ? s.size() : stop;
      after = value_end;
    }
    const std::string_view value = s.substr(value_begin, value_end - value_begin);
    if (quote) out += quote;
    if ((text::EqualsNoCase(key, "Password") || text::EqualsNoCase(key, "PWD")) &&
        !text::TrimWhitespace(value).empty()) {
      out += "*****";
    } else if (text::EqualsNoCase(key, "Extended Properties")) {
      out += MaskPasswords(value);
    } else {
      out.append(value);
    }
    if (quote && value_end < s.size()) out += quote;
    const std::size_t next = s.find(';', after);
    const std::size_t stop = next == std::string_view::npos ? s.size() : next + 1;
    out.append(s.substr(after, stop - after));
    i = stop;
  }
  return out;
}

}  // namespace gw::db
