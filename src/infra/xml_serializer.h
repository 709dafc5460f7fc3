// Object XML: an object's public properties as a small XML document, and back.
//
// The properties come from the class's property table (platform/property_table.h), in the order
// of its interface. An object is an element named by the property that holds it (the root and
// collection members: by their type name) with the attribute Object="True"; a collection member
// also carries Index="1", "2", ...; a plain value is an element named by its property, holding the
// value as text. Values pass through the program's own escape before XML escaping: "&" -> "%26",
// then ">" -> "%3E", then "<" -> "%3C"; reading reverses the three pairs in the same order, so a
// value that really held "%26" comes back as "&".
//
// Reading types a value by its text, not by its property: "True"/"False" (any case, spaces
// trimmed) arrive as Booleans, numeric text as a 32-bit integer rounded half to even ("007" -> 7),
// anything else as text. A value split into several text pieces by the parser is set once per
// piece, the last piece winning; a text of white space only is never set. The ignore list applies
// to writing only.
#pragma once

#include <string>
#include <string_view>

#include "platform/variant.h"

namespace gw {

class XmlSerializer {
 public:
  XmlSerializer() = default;

  // Entries "Class.Property" separated by ";"; every space is removed when it is set. The
  // default "Parent" holds no dot and so ignores nothing.
  const std::string& IgnoreList() const { return ignore_list_; }
  void SetIgnoreList(std::string_view list);
  // The method a collection is asked for a new member while reading.
  const std::string& CollectionAddMethod() const { return add_method_; }
  void SetCollectionAddMethod(std::string name) { add_method_ = std::move(name); }
  // The text of the last failure.
  const std::string& LastError() const { return last_error_; }

  std::string Serialize(const Object& source);
  // Fills `target` from `xml`. A parse failure raises an error with the parser's number and
  // source "SAXXMLReader"; a property that cannot be set ends the parse, leaving `target` half
  // filled.
  bool Deserialize(Object& target, std::string_view xml);

  // The program's own escape and its reverse.
  static std::string Escape(std::string_view value);
  static std::string Unescape(std::string_view value);

 private:
  bool IsIgnored(const std::string& type_name, const std::string& property) const;

  std::string ignore_list_ = "Parent";
  std::string add_method_ = "Add";
  std::string last_error_;
};

// The contract of classes that keep their settings as object XML. `Deserialize` of an empty text
// does nothing.
class ISerializable {
 public:
  virtual ~ISerializable() = default;
  virtual std::string Serialize() = 0;
  virtual void Deserialize(std::string_view xml) = 0;
};

}  // namespace gw
