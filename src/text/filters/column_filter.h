// The field filters by name: what a field's `ColumnType` does to the value cut out of a row.
#pragma once

#include <string>
#include <string_view>

namespace gw::filters {

// Applies the filter named by `column_type` (compared in upper case; not trimmed) to `raw`:
//   "RAW" raw as it is; "FORMATTEDTEXT" ConvertHtmlToText; "TEXTTOHTMLEXCEPT"
//   ConvertHtmlToTextExcept(parameter = tags to keep); "REMOVEHTMLATTRIBSEXCEPT"
//   ConvertHtmlToTextExcept(parameter), then RemoveHtmlAttributesExcept with an empty list;
//   "TEXTONLY" RemoveAllHtml; "NOLITERALS" RemoveHTMLLiterals; "URL" GetUrl against `parameter`,
//   or against `base_uri` when the parameter is empty (the caller passes the source address of
//   the document being extracted, or "" when there is none); "EMAIL" GetEmails; "USPHONE"
//   GetUSPhones; "NUMBER" GetNumbers; "RXMATCH" RunRegExMatch(parameter = pattern, all
//   matches); "NOHTMLCOMMENTS" RemoveHtmlComments; "BETTERTEXTONLY" BetterRemoveHtmlTags.
// Any other name, the empty one included, returns `raw` unchanged. Fails as the filter fails
// (a pattern that does not compile: 5017).
std::string ApplyColumnFilter(std::string_view column_type, std::string_view parameter,
                              std::string_view raw, std::string_view base_uri);

}  // namespace gw::filters
