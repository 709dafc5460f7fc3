// Writing to file descriptors.
#pragma once

#include <string_view>

namespace gw {

// Writes all of `bytes` to `fd`: a write that a signal interrupts is made again, and one that
// takes only part of the bytes is followed by another for the rest. 0, or the errno of the write
// that failed (EIO for a write that took nothing). `errno` is left as that write set it.
int WriteAll(int fd, std::string_view bytes) noexcept;

}  // namespace gw
