// The crawler's link scan: the anchors of a page's text, found without building a document.
//
// What counts as an anchor, its address and its text are fixed by the regular expressions the
// crawler was first written with, and the crawler's results depend on them, so this scan gives
// exactly what they give, anchor for anchor:
//
//   anchor      <[aA][\s]+[^\xFF]+?</[\s]*[aA]>         (ignoring case, each match after the last)
//   address     href[\s]*=[\s]*["' ]*[^"' >]*["' >]     (its first match in the anchor), from which
//               every href[\s]*=[\s]*["' ]* and then every one of ["' >] is removed
//   text        <[aA][\s]+[^\xFF]+?(?=</[\s]*[aA]>)     (its first match in the anchor), from which
//               every <[aA][\s]+[^\x3E]+?> is removed
//
// So an anchor runs from "<a" and white space to the first "</a>" (white space allowed after
// "</") that leaves at least one character between them; a "ÿ" or "Ÿ" before that end tag means
// no anchor starts there. Comments and scripts are not special, and an anchor without an end tag
// runs on to the next anchor's end tag, swallowing the anchors in between. `\s` is ASCII white
// space (space, tab, line feed, vertical tab, form feed, carriage return).
//
// The expressions, run as written, cost the square of the page's length on a page with many
// anchors that are never closed (each one searches the rest of the page for an end tag). This
// scan reads the page once: every search it makes only moves forward, so its time is linear in
// the length of the page whatever the page holds.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace gw {

struct ScannedAnchor {
  // Whether the anchor has an address; when not, `href` and `text` are empty.
  bool has_href = false;
  // The address as written (not resolved against the page).
  std::string href;
  // What stands between the anchor's tags, anchor start tags taken out.
  std::string text;
  // Where the anchor stands in the scanned text: byte offset and length.
  std::size_t offset = 0;
  std::size_t length = 0;
};

// Calls `visit` for every anchor of `text`, in order. `text` is valid UTF-8 (a page decoded by
// `DecodeToUtf8` always is). The anchor handed to `visit` is reused for the next one.
void ScanAnchors(std::string_view text, const std::function<void(const ScannedAnchor&)>& visit);

}  // namespace gw
