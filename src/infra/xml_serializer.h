// Object XML: an object's public properties as a small XML document, and back.
//
// The properties come from the class's property table (platform/property_table.h), in the order
// of its interface. An object is an element named by the property that holds it (the root and
// collection members: by their type name) with the attribute Object="True"; a collection member
// also carries Index="1", "2", ...; a plain value is an element named by its property, holding the
// value as text (an empty text: the element with no text). There is no XML declaration, and the
// layout is indented with tabs, one element per line.
//
// Values pass through the program's own escape before they are written: "&" -> "%26", then
// ">" -> "%3E", then "<" -> "%3C"; reading reverses the three pairs in the same order, so a value
// that really held "%26" comes back as "&". Line ends are written as they are and read as "\n".
//
// `ValueEscape::Reversible` is for files that must give every value back exactly: it also writes
// a "%" that begins "25", "26", "3E" or "3C" as "%25" and reads the four codes back in one pass,
// writes a carriage return as "&#13;", reads the text of an element as one piece, and refuses to
// write a value that XML cannot carry (invalid UTF-8, control characters other than tab, line feed
// and carriage return) with 5. A value without those codes and characters is written the same in
// both modes.
//
// Writing leaves out the properties of the ignore list (entries "Class.Property", matched without
// regard to case against the type name of the object being written), values that are Null or
// objects, and object properties that hold nothing. A collection's members are written whatever
// the list says.
//
// Reading follows the elements as they come (the ignore list does not apply):
//  - an element with Object="True" whose name differs from the type name of the object being
//    filled opens a child: with a numeric Index, a new member made by the collection's
//    `CollectionAddMethod`; otherwise the object the property of that name holds. It is filled
//    until an end tag carrying its type name is met. A property that gives no object leaves the
//    following elements on the object being filled;
//  - the text of a value element sets the property of that name. The value is typed by its text,
//    not by the property: "True"/"False" (any case, spaces trimmed) arrive as Booleans, numeric
//    text as a 32-bit integer rounded half to even ("007" -> 7, "2.5" -> 2), anything else as
//    text. An empty or blank text sets nothing;
//  - the text of an element is set piece by piece: plain text is one piece however long, and
//    every character or entity reference ("&amp;", "&#13;") is a piece of its own, so
//    "a&amp;b" sets "a", then "&", then "b", the last piece winning (`Reversible`: one piece);
//  - an unknown property, a read-only one, a missing add method or a value its setter refuses
//    ends the parse with that failure (438 for the first three), leaving the object half filled.
//    A document that is not well-formed, or any warning of the parser, fails with the parser's
//    number and source "SAXXMLReader". External entities and DTDs are never loaded.
#pragma once

#include <string>
#include <string_view>

#include "platform/variant.h"

namespace gw {

enum class ValueEscape { Program, Reversible };

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
  // The escape of values, both ways; `Program` unless set.
  ValueEscape GetValueEscape() const { return escape_; }
  void SetValueEscape(ValueEscape escape) { escape_ = escape; }
  // The description of the last failure of `Serialize` or `Deserialize`.
  const std::string& LastError() const { return last_error_; }

  // Reports under "XmlSerializer.Serialize(SourceObject)".
  std::string Serialize(const Object& source);
  // Fills `target` from `xml`; returns true. Reports under
  // "XmlSerializer.Deserialize(TargetObject,sXML)".
  bool Deserialize(Object& target, std::string_view xml);

  // The program's own escape and its reverse.
  static std::string Escape(std::string_view value);
  static std::string Unescape(std::string_view value);
  // The reversible escape and its reverse: Unescape(Escape(x)) == x for every x.
  static std::string EscapeReversible(std::string_view value);
  static std::string UnescapeReversible(std::string_view value);

  std::string EscapeValue(std::string_view value) const;
  std::string UnescapeValue(std::string_view value) const;

 private:
  bool IsIgnored(const std::string& type_name, const std::string& property) const;

  std::string ignore_list_ = "Parent";
  std::string add_method_ = "Add";
  ValueEscape escape_ = ValueEscape::Program;
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
