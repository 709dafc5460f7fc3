#include "page_source.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>

#include "acquire/web_page.h"
#include "infra/c_guid_gen.h"
#include "platform/error.h"
#include "platform/text.h"
#include "web/http_client.h"

namespace gw::app {

namespace fs = std::filesystem;

PageSource::PageSource(const std::string& address, const std::string& base) : address_(address) {
  if (!text::StartsWithNoCase(address, "http://") && !text::StartsWithNoCase(address, "https://")) {
    file_ = LocalFilePath(address);
    std::error_code ec;
    if (!fs::is_regular_file(file_, ec)) {
      throw Error(errnum::kFileNotFound, "gleanwright", "File not found: " + address);
    }
    base_ = base.empty() ? FileAddress(fs::absolute(file_).lexically_normal().string()) : base;
    return;
  }
  session_ = web::HttpClient::Create();
  session_->GetPage(address);
  const auto& response = session_->HttpResponse();
  if (response->StatusType() != web::HttpStatusType::Successful) {
    failure_ = std::to_string(response->StatusCode()) + " " + response->StatusText();
  }
  base_ = base.empty() ? session_->CurrentUrl()->ToExternalForm() : base;
  // The text as the response's character set gives it, behind a byte-order mark so that it is
  // read back as UTF-8 whatever the page declares.
  temporary_ = fs::temp_directory_path() / ("gleanwright-page-" + CGUIDGen::NewGUID() + ".htm");
  std::ofstream out(temporary_, std::ios::binary | std::ios::trunc);
  out << "\xEF\xBB\xBF" << response->BodyText().ToString();
  if (!out.flush()) {
    throw Error(errnum::kPathFileAccessError, "gleanwright",
                "Path/File access error: could not write " + temporary_.string());
  }
  file_ = temporary_.string();
}

PageSource::~PageSource() {
  if (temporary_.empty()) return;
  std::error_code ec;
  fs::remove(temporary_, ec);
}

std::shared_ptr<PageArguments> AddPageArguments(CLI::App& cmd, const std::string& base_help) {
  auto arguments = std::make_shared<PageArguments>();
  cmd.add_option("page", arguments->address,
                 "A local file, a file:// address, or an http(s) address")
      ->required();
  cmd.add_option("--base", arguments->base, base_help);
  return arguments;
}

std::shared_ptr<WebPage> PageSource::NewPage() const {
  auto page = WebPage::Create();
  page->SetSession(session_);
  return page;
}

int PageSource::ExitStatus(std::string_view command) const {
  if (failure_.empty()) return 0;
  std::cout.flush();
  std::cerr << "gleanwright " << command << ": " << address_ << " answered " << failure_
            << "; these are the " << command << " of that answer\n";
  return 1;
}

}  // namespace gw::app
