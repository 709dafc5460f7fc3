#include "extraction/column_filter.h"

#include "platform/text.h"

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

std::string RunColumnFilter(ColumnFilter /*filter*/, std::string_view raw_text,
                            std::string_view /*argument*/) {
  return std::string(raw_text);
}

}  // namespace gw
