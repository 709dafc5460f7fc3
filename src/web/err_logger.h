// `ErrLogger`: the web error report. It posts the report form to "/submiterror.aspx" of the error
// log server that the option "ErrorLogServer" names, and keeps its own record of each report in
// "log.txt" below the log folder.
//
// Nothing is sent unless the option "EnableWebErrorReporting" is True (error_report.h checks it
// before the sender is called), and no server address is built in: a user who wants the reports
// turns the option on and names a server of their own ("http://errors.example.org:8080").
// Every failure of the sending is ignored: a report must never replace the failure it reports.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "infra/error_report.h"

namespace gw::web {

inline constexpr const char* kErrorReportPath = "/submiterror.aspx";

class ErrLogger {
 public:
  // The form as XML: `<formvars>` with one `<ctrl name='...' val='...' />` per field, in the
  // order appName, version, activeForm, errNumber, errSource, position, errDescription, userInfo,
  // platformInfo, otherInfo; names and values HTML-encoded ("'" and "=" too, so that no value can
  // be read as markup or as an attribute). A "%" and spaces at a value's ends are escaped first,
  // so that the form's encoder posts the value unchanged.
  static std::string BuildFormXml(const WebReport& report);
  // Posts the form to `server` + "/submiterror.aspx". Returns whether the server answered with a
  // 2xx status; never throws.
  static bool SendWebReport(std::string_view server, const WebReport& report) noexcept;
  // Appends one line to "log.txt" in `folder`: the time, then the eight texts in double
  // quotation marks. Never throws; returns whether it was written.
  static bool LogToFile(const std::filesystem::path& folder, const std::string& a1,
                        const std::string& a2, const std::string& a3, const std::string& a4,
                        const std::string& a5, const std::string& a6, const std::string& a7,
                        const std::string& a8) noexcept;
};

// Installs the web report sender of error reporting: it posts to the server that
// "ErrorLogServer" names (nothing when it is empty) and records the outcome in "log.txt" of the
// log folder: application, version, number, source, description, position, server, outcome.
void InstallWebErrorReporting();

}  // namespace gw::web
