// CHTMLPlugin: the document plug-in for HTML.
//
// What a package run needs is here: `CleanseDocument` with its methods, `OpenDocument` and
// `GetSource`. A document is read from its file: its bytes are decoded to UTF-8 from the character
// set that a byte-order mark, the document itself or the bytes tell (`DecodeToUtf8`), and a
// cleansing step writes the file back in that same set, with the same byte-order mark; a character
// the set cannot hold is written as a numeric character reference.
//
// The members that need the template editor's browser, text boxes and design objects keep their
// place in the contract and fail with 438 until the editor's views exist; the properties that only
// hold the host's objects work.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "engine/doc_plugin.h"
#include "platform/error.h"

namespace gw {

class CHTMLPlugin : public Object, public IDocPlugin {
 public:
  static std::shared_ptr<CHTMLPlugin> Create() { return std::make_shared<CHTMLPlugin>(); }
  std::string TypeName() const override { return "CHTMLPlugin"; }

  // ---- IDocPlugin ----
  void SetDocType(const std::string& DocType) override { doc_type_ = DocType; }
  std::string DocType() const override { return doc_type_; }
  void SetTreeCtrl(const ObjectPtr& TreeCtrl) override { tree_ctrl_ = TreeCtrl; }
  ObjectPtr TreeCtrl() const override { return tree_ctrl_; }
  long EmbeddedDocCount() override;
  void SetSelectedRTB(const ObjectPtr& SelectedRTB) override { selected_rtb_ = SelectedRTB; }
  ObjectPtr SelectedRTB() const override { return selected_rtb_; }
  void SetSourceRTB(const ObjectPtr& SourceRTB) override { source_rtb_ = SourceRTB; }
  ObjectPtr SourceRTB() const override { return source_rtb_; }
  void SetBrowserCtrl(const ObjectPtr& BrowserCtrl) override { browser_ctrl_ = BrowserCtrl; }
  ObjectPtr BrowserCtrl() const override { return browser_ctrl_; }
  // Holds the document and raises the document change notice through `EventSvc`, when set.
  void SetActiveDocument(const ObjectPtr& ActiveDocument) override;
  ObjectPtr ActiveDocument() const override { return active_document_; }
  void SetEventSvc(const std::shared_ptr<EventTunnel>& EventSvc) override { event_svc_ = EventSvc; }
  std::shared_ptr<EventTunnel> EventSvc() const override { return event_svc_; }
  // The three setters hold the object and raise the matching notice through `EventSvc`.
  void SetActiveDPage(const std::shared_ptr<UI_DataPage>& page) override;
  std::shared_ptr<UI_DataPage> ActiveDPage() const override { return active_dpage_; }
  void SetActiveAttrib(const std::shared_ptr<UI_Attrib>& attrib) override;
  std::shared_ptr<UI_Attrib> ActiveAttrib() const override { return active_attrib_; }
  void SetSourceText(const std::string& SourceText) override { source_text_ = SourceText; }
  std::string SourceText() const override { return source_text_; }
  void SetIsBrowserSelFrozen(bool IsBrowserSelFrozen) override;
  bool IsBrowserSelFrozen() const override { return is_browser_sel_frozen_; }
  void SetActiveEnt(const std::shared_ptr<UI_Entity>& entity) override;
  std::shared_ptr<UI_Entity> ActiveEnt() const override { return active_ent_; }
  long CurrSelectionPos() override;
  // Does nothing.
  void ShowDataPage() override {}
  void ShowEntity() override;
  void ShowAttrib() override;
  void GetBrowserSelection(long& SelStart, long& SelLength) override;
  void SetBrowserSelection(long SelStart, long SelLength) override;
  std::string GetSelectedText() override;
  std::shared_ptr<UI_DataPage> AddDataPage(const ObjectPtr& ProgressBar = nullptr) override;
  std::shared_ptr<UI_Entity> AddEntity(long OccurCount,
                                       const ObjectPtr& ProgressBar = nullptr) override;
  std::shared_ptr<UI_Attrib> AddAttribute(const ObjectPtr& ProgressBar = nullptr) override;
  // The text of the file that `OpenDocument` named, decoded and normalised
  // (`Transformations::NormalizeText`); "" when there is no such file. It becomes `SourceText`.
  std::string GetSource() override;
  std::string WriteTemplate(const ObjectPtr& ProgressBar = nullptr) override;
  // Remembers the address for `GetSource`; the value is empty. Never fails.
  Variant OpenDocument(const std::string& Uri) override;
  // Rewrites the file `Uri` by `CleanseMethod` (compared in capitals) with `Parameters` split at
  // "," into items 0 and 1:
  //   "DEFAULT", empty or unknown: CleanDocument;  "NONE": nothing;
  //   "OBJECTS": CleanDocument, RemoveTags("<Object", "</Object>");
  //   "REPLACE" / "REMOVETAGS" / "REGEXREPLACE": CleanDocument, then that step with items 0, 1;
  //   "REMOVESTART": RemoveStart(item 0), CleanDocument;
  //   "PRETAGS": inside "<Pre" ... "</Pre>" line ends to "<BR>", spaces to "&nbsp;", tabs to three
  //   "&nbsp;", then CleanDocument.
  // Each step reads and writes the whole file. A failing step (a missing item, an unreadable
  // file, a bad pattern) is skipped and the others still run; nothing is raised.
  void CleanseDocument(const std::string& Uri, const std::string& CleanseMethod = {},
                       const std::string& Parameters = {}) override;
  // The passes' steps edit the document in memory, read once: each step sees what it would read
  // back from the file the step before wrote, the file is written once with what the last step
  // would have written, and the text returned is what `GetSource` would read from it. When the
  // file cannot be read or written, the text is what the file holds.
  std::string CleanseAndGetSource(const std::string& Uri,
                                  std::initializer_list<CleansePass> passes) override;
  // Each argument that is true adds one test, in this order: ActiveDPage, ActiveEnt, ActiveAttrib,
  // ActiveDocument set; `GetSource` not empty; TreeCtrl, SourceRTB, SelectedRTB, BrowserCtrl set.
  bool IsReady(bool CheckActiveDPage, bool CheckActiveEnt, bool CheckActiveAttrib,
               bool CheckActiveDocument, bool CheckSourceText, bool CheckTreeCtrl,
               bool CheckSourceRTB, bool CheckSelectedRTB, bool CheckBrowserCtrl) override;

 private:
  // The cleansing steps of `CleanseDocument`; each reads and rewrites the whole file.
  // Keeps only what stands between the first "<HTML>" and the last "</HTML>" (when something
  // does), removes every other "<HTML>" and "</HTML>", wraps the text in "<HTML>" ... "</HTML>",
  // and disarms error traps by turning "OnError=" into "OnEror=". Searches ignore case.
  void CleanDocument(const std::string& Path);
  // Removes `Length` characters from the start.
  void RemoveStart(const std::string& path, long Length);
  // Replaces every occurrence, ignoring case.
  void ReplaceInFile(const std::string& path, const std::string& searchVal,
                     const std::string& replaceVal);
  // A global, case-sensitive regular expression replacement.
  void RegExReplace(const std::string& path, const std::string& Pattern,
                    const std::string& ReplaceString);
  // Removes `startTag` ... `endTag` pairs (both included) while the first end tag stands after the
  // first start tag; a stray end tag before the first start tag ends the removal.
  void RemoveTags(const std::string& path, const std::string& startTag, const std::string& endTag);
  // `BString::ReplaceInsideTokens` over the file.
  void ReplaceInsideTags(const std::string& path, const std::string& StartTag,
                         const std::string& EndTag, const std::string& Pattern,
                         const std::string& ReplaceString);

  std::string doc_type_;
  ObjectPtr tree_ctrl_, selected_rtb_, source_rtb_, browser_ctrl_, active_document_;
  std::shared_ptr<EventTunnel> event_svc_;
  std::shared_ptr<UI_DataPage> active_dpage_;
  std::shared_ptr<UI_Entity> active_ent_;
  std::shared_ptr<UI_Attrib> active_attrib_;
  std::string source_text_;
  bool is_browser_sel_frozen_ = false;
  std::string document_address_;  // set by OpenDocument, read by GetSource
};

}  // namespace gw
