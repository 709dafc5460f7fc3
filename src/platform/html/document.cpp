#include "platform/html/document.h"

#include <gumbo.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unordered_map>

#include "platform/text.h"

namespace gw::html {

namespace {

using Node = GumboNode;

const Node* AsNode(const void* p) { return static_cast<const Node*>(p); }

bool IsElement(const Node* n) {
  return n->type == GUMBO_NODE_ELEMENT || n->type == GUMBO_NODE_TEMPLATE;
}

bool IsText(const Node* n) {
  return n->type == GUMBO_NODE_TEXT || n->type == GUMBO_NODE_WHITESPACE ||
         n->type == GUMBO_NODE_CDATA;
}

const GumboVector& ChildrenOf(const Node* n) {
  return n->type == GUMBO_NODE_DOCUMENT ? n->v.document.children : n->v.element.children;
}

const Node* ChildAt(const GumboVector& v, unsigned i) {
  return static_cast<const Node*>(v.data[i]);
}

// The tag name in lower case.
std::string LowerTagName(const Node* n) {
  const GumboElement& e = n->v.element;
  if (e.tag != GUMBO_TAG_UNKNOWN) return gumbo_normalized_tagname(e.tag);
  GumboStringPiece piece = e.original_tag;
  if (piece.length == 0) return {};
  gumbo_tag_from_original_text(&piece);
  return text::AsciiLower(std::string_view(piece.data, piece.length));
}

bool HasTag(const Node* n, GumboTag tag) { return IsElement(n) && n->v.element.tag == tag; }

const GumboAttribute* FindAttribute(const Node* n, std::string_view name) {
  const GumboVector& attrs = n->v.element.attributes;
  for (unsigned i = 0; i < attrs.length; ++i) {
    const auto* a = static_cast<const GumboAttribute*>(attrs.data[i]);
    if (text::EqualsNoCase(a->name, name)) return a;
  }
  return nullptr;
}

std::string Attribute(const Node* n, std::string_view name) {
  const GumboAttribute* a = FindAttribute(n, name);
  return a ? std::string(a->value) : std::string();
}

bool IsAsciiSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r'; }

// A non-negative number as HTML reads one: leading white space, then digits; nothing otherwise.
std::optional<long> ParseNonNegative(std::string_view s) {
  std::size_t i = 0;
  while (i < s.size() && IsAsciiSpace(s[i])) ++i;
  if (i < s.size() && s[i] == '+') ++i;
  if (i >= s.size() || s[i] < '0' || s[i] > '9') return std::nullopt;
  long long value = 0;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
    value = value * 10 + (s[i] - '0');
    if (value > LONG_MAX / 10) return std::nullopt;
  }
  if (value > INT_MAX) return std::nullopt;
  return static_cast<long>(value);
}

// White space runs as one space, trimmed at both ends.
std::string CollapseSpaces(std::string_view s) {
  std::string out;
  bool space = false;
  for (char c : s) {
    if (IsAsciiSpace(c)) {
      space = !out.empty();
    } else {
      if (space) out += ' ';
      space = false;
      out += c;
    }
  }
  return out;
}

void AppendTextContent(const Node* n, std::string& out, bool skip_scripts) {
  if (IsText(n)) {
    out += n->v.text.text;
    return;
  }
  if (!IsElement(n)) return;
  if (skip_scripts && HasTag(n, GUMBO_TAG_SCRIPT)) return;
  const GumboVector& kids = ChildrenOf(n);
  for (unsigned i = 0; i < kids.length; ++i) AppendTextContent(ChildAt(kids, i), out, skip_scripts);
}

// ---- writing the tree back as HTML --------------------------------------------------------------

bool IsVoid(GumboTag tag) {
  switch (tag) {
    case GUMBO_TAG_AREA:
    case GUMBO_TAG_BASE:
    case GUMBO_TAG_BASEFONT:
    case GUMBO_TAG_BGSOUND:
    case GUMBO_TAG_BR:
    case GUMBO_TAG_COL:
    case GUMBO_TAG_EMBED:
    case GUMBO_TAG_FRAME:
    case GUMBO_TAG_HR:
    case GUMBO_TAG_IMG:
    case GUMBO_TAG_INPUT:
    case GUMBO_TAG_KEYGEN:
    case GUMBO_TAG_LINK:
    case GUMBO_TAG_META:
    case GUMBO_TAG_PARAM:
    case GUMBO_TAG_SOURCE:
    case GUMBO_TAG_TRACK:
    case GUMBO_TAG_WBR:
      return true;
    default:
      return false;
  }
}

bool HoldsRawText(const Node* n) {
  if (!n || !IsElement(n)) return false;
  switch (n->v.element.tag) {
    case GUMBO_TAG_STYLE:
    case GUMBO_TAG_SCRIPT:
    case GUMBO_TAG_XMP:
    case GUMBO_TAG_IFRAME:
    case GUMBO_TAG_NOEMBED:
    case GUMBO_TAG_NOFRAMES:
    case GUMBO_TAG_PLAINTEXT:
      return true;
    default:
      return false;
  }
}

// Only the entities XML knows are written, so that markup without scripts reads as XML too.
void AppendEscaped(std::string& out, std::string_view s, bool attribute) {
  for (const char c : s) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (attribute && c == '"') {
      out += "&quot;";
    } else if (!attribute && c == '>') {
      out += "&gt;";
    } else {
      out += c;
    }
  }
}

void Serialize(const Node* n, std::string& out) {
  switch (n->type) {
    case GUMBO_NODE_ELEMENT:
    case GUMBO_NODE_TEMPLATE: {
      const std::string tag = LowerTagName(n);
      out += '<';
      out += tag;
      const GumboVector& attrs = n->v.element.attributes;
      for (unsigned i = 0; i < attrs.length; ++i) {
        const auto* a = static_cast<const GumboAttribute*>(attrs.data[i]);
        out += ' ';
        out += a->name;
        out += "=\"";
        AppendEscaped(out, a->value, true);
        out += '"';
      }
      if (IsVoid(n->v.element.tag)) {
        out += " />";
        return;
      }
      out += '>';
      const GumboVector& kids = n->v.element.children;
      for (unsigned i = 0; i < kids.length; ++i) Serialize(ChildAt(kids, i), out);
      out += "</";
      out += tag;
      out += '>';
      return;
    }
    case GUMBO_NODE_TEXT:
    case GUMBO_NODE_WHITESPACE:
      if (HoldsRawText(n->parent)) {
        out += n->v.text.text;
      } else {
        AppendEscaped(out, n->v.text.text, false);
      }
      return;
    case GUMBO_NODE_CDATA:
      out += "<![CDATA[";
      out += n->v.text.text;
      out += "]]>";
      return;
    case GUMBO_NODE_COMMENT:
      out += "<!--";
      out += n->v.text.text;
      out += "-->";
      return;
    case GUMBO_NODE_DOCUMENT: {
      const GumboVector& kids = n->v.document.children;
      for (unsigned i = 0; i < kids.length; ++i) Serialize(ChildAt(kids, i), out);
      return;
    }
  }
}

// ---- the text a reader sees -------------------------------------------------------------------

bool IsBlock(GumboTag tag) {
  switch (tag) {
    case GUMBO_TAG_ADDRESS:
    case GUMBO_TAG_ARTICLE:
    case GUMBO_TAG_ASIDE:
    case GUMBO_TAG_BLOCKQUOTE:
    case GUMBO_TAG_BODY:
    case GUMBO_TAG_CAPTION:
    case GUMBO_TAG_CENTER:
    case GUMBO_TAG_DD:
    case GUMBO_TAG_DIR:
    case GUMBO_TAG_DIV:
    case GUMBO_TAG_DL:
    case GUMBO_TAG_DT:
    case GUMBO_TAG_FIELDSET:
    case GUMBO_TAG_FIGCAPTION:
    case GUMBO_TAG_FIGURE:
    case GUMBO_TAG_FOOTER:
    case GUMBO_TAG_FORM:
    case GUMBO_TAG_H1:
    case GUMBO_TAG_H2:
    case GUMBO_TAG_H3:
    case GUMBO_TAG_H4:
    case GUMBO_TAG_H5:
    case GUMBO_TAG_H6:
    case GUMBO_TAG_HEADER:
    case GUMBO_TAG_HR:
    case GUMBO_TAG_HTML:
    case GUMBO_TAG_LI:
    case GUMBO_TAG_MAIN:
    case GUMBO_TAG_MENU:
    case GUMBO_TAG_NAV:
    case GUMBO_TAG_OL:
    case GUMBO_TAG_OPTION:
    case GUMBO_TAG_P:
    case GUMBO_TAG_PRE:
    case GUMBO_TAG_SECTION:
    case GUMBO_TAG_TABLE:
    case GUMBO_TAG_TR:
    case GUMBO_TAG_UL:
      return true;
    default:
      return false;
  }
}

bool IsHidden(GumboTag tag) {
  switch (tag) {
    case GUMBO_TAG_SCRIPT:
    case GUMBO_TAG_STYLE:
    case GUMBO_TAG_TEMPLATE:
    case GUMBO_TAG_HEAD:
    case GUMBO_TAG_NOSCRIPT:
      return true;
    default:
      return false;
  }
}

void AppendVisibleText(const Node* n, std::string& out, bool in_pre) {
  if (IsText(n)) {
    std::string_view s = n->v.text.text;
    if (in_pre) {
      out += s;
      return;
    }
    for (char c : s) {
      if (IsAsciiSpace(c)) {
        if (!out.empty() && out.back() != ' ' && out.back() != '\n') out += ' ';
      } else {
        out += c;
      }
    }
    return;
  }
  if (!IsElement(n)) return;
  const GumboTag tag = n->v.element.tag;
  if (IsHidden(tag)) return;
  if (tag == GUMBO_TAG_BR) {
    out += '\n';
    return;
  }
  const bool block = IsBlock(tag);
  if (block) out += '\n';
  const bool pre = in_pre || tag == GUMBO_TAG_PRE || tag == GUMBO_TAG_TEXTAREA;
  const GumboVector& kids = n->v.element.children;
  for (unsigned i = 0; i < kids.length; ++i) AppendVisibleText(ChildAt(kids, i), out, pre);
  if (block) out += '\n';
  if (tag == GUMBO_TAG_TD || tag == GUMBO_TAG_TH) out += ' ';
}

// Lines trimmed of spaces and tabs, blank lines dropped.
std::string TidyLines(std::string_view s) {
  std::string out;
  std::size_t start = 0;
  while (start <= s.size()) {
    std::size_t end = s.find('\n', start);
    if (end == std::string_view::npos) end = s.size();
    std::string_view line = s.substr(start, end - start);
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) {
      line.remove_suffix(1);
    }
    if (!line.empty()) {
      if (!out.empty()) out += '\n';
      out += line;
    }
    start = end + 1;
  }
  return out;
}

bool IsFormControl(const Node* n) {
  if (!IsElement(n)) return false;
  switch (n->v.element.tag) {
    case GUMBO_TAG_INPUT:
    case GUMBO_TAG_SELECT:
    case GUMBO_TAG_TEXTAREA:
    case GUMBO_TAG_BUTTON:
      return true;
    default:
      return false;
  }
}

constexpr std::string_view kInputTypes[] = {
    "hidden", "text",  "search",         "tel",    "url",   "email", "password", "date",  "month",
    "week",   "time",  "datetime-local", "number", "range", "color", "checkbox", "radio", "file",
    "submit", "image", "reset",          "button"};

std::string InputType(const Node* n) {
  const std::string t = text::AsciiLower(Attribute(n, "type"));
  for (std::string_view known : kInputTypes) {
    if (t == known) return t;
  }
  return "text";
}

// ---- the parser's memory ------------------------------------------------------------------------

// Where gumbo allocates: the tree lives as long as its document and is dropped whole with it, so
// the parser draws from chunks owned by the document instead of asking malloc for every node,
// attribute, string and vector, and the document is destroyed by freeing its chunks rather than by
// walking the tree. The parser also frees a lot while it works (token buffers, vectors it
// outgrows): a freed block goes onto a list of its size class and is handed out again, so the
// chunks stay close to what the finished tree holds. Blocks too large for a class come from malloc
// and go back to it when freed. Out of memory, the allocation throws `std::bad_alloc` through the
// parser (its code carries unwind tables): all it holds is the arena's, freed with the document.
class ParserArena {
 public:
  ParserArena() = default;
  ~ParserArena() {
    for (void* chunk : chunks_) std::free(chunk);
    while (large_) {
      LargeBlock* next = large_->next;
      std::free(large_);
      large_ = next;
    }
  }
  ParserArena(const ParserArena&) = delete;
  ParserArena& operator=(const ParserArena&) = delete;

  static void* Allocate(void* self, std::size_t size) {
    return static_cast<ParserArena*>(self)->Get(size);
  }
  static void Deallocate(void* self, void* p) {
    if (p) static_cast<ParserArena*>(self)->Put(p);
  }

  // The first chunk is sized for a text of `size` bytes; later ones double, up to a limit.
  void SizeFor(std::size_t size) noexcept {
    next_chunk_ = std::clamp<std::size_t>(size, kMinChunk, kMaxChunk);
  }

 private:
  // Every block is preceded by an 8-byte word: its size class, or kLarge. Blocks are 8-byte
  // aligned, which is all the parser's structures need.
  static constexpr std::size_t kHeader = 8;
  static constexpr std::size_t kMinChunk = 64 * 1024;
  // Small enough that the unused end of the last chunk costs little.
  static constexpr std::size_t kMaxChunk = 256 * 1024;
  // Classes 0..63 hold 8, 16, ... 512 bytes (most of the parser's blocks are small strings and
  // nodes); classes 64..70 hold 1 KiB ... 64 KiB.
  static constexpr std::size_t kSmallStep = 8;
  static constexpr std::size_t kSmallClasses = 64;
  static constexpr std::size_t kClasses = kSmallClasses + 7;
  static constexpr std::uint64_t kLarge = ~std::uint64_t{0};

  struct LargeBlock {
    LargeBlock* prev;
    LargeBlock* next;
    std::size_t size;
    std::uint64_t tag;  // kLarge, the word in front of the payload
  };
  static_assert(sizeof(LargeBlock) % 8 == 0);

  static std::size_t ClassOf(std::size_t size) noexcept {
    if (size <= kSmallStep * kSmallClasses) return size == 0 ? 0 : (size - 1) / kSmallStep;
    std::size_t c = kSmallClasses;
    for (std::size_t cap = 1024; cap < size; cap *= 2) ++c;
    return c;
  }
  static std::size_t ClassSize(std::size_t c) noexcept {
    return c < kSmallClasses ? (c + 1) * kSmallStep : std::size_t{1024} << (c - kSmallClasses);
  }

  void* Get(std::size_t size) {
    const std::size_t c = ClassOf(size);
    if (c >= kClasses) return GetLarge(size);
    if (void* p = free_[c]) {
      std::memcpy(&free_[c], p, sizeof(void*));
      return p;
    }
    const std::size_t need = kHeader + ClassSize(c);
    if (static_cast<std::size_t>(end_ - bump_) < need) NewChunk(need);
    char* block = bump_;
    bump_ += need;
    const std::uint64_t tag = c;
    std::memcpy(block, &tag, sizeof tag);
    return block + kHeader;
  }

  void Put(void* p) {
    std::uint64_t tag;
    std::memcpy(&tag, static_cast<char*>(p) - kHeader, sizeof tag);
    if (tag == kLarge) {
      PutLarge(p);
      return;
    }
    std::memcpy(p, &free_[tag], sizeof(void*));
    free_[tag] = p;
  }

  void NewChunk(std::size_t need) {
    const std::size_t size = std::max(next_chunk_, need);
    next_chunk_ = std::min(next_chunk_ * 2, kMaxChunk);
    void* chunk = std::malloc(size);
    if (!chunk) throw std::bad_alloc();
    chunks_.push_back(chunk);
    bump_ = static_cast<char*>(chunk);
    end_ = bump_ + size;
  }

  void* GetLarge(std::size_t size) {
    auto* block = static_cast<LargeBlock*>(std::malloc(sizeof(LargeBlock) + size));
    if (!block) throw std::bad_alloc();
    *block = LargeBlock{nullptr, large_, size, kLarge};
    if (large_) large_->prev = block;
    large_ = block;
    return block + 1;
  }

  void PutLarge(void* p) {
    LargeBlock* block = static_cast<LargeBlock*>(p) - 1;
    (block->prev ? block->prev->next : large_) = block->next;
    if (block->next) block->next->prev = block->prev;
    std::free(block);
  }

  std::vector<void*> chunks_;
  std::size_t next_chunk_ = kMinChunk;
  char* bump_ = nullptr;
  char* end_ = nullptr;
  void* free_[kClasses] = {};
  LargeBlock* large_ = nullptr;
};

}  // namespace

// ---- Document ---------------------------------------------------------------------------------

struct Document::Impl {
  ParserArena arena;  // the tree's memory: freed with the document
  GumboOutput* output = nullptr;

  // Computed when first needed.
  bool all_done = false;
  std::vector<const Node*> all_elements;  // elements in document order

  // Every element in document order, without recursion (a page may nest deeply).
  const std::vector<const Node*>& All() {
    if (all_done) return all_elements;
    std::vector<const Node*> stack;
    const GumboVector& top = output->document->v.document.children;
    for (unsigned i = top.length; i-- > 0;) stack.push_back(ChildAt(top, i));
    while (!stack.empty()) {
      const Node* n = stack.back();
      stack.pop_back();
      if (!IsElement(n)) continue;
      all_elements.push_back(n);
      const GumboVector& kids = n->v.element.children;
      for (unsigned i = kids.length; i-- > 0;) stack.push_back(ChildAt(kids, i));
    }
    all_done = true;
    return all_elements;
  }
  bool owners_done = false;
  std::unordered_map<const Node*, const Node*> owner;  // form control -> its form
  bool ids_done = false;
  std::unordered_map<std::string, const Node*> by_id;
  std::unordered_map<const Node*, bool> selectedness;  // option -> selected

  const Node* FindById(std::string_view id) {
    if (!ids_done) {
      for (const Node* n : All()) {
        const GumboAttribute* a = FindAttribute(n, "id");
        if (a) by_id.emplace(a->value, n);
      }
      ids_done = true;
    }
    const auto it = by_id.find(std::string(id));
    return it == by_id.end() ? nullptr : it->second;
  }

  void ComputeOwners(std::string_view source) {
    if (owners_done) return;
    owners_done = true;
    // The form that the parser closed before its end tag, and where that end tag stands: a
    // control between the two that stands in no form of its own belongs to it.
    const Node* open_form = nullptr;
    std::size_t open_from = 0, open_until = 0;
    for (const Node* n : All()) {
      if (HasTag(n, GUMBO_TAG_FORM)) {
        const GumboElement& e = n->v.element;
        // Closed by something other than its own end tag (the parser records the end tag that
        // closed an element, whichever element it named).
        const std::string_view end_tag(e.original_end_tag.data, e.original_end_tag.length);
        if (!text::StartsWithNoCase(end_tag, "</form") && e.original_tag.length != 0) {
          open_form = n;
          open_from = e.start_pos.offset + e.original_tag.length;
          const std::size_t end = text::FindNoCase(source, "</form", open_from);
          open_until = end == text::npos ? source.size() : end;
        }
        continue;
      }
      if (!IsFormControl(n)) continue;
      const Node* form = nullptr;
      if (const GumboAttribute* a = FindAttribute(n, "form")) {
        const Node* named = FindById(a->value);
        if (named && HasTag(named, GUMBO_TAG_FORM)) form = named;
      } else {
        for (const Node* p = n->parent; p && IsElement(p); p = p->parent) {
          if (HasTag(p, GUMBO_TAG_FORM)) {
            form = p;
            break;
          }
        }
        if (!form && open_form && n->v.element.original_tag.length != 0) {
          const std::size_t at = n->v.element.start_pos.offset;
          if (at >= open_from && at < open_until) form = open_form;
        }
      }
      if (form) owner.emplace(n, form);
    }
  }

  // The options of `select`: its OPTION children and those of its OPTGROUP children.
  static std::vector<const Node*> OptionsOf(const Node* select) {
    std::vector<const Node*> out;
    const GumboVector& kids = select->v.element.children;
    for (unsigned i = 0; i < kids.length; ++i) {
      const Node* k = ChildAt(kids, i);
      if (HasTag(k, GUMBO_TAG_OPTION)) {
        out.push_back(k);
      } else if (HasTag(k, GUMBO_TAG_OPTGROUP)) {
        const GumboVector& group = k->v.element.children;
        for (unsigned j = 0; j < group.length; ++j) {
          if (HasTag(ChildAt(group, j), GUMBO_TAG_OPTION)) out.push_back(ChildAt(group, j));
        }
      }
    }
    return out;
  }

  void ComputeSelectedness(const Node* select) {
    const std::vector<const Node*> options = OptionsOf(select);
    const bool multiple = FindAttribute(select, "multiple") != nullptr;
    long display_size = multiple ? 4 : 1;
    if (const GumboAttribute* a = FindAttribute(select, "size")) {
      if (auto v = ParseNonNegative(a->value); v && *v > 0) display_size = *v;
    }
    for (const Node* o : options) selectedness[o] = FindAttribute(o, "selected") != nullptr;
    if (multiple || display_size > 1) return;
    const Node* chosen = nullptr;
    for (const Node* o : options) {
      if (selectedness[o]) chosen = o;
    }
    if (!chosen) {
      for (const Node* o : options) {
        if (!FindAttribute(o, "disabled")) {
          chosen = o;
          break;
        }
      }
    }
    for (const Node* o : options) selectedness[o] = (o == chosen);
  }

  bool IsSelected(const Node* option) {
    const auto it = selectedness.find(option);
    if (it != selectedness.end()) return it->second;
    const Node* select = option->parent;
    if (select && HasTag(select, GUMBO_TAG_OPTGROUP)) select = select->parent;
    if (!select || !HasTag(select, GUMBO_TAG_SELECT)) {
      return FindAttribute(option, "selected") != nullptr;
    }
    ComputeSelectedness(select);
    return selectedness[option];
  }
};

Document::Document() : impl_(std::make_unique<Impl>()) {}

// The tree's memory is the arena's, freed with it: there is nothing to hand back to gumbo.
Document::~Document() = default;

std::shared_ptr<const Document> Document::Parse(std::string text, std::string url) {
  std::shared_ptr<Document> doc(new Document());
  doc->impl_->arena.SizeFor(text.size());
  doc->source_ = std::move(text);
  doc->url_ = std::move(url);
  GumboOptions options = kGumboDefaultOptions;
  options.max_errors = 0;  // the parse errors are of no use here; recording them costs time
  options.allocator = &ParserArena::Allocate;
  options.deallocator = &ParserArena::Deallocate;
  options.userdata = &doc->impl_->arena;
  doc->impl_->output = gumbo_parse_with_options(&options, doc->source_.data(), doc->source_.size());
  return doc;
}

const std::string& Document::readyState() const noexcept {
  static const std::string kComplete = "complete";
  return kComplete;
}

Element Document::Wrap(const void* node) const {
  if (!node) return {};
  return Element(shared_from_this(), node);
}

Element Document::documentElement() const { return Wrap(impl_->output->root); }

std::vector<Element> Document::all() const {
  std::vector<Element> out;
  const std::vector<const Node*>& nodes = impl_->All();
  out.reserve(nodes.size());
  for (const Node* n : nodes) out.push_back(Wrap(n));
  return out;
}

std::vector<Element> Document::tags(std::string_view name) const {
  std::vector<Element> out;
  const GumboTag tag = gumbo_tag_enum(std::string(name).c_str());
  for (const Node* n : impl_->All()) {
    if (tag != GUMBO_TAG_UNKNOWN ? n->v.element.tag == tag
                                 : text::EqualsNoCase(LowerTagName(n), name)) {
      out.push_back(Wrap(n));
    }
  }
  return out;
}

std::vector<Element> Document::links() const {
  std::vector<Element> out;
  for (const Node* n : impl_->All()) {
    const GumboTag tag = n->v.element.tag;
    if ((tag == GUMBO_TAG_A || tag == GUMBO_TAG_AREA) && FindAttribute(n, "href")) {
      out.push_back(Wrap(n));
    }
  }
  return out;
}

Element Document::getElementById(std::string_view id) const { return Wrap(impl_->FindById(id)); }

// ---- Element ----------------------------------------------------------------------------------

std::string Element::tagName() const {
  if (!node_) return {};
  return text::AsciiUpper(LowerTagName(AsNode(node_)));
}

std::optional<std::string> Element::getAttribute(std::string_view name) const {
  if (!node_) return std::nullopt;
  const GumboAttribute* a = FindAttribute(AsNode(node_), name);
  if (!a) return std::nullopt;
  return std::string(a->value);
}

bool Element::hasAttribute(std::string_view name) const {
  return node_ && FindAttribute(AsNode(node_), name) != nullptr;
}

std::vector<std::pair<std::string, std::string>> Element::attributes() const {
  std::vector<std::pair<std::string, std::string>> out;
  if (!node_) return out;
  const GumboVector& attrs = AsNode(node_)->v.element.attributes;
  for (unsigned i = 0; i < attrs.length; ++i) {
    const auto* a = static_cast<const GumboAttribute*>(attrs.data[i]);
    out.emplace_back(a->name, a->value);
  }
  return out;
}

std::string Element::AttributeOr(std::string_view name) const {
  return node_ ? Attribute(AsNode(node_), name) : std::string();
}

std::string Element::value() const {
  if (!node_) return {};
  const Node* n = AsNode(node_);
  switch (n->v.element.tag) {
    case GUMBO_TAG_INPUT: {
      const GumboAttribute* a = FindAttribute(n, "value");
      const std::string type = InputType(n);
      if (!a) return (type == "checkbox" || type == "radio") ? "on" : "";
      std::string v = a->value;
      if (type == "text" || type == "search" || type == "tel" || type == "password") {
        std::erase_if(v, [](char c) { return c == '\r' || c == '\n'; });
      }
      return v;
    }
    case GUMBO_TAG_TEXTAREA: {
      std::string out;
      AppendTextContent(n, out, false);
      return out;
    }
    case GUMBO_TAG_SELECT:
      for (const Element& o : options()) {
        if (o.selected()) return o.value();
      }
      return {};
    case GUMBO_TAG_OPTION:
      if (const GumboAttribute* a = FindAttribute(n, "value")) return a->value;
      return text();
    default:
      return Attribute(n, "value");
  }
}

std::string Element::type() const {
  if (!node_) return {};
  const Node* n = AsNode(node_);
  switch (n->v.element.tag) {
    case GUMBO_TAG_INPUT:
      return InputType(n);
    case GUMBO_TAG_BUTTON: {
      const std::string t = text::AsciiLower(Attribute(n, "type"));
      return (t == "reset" || t == "button") ? t : "submit";
    }
    case GUMBO_TAG_SELECT:
      return FindAttribute(n, "multiple") ? "select-multiple" : "select-one";
    case GUMBO_TAG_TEXTAREA:
      return "textarea";
    default:
      return Attribute(n, "type");
  }
}

long Element::maxLength() const {
  constexpr long kNoLimit = 2147483647;
  if (!node_) return kNoLimit;
  const GumboAttribute* a = FindAttribute(AsNode(node_), "maxlength");
  if (!a) return kNoLimit;
  return ParseNonNegative(a->value).value_or(kNoLimit);
}

std::string Element::method() const {
  return text::EqualsNoCase(text::TrimWhitespace(AttributeOr("method")), "post") ? "post" : "get";
}

Element Element::parentElement() const {
  if (!node_) return {};
  const Node* p = AsNode(node_)->parent;
  if (!p || !IsElement(p)) return {};
  return doc_->Wrap(p);
}

std::vector<Element> Element::children() const {
  std::vector<Element> out;
  if (!node_) return out;
  const GumboVector& kids = AsNode(node_)->v.element.children;
  for (unsigned i = 0; i < kids.length; ++i) {
    if (IsElement(ChildAt(kids, i))) out.push_back(doc_->Wrap(ChildAt(kids, i)));
  }
  return out;
}

std::vector<Element> Element::all() const {
  std::vector<Element> out;
  if (!node_) return out;
  std::vector<const Node*> stack;
  const GumboVector& top = AsNode(node_)->v.element.children;
  for (unsigned i = top.length; i-- > 0;) stack.push_back(ChildAt(top, i));
  while (!stack.empty()) {
    const Node* n = stack.back();
    stack.pop_back();
    if (!IsElement(n)) continue;
    out.push_back(doc_->Wrap(n));
    const GumboVector& kids = n->v.element.children;
    for (unsigned i = kids.length; i-- > 0;) stack.push_back(ChildAt(kids, i));
  }
  return out;
}

std::vector<Element> Element::tags(std::string_view name) const {
  std::vector<Element> out;
  for (Element& e : all()) {
    if (text::EqualsNoCase(LowerTagName(AsNode(e.node_)), name)) out.push_back(std::move(e));
  }
  return out;
}

std::vector<Element> Element::elements() const {
  std::vector<Element> out;
  if (!node_ || !HasTag(AsNode(node_), GUMBO_TAG_FORM)) return out;
  Document::Impl& impl = *doc_->impl_;
  impl.ComputeOwners(doc_->source_);
  for (const Node* n : impl.All()) {
    const auto it = impl.owner.find(n);
    if (it == impl.owner.end() || it->second != AsNode(node_)) continue;
    if (HasTag(n, GUMBO_TAG_INPUT) && InputType(n) == "image") continue;
    out.push_back(doc_->Wrap(n));
  }
  return out;
}

std::vector<Element> Element::options() const {
  std::vector<Element> out;
  if (!node_ || !HasTag(AsNode(node_), GUMBO_TAG_SELECT)) return out;
  for (const Node* o : Document::Impl::OptionsOf(AsNode(node_))) out.push_back(doc_->Wrap(o));
  return out;
}

std::string Element::text() const {
  if (!node_) return {};
  std::string raw;
  AppendTextContent(AsNode(node_), raw, true);
  return CollapseSpaces(raw);
}

bool Element::selected() const {
  if (!node_ || !HasTag(AsNode(node_), GUMBO_TAG_OPTION)) return false;
  return doc_->impl_->IsSelected(AsNode(node_));
}

std::string Element::outerHTML() const {
  std::string out;
  if (node_) Serialize(AsNode(node_), out);
  return out;
}

std::string Element::innerText() const {
  if (!node_) return {};
  const Node* n = AsNode(node_);
  std::string raw;
  const bool pre = HasTag(n, GUMBO_TAG_PRE) || HasTag(n, GUMBO_TAG_TEXTAREA);
  const GumboVector& kids = n->v.element.children;
  for (unsigned i = 0; i < kids.length; ++i) AppendVisibleText(ChildAt(kids, i), raw, pre);
  return TidyLines(raw);
}

std::size_t Element::SourceOffset() const {
  if (!node_) return npos;
  const GumboElement& e = AsNode(node_)->v.element;
  return e.original_tag.length == 0 ? npos : e.start_pos.offset;
}

std::size_t Element::SourceTagLength() const {
  return node_ ? AsNode(node_)->v.element.original_tag.length : 0;
}

// ---- helpers ----------------------------------------------------------------------------------

XmlRootAttribute ReadXmlRootAttribute(std::string_view xml, std::string_view attribute) {
  XmlRootAttribute out;
  // A document type could declare entities; an element's markup never has one.
  if (xml.empty() || text::FindNoCase(xml, "<!DOCTYPE") != text::npos) return out;
  xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, "UTF-8",
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (!doc) return out;
  if (xmlNodePtr root = xmlDocGetRootElement(doc)) {
    out.well_formed = true;
    const std::string name(attribute);
    if (xmlChar* v = xmlGetProp(root, reinterpret_cast<const xmlChar*>(name.c_str()))) {
      out.value = reinterpret_cast<const char*>(v);
      xmlFree(v);
    }
  }
  xmlFreeDoc(doc);
  return out;
}

std::string ElementDescription(const Element& elem) {
  const std::string tag = elem.tagName();
  std::string out = "/" + tag;
  std::string label = elem.name();
  if (label.empty()) label = elem.id();
  if (!label.empty()) out += ":" + label;
  if (tag == "FORM") out += ":" + elem.getAttribute("action").value_or("");
  return out;
}

std::string ElementPath(const Element& elem) {
  std::vector<std::string> parts;
  for (Element e = elem; e && e.tagName() != "HTML"; e = e.parentElement()) {
    parts.push_back(ElementDescription(e));
  }
  std::string out;
  for (auto it = parts.rbegin(); it != parts.rend(); ++it) out += *it;
  return out;
}

}  // namespace gw::html
