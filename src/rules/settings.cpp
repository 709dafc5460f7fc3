#include "rules/settings.h"

#include <array>

#include "platform/db/recordset.h"
#include "rules/connection_string.h"
#include "rules/rules_schema.h"
#include "rules/rules_transaction.h"
#include "rules/sql_dialect.h"

namespace gw {

namespace {
std::string Dialect(db::Connection& cn) { return std::string(cn.GetDriver().Dialect()); }
}  // namespace

Settings::Settings() : Settings(modConnectionString::GetCnStr()) {}

Settings::Settings(const std::string& rules_db_conn_str)
    : cn_(RulesSession::ActiveConnection(rules_db_conn_str)), owns_connection_(cn_ == nullptr) {
  if (owns_connection_) {
    cn_ = ReportAs("Settings.Class_Initialize",
                   [&] { return OpenRulesConnection(rules_db_conn_str); });
  }
}

Settings::~Settings() {
  if (cn_ && owns_connection_) cn_->Close();
}

Variant Settings::GetOption(const std::string& Name) {
  return ReportAs("Settings.GetOption(Name)", Args(Name), [&] {
    auto rs = db::Recordset::Create();
    rs->Open(TranslateSql("SELECT * FROM settings WHERE [name] = ?", Dialect(*cn_)), cn_,
             db::CursorType::Static, db::LockType::ReadOnly, std::vector<Variant>{Variant(Name)});
    if (rs->IsEOF()) return Variant();
    const Variant& val = (*rs)["val"].Value();
    if (val.IsNull()) return Variant();
    const std::string type = (*rs)["datatype"].Value().ToText();
    if (type == "string") return Variant(val.ToString());
    if (type == "dword") return Variant(static_cast<int>(val.ToLong()));
    if (type == "bool") return Variant(val.ToBool());
    return val;
  });
}

void Settings::PutOption(const std::string& Name, const Variant& Value, DataType ValueType) {
  ReportAs("Settings.PutOption(Name,Value,ValueType)", Args(Name, Value, ValueType), [&] {
    const std::string dialect = Dialect(*cn_);
    cn_->ExecuteNonQuery(TranslateSql("DELETE FROM [Settings] WHERE [name] = ?", dialect),
                         std::vector<Variant>{Variant(Name)});
    auto rs = db::Recordset::Create();
    rs->Open(TranslateSql("SELECT TOP 1 * FROM [Settings]", dialect), cn_, db::CursorType::Keyset,
             db::LockType::Optimistic);
    const char* type = ValueType == DataType::Dword  ? "dword"
                       : ValueType == DataType::Bool ? "bool"
                                                     : "string";
    const std::array<std::string, 3> names{"name", "val", "datatype"};
    const std::array<Variant, 3> values{Variant(Name), Value, Variant(type)};
    rs->AddNew(names, values);
    rs->SetActiveConnection(nullptr);
  });
}

}  // namespace gw
