#include "web/web_form.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <memory>

#include "platform/error.h"
#include "platform/text.h"
#include "web/http_utility.h"

namespace gw::web {
namespace {

struct ParseProblem {
  bool found = false;
  int line = 0;
  int column = 0;
  std::string message;
};

void OnParseError(void* user, const xmlError* error) {
  auto* problem = static_cast<ParseProblem*>(static_cast<xmlParserCtxt*>(user)->_private);
  if (problem->found || !error || error->level < XML_ERR_ERROR) return;
  problem->found = true;
  problem->line = error->line;
  problem->column = error->int2;
  problem->message = error->message ? error->message : "";
  while (!problem->message.empty() &&
         (problem->message.back() == '\n' || problem->message.back() == ' ')) {
    problem->message.pop_back();
  }
}

std::string AttributeOrNull(const xmlNode* node, const char* name) {
  xmlChar* v = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (!v) {
    throw Error(gw::errnum::kInvalidUseOfNull, "WebForm.LoadFormVariablesFromXML",
                "Invalid use of Null");
  }
  std::string out(reinterpret_cast<const char*>(v));
  xmlFree(v);
  return out;
}

}  // namespace

const std::vector<std::pair<std::string, std::string>>& WebForm::AliasTable() {
  static const std::vector<std::pair<std::string, std::string>> table = [] {
    std::vector<std::pair<std::string, std::string>> t;
    const char* names[] = {"form_variables", "FormVariables", "FormVars",     "Form_Vars",
                           "Forms",          "FormVariable",  "FormVar",      "Form_Var",
                           "Form_Ctrls",     "FormCtrls",     "Form_Controls"};
    for (const char* n : names) t.emplace_back(std::string(n) + ">", "form_variables>");
    for (const char* n : names) t.emplace_back(" " + std::string(n) + ">", "form_variables>");
    for (const char* n : names) t.emplace_back(" " + std::string(n) + " >", "form_variables>");
    for (const char* n : names) t.emplace_back(std::string(n) + " >", "form_variables>");
    for (const char* a : {"<control", "<Ctrl", "<variable", "<var"}) t.emplace_back(a, "<control");
    for (const char* a : {"</control>", "</Ctrl>", "</variable>", "</var>"}) {
      t.emplace_back(a, "</control>");
    }
    for (const char* a : {" id=", " name=", " id =", " name ="}) t.emplace_back(a, " id=");
    for (const char* a : {" value=", " val=", " val =", " value ="}) t.emplace_back(a, " value=");
    return t;
  }();
  return table;
}

std::string WebForm::ReplaceAliases(std::string_view str, bool FormVarTagOnly) {
  return ReportAs("WebForm.ReplaceAliases(str,FormVarTagOnly)", Args(str, FormVarTagOnly), [&] {
    std::string out(str);
    for (const auto& [alias, canonical] : AliasTable()) {
      if (FormVarTagOnly && canonical != "form_variables>") continue;
      out = text::ReplaceAll(out, alias, canonical, true);
    }
    return out;
  });
}

std::string WebForm::GetFormVarXMLFromString(std::string_view str, std::string& RestOfStr) {
  return ReportAs("WebForm.GetFormVarXMLFromString(str,RestOfStr)", Args(str, RestOfStr), [&] {
    const std::string normal = ReplaceAliases(str, true);
    const std::size_t open = text::FindNoCase(normal, "<form_variables>");
    const std::size_t close = text::RFindNoCase(normal, "</form_variables>");
    if (open == std::string::npos || close == std::string::npos || close <= open) {
      RestOfStr = std::string(str);
      return std::string();
    }
    const std::size_t end = close + std::string_view("</form_variables>").size();
    RestOfStr = normal.substr(0, open) + normal.substr(end);
    return ReplaceAliases(std::string_view(normal).substr(open, end - open), false);
  });
}

void WebForm::AddFormVariable(std::string_view Name, std::string_view Value) {
  variables_.Set(Name, std::string(Value));
}

std::string WebForm::GetFormVariables() const {
  return ReportAs("WebForm.GetFormVariables", [&] {
    std::string out;
    for (const auto& [name, value] : variables_) {
      if (!out.empty()) out += '&';
      out += text::ReplaceAll(HttpUtility::UrlEncode(name), "%20", "+");
      out += '=';
      out += text::ReplaceAll(HttpUtility::UrlEncode(value), "%20", "+");
    }
    return out;
  });
}

void WebForm::LoadFormVariablesFromQueryString(std::string_view vars, bool Append) {
  ReportAs("WebForm.LoadFormVariablesFromQueryString(vars,Append)", Args(vars, Append), [&] {
    std::string_view v = text::TrimSpaces(vars);
    if (!v.empty() && v.front() == '?') v.remove_prefix(1);
    const std::string decoded = HttpUtility::UrlDecode(v);
    if (decoded.empty()) return;  // splitting an empty text gives no pairs
    if (!Append) ClearFormVariables();
    std::size_t pos = 0;
    while (true) {
      const std::size_t amp = decoded.find('&', pos);
      const std::string_view pair = std::string_view(decoded).substr(
          pos, amp == std::string::npos ? std::string::npos : amp - pos);
      const std::size_t eq = pair.find('=');
      if (eq == std::string_view::npos) {
        AddFormVariable(pair, "");
      } else {
        std::string_view value = pair.substr(eq + 1);
        value = value.substr(0, value.find('='));  // a third piece is lost
        AddFormVariable(pair.substr(0, eq), value);
      }
      if (amp == std::string::npos) break;
      pos = amp + 1;
    }
  });
}

std::string WebForm::LoadFormVariablesFromXML(std::string_view Str, bool Append) {
  return ReportAs("WebForm.LoadFormVariablesFromXML(Str,Append)", Args(Str, Append), [&] {
    std::string rest;
    const std::string xml = GetFormVarXMLFromString(Str, rest);
    if (xml.empty()) return rest;
    if (!Append) ClearFormVariables();

    std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> ctxt(xmlNewParserCtxt(),
                                                                      xmlFreeParserCtxt);
    if (!ctxt) throw Error(httperr::kOutOfMemory, "WebForm", "Out of memory");
    ParseProblem problem;
    ctxt->_private = &problem;
    ctxt->sax->serror = [](void* user, xmlErrorPtr error) { OnParseError(user, error); };
    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> doc(
        xmlCtxtReadMemory(ctxt.get(), xml.data(), static_cast<int>(xml.size()), nullptr, "UTF-8",
                          XML_PARSE_NONET | XML_PARSE_NOBLANKS),
        xmlFreeDoc);
    if (!doc || !ctxt->wellFormed || problem.found) {
      // The line of the statement where the parser stopped, cut at its position.
      std::string_view line_text = xml;
      for (int line = 1; line < problem.line; ++line) {
        const std::size_t nl = line_text.find('\n');
        if (nl == std::string_view::npos) break;
        line_text.remove_prefix(nl + 1);
      }
      line_text = line_text.substr(0, line_text.find('\n'));
      const long linepos = problem.column > 0 ? problem.column : 1;
      const std::string shown(line_text.substr(0, static_cast<std::size_t>(linepos)));
      throw Error(errnum::kBadFormSubmitStatement, "Form Submit Statement",
                  "The Form Submit Statement is formatted incorrectly.  This is usually due to a "
                  "missing single quote (') before or after a control id or value.  The position "
                  "of the error is " +
                      std::to_string(linepos) +
                      " and should be near the end of the following text:  " + shown +
                      "\r\n\r\nThe specific error returned by the parser was: " +
                      (problem.found ? problem.message : "the text is not well-formed"));
    }
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    for (const xmlNode* child = root ? root->children : nullptr; child; child = child->next) {
      if (child->type != XML_ELEMENT_NODE) continue;
      const std::string id = AttributeOrNull(child, "id");
      const std::string value = AttributeOrNull(child, "value");
      AddFormVariable(id, value);
    }
    return rest;
  });
}

}  // namespace gw::web
