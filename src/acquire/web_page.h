// WebPage: what the library knows of one HTML page: its links, sorted into web, e-mail and other
// addresses; its forms with their controls; its frames, each a page again.
//
// Two ways in:
//  - `RegExHrefs(FilePath, url)`: the crawler's fast scan of a saved file (`ScanAnchors`), no
//    document built, no frame or form read. Each anchor's address is resolved against `url`; web
//    and file addresses go to `HttpLinks`, "mailto:" addresses (cleansed: no query, no leading
//    slashes) to `EmailLinks`, the rest (script links, unknown schemes) to `OtherLinks`, each list
//    holding a link once. An address that does not parse or classify is skipped.
//  - `LoadFromUrl` / `LoadFromString` / `LoadFromDOM`: the document tree (`html::Document`), for
//    design time: frames, forms, and with `ParseLinks` the links of the anchors (`GetHrefs`).
//
// Frames: the FRAME elements of the page or, when it has none, its IFRAME elements, each added
// to `Frames` with its address and loaded in turn. An inline frame that names the page itself is
// added and not loaded. Beyond that, as a guard the platform gave by refusing: a frame whose
// address was already loaded in this page's tree is added and not loaded again (a frameset that
// names itself would otherwise recurse without end), and frames nested more than 8 deep are added
// and not loaded. A frame that cannot be read is added and stays empty.
//
// Addresses: a local file is read whole and decoded to UTF-8 (`ReadDocumentFile`, as documents
// are read for extraction); its document's address is its absolute path as a "file://" address
// (`FileAddress`). An "http://" or "https://" address is fetched whole through the page's session
// (`Session`: the web client the page was given, else one of its own), whose cookies and
// settings apply, and whose text is decoded by the response's character set; the document's
// address is where redirects led, and an error page (404, 500) is read as a page. The session
// is handed to the frames, so a tree of frames is fetched as one visit. A failure of the fetch
// (no server, a time limit, a certificate) is raised for the page and leaves a frame empty.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include "acquire/uri_list.h"
#include "acquire/web_forms.h"
#include "platform/collection.h"
#include "platform/html/document.h"
#include "platform/variant.h"
#include "web/uri.h"

namespace gw::web {
class HttpClient;
}  // namespace gw::web

namespace gw {

class WebPage;
using WebPagePtr = std::shared_ptr<WebPage>;

class Frames : public CollectionOf<WebPagePtr> {
 public:
  // A new page, added (with `sKey` when given, which must be new).
  WebPagePtr Add(std::string_view sKey = {});
};

class WebPage : public Object {
 public:
  static WebPagePtr Create() { return std::make_shared<WebPage>(); }
  std::string TypeName() const override { return "WebPage"; }

  // Makes the three link lists new, parses `url` into the page's `url`, and sorts the links of
  // the file `FilePath` (a path or a "file://" address) into them, yielding to the host once per
  // anchor. A file that cannot be read leaves the lists empty. Fails only when `url` does not
  // parse. The value is empty.
  Variant RegExHrefs(const std::string& FilePath, const std::string& url);
  // The same for a file's bytes in hand (decoded as a file of them would be), without yielding.
  void RegExHrefsOfBytes(std::string_view bytes, const std::string& url);
  const UriList& HttpLinks() const { return *http_links_; }
  const UriList& EmailLinks() const { return *email_links_; }
  const UriList& OtherLinks() const { return *other_links_; }
  UriListPtr HttpLinksPtr() const { return http_links_; }
  UriListPtr EmailLinksPtr() const { return email_links_; }
  UriListPtr OtherLinksPtr() const { return other_links_; }
  // Made (empty) on first read.
  web::Uri& url();
  void Seturl(std::shared_ptr<web::Uri> u) { url_ = std::move(u); }
  // The HTML of the document's root element; "" before a document is loaded.
  std::string ToString() const;
  ResponseWebForms& Forms() { return forms_; }
  Frames& GetFrames() { return frames_; }
  // Writes `text` to a new file "<GUID>.htm" in the folder of the setting
  // "StringFileCreatePath" (the system's temporary folder when the setting is empty or cannot be
  // read), loads it (`LoadFromUrl`), and removes the file, whether the load worked or not.
  void LoadFromString(const std::string& text, const std::string& SrcUrl = {});
  // Loads the document at `url` (a file path, a "file://" or a web address) and reads it
  // (`LoadFromDOM` with links). The page's address is `SrcUrl` when given, else the document's.
  void LoadFromUrl(const std::string& url, const std::string& SrcUrl = {});
  // Keeps `htmlDoc`, sets the page's address (`SrcUrl`, else the document's), loads the frames
  // and forms, and with `ParseLinks` the links.
  void LoadFromDOM(const std::shared_ptr<const html::Document>& htmlDoc,
                   const std::string& SrcUrl = {}, bool ParseLinks = false);
  // An HTML page that lists the frames for a person to choose from.
  std::string BuildFrameSelectHTML();
  // `html::ElementPath` and `html::ElementDescription`.
  std::string GetElementPath(const html::Element& elem) const;
  std::string GetElementDescription(const html::Element& elem) const;

  const std::shared_ptr<const html::Document>& Document() const { return document_; }
  // The web session that web addresses are fetched through; made when first needed.
  const std::shared_ptr<web::HttpClient>& Session();
  void SetSession(std::shared_ptr<web::HttpClient> client) { session_ = std::move(client); }

 private:
  // The links of the document's anchors, sorted as `RegExHrefs` sorts them. An anchor's address
  // is the href of its markup read as XML, else `GetHref`, else its href attribute (a "file:"
  // address on a page that is not local is rebuilt on the page's site). Its text is the anchor's
  // `innerText`. An anchor whose address does not parse is skipped.
  void GetHrefs();
  struct LoadContext;
  std::shared_ptr<const html::Document> OpenDocument(const std::string& address);
  void Load(const std::string& url, const std::string& SrcUrl, LoadContext& context, int depth);
  void LoadDocument(const std::shared_ptr<const html::Document>& htmlDoc, const std::string& SrcUrl,
                    bool ParseLinks, LoadContext& context, int depth);
  void LoadFrames(LoadContext& context, int depth);
  void LoadForms();
  void NewLinkLists();
  // The lists made new and `url` parsed into the page's `url`, which is returned.
  std::shared_ptr<web::Uri> StartScan(const std::string& url);
  // Sorts the anchors of `text`, found on `page`, into the lists; with `yield`, yielding to the
  // host once per anchor.
  void ScanText(std::string_view text, const web::Uri& page, bool yield);
  // Sorts `u`, found on the page `source`, into the three lists.
  void AddLink(web::Uri& u, const std::string& source);

  std::shared_ptr<web::Uri> url_;
  Frames frames_;
  ResponseWebForms forms_;
  UriListPtr http_links_ = UriList::Create();
  UriListPtr email_links_ = UriList::Create();
  UriListPtr other_links_ = UriList::Create();
  std::shared_ptr<const html::Document> document_;
  std::shared_ptr<web::HttpClient> session_;
};

// The file that a "file:" address ("file:///dir/a%20b.htm", "file:/dir/x.htm") or a plain path
// names.
std::string LocalFilePath(std::string_view address);

// The "file://" address of an absolute path, every byte but letters, digits and "/-._~" escaped.
std::string FileAddress(std::string_view path);

// How deep frames are loaded within frames.
inline constexpr int kMaxFrameDepth = 8;

}  // namespace gw
