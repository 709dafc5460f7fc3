#include "infra/error_report.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "infra/computer_name.h"
#include "infra/failures.h"
#include "infra/log_files.h"
#include "platform/db/report_capture.h"
#include "platform/event_loop.h"
#include "platform/text.h"

#ifndef GW_VERSION
#define GW_VERSION "0.0.0"
#endif

namespace gw {

const char* const kDefaultLogOnlyErrors =
    "40018|40017|40007|35602|32765|20477|3706|3704|3265|3021|1012|1000|606|521|481|462|459|457|"
    "453|440|438|432|429|424|401|384|380|372|339|97|94|91|76|70|62|58|13|11|9|7|6|5|-1221211252|"
    "-1232200485|-1431200389|-1432200389|-1434179551|-1434179684|-1517199985|-1921190095|"
    "-2018190954|-2035119672|-2045619389|-2061179656|-2061179658|-2061179659|-2063179583|"
    "-2068180270|-2069179779|-2125518404|-2138517071|-2147012795|-2147012877|-2147023441|"
    "-2147023673|-2147023782|-2147023836|-2147023838|-2147024579|-2147024714|-2147024726|"
    "-2147024769|-2147024770|-2147024888|-2147024891|-2147198976|-2147199229|-2147199501|"
    "-2147211172|-2147216306|-2147217805|-2147217864|-2147217873|-2147217885|-2147217887|"
    "-2147217897|-2147217904|-2147219669|-2147219758|-2147219784|-2147220270|-2147220440|"
    "-2147221231|-2147221273|-2147221283|-2147221286|-2147221292|-2147221503|-2147221504|"
    "-2147417848|-2147417851|-2147418105|-2147418113|-2147483638";

namespace {

constexpr const char* kHeaderTemplate =
    "%Descr% %nl%  Time='%Time%' App='%App%:%Ver%' ADO-version='%ADOVersion%' Computer='%Comp%' "
    "%nl%  PlatformInfo='%PlatformInfo%' %nl%  Active Form='%ActiveForm%' %nl%  Method: "
    "%MethodName% %nl%  Number: %ErrNum% = &H%ErrHex% = vbObjectError %ErrNumRel1% = "
    "ERRMAP_APP_FIRST %ErrNumRel2% %ErrStd%%nl%  Source: %Source% %nl%  Description: "
    "%Descr%%nl%   Additional Info: %ModSpecific% %nl%";

// Stands for a "%" of a value while the template is filled; a report never holds this byte.
constexpr char kProtectedPercent = '\x1A';

struct Hooks {
  std::mutex mutex;
  ReportOptionReader reader;
  ReportOptionWriter writer;
  WebReportSender sender;
  ReportShower shower;
  std::string active_form;
};
Hooks& TheHooks() {
  static Hooks hooks;
  return hooks;
}

thread_local std::optional<Error> t_preserved;

// The number as a Long.
std::int64_t AsLong(ErrorNumber n) { return static_cast<std::int32_t>(n); }

std::string Relative(ErrorNumber n, ErrorNumber base) {
  const std::int64_t d = AsLong(n) - AsLong(base);
  return (d < 0 ? "- " : "+ ") + std::to_string(d < 0 ? -d : d);
}

std::string Hex(ErrorNumber n) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%X", static_cast<unsigned>(n));
  return buf;
}

std::string Two(int v) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "%02d", v % 100);
  return buf;
}

// "Mm/Dd/yy Hh:Nn:Ss".
std::string ReportTime(const DateTime& t) {
  return Two(t.Month()) + "/" + Two(t.Day()) + "/" + Two(t.Year()) + " " + Two(t.Hour()) + ":" +
         Two(t.Minute()) + ":" + Two(t.Second());
}

std::string MethodOnly(std::string_view log_name) {
  return std::string(log_name.substr(0, log_name.find('(')));
}

std::vector<std::string> ArgumentNames(std::string_view log_name) {
  std::vector<std::string> names;
  const std::size_t open = log_name.find('(');
  if (open == std::string_view::npos) return names;
  std::string_view list = log_name.substr(open + 1);
  if (!list.empty()) list.remove_suffix(1);  // the closing bracket
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    names.emplace_back(text::TrimSpaces(list.substr(0, comma)));
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return names;
}

// The markup laid out as an element named after the argument, one tag per line.
void AppendMarkup(std::string& out, const std::string& name, const std::string& markup) {
  if (markup.empty()) {
    out += "      <" + name + "/>\n";
    return;
  }
  out += "      <" + name + ">\n";
  std::string line;
  auto flush = [&] {
    const std::string_view t = text::TrimSpaces(line);
    if (!t.empty()) out += "        " + std::string(t) + "\n";
    line.clear();
  };
  for (std::size_t i = 0; i < markup.size(); ++i) {
    const char c = markup[i];
    if (c == '<') flush();
    if (c == '\r' || c == '\n') {
      flush();
      continue;
    }
    line += c;
    if (c == '>') flush();
  }
  flush();
  out += "      </" + name + ">\n";
}

void AppendFrame(std::string& out, const ErrorFrame& frame) {
  out += "    " + frame.method + "\n";
  if (!frame.values_failure.empty()) {
    out += "    ErrorIn failed to extract error information: " + frame.values_failure + "\n";
  }
  const std::vector<std::string> names = ArgumentNames(frame.method);
  for (std::size_t i = 0; i < frame.values.size(); ++i) {
    const std::string name = i < names.size() ? names[i] : "Arg" + std::to_string(i + 1);
    const ReportValue& v = frame.values[i];
    out += "    Value Of " + name + ":" + v.text + "\n";
    if (v.is_markup) AppendMarkup(out, name, v.markup);
  }
  out += std::string(100, '-') + "\n";
  if (!frame.env.empty()) out += "    Env: " + frame.env + "\n";
  for (const std::string& line : frame.released) out += line + "\n";
}

void AppendDatabaseBlock(std::string& out, const DbFacts& db) {
  out += "  ADO Info: \n";
  out += "    ADO Version:   " + db::DatabaseLayerVersion() + "\n";
  out += "    DbObject:      " + db.object_type;
  if (db.connection_taken) out += " (Connection object was preserved internally)";
  out += "\n";
  out += "    Conn. String: '" + db.connection_string + "'\n";
  out += "    Conn. State:   " + db.state + "\n";
  for (const std::string& e : db.errors) out += "    Error:         " + e + "\n";
}

// Runs `step`, swallowing whatever it throws: a report must never replace the failure.
template <typename Step>
void Tolerating(Step&& step) noexcept {
  try {
    step();
  } catch (...) {
  }
}

bool OptionIsTrue(const Variant& v) {
  if (v.IsEmpty() || v.IsNull()) return false;
  if (v.IsString()) {
    const std::string t(text::TrimSpaces(v.ToText()));
    return text::EqualsNoCase(t, "true") || t == "1" || t == "-1" || text::EqualsNoCase(t, "yes");
  }
  return v.ToBool();
}

}  // namespace

// ---- hooks ----

void SetReportOptions(ReportOptionReader reader, ReportOptionWriter writer) {
  std::lock_guard lock(TheHooks().mutex);
  TheHooks().reader = std::move(reader);
  TheHooks().writer = std::move(writer);
}

Variant ReadReportOption(const std::string& name) noexcept {
  try {
    ReportOptionReader reader;
    {
      std::lock_guard lock(TheHooks().mutex);
      reader = TheHooks().reader;
    }
    if (reader) return reader(name);
  } catch (...) {
  }
  return Variant();
}

void SetWebReportSender(WebReportSender sender) {
  std::lock_guard lock(TheHooks().mutex);
  TheHooks().sender = std::move(sender);
}

void SetReportShower(ReportShower shower) {
  std::lock_guard lock(TheHooks().mutex);
  TheHooks().shower = std::move(shower);
}

void SetActiveForm(std::string caption) {
  std::lock_guard lock(TheHooks().mutex);
  TheHooks().active_form = std::move(caption);
}

const std::string& ActiveForm() { return TheHooks().active_form; }

// ---- the report ----

std::string PlatformInfo() {
  struct utsname u {};
  if (uname(&u) != 0) return "PlatformId=?";
  const std::string release = u.release;
  // "6.1.0-18-amd64": major and minor are the first two numbers.
  int major = 0;
  int minor = 0;
  std::sscanf(release.c_str(), "%d.%d", &major, &minor);
  return std::string("PlatformId=") + u.sysname + ";BuildNumber=" + release +
         ";version=" + std::to_string(major) + "." + std::to_string(minor) +
         ";CSDVersion=" + u.version +
         ";ServicePackVersion=0.0;SuiteMask=0;ProductType=" + u.machine;
}

const char* ApplicationTitle() { return "Gleanwright"; }
const char* ApplicationVersion() { return GW_VERSION; }

std::string FillReportTemplate(std::string_view report_template,
                               const std::vector<std::pair<std::string, std::string>>& values) {
  std::string out(report_template);
  out = text::ReplaceAll(out, "%nl%", "\n", false);
  for (const auto& [name, value] : values) {
    std::string safe = value;
    for (char& c : safe) {
      if (c == '%') c = kProtectedPercent;
    }
    out = text::ReplaceAll(out, "%" + name + "%", safe, false);
  }
  for (char& c : out) {
    if (c == kProtectedPercent) c = '%';
  }
  return out;
}

std::string BuildErrorReport(const Error& error) {
  if (IsApplicationError(error.Number())) return {};
  std::string out;
  const std::vector<ErrorFrame>& frames = error.Frames();
  if (error.Source() == kReportMarkerSource) {
    out = error.Description();
    if (!out.empty() && out.back() != '\n') out += "\n";
  } else {
    const ErrorNumber n = error.Number();
    const DateTime when = error.FirstSeen().IsEmpty() ? DateTime::Now() : error.FirstSeen();
    std::string computer;
    Tolerating([&] { computer = ComputerName::Get_ComputerName(); });
    std::string ado = "?";
    Tolerating([&] { ado = db::DatabaseLayerVersion(); });
    std::string platform;
    Tolerating([&] { platform = PlatformInfo(); });
    out = FillReportTemplate(
        kHeaderTemplate,
        {{"Descr", error.Description()},
         {"Time", ReportTime(when)},
         {"App", ApplicationTitle()},
         {"Ver", ApplicationVersion()},
         {"ADOVersion", ado},
         {"Comp", computer},
         {"PlatformInfo", platform},
         {"ActiveForm", ActiveForm()},
         {"MethodName", frames.empty() ? std::string() : MethodOnly(frames.front().method)},
         {"ErrNum", std::to_string(AsLong(n))},
         {"ErrHex", Hex(n)},
         {"ErrNumRel1", Relative(n, infraerr::kVbObjectError)},
         {"ErrNumRel2", Relative(n, errnum::kErrGeneral)},
         {"ErrStd", n == errnum::kErrGeneral ? "= ERR_GENERAL" : ""},
         {"Source", error.Source()},
         {"ModSpecific", ""}});
    if (error.SystemError() != 0) {
      out += "  API Error: (" + std::to_string(error.SystemError()) + ") " +
             std::strerror(error.SystemError()) + "\n";
    }
    for (const ErrorFrame& f : frames) {
      if (f.db) {
        AppendDatabaseBlock(out, *f.db);
        break;
      }
    }
  }
  if (!frames.empty()) {
    out += "  Call Stack: \n";
    for (const ErrorFrame& f : frames) AppendFrame(out, f);
  }
  return out;
}

bool IsLogOnlyError(ErrorNumber number) {
  std::string list;
  const Variant v = ReadReportOption(report_option::kLogOnlyErrors);
  if (!v.IsEmpty() && !v.IsNull()) list = v.ToText();
  if (text::TrimSpaces(list).empty()) {
    list = kDefaultLogOnlyErrors;
    Tolerating([&] {
      ReportOptionWriter writer;
      {
        std::lock_guard lock(TheHooks().mutex);
        writer = TheHooks().writer;
      }
      if (writer) writer(report_option::kLogOnlyErrors, list);
    });
  }
  const std::string wanted = std::to_string(AsLong(number));
  std::string_view rest = list;
  while (true) {
    const std::size_t bar = rest.find('|');
    if (text::TrimSpaces(rest.substr(0, bar)) == wanted) return true;
    if (bar == std::string_view::npos) return false;
    rest.remove_prefix(bar + 1);
  }
}

// ---- the handler's steps ----

void ErrPreserve() {
  if (t_preserved) return;
  if (!std::current_exception()) return;
  t_preserved = CurrentError("ExceptionHandler.ErrPreserve");
}

const Error* PreservedError() noexcept { return t_preserved ? &*t_preserved : nullptr; }

Error ErrorIn(std::string_view method_name, const ArgValues& args, long flags,
              std::string_view env) {
  if (!t_preserved && !std::current_exception()) {
    t_preserved = Error(errnum::kErrGeneral, std::string(method_name), kLostErrorText);
  }
  ErrPreserve();
  Error error = std::move(*t_preserved);
  t_preserved.reset();
  Tolerating([&] {
    error.AddFrame(method_name, &args, std::string(env),
                   (flags & report_flag::kCloseConnection) != 0);
  });
  if (IsApplicationError(error.Number())) {
    error.SetReport({});
  } else if (flags & report_flag::kBuildReport) {
    std::string report;
    try {
      report = BuildErrorReport(error);
    } catch (const std::exception& e) {
      report = error.Description() +
               "\n    ErrorIn failed to extract error information: " + e.what() + "\n";
    }
    error.SetReport(std::move(report));
  }
  if (flags & report_flag::kRaiseAgain) throw error;
  return error;
}

Error ReportError(bool raise_again, bool show_user, std::string_view method_name,
                  const ArgValues& args, std::string_view position, std::string_view other_info) {
  std::string env(position);
  if (!other_info.empty()) env += (env.empty() ? "" : " ") + std::string(other_info);
  if (raise_again) {
    ErrorIn(method_name, args, report_flag::kRaiseAgain | report_flag::kBuildReport, env);
  }
  Error error = ErrorIn(method_name, args, report_flag::kBuildReport, env);
  const std::string& report = error.Report();
  Hooks& hooks = TheHooks();
  Tolerating([&] {
    ReportShower shower;
    {
      std::lock_guard lock(hooks.mutex);
      shower = hooks.shower;
    }
    if (show_user && shower && !IsLogOnlyError(error.Number())) shower(error, report);
  });
  Tolerating([] { EventLoop::Current().DoEvents(); });
  AppendReportToLogFile(report);
  Tolerating([&] {
    if (!OptionIsTrue(ReadReportOption(report_option::kEnableWebErrorReporting))) return;
    WebReportSender sender;
    {
      std::lock_guard lock(hooks.mutex);
      sender = hooks.sender;
    }
    if (!sender) return;
    WebReport web;
    web.app_name = ApplicationTitle();
    web.version = ApplicationVersion();
    web.active_form = ActiveForm();
    web.err_number = std::to_string(AsLong(error.Number()));
    web.err_source = error.Source();
    web.position = std::string(position);
    web.err_description = error.Description();
    web.platform_info = PlatformInfo();
    web.other_info = report;
    sender(web);
  });
  return error;
}

}  // namespace gw
