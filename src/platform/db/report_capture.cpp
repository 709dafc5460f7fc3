#include "platform/db/report_capture.h"

#include <mysql.h>
#include <sqlite3.h>
#include <xlsxwriter.h>
#include <string>
#include <vector>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"

namespace gw::db {

namespace {

std::string StateText(const Connection& cn) {
  std::string state = cn.IsOpen() ? "adStateOpen" : "adStateClosed";
  // Statements run to completion before a call returns, so a connection is never caught
  // connecting, executing or fetching.
  return state;
}

std::string FailureText(const std::exception& e) {
  if (const auto* err = dynamic_cast<const Error*>(&e)) return err->Description();
  return e.what();
}

// Calls `call` on the released object and says in `lines` how it went ("    Connection: Attempt
// to call Close succeeded").
template <typename Call>
void Attempt(std::vector<std::string>& lines, const char* object, const char* method, Call call) {
  const std::string attempt = std::string("    ") + object + ": Attempt to call " + method;
  try {
    call();
    lines.push_back(attempt + " succeeded");
  } catch (const std::exception& e) {
    lines.push_back(attempt + " failed with error '" + FailureText(e) + "'");
  }
}

}  // namespace

void CaptureForReport(const DbObjectRef& ref, bool describe, ErrorFrame& frame) noexcept {
  try {
    Connection* cn = ref.connection;
    std::string type = "Connection";
    bool taken = false;
    if (!cn && ref.recordset) {
      type = ref.recordset->TypeName();
      cn = ref.recordset->ActiveConnection().get();
      taken = cn != nullptr;
    }
    if (describe) {
      DbFacts facts;
      facts.object_type = type;
      facts.connection_taken = taken;
      if (cn) {
        facts.connection_string = MaskPasswords(cn->ConnectionString());
        facts.state = StateText(*cn);
        facts.errors = cn->Errors();
        facts.driver = DriverNameFor(cn->Properties());
      } else {
        facts.state = "adStateClosed";
      }
      frame.db = std::move(facts);
    }
    // The component-services attempts of the desktop library (aborting the object context and
    // its transaction) have no counterpart here: only the connection's own transaction is
    // released.
    std::vector<std::string>& lines = frame.released;
    if (!cn) return;
    if (!cn->IsOpen()) {
      lines.push_back("    Transaction: Could not call RollbackTrans: Connection is closed ");
    } else if (cn->InTransaction() && !cn->IsPooled()) {
      Attempt(lines, "Transaction", "RollbackTrans", [&] { cn->RollbackTrans(); });
    }
    if (ref.close) Attempt(lines, "Connection", "Close", [&] { cn->Close(); });
    lines.push_back("    Released Objects: " + type + (taken ? ", Connection" : ""));
  } catch (...) {
    // A report must never replace the failure it reports.
  }
}

ErrorFrame BorrowedConnectionFrame(std::string_view log_name, const ArgValues& args,
                                   ErrorNumber number, Connection* cn) noexcept {
  ErrorFrame frame;
  try {
    frame.method = std::string(log_name);
    if (IsApplicationError(number)) return frame;
    try {
      args.Format(frame.values);
    } catch (const std::exception& e) {
      frame.values.clear();
      frame.values_failure = e.what();
    }
    if (cn) {
      DbFacts facts;
      facts.object_type = "Connection";
      facts.connection_string = MaskPasswords(cn->ConnectionString());
      facts.state = StateText(*cn);
      facts.errors = cn->Errors();
      facts.driver = DriverNameFor(cn->Properties());
      frame.db = std::move(facts);
    }
  } catch (...) {
    // A report must never replace the failure it reports.
  }
  return frame;
}

std::string DatabaseLayerVersion() {
  std::string out = "SQLite ";
  out += sqlite3_libversion();
  out += "; MariaDB Connector/C ";
  out += mysql_get_client_info();
  out += "; libxlsxwriter ";
  out += lxw_version();
  return out;
}

}  // namespace gw::db
