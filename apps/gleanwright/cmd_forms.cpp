// gleanwright forms: the forms of a page, each with its controls and both Form Submit Statement
// templates, ready to paste into a package. The forms of the page's frames follow, frame by frame.
// A web address is fetched first, and its frames through the same session (exit status 1 when the
// server answers the page with other than 2xx).
#include <iostream>
#include <memory>

#include "acquire/web_page.h"
#include "commands.h"
#include "page_source.h"

namespace gw::app {
namespace {

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

void PrintControl(const WebCtrl& ctrl) {
  std::cout << "    " << (ctrl.Id().empty() ? "(no name)" : ctrl.Id()) << "  "
            << ctrl.GetCtrlTypeAsString() << "  value " << Quoted(ctrl.Value());
  if (ctrl.Options().Count() > 0) {
    std::cout << "  options:";
    bool first = true;
    for (const auto& [key, text] : ctrl.Options()) {
      std::cout << (first ? " " : ", ") << Quoted(key) << "=" << Quoted(text);
      first = false;
    }
  }
  if (ctrl.MaxLength() > 0 && ctrl.MaxLength() < 2147483647) {
    std::cout << "  max length " << ctrl.MaxLength();
  }
  std::cout << "\n";
}

void PrintForms(WebPage& page, bool samples, const std::string& heading, int& count) {
  if (!heading.empty() && page.Forms().Count() > 0) std::cout << heading << "\n";
  for (const ResponseWebFormPtr& form : page.Forms()) {
    ++count;
    std::cout << "Form " << count << ": id " << Quoted(form->Id()) << ", method " << form->Method()
              << ", action " << form->Action() << "\n";
    std::cout << "  Path: " << form->ElementPath() << "\n";
    std::cout << "  Controls:\n";
    if (form->Controls().Count() == 0) std::cout << "    (none)\n";
    for (const WebCtrlPtr& ctrl : form->Controls()) PrintControl(*ctrl);
    std::cout << "  XML template:\n    " << form->BuildXMLTemplate(samples) << "\n";
    std::cout << "  Query template:\n    " << form->BuildQueryTemplate(samples) << "\n";
  }
  for (const WebPagePtr& frame : page.GetFrames()) {
    if (frame->Document()) PrintForms(*frame, samples, "Frame " + frame->url().ToString(), count);
  }
}

int RunForms(const std::string& address, const std::string& base, bool samples) {
  const PageSource source(address, base);
  const auto page = source.NewPage();
  page->LoadFromUrl(source.File(), source.Base());
  int count = 0;
  PrintForms(*page, samples, {}, count);
  if (count == 0) std::cout << "No forms.\n";
  return source.ExitStatus("forms");
}

CommandAction SetUpForms(CLI::App& cmd) {
  const auto page = AddPageArguments(
      cmd, "The address that the actions resolve against (default: the page's own)");
  auto samples = std::make_shared<bool>(false);
  cmd.add_flag("--samples", *samples,
               "Fill the templates with sample values (\"Sample Text\", a list's first option...) "
               "instead of the page's own values");
  return [page, samples] { return RunForms(page->address, page->base, *samples); };
}

const CommandRegistration kForms(
    61, "forms", SetUpForms,
    "Print the forms of a page (and of its frames): id, method, absolute action, each control with "
    "its type, value and options, and the form as XML and query templates of a Form Submit "
    "Statement");

}  // namespace
}  // namespace gw::app
