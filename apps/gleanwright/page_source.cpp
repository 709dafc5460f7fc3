#include "page_source.h"

#include <filesystem>

#include "acquire/failures.h"
#include "acquire/web_page.h"
#include "platform/error.h"
#include "platform/text.h"

namespace gw::app {

namespace fs = std::filesystem;

PageSource OpenPageSource(const std::string& address, const std::string& base) {
  if (text::StartsWithNoCase(address, "http://") || text::StartsWithNoCase(address, "https://")) {
    throw Error(acquireerr::kWebAddressUnavailable, "gleanwright",
                "Reading the web address " + address +
                    " needs the HTTP client, which is not available yet; save the page and give "
                    "its file.");
  }
  const std::string path = LocalFilePath(address);
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) {
    throw Error(errnum::kFileNotFound, "gleanwright", "File not found: " + address);
  }
  PageSource source;
  source.file = path;
  source.base = base.empty() ? FileAddress(fs::absolute(path).lexically_normal().string()) : base;
  return source;
}

}  // namespace gw::app
