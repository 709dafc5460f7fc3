// `Uri`: the one address type of the library.
//
// `Parse` splits a text into scheme, user info, host, port, path, query and fragment (or an
// opaque part), escaping each with a byte set of its own, and resolves a relative reference
// against a base. Three text forms come out of it: the escaped external form (`ToExternalForm`),
// the unescaped display form (`ToString`) and a normalised identity string (`HashCode`) by which
// lists decide that two links are the same. Nothing here touches the network or checks a host.
//
// Members are held escaped. The setters store what they are given as it is: they do not escape,
// do not change how the address was classified by `Parse`, and do not clear a `HashCode` already
// computed (only `Parse` does). Text is UTF-8; escaping works on bytes, so a non-ASCII character
// becomes one "%XX" per byte of its UTF-8 form.
//
// Failures (`gw::Error`, raised through the method's log name "Uri.Parse(relUri,base)" and the
// like):
//  - `kNoScheme`: a text without a scheme and no base;
//  - `kCannotResolve`: a relative text against a base whose scheme has no hierarchical syntax;
//  - `kNoClosingBracket`: "[" without "]" in the authority;
//  - 13 ("Type mismatch"): "%" not followed by hexadecimal digits where a text is unescaped
//    (a port, `ToString`, `HashCode`).
// A port that is not a number is not a failure: the address simply has no port.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/variant.h"
#include "web/cloneable.h"
#include "web/failures.h"

namespace gw::web {

class Uri : public Object, public ICloneable {
 public:
  Uri() = default;
  // Parses `text` (against `base` when given); fails as `Parse` does.
  explicit Uri(std::string_view text, const Uri* base = nullptr) { Parse(text, base); }

  std::string TypeName() const override { return "Uri"; }

  // -1: none, or the scheme's default port.
  long Port() const noexcept { return port_; }
  void SetPort(long port) noexcept { port_ = port; }
  const std::string& userInfo() const noexcept { return user_info_; }
  void SetUserInfo(std::string value) { user_info_ = std::move(value); }
  // `path`, or `path` + "?" + query when there is a query.
  std::string PathAndQuery() const;
  const std::string& Fragment() const noexcept { return fragment_; }
  void SetFragment(std::string value) { fragment_ = std::move(value); }
  const std::string& QueryString() const noexcept { return query_; }
  void SetQueryString(std::string value) { query_ = std::move(value); }
  // The anchor text of the link on its page; filled by the page model, cleared by `Parse`, and
  // part of no text form.
  const std::string& linkText() const noexcept { return link_text_; }
  void SetLinkText(std::string value) { link_text_ = std::move(value); }
  const std::string& path() const noexcept { return path_; }
  void SetPath(std::string value) { path_ = std::move(value); }
  const std::string& OpaquePart() const noexcept { return opaque_; }
  void SetOpaquePart(std::string value) { opaque_ = std::move(value); }
  // An IP literal is held without its brackets.
  const std::string& Host() const noexcept { return host_; }
  void SetHost(std::string value) { host_ = std::move(value); }
  const std::string& scheme() const noexcept { return scheme_; }
  void SetScheme(std::string value) { scheme_ = std::move(value); }

  // The last segment of `path` when it has a dot inside it ("/a/b.html" gives "b.html"; "/a/b"
  // and "/a/b." give ""), else "".
  std::string FileName() const;
  // The text after the last dot of `FileName`, when that is one to five characters long.
  std::string FileExtension() const;
  // `path` without `FileName` (its last occurrence, found ignoring case).
  std::string PathWithoutFile() const;

  // Fills the object from `relUri`; see the class comment for failures. After a failure the
  // object holds what was assigned up to it.
  void Parse(std::string_view relUri, const Uri* base = nullptr);
  // Removes dot segments, unless the first "/." of the path does not begin one; ".." segments
  // that have nothing to back up over stay.
  static std::string CanonicalizePath(std::string_view P);

  // The normalised identity: scheme, host and path lower-cased and unescaped, the port always
  // spelled out (the scheme's default port when none is set, 0 for an unknown scheme), the query
  // unescaped with its case kept, the fragment left out. Computed on first read and kept until
  // the next `Parse`.
  const std::string& HashCode() const;
  // The escaped form.
  std::string ToExternalForm() const;
  // The form for display: each part unescaped.
  std::string ToString() const;

  // Membership in the tables of schemes with generic and semi-generic syntax, after lower-casing
  // and trimming `pScheme`.
  static bool UsesGenericSyntax(std::string_view pScheme);
  static bool UsesSemiGenericSyntax(std::string_view pScheme);
  // The scheme's default port, 0 for a scheme not in the table.
  static long DefaultPort(std::string_view pScheme);

  // A new `Uri` with scheme, user info, host, port, path, query, fragment and opaque part; the
  // link text, the syntax kind and the `HashCode` are not copied.
  std::shared_ptr<Uri> Clone() const;
  ObjectPtr CloneObject() const override { return Clone(); }

 private:
  enum class Syntax { kOpaque = 0, kSemiGeneric = 1, kGeneric = 2 };

  void ParseImpl(std::string_view rel, const Uri* base);
  void ParseAuthority(std::string_view auth, std::string_view scheme);
  std::string Stringify(bool unescape) const;
  void AssemblePath(std::string& out, bool print_empty, bool include_fragment, bool unescape) const;

  std::string scheme_;
  std::string host_;
  std::string opaque_;
  std::string path_;
  std::string query_;
  std::string fragment_;
  std::string user_info_;
  long port_ = -1;
  Syntax syntax_ = Syntax::kOpaque;
  mutable std::string hash_code_;
  std::string link_text_;
};

}  // namespace gw::web
