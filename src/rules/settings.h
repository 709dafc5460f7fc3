// Settings: named options kept in the `settings` table of the rules database.
#pragma once

#include <string>

#include "platform/db/connection.h"
#include "platform/variant.h"

namespace gw {

// How an option's value is kept: `datatype` "string", "dword" or "bool".
enum class DataType : int { Str = 0, Dword = 1, Bool = 2 };

class Settings {
 public:
  // Opens one connection on the rules connection string (`modConnectionString::GetCnStr`), or
  // on `rules_db_conn_str`, kept until the object goes; inside a `RulesSession` on that string,
  // uses the session's.
  Settings();
  explicit Settings(const std::string& rules_db_conn_str);
  ~Settings();
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;

  // The option's value by its datatype: "string" a String, "dword" a Long, "bool" a Boolean,
  // anything else the raw value. Empty when there is no such option or its value is null; a
  // missing option is no error. Names ignore case.
  Variant GetOption(const std::string& Name);
  // Replaces the option: its row is deleted and a new one added with the datatype of `ValueType`.
  void PutOption(const std::string& Name, const Variant& Value, DataType ValueType);

 private:
  db::ConnectionPtr cn_;
  bool owns_connection_ = true;
};

}  // namespace gw
