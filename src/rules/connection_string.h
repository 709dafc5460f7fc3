// Connection strings: the rules store's own string, kept between runs, and the text edits that
// the library makes on connection strings.
//
// Where the rules connection string comes from, first match wins:
//  1. the override of this run (`SetRulesConnectionOverride`, e.g. `gleanwright --rules ...`);
//     it is never stored;
//  2. the string cached by this process (set by `SetCnStr`, or read once from the store);
//  3. the enciphered "CnStr" value under "SOFTWARE\Tallowmere\Zentrovo" of the machine-wide
//     registry store;
//  4. the embedded SQLite store, "Provider=SQLite;Data Source=$GLEANWRIGHT_HOME/ZentrovoDB.sqlite".
#pragma once

#include <string>
#include <string_view>

namespace gw {

// Sets (non-empty) or clears (empty) the rules connection string of this process; while set,
// `GetCnStr` returns it and nothing is read from or written to the registry store.
void SetRulesConnectionOverride(std::string cn_str);
const std::string& RulesConnectionOverride();

// "Provider=SQLite;Data Source=<HomeDir()>/ZentrovoDB.sqlite".
std::string DefaultRulesConnectionString();

namespace modConnectionString {

// The rules connection string (see above). A value read from the registry store is deciphered
// when it does not contain "rovider" (in any case); a value that does not decipher, or deciphers
// to nothing, is taken as it stands, so an old clear-text value still works.
std::string GetCnStr();
// Stores `CnStr` enciphered in the registry store and caches it; an empty argument is ignored.
void SetCnStr(const std::string& CnStr);
// Forgets the cached string, so the next `GetCnStr` reads the store again.
void ClearCachedCnStr();

// The value of `sParam` in `sConnectString`: found with a binary comparison, from the "=" after
// it to `sEndDelimiter` (or the end), trimmed of spaces. Empty when an argument is empty or the
// name is absent. Positions are 16-bit, as they always were: a string longer than 32767
// characters fails with 6 (Overflow).
std::string GetParameter(std::string_view sParam, std::string_view sConnectString,
                         std::string_view sEndDelimiter);
// `sConnectString` with the value that `GetParameter` would read replaced by `Value`. An absent
// parameter is not added, and an empty value is not filled: the string comes back unchanged.
std::string SetParameter(std::string_view sParam, std::string_view Value,
                         std::string_view sConnectString, std::string_view sEndDelimiter);
// Repairs, in place, what a MySQL ODBC string needs before the OLE DB bridge accepts it (only a
// string whose Provider contains "MSDASQL"): the catalogue moves into "Extended Properties" as
// Database (`flag` false: a table in that database is addressed) or Database is dropped (`flag`
// true: the server itself is addressed), and Option=18475 is set. Returns the string.
std::string ReformatMySQLCnStr(std::string& CnStr, bool flag = false);

}  // namespace modConnectionString

// The public pair over the same store; the object keeps its own copy of the string.
class CConnectionString {
 public:
  std::string GetCnStr();
  void SetCnStr(const std::string& CnStr);

 private:
  std::string connection_string_;
};

}  // namespace gw
