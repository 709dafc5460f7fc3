#include "web/http_web_request.h"

#include <exception>

#include "platform/charset.h"
#include "platform/error.h"
#include "platform/text.h"
#include "web/web_settings.h"

namespace gw::web {

HttpStatusType StatusTypeOf(long code) noexcept {
  if (code >= 100 && code <= 199) return HttpStatusType::Informational;
  if (code >= 200 && code <= 299) return HttpStatusType::Successful;
  if (code >= 300 && code <= 399) return HttpStatusType::Redirect;
  if (code >= 400 && code <= 499) return HttpStatusType::ClientError;
  if (code >= 500 && code <= 599) return HttpStatusType::ServerError;
  return HttpStatusType::None;
}

// ---- HttpWebResponse ------------------------------------------------------------------------

HttpWebResponse::~HttpWebResponse() { HttpTransport::RecycleBody(std::move(raw_body_)); }

std::string HttpWebResponse::Method() const { return text::ToUpper(method_); }

std::shared_ptr<Stream> HttpWebResponse::BodyStream() const {
  return ReportAs("HttpWebResponse.BodyStream", [&] {
    auto stream = std::make_shared<Stream>();
    if (const auto* content_type = Headers().Find("Content-Type")) {
      try {
        if (auto charset = (*content_type)->GetElementByName("Charset")) {
          stream->SetCharset(charset->Value());
        }
      } catch (const std::exception&) {
        // A Content-Type that cannot be parsed gives no character set.
      }
    }
    stream->SetType(Stream::kBinary);
    stream->Open();
    stream->Write(raw_body_);
    return stream;
  });
}

const BString& HttpWebResponse::BodyText() const {
  if (!body_decoded_) {
    body_text_ = BString(DecodeToUtf8(raw_body_, CharsetFromContentType(content_type_)).text);
    body_decoded_ = true;
  }
  return body_text_;
}

std::string HttpWebResponse::HeadersToString() const {
  std::string out;
  for (const auto& [name, header] : Headers()) {
    out += name;
    out += " : ";
    out += header->Value();
    out += "\r\n";
  }
  return out;
}

namespace {

// Whether a line of `headerText` may be a "Set-Cookie" header: its name, spaces trimmed, starts
// so (any case).
bool NamesSetCookie(std::string_view headerText) {
  constexpr std::string_view kName = "set-cookie";
  std::size_t pos = 0;
  while (pos < headerText.size()) {
    std::size_t start = pos;
    while (start < headerText.size() && headerText[start] == ' ') ++start;
    if (text::EqualsNoCase(headerText.substr(start, kName.size()), kName)) return true;
    const std::size_t end = headerText.find('\n', start);
    if (end == std::string_view::npos) break;
    pos = end + 1;
  }
  return false;
}

}  // namespace

void HttpWebResponse::Load(std::string_view headerText, HttpTransport* http,
                           const HttpWebRequest& request) {
  ReportAs("HttpWebResponse.Load(headerText,http,request)", Args(headerText, http, request), [&] {
    response_uri_ = request.RequestUri();
    method_ = request.Method();
    // Without cookies the headers wait for a reader: nothing else here needs them.
    ParseLoadedHeaders();
    if (headers_.Count() == 0 && !NamesSetCookie(headerText)) {
      loaded_headers_ = headerText;
    } else {
      ParseHeaders(headerText);
      cookies_->LoadFromResponseHeaders(headers_);
    }
    if (http) {
      content_type_ = http->ContentType();
      raw_body_ = http->TakeResponseBody();  // read once per hop
      body_text_ = BString();
      body_decoded_ = false;
      status_code_ = http->Status();
      status_text_ = http->StatusText();
    }
  });
}

namespace {

void AddHeaderLines(HttpHeaders& headers, std::string_view headerText) {
  std::size_t pos = 0;
  while (pos <= headerText.size()) {
    std::size_t end = headerText.find('\n', pos);
    if (end == std::string_view::npos) end = headerText.size();
    std::string_view line = headerText.substr(pos, end - pos);
    pos = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) continue;
    std::size_t sep = line.find(':');
    if (sep == std::string_view::npos) sep = line.find(' ');
    if (sep == std::string_view::npos) continue;
    const std::string name(text::TrimSpaces(line.substr(0, sep)));
    std::string value(text::TrimSpaces(line.substr(sep + 1)));
    if (auto* existing = headers.Find(name)) {
      (*existing)->SetValue((*existing)->Value() + ", " + value);
    } else {
      headers.Add(name, std::make_shared<HttpHeader>(name, std::move(value)));
    }
  }
}

}  // namespace

void HttpWebResponse::ParseLoadedHeaders() const {
  if (loaded_headers_.empty()) return;
  const std::string text = std::move(loaded_headers_);
  loaded_headers_.clear();
  ReportAs("HttpWebResponse.ParseHeaders(headerText)", Args(text),
           [&] { AddHeaderLines(headers_, text); });
}

void HttpWebResponse::ParseHeaders(std::string_view headerText) {
  ParseLoadedHeaders();
  ReportAs("HttpWebResponse.ParseHeaders(headerText)", Args(headerText),
           [&] { AddHeaderLines(headers_, headerText); });
}

// ---- HttpWebRequest -------------------------------------------------------------------------

HttpWebRequest::HttpWebRequest() = default;

HttpWebRequest::~HttpWebRequest() {
  if (http_) http_->Abort();
}

std::string HttpWebRequest::HeaderEntry(std::string_view name) const {
  const std::string* v = headers_.Find(name);
  return v ? *v : std::string();
}

void HttpWebRequest::SetHeaderEntry(std::string_view name, std::string_view value) {
  if (value.empty()) return;
  headers_.Set(name, std::string(value));
}

long HttpWebRequest::ContentLength() const {
  const std::string v = HeaderEntry("Content-Length");
  return v.empty() ? 0 : Variant(v).ToLong();
}

void HttpWebRequest::SetContentLength(long value) {
  if (value == 0) return;
  SetHeaderEntry("Content-Length", std::to_string(value));
}

std::string HttpWebRequest::ContentType() const { return HeaderEntry("Content-Type"); }
void HttpWebRequest::SetContentType(std::string_view value) {
  SetHeaderEntry("Content-Type", value);
}
std::string HttpWebRequest::UserAgent() const { return HeaderEntry("User-Agent"); }
void HttpWebRequest::SetUserAgent(std::string_view value) { SetHeaderEntry("User-Agent", value); }
std::string HttpWebRequest::RefererUrl() const { return HeaderEntry("Referer"); }
void HttpWebRequest::SetRefererUrl(std::string_view value) { SetHeaderEntry("Referer", value); }

bool HttpWebRequest::IsPost() const { return text::ToUpper(method_) == "POST"; }

HttpTransport& HttpWebRequest::http() {
  if (!http_) AdoptTransport(HttpTransport::Create());
  return *http_;
}

void HttpWebRequest::AdoptTransport(std::shared_ptr<HttpTransport> transport) {
  if (http_) http_->Abort();
  http_ = std::move(transport);
  // The handlers run from DoEvents; `this` is alive while its transport is, since the
  // transport is abandoned (and so raises nothing) when the request goes.
  finished_connection_ = http_->OnResponseFinished.Connect([this] { OnResponseFinished(); });
  error_connection_ = http_->OnError.Connect(
      [this](ErrorNumber number, const std::string& text) { OnError(number, text); });
}

std::shared_ptr<HttpTransport> HttpWebRequest::ReleaseTransport() {
  if (!http_ || http_->IsPending()) return nullptr;
  finished_connection_.Disconnect();
  error_connection_.Disconnect();
  http_->ClearCredentials();
  return std::move(http_);
}

void HttpWebRequest::SendRequest(bool async) {
  ReportAs("HttpWebRequest.SendRequest", [&] {
    HttpTransport& h = http();
    const WebSettings settings = CurrentWebSettings();
    const std::string* user_agent = headers_.Find("User-Agent");
    if (user_agent != nullptr && !user_agent->empty()) {
      h.SetUserAgent(*user_agent);
    } else {
      h.SetUserAgent(settings.user_agent.empty() ? DefaultUserAgent() : settings.user_agent);
    }
    h.Open(text::ToUpper(method_), request_uri_->ToExternalForm(), async);
    // The transport never redirects, keeps no cookies and sends the address as it is; whether
    // certificate errors are ignored is a setting.
    h.SetSettings(settings.ForTransport());
    h.SetTimeouts(settings.resolve_timeout_ms, settings.connect_timeout_ms,
                  settings.send_timeout_ms, settings.receive_timeout_ms);
    if (!user_name_.empty()) h.SetCredentials(user_name_, password_, CredentialTarget::kServer);
    h.SetRequestHeader("Pragma", "No-Cache");
    for (const auto& [name, value] : headers_) h.SetRequestHeader(name, value);
    if (!cookies_disabled_) {
      const std::string cookie = cookies_->GetRequestHeader();
      if (!cookie.empty()) h.SetRequestHeader("Cookie", cookie);
    }
    if (IsPost()) {
      h.Send(body_);
    } else {
      h.Send();
    }
    if (!async) h.WaitForResponse(600);
  });
}

std::shared_ptr<HttpWebResponse> HttpWebRequest::GetResponse() {
  return ReportAs("HttpWebRequest.GetResponse", [&] {
    async_ = false;
    redirect_count_ = 0;
    auth_attempts_ = 0;
    SendRequest(false);
    return HandleResponse();
  });
}

void HttpWebRequest::SendAsynchRequest() {
  ReportAs("HttpWebRequest.SendAsynchRequest", [&] {
    async_ = true;
    redirect_count_ = 0;
    auth_attempts_ = 0;
    SendRequest(true);
  });
}

std::shared_ptr<HttpWebResponse> HttpWebRequest::HandleResponse() {
  return ReportAs("HttpWebRequest.HandleResponse", [&]() -> std::shared_ptr<HttpWebResponse> {
    HttpTransport& h = http();
    while ((h.Status() == 401 || h.Status() == 407) && auth_attempts_ < 3) {
      const bool proxy = h.Status() == 407;
      if (user_name_.empty() && password_.empty()) {
        if (proxy) {
          throw Error(errnum::kProxyNeedsCredentials, "HttpWebRequest.SendRequest",
                      "The proxy server requires authentication and no credentials were "
                      "supplied.");
        }
        throw Error(errnum::kServerNeedsCredentials, "HttpWebRequest.SendRequest",
                    "The server for the requested url: " + request_uri_->ToString() +
                        " requires authentication and no credentials were supplied.");
      }
      h.SetCredentials(user_name_, password_,
                       proxy ? CredentialTarget::kProxy : CredentialTarget::kServer);
      SendRequest(async_);
      ++auth_attempts_;
      if (async_) return nullptr;  // the answer comes back through OnResponseFinished
    }

    auto response = HttpWebResponse::Create();
    response->Load(h.GetAllResponseHeaders(), &h, *this);

    while (allow_auto_redirect_ && response->StatusType() == HttpStatusType::Redirect &&
           redirect_count_ < max_redirects_) {
      if (!cookies_disabled_) cookies_->MergeFrom(*response->Cookies());
      UpdateRequestUriFromRedirect(*response);
      ++redirect_count_;
      SendRequest(false);
      response = HttpWebResponse::Create();
      response->Load(h.GetAllResponseHeaders(), &h, *this);
    }

    // A site that redirects a POST to a page that refuses POST: once more, as a GET.
    while ((response->StatusType() == HttpStatusType::ClientError ||
            response->StatusType() == HttpStatusType::ServerError) &&
           redirect_count_ >= 1 && redirect_count_ < max_redirects_ && method_ == "POST") {
      if (!cookies_disabled_) cookies_->MergeFrom(*response->Cookies());
      method_ = "GET";
      SendRequest(false);
      response = HttpWebResponse::Create();
      response->Load(h.GetAllResponseHeaders(), &h, *this);
      ++redirect_count_;
    }
    return response;
  });
}

void HttpWebRequest::UpdateRequestUriFromRedirect(const HttpWebResponse& response) {
  ReportAs("HttpWebRequest.UpdateRequestUriFromRedirect(response)", Args(response), [&] {
    std::string location;
    if (const auto* header = response.Headers().Find("Location")) location = (*header)->Value();
    if (!request_uri_->ToString().empty()) {
      const std::shared_ptr<Uri> base = request_uri_->Clone();
      request_uri_->Parse(location, base.get());
    } else {
      request_uri_->Parse(location);
    }
  });
}

void HttpWebRequest::OnResponseFinished() {
  if (!async_) return;
  // A handler may drop the last reference to this request; keep it until the event is over.
  const auto keep = std::static_pointer_cast<HttpWebRequest>(weak_from_this().lock());
  std::shared_ptr<HttpWebResponse> response;
  bool failed = false;
  ErrorNumber number = 0;
  std::string description;
  bool resending = false;
  try {
    const long attempts = auth_attempts_;
    response = HandleResponse();
    resending = !response && auth_attempts_ != attempts;
  } catch (const Error& e) {
    failed = true;
    number = e.Number();
    description = e.Description();
  }
  if (resending) return;
  if (!failed && response) {
    AsynchResponseComplete.Emit(response);
  } else if (failed) {
    AsynchResponseError.Emit(number, description);
  } else {
    AsynchResponseError.Emit(errnum::kNoResponse, "No response received.");
  }
}

void HttpWebRequest::OnError(ErrorNumber number, const std::string& description) {
  if (!async_) return;
  const auto keep = std::static_pointer_cast<HttpWebRequest>(weak_from_this().lock());
  AsynchResponseError.Emit(number, description);
}

}  // namespace gw::web
