#include "infra/object_frame.h"

#include "text/b_string.h"

namespace gw {

namespace {
std::string OpeningMarker(std::string_view code) { return "[!" + std::string(code) + "!]"; }
std::string ClosingMarker(std::string_view code) { return "[i" + std::string(code) + "i]"; }
}  // namespace

std::string FrameObjectText(std::string_view code, std::string_view text) {
  std::string framed = OpeningMarker(code);
  framed += text;
  framed += ClosingMarker(code);
  return framed;
}

std::string UnframeObjectText(std::string_view framed, std::string_view code) {
  return BString(framed)
      .ValueBetweenTokens(OpeningMarker(code), ClosingMarker(code), 1, /*case_sensitive=*/true)
      .ToString();
}

}  // namespace gw
