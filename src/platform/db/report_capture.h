// What an error report takes of a database object as the error passes the handler that named it
// (see `Args(...).Db(...)` in platform/report_args.h).
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"

namespace gw::db {

// With `describe`, fills `frame.db` with the object's facts (type, connection string with its
// passwords masked, state, the driver's errors). Then releases what the failure holds: an open
// transaction on the object's connection is rolled back, and with `ref.close` the connection is
// closed; each attempt and its outcome become a line of `frame.released`. Never throws.
void CaptureForReport(const DbObjectRef& ref, bool describe, ErrorFrame& frame) noexcept;

// The frame of the handler `log_name` that borrowed `cn` (a transaction's or a session's
// connection) when the failure `number` passed it: its argument values and the connection
// described, nothing released, for the connection's owner rolls back its transaction. A failure
// of the application range gets the bare frame. Never throws.
ErrorFrame BorrowedConnectionFrame(std::string_view log_name, const ArgValues& args,
                                   ErrorNumber number, Connection* cn) noexcept;

// The drivers of the database layer and their library versions, for reports:
// "SQLite 3.40.1; MariaDB Connector/C 3.3.8; libxlsxwriter 1.1.4".
std::string DatabaseLayerVersion();

}  // namespace gw::db
