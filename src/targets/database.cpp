#include "targets/database.h"

#include <filesystem>
#include <fstream>

#include "platform/db/connection.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"
#include "targets/database_internal.h"
#include "targets/rules_link.h"

namespace gw {

namespace {

using targets_internal::CreateJet;
using targets_internal::CreateMySQL;
using targets_internal::CreateSQL;
using targets_internal::DropJet;
using targets_internal::DropSQL;
using targets_internal::GetParameter;
using targets_internal::GetProviderProperties;

[[noreturn]] void ThrowNotSupported(const std::string& provider, const char* source) {
  throw Error(targeterr::kDatabaseNotSupported, source,
              "The Database provider " + provider +
                  " not supported for automatic creation.  You may still be able to extract to "
                  "it, but you must create it yourself.");
}

[[noreturn]] void ThrowNoConnectionString(const char* source) {
  throw Error(targeterr::kNoConnectionString, source,
              "Connection string not specified, or invalid connection string");
}

bool Contains(std::string_view s, std::string_view what) {
  return s.find(what) != std::string_view::npos;
}

bool IsFile(const std::string& path) {
  std::error_code ec;
  return std::filesystem::exists(path, ec);
}

// An empty Access database: on this platform an Access target is a SQLite file, and an empty file
// is an empty SQLite database.
void CreateEmptyStoreFile(const std::string& path, const char* source) {
  std::ofstream out(path, std::ios::binary | std::ios::app);
  if (!out) throw Error(errnum::kPathNotFound, source, "Path not found: " + path);
}

void DeleteStoreFile(const std::string& path, const char* source) {
  std::error_code ec;
  if (!std::filesystem::remove(path, ec)) {
    if (ec) throw Error(errnum::kPermissionDenied, source, "Permission denied: " + path);
    throw Error(errnum::kFileNotFound, source, "File not found: " + path);
  }
}

// The name of the MySQL database a connection string addresses: its catalog, or "Database"
// inside its extended properties.
std::string MySqlDatabaseName(std::string_view CnStr) {
  std::string name = GetParameter("Initial Catalog", CnStr, ";");
  if (name.empty()) {
    const std::string ext = GetParameter("Extended Properties", CnStr, "\";");
    name = GetParameter("Database", ext, ";");
  }
  return name;
}

// `CnStr` repaired for the server itself, without a database: the database may not exist yet.
// Beyond what the ODBC repair does, the catalog is removed wherever this platform's MySQL client
// would read it (for MySQLProv, "Data Source" names the database).
std::string MySqlServerOnly(std::string_view CnStr) {
  const std::string repaired = targets_internal::ReformatMySQLCnStr(std::string(CnStr), true);
  auto props = db::ConnectionProperties::Parse(repaired);
  props.Remove("Initial Catalog");
  props.Remove("Database");
  if (text::StartsWithNoCase(props.Get("Provider"), "MySQLProv")) props.Remove("Data Source");
  if (const auto ext_text = props.Find("Extended Properties")) {
    auto ext = db::ConnectionProperties::Parse(*ext_text);
    ext.Remove("Database");
    props.Set("Extended Properties", ext.ToString());
  }
  return props.ToString();
}

// A connection to the "Master" catalog of the SQL Server that `CnStr` names, and in `name` the
// database `CnStr` names there.
db::ConnectionPtr OpenSqlServerMaster(std::string_view CnStr, std::string& name) {
  auto cn = db::Connection::Create();
  cn->SetConnectionString(CnStr);
  name = cn->Property("Initial Catalog");
  cn->SetProperty("Initial Catalog", "Master");
  cn->Open();
  return cn;
}

// Refuses a database name that the store of `cn` cannot hold, before anything is made.
void RefuseUnusableDatabaseName(db::Connection& cn, const std::string& name, const char* source) {
  const std::string why = cn.GetDriver().IdentifierProblem(db::IdentifierKind::Database, name);
  if (!why.empty()) {
    throw Error(targeterr::kUnusableName, source,
                "The database name \"" + text::EscapeControlCharacters(name) +
                    "\" cannot be used in this store: " + why + ".");
  }
}

// A name in SQL Server's brackets, a "]" doubled.
std::string Bracketed(std::string_view name) {
  return "[" + text::ReplaceAll(name, "]", "]]") + "]";
}

}  // namespace

std::string Database::Create(std::string_view CnStr, std::string_view DBName) {
  return ReportAs("Database.Create(CnStr,DBName)", Args(AsConnectionString(CnStr), DBName), [&] {
    if (CnStr.empty()) ThrowNoConnectionString("Database.Create");
    auto cn = db::Connection::Create();
    cn->SetConnectionString(CnStr);
    const std::string provider = cn->Provider();
    if (provider == "Microsoft.Jet.OLEDB.4.0") {
      if (CnStr.find("Excel") == std::string_view::npos || CnStr.find("Excel") == 0) {
        // The stand-in for copying the empty Access template: an empty store file.
        const std::string file = cn->Property("Data Source");
        if (!IsFile(file)) CreateEmptyStoreFile(file, "Database.Create");
        CreateJet(cn->ConnectionString());
      }
      // A workbook is made by the first table created in it.
    } else if (provider == "Microsoft.Jet.OLEDB.3.51") {
      const std::string file = cn->Property("Data Source");
      if (!IsFile(file)) CreateEmptyStoreFile(file, "Database.Create");
      CreateJet(cn->ConnectionString());
    } else if (provider == "SQLOLEDB.1" || provider == "SQLOLEDB") {
      if (!DBName.empty()) cn->SetProperty("Initial Catalog", DBName);
      CreateSQL(cn->ConnectionString());
    } else if (provider == "MySQLProv") {
      if (!DBName.empty()) cn->SetProperty("Initial Catalog", DBName);
      CreateMySQL(cn->ConnectionString());
    } else if (text::StartsWithNoCase(provider, "SQLite")) {
      // A SQLite file is made when it is first opened.
    } else if (text::FindNoCase(CnStr, "MySQL") != text::npos) {
      CreateMySQL(cn->ConnectionString());
    } else {
      ThrowNotSupported(provider, "Database.Create");
    }
    return cn->ConnectionString();
  });
}

void Database::Drop(std::string_view CnStr, std::string_view DBName) {
  ReportAs("Database.Drop(CnStr,DBName)", Args(AsConnectionString(CnStr), DBName), [&] {
    if (CnStr.empty()) ThrowNoConnectionString("Database.Drop");
    auto cn = db::Connection::Create();
    cn->SetConnectionString(CnStr);
    const std::string provider = cn->Provider();
    if (provider == "Microsoft.Jet.OLEDB.4.0" || provider == "Microsoft.Jet.OLEDB.3.51" ||
        text::StartsWithNoCase(provider, "SQLite")) {
      if (!DBName.empty()) cn->SetProperty("Data Source", DBName);
      DropJet(cn->ConnectionString());
    } else if (provider == "SQLOLEDB.1") {
      if (!DBName.empty()) cn->SetProperty("Initial Catalog", DBName);
      DropSQL(cn->ConnectionString());
    } else {
      ThrowNotSupported(provider, "Database.Drop");
    }
  });
}

std::string Database::ChangeDefaultDB(std::string_view CnStr, std::string_view DBName) {
  return ReportAs("Database.ChangeDefaultDB(CnStr,DBName)", Args(AsConnectionString(CnStr), DBName),
                  [&] {
                    auto cn = db::Connection::Create();
                    cn->SetConnectionString(CnStr);
                    const std::string provider = cn->Provider();
                    if (Contains(provider, "Microsoft.Jet.OLEDB") || Contains(CnStr, "Excel")) {
                      return std::string(CnStr);
                    }
                    // MySQLProv: the catalog that `Create` made the database under.
                    if (Contains(provider, "SQLOLEDB") || provider == "MySQLProv") {
                      cn->SetProperty("Initial Catalog", DBName);
                      return cn->ConnectionString();
                    }
                    return std::string(CnStr);
                  });
}

void targets_internal::DropJet(std::string_view CnStr) {
  ReportAs("Database.DropJet(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    // A file store that is not there cannot be opened (here opening would make it).
    const std::string named = db::ConnectionProperties::Parse(CnStr).Get("Data Source");
    if (!IsFile(named)) {
      throw Error(errnum::kFileNotFound, "Database.DropJet", "File not found: " + named);
    }
    auto cn = db::Connection::Create();
    cn->Open(CnStr);
    const std::string file = cn->Property("Data Source");
    cn->Close();
    DeleteStoreFile(file, "Database.DropJet");
  });
}

void targets_internal::DropSQL(std::string_view CnStr) {
  ReportAs("Database.DropSQL(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    std::string name;
    OpenSqlServerMaster(CnStr, name)->Execute("DROP DATABASE " + Bracketed(name));
  });
}

void targets_internal::DropMySQL(std::string_view CnStr) {
  ReportAs("Database.DropMySQL(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    const std::string name = MySqlDatabaseName(CnStr);
    auto cn = db::Connection::Create();
    cn->Open(MySqlServerOnly(CnStr));
    cn->Execute("DROP DATABASE " + cn->GetDriver().QuoteIdentifier(name));
  });
}

void targets_internal::CreateSQL(std::string_view CnStr) {
  ReportAs("Database.CreateSQL(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    std::string name;
    const auto cn = OpenSqlServerMaster(CnStr, name);
    RefuseUnusableDatabaseName(*cn, name, "Database.CreateSQL");
    try {
      cn->Execute("CREATE DATABASE " + Bracketed(name));
    } catch (const Error&) {
      // The database exists already.
    }
  });
}

void targets_internal::CreateMySQL(std::string_view CnStr) {
  ReportAs("Database.CreateMySQL(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    const std::string name = MySqlDatabaseName(CnStr);
    auto cn = db::Connection::Create();
    cn->Open(MySqlServerOnly(CnStr));
    // No name: the server's default database, if any, takes the tables.
    if (name.empty()) return;
    RefuseUnusableDatabaseName(*cn, name, "Database.CreateMySQL");
    try {
      cn->Execute("CREATE DATABASE IF NOT EXISTS " + cn->GetDriver().QuoteIdentifier(name));
    } catch (const Error&) {
      // No right to create it: the tables will tell.
    }
  });
}

bool targets_internal::CreateJet(std::string_view CnStr) {
  return ReportAs("Database.CreateJet(CnStr)", Args(AsConnectionString(CnStr)), [&] {
    auto props = db::ConnectionProperties::Parse(CnStr);
    const std::string file = props.Get("Data Source");
    const std::string catalog =
        "Provider='" + props.Get("Provider") + "';Data Source='" + file + "';";
    auto cn = db::Connection::Create();
    try {
      cn->Open(catalog);
      // A file that is no database fails here, not at the first table.
      cn->Execute("SELECT count(*) FROM sqlite_master");
    } catch (const Error&) {
      cn->Close();
      if (IsFile(file)) throw;
      // No database yet: make an empty one.
      CreateEmptyStoreFile(file, "Database.CreateJet");
      cn->Open(catalog);
    }
    return true;
  });
}

db::RecordsetPtr targets_internal::GetProviderProperties(std::string_view Provider) {
  return ReportAs("Database.GetProviderProperties(Provider)", Args(Provider),
                  [&] { return targets_internal::QueryProviderProperties(Provider); });
}

std::string Database::MakeName(std::string_view Name, std::string_view CnStr) {
  return ReportAs("Database.MakeName(Name,CnStr)", Args(Name, AsConnectionString(CnStr)), [&] {
    std::string name;
    name.reserve(Name.size() + 8);
    for (const char c : Name) {
      switch (c) {
        case '.':
        case ',':
        case ';':
        case '/':
        case '\\':
        case '*':
        case '?':
        case '&':
        case '!':
        case '-':
        case '+':
        case ':':
        case '=':
        case '~':
        case ' ':
          name += '_';
          break;
        case '\'':
        case '"':
        case '(':
        case ')':
        case '[':
        case ']':
        case '{':
        case '}':
        case '^':
        case '`':
          break;
        case '|':
          name += "_OR_";
          break;
        case '%':
          name += "_PCT_";
          break;
        case '<':
          name += "_LT_";
          break;
        case '>':
          name += "_GT_";
          break;
        case '@':
          name += "_AT_";
          break;
        case '#':
          name += "NUM_";
          break;
        case '$':
          name += "_DOL_";
          break;
        default:
          name += c;
      }
    }
    if (name.empty() || name.front() != '_') name.insert(name.begin(), '_');
    name = text::ToUpper(name);

    db::RecordsetPtr props = GetProviderProperties(GetParameter("Provider", CnStr, ";"));
    if (props->RecordCount() == 0) props = GetProviderProperties("Default");
    // Without even a "Default" row this fails with 3021: the rules store is incomplete.
    const long max_length = props->GetFields().Item("MaxNameLength").Value().ToLong();
    if (max_length >= 0) {
      name = std::string(text::TruncateCodePoints(name, static_cast<std::size_t>(max_length)));
    }
    return name;
  });
}

}  // namespace gw
