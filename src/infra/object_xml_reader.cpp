#include "infra/object_xml_reader.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <optional>
#include <vector>

#include "platform/property_table.h"
#include "platform/text.h"

namespace gw {

namespace {

std::string Name(const xmlChar* s) { return s ? reinterpret_cast<const char*>(s) : ""; }

std::string Folded(std::string_view property) { return text::AsciiLower(property); }

// The first problem the parser reports.
struct ParseProblem {
  bool found = false;
  long line = 0;
  std::string message;
};

void OnParseError(void* ctx, xmlError* err) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(ctx);
  auto* problem = ctxt ? static_cast<ParseProblem*>(ctxt->_private) : nullptr;
  if (!problem || problem->found || !err || err->level == XML_ERR_NONE) return;
  problem->found = true;
  problem->line = err->line;
  problem->message = err->message ? err->message : "the document is not well-formed";
  while (!problem->message.empty() &&
         (problem->message.back() == '\n' || problem->message.back() == ' ')) {
    problem->message.pop_back();
  }
}

// An element with more attributes than the form uses, or a document type declaration, found by
// `FindCrowdedElement`.
struct EarlyRefusal {
  long line = 0;
  std::string what;
};

bool IsXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The XML parser compares every attribute of an element with each one before it, so an element
// with a great many attributes costs time that grows with their square before the document can be
// refused. The form uses two attributes at most (Object and Index): one pass over the text finds
// an element with more, and a document type declaration (which the reader refuses too, and whose
// declarations could be as costly), before the parser sees them. Whatever this pass does not
// understand is left to the parser, which reports it.
std::optional<EarlyRefusal> FindCrowdedElement(std::string_view xml) {
  constexpr int kMostAttributes = 2;
  long line = 1;
  std::size_t i = 0;
  const auto skip_to = [&](std::string_view end) {
    const std::size_t found = xml.find(end, i);
    const std::size_t stop = found == std::string_view::npos ? xml.size() : found + end.size();
    for (; i < stop; ++i) line += xml[i] == '\n' ? 1 : 0;
  };
  while (i < xml.size()) {
    if (xml[i] != '<') {
      line += xml[i] == '\n' ? 1 : 0;
      ++i;
      continue;
    }
    const std::string_view rest = xml.substr(i);
    if (rest.starts_with("<!--")) {
      skip_to("-->");
    } else if (rest.starts_with("<![CDATA[")) {
      skip_to("]]>");
    } else if (rest.starts_with("<?")) {
      skip_to("?>");
    } else if (rest.starts_with("<!DOCTYPE")) {
      return EarlyRefusal{line, "a document type declaration is not allowed"};
    } else if (rest.starts_with("<!") || rest.starts_with("</")) {
      skip_to(">");
    } else {
      // A start tag: its name, then name="value" pairs up to ">" or "/>".
      const long tag_line = line;
      std::size_t k = i + 1;
      while (k < xml.size() && !IsXmlSpace(xml[k]) && xml[k] != '>' && xml[k] != '/') ++k;
      const std::string_view name = xml.substr(i + 1, k - i - 1);
      int attributes = 0;
      for (;;) {
        while (k < xml.size() && IsXmlSpace(xml[k])) line += xml[k++] == '\n' ? 1 : 0;
        if (k >= xml.size() || xml[k] == '>' || xml[k] == '/') break;
        while (k < xml.size() && xml[k] != '=' && !IsXmlSpace(xml[k]) && xml[k] != '>') ++k;
        while (k < xml.size() && IsXmlSpace(xml[k])) line += xml[k++] == '\n' ? 1 : 0;
        if (k >= xml.size() || xml[k] != '=') return std::nullopt;  // the parser says what
        ++k;
        while (k < xml.size() && IsXmlSpace(xml[k])) line += xml[k++] == '\n' ? 1 : 0;
        if (k >= xml.size() || (xml[k] != '"' && xml[k] != '\'')) return std::nullopt;
        const char quote = xml[k++];
        while (k < xml.size() && xml[k] != quote) line += xml[k++] == '\n' ? 1 : 0;
        if (k >= xml.size()) return std::nullopt;
        ++k;
        if (++attributes > kMostAttributes) {
          return EarlyRefusal{tag_line, "the element <" + std::string(name) +
                                            "> has more than two attributes; only Object and "
                                            "Index are used"};
        }
      }
      i = k;
    }
  }
  return std::nullopt;
}

using DocPtr = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using CtxtPtr = std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)>;

}  // namespace

// Walks the parsed document and fills the objects (a friend of the reader, for its line maps).
struct ObjectXmlReaderWalk {
  ObjectXmlReader& reader;

  [[noreturn]] void Fail(long line, const std::string& what) const {
    throw Error(infraerr::kBadDocument, "ObjectXmlReader",
                reader.source_name_ + ":" + std::to_string(line) + ": " + what);
  }

  static long Line(const xmlNode* node) { return xmlGetLineNo(node); }

  static bool IsBlank(const xmlNode* node) {
    return text::TrimWhitespace(Name(node->content)).empty();
  }

  // The value of an attribute, and whether it is there.
  static bool Attribute(const xmlNode* el, const char* name, std::string& value) {
    for (const xmlAttr* a = el->properties; a; a = a->next) {
      if (Name(a->name) != name) continue;
      xmlChar* v = xmlNodeListGetString(el->doc, a->children, 1);
      value = Name(v);
      xmlFree(v);
      return true;
    }
    return false;
  }

  void CheckAttributes(const xmlNode* el) const {
    if (el->ns) Fail(Line(el), "the element <" + Name(el->name) + "> has a namespace");
    for (const xmlAttr* a = el->properties; a; a = a->next) {
      const std::string name = Name(a->name);
      if (a->ns || (name != "Object" && name != "Index")) {
        Fail(Line(el), "the element <" + Name(el->name) + "> has the attribute " + name +
                           "; only Object and Index are used");
      }
    }
  }

  // The text of a value element; it may hold comments but no elements.
  std::string TextOf(const xmlNode* el) const {
    std::string out;
    for (const xmlNode* c = el->children; c; c = c->next) {
      switch (c->type) {
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
          out += Name(c->content);
          break;
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
          break;
        case XML_ELEMENT_NODE:
          Fail(Line(c), "<" + Name(el->name) + "> is a value and cannot hold the element <" +
                            Name(c->name) + "> (an object element needs Object=\"True\")");
        default:
          Fail(Line(c), "<" + Name(el->name) + "> holds an entity reference");
      }
    }
    return out;
  }

  void FillObject(const xmlNode* el, Object& obj) {
    reader.object_lines_[&obj] = Line(el);
    const PropertyTable* table = obj.GetPropertyTable();
    if (!table) Fail(Line(el), "a " + obj.TypeName() + " cannot be read from a document");
    std::set<std::string> seen;
    for (const xmlNode* c = el->children; c; c = c->next) {
      switch (c->type) {
        case XML_ELEMENT_NODE:
          FillProperty(c, obj, *table, seen);
          break;
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
          if (!IsBlank(c)) {
            Fail(Line(c), "the text \"" + std::string(text::TrimWhitespace(Name(c->content))) +
                              "\" stands inside <" + Name(el->name) +
                              ">, which is an object: text belongs in value elements");
          }
          break;
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
          break;
        default:
          Fail(Line(c), "<" + Name(el->name) + "> holds an entity reference");
      }
    }
  }

  void FillProperty(const xmlNode* el, Object& obj, const PropertyTable& table,
                    std::set<std::string>& seen) {
    CheckAttributes(el);
    const std::string name = Name(el->name);
    const long line = Line(el);
    std::string object_flag, index;
    const bool is_object = Attribute(el, "Object", object_flag);
    const bool has_index = Attribute(el, "Index", index);
    if (is_object && object_flag != "True") {
      Fail(line, "the attribute Object of <" + name + "> is \"" + object_flag +
                     "\"; it is \"True\" or absent");
    }
    const PropertyInfo* p = table.Find(name);
    if (!is_object) {
      if (has_index) Fail(line, "<" + name + "> has an Index but no Object=\"True\"");
      if (!p) Fail(line, "a " + obj.TypeName() + " has no property " + name);
      if (p->kind != PropertyKind::Value) {
        Fail(line,
             name + " of a " + obj.TypeName() + " is an object: its element needs Object=\"True\"");
      }
      if (!p->set) Fail(line, name + " of a " + obj.TypeName() + " cannot be set");
      if (!seen.insert(Folded(name)).second) Fail(line, name + " is given twice");
      reader.property_lines_[{&obj, Folded(name)}] = line;
      const std::string raw = TextOf(el);
      if (raw.empty()) return;  // an element with no text sets nothing
      const std::string value = reader.escape_ == ValueEscape::Reversible
                                    ? XmlSerializer::UnescapeReversible(raw)
                                    : XmlSerializer::Unescape(raw);
      try {
        p->set(obj, Variant(value));
      } catch (const Error& e) {
        Fail(line, "the value \"" + value + "\" does not fit " + name + ": " + e.Description());
      }
      return;
    }
    if (p && p->kind == PropertyKind::Object && !has_index) {
      if (!seen.insert(Folded(name)).second) Fail(line, name + " is given twice");
      const ObjectPtr child = p->get(obj).ToObject();
      if (!child) Fail(line, name + " of a " + obj.TypeName() + " holds no object to fill");
      reader.property_lines_[{&obj, Folded(name)}] = line;
      FillObject(el, *child);
      return;
    }
    if (!table.add_member) {
      Fail(line, "a " + obj.TypeName() + " has no object property " + name);
    }
    if (has_index) {
      double n = 0;
      if (!ParseNumber(index, n) || n < 1 || n != static_cast<double>(static_cast<long>(n))) {
        Fail(line, "the Index of <" + name + "> is \"" + index + "\"; it is a whole number from 1");
      }
    }
    const ObjectPtr member = table.add_member(obj);
    if (member->TypeName() != name) {
      Fail(line, "the members of a " + obj.TypeName() + " are " + member->TypeName() +
                     " elements, not <" + name + ">");
    }
    FillObject(el, *member);
  }
};

void ObjectXmlReader::Read(Object& root, std::string_view xml, std::string_view source_name) {
  source_name_ = std::string(source_name);
  object_lines_.clear();
  property_lines_.clear();
  ObjectXmlReaderWalk walk{*this};

  if (const auto refusal = FindCrowdedElement(xml)) walk.Fail(refusal->line, refusal->what);

  CtxtPtr ctxt(xmlNewParserCtxt(), xmlFreeParserCtxt);
  if (!ctxt) throw Error(errnum::kProviderError, "ObjectXmlReader", "Cannot create an XML reader.");
  ParseProblem problem;
  ctxt->_private = &problem;
  ctxt->sax->serror = OnParseError;
  // No entity substitution, no DTD loading, no network: a document cannot make the reader open
  // files. Big lines: line numbers above 65535 stay right.
  DocPtr doc(xmlCtxtReadMemory(ctxt.get(), xml.data(), static_cast<int>(xml.size()), nullptr,
                               "UTF-8", XML_PARSE_NONET | XML_PARSE_BIG_LINES),
             xmlFreeDoc);
  if (!doc || !ctxt->wellFormed || problem.found) {
    walk.Fail(problem.found ? problem.line : 1,
              problem.found ? problem.message : "the document is not well-formed");
  }
  if (doc->intSubset || doc->extSubset) {
    walk.Fail(1, "a document type declaration is not allowed");
  }
  const xmlNode* top = xmlDocGetRootElement(doc.get());
  if (!top) walk.Fail(1, "the document has no element");
  walk.CheckAttributes(top);
  std::string object_flag;
  if (Name(top->name) != root.TypeName() ||
      !ObjectXmlReaderWalk::Attribute(top, "Object", object_flag) || object_flag != "True") {
    walk.Fail(ObjectXmlReaderWalk::Line(top), "the document is a <" + Name(top->name) +
                                                  ">, not a <" + root.TypeName() +
                                                  " Object=\"True\">");
  }
  walk.FillObject(top, root);
}

bool ObjectXmlReader::Has(const Object& obj, std::string_view property) const {
  return property_lines_.count({&obj, Folded(property)}) != 0;
}

long ObjectXmlReader::LineOf(const Object& obj) const {
  const auto it = object_lines_.find(&obj);
  return it == object_lines_.end() ? 0 : it->second;
}

long ObjectXmlReader::LineOf(const Object& obj, std::string_view property) const {
  const auto it = property_lines_.find({&obj, Folded(property)});
  return it == property_lines_.end() ? LineOf(obj) : it->second;
}

std::string ObjectXmlReader::Where(const Object& obj, std::string_view property) const {
  return source_name_ + ":" +
         std::to_string(property.empty() ? LineOf(obj) : LineOf(obj, property)) + ": ";
}

}  // namespace gw
