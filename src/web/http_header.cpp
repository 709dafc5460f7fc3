#include "web/http_header.h"

#include "platform/text.h"

namespace gw::web {

void HttpHeaderElement::AddParameter(std::string_view name, std::string value) {
  parameters_.Set(name, std::move(value));
}

std::string HttpHeaderElement::GetParameter(std::string_view name) const {
  const std::string* value = parameters_.Find(name);
  return value == nullptr ? std::string() : *value;
}

const HttpHeaderElements& HttpHeader::Elements() const {
  if (!elements_) elements_ = HttpUtility::ParseHttpHeader(value_, true);
  return *elements_;
}

std::shared_ptr<HttpHeaderElement> HttpHeader::GetElementByName(std::string_view name) const {
  return ReportAs("HttpHeader.GetElementByName(Name)", Args(name),
                  [&]() -> std::shared_ptr<HttpHeaderElement> {
                    const std::string wanted = text::ToUpper(text::TrimSpaces(name));
                    for (const auto& element : Elements()) {
                      if (text::ToUpper(text::TrimSpaces(element->Name())) == wanted)
                        return element;
                    }
                    return nullptr;
                  });
}

}  // namespace gw::web
