// Inside the acquisition layer: how a web page reads an anchor's address and cleans an e-mail
// address, for `WebPage` and the tests of this layer. Other layers use web_page.h.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "acquire/uri_list.h"
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

// What a crawl keeps of a saved page's body, read as `WebPage::RegExHrefsOfBytes(body, url)`
// followed by `HttpLinks().DivideByRuleset(rules, inclusive)` would read it, without building
// either list: `kept` is called for each link the division keeps, in its order, with its key and
// the address as the division holds it (its text read again, with the anchor's text). Gives the
// page's own key and its e-mail links (null for none). Throws where those calls would throw; an
// anchor whose address does not resolve is no link, as there.
struct SavedPageLinks {
  std::string page_key;  // `HashCode` of the page's address
  UriListPtr emails;
};
SavedPageLinks ReadSavedPageLinks(
    std::string_view body, const std::string& url, const UriRuleset& rules, bool inclusive,
    const std::function<void(const std::string& key, const web::Uri& address)>& kept);

}  // namespace gw::acquire_internal
