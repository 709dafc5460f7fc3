#include "acquire/web_forms.h"

#include "acquire/web_page.h"
#include "platform/error.h"
#include "platform/text.h"
#include "web/http_utility.h"
#include "web/uri.h"

namespace gw {

namespace {

struct InputKind {
  std::string_view type;
  CtrlType control;
};

constexpr InputKind kInputKinds[] = {
    {"TEXT", CtrlType::TextBox},        {"PASSWORD", CtrlType::Password},
    {"FILE", CtrlType::File},           {"HIDDEN", CtrlType::Hidden},
    {"RADIO", CtrlType::RadioButton},   {"CHECKBOX", CtrlType::CheckBox},
    {"SUBMIT", CtrlType::SubmitButton}, {"RESET", CtrlType::ResetButton},
    {"BUTTON", CtrlType::StdButton},    {"IMAGE", CtrlType::ImageButton},
};

std::string XmlNode(std::string_view id, std::string_view value) {
  return "<ctrl id='" + web::HttpUtility::UrlEncodeForHtml(id) + "' value='" +
         web::HttpUtility::UrlEncodeForHtml(value) + "' />";
}

}  // namespace

// ---- WebCtrl ----------------------------------------------------------------------------------

void WebCtrl::LoadFromObject(const html::Element& htmlCtrl) {
  ReportAs("WebCtrl.LoadFromObject(htmlCtrl)", Args(htmlCtrl), [&] {
    if (auto form = parent_.lock()) {
      if (auto page = form->Parent()) element_path_ = page->GetElementPath(htmlCtrl);
    }
    const std::string tag = htmlCtrl.tagName();
    id_ = htmlCtrl.name();
    if (id_.empty()) id_ = htmlCtrl.id();
    value_ = htmlCtrl.value();
    html_ = htmlCtrl.outerHTML();
    control_type_ = CtrlType::TextBox;
    if (tag == "INPUT") {
      const std::string type = text::AsciiUpper(htmlCtrl.type());
      for (const InputKind& kind : kInputKinds) {
        if (type == kind.type) control_type_ = kind.control;
      }
      max_length_ = htmlCtrl.maxLength();
    } else if (tag == "SELECT") {
      control_type_ = htmlCtrl.multiple() ? CtrlType::ListBox : CtrlType::DropdownList;
      BuildOptions(htmlCtrl);
    } else if (tag == "BUTTON") {
      const std::string type = text::AsciiUpper(htmlCtrl.type());
      control_type_ = type == "RESET"    ? CtrlType::ResetButton
                      : type == "BUTTON" ? CtrlType::StdButton
                                         : CtrlType::SubmitButton;
    } else if (tag == "TEXTAREA") {
      control_type_ = CtrlType::TextArea;
      max_length_ = 0;
      if (!htmlCtrl.id().empty()) id_ = htmlCtrl.id();
    }
  });
}

void WebCtrl::BuildOptions(const html::Element& select) {
  value_.clear();
  options_.RemoveAll();
  for (const html::Element& option : select.options()) {
    const std::string text = option.text();
    std::string key = option.value();
    if (key.empty()) key = text;
    options_.Set(key, text);
    if (option.selected()) {
      if (!value_.empty()) value_ += ", ";
      value_ += key;
    }
  }
}

std::string WebCtrl::GetCtrlTypeAsString() const {
  static constexpr std::string_view kNames[] = {
      "Password", "File",     "Hidden", "Textbox", "Text Area", "Option Button", "Check Box",
      "List",     "Dropdown", "Button", "Submit",  "Reset",     "Image Button"};
  const int index = static_cast<int>(control_type_);
  if (index < 0 || index >= static_cast<int>(std::size(kNames))) return {};
  return std::string(kNames[index]);
}

std::string WebCtrl::GetSampleValue() const {
  switch (control_type_) {
    case CtrlType::Password:
      return "SamplePassword";
    case CtrlType::File:
      return "C:\\Temp\\SampleFile.txt";
    case CtrlType::Hidden:
      return "Sample_Hidden_Value";
    case CtrlType::TextBox:
    case CtrlType::TextArea:
      return "Sample Text";
    case CtrlType::CheckBox:
      return "on";
    case CtrlType::ListBox:
    case CtrlType::DropdownList:
      return options_.Count() > 0 ? options_.begin()->first : std::string();
    case CtrlType::ImageButton:
      return "2";
    default:
      return value_;
  }
}

std::string WebCtrl::BuildQuerystringParam(bool IncludeSampleData) const {
  const std::string value = IncludeSampleData ? GetSampleValue() : value_;
  switch (control_type_) {
    case CtrlType::RadioButton:
      return id_;
    case CtrlType::ImageButton:
      // The ".x" pair is made and then replaced by the ".y" pair: only ".y" is sent.
      return id_ + ".y=" + value;
    default:
      return id_ + "=" + value;
  }
}

std::string WebCtrl::BuildXMLNode(bool IncludeSampleData) const {
  const std::string value = IncludeSampleData ? GetSampleValue() : value_;
  if (control_type_ == CtrlType::ImageButton) {
    return XmlNode(id_ + ".x", value) + XmlNode(id_ + ".y", value);
  }
  return XmlNode(id_, value);
}

WebCtrlPtr WebCtrls::Add(const std::shared_ptr<ResponseWebForm>& parent, std::string_view sKey) {
  auto ctrl = std::make_shared<WebCtrl>();
  ctrl->SetParent(parent);
  return items_.Add(ctrl, sKey);
}

// ---- ResponseWebForm --------------------------------------------------------------------------

void ResponseWebForm::SetMethod(std::string_view v) { method_ = text::AsciiUpper(v); }

void ResponseWebForm::LoadFromDOM(const html::Element& formNode,
                                  const std::shared_ptr<WebPage>& ParentPage) {
  ReportAs("ResponseWebForm.LoadFromDOM(formNode,ParentPage)", Args(formNode, ParentPage), [&] {
    parent_ = ParentPage;
    dom_node_ = formNode;
    action_ = GetAbsoluteActionUrl(formNode);
    id_ = formNode.id();
    if (id_.empty()) id_ = formNode.name();
    SetMethod(formNode.method());
    LoadControls(formNode);
    if (ParentPage) element_path_ = ParentPage->GetElementPath(formNode);
  });
}

void ResponseWebForm::LoadControls(const html::Element& formNode) {
  const auto self = std::static_pointer_cast<ResponseWebForm>(shared_from_this());
  for (const html::Element& element : formNode.elements()) {
    const std::string tag = element.tagName();
    if (tag == "INPUT" || tag == "SELECT" || tag == "TEXTAREA" || tag == "BUTTON") {
      controls_.Add(self)->LoadFromObject(element);
    }
  }
  // The form's elements leave image buttons out.
  for (const html::Element& input : formNode.tags("INPUT")) {
    if (text::AsciiUpper(input.type()) == "IMAGE") controls_.Add(self)->LoadFromObject(input);
  }
}

std::string ResponseWebForm::GetAbsoluteActionUrl(const html::Element& formNode) const {
  return ReportAs("ResponseWebForm.GetAbsoluteActionUrl(formNode)", Args(formNode), [&] {
    auto page = parent_.lock();
    const web::Uri* base = page ? &page->url() : nullptr;
    const std::string action = formNode.action();
    if (action.empty()) return base ? base->ToExternalForm() : std::string();
    return web::Uri(action, base).ToExternalForm();
  });
}

std::string ResponseWebForm::BuildXMLTemplate(bool IncludeSampleData) const {
  if (method_ != "POST") {
    return "The XML Style format is not recommended for this form because the form's method is "
           "'GET' as opposed to 'POST', so the querystring style is the method that will work.";
  }
  std::string out = action_ + "<formvariables>";
  for (const WebCtrlPtr& ctrl : controls_) out += ctrl->BuildXMLNode(IncludeSampleData);
  return out + "</formvariables>";
}

std::string ResponseWebForm::BuildQueryTemplate(bool IncludeSampleData) const {
  return ReportAs(
      "ResponseWebForm.BuildQueryTemplate(IncludeSampleData)", Args(IncludeSampleData), [&] {
        const web::Uri action(action_);
        if (method_ != "GET" && !action.QueryString().empty()) {
          return "The querystring format is not recommended for use with this form because the "
                 "action url (" +
                 action_ +
                 ") already contains a querystring.  You should use the XML style format "
                 "instead.";
        }
        std::string out = action.scheme() + "://" + action.Host() + action.PathAndQuery();
        out += action.QueryString().empty() ? "?" : "&";
        for (const WebCtrlPtr& ctrl : controls_)
          out += ctrl->BuildQuerystringParam(IncludeSampleData) + "&";
        out.pop_back();
        return out;
      });
}

ResponseWebFormPtr ResponseWebForms::Add(std::string_view sKey) {
  return items_.Add(std::make_shared<ResponseWebForm>(), sKey);
}

}  // namespace gw
