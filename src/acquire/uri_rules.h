// UriRule and UriRuleset: which links a crawl may follow, in a small grammar of part, operator
// and value ("[HOST]" "[EQUALS]" "example.org").
//
// A rule takes a part of the address (`Part`), compares it with `Value` by `Operator`, and says
// whether the address matches. The parts:
//   "[URL]" the whole address (display form), "[SCHEME]", "[HOST]", "[URLPATH]", "[URLQUERY]",
//   "[FILENAME]", "[FILEEXT]", and "[TEXT]" the link's text.
// The operators, each ignoring case except the two regular-expression ones:
//   "[CONTAINS]", "[DOES NOT CONTAIN]", "[EQUALS]", "[NOT EQUAL]", "[STARTS WITH]",
//   "[DOES NOT START WITH]", "[ENDS WITH]", "[DOES NOT END WITH]", "[REGEX MATCH]" (the value is
//   a pattern found anywhere in the part) and "[IS NEXT PAGE LINK]" (the part holds "Next" or a
//   number of up to three digits; the value is not used).
// Part and operator names are compared exactly. An empty value is contained in, and starts, any
// non-empty text, and ends none.
//
// A ruleset evaluates its valid rules in order (invalid ones are skipped): in OR mode the first
// rule that matches ends it with true, in AND mode the first that does not ends it with false,
// and otherwise the last rule evaluated decides. A ruleset with no valid rule matches nothing.
//
// Text form (`ISerializable`): object XML with `IsAnd` and the rules as members, each with `Part`,
// `Operator` and `Value`:
//   <UriRuleset Object="True"><IsAnd>False</IsAnd>
//     <UriRule Object="True" Index="1"><Part>[HOST]</Part><Operator>[EQUALS]</Operator>
//     <Value>example.org</Value></UriRule></UriRuleset>
// Reading appends the rules of the text to those the ruleset has.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "infra/xml_serializer.h"
#include "platform/collection.h"
#include "platform/error.h"
#include "web/cloneable.h"
#include "web/uri.h"

namespace gw {

class UriRule : public Object {
 public:
  static std::shared_ptr<UriRule> Create() { return std::make_shared<UriRule>(); }
  std::string TypeName() const override { return "UriRule"; }
  const PropertyTable* GetPropertyTable() const override;

  const std::string& Part() const { return part_; }
  void SetPart(std::string v) { part_ = std::move(v); }
  const std::string& Operator() const { return operator_; }
  void SetOperator(std::string v) { operator_ = std::move(v); }
  const std::string& Value() const { return value_; }
  void SetValue(std::string v) { value_ = std::move(v); }

  // Whether `u` matches; an unknown part or operator gives `DefaultValue`. A "[REGEX MATCH]"
  // value that is no pattern fails with 5017.
  bool IsMatch(const web::Uri& u, bool DefaultValue = false) const;
  // Fails with `acquireerr::kInvalidUriPart` or `kInvalidUriOperator` (source
  // "UriRule.Validate()").
  void Validate() const;
  bool IsValid() const;

 private:
  std::string part_;
  std::string operator_;
  std::string value_;
};

using UriRulePtr = std::shared_ptr<UriRule>;

class UriRuleset : public Object, public web::ICloneable, public ISerializable {
 public:
  static std::shared_ptr<UriRuleset> Create() { return std::make_shared<UriRuleset>(); }
  std::string TypeName() const override { return "UriRuleset"; }
  const PropertyTable* GetPropertyTable() const override;

  bool IsAnd() const { return is_and_; }
  void SetIsAnd(bool v) { is_and_ = v; }
  bool IsMatch(const web::Uri& u) const;
  // A new, empty rule at the end.
  UriRulePtr Add();
  UriRulePtr Item(const IndexKey& vntIndexKey) const { return rules_.Item(vntIndexKey); }
  long Count() const { return rules_.Count(); }
  void Remove(long index) { rules_.Remove(index); }
  auto begin() const { return rules_.begin(); }
  auto end() const { return rules_.end(); }

  // A new ruleset with `IsAnd` and a copy of each rule.
  std::shared_ptr<UriRuleset> Clone() const;
  ObjectPtr CloneObject() const override { return Clone(); }

  std::string Serialize() override;
  // Does nothing with an empty text.
  void Deserialize(std::string_view xml) override;

 private:
  bool is_and_ = false;
  Collection<UriRulePtr> rules_;
};

using UriRulesetPtr = std::shared_ptr<UriRuleset>;

}  // namespace gw
