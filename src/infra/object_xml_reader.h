// ObjectXmlReader: a strict reader of object XML, for files that people keep, edit and move.
//
// It reads the documents `XmlSerializer` writes (see xml_serializer.h for their form) through the
// same property tables, but unlike the serializer's own reading, which follows the elements as
// they come, it checks the whole document against the tables and gives values back exactly:
//  - the root element is named by the root object's type name and carries Object="True";
//  - inside an object element, an element with Object="True" is either the child object that the
//    property of that name holds, or, in a collection, a new member made by the collection's add
//    method (with or without Index, which when given is a whole number from 1; members arrive in
//    document order); the member's element must be named by the member's type name;
//  - any other element is a value: a writable value property of that name, given at most once,
//    with text only. Its text is the value exactly (no trimming, no typing by text), read back
//    through the escape given at construction; the setter converts it to its own type. An element
//    with no text sets nothing;
//  - comments are allowed anywhere; text between elements must be white space; entity references
//    other than the predefined ones, and DTDs, are refused; external entities are never loaded.
//
// Every refusal fails with `infraerr::kBadDocument`, source "ObjectXmlReader", and a description
// "<source name>:<line>: <what is wrong>"; a setter's failure keeps its text after the same prefix.
// The root object may be left half filled: fill a fresh one and use it only after `Read` returned.
//
// After `Read`, `Has` and `LineOf` tell which properties the document gave and where, so that a
// caller can check references and report them with their lines.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "infra/failures.h"
#include "infra/xml_serializer.h"
#include "platform/error.h"
#include "platform/variant.h"

namespace gw {

class ObjectXmlReader {
 public:
  explicit ObjectXmlReader(ValueEscape escape = ValueEscape::Reversible) : escape_(escape) {}

  // Fills `root` from `xml`; `source_name` (a file name) starts every message.
  void Read(Object& root, std::string_view xml, std::string_view source_name);

  // The document has an element for the property of `obj` (a value element, even one with no
  // text, or an object element).
  bool Has(const Object& obj, std::string_view property) const;
  // The line of the element of `obj`, or of its property (0 when the document had none).
  long LineOf(const Object& obj) const;
  long LineOf(const Object& obj, std::string_view property) const;
  // "<source name>:<line>: " for messages about `obj` (or its property).
  std::string Where(const Object& obj, std::string_view property = {}) const;

 private:
  friend struct ObjectXmlReaderWalk;

  ValueEscape escape_;
  std::string source_name_;
  std::map<const Object*, long> object_lines_;
  // (object, property folded to lower case) -> line.
  std::map<std::pair<const Object*, std::string>, long> property_lines_;
};

}  // namespace gw
