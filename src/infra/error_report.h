// Error reports: the whole story of a failure, for the person who reads it the next morning.
//
// Every reporting method's handler (`gw::ReportAs`, platform/error.h) adds a frame to the error
// that passes it: its log name, its argument values and what a database object it names showed.
// Nothing is formatted on the normal path. The report is the text made from those frames:
//
//   <description>
//     Time='11/24/26 09:12:44' App='Gleanwright:0.1.0' ADO-version='SQLite 3.40.1; ...' ...
//     PlatformInfo='PlatformId=Linux;BuildNumber=...' ...
//     Method: Attrib.Extract ...
//     Number: -2147217900 = &H80040E14 = vbObjectError + 3604 = ERRMAP_APP_FIRST - 5690
//     ...
//     API Error: (2) No such file or directory
//     ADO Info: ...
//     Call Stack:
//       Attrib.Extract(SrcHTML)
//       Value Of SrcHTML:'...'
//     ------------------------------------------------------------------------------------------
//       Entity.Extract(...)
//       ...
//
// `ReportError` is what a host calls at its top level (`RaiseAgain` false): it finishes the
// report, shows it unless the number is a log-only one, appends it to "LogFile.txt" and, when the
// option "EnableWebErrorReporting" is True, hands it to the web report sender that the web layer
// installs. Inside the library (`RaiseAgain` true) it only adds the frame and raises the error
// again with its number unchanged. A failure of the application range (0x80041065 to 0x8004144D)
// is a planned refusal: it builds no report and travels with its short description.
//
// The error's number, source and description stay what the failure raised, so callers that keep
// a failure's text (a document's outcome, a run's row) keep the short one; the report travels
// beside it (`Error::Report`) and is rebuilt from the frames when asked. An error whose source is
// "ExceptionHandler.ErrorIn" carries a finished report as its description (a report received from
// elsewhere): it is taken as the report so far, and the frames are added below it.
//
// This layer cannot read the `settings` table or send HTTP requests: a host installs an option
// reader and writer (`SetReportOptions`), the web layer a sender (`SetWebReportSender`), and the
// host a way to show a report (`SetReportShower`). Without them, options read as unset, nothing is
// sent and nothing is shown. The preserved error is per thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/variant.h"

namespace gw {

namespace report_flag {
inline constexpr long kRaiseAgain = 1;
inline constexpr long kBuildReport = 2;
// The web information block needs a server's request object; this library runs in no server, so
// the flag is accepted and adds nothing.
inline constexpr long kWebInfo = 32;
inline constexpr long kCloseConnection = 64;
}  // namespace report_flag

namespace report_option {
inline constexpr const char* kLogOnlyErrors = "LogOnlyErrors";
inline constexpr const char* kEnableWebErrorReporting = "EnableWebErrorReporting";
// The error log server the web report is posted to ("http://host:port"); no default.
inline constexpr const char* kErrorLogServer = "ErrorLogServer";
}  // namespace report_option

// The source that marks a description as a finished report.
inline constexpr const char* kReportMarkerSource = "ExceptionHandler.ErrorIn";
// The description of a failure whose information was lost before `ErrorIn` saw it.
inline constexpr const char* kLostErrorText =
    "ErrorIn: Error information was lost. To fix: call ErrPreserve before doing anything in "
    "error handler.";
// The list of log-only numbers stored when "LogOnlyErrors" is empty.
extern const char* const kDefaultLogOnlyErrors;

// ---- what the host and the upper layers install ----

// Answers an option's value by name, Empty when it has none.
using ReportOptionReader = std::function<Variant(const std::string& name)>;
// Stores a text option.
using ReportOptionWriter = std::function<void(const std::string& name, const std::string& value)>;
void SetReportOptions(ReportOptionReader reader, ReportOptionWriter writer);
// The option's value through the installed reader; Empty without one or when it fails.
Variant ReadReportOption(const std::string& name) noexcept;

// The fields of the web report form.
struct WebReport {
  std::string app_name;
  std::string version;
  std::string active_form;
  std::string err_number;  // decimal, as a Long
  std::string err_source;
  std::string position;
  std::string err_description;
  std::string user_info;  // empty in this library
  std::string platform_info;
  std::string other_info;  // the report
};
using WebReportSender = std::function<void(const WebReport& report)>;
void SetWebReportSender(WebReportSender sender);

// Shows a report to the user (the host's error dialog). `report` is empty for a failure of the
// application range; the error then speaks for itself.
using ReportShower = std::function<void(const Error& error, const std::string& report)>;
void SetReportShower(ReportShower shower);

// The host's current command or window ("Active Form" of the report).
void SetActiveForm(std::string caption);
const std::string& ActiveForm();

// ---- the report ----

// "PlatformId=Linux;BuildNumber=...;version=6.1;CSDVersion=...;ServicePackVersion=0.0;
// SuiteMask=0;ProductType=x86_64", from `uname`.
std::string PlatformInfo();
// "Gleanwright" and the library's version.
const char* ApplicationTitle();
const char* ApplicationVersion();

// Fills `%Name%` placeholders of `report_template` from `values` (name, value) and "%nl%" with a
// line end. A "%" inside a value is protected while the template is filled, so a value can never
// be read as a placeholder.
std::string FillReportTemplate(std::string_view report_template,
                               const std::vector<std::pair<std::string, std::string>>& values);

// The report of `error` as it stands: header, API error line, database block, the call stack of
// its frames with their values and releasing lines. "" for a failure of the application range.
std::string BuildErrorReport(const Error& error);

// Whether `number` is in the log-only list ("LogOnlyErrors"; the default is stored when it is
// empty). Such a report is logged and sent but not shown.
bool IsLogOnlyError(ErrorNumber number);

// ---- the handler's steps ----

// Inside a `catch` block: copies the error being handled into this thread's preserved item, if
// none is held yet. Outside one it does nothing.
void ErrPreserve();
// The preserved error, if any.
const Error* PreservedError() noexcept;

// Adds the frame `method_name` (with `args` and `db`) to the preserved error (taking the current
// one first, or a failure 0x8004144E when there is none), releases what the failure holds, builds
// the report with `kBuildReport`, and clears the preserved item. With `kRaiseAgain` it throws the
// error; otherwise it returns it.
Error ErrorIn(std::string_view method_name, const ArgValues& args, long flags,
              std::string_view env = {});

// The routine a handler calls, inside its `catch` block. With `raise_again` it is `ErrorIn` with
// flags 3 and does not return. Otherwise it builds the report, shows it (`show_user`, unless the
// number is log-only), lets the event loop run, appends the report to "LogFile.txt", sends the
// web report when "EnableWebErrorReporting" is True, and returns the error with its report.
// `position` and `other_info` go into the frame's "Env" line (and `position` into the web report).
// Nothing in these steps replaces the error being reported.
Error ReportError(bool raise_again, bool show_user, std::string_view method_name,
                  const ArgValues& args, std::string_view position = {},
                  std::string_view other_info = {});

}  // namespace gw
