#include "web/http_client.h"

#include "infra/object_frame.h"
#include "platform/error.h"
#include "platform/property_table.h"
#include "platform/text.h"

namespace gw::web {

const PropertyTable* HttpClient::GetPropertyTable() const {
  // In the order of the class's interface; the object properties are on the ignore list of the
  // text form and are not offered.
  static const PropertyTable table =
      PropertyTableBuilder<HttpClient>("HttpClient")
          .Value("UserAgent", &HttpClient::UserAgent, &HttpClient::SetUserAgent)
          .Value("UserName", &HttpClient::UserName, &HttpClient::SetUserName)
          .Value("Password", &HttpClient::Password, &HttpClient::SetPassword)
          .Value("StaticRefererUrl", &HttpClient::StaticRefererUrl,
                 &HttpClient::SetStaticRefererUrl)
          .Value("StaticRelativeUrlString", &HttpClient::StaticRelativeUrlString,
                 &HttpClient::SetStaticRelativeUrlString)
          .Value("IsReady", &HttpClient::IsReady)
          .Value("AreCookiesDisabled", &HttpClient::AreCookiesDisabled,
                 &HttpClient::SetAreCookiesDisabled)
          .Build();
  return &table;
}

bool HttpClient::PostFormBlindly(const std::string&, const Dictionary<Variant>&) { return false; }

void HttpClient::GetPage(const std::string& url, bool Asynch) {
  ReportAs("HttpClient.GetPage(url,Asynch)", Args(url, Asynch), [&] {
    async_ = Asynch;
    DoWebRequest(url, "GET", "");
  });
}

void HttpClient::SubmitForm(const WebForm& form, bool Asynch) {
  ReportAs("HttpClient.SubmitForm(form,Asynch)", Args(form, Asynch), [&] {
    async_ = Asynch;
    DoWebRequest(form.Action(), form.Method(), form.GetFormVariables());
  });
}

std::string HttpClient::StaticRelativeUrlString() const {
  return static_relative_ ? static_relative_->ToString() : std::string();
}

void HttpClient::SetStaticRelativeUrlString(const std::string& value) {
  ReportAs("HttpClient.StaticRelativeUrlString", [&] {
    if (value.empty()) {
      static_relative_.reset();
      return;
    }
    auto uri = std::make_shared<Uri>();
    uri->Parse(value);
    static_relative_ = std::move(uri);
  });
}

const std::shared_ptr<CookieContainer>& HttpClient::Cookies() {
  if (!cookies_) cookies_ = std::make_shared<CookieContainer>();
  return cookies_;
}

void HttpClient::InheritFrom(HttpClient& AncestralClient) {
  ReportAs("HttpClient.InheritFrom(AncestralClient)", Args(AncestralClient), [&] {
    Cookies()->MergeFrom(*AncestralClient.Cookies());
    if (user_agent_.empty()) user_agent_ = AncestralClient.user_agent_;
    if (user_name_.empty()) {
      user_name_ = AncestralClient.user_name_;
      password_ = AncestralClient.password_;
    }
    if (!response_) response_ = AncestralClient.response_;
    if (!current_url_) current_url_ = AncestralClient.current_url_;
    if (!static_relative_) static_relative_ = AncestralClient.static_relative_;
    if (static_referer_.empty()) static_referer_ = AncestralClient.static_referer_;
  });
}

std::shared_ptr<HttpClient> HttpClient::Clone() {
  return ReportAs("HttpClient.Clone", [&] {
    auto copy = Create();
    copy->Cookies()->MergeFrom(*Cookies());
    copy->current_url_ = current_url_;
    copy->response_ = response_;
    copy->static_relative_ = static_relative_;
    copy->static_referer_ = static_referer_;
    copy->user_agent_ = user_agent_;
    copy->user_name_ = user_name_;
    copy->password_ = password_;
    copy->cookies_disabled_ = cookies_disabled_;
    return copy;
  });
}

ObjectPtr HttpClient::CloneObject() const { return const_cast<HttpClient*>(this)->Clone(); }

std::string HttpClient::Serialize() {
  return ReportAs("HttpClient.Serialize", [&] {
    XmlSerializer serializer;
    serializer.SetIgnoreList(
        "HttpClient.CurrentUrl;HttpClient.HttpResponse;HttpClient.IsReady;"
        "HttpClient.StaticRelativeUrl;HttpClient.Cookies");
    return FrameObjectText("CLI", serializer.Serialize(*this)) +
           FrameObjectText("CKE", Cookies()->Serialize());
  });
}

void HttpClient::Deserialize(std::string_view text) {
  ReportAs("HttpClient.Deserialize(xml)", [&] {
    const std::string client = UnframeObjectText(text, "CLI");
    const std::string cookies = UnframeObjectText(text, "CKE");
    if (!client.empty()) XmlSerializer().Deserialize(*this, client);
    if (!cookies.empty()) Cookies()->Deserialize(cookies);
  });
}

void HttpClient::DoWebRequest(const std::string& Url, const std::string& Method,
                              const std::string& FormVariables) {
  ReportAs("HttpClient.DoWebRequest(Url,Method,FormVariables)", Args(Url, Method, FormVariables),
           [&] {
             const bool is_post = text::ToUpper(Method) == "POST";
             UpdateCurrentUrl(Url, is_post, FormVariables);
             // Replacing the request abandons one still in flight; it raises nothing after this.
             complete_connection_.Disconnect();
             error_connection_.Disconnect();
             // The last request's transport serves this one when nothing else holds that
             // request (a host's handler of its completion, or a reader of `CurrentRequest`).
             std::shared_ptr<HttpTransport> transport;
             if (request_ && request_.use_count() == 1) transport = request_->ReleaseTransport();
             request_ = CreateRequest(Method, FormVariables);
             if (transport) request_->AdoptTransport(std::move(transport));
             if (is_post) WriteRequestBody(*request_, FormVariables);
             if (async_) {
               is_ready_ = false;
               complete_connection_ = request_->AsynchResponseComplete.Connect(
                   [this](std::shared_ptr<HttpWebResponse> r) { OnResponseComplete(r); });
               error_connection_ = request_->AsynchResponseError.Connect(
                   [this](ErrorNumber n, const std::string& d) { OnResponseError(n, d); });
               request_->SendAsynchRequest();
             } else {
               is_ready_ = true;
               HandleResponse(SendRequest(*request_));
             }
           });
}

void HttpClient::UpdateCurrentUrl(const std::string& Url, bool IsPost,
                                  const std::string& FormVariables) {
  ReportAs("HttpClient.UpdateCurrentUrl(Url,IsPost,FormVariables)",
           Args(Url, IsPost, FormVariables), [&] {
             if (!current_url_) {
               current_url_ = std::make_shared<Uri>();
               try {
                 current_url_->Parse(Url);
               } catch (const Error& e) {
                 if (e.Number() == errnum::kNoScheme) current_url_->Parse("http://" + Url);
               }
             } else {
               // The address is its own base: `Parse` clears it first, so only absolute text
               // resolves.
               current_url_->Parse(Url, current_url_.get());
             }
             if (!IsPost && !FormVariables.empty()) current_url_->SetQueryString(FormVariables);
           });
}

std::shared_ptr<HttpWebRequest> HttpClient::CreateRequest(const std::string& Method,
                                                          const std::string&) {
  return ReportAs("HttpClient.CreateRequest(Method,FormVariables)", Args(Method), [&] {
    auto request = HttpWebRequest::Create();
    request->SetRequestUri(current_url_->Clone());
    request->SetMethod(text::ToUpper(Method));
    request->SetUserAgent(user_agent_);
    request->SetRefererUrl(static_referer_);
    request->SetUserName(user_name_);
    request->SetPassword(password_);
    request->SetAreCookiesDisabled(cookies_disabled_);
    if (!cookies_disabled_) request->Cookies()->MergeFrom(*Cookies());
    request->SetAllowAutoRedirect(true);
    request->SetMaximumAutomaticRedirections(10);
    return request;
  });
}

void HttpClient::WriteRequestBody(HttpWebRequest& request, const std::string& FormVariables) {
  ReportAs("HttpClient.WriteRequestBody(request,FormVariables)", Args(request, FormVariables), [&] {
    request.SetContentType("application/x-www-form-urlencoded");
    request.SetContentLength(static_cast<long>(text::CountCodePoints(FormVariables)));
    request.SetBody(FormVariables);
  });
}

std::shared_ptr<HttpWebResponse> HttpClient::SendRequest(HttpWebRequest& request) {
  return ReportAs("HttpClient.SendRequest(request)", Args(request),
                  [&] { return request.GetResponse(); });
}

void HttpClient::HandleResponse(const std::shared_ptr<HttpWebResponse>& response) {
  ReportAs("HttpClient.HandleResponse(response)", Args(response), [&] {
    response_ = response;
    current_url_ = GetUrlFromResponse(response);
    ReadHttpResponse(response);
  });
}

std::shared_ptr<Uri> HttpClient::GetUrlFromResponse(
    const std::shared_ptr<HttpWebResponse>& response) {
  if (!response) return nullptr;
  return response->ResponseUri() ? response->ResponseUri() : std::make_shared<Uri>();
}

std::string HttpClient::GetRedirectUrl(const HttpWebResponse& response) {
  const auto* location = response.Headers().Find("Location");
  return location ? (*location)->Value() : std::string();
}

void HttpClient::ReadHttpResponse(const std::shared_ptr<HttpWebResponse>& response) {
  if (response) Cookies()->MergeFrom(*response->Cookies());
}

void HttpClient::OnResponseComplete(const std::shared_ptr<HttpWebResponse>& response) {
  if (!async_) return;
  // A handler may drop the last reference to this client; keep it until the event is over.
  const auto keep = weak_from_this().lock();
  HandleResponse(response);
  AsynchRequestComplete.Emit("");
  is_ready_ = true;
}

void HttpClient::OnResponseError(ErrorNumber, const std::string& description) {
  if (!async_) return;
  const auto keep = weak_from_this().lock();
  AsynchRequestComplete.Emit(description);
  is_ready_ = true;
}

}  // namespace gw::web
