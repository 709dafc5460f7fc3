// `Transformations`: text normalisation and occurrence counting for the extraction engine.
#pragma once

#include <string>
#include <string_view>

#include "filters/failures.h"
#include "platform/collection.h"
#include "platform/error.h"

namespace gw::filters {

namespace Transformations {

// Removes every CR LF pair, then every lone CR, then every lone LF, and turns the curly double
// quotes (U+201C, U+201D) into plain ones. Yields to the host's loop (`EventLoop::DoEvents`)
// after each pass.
std::string NormalizeText(std::string_view text);
// Occurrences of `searchstring` in `text`, ignoring ASCII case, overlapping ones included;
// `MaxCount` -1 means no limit, any other value stops the count once it exceeds it (so it can
// reach `MaxCount` + 1).
long GetFindCount(std::string_view text, std::string_view searchstring, long MaxCount = -1);

// Internal helpers of the module.

// Occurrences of CR LF.
long CountCRLF(std::string_view Text);
// The text between `StartTag` (found ignoring case) and the next `EndTag` after it, under the key
// "StringBetweenTags"; `Text` becomes its tail from the end tag on (the end tag included), also
// under the key "Text". A missing tag fails with `kStartTagNotFound` or `kEndTagNotFound`.
Dictionary<std::string> GetStringBetweenTagsAndTruncate(std::string_view StartTag,
                                                        std::string_view EndTag, std::string& Text);
// `Text` keeps what follows the first occurrence of `Str` (ignoring case) and is returned; when
// `Str` does not occur, `Text` stays as it is.
std::string TruncateAfterString(std::string_view Str, std::string& Text);

}  // namespace Transformations
}  // namespace gw::filters
