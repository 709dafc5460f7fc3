// Inside the acquisition layer: how a web page reads an anchor's address and cleans an e-mail
// address, for `WebPage` and the tests of this layer. Other layers use web_page.h.
#pragma once

#include <string>

#include "platform/html/document.h"
#include "web/uri.h"

namespace gw::acquire_internal {

// The address in an anchor's markup, found by text: after `href="`, `href ="` or `href = "` up
// to the next double quote, else after "href=", "href =" or "href = " up to the next space, else
// up to the next ">"; letter case ignored; the first that gives something. "" when none does.
std::string GetHref(const html::Element& anchor);
// For a "mailto:" address: the address part unescaped, a query after the last "@" cut off,
// spaces trimmed, leading slashes and backslashes removed, and parsed again as "mailto:" + the
// rest into `mailto`, which is returned. Other addresses are returned as they are.
web::Uri& CleanseEmail(web::Uri& mailto);

}  // namespace gw::acquire_internal
