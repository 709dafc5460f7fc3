#include "acquire/web_page.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <unordered_set>

#include "acquire/link_scan.h"
#include "acquire/uri_rules.h"
#include "acquire/web_page_internal.h"
#include "infra/c_guid_gen.h"
#include "platform/document_file.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "platform/text.h"
#include "rules/settings.h"
#include "text/b_string.h"
#include "web/http_client.h"
#include "web/http_utility.h"
#include "web/resource_type.h"

namespace gw {

namespace fs = std::filesystem;
using acquire_internal::CleanseEmail;
using acquire_internal::GetHref;

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsWebAddress(std::string_view address) {
  return text::StartsWithNoCase(address, "http://") || text::StartsWithNoCase(address, "https://");
}

// The document of a local file, read whole and decoded.
std::shared_ptr<const html::Document> OpenFile(const std::string& address) {
  const std::string path = LocalFilePath(address);
  DocumentFile file = ReadDocumentFile(path, "WebPage.LoadFromUrl");
  std::error_code ec;
  const fs::path absolute = fs::absolute(path, ec);
  return html::Document::Parse(std::move(file.text),
                               FileAddress(ec ? path : absolute.lexically_normal().string()));
}

}  // namespace

std::string FileAddress(std::string_view path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out = "file://";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
        (byte >= '0' && byte <= '9') ||
        std::string_view("/-._~").find(c) != std::string_view::npos) {
      out += c;
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 15];
    }
  }
  return out;
}

std::string LocalFilePath(std::string_view address) {
  if (!text::StartsWithNoCase(address, "file:")) return std::string(address);
  address.remove_prefix(5);
  if (address.starts_with("//")) {
    // The host ("", or "localhost") names this machine.
    const std::size_t path = address.find('/', 2);
    address = path == std::string_view::npos ? std::string_view() : address.substr(path);
  }
  std::string out;
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (address[i] == '%' && i + 2 < address.size() && HexDigit(address[i + 1]) >= 0 &&
        HexDigit(address[i + 2]) >= 0) {
      out += static_cast<char>(HexDigit(address[i + 1]) * 16 + HexDigit(address[i + 2]));
      i += 2;
    } else {
      out += address[i];
    }
  }
  return out;
}

struct WebPage::LoadContext {
  // The `HashCode`s of the pages loaded in this tree so far.
  std::unordered_set<std::string> loaded;
};

WebPagePtr Frames::Add(std::string_view sKey) { return items_.Add(WebPage::Create(), sKey); }

web::Uri& WebPage::url() {
  if (!url_) url_ = std::make_shared<web::Uri>();
  return *url_;
}

void WebPage::NewLinkLists() {
  http_links_ = UriList::Create();
  email_links_ = UriList::Create();
  other_links_ = UriList::Create();
}

// ---- the fast scan ----------------------------------------------------------------------------

Variant WebPage::RegExHrefs(const std::string& FilePath, const std::string& url) {
  return ReportAs("WebPage.RegExHrefs(FilePath,url)", Args(FilePath, url), [&] {
    std::string text;
    const auto page = StartScan(url);
    try {
      text = ReadDocumentFile(LocalFilePath(FilePath), "WebPage.RegExHrefs").text;
    } catch (const Error&) {
      return Variant();  // a file that did not open has no links
    }
    ScanText(text, *page, true);
    return Variant();
  });
}

void WebPage::RegExHrefsOfBytes(std::string_view bytes, const std::string& url) {
  ReportAs("WebPage.RegExHrefsOfBytes(bytes,url)", [&] {
    const auto page = StartScan(url);
    ScanText(DecodeDocumentBytes(bytes).text, *page, false);
  });
}

std::shared_ptr<web::Uri> WebPage::StartScan(const std::string& url) {
  NewLinkLists();
  auto page = std::make_shared<web::Uri>();
  page->Parse(url);
  url_ = page;
  return page;
}

void WebPage::ScanText(std::string_view text, const web::Uri& page, bool yield) {
  const std::string source = page.ToString();
  ScanAnchors(text, [&](const ScannedAnchor& anchor) {
    if (yield) DoEvents();
    if (!anchor.has_href) return;
    try {
      web::Uri u(anchor.href, &page);
      u.SetLinkText(anchor.text);
      AddLink(u, source);
    } catch (const Error&) {
      // One bad link does not end the page.
    }
  });
}

void WebPage::AddLink(web::Uri& u, const std::string& source) {
  switch (web::HttpUtility::ClassifyParsedUri(u)) {
    case web::ResourceType::http:
    case web::ResourceType::FileSystem:
      http_links_->Add(u, source);
      break;
    case web::ResourceType::email:
      CleanseEmail(u);
      email_links_->Add(u, source);
      break;
    default:
      other_links_->Add(u, source);
      break;
  }
}

web::Uri& acquire_internal::CleanseEmail(web::Uri& mailto) {
  if (text::AsciiUpper(mailto.scheme()) != "MAILTO") return mailto;
  std::string address = web::HttpUtility::UrlDecode(mailto.OpaquePart());
  const std::size_t at = address.rfind('@');
  const std::size_t query = address.find('?', at == std::string::npos ? 0 : at + 1);
  if (query != std::string::npos && query >= 2) address.erase(query);
  std::string_view rest = text::TrimSpaces(address);
  while (!rest.empty() && (rest.front() == '/' || rest.front() == '\\')) rest.remove_prefix(1);
  mailto.Parse("mailto:" + std::string(rest));
  return mailto;
}

namespace {

// The keys of one page's links: exact (keys with one hash are compared), in one flat table.
class PageKeys {
 public:
  static std::size_t HashOf(const std::string& key) { return std::hash<std::string>{}(key); }
  bool Contains(const std::string& key, std::size_t h) const {
    if (slots_.empty()) return false;
    for (std::size_t i = h & Mask();; i = (i + 1) & Mask()) {
      if (slots_[i] == 0) return false;
      const auto& [hash, text] = keys_[slots_[i] - 1];
      if (hash == h && text == key) return true;
    }
  }
  // Adds a key not in the set.
  void Add(const std::string& key, std::size_t h) {
    if ((keys_.size() + 1) * 2 > slots_.size()) Grow();
    keys_.emplace_back(h, key);
    Place(h, keys_.size());
  }

 private:
  std::size_t Mask() const { return slots_.size() - 1; }
  void Place(std::size_t h, std::size_t entry) {
    std::size_t i = h & Mask();
    while (slots_[i] != 0) i = (i + 1) & Mask();
    slots_[i] = entry;
  }
  void Grow() {
    slots_.assign(slots_.empty() ? 128 : slots_.size() * 2, 0);
    for (std::size_t e = 0; e < keys_.size(); ++e) Place(keys_[e].first, e + 1);
  }

  std::vector<std::pair<std::size_t, std::string>> keys_;
  std::vector<std::size_t> slots_;  // 1 + index into keys_; 0 for a free slot
};

}  // namespace

acquire_internal::SavedPageLinks acquire_internal::ReadSavedPageLinks(
    std::string_view body, const std::string& url, const UriRuleset& rules, bool inclusive,
    const std::function<void(const std::string& key, const web::Uri& address)>& kept) {
  // The steps and their failures are those of StartScan, ScanText, AddLink, UriList::Add (each
  // web address at its first sighting, an item made of its text) and then DivideByRuleset
  // (each item's text read again, tested, and added at the first sighting of its own key).
  web::Uri page;
  page.Parse(url);
  const std::string text = DecodeDocumentBytes(body).text;
  const std::string source = page.ToString();
  SavedPageLinks out;
  PageKeys seen;  // the page's web links, by key
  PageKeys kept_keys;
  ScanAnchors(text, [&](const ScannedAnchor& anchor) {
    if (!anchor.has_href) return;
    std::string address;
    try {
      web::Uri u(anchor.href, &page);
      u.SetLinkText(anchor.text);
      switch (web::HttpUtility::ClassifyParsedUri(u)) {
        case web::ResourceType::http:
        case web::ResourceType::FileSystem:
          break;
        case web::ResourceType::email:
          CleanseEmail(u);
          if (!out.emails) out.emails = UriList::Create();
          out.emails->Add(u, source);
          return;
        default:
          return;
      }
      const std::string& key = u.HashCode();
      const std::size_t h = PageKeys::HashOf(key);
      if (seen.Contains(key, h)) return;
      address = u.ToString();  // no item is made of an address that cannot be written
      seen.Add(key, h);
    } catch (const Error&) {
      return;  // one bad link does not end the page
    }
    web::Uri as_kept(address);
    as_kept.SetLinkText(anchor.text);
    if (rules.IsMatch(as_kept) != inclusive) return;
    const std::string& key = as_kept.HashCode();
    const std::size_t h = PageKeys::HashOf(key);
    if (kept_keys.Contains(key, h)) return;
    kept_keys.Add(key, h);
    kept(key, as_kept);
  });
  if (out.emails && out.emails->Count() == 0) out.emails.reset();
  out.page_key = page.HashCode();
  return out;
}

// ---- the document tree ------------------------------------------------------------------------

void WebPage::LoadFromString(const std::string& text, const std::string& SrcUrl) {
  ReportAs("WebPage.LoadFromString(text,SrcUrl)", Args(text, SrcUrl), [&] {
    std::string folder;
    try {
      folder = Settings().GetOption("StringFileCreatePath").ToText();
    } catch (const Error&) {
      // Without the setting, the temporary folder does.
    }
    std::error_code ec;
    if (folder.empty()) folder = fs::temp_directory_path(ec).string();
    fs::create_directories(folder, ec);
    const fs::path path = fs::path(folder) / (CGUIDGen::NewGUID() + ".htm");
    struct RemoveAfterwards {
      fs::path path;
      ~RemoveAfterwards() {
        std::error_code ignored;
        fs::remove(path, ignored);
      }
    } remove_afterwards{path};
    {
      // A byte-order mark, so the text is read back as UTF-8 whatever charset it declares.
      std::ofstream out(path, std::ios::binary | std::ios::trunc);
      out << "\xEF\xBB\xBF" << text;
      if (!out.flush()) {
        const int code = errno;
        Error e(errnum::kPathFileAccessError, "WebPage.LoadFromString",
                "Path/File access error: could not write " + path.string());
        e.SetSystemError(code);
        throw e;
      }
    }
    LoadFromUrl(path.string(), SrcUrl);
  });
}

void WebPage::LoadFromUrl(const std::string& url, const std::string& SrcUrl) {
  ReportAs("WebPage.LoadFromUrl(url,SrcUrl)", Args(url, SrcUrl), [&] {
    LoadContext context;
    Load(url, SrcUrl, context, 0);
  });
}

void WebPage::LoadFromDOM(const std::shared_ptr<const html::Document>& htmlDoc,
                          const std::string& SrcUrl, bool ParseLinks) {
  ReportAs("WebPage.LoadFromDOM(htmlDoc,SrcUrl,ParseLinks)", Args(htmlDoc, SrcUrl, ParseLinks),
           [&] {
             LoadContext context;
             LoadDocument(htmlDoc, SrcUrl, ParseLinks, context, 0);
           });
}

const std::shared_ptr<web::HttpClient>& WebPage::Session() {
  if (!session_) session_ = web::HttpClient::Create();
  return session_;
}

std::shared_ptr<const html::Document> WebPage::OpenDocument(const std::string& address) {
  if (!IsWebAddress(address)) return OpenFile(address);
  // The page is fetched whole, through the session (its cookies apply); an error page is a page
  // too. The document's address is where redirects led.
  const auto& client = Session();
  client->GetPage(address);
  const auto& response = client->HttpResponse();
  return html::Document::Parse(
      response ? response->BodyText().ToString() : std::string(),
      client->CurrentUrl() ? client->CurrentUrl()->ToExternalForm() : address);
}

void WebPage::Load(const std::string& url, const std::string& SrcUrl, LoadContext& context,
                   int depth) {
  auto doc = OpenDocument(url);
  DoEvents();
  LoadDocument(doc, SrcUrl, true, context, depth);
}

void WebPage::LoadDocument(const std::shared_ptr<const html::Document>& htmlDoc,
                           const std::string& SrcUrl, bool ParseLinks, LoadContext& context,
                           int depth) {
  if (!htmlDoc) {
    throw Error(errnum::kObjectNotSet, "WebPage.LoadFromDOM",
                "Object variable or With block variable not set");
  }
  document_ = htmlDoc;
  url_ = std::make_shared<web::Uri>(SrcUrl.empty() ? htmlDoc->URL() : SrcUrl);
  context.loaded.insert(url_->HashCode());
  try {
    context.loaded.insert(web::Uri(htmlDoc->URL()).HashCode());
  } catch (const Error&) {
    // A document without an address of its own is known by the page's.
  }
  frames_ = Frames();
  forms_ = ResponseWebForms();
  LoadFrames(context, depth);
  LoadForms();
  if (ParseLinks) {
    NewLinkLists();
    GetHrefs();
  }
}

void WebPage::LoadFrames(LoadContext& context, int depth) {
  std::vector<html::Element> elements = document_->tags("FRAME");
  const bool inline_frames = elements.empty();
  if (inline_frames) elements = document_->tags("IFRAME");
  for (const html::Element& element : elements) {
    WebPagePtr frame = frames_.Add();
    std::shared_ptr<web::Uri> address;
    try {
      address = std::make_shared<web::Uri>(element.src(), &url());
    } catch (const Error&) {
      continue;  // an address that does not parse: the frame stays empty
    }
    frame->Seturl(address);
    if (inline_frames && address->HashCode() == url().HashCode()) continue;
    if (context.loaded.contains(address->HashCode()) || depth + 1 > kMaxFrameDepth) continue;
    frame->SetSession(Session());
    try {
      frame->Load(address->ToExternalForm(), "", context, depth + 1);
    } catch (const Error&) {
      // A frame that cannot be read stays empty, as a browser shows an error in it.
    }
  }
}

void WebPage::LoadForms() {
  const auto self = std::static_pointer_cast<WebPage>(shared_from_this());
  for (const html::Element& form : document_->forms()) forms_.Add()->LoadFromDOM(form, self);
}

void WebPage::GetHrefs() {
  ReportAs("WebPage.GetHrefs", [&] {
    const bool local_page = text::AsciiUpper(url().scheme()) == "FILE";
    const std::string source = url().ToString();
    for (const html::Element& anchor : document_->tags("A")) {
      try {
        web::Uri u;
        const html::XmlRootAttribute xml = html::ReadXmlRootAttribute(anchor.outerHTML(), "href");
        if (xml.well_formed) {
          if (!xml.value) continue;  // an anchor without an address
          u.Parse(*xml.value, &url());
        } else if (const std::string href = GetHref(anchor); !href.empty()) {
          u.Parse(href, &url());
        } else {
          const std::optional<std::string> attribute = anchor.getAttribute("href");
          if (!attribute) continue;
          u.Parse(*attribute, &url());
          if (text::AsciiUpper(u.scheme()) == "FILE" && !local_page) {
            // A link resolved against a local copy of the page: put it back on the page's site.
            std::string folder = u.PathWithoutFile();
            const std::size_t drive = folder.find(":/");
            folder =
                drive != std::string::npos ? folder.substr(drive + 1) : url().PathWithoutFile();
            std::string rebuilt = url().scheme() + "://" + url().Host() + folder + u.FileName();
            if (!u.QueryString().empty()) rebuilt += "?" + u.QueryString();
            u.Parse(rebuilt);
          }
        }
        u.SetLinkText(anchor.innerText());
        AddLink(u, source);
      } catch (const Error&) {
        // One bad link does not end the page.
      }
      DoEvents();
    }
  });
}

std::string acquire_internal::GetHref(const html::Element& anchor) {
  static constexpr std::pair<std::string_view, std::string_view> kTokens[] = {
      {"href=\"", "\""}, {"href =\"", "\""}, {"href = \"", "\""}, {"href=", " "},   {"href =", " "},
      {"href = ", " "},  {"href=", ">"},     {"href =", ">"},     {"href = ", ">"},
  };
  const BString html(anchor.outerHTML());
  for (const auto& [start, end] : kTokens) {
    std::string value = html.ValueBetweenTokens(start, end).ToString();
    if (!value.empty()) return value;
  }
  return {};
}

std::string WebPage::ToString() const {
  if (!document_) return {};
  const auto roots = document_->tags("HTML");
  return roots.empty() ? std::string() : roots.front().outerHTML();
}

std::string WebPage::BuildFrameSelectHTML() {
  const std::string page = url().ToString();
  std::string out =
      "<HTML><BODY><h1 align=center><font face=Verdana>HTML Frames</font></h1><hr>"
      "<p><font face=Verdana><B>The following URLs make up the component frames for the frameset "
      "at <a href=" +
      page + ">" + page + "</a> :</B></font></p><ul>";
  for (const WebPagePtr& frame : frames_) {
    const std::string address = frame->url().ToString();
    out += "<li><font face=Verdana><A href=" + address + " >" + address + "</A></font></li>";
  }
  return out + "</ul></BODY></HTML>";
}

std::string WebPage::GetElementPath(const html::Element& elem) const {
  return html::ElementPath(elem);
}

std::string WebPage::GetElementDescription(const html::Element& elem) const {
  return html::ElementDescription(elem);
}

}  // namespace gw
