// The field filters that a field's `ColumnType` names.
#pragma once

#include <string>
#include <string_view>

namespace gw {

enum class ColumnFilter {
  Raw,                      // "RAW", an empty type and every unknown word
  FormattedText,            // "FORMATTEDTEXT"
  TextToHtmlExcept,         // "TEXTTOHTMLEXCEPT": parameter = tags to keep
  RemoveHtmlAttribsExcept,  // "REMOVEHTMLATTRIBSEXCEPT": parameter = tags to keep
  TextOnly,                 // "TEXTONLY"
  NoLiterals,               // "NOLITERALS"
  Url,                      // "URL": parameter = base address
  Email,                    // "EMAIL"
  UsPhone,                  // "USPHONE"
  Number,                   // "NUMBER"
  RxMatch,                  // "RXMATCH": parameter = regular expression
  NoHtmlComments,           // "NOHTMLCOMMENTS"
  BetterTextOnly,           // "BETTERTEXTONLY"
};

// The filter a column type names, compared without regard to case.
ColumnFilter ColumnFilterOf(std::string_view column_type);

// Runs `filter` over a raw field value through the text filters (`filters::TextFilter`).
// `argument` is the filter's parameter (for `Url`, the base address already chosen by the field:
// the parameter, else the document's address, else ""). Fails as the filter fails (a pattern of
// "RXMATCH" that does not compile: 5017).
std::string RunColumnFilter(ColumnFilter filter, std::string_view raw_text,
                            std::string_view argument);

}  // namespace gw
