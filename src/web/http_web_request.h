// The HTTP exchange: one logical request (`HttpWebRequest`) and its outcome (`HttpWebResponse`).
//
// A request drives the platform HTTP object (`HttpTransport`), answers authentication challenges,
// follows redirects by itself (the transport never redirects: the request counts the hops and
// merges the cookies of each hop into its own jar) and yields a response. The request object
// carries its state across hops: `RequestUri` is changed in place, and `Method` may end as "GET"
// (a POST that was redirected to a page refusing it is sent once more as a GET). After the hop
// limit the last redirect response is returned as it is, with its 3xx status; no error.
//
// A 4xx or 5xx status is no failure: the response is returned and the caller decides. Network
// failures (web/failures.h) raise from `GetResponse`; after `SendAsynchRequest` they arrive as
// `AsynchResponseError`. Asynchronous completion comes from the thread's `EventLoop::DoEvents`,
// never from inside a send. Redirect hops and the GET retry are always sent synchronously, from
// inside the completion, also when the first send was asynchronous; a retry after an
// authentication challenge keeps the request's own mode, and its completion comes as another
// event. A request must not be sent again while its response is pending.
//
// Every method reports through the error handler under "HttpWebRequest." + member.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/collection.h"
#include "platform/http_transport.h"
#include "platform/signal.h"
#include "platform/stream.h"
#include "platform/variant.h"
#include "text/b_string.h"
#include "web/cookie.h"
#include "web/failures.h"
#include "web/http_header.h"
#include "web/uri.h"

namespace gw::web {

enum class HttpStatusType : long {
  None = 0,
  Informational = 100,
  Successful = 200,
  Redirect = 300,
  ClientError = 400,
  ServerError = 500,
};

// 100-199 Informational, ..., 500-599 ServerError, anything else None.
HttpStatusType StatusTypeOf(long status_code) noexcept;

class HttpWebRequest;

class HttpWebResponse : public Object {
 public:
  static std::shared_ptr<HttpWebResponse> Create() { return std::make_shared<HttpWebResponse>(); }
  HttpWebResponse() = default;
  ~HttpWebResponse() override;  // its body's memory may serve a later response
  std::string TypeName() const override { return "HttpWebResponse"; }

  long StatusCode() const noexcept { return status_code_; }
  const std::string& StatusText() const noexcept { return status_text_; }
  // Upper-cased.
  std::string Method() const;
  HttpStatusType StatusType() const noexcept { return StatusTypeOf(status_code_); }

  // New and empty at creation; filled from "Set-Cookie" by `Load`.
  const std::shared_ptr<CookieContainer>& Cookies() const noexcept { return cookies_; }
  void SetCookies(std::shared_ptr<CookieContainer> cookies) { cookies_ = std::move(cookies); }
  // By name, ignoring case; a header that came twice holds both values joined by ", ".
  HttpHeaders& Headers() {
    ParseLoadedHeaders();
    return headers_;
  }
  const HttpHeaders& Headers() const {
    ParseLoadedHeaders();
    return headers_;
  }
  void SetHeaders(HttpHeaders headers) {
    loaded_headers_.clear();
    headers_ = std::move(headers);
  }

  // A new open binary stream holding the raw body, made at every read; its `Charset` is the
  // "charset" of "Content-Type" when there is one (quotes kept).
  std::shared_ptr<Stream> BodyStream() const;
  // The body decoded to UTF-8 by its character set (decoded at the first read: a reader that
  // wants only the bytes pays nothing for the text).
  const BString& BodyText() const;
  // The raw body, as bytes.
  const std::string& ResponseBody() const noexcept { return raw_body_; }
  // The request's own `RequestUri` object: the address after redirects.
  const std::shared_ptr<Uri>& ResponseUri() const noexcept { return response_uri_; }

  // name + " : " + value + CR LF for every header, in order; "" without headers.
  std::string HeadersToString() const;
  // Fills the response: address and method from `request`, the headers from `headerText`, the
  // cookies from the headers, and, when `http` is given, body, text and status from it.
  // The transport's body is moved into the response.
  void Load(std::string_view headerText, HttpTransport* http, const HttpWebRequest& request);
  // Each non-empty line: the name up to the first ":" (failing that the first space; a line with
  // neither is skipped), both sides trimmed. A status line "HTTP/1.1 200 OK" becomes a header
  // named "HTTP/1.1". A name seen before gets ", " + the new value appended.
  void ParseHeaders(std::string_view headerText);

 private:
  long status_code_ = 0;
  std::string status_text_;
  std::string method_;
  // Parses the header text `Load` kept (most responses are read for their body alone).
  void ParseLoadedHeaders() const;

  mutable HttpHeaders headers_ = MakeHttpHeaders();
  mutable std::string loaded_headers_;  // not parsed yet
  std::shared_ptr<CookieContainer> cookies_ = std::make_shared<CookieContainer>();
  std::string raw_body_;
  std::string content_type_;  // the transport's, for the character set of the text
  mutable BString body_text_;
  mutable bool body_decoded_ = true;
  std::shared_ptr<Uri> response_uri_;
};

class HttpWebRequest : public Object {
 public:
  static std::shared_ptr<HttpWebRequest> Create() { return std::make_shared<HttpWebRequest>(); }
  HttpWebRequest();
  ~HttpWebRequest() override;
  std::string TypeName() const override { return "HttpWebRequest"; }

  // Sends and returns at once; the outcome comes as `AsynchResponseComplete` or
  // `AsynchResponseError` from `DoEvents`.
  void SendAsynchRequest();
  // Sends, waits, follows redirects and challenges, and returns the final response.
  std::shared_ptr<HttpWebResponse> GetResponse();

  // The entries "Content-Length", "Content-Type", "User-Agent" and "Referer" of the headers map:
  // setting an empty value (or a length of 0) does nothing; reading a missing one gives "" (0).
  // The transport always sends the body's real length, whatever "Content-Length" says.
  long ContentLength() const;
  void SetContentLength(long value);
  std::string ContentType() const;
  void SetContentType(std::string_view value);
  std::string UserAgent() const;
  void SetUserAgent(std::string_view value);
  std::string RefererUrl() const;
  void SetRefererUrl(std::string_view value);

  std::int16_t MaximumAutomaticRedirections() const noexcept { return max_redirects_; }
  void SetMaximumAutomaticRedirections(std::int16_t value) noexcept { max_redirects_ = value; }
  bool AllowAutoRedirect() const noexcept { return allow_auto_redirect_; }
  void SetAllowAutoRedirect(bool value) noexcept { allow_auto_redirect_ = value; }
  const std::shared_ptr<CookieContainer>& Cookies() const noexcept { return cookies_; }
  void SetCookies(std::shared_ptr<CookieContainer> cookies) { cookies_ = std::move(cookies); }
  const std::shared_ptr<Uri>& RequestUri() const noexcept { return request_uri_; }
  void SetRequestUri(std::shared_ptr<Uri> uri) { request_uri_ = std::move(uri); }
  // The platform object, made on first use.
  HttpTransport& http();
  // Gives up the platform object so that the next request of the same client sends on it (its
  // curl handle and options, its buffers): null when there is none or a transmission is pending.
  // The credentials given to it are forgotten; this request makes a new one if sent again.
  std::shared_ptr<HttpTransport> ReleaseTransport();
  // Sends on `transport` (idle, released by an earlier request) instead of making one.
  void AdoptTransport(std::shared_ptr<HttpTransport> transport);

  const std::string& Method() const noexcept { return method_; }
  void SetMethod(std::string method) { method_ = std::move(method); }
  // Sent only for a POST.
  const std::string& Body() const noexcept { return body_; }
  void SetBody(std::string body) { body_ = std::move(body); }
  const std::string& UserName() const noexcept { return user_name_; }
  void SetUserName(std::string value) { user_name_ = std::move(value); }
  const std::string& Password() const noexcept { return password_; }
  void SetPassword(std::string value) { password_ = std::move(value); }
  // The upper-cased method is "POST".
  bool IsPost() const;
  bool AreCookiesDisabled() const noexcept { return cookies_disabled_; }
  void SetAreCookiesDisabled(bool value) noexcept { cookies_disabled_ = value; }

  // Extra request headers, by name ignoring case, sent in insertion order.
  Dictionary<std::string>& Headers() noexcept { return headers_; }
  const Dictionary<std::string>& Headers() const noexcept { return headers_; }
  // Hops followed and challenges answered since the last send entry point.
  long RedirectCount() const noexcept { return redirect_count_; }
  long AuthenticationAttempts() const noexcept { return auth_attempts_; }
  bool IsAsynchronous() const noexcept { return async_; }

  Signal<std::shared_ptr<HttpWebResponse>> AsynchResponseComplete;
  Signal<ErrorNumber, const std::string&> AsynchResponseError;

 private:
  // One transmission of the request as it stands.
  void SendRequest(bool async);
  // Challenges, redirects and the GET retry. Null when an asynchronous challenge was answered
  // and its completion is still to come.
  std::shared_ptr<HttpWebResponse> HandleResponse();
  void UpdateRequestUriFromRedirect(const HttpWebResponse& response);
  void OnResponseFinished();
  void OnError(ErrorNumber number, const std::string& description);
  std::string HeaderEntry(std::string_view name) const;
  void SetHeaderEntry(std::string_view name, std::string_view value);

  std::string method_ = "GET";
  std::shared_ptr<CookieContainer> cookies_ = std::make_shared<CookieContainer>();
  bool allow_auto_redirect_ = true;
  std::int16_t max_redirects_ = 10;
  Dictionary<std::string> headers_{CompareMode::Text};
  std::string body_;
  std::shared_ptr<Uri> request_uri_ = std::make_shared<Uri>();
  std::string user_name_;
  std::string password_;
  bool cookies_disabled_ = false;
  bool async_ = false;
  long redirect_count_ = 0;
  long auth_attempts_ = 0;
  std::shared_ptr<HttpTransport> http_;
  ScopedConnection finished_connection_;
  ScopedConnection error_connection_;
};

}  // namespace gw::web
