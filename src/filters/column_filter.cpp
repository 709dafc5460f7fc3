#include "filters/column_filter.h"

#include "filters/text_filter.h"
#include "platform/text.h"

namespace gw::filters {

namespace {

struct Name {
  std::string_view name;
  ColumnFilter filter;
};
constexpr Name kNames[] = {
    {"FORMATTEDTEXT", ColumnFilter::FormattedText},
    {"TEXTTOHTMLEXCEPT", ColumnFilter::TextToHtmlExcept},
    {"REMOVEHTMLATTRIBSEXCEPT", ColumnFilter::RemoveHtmlAttribsExcept},
    {"TEXTONLY", ColumnFilter::TextOnly},
    {"NOLITERALS", ColumnFilter::NoLiterals},
    {"URL", ColumnFilter::Url},
    {"EMAIL", ColumnFilter::Email},
    {"USPHONE", ColumnFilter::UsPhone},
    {"NUMBER", ColumnFilter::Number},
    {"RXMATCH", ColumnFilter::RxMatch},
    {"NOHTMLCOMMENTS", ColumnFilter::NoHtmlComments},
    {"BETTERTEXTONLY", ColumnFilter::BetterTextOnly},
};

const Name* FindFilterName(std::string_view column_type) {
  const std::string upper = text::ToUpper(column_type);
  for (const Name& n : kNames) {
    if (upper == n.name) return &n;
  }
  return nullptr;
}

}  // namespace

ColumnFilter ColumnFilterOf(std::string_view column_type) {
  const Name* found = FindFilterName(column_type);
  return found ? found->filter : ColumnFilter::Raw;  // "RAW", empty and unknown names
}

bool IsColumnFilterName(std::string_view column_type) {
  return column_type.empty() || text::EqualsNoCase(column_type, "RAW") ||
         FindFilterName(column_type) != nullptr;
}

std::string ColumnFilterNames() {
  std::string out = "RAW";
  for (const Name& n : kNames) {
    out += ", ";
    out += n.name;
  }
  return out;
}

std::string RunColumnFilter(ColumnFilter filter, std::string_view raw, std::string_view argument) {
  std::string value(raw);
  switch (filter) {
    case ColumnFilter::Raw:
      return value;
    case ColumnFilter::FormattedText:
      return TextFilter::ConvertHtmlToText(value);
    case ColumnFilter::TextToHtmlExcept:
      return TextFilter::ConvertHtmlToTextExcept(value, argument);
    case ColumnFilter::RemoveHtmlAttribsExcept:
      // The parameter says which tags survive; all attributes of every surviving tag go.
      value = TextFilter::ConvertHtmlToTextExcept(value, argument);
      return TextFilter::RemoveHtmlAttributesExcept(value, "");
    case ColumnFilter::TextOnly:
      return TextFilter::RemoveAllHtml(value);
    case ColumnFilter::NoLiterals:
      return TextFilter::RemoveHTMLLiterals(value);
    case ColumnFilter::Url:
      return TextFilter::GetUrl(value, argument);
    case ColumnFilter::Email:
      return TextFilter::GetEmails(value);
    case ColumnFilter::UsPhone:
      return TextFilter::GetUSPhones(value);
    case ColumnFilter::Number:
      return TextFilter::GetNumbers(value);
    case ColumnFilter::RxMatch:
      return TextFilter::RunRegExMatch(value, argument, true);
    case ColumnFilter::NoHtmlComments:
      return TextFilter::RemoveHtmlComments(value);
    case ColumnFilter::BetterTextOnly:
      return TextFilter::BetterRemoveHtmlTags(value);
  }
  return value;
}

std::string ApplyColumnFilter(std::string_view column_type, std::string_view parameter,
                              std::string_view raw, std::string_view base_uri) {
  const ColumnFilter filter = ColumnFilterOf(column_type);
  const bool url_without_base = filter == ColumnFilter::Url && parameter.empty();
  return RunColumnFilter(filter, raw, url_without_base ? base_uri : parameter);
}

}  // namespace gw::filters
