#include "text/filters/column_filter.h"

#include "platform/text.h"
#include "text/filters/text_filter.h"

namespace gw::filters {

std::string ApplyColumnFilter(std::string_view column_type, std::string_view parameter,
                              std::string_view raw, std::string_view base_uri) {
  const std::string type = text::ToUpper(column_type);
  std::string value(raw);
  if (type == "FORMATTEDTEXT") return TextFilter::ConvertHtmlToText(value);
  if (type == "TEXTTOHTMLEXCEPT") return TextFilter::ConvertHtmlToTextExcept(value, parameter);
  if (type == "REMOVEHTMLATTRIBSEXCEPT") {
    // The parameter says which tags survive; all attributes of every surviving tag go.
    value = TextFilter::ConvertHtmlToTextExcept(value, parameter);
    return TextFilter::RemoveHtmlAttributesExcept(value, "");
  }
  if (type == "TEXTONLY") return TextFilter::RemoveAllHtml(value);
  if (type == "NOLITERALS") return TextFilter::RemoveHTMLLiterals(value);
  if (type == "URL") return TextFilter::GetUrl(value, parameter.empty() ? base_uri : parameter);
  if (type == "EMAIL") return TextFilter::GetEmails(value);
  if (type == "USPHONE") return TextFilter::GetUSPhones(value);
  if (type == "NUMBER") return TextFilter::GetNumbers(value);
  if (type == "RXMATCH") return TextFilter::RunRegExMatch(value, parameter, true);
  if (type == "NOHTMLCOMMENTS") return TextFilter::RemoveHtmlComments(value);
  if (type == "BETTERTEXTONLY") return TextFilter::BetterRemoveHtmlTags(value);
  return value;  // "RAW", empty and unknown names
}

}  // namespace gw::filters
