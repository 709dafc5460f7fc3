// The settings store that stands in for the system registry: keys with typed values, kept in
// one human-readable text file below `HomeDir()` ("registry.txt").
//
// Keys keep their registry paths ("HKEY_LOCAL_MACHINE\SOFTWARE\Tallowmere\Zentrovo"): a root,
// then names separated by backslashes. Key and value names compare without case, as in the
// registry, and keep the spelling they were created with. Creating a key creates its parents.
//
// Files and processes: every change is a read-modify-write of the whole file under an exclusive
// `flock` on "registry.txt.lock", written to a temporary file and renamed over the old one. Two
// processes may therefore change the store at once without losing an update, and a reader (which
// takes no lock) sees either the old or the new file, never half of one.
//
// The file format, one item per line:
//   # comment
//   [HKEY_LOCAL_MACHINE\SOFTWARE\Tallowmere\Zentrovo]
//   "CnStr"=sz:"text"             (also expand_sz)
//   "IsFirstRun"=dword:1           (decimal, 0 to 4294967295)
//   "Blob"=binary:00,1f,ff         (also none)
//   "List"=multi_sz:"a","b"
// Texts are in double quotes with the escapes \" \\ \n \r \t \0 and \xHH.
//
// Failures are `gw::Error`s with source "RegistryStore": the file cannot be read (0x800703F4) or
// written (0x800703F5), the file is damaged (0x800703F9, with the line), or a name holds a
// control character (0x80070057).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"

namespace gw {

// The predefined roots, numbered as the registry numbers them.
enum class RegRoot : std::uint32_t {
  ClassesRoot = 0x80000000u,
  CurrentUser = 0x80000001u,
  LocalMachine = 0x80000002u,
  Users = 0x80000003u,
};
// "HKEY_LOCAL_MACHINE" and so on.
std::string_view RegRootName(RegRoot root) noexcept;
// A root from its number; nullopt for any other number.
std::optional<RegRoot> RegRootFromNumber(std::uint32_t number) noexcept;

enum class RegType : std::uint32_t {
  None = 0,
  Sz = 1,
  ExpandSz = 2,
  Binary = 3,
  Dword = 4,
  MultiSz = 7,
};

struct RegValue {
  RegType type = RegType::Sz;
  std::string text;                  // Sz and ExpandSz; the raw bytes of Binary and None
  std::uint32_t dword = 0;           // Dword
  std::vector<std::string> strings;  // MultiSz

  static RegValue String(std::string s, RegType type = RegType::Sz);
  static RegValue Dword(std::uint32_t n);
  static RegValue Binary(std::string bytes, RegType type = RegType::Binary);
  static RegValue MultiString(std::vector<std::string> list);

  friend bool operator==(const RegValue&, const RegValue&) = default;
};

// The whole content of a store, in memory. Roots always exist; other keys exist once created.
class RegistryData {
 public:
  enum class DeleteResult { kDeleted, kNotFound, kHasSubkeys };

  // `key` is a path below `root`; "" is the root itself. Empty segments are ignored, so
  // "\SOFTWARE\\x\" is "SOFTWARE\x".
  bool HasKey(RegRoot root, std::string_view key) const;
  // Creates the key and its parents; false if it existed.
  bool CreateKey(RegRoot root, std::string_view key);
  // A key with subkeys is not deleted (as in the registry). A root cannot be deleted.
  DeleteResult DeleteKey(RegRoot root, std::string_view key);
  // Null if the key or the value does not exist. Valid until the next change.
  const RegValue* FindValue(RegRoot root, std::string_view key, std::string_view name) const;
  // Creates the key when needed. An existing value keeps its name's spelling.
  void SetValue(RegRoot root, std::string_view key, std::string_view name, RegValue value);
  // False if the key or value did not exist.
  bool DeleteValue(RegRoot root, std::string_view key, std::string_view name);
  // Names in the order the values were created.
  std::vector<std::string> ValueNames(RegRoot root, std::string_view key) const;
  // Names of the direct subkeys, sorted without case.
  std::vector<std::string> SubkeyNames(RegRoot root, std::string_view key) const;

  std::string Serialize() const;
  // `origin` names the file in failures.
  static RegistryData Parse(std::string_view text, const std::string& origin);

 private:
  struct Key {
    std::string path;  // as created, with the root's name first
    std::vector<std::pair<std::string, RegValue>> values;
  };
  // Folded full path -> key. Roots are present only when they hold values.
  using KeyMap = std::map<std::string, Key>;

  Key* FindKey(RegRoot root, std::string_view key);
  const Key* FindKey(RegRoot root, std::string_view key) const;
  Key& EnsureKey(RegRoot root, std::string_view key);

  KeyMap keys_;
};

class RegistryStore {
 public:
  // The store below `HomeDir()`.
  RegistryStore();
  explicit RegistryStore(std::filesystem::path file);

  const std::filesystem::path& File() const noexcept { return file_; }

  // The content as it is now (a missing file is an empty store).
  RegistryData Read() const;
  // Reads, applies `change` and writes the result back, all under the store's lock, so that no
  // other process's update falls between the read and the write. `change` returns whether it
  // changed anything; nothing is written when it returns false. Failures of `change` propagate
  // and leave the file as it was.
  void Update(const std::function<bool(RegistryData&)>& change);

  // Shorthands, each one read or one update.
  std::optional<RegValue> QueryValue(RegRoot root, std::string_view key,
                                     std::string_view name) const;
  void SetValue(RegRoot root, std::string_view key, std::string_view name, RegValue value);
  bool DeleteValue(RegRoot root, std::string_view key, std::string_view name);

 private:
  std::filesystem::path file_;
};

}  // namespace gw
