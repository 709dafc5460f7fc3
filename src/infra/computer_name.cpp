#include "infra/computer_name.h"

#include <limits.h>
#include <unistd.h>

#include <cstring>

#include "platform/error.h"

namespace gw {

std::string ComputerName::Get_ComputerName() {
  return ReportAs("ComputerName.Get_ComputerName", [] {
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return std::string();
    return std::string(name, ::strnlen(name, sizeof name));
  });
}

}  // namespace gw
