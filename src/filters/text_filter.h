// `TextFilter`: the cleaning toolbox behind the field types of a datapage. It turns a fragment of
// HTML into text, pulls addresses, phone numbers, numbers and links out of a value, and runs
// regular expressions.
//
// Nearly every operation is a sequence of regular-expression passes (`gw::Regex`, the script
// engine's flavour: `.` stops at a line break, `\w` is ASCII) whose exact patterns and order are
// the point of this module. Every pattern ignores case. Every replacement pass trims spaces
// (spaces only) from both ends of its result, so the operations built on it lose leading and
// trailing spaces as a side effect. The fixed patterns are compiled once per process; a pattern
// given by a caller is compiled once and kept in `gw::Regex`'s cache.
//
// Operations documented as changing `text` leave in it what they return (or, for `GetUrl` and
// `RemoveHtmlComments`, the intermediate text described there).
//
// Cost: linear on page text, with two exceptions of the patterns themselves: `GetEmails` is
// quadratic on a long run of dotted words that ends in "@" without a valid domain (about 1 s for
// 100 KB of "a.a.a...@"), and `GetNumbers` fails with 28 on a run of more than about 100,000
// digits (one group iteration per digit).
//
// Failures are `gw::Error`s raised through log names such as
// "TextFilter.RunRegExMatch(text,Pattern,matchAll)": a caller's pattern that does not compile
// (5017), or a pattern that backtracks without bound on the text (28).
#pragma once

#include <string>
#include <string_view>

#include "platform/collection.h"

namespace gw::filters::TextFilter {

// The tags that `ConvertHtmlToTextExcept` and `RemoveHtmlAttributesExcept` know, comma-separated
// (110 items; the prefixed names at the end are what word processors leave in HTML).
extern const char* const kTagTable;

// One absolute link from a fragment such as `href="/a.html"`: `text` loses the "href=", "src="
// prefixes, quotes, spaces and ">" (in place), the rest is resolved against `SrcUrl` when that is
// not empty, and the external form comes back, unless it cannot be parsed or names a mail
// address, something unknown or an invalid scheme, when the result is "".
std::string GetUrl(std::string& text, std::string_view SrcUrl);
// All phone-number matches, joined by two spaces.
std::string GetUSPhones(std::string_view text);
// `RemoveHtmlTags`, then `RemoveHTMLLiterals`.
std::string RemoveAllHtml(std::string_view text);
// Every "<...>" removed.
std::string RemoveHtmlTags(std::string_view text);
// Single-line script blocks removed, then every tag, a quoted ">" not ending it.
std::string BetterRemoveHtmlTags(std::string_view text);
// Single-line comments removed from `text` (in place), then the result of
// `BetterRemoveHtmlTags(text)`: all tags go too.
std::string RemoveHtmlComments(std::string& text);
// The five named references of `HttpUtility::HTMLDecode`.
std::string RemoveHTMLLiterals(std::string_view text);
// Layout tags become line breaks (CR LF) and spaces, then every tag goes, references are
// decoded and spaces and breaks tidied. Changes `text` in place.
std::string ConvertHtmlToText(std::string& text);
// As `ConvertHtmlToText`, but the tags named in `IgnoreTagsCSV` ("b,i" or "<b>,</i>") and the
// tags outside the tag table survive. Changes `text` in place.
std::string ConvertHtmlToTextExcept(std::string& text, std::string_view IgnoreTagsCSV);
// Every tag of the tag table not named in `IgnoreTagsCSV` loses its attributes and comes out in
// upper case ("<TD>"). Changes `text` in place.
std::string RemoveHtmlAttributesExcept(std::string& text, std::string_view IgnoreTagsCSV);
// All matches of the number pattern ("12.5", ".5"), joined by two spaces.
std::string GetNumbers(std::string_view text);
// All e-mail addresses, joined by two spaces.
std::string GetEmails(std::string_view text);
// The non-empty matches of `Pattern` (all of them, or the first when `matchAll` is false), each
// followed by two spaces, the whole trimmed of spaces.
std::string RunRegExMatch(std::string_view text, std::string_view Pattern, bool matchAll);
// Every match of `Pattern` replaced by `Replacement` ("$1" and the like work), then spaces
// trimmed from both ends.
std::string RunRegExReplace(std::string_view text, std::string_view Pattern,
                            std::string_view Replacement);

// Splits at ",", upper-cases each item and keeps the first of equal ones, as key and value.
// Items are not trimmed: " b" is a key of its own.
Dictionary<std::string> CSVToDictionary(std::string_view csv);

}  // namespace gw::filters::TextFilter
