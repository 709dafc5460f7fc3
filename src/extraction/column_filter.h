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

// Runs `filter` over a raw field value. `argument` is the filter's parameter (for `Url`, the
// base address already chosen by the field).
//
// The text filters live in their own layer, which is not linked into this build yet: until it is,
// every filter hands the raw text back unchanged, as "RAW" does.
std::string RunColumnFilter(ColumnFilter filter, std::string_view raw_text,
                            std::string_view argument);

}  // namespace gw
