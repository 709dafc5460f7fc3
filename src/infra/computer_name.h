// ComputerName: the name of the machine the library runs on.
#pragma once

#include <string>

namespace gw {

class ComputerName {
 public:
  // The host name, cut at its first NUL; "" if the system cannot tell. Names longer than the
  // 15 characters other platforms allow are returned whole.
  static std::string Get_ComputerName();
};

}  // namespace gw
