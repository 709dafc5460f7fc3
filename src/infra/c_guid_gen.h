// CGUIDGen: ids for new objects.
#pragma once

#include <string>

namespace gw {

class CGUIDGen {
 public:
  // A random (version 4, variant 1) UUID as 36 characters: upper-case hexadecimal digits in
  // groups of 8-4-4-4-12 separated by "-", without braces ("0F8FAD5B-D9CB-469F-A165-70867728950E").
  static std::string NewGUID();
};

}  // namespace gw
