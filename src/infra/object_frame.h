// Frames around an object's text that stands inside another object's text.
//
// A frame is a short code of capital letters (two or three): the text opens with "[!CODE!]" and
// closes with "[iCODEi]". Frames are never escaped and are found by a plain, case-sensitive text
// search, so a framed text must not itself hold its own closing marker. Every class that stores
// other objects' texts inside its own (a task its crawler, client and file saver; a client its
// cookies) frames them with these two functions.
#pragma once

#include <string>
#include <string_view>

namespace gw {

// "[!" + code + "!]" + text + "[i" + code + "i]".
std::string FrameObjectText(std::string_view code, std::string_view text);
// The text between the first opening marker of `code` in `framed` and the closing marker after
// it; "" when either marker is missing. Pieces of other codes around it do not matter.
std::string UnframeObjectText(std::string_view framed, std::string_view code);

}  // namespace gw
