// Reading a document file whole, as text: its bytes, decoded to UTF-8 from the character set that
// a byte-order mark, the document itself or the bytes tell (`DecodeToUtf8`).
#pragma once

#include <string>
#include <string_view>

namespace gw {

// A document file as text: what it said, in which character set, behind which byte-order mark
// (so that a step that rewrites the file can write it back the same way).
struct DocumentFile {
  std::string text;     // UTF-8
  std::string charset;  // as `DecodeToUtf8` reports it
  std::string bom;      // the byte-order mark the file began with, or ""
};

// The bytes of the whole file at `path`. Fails, with `source` as the error's source, with 53 when
// there is no such file, 70 when it may not be read, and 75 when it is a folder.
std::string ReadFileBytes(const std::string& path, std::string_view source);

// The file at `path`, decoded. Fails as `ReadFileBytes`.
DocumentFile ReadDocumentFile(const std::string& path, std::string_view source);

}  // namespace gw
