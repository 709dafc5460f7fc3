#include "platform/charset.h"

#include <iconv.h>
#include <uchardet/uchardet.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <memory>

#include "platform/error.h"
#include "platform/text.h"

namespace gw {

namespace {

std::string Normalize(std::string_view name) {
  std::string n(text::TrimWhitespace(name));
  while (!n.empty() && (n.front() == '"' || n.front() == '\'')) n.erase(0, 1);
  while (!n.empty() && (n.back() == '"' || n.back() == '\'')) n.pop_back();
  const std::string upper = text::AsciiUpper(n);
  if (upper == "ISO-8859-1" || upper == "ISO8859-1" || upper == "LATIN1" || upper == "US-ASCII" ||
      upper == "ASCII" || upper == "WINDOWS-1252" || upper == "CP1252") {
    return "windows-1252";
  }
  if (upper == "UTF8" || upper == "UTF-8") return "UTF-8";
  return n;
}

// Converts with iconv; false when the set is unknown.
bool Convert(std::string_view bytes, const std::string& charset, std::string& out) {
  iconv_t cd = ::iconv_open("UTF-8", charset.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  out.clear();
  out.reserve(bytes.size() + bytes.size() / 4);
  char* in = const_cast<char*>(bytes.data());
  std::size_t in_left = bytes.size();
  char buf[16384];
  while (in_left > 0) {
    char* o = buf;
    std::size_t o_left = sizeof buf;
    const std::size_t rc = ::iconv(cd, &in, &in_left, &o, &o_left);
    out.append(buf, static_cast<std::size_t>(o - buf));
    if (rc == static_cast<std::size_t>(-1)) {
      if (errno == E2BIG) continue;
      // An invalid or incomplete sequence: one replacement character, then go on after the byte.
      text::AppendUtf8(out, 0xFFFD);
      ++in;
      --in_left;
      ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
    }
  }
  ::iconv_close(cd);
  return true;
}

// The value of `charset=` or `encoding=` at `pos` in `head`.
std::string ValueAfter(std::string_view head, std::size_t pos) {
  std::size_t i = pos;
  while (i < head.size() && (head[i] == ' ' || head[i] == '"' || head[i] == '\'')) ++i;
  std::size_t j = i;
  while (j < head.size() && (std::isalnum(static_cast<unsigned char>(head[j])) || head[j] == '-' ||
                             head[j] == '_' || head[j] == '.' || head[j] == ':')) {
    ++j;
  }
  return std::string(head.substr(i, j - i));
}

std::string DeclaredInDocument(std::string_view bytes) {
  const std::string_view head = bytes.substr(0, 4096);
  if (text::StartsWithNoCase(head, "<?xml")) {
    const std::size_t end = head.find("?>");
    const std::size_t enc = text::FindNoCase(head.substr(0, end), "encoding=");
    if (enc != text::npos) return ValueAfter(head, enc + 9);
  }
  std::size_t pos = 0;
  while ((pos = text::FindNoCase(head, "<meta", pos)) != text::npos) {
    const std::size_t close = head.find('>', pos);
    const std::string_view tag = head.substr(pos, close == text::npos ? text::npos : close - pos);
    const std::size_t cs = text::FindNoCase(tag, "charset=");
    if (cs != text::npos) {
      std::string v = ValueAfter(tag, cs + 8);
      if (!v.empty()) return v;
    }
    pos += 5;
  }
  return {};
}

std::string Detect(std::string_view bytes) {
  std::unique_ptr<std::remove_pointer_t<uchardet_t>, decltype(&uchardet_delete)> det(
      uchardet_new(), uchardet_delete);
  if (!det) return {};
  uchardet_handle_data(det.get(), bytes.data(), bytes.size());
  uchardet_data_end(det.get());
  const char* name = uchardet_get_charset(det.get());
  return name ? std::string(name) : std::string();
}

// Appends what iconv makes of `in`; false when it meets a character the set cannot hold, with
// `in` left at that character.
bool EncodeRun(iconv_t cd, std::string_view& in, std::string& out) {
  char* src = const_cast<char*>(in.data());
  std::size_t src_left = in.size();
  char buf[16384];
  bool complete = true;
  while (src_left > 0) {
    char* o = buf;
    std::size_t o_left = sizeof buf;
    const std::size_t rc = ::iconv(cd, &src, &src_left, &o, &o_left);
    out.append(buf, static_cast<std::size_t>(o - buf));
    if (rc == static_cast<std::size_t>(-1) && errno != E2BIG) {
      complete = false;
      break;
    }
  }
  // Shift sequences (ISO-2022) end here.
  char* o = buf;
  std::size_t o_left = sizeof buf;
  ::iconv(cd, nullptr, nullptr, &o, &o_left);
  out.append(buf, static_cast<std::size_t>(o - buf));
  in.remove_prefix(in.size() - src_left);
  return complete;
}

}  // namespace

std::string EncodeFromUtf8(std::string_view text, std::string_view charset) {
  const std::string set(charset.empty() ? std::string_view("UTF-8") : charset);
  if (text::EqualsNoCase(set, "UTF-8")) return text::SanitizeUtf8(text);
  iconv_t cd = ::iconv_open(set.c_str(), "UTF-8");
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    throw Error(errnum::kInvalidProcedureCall, "EncodeFromUtf8",
                "Unknown character set '" + set + "'.");
  }
  std::string out;
  out.reserve(text.size());
  std::string_view rest = text;
  while (!EncodeRun(cd, rest, out)) {
    // The set cannot hold this character (or the text is not valid UTF-8 here): write it as a
    // character reference, itself encoded in the set, and go on after it.
    std::size_t i = 0;
    const char32_t cp = text::DecodeUtf8(rest, i);
    rest.remove_prefix(i);
    const std::string reference = "&#" + std::to_string(static_cast<std::uint32_t>(cp)) + ";";
    std::string_view reference_text = reference;
    EncodeRun(cd, reference_text, out);
  }
  ::iconv_close(cd);
  return out;
}

std::string CharsetDeclaredIn(std::string_view bytes) {
  return Normalize(DeclaredInDocument(bytes));
}

std::string CharsetFromContentType(std::string_view content_type) {
  const std::size_t cs = text::FindNoCase(content_type, "charset=");
  if (cs == text::npos) return {};
  return ValueAfter(content_type, cs + 8);
}

DecodedText DecodeToUtf8(std::string_view bytes, std::string_view declared) {
  DecodedText result;
  // Byte-order marks.
  if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
    result.text = text::SanitizeUtf8(bytes.substr(3));
    result.charset = "UTF-8";
    return result;
  }
  if (bytes.size() >= 2 && (bytes.substr(0, 2) == "\xFF\xFE" || bytes.substr(0, 2) == "\xFE\xFF")) {
    const std::string set = bytes[0] == '\xFF' ? "UTF-16LE" : "UTF-16BE";
    if (Convert(bytes.substr(2), set, result.text)) {
      result.charset = set;
      return result;
    }
  }
  const bool valid_utf8 = text::IsValidUtf8(bytes);
  for (const std::string& candidate : {Normalize(declared), Normalize(DeclaredInDocument(bytes))}) {
    if (candidate.empty()) continue;
    if (candidate == "UTF-8") {
      // A declaration wins over the look of the bytes: an invalid sequence is one replacement
      // character, not a reason to read the whole page in another set.
      result.text = valid_utf8 ? std::string(bytes) : text::SanitizeUtf8(bytes);
      result.charset = "UTF-8";
      return result;
    }
    if (Convert(bytes, candidate, result.text)) {
      result.charset = candidate;
      return result;
    }
  }
  if (valid_utf8) {
    result.text = std::string(bytes);
    result.charset = "UTF-8";
    return result;
  }
  std::string detected = Normalize(Detect(bytes));
  if (detected.empty() || detected == "UTF-8") detected = "windows-1252";
  if (!Convert(bytes, detected, result.text)) {
    detected = "windows-1252";
    Convert(bytes, detected, result.text);
  }
  result.charset = detected;
  result.text = text::SanitizeUtf8(result.text);
  return result;
}

}  // namespace gw
