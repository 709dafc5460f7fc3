// `HttpTransport`: the platform HTTP object of the web client, on libcurl.
//
// It does what the library needs of a request object and nothing more: open a request, add
// headers and credentials, set the time limits, send it synchronously or asynchronously, and read
// the status, the raw response headers, the body as bytes and as UTF-8 text. It never follows a
// redirect and keeps no cookies: the web client counts hops and merges cookies itself. One
// object serves one request at a time and may be opened again for the next hop.
//
// Synchronous sends block the caller until the response is in. Asynchronous sends join the
// thread's one curl multi handle, which the thread's `EventLoop` drives: its sockets and curl's
// timer are watched by the loop, `WaitForActivity` wakes when one of them is ready, and
// `DoEvents` moves the data and raises `OnResponseFinished` or `OnError` on the loop's thread.
// Nothing is ever called back from another thread or from inside `Send`.
//
// Time limits (milliseconds, 0 or less: none): resolving and connecting together may take
// `resolve` + `connect`; once connected, a transfer fails when no byte moves for `send` ms while
// the request goes out or `receive` ms while the response comes in (checked at least once a
// second). TLS certificates are verified unless the settings say otherwise.
//
// Failures are `gw::Error`s with the numbers below (the platform's own numbers for these causes)
// and a text that names the address and the cause: synchronous sends raise them, asynchronous
// ones raise `OnError(number, text)`.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/signal.h"

namespace gw {

// Machine state of the transport (the web layer fills it from its settings).
struct HttpTransportSettings {
  // "host:port" or "http://host:port"; empty: the environment's http_proxy, https_proxy and
  // no_proxy (or none).
  std::string proxy;
  // Hosts reached without the proxy, separated by ";", "," or white space: "example.com" and
  // "*.example.com" cover a domain and its subdomains, "<local>" the loopback addresses.
  std::string proxy_bypass;
  // Accept any certificate (and host name) over TLS.
  bool ignore_certificate_errors = false;
  // A PEM file of the certificate authorities to trust instead of the system's.
  std::string trusted_certificates;

  bool operator==(const HttpTransportSettings&) const = default;
};

enum class CredentialTarget { kServer = 0, kProxy = 1 };

class HttpTransport : public std::enable_shared_from_this<HttpTransport> {
 public:
  static std::shared_ptr<HttpTransport> Create();
  ~HttpTransport();
  HttpTransport(const HttpTransport&) = delete;
  HttpTransport& operator=(const HttpTransport&) = delete;

  // Starts a request; a request still in flight is abandoned without an event. The headers and
  // the previous response are cleared; credentials, time limits, user agent and settings stay,
  // so that credentials given after a challenge serve the next transmission.
  void Open(std::string_view verb, std::string_view url, bool async);
  void SetRequestHeader(std::string_view name, std::string_view value);
  void SetCredentials(std::string_view user, std::string_view password, CredentialTarget target);
  // Forgets the credentials of both targets: for a transport that passes to another request.
  void ClearCredentials();
  void SetTimeouts(long resolve_ms, long connect_ms, long send_ms, long receive_ms);
  // Sent as "User-Agent" unless a header of that name was set.
  void SetUserAgent(std::string_view user_agent);
  void SetSettings(HttpTransportSettings settings);

  // Sends without a body, or with `body` (as is, with its own length). Only "http://" and
  // "https://" addresses are sent; anything else fails with `kUnrecognizedScheme`.
  void Send();
  void Send(std::string_view body);
  // Synchronous: true. Asynchronous: runs the thread's loop until the response is in or `seconds`
  // passed (other transfers' events fire meanwhile); true when it is in.
  bool WaitForResponse(long seconds);
  // Abandons an asynchronous request in flight; no event follows.
  void Abort();
  bool IsPending() const noexcept;

  // The outcome of the last request; before it is in they fail with `kResponseNotReady`.
  long Status() const;
  std::string StatusText() const;
  // The status line and header lines of the final response, each ending in CR LF.
  std::string GetAllResponseHeaders() const;
  // The body decoded to UTF-8: by the charset of "Content-Type", else the page's own
  // declaration in its first bytes, else valid UTF-8, else detection.
  std::string ResponseText() const;
  // The value of the final response's "Content-Type" ("" without one).
  std::string ContentType() const;
  const std::string& ResponseBody() const;
  // Moves the body out (later reads of the body give ""): for a reader that keeps its own copy.
  std::string TakeResponseBody();
  // A body taken out and no longer needed: its memory may hold a later response's body on this
  // thread (a few buffers of moderate size are kept; the rest is freed).
  static void RecycleBody(std::string&& body) noexcept;
  // The address of the open request.
  const std::string& Url() const noexcept;

  // Closes the thread's idle connections (those kept for reuse by finished requests).
  static void CloseIdleConnections();

  // Asynchronous completion, raised from `DoEvents`.
  Signal<> OnResponseFinished;
  Signal<ErrorNumber, const std::string&> OnError;

  struct Impl;

 private:
  HttpTransport();
  void Start();
  friend class CurlMultiDriver;
  std::unique_ptr<Impl> impl_;
};

}  // namespace gw
