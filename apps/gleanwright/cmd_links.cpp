// gleanwright links: the links of a page as the crawler reads them.
//
// One line per link, tab-separated: kind (http, email, other), address, the page it was found on,
// the link's text (tabs and line breaks in it written as spaces). Web and file addresses come
// first, then e-mail addresses, then the rest, each in the order of the page; a link stands once
// however often the page has it. By default the links come from the crawler's scan of the
// file; with --dom they come from the document tree instead. A web address is fetched first
// (exit status 1 when the server answers with other than 2xx; the links of its answer are
// printed all the same).
#include <filesystem>
#include <iostream>
#include <memory>

#include "acquire/web_page.h"
#include "commands.h"
#include "page_source.h"

namespace gw::app {
namespace {

std::string OneLine(std::string text) {
  for (char& c : text) {
    if (c == '\t' || c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

void Print(const char* kind, const UriList& list) {
  for (const auto& item : list.Items()) {
    std::cout << kind << '\t' << OneLine(item->url()) << '\t' << OneLine(item->SrcUrl()) << '\t'
              << OneLine(item->linkText()) << '\n';
  }
}

int RunLinks(const std::string& address, const std::string& base, bool dom) {
  const PageSource source(address, base);
  const auto page = source.NewPage();
  if (dom) {
    page->LoadFromUrl(source.File(), source.Base());
  } else {
    page->RegExHrefs(source.File(), source.Base());
  }
  Print("http", page->HttpLinks());
  Print("email", page->EmailLinks());
  Print("other", page->OtherLinks());
  return source.ExitStatus("links");
}

CommandAction SetUpLinks(CLI::App& cmd) {
  const auto page = AddPageArguments(cmd,
                                     "The address that relative links resolve against (default: "
                                     "the page's own, after redirects)");
  auto dom = std::make_shared<bool>(false);
  cmd.add_flag("--dom", *dom,
               "Read the links from the document tree (as the template editor does) instead of "
               "the crawler's scan");
  return [page, dom] { return RunLinks(page->address, page->base, *dom); };
}

const CommandRegistration kLinks(
    60, "links", SetUpLinks,
    "Print the links of a page as the crawler finds them: one line per link with its kind (http, "
    "email, other), address, the page it was found on and its text, tab-separated");

}  // namespace
}  // namespace gw::app
