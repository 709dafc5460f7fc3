#include "platform/stream.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace gw {

void Stream::Open() {
  open_ = true;
  bytes_.clear();
  position_ = 0;
}

void Stream::Close() noexcept {
  open_ = false;
  bytes_.clear();
  position_ = 0;
}

void Stream::RequireOpen(std::string_view member) const {
  if (!open_) {
    throw Error(errnum::kStreamClosed, "Stream." + std::string(member),
                "Operation is not allowed when the object is closed.");
  }
}

void Stream::Write(std::string_view bytes) {
  RequireOpen("Write");
  bytes_.append(bytes);
  position_ = static_cast<long>(bytes_.size());
}

std::string Stream::Read() {
  RequireOpen("Read");
  std::string out = bytes_.substr(static_cast<std::size_t>(position_));
  position_ = static_cast<long>(bytes_.size());
  return out;
}

void Stream::SetPosition(long position) {
  RequireOpen("Position");
  if (position < 0 || position > Size()) {
    throw Error(errnum::kInvalidProcedureCall, "Stream.Position",
                "Invalid procedure call or argument");
  }
  position_ = position;
}

void Stream::SaveToFile(const std::string& path, int options) const {
  RequireOpen("SaveToFile");
  namespace fs = std::filesystem;
  // `code`: the system's error code of the call that failed, 0 for none.
  const auto fail = [&](const std::string& why, int code = 0) {
    Error e(errnum::kWriteToFileFailed, "Stream.SaveToFile",
            "Write to file failed: " + path + " (" + why + ").");
    e.SetSystemError(code);
    throw e;
  };
  std::error_code ec;
  if (options != kSaveCreateOverWrite && fs::exists(path, ec)) fail("the file exists");
  const std::string temporary = path + ".part" + std::to_string(::getpid());
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out) {
      const int code = errno;
      fail(std::strerror(code), code);
    }
    out.write(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
    out.close();
    if (!out) {
      const int code = errno;
      fs::remove(temporary, ec);
      fail(std::strerror(code), code);
    }
  }
  fs::rename(temporary, path, ec);
  if (ec) {
    const std::string why = ec.message();
    const int code = ec.value();
    fs::remove(temporary, ec);
    fail(why, code);
  }
}

}  // namespace gw
