// gleanwright get: one fetch through the library's own web client, to see what the product sees
// of a page. The body goes to standard output (or a file) as the server sent it, after any
// content coding is undone; the final address, the status and the number of redirects go to
// standard error. A Form Submit Statement or "name=value&..." text given with --post is posted
// as a form to the address. Exit status 0 for a 2xx response, 1 otherwise.
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "commands.h"
#include "platform/text.h"
#include "web/http_client.h"
#include "web/web_form.h"

namespace gw::app {
namespace {

struct GetOptions {
  std::string url;
  std::string output;
  std::string post;
  bool has_post = false;
  std::string user_agent;
  bool include_headers = false;
};

int RunGet(const GetOptions& o) {
  auto client = web::HttpClient::Create();
  if (!o.user_agent.empty()) client->SetUserAgent(o.user_agent);
  if (o.has_post) {
    web::WebForm form;
    form.SetAction(o.url);
    form.SetMethod("POST");
    std::string rest;
    if (web::WebForm::GetFormVarXMLFromString(o.post, rest).empty()) {
      form.LoadFormVariablesFromQueryString(o.post);
    } else {
      form.LoadFormVariablesFromXML(o.post);
    }
    client->SubmitForm(form);
  } else {
    client->GetPage(o.url);
  }
  const auto response = client->HttpResponse();
  const auto request = client->CurrentRequest();

  std::string out;
  if (o.include_headers) out = response->HeadersToString() + "\r\n";
  out += response->ResponseBody();
  if (o.output.empty()) {
    std::cout.write(out.data(), static_cast<std::streamsize>(out.size()));
    std::cout.flush();
  } else {
    std::ofstream file(o.output, std::ios::binary | std::ios::trunc);
    file.write(out.data(), static_cast<std::streamsize>(out.size()));
    file.close();
    if (!file) {
      std::cerr << "gleanwright get: cannot write " << o.output << "\n";
      return 1;
    }
  }
  std::cerr << "URL: " << (client->CurrentUrl() ? client->CurrentUrl()->ToExternalForm() : "")
            << "\nStatus: " << response->StatusCode() << " " << response->StatusText()
            << "\nRedirects: " << (request ? request->RedirectCount() : 0) << "\n";
  return response->StatusType() == web::HttpStatusType::Successful ? 0 : 1;
}

CommandAction SetUpGet(CLI::App& cmd) {
  auto o = std::make_shared<GetOptions>();
  cmd.add_option("url", o->url, "The address (http:// is assumed when it has no scheme)")
      ->required();
  cmd.add_option("-o,--output", o->output, "Write the body to this file instead");
  cmd.add_option("--post", o->post,
                 "Post a form to the address: a Form Submit Statement "
                 "(\"<FormVars><var name='q' val='x'></var></FormVars>\") or name=value&... text")
      ->each([o](const std::string&) { o->has_post = true; });
  cmd.add_option("--user-agent", o->user_agent,
                 "The User-Agent to send (default: the HttpUserAgent setting, else the "
                 "product's name and version)");
  cmd.add_flag("--include-headers", o->include_headers,
               "Print the response headers (\"Name : value\") and a blank line before the body");
  return [o] { return RunGet(*o); };
}

const CommandRegistration kGet(
    45, "get", SetUpGet,
    "Fetch one address through the web client and print the body as the product sees it (redirects "
    "followed, cookies kept across them, the web settings applied); the final address, status and "
    "redirect count go to standard error. Exit status 0 for a 2xx response, 1 otherwise");

}  // namespace
}  // namespace gw::app
