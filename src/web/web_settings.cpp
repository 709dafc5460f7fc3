#include "web/web_settings.h"

#include <mutex>
#include <optional>

#include "platform/error.h"
#include "platform/registry_store.h"
#include "platform/text.h"
#include "web/failures.h"

#ifndef GW_VERSION
#define GW_VERSION "0"
#endif

namespace gw::web {
namespace {

constexpr const char* kMachineKey = "SOFTWARE\\Tallowmere\\Zentrovo";

struct SettingsState {
  std::mutex mutex;
  OptionReader reader;
  std::optional<WebSettings> current;
};
SettingsState& StateOf() {
  static SettingsState state;
  return state;
}

[[noreturn]] void BadSetting(const std::string& name, const std::string& value,
                             const std::string& expected) {
  throw Error(
      errnum::kBadSetting, "WebSettings",
      "The option \"" + name + "\" holds \"" + value + "\", which is not " + expected + ".");
}

class Sources {
 public:
  explicit Sources(OptionReader reader) : reader_(std::move(reader)) {
    try {
      registry_ = RegistryStore().Read();
    } catch (const Error&) {
      // An unreadable registry store counts as an empty one; the defaults hold.
    }
  }

  // The option's value, Empty when no source has it.
  Variant Get(const std::string& name) const {
    if (reader_) {
      try {
        Variant v = reader_(name);
        if (!v.IsEmpty() && !v.IsNull()) return v;
      } catch (...) {
        // A store that cannot be reached leaves the next source to answer.
      }
    }
    if (registry_) {
      if (const RegValue* v = registry_->FindValue(RegRoot::LocalMachine, kMachineKey, name)) {
        if (v->type == RegType::Dword) return Variant(static_cast<long long>(v->dword));
        if (v->type == RegType::Sz || v->type == RegType::ExpandSz) return Variant(v->text);
      }
    }
    return Variant();
  }

  void Text(const char* name, std::string& out) const {
    const Variant v = Get(name);
    if (!v.IsEmpty()) out = v.ToText();
  }
  void Millis(const char* name, long& out) const {
    const Variant v = Get(name);
    if (v.IsEmpty()) return;
    const std::string shown = v.ToText();
    if (text::TrimWhitespace(shown).empty()) return;
    if (!v.IsNumeric()) BadSetting(name, shown, "a number of milliseconds");
    const double ms = v.ToDouble();
    if (ms < 0 || ms > 2147483647.0) BadSetting(name, shown, "a number of milliseconds");
    out = static_cast<long>(ms);
  }
  void Flag(const char* name, bool& out) const {
    const Variant v = Get(name);
    if (v.IsEmpty()) return;
    if (v.IsBoolean()) {
      out = v.ToBool();
      return;
    }
    const std::string shown = v.ToText();
    const std::string_view t = text::TrimWhitespace(shown);
    if (t.empty()) return;
    if (v.IsNumeric()) {
      out = v.ToDouble() != 0;
    } else if (text::EqualsNoCase(t, "true") || text::EqualsNoCase(t, "yes") ||
               text::EqualsNoCase(t, "on")) {
      out = true;
    } else if (text::EqualsNoCase(t, "false") || text::EqualsNoCase(t, "no") ||
               text::EqualsNoCase(t, "off")) {
      out = false;
    } else {
      BadSetting(name, shown, "True or False");
    }
  }

 private:
  OptionReader reader_;
  std::optional<RegistryData> registry_;
};

}  // namespace

HttpTransportSettings WebSettings::ForTransport() const {
  HttpTransportSettings t;
  t.proxy = proxy;
  t.proxy_bypass = proxy_bypass;
  t.ignore_certificate_errors = ignore_certificate_errors;
  t.trusted_certificates = trusted_certificates;
  return t;
}

std::string WebSettings::EffectiveUserAgent() const {
  return user_agent.empty() ? DefaultUserAgent() : user_agent;
}

const std::string& DefaultUserAgent() {
  static const std::string agent = "Gleanwright/" GW_VERSION " (Zentrovo_Shared; Linux)";
  return agent;
}

void SetOptionReader(OptionReader reader) {
  SettingsState& s = StateOf();
  std::lock_guard lock(s.mutex);
  s.reader = std::move(reader);
  s.current.reset();
}

WebSettings ReadWebSettings() {
  OptionReader reader;
  {
    SettingsState& s = StateOf();
    std::lock_guard lock(s.mutex);
    reader = s.reader;
  }
  const Sources src(std::move(reader));
  WebSettings w;
  src.Text(option::kProxy, w.proxy);
  src.Text(option::kProxyBypass, w.proxy_bypass);
  src.Millis(option::kResolveTimeout, w.resolve_timeout_ms);
  src.Millis(option::kConnectTimeout, w.connect_timeout_ms);
  src.Millis(option::kSendTimeout, w.send_timeout_ms);
  src.Millis(option::kReceiveTimeout, w.receive_timeout_ms);
  src.Flag(option::kIgnoreCertificateErrors, w.ignore_certificate_errors);
  src.Text(option::kTrustedCertificates, w.trusted_certificates);
  src.Text(option::kUserAgent, w.user_agent);
  return w;
}

WebSettings CurrentWebSettings() {
  SettingsState& s = StateOf();
  {
    std::lock_guard lock(s.mutex);
    if (s.current) return *s.current;
  }
  WebSettings read = ReadWebSettings();
  std::lock_guard lock(s.mutex);
  if (!s.current) s.current = std::move(read);
  return *s.current;
}

void SetWebSettings(WebSettings settings) {
  SettingsState& s = StateOf();
  std::lock_guard lock(s.mutex);
  s.current = std::move(settings);
}

void ReloadWebSettings() {
  SettingsState& s = StateOf();
  std::lock_guard lock(s.mutex);
  s.current.reset();
}

}  // namespace gw::web
