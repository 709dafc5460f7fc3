// Turning a document's bytes into UTF-8 text, and back.
#pragma once

#include <string>
#include <string_view>

namespace gw {

struct DecodedText {
  std::string text;     // UTF-8
  std::string charset;  // the character set the bytes were read in ("UTF-8", "windows-1252", ...)
};

// Decodes a document's bytes. The character set is, in this order: a byte-order mark; the
// `declared` one (for example from a Content-Type header); one the document declares itself
// (<meta charset>, <meta http-equiv="Content-Type" content="...; charset=...">, or an XML
// declaration's encoding) in its first 4 KB; UTF-8 when the bytes are valid UTF-8; otherwise what
// a statistical detector finds. "ISO-8859-1" and "US-ASCII" are read as windows-1252, their
// superset, as browsers do. A declared set wins over the look of the bytes (a page declared UTF-8
// with an invalid byte is read as UTF-8); detection is only for bytes that declare nothing, and a
// declared set that iconv does not know is passed over. Bytes that cannot be converted become
// U+FFFD; the result is always valid UTF-8.
DecodedText DecodeToUtf8(std::string_view bytes, std::string_view declared = {});

// Encodes UTF-8 text in `charset` (a name that `DecodeToUtf8` reports, or any name iconv knows),
// so that a document read in one character set can be written back in it. A character that the
// set cannot hold becomes a numeric character reference ("&#8364;"). Adds no byte-order mark.
// Fails with error 5 when the set is unknown.
std::string EncodeFromUtf8(std::string_view text, std::string_view charset);

// The character set a document declares in its first 4 KB (see `DecodeToUtf8`), under the name
// `DecodeToUtf8` would read it in ("windows-1252" for "ISO-8859-1", "UTF-8" for "utf8"), or "".
std::string CharsetDeclaredIn(std::string_view bytes);

// The charset named in a Content-Type value ("text/html; charset=Shift_JIS"), or "".
std::string CharsetFromContentType(std::string_view content_type);

}  // namespace gw
