// IDocPlugin: the contract between the library and a document type, and EventTunnel, which carries
// a plug-in's change notices to the host.
//
// The template editor drives a plug-in to show a document and turn a selection into fields and
// datasets; a package run uses three of its members to read a document: `CleanseDocument`,
// `OpenDocument` and `GetSource` (see `Doc::GetSrcText`). The engine declares the contract and
// makes plug-ins through the component registry (engine/components.h); the HTML plug-in lives in
// the design layer, above the engine.
//
// The host's controls (tree, rich text boxes, browser, the browser's document, progress bars) are
// handed through as opaque objects. The design-time wrappers are declared here and defined by the
// design layer.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include "platform/signal.h"
#include "platform/variant.h"

namespace gw {

class UI_DataPage;
class UI_Entity;
class UI_Attrib;

// Change notices from a plug-in to the host. Each `Raise...` raises the event of the same stem
// with the same argument.
class EventTunnel : public Object {
 public:
  std::string TypeName() const override { return "EventTunnel"; }

  void RaiseActiveDpageChange(const std::shared_ptr<UI_DataPage>& ActiveDPage) {
    OnActiveDpageChange.Emit(ActiveDPage);
  }
  void RaiseActiveEntChange(const std::shared_ptr<UI_Entity>& ActiveEnt) {
    OnActiveEntChange.Emit(ActiveEnt);
  }
  void RaiseActiveAttribChange(const std::shared_ptr<UI_Attrib>& ActiveAttrib) {
    OnActiveAttribChange.Emit(ActiveAttrib);
  }
  void RaiseActiveDocChange(const ObjectPtr& ActiveDoc) { OnActiveDocChange.Emit(ActiveDoc); }

  Signal<const std::shared_ptr<UI_DataPage>&> OnActiveDpageChange;
  Signal<const std::shared_ptr<UI_Entity>&> OnActiveEntChange;
  Signal<const std::shared_ptr<UI_Attrib>&> OnActiveAttribChange;
  Signal<const ObjectPtr&> OnActiveDocChange;
};

// The forty members of the contract, in their order.
class IDocPlugin {
 public:
  virtual ~IDocPlugin() = default;

  virtual void SetDocType(const std::string& DocType) = 0;                     // 1
  virtual std::string DocType() const = 0;                                     // 2
  virtual void SetTreeCtrl(const ObjectPtr& TreeCtrl) = 0;                     // 3
  virtual ObjectPtr TreeCtrl() const = 0;                                      // 4
  virtual long EmbeddedDocCount() = 0;                                         // 5
  virtual void SetSelectedRTB(const ObjectPtr& SelectedRTB) = 0;               // 6
  virtual ObjectPtr SelectedRTB() const = 0;                                   // 7
  virtual void SetSourceRTB(const ObjectPtr& SourceRTB) = 0;                   // 8
  virtual ObjectPtr SourceRTB() const = 0;                                     // 9
  virtual void SetBrowserCtrl(const ObjectPtr& BrowserCtrl) = 0;               // 10
  virtual ObjectPtr BrowserCtrl() const = 0;                                   // 11
  virtual void SetActiveDocument(const ObjectPtr& ActiveDocument) = 0;         // 12
  virtual ObjectPtr ActiveDocument() const = 0;                                // 13
  virtual void SetEventSvc(const std::shared_ptr<EventTunnel>& EventSvc) = 0;  // 14
  virtual std::shared_ptr<EventTunnel> EventSvc() const = 0;                   // 15
  virtual void SetActiveDPage(const std::shared_ptr<UI_DataPage>& page) = 0;   // 16
  virtual std::shared_ptr<UI_DataPage> ActiveDPage() const = 0;                // 17
  virtual void SetActiveAttrib(const std::shared_ptr<UI_Attrib>& attrib) = 0;  // 18
  virtual std::shared_ptr<UI_Attrib> ActiveAttrib() const = 0;                 // 19
  virtual void SetSourceText(const std::string& SourceText) = 0;               // 20
  virtual std::string SourceText() const = 0;                                  // 21
  virtual void SetIsBrowserSelFrozen(bool IsBrowserSelFrozen) = 0;             // 22
  virtual bool IsBrowserSelFrozen() const = 0;                                 // 23
  virtual void SetActiveEnt(const std::shared_ptr<UI_Entity>& entity) = 0;     // 24
  virtual std::shared_ptr<UI_Entity> ActiveEnt() const = 0;                    // 25
  virtual long CurrSelectionPos() = 0;                                         // 26
  virtual void ShowDataPage() = 0;                                             // 27
  virtual void ShowEntity() = 0;                                               // 28
  virtual void ShowAttrib() = 0;                                               // 29
  virtual void GetBrowserSelection(long& SelStart, long& SelLength) = 0;       // 30
  virtual void SetBrowserSelection(long SelStart, long SelLength) = 0;         // 31
  virtual std::string GetSelectedText() = 0;                                   // 32
  virtual std::shared_ptr<UI_DataPage> AddDataPage(const ObjectPtr& ProgressBar = nullptr) = 0;
  virtual std::shared_ptr<UI_Entity> AddEntity(long OccurCount,  // 34
                                               const ObjectPtr& ProgressBar = nullptr) = 0;
  virtual std::shared_ptr<UI_Attrib> AddAttribute(const ObjectPtr& ProgressBar = nullptr) = 0;
  // The document's text, normalised; it also becomes `SourceText`.                36
  virtual std::string GetSource() = 0;
  virtual std::string WriteTemplate(const ObjectPtr& ProgressBar = nullptr) = 0;  // 37
  // Opens the document at `Uri` (a local path in a run); the value is not used.    38
  virtual Variant OpenDocument(const std::string& Uri) = 0;
  // Rewrites the local file `Uri` in place by the named method; tolerates every failure.  39
  virtual void CleanseDocument(const std::string& Uri, const std::string& CleanseMethod = {},
                               const std::string& Parameters = {}) = 0;
  virtual bool IsReady(bool CheckActiveDPage, bool CheckActiveEnt, bool CheckActiveAttrib,  // 40
                       bool CheckActiveDocument, bool CheckSourceText, bool CheckTreeCtrl,
                       bool CheckSourceRTB, bool CheckSelectedRTB, bool CheckBrowserCtrl) = 0;

  // Not one of the forty: what a run does with each document in one call. Cleanses the file at
  // `Uri` by each of `passes` (method, parameters) in turn, opens it and returns `GetSource`. A
  // plug-in may do it without writing and reading the file between the steps, as long as the file
  // ends as the passes leave it and the text is what `GetSource` would read from it.
  struct CleansePass {
    std::string method;
    std::string parameters;
  };
  virtual std::string CleanseAndGetSource(const std::string& Uri,
                                          std::initializer_list<CleansePass> passes) {
    for (const CleansePass& pass : passes) CleanseDocument(Uri, pass.method, pass.parameters);
    OpenDocument(Uri);
    return GetSource();
  }

  Signal<> OnActiveDpageChange;
  Signal<> OnActiveEntChange;
  Signal<> OnActiveAttribChange;
  Signal<> OnActiveDocChange;
};

using DocPluginPtr = std::shared_ptr<IDocPlugin>;

}  // namespace gw
