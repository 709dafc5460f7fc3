#include "infra/xml_serializer.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/xmlwriter.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/error.h"
#include "platform/property_table.h"
#include "platform/text.h"

namespace gw {

namespace {

[[noreturn]] void ThrowNoMember(const std::string& type, const std::string& name) {
  throw Error(errnum::kNotSupported, "XmlSerializer",
              "Object doesn't support this property or method (" + type + "." + name + ")");
}

struct Writer {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlTextWriterPtr w = xmlNewTextWriterMemory(buffer, 0);
  Writer() = default;
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() {
    if (w) xmlFreeTextWriter(w);  // leaves `buffer` to us
    if (buffer) xmlBufferFree(buffer);
  }
  void Check(int rc) {
    if (rc < 0) throw Error(errnum::kProviderError, "XmlSerializer", "The XML writer failed.");
  }
};

const xmlChar* X(const std::string& s) { return reinterpret_cast<const xmlChar*>(s.c_str()); }

// The three codes of the program's escape, and "%25" which the reversible escape adds.
bool StartsEscapeCode(std::string_view s, std::size_t at) {
  if (at + 3 > s.size()) return false;
  const std::string_view code = s.substr(at + 1, 2);
  return code == "25" || code == "26" || code == "3E" || code == "3C";
}

}  // namespace

void XmlSerializer::SetIgnoreList(std::string_view list) {
  ignore_list_ = text::ReplaceAll(list, " ", "");
}

std::string XmlSerializer::Escape(std::string_view value) {
  std::string s = text::ReplaceAll(value, "&", "%26");
  s = text::ReplaceAll(s, ">", "%3E");
  return text::ReplaceAll(s, "<", "%3C");
}

std::string XmlSerializer::Unescape(std::string_view value) {
  std::string s = text::ReplaceAll(value, "%26", "&");
  s = text::ReplaceAll(s, "%3E", ">");
  return text::ReplaceAll(s, "%3C", "<");
}

std::string XmlSerializer::EscapeReversible(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (std::size_t k = 0; k < value.size(); ++k) {
    const char c = value[k];
    if (c == '%' && StartsEscapeCode(value, k)) {
      out += "%25";
    } else if (c == '&') {
      out += "%26";
    } else if (c == '>') {
      out += "%3E";
    } else if (c == '<') {
      out += "%3C";
    } else {
      out += c;
    }
  }
  return out;
}

std::string XmlSerializer::UnescapeReversible(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (std::size_t k = 0; k < value.size(); ++k) {
    if (value[k] == '%' && StartsEscapeCode(value, k)) {
      const std::string_view code = value.substr(k + 1, 2);
      out += code == "25" ? '%' : code == "26" ? '&' : code == "3E" ? '>' : '<';
      k += 2;
    } else {
      out += value[k];
    }
  }
  return out;
}

std::string XmlSerializer::EscapeValue(std::string_view value) const {
  if (escape_ == ValueEscape::Program) return Escape(value);
  if (!text::IsValidUtf8(value)) {
    throw Error(errnum::kInvalidProcedureCall, "XmlSerializer",
                "A value is not valid UTF-8 and cannot be written.");
  }
  for (const char c : value) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 && c != '\t' && c != '\n' && c != '\r') {
      throw Error(
          errnum::kInvalidProcedureCall, "XmlSerializer",
          "A value holds the control character " + std::to_string(u) + ", which XML cannot carry.");
    }
  }
  // A carriage return written as it is would read back as a line feed.
  return text::ReplaceAll(EscapeReversible(value), "\r", "&#13;");
}

std::string XmlSerializer::UnescapeValue(std::string_view value) const {
  return escape_ == ValueEscape::Reversible ? UnescapeReversible(value) : Unescape(value);
}

bool XmlSerializer::IsIgnored(const std::string& type_name, const std::string& property) const {
  const std::string list = ";" + ignore_list_ + ";";
  return text::FindNoCase(list, ";" + type_name + "." + property + ";") != text::npos;
}

std::string XmlSerializer::Serialize(const Object& source) {
  return ReportAs("XmlSerializer.Serialize(SourceObject)", [&] {
    try {
      Writer wr;
      wr.Check(xmlTextWriterSetIndent(wr.w, 1));
      wr.Check(xmlTextWriterSetIndentString(wr.w, BAD_CAST "\t"));

      // Writes one object element and everything below it.
      std::function<void(const Object&, long, const std::string&)> write_object =
          [&](const Object& obj, long index, const std::string& name) {
            ReportAs("XmlSerializer.SerializeObject(oSourceObject,lItemIndex)", [&] {
              const std::string type = obj.TypeName();
              wr.Check(xmlTextWriterStartElement(wr.w, X(name.empty() ? type : name)));
              wr.Check(xmlTextWriterWriteAttribute(wr.w, BAD_CAST "Object", BAD_CAST "True"));
              if (index > 0) {
                wr.Check(
                    xmlTextWriterWriteAttribute(wr.w, BAD_CAST "Index", X(std::to_string(index))));
              }
              if (const PropertyTable* table = obj.GetPropertyTable()) {
                for (const PropertyInfo& p : table->properties) {
                  if (p.kind == PropertyKind::Members) {
                    long counter = 0;
                    for (const auto& member : p.members(obj)) {
                      if (member) write_object(*member, ++counter, "");
                    }
                    continue;
                  }
                  if (IsIgnored(type, p.name)) continue;
                  std::optional<Variant> value;
                  try {
                    value = p.get(obj);
                  } catch (const Error&) {
                    continue;  // a property that cannot be read is left out
                  }
                  if (p.kind == PropertyKind::Object) {
                    if (auto child = value->ToObject()) write_object(*child, 0, p.name);
                    continue;
                  }
                  if (value->IsNull() || value->IsObject()) continue;
                  const std::string textual = value->ToString();
                  wr.Check(xmlTextWriterStartElement(wr.w, X(p.name)));
                  // After the program's escape the text holds no markup character, so it goes
                  // out as it is: line ends stay line ends instead of becoming "&#13;", which
                  // a reader would take as a piece of its own.
                  if (!textual.empty())
                    wr.Check(xmlTextWriterWriteRaw(wr.w, X(EscapeValue(textual))));
                  wr.Check(xmlTextWriterFullEndElement(wr.w));
                }
              }
              wr.Check(xmlTextWriterFullEndElement(wr.w));
            });
          };

      write_object(source, 0, "");
      wr.Check(xmlTextWriterEndDocument(wr.w));
      wr.Check(xmlTextWriterFlush(wr.w));
      return std::string(reinterpret_cast<const char*>(xmlBufferContent(wr.buffer)),
                         static_cast<std::size_t>(xmlBufferLength(wr.buffer)));
    } catch (const Error& e) {
      last_error_ = e.Description();
      throw;
    }
  });
}

namespace {

struct ReadState {
  const XmlSerializer* self = nullptr;
  std::string add_method;
  std::vector<Object*> stack;
  std::vector<ObjectPtr> keep;  // objects made while reading stay alive until the end
  std::string object_name;
  std::string element_name;
  std::string plain_text;  // plain text of the current element not yet set
  std::optional<Error> failure;
  xmlParserCtxtPtr ctxt = nullptr;

  Object& Top() { return *stack.back(); }

  void Fail(Error e) {
    if (!failure) failure = std::move(e);
    xmlStopParser(ctxt);
  }

  void SetProperty(Object& obj, const std::string& name, std::string_view raw) {
    const std::string value = self->UnescapeValue(raw);
    const std::string upper = text::AsciiUpper(text::TrimSpaces(value));
    Variant v;
    if (upper == "TRUE" || upper == "FALSE") {
      v = Variant(upper == "TRUE");
    } else if (Variant(value).IsNumeric()) {
      v = Variant(Variant(value).ToLong());
    } else {
      v = Variant(value);
    }
    const PropertyTable* table = obj.GetPropertyTable();
    const PropertyInfo* p = table ? table->Find(name) : nullptr;
    if (!p || p->IsReadOnly()) ThrowNoMember(obj.TypeName(), name);
    p->set(obj, v);
  }

  // Sets one piece of text on the property of the current element.
  void SetPiece(std::string_view piece) {
    if (stack.empty() || element_name.empty() || element_name == object_name) return;
    if (text::TrimWhitespace(piece).empty()) return;
    SetProperty(Top(), element_name, piece);
  }

  void FlushPlainText() {
    if (plain_text.empty()) return;
    const std::string piece = std::move(plain_text);
    plain_text.clear();
    SetPiece(piece);
  }
};

std::string Str(const xmlChar* s) { return s ? reinterpret_cast<const char*>(s) : ""; }

// True when the parser hands over the expansion of a character or entity reference rather than
// plain text. Plain text is handed over where it lies in the input, or, when the parser had to
// copy it (non-ASCII characters, line ends), right after reading it, so the bytes just read are
// that text; a reference is handed over right after its "&...;" was read.
bool IsReferenceExpansion(xmlParserCtxtPtr ctxt, const xmlChar* ch) {
  const xmlParserInputPtr in = ctxt ? ctxt->input : nullptr;
  if (!in || !in->base || !in->cur) return false;
  if (ch >= in->base && ch < in->end) return false;
  const xmlChar* end = in->cur;
  if (end - in->base < 3 || end[-1] != ';') return false;
  for (const xmlChar* q = end - 2; q >= in->base && end - q <= 64; --q) {
    const xmlChar c = *q;
    if (c == '&') return q < end - 2;
    const bool name_char = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '#' || c == '_' || c == '-' || c == '.' ||
                           c == ':' || c >= 0x80;
    if (!name_char) return false;
  }
  return false;
}

void OnStart(void* ctx, const xmlChar* localname, const xmlChar*, const xmlChar*, int,
             const xmlChar**, int nb_attributes, int, const xmlChar** attributes) {
  auto* st = static_cast<ReadState*>(ctx);
  if (st->failure) return;
  try {
    st->FlushPlainText();
    st->element_name = Str(localname);
    std::string object_flag, index;
    for (int k = 0; k < nb_attributes; ++k) {
      const xmlChar** a = attributes + k * 5;  // localname, prefix, URI, value, end
      const std::string name = Str(a[0]);
      const std::string value(reinterpret_cast<const char*>(a[3]),
                              static_cast<std::size_t>(a[4] - a[3]));
      if (name == "Object") object_flag = value;
      if (name == "Index") index = value;
    }
    if (st->element_name == st->object_name || object_flag != "True" || st->stack.empty()) return;
    Object& top = st->Top();
    const PropertyTable* table = top.GetPropertyTable();
    ObjectPtr child;
    if (!Variant(index).IsNumeric()) {
      // A child object held by a property.
      const PropertyInfo* p = table ? table->Find(st->element_name) : nullptr;
      if (!p || p->kind != PropertyKind::Object) ThrowNoMember(top.TypeName(), st->element_name);
      child = p->get(top).ToObject();
    } else {
      // A collection member: made by the add method; Index gives no position.
      if (!table || !table->add_member ||
          !text::EqualsNoCase(table->add_method_name, st->add_method)) {
        ThrowNoMember(top.TypeName(), st->add_method);
      }
      child = table->add_member(top);
    }
    if (child) {
      st->object_name = child->TypeName();
      st->stack.push_back(child.get());
      st->keep.push_back(std::move(child));
    }
  } catch (const Error& e) {
    st->Fail(e);
  }
}

void OnEnd(void* ctx, const xmlChar* localname, const xmlChar*, const xmlChar*) {
  auto* st = static_cast<ReadState*>(ctx);
  if (st->failure) return;
  try {
    st->FlushPlainText();
  } catch (const Error& e) {
    st->Fail(e);
    return;
  }
  st->element_name.clear();
  if (Str(localname) == st->object_name && !st->stack.empty()) {
    st->stack.pop_back();
    if (!st->stack.empty()) st->object_name = st->Top().TypeName();
  }
}

void OnCharacters(void* ctx, const xmlChar* ch, int len) {
  auto* st = static_cast<ReadState*>(ctx);
  if (st->failure) return;
  const std::string_view piece(reinterpret_cast<const char*>(ch), static_cast<std::size_t>(len));
  try {
    if (st->self->GetValueEscape() == ValueEscape::Program && IsReferenceExpansion(st->ctxt, ch)) {
      st->FlushPlainText();
      st->SetPiece(piece);
    } else {
      // The parser cuts long texts at its buffer size; those cuts are no pieces.
      st->plain_text.append(piece);
    }
  } catch (const Error& e) {
    st->Fail(e);
  }
}

void OnStructuredError(void* ctx, xmlError* err) {
  auto* st = static_cast<ReadState*>(ctx);
  if (!err || err->level == XML_ERR_NONE) return;
  std::string msg = err->message ? err->message : "XML parse error";
  while (!msg.empty() && (msg.back() == '\n' || msg.back() == ' ')) msg.pop_back();
  msg += " (line " + std::to_string(err->line) + ")";
  st->Fail(Error(static_cast<ErrorNumber>(err->code), "SAXXMLReader", msg));
}

}  // namespace

bool XmlSerializer::Deserialize(Object& target, std::string_view xml) {
  return ReportAs("XmlSerializer.Deserialize(TargetObject,sXML)", [&] {
    ReadState st;
    st.self = this;
    st.add_method = add_method_;
    st.object_name = target.TypeName();
    st.stack.push_back(&target);

    xmlSAXHandler sax{};
    sax.initialized = XML_SAX2_MAGIC;
    sax.startElementNs = OnStart;
    sax.endElementNs = OnEnd;
    sax.characters = OnCharacters;
    sax.serror = OnStructuredError;

    std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> ctxt(
        xmlCreatePushParserCtxt(&sax, &st, nullptr, 0, nullptr), xmlFreeParserCtxt);
    if (!ctxt) throw Error(errnum::kProviderError, "SAXXMLReader", "Cannot create an XML reader.");
    // No entity substitution and no DTD loading: a document cannot make the reader open files or
    // reach the network.
    xmlCtxtUseOptions(ctxt.get(), XML_PARSE_NONET);
    st.ctxt = ctxt.get();
    xmlParseChunk(ctxt.get(), xml.data(), static_cast<int>(xml.size()), 1);
    if (st.failure) {
      last_error_ = st.failure->Description();
      throw *st.failure;
    }
    return true;
  });
}

}  // namespace gw
