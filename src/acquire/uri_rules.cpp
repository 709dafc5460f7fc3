#include "acquire/uri_rules.h"

#include <array>
#include <utility>

#include "acquire/failures.h"
#include "platform/property_table.h"
#include "platform/regex.h"
#include "platform/text.h"

namespace gw {

namespace {

constexpr std::array<std::string_view, 10> kOperators = {
    "[CONTAINS]",    "[DOES NOT CONTAIN]",    "[EQUALS]",    "[NOT EQUAL]",
    "[STARTS WITH]", "[DOES NOT START WITH]", "[ENDS WITH]", "[DOES NOT END WITH]",
    "[REGEX MATCH]", "[IS NEXT PAGE LINK]"};

template <std::size_t N>
bool IsOneOf(const std::array<std::string_view, N>& names, std::string_view name) {
  for (std::string_view n : names) {
    if (n == name) return true;
  }
  return false;
}

// The parts of an address a rule can test.
using PartOf = std::string (*)(const web::Uri&);
constexpr std::pair<std::string_view, PartOf> kParts[] = {
    {"[URL]", [](const web::Uri& u) { return u.ToString(); }},
    {"[SCHEME]", [](const web::Uri& u) { return u.scheme(); }},
    {"[HOST]", [](const web::Uri& u) { return u.Host(); }},
    {"[URLPATH]", [](const web::Uri& u) { return u.path(); }},
    {"[URLQUERY]", [](const web::Uri& u) { return u.QueryString(); }},
    {"[FILENAME]", [](const web::Uri& u) { return u.FileName(); }},
    {"[FILEEXT]", [](const web::Uri& u) { return u.FileExtension(); }},
    {"[TEXT]", [](const web::Uri& u) { return u.linkText(); }},
};

// How to read the part a name gives; nullptr for an unknown name.
PartOf PartNamed(std::string_view part) {
  for (const auto& [name, part_of] : kParts) {
    if (part == name) return part_of;
  }
  return nullptr;
}

// The part of `u` that `part` names; false for an unknown part.
bool Subject(const web::Uri& u, std::string_view part, std::string& out) {
  const PartOf part_of = PartNamed(part);
  if (!part_of) return false;
  out = part_of(u);
  return true;
}

bool StartsWith(std::string_view s, std::string_view v) { return text::InStr(1, s, v, true) == 1; }

// The last occurrence of `v` ends where `s` ends. An empty `v` never does: its last occurrence is
// taken to stand on the last character.
bool EndsWith(std::string_view s, std::string_view v) {
  if (s.empty() || v.empty()) return false;
  const std::size_t at = text::RFind(s, v, true);
  return at != text::npos && at + v.size() == s.size();
}

}  // namespace

const PropertyTable* UriRule::GetPropertyTable() const {
  static const PropertyTable table =
      PropertyTableBuilder<UriRule>("UriRule")
          .Value("Part", &UriRule::Part, &UriRule::SetPart)
          .Value("Operator", &UriRule::Operator, &UriRule::SetOperator)
          .Value("Value", &UriRule::Value, &UriRule::SetValue)
          .Build();
  return &table;
}

bool UriRule::IsMatch(const web::Uri& u, bool DefaultValue) const {
  return ReportAs("UriRule.IsMatch(u,DefaultValue)", Args(u, DefaultValue), [&] {
    std::string s;
    if (!Subject(u, part_, s)) return DefaultValue;
    const std::string_view v = value_;
    if (operator_ == "[CONTAINS]") return text::InStr(1, s, v, true) > 0;
    if (operator_ == "[DOES NOT CONTAIN]") return text::InStr(1, s, v, true) == 0;
    if (operator_ == "[EQUALS]") return text::EqualsNoCase(s, v);
    if (operator_ == "[NOT EQUAL]") return !text::EqualsNoCase(s, v);
    if (operator_ == "[STARTS WITH]") return StartsWith(s, v);
    if (operator_ == "[DOES NOT START WITH]") return !StartsWith(s, v);
    if (operator_ == "[ENDS WITH]") return EndsWith(s, v);
    if (operator_ == "[DOES NOT END WITH]") return !EndsWith(s, v);
    if (operator_ == "[REGEX MATCH]") return Regex::Cached(v)->Test(s);
    if (operator_ == "[IS NEXT PAGE LINK]") return Regex::Cached(".*Next.*|[0-9]{1,3}")->Test(s);
    return DefaultValue;
  });
}

void UriRule::Validate() const {
  if (!PartNamed(part_)) {
    throw Error(acquireerr::kInvalidUriPart, "UriRule.Validate()",
                "Invalid Uri part specified in uri rule.  Valid values are [URLPATH], [URL], "
                "[URLQUERY], [FILENAME], [HOST], [FILEEXT], and [SCHEME]");
  }
  if (!IsOneOf(kOperators, operator_)) {
    throw Error(acquireerr::kInvalidUriOperator, "UriRule.Validate()",
                "Invalid Operator specified in uri rule.  Valid values are [EQUALS], [NOT EQUAL], "
                "[CONTAINS], [DOES NOT CONTAIN], [STARTS WITH], [DOES NOT START WITH], "
                "[ENDS WITH], and [DOES NOT END WITH]");
  }
}

bool UriRule::IsValid() const { return PartNamed(part_) && IsOneOf(kOperators, operator_); }

// ---- UriRuleset -------------------------------------------------------------------------------

const PropertyTable* UriRuleset::GetPropertyTable() const {
  // `Count` stays out of the text form: it follows from the rules, and a reader could not set it.
  static const PropertyTable table =
      PropertyTableBuilder<UriRuleset>("UriRuleset")
          .Value("IsAnd", &UriRuleset::IsAnd, &UriRuleset::SetIsAnd)
          .Members([](const UriRuleset& set) {
            std::vector<UriRulePtr> rules;
            for (const UriRulePtr& r : set.rules_) rules.push_back(r);
            return rules;
          })
          .AddMethod("Add", [](UriRuleset& set) { return set.Add(); })
          .Build();
  return &table;
}

bool UriRuleset::IsMatch(const web::Uri& u) const {
  return ReportAs("UriRuleset.IsMatch(u)", Args(u), [&] {
    bool result = false;
    for (const UriRulePtr& rule : rules_) {
      if (!rule->IsValid()) continue;
      result = rule->IsMatch(u);
      if (is_and_ ? !result : result) break;
    }
    return result;
  });
}

UriRulePtr UriRuleset::Add() { return rules_.Add(UriRule::Create()); }

std::shared_ptr<UriRuleset> UriRuleset::Clone() const {
  auto copy = Create();
  copy->is_and_ = is_and_;
  for (const UriRulePtr& r : rules_) {
    auto rule = copy->Add();
    rule->SetPart(r->Part());
    rule->SetOperator(r->Operator());
    rule->SetValue(r->Value());
  }
  return copy;
}

std::string UriRuleset::Serialize() {
  return ReportAs("UriRuleset.ISerializable_Serialize", [&] {
    XmlSerializer serializer;
    return serializer.Serialize(*this);
  });
}

void UriRuleset::Deserialize(std::string_view xml) {
  ReportAs("UriRuleset.ISerializable_Deserialize(xml)", Args(xml), [&] {
    if (xml.empty()) return;
    XmlSerializer serializer;
    serializer.Deserialize(*this, xml);
  });
}

}  // namespace gw
