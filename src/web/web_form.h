// `WebForm`: one form submission: an action address, a method and ordered name/value variables.
//
// Variables can be loaded from a query string or from a Form Submit Statement, the loose XML
// dialect that template authors write by hand, for instance (on one line):
//   <FormVars ><var name ='q' val='x'></var></FormVars >
// Eleven names of the block tag, written four ways each, and two or four spellings of the
// control tag and its attributes are accepted (the alias table); they are normalised to
// "<form_variables>", "<control", " id=" and " value=" before the block is parsed.
//
// Names of variables ignore case, so only one value per name can be posted: a second variable
// of the same name replaces the first one's value.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/collection.h"
#include "platform/variant.h"
#include "web/failures.h"

namespace gw::web {

class WebForm : public Object {
 public:
  std::string TypeName() const override { return "WebForm"; }

  const std::string& Action() const noexcept { return action_; }
  void SetAction(std::string value) { action_ = std::move(value); }
  // "POST" unless set.
  const std::string& Method() const noexcept { return method_; }
  void SetMethod(std::string value) { method_ = std::move(value); }
  // The page that held the form; not used for sending.
  const std::string& url() const noexcept { return url_; }
  void SetUrl(std::string value) { url_ = std::move(value); }

  long FormVarCount() const noexcept { return variables_.Count(); }
  void ClearFormVariables() noexcept { variables_.RemoveAll(); }
  // Replaces the value of a variable of that name in any case, else appends.
  void AddFormVariable(std::string_view Name, std::string_view Value);
  // name=value pairs joined by "&", each side URL-encoded with "+" for a space; "" for none.
  std::string GetFormVariables() const;
  // Loads the first block of a Form Submit Statement and returns the rest of the statement.
  // Without a block, nothing changes (even when `Append` is false) and `Str` comes back whole.
  // A block that is not well-formed fails with `errnum::kBadFormSubmitStatement`, whose text
  // gives the parser's position and reason. Each element of the block adds its "id" and "value".
  std::string LoadFormVariablesFromXML(std::string_view Str, bool Append = false);
  // "?a=1&b" gives a "1" and b "". The whole text is URL-decoded before it is split, so an
  // encoded "&" or "=" separates too. An empty text changes nothing.
  void LoadFormVariablesFromQueryString(std::string_view vars, bool Append = false);

  const Dictionary<std::string>& FormVariables() const noexcept { return variables_; }

  // The normalised statement's block (aliases replaced), "" when there is none; `RestOfStr`
  // receives the normalised statement less the block, or `str` unchanged when there is none.
  static std::string GetFormVarXMLFromString(std::string_view str, std::string& RestOfStr);
  // Replaces every alias (or, with `FormVarTagOnly`, only those of the block tag) by its
  // canonical form, ignoring case, in table order.
  static std::string ReplaceAliases(std::string_view str, bool FormVarTagOnly);
  // (alias, canonical) in table order: the 44 spellings of "form_variables>" first.
  static const std::vector<std::pair<std::string, std::string>>& AliasTable();

 private:
  std::string action_;
  std::string method_ = "POST";
  std::string url_;
  Dictionary<std::string> variables_{CompareMode::Text};
};

}  // namespace gw::web
