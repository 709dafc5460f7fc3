#include "platform/document_file.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/charset.h"
#include "platform/error.h"
#include "platform/text.h"

namespace gw {

std::string ReadFileBytes(const std::string& path, std::string_view source) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    throw Error(errnum::kPathFileAccessError, std::string(source),
                "Path/File access error: " + path + " is a folder.");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    const int err = errno;
    Error e(err == ENOENT ? errnum::kFileNotFound : errnum::kPermissionDenied, std::string(source),
            std::string(err == ENOENT ? "File not found: " : "Permission denied: ") + path);
    e.SetSystemError(err);
    throw e;
  }
  // Read in one piece when the size is known, else piece by piece.
  std::string bytes;
  const auto size = std::filesystem::file_size(path, ec);
  if (!ec) {
    bytes.resize(static_cast<std::size_t>(size));
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    if (in.gcount() < static_cast<std::streamsize>(size)) return bytes;
    in.clear();
  }
  char buffer[65536];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
  }
  return bytes;
}

DocumentFile ReadDocumentFile(const std::string& path, std::string_view source) {
  return DecodeDocumentBytes(ReadFileBytes(path, source));
}

DocumentFile DecodeDocumentBytes(std::string_view bytes) {
  DocumentFile doc;
  const std::string_view view = bytes;
  if (view.starts_with("\xEF\xBB\xBF")) {
    doc.bom = "\xEF\xBB\xBF";
  } else if (view.starts_with("\xFF\xFE") || view.starts_with("\xFE\xFF")) {
    doc.bom = std::string(view.substr(0, 2));
  }
  DecodedText decoded = DecodeToUtf8(bytes);
  doc.text = std::move(decoded.text);
  doc.charset = std::move(decoded.charset);
  return doc;
}

RewrittenDocument RewriteDocumentText(const DocumentFile& read, std::string_view text) {
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  RewrittenDocument out;
  if (read.charset == "UTF-8") {
    // UTF-8 is written as the text made valid; read back it is that text again, unless a mark
    // or a declaration makes a reader take the bytes otherwise. Only then is the round trip
    // needed.
    std::string body = text::SanitizeUtf8(text);
    const bool read_back_as_is =
        read.bom == kUtf8Mark ||
        (read.bom.empty() && !std::string_view(body).starts_with(kUtf8Mark) && [&] {
          const std::string declared = CharsetDeclaredIn(body);
          return declared.empty() || declared == "UTF-8";
        }());
    if (read_back_as_is) {
      out.bytes = read.bom + body;
      out.doc.text = std::move(body);
      out.doc.charset = "UTF-8";
      out.doc.bom = read.bom;
      return out;
    }
    out.bytes = read.bom + body;
  } else {
    out.bytes = read.bom + EncodeFromUtf8(text, read.charset);
  }
  out.doc = DecodeDocumentBytes(out.bytes);
  return out;
}

}  // namespace gw
