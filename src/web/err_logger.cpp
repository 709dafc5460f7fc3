#include "web/err_logger.h"

#include <array>

#include "infra/log_files.h"
#include "platform/text.h"
#include "web/http_client.h"
#include "web/http_utility.h"
#include "web/web_form.h"

namespace gw::web {

namespace {

std::string Encode(std::string_view text) {
  std::string out = HttpUtility::HtmlEncode(text);
  out = text::ReplaceAll(out, "'", "&#39;");
  return text::ReplaceAll(out, "=", "&#61;");
}

// A value as the form's encoder must see it to post it unchanged: the form encoder leaves "%"
// as it stands (a form variable may hold an escape already) and trims spaces at both ends, so a
// "%" and the spaces at the ends go in escaped.
std::string Preescaped(std::string_view value) {
  std::size_t lead = 0;
  while (lead < value.size() && value[lead] == ' ') ++lead;
  std::size_t trail = 0;
  while (trail < value.size() - lead && value[value.size() - 1 - trail] == ' ') ++trail;
  std::string out;
  out.reserve(value.size() + 16);
  for (std::size_t i = 0; i < lead; ++i) out += "%20";
  for (char c : value.substr(lead, value.size() - lead - trail)) {
    if (c == '%') {
      out += "%25";
    } else {
      out += c;
    }
  }
  for (std::size_t i = 0; i < trail; ++i) out += "%20";
  return out;
}

}  // namespace

std::string ErrLogger::BuildFormXml(const WebReport& r) {
  const std::pair<const char*, const std::string*> fields[] = {
      {"appName", &r.app_name},
      {"version", &r.version},
      {"activeForm", &r.active_form},
      {"errNumber", &r.err_number},
      {"errSource", &r.err_source},
      {"position", &r.position},
      {"errDescription", &r.err_description},
      {"userInfo", &r.user_info},
      {"platformInfo", &r.platform_info},
      {"otherInfo", &r.other_info},
  };
  std::string xml = "<formvars>";
  for (const auto& [name, value] : fields) {
    xml += "<ctrl name='" + Encode(name) + "' val='" + Encode(Preescaped(*value)) + "' />";
  }
  xml += "</formvars>";
  return xml;
}

bool ErrLogger::SendWebReport(std::string_view server, const WebReport& report) noexcept {
  try {
    std::string base(text::TrimSpaces(server));
    while (!base.empty() && base.back() == '/') base.pop_back();
    if (base.empty()) return false;
    WebForm form;
    form.SetMethod("POST");
    form.SetAction(base + kErrorReportPath);
    form.LoadFormVariablesFromXML(BuildFormXml(report));
    HttpClient client;
    client.SubmitForm(form);
    const auto& response = client.HttpResponse();
    return response && response->StatusCode() >= 200 && response->StatusCode() < 300;
  } catch (...) {
    return false;
  }
}

bool ErrLogger::LogToFile(const std::filesystem::path& folder, const std::string& a1,
                          const std::string& a2, const std::string& a3, const std::string& a4,
                          const std::string& a5, const std::string& a6, const std::string& a7,
                          const std::string& a8) noexcept {
  try {
    return AppendLogLine(folder, {a1, a2, a3, a4, a5, a6, a7, a8});
  } catch (...) {
    return false;
  }
}

void InstallWebErrorReporting() {
  SetWebReportSender([](const WebReport& report) {
    const Variant option = ReadReportOption(report_option::kErrorLogServer);
    const std::string server = option.IsEmptyOrNull() ? std::string() : option.ToText();
    if (text::TrimSpaces(server).empty()) return;
    const bool sent = ErrLogger::SendWebReport(server, report);
    ErrLogger::LogToFile(LogDir(), report.app_name, report.version, report.err_number,
                         report.err_source, report.err_description, report.position, server,
                         sent ? "sent" : "not sent");
  });
}

}  // namespace gw::web
