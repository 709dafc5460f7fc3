#include "platform/registry_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace gw {

namespace {

constexpr std::string_view kSource = "RegistryStore";
constexpr RegRoot kRoots[] = {RegRoot::ClassesRoot, RegRoot::CurrentUser, RegRoot::LocalMachine,
                              RegRoot::Users};

[[noreturn]] void Fail(ErrorNumber number, std::string description) {
  throw Error(number, std::string(kSource), std::move(description));
}

std::vector<std::string_view> SplitPath(std::string_view key) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (start <= key.size()) {
    std::size_t end = key.find('\\', start);
    if (end == std::string_view::npos) end = key.size();
    if (end > start) parts.push_back(key.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

void CheckName(std::string_view name) {
  for (unsigned char c : name) {
    if (c < 0x20 || c == 0x7F) {
      Fail(regerr::kInvalidName, "A registry name cannot hold control characters");
    }
  }
}

// The full path ("HKEY_...\a\b") of `key` below `root`, with its segments as given.
std::string FullPath(RegRoot root, std::string_view key) {
  std::string path(RegRootName(root));
  for (std::string_view part : SplitPath(key)) {
    path += '\\';
    path += part;
  }
  return path;
}

// ---- text form ----------------------------------------------------------------------------------

void AppendQuoted(std::string& out, std::string_view s) {
  static const char kHex[] = "0123456789abcdef";
  out += '"';
  for (unsigned char c : s) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\0':
        out += "\\0";
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          out += "\\x";
          out += kHex[c >> 4];
          out += kHex[c & 0xF];
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
}

void AppendHexBytes(std::string& out, std::string_view bytes) {
  static const char kHex[] = "0123456789abcdef";
  for (std::size_t k = 0; k < bytes.size(); ++k) {
    if (k > 0) out += ',';
    const auto c = static_cast<unsigned char>(bytes[k]);
    out += kHex[c >> 4];
    out += kHex[c & 0xF];
  }
}

std::string_view TypeWord(RegType type) {
  switch (type) {
    case RegType::None:
      return "none";
    case RegType::Sz:
      return "sz";
    case RegType::ExpandSz:
      return "expand_sz";
    case RegType::Binary:
      return "binary";
    case RegType::Dword:
      return "dword";
    case RegType::MultiSz:
      return "multi_sz";
  }
  return "none";
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads one line of the file; every error names the file and the line.
class LineParser {
 public:
  LineParser(std::string_view line, const std::string& origin, int line_number)
      : s_(line), origin_(origin), line_number_(line_number) {}

  [[noreturn]] void Damaged(std::string_view what) const {
    Fail(regerr::kDamaged, "The settings store " + origin_ + " is damaged at line " +
                               std::to_string(line_number_) + ": " + std::string(what));
  }

  bool AtEnd() const { return pos_ >= s_.size(); }
  bool Peek(char c) const { return pos_ < s_.size() && s_[pos_] == c; }
  void Expect(char c) {
    if (!Peek(c)) Damaged(std::string("expected '") + c + "'");
    ++pos_;
  }
  void SkipSpaces() {
    while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\t')) ++pos_;
  }
  void ExpectEnd() {
    SkipSpaces();
    if (!AtEnd()) Damaged("unexpected text after the value");
  }

  std::string Quoted() {
    Expect('"');
    std::string out;
    while (true) {
      if (AtEnd()) Damaged("unterminated text");
      const char c = s_[pos_++];
      if (c == '"') return out;
      if (c != '\\') {
        out += c;
        continue;
      }
      if (AtEnd()) Damaged("unterminated escape");
      const char e = s_[pos_++];
      switch (e) {
        case '"':
          out += '"';
          break;
        case '\\':
          out += '\\';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case '0':
          out += '\0';
          break;
        case 'x': {
          const int hi = pos_ < s_.size() ? HexDigit(s_[pos_]) : -1;
          const int lo = pos_ + 1 < s_.size() ? HexDigit(s_[pos_ + 1]) : -1;
          if (hi < 0 || lo < 0) Damaged("bad \\x escape");
          out += static_cast<char>(hi * 16 + lo);
          pos_ += 2;
          break;
        }
        default:
          Damaged(std::string("unknown escape \\") + e);
      }
    }
  }

  std::string_view Word() {
    const std::size_t start = pos_;
    while (pos_ < s_.size() &&
           (std::isalnum(static_cast<unsigned char>(s_[pos_])) || s_[pos_] == '_')) {
      ++pos_;
    }
    return s_.substr(start, pos_ - start);
  }

  std::string HexBytes() {
    std::string out;
    SkipSpaces();
    if (AtEnd()) return out;
    while (true) {
      SkipSpaces();
      const int hi = pos_ < s_.size() ? HexDigit(s_[pos_]) : -1;
      const int lo = pos_ + 1 < s_.size() ? HexDigit(s_[pos_ + 1]) : -1;
      if (hi < 0 || lo < 0) Damaged("bad hexadecimal byte");
      out += static_cast<char>(hi * 16 + lo);
      pos_ += 2;
      SkipSpaces();
      if (AtEnd()) return out;
      Expect(',');
    }
  }

  std::uint32_t Number() {
    SkipSpaces();
    const std::size_t start = pos_;
    std::uint64_t n = 0;
    while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9') {
      n = n * 10 + static_cast<std::uint64_t>(s_[pos_] - '0');
      if (n > 0xFFFFFFFFu) Damaged("number out of range");
      ++pos_;
    }
    if (pos_ == start) Damaged("expected a number");
    return static_cast<std::uint32_t>(n);
  }

  std::vector<std::string> QuotedList() {
    std::vector<std::string> out;
    SkipSpaces();
    if (AtEnd()) return out;
    while (true) {
      SkipSpaces();
      out.push_back(Quoted());
      SkipSpaces();
      if (AtEnd()) return out;
      Expect(',');
    }
  }

 private:
  std::string_view s_;
  std::size_t pos_ = 0;
  const std::string& origin_;
  int line_number_;
};

// ---- files --------------------------------------------------------------------------------------

std::string ErrnoText() { return std::strerror(errno); }

std::optional<std::string> ReadWholeFile(const std::filesystem::path& file) {
  // Once created the file always exists: it is only ever replaced by a rename.
  std::error_code ec;
  if (!std::filesystem::exists(file, ec)) return std::nullopt;
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    Fail(regerr::kCantRead, "Cannot read the settings store " + file.string() + ": " + ErrnoText());
  }
  std::ostringstream ss;
  ss << in.rdbuf();
  if (in.bad()) Fail(regerr::kCantRead, "Cannot read the settings store " + file.string());
  return ss.str();
}

// Takes the store's lock file into `lock`, which holds it for its life.
void LockStore(FileLock& lock, const std::filesystem::path& path) {
  bool opened = false;
  if (lock.Acquire(path, opened) == 0) return;
  if (!opened) {
    Fail(regerr::kCantWrite, "Cannot open the lock file " + path.string() + ": " + ErrnoText());
  }
  Fail(regerr::kCantWrite, "Cannot lock " + path.string() + ": " + ErrnoText());
}

// Writes `content` to a temporary file beside `file`, flushes it to disk, and renames it over
// `file`, so that readers see the old or the new content, never a mixture.
void ReplaceFileAtomically(const std::filesystem::path& file, std::string_view content) {
  const std::filesystem::path temp =
      file.parent_path() / (file.filename().string() + ".tmp-" + std::to_string(::getpid()));
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) Fail(regerr::kCantWrite, "Cannot create " + temp.string() + ": " + ErrnoText());
  try {
    if (WriteAll(fd, content) != 0) {
      Fail(regerr::kCantWrite, "Cannot write " + temp.string() + ": " + ErrnoText());
    }
    if (::fsync(fd) != 0) {
      Fail(regerr::kCantWrite, "Cannot flush " + temp.string() + ": " + ErrnoText());
    }
  } catch (...) {
    ::close(fd);
    ::unlink(temp.c_str());
    throw;
  }
  ::close(fd);
  if (::rename(temp.c_str(), file.c_str()) != 0) {
    const std::string why = ErrnoText();
    ::unlink(temp.c_str());
    Fail(regerr::kCantWrite, "Cannot replace " + file.string() + ": " + why);
  }
  // Make the rename itself durable.
  const int dir = ::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
}

}  // namespace

// ---- roots and values ---------------------------------------------------------------------------

std::string_view RegRootName(RegRoot root) noexcept {
  switch (root) {
    case RegRoot::ClassesRoot:
      return "HKEY_CLASSES_ROOT";
    case RegRoot::CurrentUser:
      return "HKEY_CURRENT_USER";
    case RegRoot::LocalMachine:
      return "HKEY_LOCAL_MACHINE";
    case RegRoot::Users:
      return "HKEY_USERS";
  }
  return "HKEY_LOCAL_MACHINE";
}

std::optional<RegRoot> RegRootFromNumber(std::uint32_t number) noexcept {
  for (RegRoot root : kRoots) {
    if (static_cast<std::uint32_t>(root) == number) return root;
  }
  return std::nullopt;
}

RegValue RegValue::String(std::string s, RegType type) {
  RegValue v;
  v.type = type;
  v.text = std::move(s);
  return v;
}

RegValue RegValue::Dword(std::uint32_t n) {
  RegValue v;
  v.type = RegType::Dword;
  v.dword = n;
  return v;
}

RegValue RegValue::Binary(std::string bytes, RegType type) {
  RegValue v;
  v.type = type;
  v.text = std::move(bytes);
  return v;
}

RegValue RegValue::MultiString(std::vector<std::string> list) {
  RegValue v;
  v.type = RegType::MultiSz;
  v.strings = std::move(list);
  return v;
}

// ---- RegistryData -------------------------------------------------------------------------------

RegistryData::Key* RegistryData::FindKey(RegRoot root, std::string_view key) {
  const auto it = keys_.find(text::FoldCaseKey(FullPath(root, key)));
  return it == keys_.end() ? nullptr : &it->second;
}

const RegistryData::Key* RegistryData::FindKey(RegRoot root, std::string_view key) const {
  const auto it = keys_.find(text::FoldCaseKey(FullPath(root, key)));
  return it == keys_.end() ? nullptr : &it->second;
}

RegistryData::Key& RegistryData::EnsureKey(RegRoot root, std::string_view key) {
  std::string path(RegRootName(root));
  Key* found = nullptr;
  const auto parts = SplitPath(key);
  if (parts.empty()) {
    auto [it, inserted] = keys_.try_emplace(text::FoldCaseKey(path));
    if (inserted) it->second.path = path;
    return it->second;
  }
  for (std::string_view part : parts) {
    CheckName(part);
    path += '\\';
    path += part;
    auto [it, inserted] = keys_.try_emplace(text::FoldCaseKey(path));
    if (inserted) it->second.path = path;
    // Follow the stored spelling of parents that already exist.
    path = it->second.path;
    found = &it->second;
  }
  return *found;
}

bool RegistryData::HasKey(RegRoot root, std::string_view key) const {
  return SplitPath(key).empty() || FindKey(root, key) != nullptr;
}

bool RegistryData::CreateKey(RegRoot root, std::string_view key) {
  if (HasKey(root, key)) return false;
  EnsureKey(root, key);
  return true;
}

RegistryData::DeleteResult RegistryData::DeleteKey(RegRoot root, std::string_view key) {
  if (SplitPath(key).empty()) return DeleteResult::kHasSubkeys;
  const std::string folded = text::FoldCaseKey(FullPath(root, key));
  const auto it = keys_.find(folded);
  if (it == keys_.end()) return DeleteResult::kNotFound;
  const std::string prefix = folded + '\\';
  const auto sub = keys_.lower_bound(prefix);
  if (sub != keys_.end() && sub->first.compare(0, prefix.size(), prefix) == 0) {
    return DeleteResult::kHasSubkeys;
  }
  keys_.erase(it);
  return DeleteResult::kDeleted;
}

const RegValue* RegistryData::FindValue(RegRoot root, std::string_view key,
                                        std::string_view name) const {
  const Key* k = FindKey(root, key);
  if (!k) return nullptr;
  for (const auto& [value_name, value] : k->values) {
    if (text::EqualsNoCase(value_name, name)) return &value;
  }
  return nullptr;
}

void RegistryData::SetValue(RegRoot root, std::string_view key, std::string_view name,
                            RegValue value) {
  CheckName(name);
  Key& k = EnsureKey(root, key);
  for (auto& [value_name, stored] : k.values) {
    if (text::EqualsNoCase(value_name, name)) {
      stored = std::move(value);
      return;
    }
  }
  k.values.emplace_back(std::string(name), std::move(value));
}

bool RegistryData::DeleteValue(RegRoot root, std::string_view key, std::string_view name) {
  Key* k = FindKey(root, key);
  if (!k) return false;
  const auto it = std::find_if(k->values.begin(), k->values.end(),
                               [&](const auto& v) { return text::EqualsNoCase(v.first, name); });
  if (it == k->values.end()) return false;
  k->values.erase(it);
  return true;
}

std::vector<std::string> RegistryData::ValueNames(RegRoot root, std::string_view key) const {
  std::vector<std::string> names;
  if (const Key* k = FindKey(root, key)) {
    for (const auto& v : k->values) names.push_back(v.first);
  }
  return names;
}

std::vector<std::string> RegistryData::SubkeyNames(RegRoot root, std::string_view key) const {
  const std::string prefix = text::FoldCaseKey(FullPath(root, key)) + '\\';
  std::vector<std::string> names;
  for (auto it = keys_.lower_bound(prefix);
       it != keys_.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
    if (it->first.find('\\', prefix.size()) != std::string::npos) continue;
    const std::string& path = it->second.path;
    names.push_back(path.substr(path.rfind('\\') + 1));
  }
  return names;
}

std::string RegistryData::Serialize() const {
  std::string out =
      "# Gleanwright settings store: registry keys and their values.\n"
      "# [key] is followed by its values: \"name\"=type:data, with the types sz, expand_sz,\n"
      "# multi_sz (\"a\",\"b\"), dword (decimal), binary and none (hexadecimal bytes 00,ff).\n";
  for (const auto& [folded, key] : keys_) {
    out += "\n[";
    out += key.path;
    out += "]\n";
    for (const auto& [name, value] : key.values) {
      AppendQuoted(out, name);
      out += '=';
      out += TypeWord(value.type);
      out += ':';
      switch (value.type) {
        case RegType::Sz:
        case RegType::ExpandSz:
          AppendQuoted(out, value.text);
          break;
        case RegType::Dword:
          out += std::to_string(value.dword);
          break;
        case RegType::Binary:
        case RegType::None:
          AppendHexBytes(out, value.text);
          break;
        case RegType::MultiSz:
          for (std::size_t k = 0; k < value.strings.size(); ++k) {
            if (k > 0) out += ',';
            AppendQuoted(out, value.strings[k]);
          }
          break;
      }
      out += '\n';
    }
  }
  return out;
}

RegistryData RegistryData::Parse(std::string_view text, const std::string& origin) {
  RegistryData data;
  Key* current = nullptr;
  int line_number = 0;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    ++line_number;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const std::string_view trimmed = text::TrimWhitespace(line);
    if (trimmed.empty() || trimmed[0] == '#' || trimmed[0] == ';') continue;
    LineParser p(trimmed, origin, line_number);
    if (trimmed[0] == '[') {
      if (trimmed.back() != ']') p.Damaged("a key line must end with ']'");
      const std::string_view path = trimmed.substr(1, trimmed.size() - 2);
      const std::size_t slash = path.find('\\');
      const std::string_view root_name = path.substr(0, slash);
      std::optional<RegRoot> root;
      for (RegRoot r : kRoots) {
        if (text::EqualsNoCase(RegRootName(r), root_name)) root = r;
      }
      if (!root) p.Damaged("unknown root '" + std::string(root_name) + "'");
      const std::string_view rest =
          slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
      current = &data.EnsureKey(*root, rest);
      continue;
    }
    if (!current) p.Damaged("a value must follow a [key] line");
    std::string name = p.Quoted();
    p.SkipSpaces();
    p.Expect('=');
    p.SkipSpaces();
    const std::string_view word = p.Word();
    p.Expect(':');
    RegValue value;
    if (word == "sz" || word == "expand_sz") {
      p.SkipSpaces();
      value = RegValue::String(p.Quoted(), word == "sz" ? RegType::Sz : RegType::ExpandSz);
    } else if (word == "dword") {
      value = RegValue::Dword(p.Number());
    } else if (word == "binary" || word == "none") {
      value = RegValue::Binary(p.HexBytes(), word == "binary" ? RegType::Binary : RegType::None);
    } else if (word == "multi_sz") {
      value = RegValue::MultiString(p.QuotedList());
    } else {
      p.Damaged("unknown type '" + std::string(word) + "'");
    }
    p.ExpectEnd();
    bool replaced = false;
    for (auto& [value_name, stored] : current->values) {
      if (text::EqualsNoCase(value_name, name)) {
        stored = value;
        replaced = true;
      }
    }
    if (!replaced) current->values.emplace_back(std::move(name), std::move(value));
  }
  return data;
}

// ---- RegistryStore ------------------------------------------------------------------------------

RegistryStore::RegistryStore() : file_(HomeDir() / "registry.txt") {}

RegistryStore::RegistryStore(std::filesystem::path file) : file_(std::move(file)) {}

RegistryData RegistryStore::Read() const {
  const auto content = ReadWholeFile(file_);
  if (!content) return RegistryData();
  return RegistryData::Parse(*content, file_.string());
}

void RegistryStore::Update(const std::function<bool(RegistryData&)>& change) {
  if (file_.has_parent_path()) {
    std::error_code ec;
    std::filesystem::create_directories(file_.parent_path(), ec);
  }
  FileLock lock;
  LockStore(lock, file_.string() + ".lock");
  RegistryData data = Read();
  if (!change(data)) return;
  ReplaceFileAtomically(file_, data.Serialize());
}

std::optional<RegValue> RegistryStore::QueryValue(RegRoot root, std::string_view key,
                                                  std::string_view name) const {
  const RegistryData data = Read();
  if (const RegValue* v = data.FindValue(root, key, name)) return *v;
  return std::nullopt;
}

void RegistryStore::SetValue(RegRoot root, std::string_view key, std::string_view name,
                             RegValue value) {
  Update([&](RegistryData& data) {
    data.SetValue(root, key, name, std::move(value));
    return true;
  });
}

bool RegistryStore::DeleteValue(RegRoot root, std::string_view key, std::string_view name) {
  bool deleted = false;
  Update([&](RegistryData& data) {
    deleted = data.DeleteValue(root, key, name);
    return deleted;
  });
  return deleted;
}

}  // namespace gw
