// The field filters by name: what a field's `ColumnType` does to the value cut out of a row.
//
//   "RAW" raw as it is; "FORMATTEDTEXT" ConvertHtmlToText; "TEXTTOHTMLEXCEPT"
//   ConvertHtmlToTextExcept(parameter = tags to keep); "REMOVEHTMLATTRIBSEXCEPT"
//   ConvertHtmlToTextExcept(parameter), then RemoveHtmlAttributesExcept with an empty list;
//   "TEXTONLY" RemoveAllHtml; "NOLITERALS" RemoveHTMLLiterals; "URL" GetUrl against a base;
//   "EMAIL" GetEmails; "USPHONE" GetUSPhones; "NUMBER" GetNumbers; "RXMATCH"
//   RunRegExMatch(parameter = pattern, all matches); "NOHTMLCOMMENTS" RemoveHtmlComments;
//   "BETTERTEXTONLY" BetterRemoveHtmlTags. Any other name, the empty one included, is "RAW".
#pragma once

#include <string>
#include <string_view>

namespace gw::filters {

enum class ColumnFilter {
  Raw,
  FormattedText,
  TextToHtmlExcept,
  RemoveHtmlAttribsExcept,
  TextOnly,
  NoLiterals,
  Url,
  Email,
  UsPhone,
  Number,
  RxMatch,
  NoHtmlComments,
  BetterTextOnly,
};

// The filter a column type names, compared in upper case (not trimmed). A field resolves its
// type once, when it is set, so that the row loop does not compare names.
ColumnFilter ColumnFilterOf(std::string_view column_type);
// True when `column_type` names a filter ("RAW" and the empty name included), letter case ignored.
bool IsColumnFilterName(std::string_view column_type);
// Every filter name, "RAW" first, for messages: "RAW, FORMATTEDTEXT, ...".
std::string ColumnFilterNames();

// Runs `filter` over a raw value. `argument` is the filter's parameter; for `Url` it is the base
// address already chosen by the caller. Fails as the filter fails (a pattern of "RXMATCH" that
// does not compile: 5017).
std::string RunColumnFilter(ColumnFilter filter, std::string_view raw, std::string_view argument);

// The same by name: "URL" resolves against `parameter`, or against `base_uri` when the parameter
// is empty (the caller passes the source address of the document being extracted, or "").
std::string ApplyColumnFilter(std::string_view column_type, std::string_view parameter,
                              std::string_view raw, std::string_view base_uri);

}  // namespace gw::filters
