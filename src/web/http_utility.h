// Text-level helpers of the web client: URL and HTML encoding and decoding, white space, HTTP
// header tokenising and the classification of addresses.
//
// Text is UTF-8. Where a character is escaped by its code in a URL ("%XX"), each byte of its
// UTF-8 form is escaped; decoding puts the bytes back, so an escaped UTF-8 character round-trips.
// Positions (`SkipSpace`, `SkipChar`, `ParseHeaderValue`) are 1-based byte positions.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/collection.h"
#include "web/failures.h"
#include "web/resource_type.h"

namespace gw::web {

class HttpHeaderElement;
class Uri;

using HttpHeaderElements = Collection<std::shared_ptr<HttpHeaderElement>>;

namespace HttpUtility {

// Carriage return, space, line feed, tab, form feed, vertical tab and NUL.
bool IsWhiteSpace(char c) noexcept;
// The first position at or after `pos` that is not white space; a position past the end is
// returned as it is.
long SkipSpace(std::string_view str, long pos) noexcept;
// The first position at or after `pos` that does not hold `c`, at most one past the end.
long SkipChar(std::string_view str, long pos, char c) noexcept;

// "&nbsp;", "&amp;", "&gt;", "&lt;", "&quot;" replaced in that order, ignoring case, each over
// the whole text (so "&amp;gt;" ends as ">"). Numeric references stay as they are.
std::string HTMLDecode(std::string_view text);
// '"', '&', '<', '>' as entities; a character below 32 or above 127 as "&#" + its code point + ";".
std::string HtmlEncode(std::string_view text);
// Trims spaces, then escapes every byte but ASCII letters, digits and "%" as two-digit "%XX".
// Text that is already escaped is therefore not escaped twice.
std::string UrlEncode(std::string_view text);
// "+" becomes a space and "%XX" a byte. Bad escape digits fail with error 13.
std::string UrlDecode(std::string_view text);
// Trims spaces, then escapes only '"', "'", "&", "<" and "%" as "%XX".
std::string UrlEncodeForHtml(std::string_view text);

// Splits a header value into elements: "text/html; charset=utf-8" gives "text/html" (empty
// value) and " charset" = "utf-8"; parameters are elements of their own. An element name runs
// up to white space, "=", ";" or an apostrophe and always takes the character it starts at, so
// it may begin with a space (`HttpHeader::GetElementByName` trims). Quotes stay in values
// (`dequote` has no effect). An element that starts with "=", ";" or an apostrophe fails with
// `kBadHeaderFormat`. An empty header gives an empty collection.
HttpHeaderElements ParseHttpHeader(std::string_view header, bool dequote = false);
// The value that starts at `beg_pos` after white space and runs up to white space, "," or ";".
// `beg_pos` moves to the end of the value.
std::string ParseHeaderValue(std::string_view header, long& beg_pos);

// Classifies an address: by the scheme that `Uri` parses from it (against `base` when given),
// or, when it has none, by how a person would write it ("C:\...", "\\server", "www.",
// "ftp.", "secure.", "name@host.tld", ".com" and the like).
ResourceType ClassifyResourceUri(std::string_view text, const Uri* base = nullptr);
// `ClassifyResourceUri(uri.ToExternalForm())` of an address parsed already, without writing and
// parsing it again where its scheme decides.
ResourceType ClassifyParsedUri(const Uri& uri);

}  // namespace HttpUtility
}  // namespace gw::web
