// The kinds of step that `OnParserAction` reports while a page is cut.
#pragma once

namespace gw {

enum class TokenTypeEnum : int {
  EntityInit = 0,             // a dataset found the initialization string of a row
  FieldValue = 1,             // the raw value was cut out
  FieldStartTag = 2,          // the start tag was found
  FieldEndTag = 3,            // the end tag was found
  FilteredFieldValue = 4,     // the value went through the field's filter
  FieldStartTagNotFound = 5,  // the start tag is absent
  FieldEndTagNotFound = 6,    // the end tag is absent
};

}  // namespace gw
