#include "platform/document_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/charset.h"
#include "platform/error.h"
#include "platform/text.h"

namespace gw {

std::string ReadFileBytes(const std::string& path, std::string_view source) {
  const auto folder_error = [&] {
    return Error(errnum::kPathFileAccessError, std::string(source),
                 "Path/File access error: " + path + " is a folder.");
  };
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    const int err = errno;
    // A folder that may not be opened is still reported as a folder.
    std::error_code ec;
    if (err != ENOENT && std::filesystem::is_directory(path, ec)) throw folder_error();
    Error e(err == ENOENT ? errnum::kFileNotFound : errnum::kPermissionDenied, std::string(source),
            std::string(err == ENOENT ? "File not found: " : "Permission denied: ") + path);
    e.SetSystemError(err);
    throw e;
  }
  // One look at the open file gives both its kind and its size.
  struct stat st {};
  const bool known = ::fstat(fd, &st) == 0;
  if (known && S_ISDIR(st.st_mode)) {
    ::close(fd);
    throw folder_error();
  }
  // Read in one piece when the size is known, then on to the end (a file may grow meanwhile).
  // The piece asked for is one byte longer than the file: a read that stops short at the size
  // looked at has met the end, and no further read is needed to find it.
  std::string bytes;
  if (known && S_ISREG(st.st_mode)) {
    const auto size = static_cast<std::size_t>(st.st_size);
    bytes.resize(size + 1);
    std::size_t got = 0;
    bool at_end = false;
    while (got <= size) {
      const ssize_t n = ::read(fd, bytes.data() + got, size + 1 - got);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        at_end = true;
        break;
      }
      got += static_cast<std::size_t>(n);
      if (got == size) {
        at_end = true;
        break;
      }
    }
    bytes.resize(got);
    if (at_end) {
      ::close(fd);
      return bytes;
    }
  }
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fd);
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
