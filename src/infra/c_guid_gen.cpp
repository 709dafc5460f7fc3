#include "infra/c_guid_gen.h"

#include <sodium.h>

#include <array>

#include "platform/error.h"

namespace gw {

std::string CGUIDGen::NewGUID() {
  return ReportAs("CGUIDGen.NewGUID", [] {
    static const bool ready = sodium_init() >= 0;
    if (!ready) return std::string();  // no random source: an empty id, as a failed system call
    std::array<unsigned char, 16> bytes;
    randombytes_buf(bytes.data(), bytes.size());
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // variant 1
    static const char kHex[] = "0123456789ABCDEF";
    std::string id;
    id.reserve(36);
    for (std::size_t k = 0; k < bytes.size(); ++k) {
      if (k == 4 || k == 6 || k == 8 || k == 10) id += '-';
      id += kHex[bytes[k] >> 4];
      id += kHex[bytes[k] & 0x0F];
    }
    return id;
  });
}

}  // namespace gw
