#include "infra/xml_serializer.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/xmlwriter.h>

#include <memory>
#include <optional>
#include <vector>

#include "platform/error.h"
#include "platform/property_table.h"
#include "platform/text.h"

namespace gw {

namespace {

constexpr ErrorNumber kNoSuchMember = 438;  // "Object doesn't support this property or method"

[[noreturn]] void ThrowNoMember(const std::string& type, const std::string& name) {
  throw Error(kNoSuchMember, "XmlSerializer",
              "Object doesn't support this property or method (" + type + "." + name + ")");
}

struct Writer {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlTextWriterPtr w = xmlNewTextWriterMemory(buffer, 0);
  ~Writer() {
    if (w) xmlFreeTextWriter(w);
    if (buffer) xmlBufferFree(buffer);
  }
  void Check(int rc) {
    if (rc < 0) throw Error(errnum::kProviderError, "XmlSerializer", "The XML writer failed.");
  }
};

const xmlChar* X(const std::string& s) { return reinterpret_cast<const xmlChar*>(s.c_str()); }

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

bool XmlSerializer::IsIgnored(const std::string& type_name, const std::string& property) const {
  const std::string list = ";" + ignore_list_ + ";";
  return text::FindNoCase(list, ";" + type_name + "." + property + ";") != text::npos;
}

std::string XmlSerializer::Serialize(const Object& source) {
  return ReportAs("XmlSerializer.Serialize(SourceObject)", [&] {
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
                if (!textual.empty()) wr.Check(xmlTextWriterWriteString(wr.w, X(Escape(textual))));
                wr.Check(xmlTextWriterFullEndElement(wr.w));
              }
            }
            wr.Check(xmlTextWriterFullEndElement(wr.w));
          });
        };

    write_object(source, 0, "");
    wr.Check(xmlTextWriterEndDocument(wr.w));
    xmlTextWriterFlush(wr.w);
    std::string out(reinterpret_cast<const char*>(xmlBufferContent(wr.buffer)),
                    static_cast<std::size_t>(xmlBufferLength(wr.buffer)));
    return out;
  });
}

namespace {

struct ReadState {
  XmlSerializer* self = nullptr;
  std::string add_method;
  std::vector<Object*> stack;
  std::vector<ObjectPtr> keep;  // objects made while reading stay alive until the end
  std::string object_name;
  std::string element_name;
  std::optional<Error> failure;
  xmlParserCtxtPtr ctxt = nullptr;

  Object& Top() { return *stack.back(); }

  void Fail(Error e) {
    if (!failure) failure = std::move(e);
    xmlStopParser(ctxt);
  }

  void SetProperty(Object& obj, const std::string& name, std::string_view raw) {
    const std::string value = XmlSerializer::Unescape(raw);
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
    if (!p || p->kind != PropertyKind::Value || !p->set) ThrowNoMember(obj.TypeName(), name);
    p->set(obj, v);
  }
};

std::string Str(const xmlChar* s) { return s ? reinterpret_cast<const char*>(s) : ""; }

void OnStart(void* ctx, const xmlChar* localname, const xmlChar*, const xmlChar*, int,
             const xmlChar**, int nb_attributes, int, const xmlChar** attributes) {
  auto* st = static_cast<ReadState*>(ctx);
  if (st->failure) return;
  try {
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
    if (st->element_name == st->object_name || object_flag != "True") return;
    Object& top = st->Top();
    ObjectPtr child;
    if (!Variant(index).IsNumeric() || index.empty()) {
      const PropertyTable* table = top.GetPropertyTable();
      const PropertyInfo* p = table ? table->Find(st->element_name) : nullptr;
      if (!p || p->kind != PropertyKind::Object) ThrowNoMember(top.TypeName(), st->element_name);
      child = p->get(top).ToObject();
    } else {
      const PropertyTable* table = top.GetPropertyTable();
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
  st->element_name.clear();
  if (Str(localname) == st->object_name && !st->stack.empty()) {
    st->stack.pop_back();
    if (!st->stack.empty()) st->object_name = st->Top().TypeName();
  }
}

void OnCharacters(void* ctx, const xmlChar* ch, int len) {
  auto* st = static_cast<ReadState*>(ctx);
  if (st->failure || st->stack.empty()) return;
  const std::string_view piece(reinterpret_cast<const char*>(ch), static_cast<std::size_t>(len));
  if (st->element_name.empty() || st->element_name == st->object_name) return;
  if (text::TrimWhitespace(piece).empty()) return;
  try {
    st->SetProperty(st->Top(), st->element_name, piece);
  } catch (const Error& e) {
    st->Fail(e);
  }
}

void OnStructuredError(void* ctx, xmlError* err) {
  auto* st = static_cast<ReadState*>(ctx);
  if (!err || err->level < XML_ERR_ERROR) return;
  std::string msg = err->message ? err->message : "XML parse error";
  while (!msg.empty() && (msg.back() == '\n' || msg.back() == ' ')) msg.pop_back();
  msg += " (line " + std::to_string(err->line) + ")";
  if (!st->failure) st->failure = Error(static_cast<ErrorNumber>(err->code), "SAXXMLReader", msg);
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
    xmlCtxtUseOptions(ctxt.get(), XML_PARSE_NONET | XML_PARSE_NOENT);
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
