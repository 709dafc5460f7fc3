// Where the page commands (links, forms) read a page from.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace CLI {
class App;
}  // namespace CLI
namespace gw {
class WebPage;
}  // namespace gw
namespace gw::web {
class HttpClient;
}  // namespace gw::web

namespace gw::app {

// A local file or "file://" address is read where it is (failing with 53 when there is no such
// file). A web address is fetched through a new session of the web client (failing as the
// fetch fails) and its text, decoded by the response's character set, is kept in a temporary
// file, removed when the object goes. The page's address is `base` when given, else the file's
// absolute path as a "file://" address, or where the web address's redirects led.
class PageSource {
 public:
  PageSource(const std::string& address, const std::string& base);
  ~PageSource();
  PageSource(const PageSource&) = delete;
  PageSource& operator=(const PageSource&) = delete;

  // The local file that holds the page.
  const std::string& File() const { return file_; }
  // The page's address: what relative links resolve against.
  const std::string& Base() const { return base_; }
  // The session that fetched a web page (its frames are fetched through it too); null for a file.
  const std::shared_ptr<web::HttpClient>& Session() const { return session_; }
  // For a web page that the server answered with other than 2xx: its status, as
  // "404 Not Found"; "" otherwise.
  const std::string& Failure() const { return failure_; }

  // A new page that fetches through `Session` (its frames, say).
  std::shared_ptr<WebPage> NewPage() const;
  // The exit status of the page command `command` ("links", "forms") once it has printed what it
  // found: 0, or 1 after saying on standard error that the server answered with a failure
  // ("gleanwright forms: <address> answered 404 Not Found; these are the forms of that answer").
  int ExitStatus(std::string_view command) const;

 private:
  std::string address_;
  std::string file_;
  std::string base_;
  std::shared_ptr<web::HttpClient> session_;
  std::string failure_;
  std::filesystem::path temporary_;
};

// What a page command is given: the page (a local file, a "file://" address or a web address) and
// the address that its relative addresses resolve against ("--base").
struct PageArguments {
  std::string address;
  std::string base;
};
// Adds the two to `cmd`; `base_help` says what resolves against the base.
std::shared_ptr<PageArguments> AddPageArguments(CLI::App& cmd, const std::string& base_help);

}  // namespace gw::app
