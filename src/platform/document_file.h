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

// A document file's bytes, decoded as `ReadDocumentFile` decodes them.
DocumentFile DecodeDocumentBytes(std::string_view bytes);

// A document's text written back the way `read` was read (its byte-order mark, then the text in
// its character set), and what reading those bytes again gives, without a file in between: a
// step that edits a document in memory sees exactly what it would see had the step before it
// written the file and this one read it back.
struct RewrittenDocument {
  std::string bytes;  // what the file holds once written
  DocumentFile doc;   // == DecodeDocumentBytes(bytes)
};
RewrittenDocument RewriteDocumentText(const DocumentFile& read, std::string_view text);

}  // namespace gw
