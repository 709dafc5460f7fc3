// `HttpClient`: a web session. It keeps the current address, the cookie jar, the user agent,
// credentials and a fixed referer from request to request, turns a page fetch or a form post
// into an `HttpWebRequest`, and absorbs the response.
//
// A fetch: `GetPage(url)` or `SubmitForm(form)` resolves the address against the current one
// (the first address of a session may lack its scheme: "a.b/c" is "http://a.b/c"), builds a
// request with a clone of that address and a copy of the jar, sends it (redirects and
// challenges are handled by the request), keeps the response as `HttpResponse`, moves
// `CurrentUrl` to where the response came from and merges the response's cookies into the jar.
// The page text is then `HttpResponse()->BodyText()`.
//
// Resolving: after the first request a relative address resolves against an empty base and
// fails with `errnum::kCannotResolve`; callers resolve relative links themselves (against
// `StaticRelativeUrl` or the page's address) and hand absolute ones. A GET form replaces the
// query of its action address with its variables. Only the cookies of the final hop reach the
// jar; those set on redirect hops travel with the request and go with it.
//
// Asynchronous use: `GetPage(url, true)` and `SubmitForm(form, true)` return at once with
// `IsReady` false. The outcome comes from `EventLoop::DoEvents` as `AsynchRequestComplete(msg)`,
// with "" on success (the response is then in `HttpResponse`) or the failure's text; `IsReady`
// turns true after the event's handlers ran. A new request while one is in flight abandons the
// old one, which then raises nothing. A client serves one request at a time: parallel fetches
// use one client each, made with `InheritFrom` or `Clone`.
//
// Failures of a synchronous fetch (web/failures.h) pass to the caller, with the call-stack
// lines "HttpClient.DoWebRequest(Url,Method,FormVariables)" and the like.
//
// Text form (`ISerializable`): "[!CLI!]" + the object XML of the user agent, credentials, fixed
// referer, relative base and cookie switch + "[iCLIi]" + "[!CKE!]" + the jar's text + "[iCKEi]".
// The password is kept in clear in it, as the session's other settings are.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "infra/xml_serializer.h"
#include "platform/collection.h"
#include "platform/signal.h"
#include "platform/variant.h"
#include "web/cloneable.h"
#include "web/cookie.h"
#include "web/http_web_request.h"
#include "web/uri.h"
#include "web/web_form.h"

namespace gw::web {

class HttpClient : public Object, public ICloneable, public ISerializable {
 public:
  static std::shared_ptr<HttpClient> Create() { return std::make_shared<HttpClient>(); }
  HttpClient() = default;
  ~HttpClient() override = default;
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  std::string TypeName() const override { return "HttpClient"; }
  const PropertyTable* GetPropertyTable() const override;

  // Sends nothing and returns false.
  bool PostFormBlindly(const std::string& url, const Dictionary<Variant>& FormCtrls);
  void GetPage(const std::string& url, bool Asynch = false);
  void SubmitForm(const WebForm& form, bool Asynch = false);

  // Null before the first request.
  const std::shared_ptr<Uri>& CurrentUrl() const noexcept { return current_url_; }
  // The last response; null before the first one came.
  const std::shared_ptr<HttpWebResponse>& HttpResponse() const noexcept { return response_; }
  const std::string& UserAgent() const noexcept { return user_agent_; }
  void SetUserAgent(std::string value) { user_agent_ = std::move(value); }
  const std::string& UserName() const noexcept { return user_name_; }
  void SetUserName(std::string value) { user_name_ = std::move(value); }
  const std::string& Password() const noexcept { return password_; }
  void SetPassword(std::string value) { password_ = std::move(value); }
  // Sent as "Referer" with every request when not empty.
  const std::string& StaticRefererUrl() const noexcept { return static_referer_; }
  void SetStaticRefererUrl(std::string value) { static_referer_ = std::move(value); }
  // `StaticRelativeUrl` as text ("" when there is none); setting "" removes it, setting a text
  // parses it (and fails as `Uri.Parse` does).
  std::string StaticRelativeUrlString() const;
  void SetStaticRelativeUrlString(const std::string& value);
  // The session jar, made on first read.
  const std::shared_ptr<CookieContainer>& Cookies();
  bool IsReady() const noexcept { return is_ready_; }
  // With cookies disabled none are sent, though those received still reach the jar.
  bool AreCookiesDisabled() const noexcept { return cookies_disabled_; }
  void SetAreCookiesDisabled(bool value) noexcept { cookies_disabled_ = value; }
  // Takes over from `AncestralClient`: its cookies win over this client's of the same name, and
  // what this client lacks (user agent, user name with password, response, current address
  // (shared, not copied), relative base, referer) it takes from it.
  void InheritFrom(HttpClient& AncestralClient);

  // A new client with a copy of the jar, sharing `CurrentUrl`, `HttpResponse` and
  // `StaticRelativeUrl`, and the same user agent, credentials, referer and cookie switch.
  std::shared_ptr<HttpClient> Clone();
  ObjectPtr CloneObject() const override;

  std::string Serialize() override;
  void Deserialize(std::string_view text) override;

  Signal<const std::string&> AsynchRequestComplete;

  // Moves `CurrentUrl` to `Url` (resolved against the current address) as a request to it
  // would, without sending anything.
  void UpdateCurrentUrl(const std::string& Url, bool IsPost, const std::string& FormVariables);
  const std::shared_ptr<Uri>& StaticRelativeUrl() const noexcept { return static_relative_; }
  // The request of the last `GetPage` or `SubmitForm` (its redirect count, its final method).
  const std::shared_ptr<HttpWebRequest>& CurrentRequest() const noexcept { return request_; }

 private:
  // The steps of a request.
  void DoWebRequest(const std::string& Url, const std::string& Method,
                    const std::string& FormVariables);
  std::shared_ptr<HttpWebRequest> CreateRequest(const std::string& Method,
                                                const std::string& FormVariables);
  void WriteRequestBody(HttpWebRequest& request, const std::string& FormVariables);
  std::shared_ptr<HttpWebResponse> SendRequest(HttpWebRequest& request);
  void HandleResponse(const std::shared_ptr<HttpWebResponse>& response);
  std::shared_ptr<Uri> GetUrlFromResponse(const std::shared_ptr<HttpWebResponse>& response);
  std::string GetRedirectUrl(const HttpWebResponse& response);
  void ReadHttpResponse(const std::shared_ptr<HttpWebResponse>& response);
  void OnResponseComplete(const std::shared_ptr<HttpWebResponse>& response);
  void OnResponseError(ErrorNumber number, const std::string& description);

  std::shared_ptr<CookieContainer> cookies_;
  std::shared_ptr<Uri> current_url_;
  std::string static_referer_;
  std::string user_agent_;
  std::string password_;
  std::string user_name_;
  std::shared_ptr<HttpWebResponse> response_;
  std::shared_ptr<Uri> static_relative_;
  bool cookies_disabled_ = false;
  bool async_ = false;
  bool is_ready_ = true;
  std::shared_ptr<HttpWebRequest> request_;
  ScopedConnection complete_connection_;
  ScopedConnection error_connection_;
};

}  // namespace gw::web
