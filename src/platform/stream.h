// `Stream`: the in-memory byte stream that stands in for ADO's `Stream` object, as far as the
// library uses one: a response body handed to whoever saves it to a file.
//
// A stream is binary (`Type` 1) or text (`Type` 2); `Charset` names the character set of a text
// stream and is carried along for a binary one. Bytes are written at the end and read from the
// position. Failures are `gw::Error`s with ADO's numbers: an operation on a closed stream fails
// with 3704, and `SaveToFile` with 3004 when the file cannot be written or, with
// `kSaveCreateNotExist`, already exists.
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/variant.h"

namespace gw {

class Stream : public Object {
 public:
  enum StreamType { kBinary = 1, kText = 2 };
  enum SaveOptions { kSaveCreateNotExist = 1, kSaveCreateOverWrite = 2 };

  std::string TypeName() const override { return "Stream"; }

  int Type() const noexcept { return type_; }
  void SetType(int type) noexcept { type_ = type; }
  const std::string& Charset() const noexcept { return charset_; }
  void SetCharset(std::string charset) { charset_ = std::move(charset); }

  void Open();
  void Close() noexcept;
  bool IsOpen() const noexcept { return open_; }
  // Appends bytes.
  void Write(std::string_view bytes);
  // The bytes from the position to the end; the position moves to the end.
  std::string Read();
  long Size() const noexcept { return static_cast<long>(bytes_.size()); }
  long Position() const noexcept { return position_; }
  void SetPosition(long position);
  // All the bytes, whatever the position.
  const std::string& Bytes() const noexcept { return bytes_; }
  // Writes every byte of the stream to `path` (through a temporary file and a rename, so a reader
  // never sees half a file).
  void SaveToFile(const std::string& path, int options = kSaveCreateNotExist) const;

 private:
  void RequireOpen(std::string_view member) const;

  int type_ = kText;
  std::string charset_ = "Unicode";
  bool open_ = false;
  std::string bytes_;
  long position_ = 0;
};

}  // namespace gw
