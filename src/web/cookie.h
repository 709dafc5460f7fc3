// Cookies: one cookie (`Cookie`) and the flat jar of a client (`CookieContainer`).
//
// There is no domain, path, expiry or secure matching: every cookie of a container goes out on
// every request of its client, so that a login cookie reaches any host the client visits. A
// cookie with an expiry date in the past is kept like any other.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "infra/xml_serializer.h"
#include "platform/collection.h"
#include "platform/variant.h"
#include "web/cloneable.h"
#include "web/http_header.h"

namespace gw::web {

class Cookie : public Object, public ICloneable {
 public:
  std::string TypeName() const override { return "Cookie"; }

  bool Secure() const noexcept { return secure_; }
  void SetSecure(bool value) noexcept { secure_ = value; }
  const std::string& path() const noexcept { return path_; }
  void SetPath(std::string value) { path_ = std::move(value); }
  const std::string& Domain() const noexcept { return domain_; }
  void SetDomain(std::string value) { domain_ = std::move(value); }
  // The expiry text as received (without its day name); never parsed.
  const std::string& Expires() const noexcept { return expires_; }
  void SetExpires(std::string value) { expires_ = std::move(value); }
  const std::string& Name() const noexcept { return name_; }
  void SetName(std::string value) { name_ = std::move(value); }
  const std::string& Value() const noexcept { return value_; }
  void SetValue(std::string value) { value_ = std::move(value); }

  // Applies one attribute of a "Set-Cookie" value by its name in any case: "EXPIRES", "DOMAIN",
  // "SECURE", "PATH"; "MAX-AGE" and unknown names are dropped. Always true: the cookie is kept.
  bool SetAttribute(std::string_view attrib_name, std::string attrib_val,
                    std::string_view set_cookie = {});

  std::shared_ptr<Cookie> Clone() const { return std::make_shared<Cookie>(*this); }
  ObjectPtr CloneObject() const override { return Clone(); }

 private:
  std::string value_;
  std::string name_;
  std::string expires_;
  std::string domain_;
  std::string path_;
  bool secure_ = false;
};

// Cookies by name, case-sensitive ("A" and "a" are two cookies), in the order they first came.
//
// Its `ISerializable` form is not object XML but the request header: `Serialize` gives
// `GetRequestHeader()` and `Deserialize` loads it back, so only names and values survive.
class CookieContainer : public Object, public ICloneable, public ISerializable {
 public:
  using Map = Dictionary<std::shared_ptr<Cookie>>;

  std::string TypeName() const override { return "CookieContainer"; }

  // Replaces the cookie of that name in its place, or appends.
  void AddCookie(std::string_view name, std::shared_ptr<Cookie> cookie);
  void Clear() noexcept { cookies_.RemoveAll(); }
  // Null when there is no cookie of that name.
  std::shared_ptr<Cookie> GetCookie(std::string_view name) const;
  long Count() const noexcept { return cookies_.Count(); }

  // Reads the "Set-Cookie" header (repeated headers arrive joined by ", "); other headers are
  // not read.
  void LoadFromResponseHeaders(const HttpHeaders& headers);
  // "name=value; " for every cookie in order ("" for none).
  std::string GetRequestHeader() const;
  // Each ";"-separated piece of a "Cookie" request header as a cookie.
  void LoadFromRequestHeader(std::string_view header);
  // This container's cookies become `priority`'s, followed by its own with other names.
  void MergeFrom(const CookieContainer& priority);

  // Parses one "Set-Cookie" value, which may hold several cookies joined by ", ". Malformed
  // text never fails: parsing stops and keeps the cookies that were complete.
  void ParseCookies(std::string_view set_cookie);
  Map& RawDictionary() noexcept { return cookies_; }
  const Map& RawDictionary() const noexcept { return cookies_; }

  std::string Serialize() override { return GetRequestHeader(); }
  // An empty text does nothing.
  void Deserialize(std::string_view text) override;

  // A new container with clones of the cookies.
  std::shared_ptr<CookieContainer> Clone() const;
  ObjectPtr CloneObject() const override { return Clone(); }

 private:
  Map cookies_{CompareMode::Binary};
};

}  // namespace gw::web
