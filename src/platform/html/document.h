// An HTML document object: the tree a browser builds from a page (HTML5 tree construction, so
// misnested and unclosed tags end up where a browser puts them), read-only, with the members that
// the page model and the design-time plug-in read under the names the platform's document object
// gave them. No script runs and nothing is fetched: a frame's or an image's address is only
// read.
//
// `Document::Parse` takes UTF-8 text (decode a file first, `platform/document_file.h`) and keeps
// it: `Source()` is that text, and every element that stands in it as a tag knows the byte offset
// of its start tag (`SourceOffset`), so a place in the tree maps to a place in the text.
//
// `Element` is a handle: cheap to copy, compared by the node it names, and it keeps its document
// alive. The null handle (`Element()`) is false in a Boolean context and answers every member with
// an empty value.
//
// Values follow the platform's document object:
//  - `tagName` is upper case ("INPUT"); an unknown tag keeps its own name, upper-cased;
//  - `value`: an input's value attribute ("on" for a check box or radio button without one); a text
//    area's text; a select's first selected option's value; an option's value attribute, else its
//    text; otherwise the value attribute;
//  - `type`: an input's type in lower case, "text" when missing or unknown to HTML; a button's
//    "submit", "reset" or "button" ("submit" when missing or unknown); "select-one" or
//    "select-multiple"; "textarea"; otherwise the attribute as written;
//  - `maxLength`: the maxlength attribute read as a non-negative number, 2147483647 when it is
//    missing or not a number;
//  - `method`: "post" when the attribute says so (any case), else "get"; `action` and `src`: the
//    attribute as written (the caller resolves it against the page's address);
//  - `selected` of an option: its selectedness as the select shows it: in a single-choice list of
//    one visible row the last option marked selected, or else the first one not disabled; in a
//    multiple-choice or taller list each option marked selected.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gw::html {

class Document;

class Element {
 public:
  Element() = default;

  explicit operator bool() const noexcept { return node_ != nullptr; }
  friend bool operator==(const Element& a, const Element& b) noexcept { return a.node_ == b.node_; }

  std::string tagName() const;
  // The attribute's value (the name ignores case), or nothing when the element has no such
  // attribute.
  std::optional<std::string> getAttribute(std::string_view name) const;
  bool hasAttribute(std::string_view name) const;
  // The attributes in the order they were written, names in lower case.
  std::vector<std::pair<std::string, std::string>> attributes() const;

  std::string id() const { return AttributeOr("id"); }
  std::string name() const { return AttributeOr("name"); }
  std::string value() const;
  std::string type() const;
  std::string src() const { return AttributeOr("src"); }
  bool multiple() const { return hasAttribute("multiple"); }
  long maxLength() const;
  std::string action() const { return AttributeOr("action"); }
  std::string method() const;

  // The parent element; null for the root element.
  Element parentElement() const;
  // The child elements, in order.
  std::vector<Element> children() const;
  // Every element below this one, in document order.
  std::vector<Element> all() const;
  // The elements below this one whose tag name is `name` (ignoring case), in document order.
  std::vector<Element> tags(std::string_view name) const;

  // Of a form: its inputs (image buttons left out, as the platform did), selects, text areas and
  // buttons, in document order. Those are the controls inside it, and those that belong to it
  // without standing inside it: a control whose `form` attribute names its id, and a control that
  // follows a form the parser closed early (a form opened inside a table, or closed with the
  // element around it) and comes before the form's end tag in the source.
  std::vector<Element> elements() const;
  // Of a select: its options, those inside its option groups included, in order.
  std::vector<Element> options() const;
  // Of an option: its text, white space collapsed and trimmed.
  std::string text() const;
  // Of an option: see the file comment.
  bool selected() const;

  // The element written back as markup that is both HTML and, where the page allows, well-formed
  // XML: tag names in lower case, every attribute in the order it was written with its value in
  // double quotes ("&", "<" and '"' escaped), void elements closed with " />", text escaped ("&",
  // "<", ">") except inside scripts and styles. The same tree always gives the same text.
  std::string outerHTML() const;
  // The text a reader sees: the text of the element with scripts and styles left out, runs of
  // white space as one space (kept inside PRE), a line break for BR and around each block
  // (paragraphs, divisions, list items, table rows, headings...), lines trimmed, blank lines
  // dropped.
  std::string innerText() const;

  // The byte offset of the element's start tag in `Document::Source()`, or `npos` for an element
  // that the parser made without a tag of its own (an implied BODY or TBODY).
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
  std::size_t SourceOffset() const;
  // The length of the start tag in the source (0 for an element without one).
  std::size_t SourceTagLength() const;

  const std::shared_ptr<const Document>& OwnerDocument() const noexcept { return doc_; }

 private:
  friend class Document;
  Element(std::shared_ptr<const Document> doc, const void* node)
      : doc_(std::move(doc)), node_(node) {}
  std::string AttributeOr(std::string_view name) const;

  std::shared_ptr<const Document> doc_;
  const void* node_ = nullptr;  // a GumboNode of type element
};

class Document : public std::enable_shared_from_this<Document> {
 public:
  // Builds the tree of `text` (UTF-8); `url` is the document's own address.
  static std::shared_ptr<const Document> Parse(std::string text, std::string url);
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  const std::string& URL() const noexcept { return url_; }
  // "complete": a document is whole once `Parse` returns.
  const std::string& readyState() const noexcept;
  const std::string& Source() const noexcept { return source_; }

  // The root (HTML) element.
  Element documentElement() const;
  // Every element, in document order.
  std::vector<Element> all() const;
  std::vector<Element> tags(std::string_view name) const;
  std::vector<Element> forms() const { return tags("FORM"); }
  // The A and AREA elements that have an href attribute, in document order.
  std::vector<Element> links() const;
  // The element whose id is `id`, or null.
  Element getElementById(std::string_view id) const;

 private:
  friend class Element;
  struct Impl;
  Document();
  Element Wrap(const void* node) const;

  std::string source_;
  std::string url_;
  std::unique_ptr<Impl> impl_;
};

// `xml` read as an XML document (no document type, nothing loaded from outside): whether it is
// well-formed, and the attribute `attribute` of its root element when it has one.
struct XmlRootAttribute {
  bool well_formed = false;
  std::optional<std::string> value;
};
XmlRootAttribute ReadXmlRootAttribute(std::string_view xml, std::string_view attribute);

// The element's description as the page model names it: "/" + tag name, then ":" + its name or,
// without one, its id, when it has either; a FORM adds ":" + its action attribute.
std::string ElementDescription(const Element& elem);
// The descriptions of the element's ancestors below HTML, outermost first, then its own: a path
// that names the element again when the page is loaded again ("/BODY/FORM:search:/find/INPUT:q").
std::string ElementPath(const Element& elem);

}  // namespace gw::html
