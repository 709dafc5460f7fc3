#include "infra/c_guid_gen.h"

#include <pthread.h>
#include <sodium.h>

#include <algorithm>
#include <array>
#include <mutex>

#include "platform/error.h"

namespace gw {

namespace {

// Random bytes are drawn from the system a few hundred ids at a time, not one id at a time (a
// run queues and names thousands of things, each draw a system call). A process made by fork
// starts with none drawn: it never hands out its parent's ids.
struct RandomPool {
  std::array<unsigned char, 4096> bytes{};
  std::size_t used = bytes.size();
};
thread_local RandomPool t_pool;

void ForgetDrawnBytes() {
  sodium_memzero(t_pool.bytes.data(), t_pool.bytes.size());
  t_pool.used = t_pool.bytes.size();
}

void Draw(unsigned char* out, std::size_t size) {
  static std::once_flag fork_guard;
  std::call_once(fork_guard, [] { ::pthread_atfork(nullptr, nullptr, ForgetDrawnBytes); });
  if (t_pool.bytes.size() - t_pool.used < size) {
    randombytes_buf(t_pool.bytes.data(), t_pool.bytes.size());
    t_pool.used = 0;
  }
  std::copy_n(t_pool.bytes.begin() + static_cast<std::ptrdiff_t>(t_pool.used), size, out);
  sodium_memzero(t_pool.bytes.data() + t_pool.used, size);  // each byte is handed out once
  t_pool.used += size;
}

}  // namespace

std::string CGUIDGen::NewGUID() {
  return ReportAs("CGUIDGen.NewGUID", [] {
    static const bool ready = sodium_init() >= 0;
    if (!ready) return std::string();  // no random source: an empty id, as a failed system call
    std::array<unsigned char, 16> bytes;
    Draw(bytes.data(), bytes.size());
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
