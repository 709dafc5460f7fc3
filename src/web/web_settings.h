// The machine-wide settings of the web client: proxy, time limits, certificate checks and the
// default user agent (the state that a platform HTTP stack keeps for the whole machine).
//
// Each setting is a named option. Its value is looked up, in this order:
//  1. the option reader that the host installed (`SetOptionReader`); the command-line host reads
//     the `settings` table of the rules store (`Settings.GetOption`), which this layer cannot
//     reach itself. An Empty answer, or a failure of the reader, falls through;
//  2. the registry store: the value of the same name under
//     HKEY_LOCAL_MACHINE\SOFTWARE\Tallowmere\Zentrovo;
//  3. for the proxy only: nothing is set, and the transport honours the environment's
//     http_proxy, https_proxy and no_proxy;
//  4. the default below.
// The settings are read once, when the first request needs them, and kept for the process;
// `ReloadWebSettings` reads them again and `SetWebSettings` replaces them outright. A value that
// cannot be read as what it stands for fails every request with `errnum::kBadSetting`, naming the
// option, until it is corrected.
#pragma once

#include <functional>
#include <string>

#include "platform/http_transport.h"
#include "platform/variant.h"

namespace gw::web {

namespace option {
inline constexpr const char* kProxy = "HttpProxy";
inline constexpr const char* kProxyBypass = "HttpProxyBypass";
inline constexpr const char* kResolveTimeout = "HttpResolveTimeout";
inline constexpr const char* kConnectTimeout = "HttpConnectTimeout";
inline constexpr const char* kSendTimeout = "HttpSendTimeout";
inline constexpr const char* kReceiveTimeout = "HttpReceiveTimeout";
inline constexpr const char* kIgnoreCertificateErrors = "IgnoreCertificateErrors";
inline constexpr const char* kTrustedCertificates = "HttpTrustedCertificates";
inline constexpr const char* kUserAgent = "HttpUserAgent";
}  // namespace option

struct WebSettings {
  std::string proxy;            // HttpProxy: "host:port"; "" = the environment's proxy variables
  std::string proxy_bypass;     // HttpProxyBypass: hosts reached directly ("<local>;*.corp")
  long resolve_timeout_ms = 0;  // HttpResolveTimeout: 0 = none
  long connect_timeout_ms = 600000;        // HttpConnectTimeout
  long send_timeout_ms = 600000;           // HttpSendTimeout
  long receive_timeout_ms = 600000;        // HttpReceiveTimeout
  bool ignore_certificate_errors = false;  // IgnoreCertificateErrors
  std::string trusted_certificates;        // HttpTrustedCertificates: a PEM file of authorities
  std::string user_agent;  // HttpUserAgent: sent when a request names none; "" = the product's

  // What the transport needs of them.
  HttpTransportSettings ForTransport() const;
  // `user_agent`, or `DefaultUserAgent()` when it is empty.
  std::string EffectiveUserAgent() const;
};

// "Gleanwright/<version> (Zentrovo_Shared; Linux)".
const std::string& DefaultUserAgent();

// An option reader answers an option's value by name, or Empty when it has none.
using OptionReader = std::function<Variant(const std::string& name)>;
// Installs the host's reader (an empty function removes it). Takes effect at the next read.
void SetOptionReader(OptionReader reader);

// The settings in force, read on first use.
WebSettings CurrentWebSettings();
// Replaces the settings until the next `ReloadWebSettings`.
void SetWebSettings(WebSettings settings);
// Forgets the settings; the next request reads them again.
void ReloadWebSettings();
// Reads the settings from the sources now (fails as `CurrentWebSettings` does).
WebSettings ReadWebSettings();

}  // namespace gw::web
