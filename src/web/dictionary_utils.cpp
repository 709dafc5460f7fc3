#include "web/dictionary_utils.h"

#include <fstream>

#include "platform/paths.h"

namespace gw::web::DictionaryUtils {

void Trace(std::string_view message) {
  if (message == "Default") return;
  try {
    std::ofstream file(HomeDir() / "TraceFile.txt", std::ios::app | std::ios::binary);
    file << message << '\n';
  } catch (const std::exception&) {
    // Tracing is best effort.
  }
}

}  // namespace gw::web::DictionaryUtils
