#include "extraction/internal.h"

#include <random>

#include "extraction/failures.h"

namespace gw::extraction_internal {

std::string NewId() {
  static thread_local std::mt19937_64 engine{std::random_device{}()};
  std::uniform_int_distribution<unsigned> nibble(0, 15);
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string id;
  id.reserve(36);
  for (int k = 0; k < 32; ++k) {
    if (k == 8 || k == 12 || k == 16 || k == 20) id += '-';
    unsigned v = nibble(engine);
    if (k == 12) v = 4;            // version 4
    if (k == 16) v = 8 | (v & 3);  // RFC 4122 variant
    id += kHex[v];
  }
  return id;
}

void ThrowRulesStoreUnavailable(std::string_view what) {
  throw Error(exerr::kRulesStoreUnavailable, std::string(what),
              "The rules store is not available in this build yet, so " + std::string(what) +
                  " cannot reach it.");
}

std::string ChangeDefaultDB(const std::string& cn_str, const std::string& /*db_name*/) {
  return cn_str;
}

std::string ReformatMySQLCnStr(const std::string& cn_str) { return cn_str; }

}  // namespace gw::extraction_internal
