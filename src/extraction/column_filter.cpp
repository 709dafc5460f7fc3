#include "extraction/column_filter.h"

#include "platform/text.h"
#include "text/filters/text_filter.h"

namespace gw {

ColumnFilter ColumnFilterOf(std::string_view column_type) {
  struct Name {
    std::string_view name;
    ColumnFilter filter;
  };
  static constexpr Name kNames[] = {
      {"RAW", ColumnFilter::Raw},
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
  const std::string upper = text::ToUpper(column_type);
  for (const Name& n : kNames) {
    if (upper == n.name) return n.filter;
  }
  return ColumnFilter::Raw;
}

std::string RunColumnFilter(ColumnFilter filter, std::string_view raw_text,
                            std::string_view argument) {
  namespace tf = filters::TextFilter;
  std::string value(raw_text);
  switch (filter) {
    case ColumnFilter::Raw:
      return value;
    case ColumnFilter::FormattedText:
      return tf::ConvertHtmlToText(value);
    case ColumnFilter::TextToHtmlExcept:
      return tf::ConvertHtmlToTextExcept(value, argument);
    case ColumnFilter::RemoveHtmlAttribsExcept:
      // The parameter says which tags survive; all attributes of every surviving tag go.
      value = tf::ConvertHtmlToTextExcept(value, argument);
      return tf::RemoveHtmlAttributesExcept(value, "");
    case ColumnFilter::TextOnly:
      return tf::RemoveAllHtml(value);
    case ColumnFilter::NoLiterals:
      return tf::RemoveHTMLLiterals(value);
    case ColumnFilter::Url:
      return tf::GetUrl(value, argument);
    case ColumnFilter::Email:
      return tf::GetEmails(value);
    case ColumnFilter::UsPhone:
      return tf::GetUSPhones(value);
    case ColumnFilter::Number:
      return tf::GetNumbers(value);
    case ColumnFilter::RxMatch:
      return tf::RunRegExMatch(value, argument, true);
    case ColumnFilter::NoHtmlComments:
      return tf::RemoveHtmlComments(value);
    case ColumnFilter::BetterTextOnly:
      return tf::BetterRemoveHtmlTags(value);
  }
  return value;
}

}  // namespace gw
