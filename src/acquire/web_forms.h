// The forms of a page and their controls, read from the document tree, and printed as templates
// of the Form Submit Statement: `BuildXMLTemplate` (the "<formvariables>" form, for POST forms)
// and `BuildQueryTemplate` (an address with a query, for GET forms), each with the controls'
// values or with sample values.
//
// A control's kind comes from its tag and type:
//   INPUT  TEXT TextBox, PASSWORD Password, FILE File, HIDDEN Hidden, RADIO RadioButton,
//          CHECKBOX CheckBox, SUBMIT SubmitButton, RESET ResetButton, BUTTON StdButton,
//          IMAGE ImageButton; any other type (EMAIL, NUMBER, DATE...) is a TextBox, as the
//          platform's document reported such inputs as text
//   SELECT ListBox with `multiple`, DropdownList without
//   BUTTON SUBMIT SubmitButton, RESET ResetButton, BUTTON StdButton
//   TEXTAREA TextArea (`MaxLength` 0)
// Its `Id` is its name, or its id when it has none (a text area: its id first).
#pragma once

#include <memory>
#include <string>

#include "platform/collection.h"
#include "platform/html/document.h"

namespace gw {

class WebPage;
class ResponseWebForm;

enum class CtrlType : int {
  Password = 0,
  File = 1,
  Hidden = 2,
  TextBox = 3,
  TextArea = 4,
  RadioButton = 5,
  CheckBox = 6,
  ListBox = 7,
  DropdownList = 8,
  StdButton = 9,
  SubmitButton = 10,
  ResetButton = 11,
  ImageButton = 12,
};

class WebCtrl : public Object {
 public:
  std::string TypeName() const override { return "WebCtrl"; }

  // Where the control stands in its page (`WebPage::GetElementPath`).
  const std::string& ElementPath() const { return element_path_; }
  // The control's HTML (`outerHTML`), as it was when it was loaded.
  const std::string& ToString() const { return html_; }
  // "Id=value" with the value or, with `IncludeSampleData`, the sample value; a radio button
  // gives its Id alone; an image button gives "Id.y=value" only (no ".x" pair). Values are not
  // escaped.
  std::string BuildQuerystringParam(bool IncludeSampleData = false) const;
  // "<ctrl id='Id' value='value' />" with both escaped by `UrlEncodeForHtml`; an image button
  // gives two such nodes, for "Id.x" and "Id.y".
  std::string BuildXMLNode(bool IncludeSampleData = false) const;
  // A value that a form would accept: "SamplePassword", "C:\Temp\SampleFile.txt",
  // "Sample_Hidden_Value", "Sample Text" (text boxes and areas), "on" (check boxes), a list's first
  // option's key, "2" (image buttons); otherwise `Value`.
  std::string GetSampleValue() const;
  long MaxLength() const { return max_length_; }
  // Option key (its value, or its text when the value is empty) to option text, in order; a key
  // seen again replaces the text.
  const Dictionary<std::string>& Options() const { return options_; }
  std::shared_ptr<ResponseWebForm> Parent() const { return parent_.lock(); }
  CtrlType ControlType() const { return control_type_; }
  // A list's value is the keys of its selected options, joined by ", ".
  const std::string& Value() const { return value_; }
  void SetValue(std::string v) { value_ = std::move(v); }
  const std::string& Id() const { return id_; }
  // "Password", "File", "Hidden", "Textbox", "Text Area", "Option Button", "Check Box", "List",
  // "Dropdown", "Button", "Submit", "Reset", "Image Button".
  std::string GetCtrlTypeAsString() const;

 private:
  // A form makes its controls through `WebCtrls::Add` and reads them from its elements.
  friend class WebCtrls;
  friend class ResponseWebForm;
  void SetParent(const std::shared_ptr<ResponseWebForm>& parent) { parent_ = parent; }
  // Reads the control from its element; an element that is no control leaves it a TextBox with
  // the element's id and value.
  void LoadFromObject(const html::Element& htmlCtrl);
  void BuildOptions(const html::Element& select);

  std::string id_;
  std::string value_;
  CtrlType control_type_ = CtrlType::Password;
  std::weak_ptr<ResponseWebForm> parent_;
  Dictionary<std::string> options_;
  long max_length_ = 0;
  std::string html_;
  std::string element_path_;
};

using WebCtrlPtr = std::shared_ptr<WebCtrl>;

class WebCtrls : public CollectionOf<WebCtrlPtr> {
 public:
  // A new control of `parent`, added (with `sKey` when given, which must be new).
  WebCtrlPtr Add(const std::shared_ptr<ResponseWebForm>& parent, std::string_view sKey = {});
};

class ResponseWebForm : public Object {
 public:
  std::string TypeName() const override { return "ResponseWebForm"; }

  const std::string& ElementPath() const { return element_path_; }
  std::shared_ptr<WebPage> Parent() const { return parent_.lock(); }
  // Reads the form: `Action` absolute, `Id` (its id, else its name), `Method` in capitals, its
  // controls (its elements, then its image buttons, which the elements leave out), its path.
  void LoadFromDOM(const html::Element& formNode, const std::shared_ptr<WebPage>& ParentPage);
  // The form's action resolved against the page's address, in escaped form; the page's own
  // address when the action is empty.
  std::string GetAbsoluteActionUrl(const html::Element& formNode) const;
  // For a POST form `Action` + "<formvariables>" + every control's node + "</formvariables>";
  // otherwise a text that recommends the query form.
  std::string BuildXMLTemplate(bool IncludeSampleData = false) const;
  // For a GET form, or an action without a query: scheme "://" host, path and query of `Action`
  // (the port is not written), then "?" (or "&" after a query) and each control's parameter,
  // joined by "&"; otherwise a text that recommends the XML form.
  std::string BuildQueryTemplate(bool IncludeSampleData = false) const;
  // The form's HTML.
  std::string ToString() const { return dom_node_.outerHTML(); }
  const std::string& Action() const { return action_; }
  void SetAction(std::string v) { action_ = std::move(v); }
  // Kept and returned in capitals.
  const std::string& Method() const { return method_; }
  void SetMethod(std::string_view v);
  const std::string& Id() const { return id_; }
  WebCtrls& Controls() { return controls_; }
  const WebCtrls& Controls() const { return controls_; }
  const html::Element& DomNode() const { return dom_node_; }

 private:
  void LoadControls(const html::Element& formNode);

  WebCtrls controls_;
  std::string id_;
  std::string method_;
  std::string action_;
  std::weak_ptr<WebPage> parent_;
  html::Element dom_node_;
  std::string element_path_;
};

using ResponseWebFormPtr = std::shared_ptr<ResponseWebForm>;

class ResponseWebForms : public CollectionOf<ResponseWebFormPtr> {
 public:
  ResponseWebFormPtr Add(std::string_view sKey = {});
};

}  // namespace gw
