#include "design/html_plugin.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "engine/doc.h"
#include "filters/transformations.h"
#include "platform/charset.h"
#include "platform/document_file.h"
#include "platform/error.h"
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

void WriteDocument(const std::string& path, const DocumentFile& doc, std::string_view text) {
  const std::string bytes = doc.bom + EncodeFromUtf8(text, doc.charset);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out || !out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())) ||
      !out.flush()) {
    throw Error(errnum::kPathFileAccessError, "CHTMLPlugin.WriteDocument",
                "Path/File access error: could not write " + path + ": " + std::strerror(errno));
  }
}

// Reads the file, lets `edit` change its text, and writes it back in the set it was read in.
template <typename Edit>
void RewriteDocument(const std::string& path, Edit&& edit) {
  const DocumentFile doc = ReadDocumentFile(FileSystemPathOf(path), "CHTMLPlugin.ReadDocument");
  const BString result = edit(BString(doc.text));
  WriteDocument(FileSystemPathOf(path), doc, result.ToString());
}

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
  const std::string method = text::AsciiUpper(CleanseMethod);
  const ParameterItems items(Parameters);
  const auto clean = [&] { Tolerate([&] { CleanDocument(Uri); }); };
  if (method == "NONE") return;
  if (method == "OBJECTS") {
    clean();
    Tolerate([&] { RemoveTags(Uri, "<Object", "</Object>"); });
  } else if (method == "REPLACE") {
    clean();
    Tolerate([&] { ReplaceInFile(Uri, items[0], items[1]); });
  } else if (method == "REMOVETAGS") {
    clean();
    Tolerate([&] { RemoveTags(Uri, items[0], items[1]); });
  } else if (method == "REGEXREPLACE") {
    clean();
    Tolerate([&] { RegExReplace(Uri, items[0], items[1]); });
  } else if (method == "REMOVESTART") {
    Tolerate([&] { RemoveStart(Uri, Variant(items[0]).ToLong()); });
    clean();
  } else if (method == "PRETAGS") {
    // A line end is CR LF or, in files written here, a lone LF.
    Tolerate([&] { ReplaceInsideTags(Uri, "<Pre", "</Pre>", "\r\n", "<BR>"); });
    Tolerate([&] { ReplaceInsideTags(Uri, "<Pre", "</Pre>", "\n", "<BR>"); });
    Tolerate([&] { ReplaceInsideTags(Uri, "<Pre", "</Pre>", " ", "&nbsp;"); });
    Tolerate([&] { ReplaceInsideTags(Uri, "<Pre", "</Pre>", "\t", "&nbsp;&nbsp;&nbsp;"); });
    clean();
  } else {
    clean();  // "DEFAULT", empty, or a method nobody knows
  }
}

void CHTMLPlugin::CleanDocument(const std::string& Path) {
  ReportAs("CHTMLPlugin.CleanDocument(Path)", [&] {
    RewriteDocument(Path, [](BString text) {
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
    });
  });
}

void CHTMLPlugin::RemoveStart(const std::string& path, long Length) {
  ReportAs("CHTMLPlugin.RemoveStart(path,Length)", [&] {
    RewriteDocument(path, [&](const BString& text) {
      const std::string whole = text.ToString();
      if (Length < 0) {
        throw Error(errnum::kInvalidProcedureCall, "CHTMLPlugin.RemoveStart",
                    "Invalid procedure call or argument");
      }
      const std::size_t cut =
          text::TruncateCodePoints(whole, static_cast<std::size_t>(Length)).size();
      return BString(whole.substr(cut));
    });
  });
}

void CHTMLPlugin::ReplaceInFile(const std::string& path, const std::string& searchVal,
                                const std::string& replaceVal) {
  ReportAs("CHTMLPlugin.ReplaceInFile(path,searchVal,replaceVal)", [&] {
    RewriteDocument(path,
                    [&](const BString& text) { return text.ReplaceStr(searchVal, replaceVal); });
  });
}

void CHTMLPlugin::RegExReplace(const std::string& path, const std::string& Pattern,
                               const std::string& ReplaceString) {
  ReportAs("CHTMLPlugin.RegExReplace(path,Pattern,ReplaceString)", [&] {
    const RegExp re(Pattern, /*global=*/true, /*ignore_case=*/false);
    RewriteDocument(path, [&](const BString& text) {
      return BString(re.Replace(text.ToString(), ReplaceString));
    });
  });
}

void CHTMLPlugin::RemoveTags(const std::string& path, const std::string& startTag,
                             const std::string& endTag) {
  ReportAs("CHTMLPlugin.RemoveTags(path,startTag,endTag)", [&] {
    RewriteDocument(path, [&](BString text) {
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
    });
  });
}

void CHTMLPlugin::ReplaceInsideTags(const std::string& path, const std::string& StartTag,
                                    const std::string& EndTag, const std::string& Pattern,
                                    const std::string& ReplaceString) {
  ReportAs("CHTMLPlugin.ReplaceInsideTags(path,StartTag,EndTag,Pattern,ReplaceString)", [&] {
    RewriteDocument(path, [&](const BString& text) {
      return text.ReplaceInsideTokens(StartTag, EndTag, Pattern, ReplaceString);
    });
  });
}

}  // namespace gw
