#include "design/html_plugin.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

#include "engine/doc.h"
#include "filters/transformations.h"
#include "platform/charset.h"
#include "platform/document_file.h"
#include "platform/error.h"
#include "platform/file_io.h"
#include "platform/regex.h"
#include "platform/text.h"
#include "text/b_string.h"

namespace gw {

namespace {

[[noreturn]] void ThrowNotAvailable(const char* member) {
  throw Error(errnum::kNotSupported, std::string("CHTMLPlugin.") + member,
              "Object doesn't support this property or method: " + std::string(member) +
                  " needs the template editor's browser, which is not available.");
}

// Writes `bytes` over the file at `path` (made when it is missing) and cuts the file to their
// length; the errno of the call that failed, or 0. The file is written over in place rather than
// emptied first: ext4 writes a file that was cut to nothing and written again out to the disk as
// it is closed, and every cleansed document of a run would wait for that.
int OverwriteFile(const std::string& path, std::string_view bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return errno;
  const auto fail = [fd] {
    const int code = errno;
    ::close(fd);
    return code;
  };
  if (WriteAll(fd, bytes) != 0) return fail();
  if (::ftruncate(fd, static_cast<off_t>(bytes.size())) != 0) return fail();
  return ::close(fd) == 0 ? 0 : errno;
}

void WriteDocument(const std::string& path, const DocumentFile& doc, std::string_view text) {
  const std::string bytes = doc.bom + EncodeFromUtf8(text, doc.charset);
  if (const int code = OverwriteFile(path, bytes); code != 0) {
    Error e(errnum::kPathFileAccessError, "CHTMLPlugin.WriteDocument",
            "Path/File access error: could not write " + path + ": " + std::strerror(code));
    e.SetSystemError(code);
    throw e;
  }
}

// Reads the file, lets `edit` change its text, and writes it back in the set it was read in.
template <typename Edit>
void RewriteDocument(const std::string& path, Edit&& edit) {
  const DocumentFile doc = ReadDocumentFile(FileSystemPathOf(path), "CHTMLPlugin.ReadDocument");
  const BString result = edit(BString(doc.text));
  WriteDocument(FileSystemPathOf(path), doc, result.ToString());
}

// A document read once and held while the steps of several cleansing passes edit it: each step
// sees what it would have read back had the step before written the file, and the file is written
// once, at the end, with what the last step would have written.
class HeldDocument {
 public:
  explicit HeldDocument(const std::string& path)
      : path_(FileSystemPathOf(path)), doc_(ReadDocumentFile(path_, "CHTMLPlugin.ReadDocument")) {}

  template <typename Edit>
  void Rewrite(Edit&& edit) {
    RewrittenDocument next = RewriteDocumentText(doc_, edit(BString(doc_.text)).ToString());
    bytes_ = std::move(next.bytes);
    doc_ = std::move(next.doc);
    rewritten_ = true;
  }

  // Writes the file when a step changed it; false when that failed (the file may then hold part
  // of the new bytes).
  bool WriteBack() {
    if (!rewritten_) return true;
    return OverwriteFile(path_, bytes_) == 0;
  }

  const std::string& Text() const { return doc_.text; }

 private:
  std::string path_;
  DocumentFile doc_;
  std::string bytes_;
  bool rewritten_ = false;
};

// The edits of the cleansing steps, on a document's text.
BString CleanText(BString text) {
  const long first = text.IndexOf("<HTML>");
  const long last = text.LastIndexOf("</HTML>");
  const long inner_start = first + 6;
  if (first > 0 && last > inner_start) {
    // Anything outside the outermost tags goes.
    text = text.SubString(inner_start, last - inner_start);
  }
  text = text.ReplaceStr("<HTML>", "").ReplaceStr("</HTML>", "");
  text = BString("<HTML>" + std::move(text).ToString() + "</HTML>");
  // A page's error handler is switched off by misspelling its attribute.
  return text.ReplaceStr("OnError=", "OnEror=");
}

BString RemoveStartText(const BString& text, long Length) {
  const std::string whole = text.ToString();
  if (Length < 0) {
    throw Error(errnum::kInvalidProcedureCall, "CHTMLPlugin.RemoveStart",
                "Invalid procedure call or argument");
  }
  const std::size_t cut = text::TruncateCodePoints(whole, static_cast<std::size_t>(Length)).size();
  return BString(whole.substr(cut));
}

BString RemoveTagsText(BString text, const std::string& startTag, const std::string& endTag) {
  long start = text.IndexOf(startTag);
  long end = text.IndexOf(endTag);
  // A stray end tag ahead of the first start tag ends the removal.
  while (end > start && end > 0) {
    const long length = end + static_cast<long>(endTag.size()) - start;
    text = text.Remove(start, length);
    start = text.IndexOf(startTag);
    end = text.IndexOf(endTag);
  }
  return text;
}

// The steps of one cleansing method, each through `rewrite(name, edit)`, which applies `edit` to
// the document and reports a failure as the step `name`.
template <typename Rewrite>
void RunCleanseMethod(const std::string& CleanseMethod, const std::string& Parameters,
                      Rewrite&& rewrite);

// The pieces of a cleansing method's parameters; a piece that is not there fails with 9, as an
// array read past its end does. An empty text has no pieces at all.
class ParameterItems {
 public:
  explicit ParameterItems(const std::string& parameters) {
    if (!parameters.empty()) items_ = text::Split(parameters, ",");
  }
  const std::string& operator[](std::size_t index) const {
    if (index >= items_.size()) {
      throw Error(errnum::kSubscriptOutOfRange, "CHTMLPlugin.CleanseDocument",
                  "Subscript out of range");
    }
    return items_[index];
  }

 private:
  std::vector<std::string> items_;
};

// Runs one cleansing step; its failure is tolerated, and the next step runs.
template <typename Step>
void Tolerate(Step&& step) {
  try {
    step();
  } catch (const Error&) {
  } catch (const std::exception&) {
  }
}

}  // namespace

// ---- properties -------------------------------------------------------------------------------

void CHTMLPlugin::SetActiveDocument(const ObjectPtr& ActiveDocument) {
  active_document_ = ActiveDocument;
  if (event_svc_) event_svc_->RaiseActiveDocChange(active_document_);
}

void CHTMLPlugin::SetActiveDPage(const std::shared_ptr<UI_DataPage>& page) {
  active_dpage_ = page;
  if (event_svc_) event_svc_->RaiseActiveDpageChange(active_dpage_);
}

void CHTMLPlugin::SetActiveEnt(const std::shared_ptr<UI_Entity>& entity) {
  active_ent_ = entity;
  if (event_svc_) event_svc_->RaiseActiveEntChange(active_ent_);
}

void CHTMLPlugin::SetActiveAttrib(const std::shared_ptr<UI_Attrib>& attrib) {
  active_attrib_ = attrib;
  if (event_svc_) event_svc_->RaiseActiveAttribChange(active_attrib_);
}

void CHTMLPlugin::SetIsBrowserSelFrozen(bool IsBrowserSelFrozen) {
  // Freezing first reads the browser's selection, so it needs the browser.
  if (IsBrowserSelFrozen) ThrowNotAvailable("IsBrowserSelFrozen");
  is_browser_sel_frozen_ = false;
}

// ---- browser-side members ---------------------------------------------------------------------

long CHTMLPlugin::EmbeddedDocCount() { ThrowNotAvailable("EmbeddedDocCount"); }
long CHTMLPlugin::CurrSelectionPos() { ThrowNotAvailable("CurrSelectionPos"); }
void CHTMLPlugin::ShowEntity() { ThrowNotAvailable("ShowEntity"); }
void CHTMLPlugin::ShowAttrib() { ThrowNotAvailable("ShowAttrib"); }
void CHTMLPlugin::GetBrowserSelection(long&, long&) { ThrowNotAvailable("GetBrowserSelection"); }
void CHTMLPlugin::SetBrowserSelection(long, long) { ThrowNotAvailable("SetBrowserSelection"); }
std::string CHTMLPlugin::GetSelectedText() { ThrowNotAvailable("GetSelectedText"); }
std::shared_ptr<UI_DataPage> CHTMLPlugin::AddDataPage(const ObjectPtr&) {
  ThrowNotAvailable("AddDataPage");
}
std::shared_ptr<UI_Entity> CHTMLPlugin::AddEntity(long, const ObjectPtr&) {
  ThrowNotAvailable("AddEntity");
}
std::shared_ptr<UI_Attrib> CHTMLPlugin::AddAttribute(const ObjectPtr&) {
  ThrowNotAvailable("AddAttribute");
}
std::string CHTMLPlugin::WriteTemplate(const ObjectPtr&) { ThrowNotAvailable("WriteTemplate"); }

bool CHTMLPlugin::IsReady(bool CheckActiveDPage, bool CheckActiveEnt, bool CheckActiveAttrib,
                          bool CheckActiveDocument, bool CheckSourceText, bool CheckTreeCtrl,
                          bool CheckSourceRTB, bool CheckSelectedRTB, bool CheckBrowserCtrl) {
  return ReportAs("CHTMLPlugin.IDocPlugin_IsReady", [&] {
    if (CheckActiveDPage && !active_dpage_) return false;
    if (CheckActiveEnt && !active_ent_) return false;
    if (CheckActiveAttrib && !active_attrib_) return false;
    if (CheckActiveDocument && !active_document_) return false;
    if (CheckSourceText && GetSource().empty()) return false;
    if (CheckTreeCtrl && !tree_ctrl_) return false;
    if (CheckSourceRTB && !source_rtb_) return false;
    if (CheckSelectedRTB && !selected_rtb_) return false;
    if (CheckBrowserCtrl && !browser_ctrl_) return false;
    return true;
  });
}

// ---- reading a document -----------------------------------------------------------------------

Variant CHTMLPlugin::OpenDocument(const std::string& Uri) {
  document_address_ = Uri;
  return {};
}

std::string CHTMLPlugin::GetSource() {
  return ReportAs("CHTMLPlugin.IDocPlugin_GetSource", [&] {
    std::string text;
    const std::string path = FileSystemPathOf(document_address_);
    std::error_code ec;
    if (!path.empty() && std::filesystem::is_regular_file(path, ec)) {
      text = ReadDocumentFile(path, "CHTMLPlugin.ReadDocument").text;
    }
    source_text_ = filters::Transformations::NormalizeText(text);
    return source_text_;
  });
}

// ---- cleansing --------------------------------------------------------------------------------

void CHTMLPlugin::CleanseDocument(const std::string& Uri, const std::string& CleanseMethod,
                                  const std::string& Parameters) {
  RunCleanseMethod(CleanseMethod, Parameters, [&](const char* name, const auto& edit) {
    ReportAs(name, [&] { RewriteDocument(Uri, edit); });
  });
}

std::string CHTMLPlugin::CleanseAndGetSource(const std::string& Uri,
                                             std::initializer_list<CleansePass> passes) {
  std::optional<HeldDocument> held;
  try {
    held.emplace(Uri);
  } catch (const Error&) {
  } catch (const std::exception&) {
  }
  if (held) {
    for (const CleansePass& pass : passes) {
      RunCleanseMethod(pass.method, pass.parameters, [&](const char* name, const auto& edit) {
        ReportAs(name, [&] { held->Rewrite(edit); });
      });
    }
    if (held->WriteBack()) {
      OpenDocument(Uri);
      source_text_ = filters::Transformations::NormalizeText(held->Text());
      return source_text_;
    }
  } else {
    // Not readable: every step would fail, and the file stays as it is.
  }
  // Unreadable, or it could not be written: the text is what the file holds.
  OpenDocument(Uri);
  return GetSource();
}

void CHTMLPlugin::CleanDocument(const std::string& Path) {
  ReportAs("CHTMLPlugin.CleanDocument(Path)", Args(Path),
           [&] { RewriteDocument(Path, CleanText); });
}

void CHTMLPlugin::RemoveStart(const std::string& path, long Length) {
  ReportAs("CHTMLPlugin.RemoveStart(path,Length)", Args(path, Length), [&] {
    RewriteDocument(path, [&](const BString& text) { return RemoveStartText(text, Length); });
  });
}

void CHTMLPlugin::ReplaceInFile(const std::string& path, const std::string& searchVal,
                                const std::string& replaceVal) {
  ReportAs("CHTMLPlugin.ReplaceInFile(path,searchVal,replaceVal)",
           Args(path, searchVal, replaceVal), [&] {
             RewriteDocument(
                 path, [&](const BString& text) { return text.ReplaceStr(searchVal, replaceVal); });
           });
}

void CHTMLPlugin::RegExReplace(const std::string& path, const std::string& Pattern,
                               const std::string& ReplaceString) {
  ReportAs("CHTMLPlugin.RegExReplace(path,Pattern,ReplaceString)",
           Args(path, Pattern, ReplaceString), [&] {
             const RegExp re(Pattern, /*global=*/true, /*ignore_case=*/false);
             RewriteDocument(path, [&](const BString& text) {
               return BString(re.Replace(text.ToString(), ReplaceString));
             });
           });
}

void CHTMLPlugin::RemoveTags(const std::string& path, const std::string& startTag,
                             const std::string& endTag) {
  ReportAs("CHTMLPlugin.RemoveTags(path,startTag,endTag)", Args(path, startTag, endTag), [&] {
    RewriteDocument(path, [&](BString text) { return RemoveTagsText(text, startTag, endTag); });
  });
}

void CHTMLPlugin::ReplaceInsideTags(const std::string& path, const std::string& StartTag,
                                    const std::string& EndTag, const std::string& Pattern,
                                    const std::string& ReplaceString) {
  ReportAs("CHTMLPlugin.ReplaceInsideTags(path,StartTag,EndTag,Pattern,ReplaceString)",
           Args(path, StartTag, EndTag, Pattern, ReplaceString), [&] {
             RewriteDocument(path, [&](const BString& text) {
               return text.ReplaceInsideTokens(StartTag, EndTag, Pattern, ReplaceString);
             });
           });
}

namespace {

template <typename Rewrite>
void RunCleanseMethod(const std::string& CleanseMethod, const std::string& Parameters,
                      Rewrite&& rewrite) {
  const std::string method = text::AsciiUpper(CleanseMethod);
  const ParameterItems items(Parameters);
  const auto clean = [&] {
    Tolerate([&] { rewrite("CHTMLPlugin.CleanDocument(Path)", CleanText); });
  };
  const auto remove_tags = [&](const std::string& start, const std::string& end) {
    Tolerate([&] {
      rewrite("CHTMLPlugin.RemoveTags(path,startTag,endTag)",
              [&](BString text) { return RemoveTagsText(std::move(text), start, end); });
    });
  };
  const auto replace_inside_pre = [&](const char* pattern, const char* replacement) {
    Tolerate([&] {
      rewrite("CHTMLPlugin.ReplaceInsideTags(path,StartTag,EndTag,Pattern,ReplaceString)",
              [&](const BString& text) {
                return text.ReplaceInsideTokens("<Pre", "</Pre>", pattern, replacement);
              });
    });
  };
  if (method == "NONE") return;
  if (method == "OBJECTS") {
    clean();
    remove_tags("<Object", "</Object>");
  } else if (method == "REPLACE") {
    clean();
    Tolerate([&] {
      const std::string& search = items[0];
      const std::string& replacement = items[1];
      rewrite("CHTMLPlugin.ReplaceInFile(path,searchVal,replaceVal)",
              [&](const BString& text) { return text.ReplaceStr(search, replacement); });
    });
  } else if (method == "REMOVETAGS") {
    clean();
    Tolerate([&] { remove_tags(items[0], items[1]); });
  } else if (method == "REGEXREPLACE") {
    clean();
    Tolerate([&] {
      const std::string& pattern = items[0];
      const std::string& replacement = items[1];
      const RegExp re(pattern, /*global=*/true, /*ignore_case=*/false);
      rewrite("CHTMLPlugin.RegExReplace(path,Pattern,ReplaceString)", [&](const BString& text) {
        return BString(re.Replace(text.ToString(), replacement));
      });
    });
  } else if (method == "REMOVESTART") {
    Tolerate([&] {
      const long length = Variant(items[0]).ToLong();
      rewrite("CHTMLPlugin.RemoveStart(path,Length)",
              [&](const BString& text) { return RemoveStartText(text, length); });
    });
    clean();
  } else if (method == "PRETAGS") {
    // A line end is CR LF or, in files written here, a lone LF.
    replace_inside_pre("\r\n", "<BR>");
    replace_inside_pre("\n", "<BR>");
    replace_inside_pre(" ", "&nbsp;");
    replace_inside_pre("\t", "&nbsp;&nbsp;&nbsp;");
    clean();
  } else {
    clean();  // "DEFAULT", empty, or a method nobody knows
  }
}

}  // namespace

}  // namespace gw
