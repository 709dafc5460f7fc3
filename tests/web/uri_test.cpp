#include "web/uri.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/test_support.h"

namespace gw::web {
namespace {

// Every member of a parsed address, in one line, so that a table row states all of them.
std::string Describe(const Uri& u) {
  return "scheme=" + u.scheme() + " user=" + u.userInfo() + " host=" + u.Host() +
         " port=" + std::to_string(u.Port()) + " path=" + u.path() + " query=" + u.QueryString() +
         " frag=" + u.Fragment() + " opaque=" + u.OpaquePart();
}

// The number of the failure parsing `text` raises; 0 when it raises none.
ErrorNumber ParseError(std::string_view text, const Uri* base = nullptr) {
  try {
    Uri u(text, base);
  } catch (const Error& e) {
    return e.Number();
  }
  return 0;
}

TEST(UriParse, SplitsAbsoluteAddresses) {
  struct Case {
    const char* text;
    const char* want;
  };
  const Case cases[] = {
      // The scheme is lower-cased; the host keeps its case.
      {"HTTP://A/b", "scheme=http user= host=A port=-1 path=/b query= frag= opaque="},
      {"url:http://a/", "scheme=http user= host=a port=-1 path=/ query= frag= opaque="},
      {"URI:http://a/", "scheme=http user= host=a port=-1 path=/ query= frag= opaque="},
      {"  http://a/b \r\n\t", "scheme=http user= host=a port=-1 path=/b query= frag= opaque="},
      // Ports: the default one vanishes, a word or nothing is no port and no error.
      {"http://a:80/", "scheme=http user= host=a port=-1 path=/ query= frag= opaque="},
      {"https://a:443", "scheme=https user= host=a port=-1 path= query= frag= opaque="},
      {"http://a:8080/", "scheme=http user= host=a port=8080 path=/ query= frag= opaque="},
      {"http://a:x/", "scheme=http user= host=a port=-1 path=/ query= frag= opaque="},
      {"http://a:/", "scheme=http user= host=a port=-1 path=/ query= frag= opaque="},
      {"http://a:99999999999/", "scheme=http user= host=a port=-1 path=/ query= frag= opaque="},
      // User info; an "@" at the very end of the authority belongs to the host.
      {"http://u@h/", "scheme=http user=u host=h port=-1 path=/ query= frag= opaque="},
      {"http://u@/", "scheme=http user= host=u@ port=-1 path=/ query= frag= opaque="},
      // User info escapes everything but the unreserved characters, even an escape.
      {"http://a%20b:c@h/",
       "scheme=http user=a%2520b%3Ac host=h port=-1 path=/ query= frag= opaque="},
      // IP literals lose their brackets and are not escaped.
      {"http://[::1]:8080/x", "scheme=http user= host=::1 port=8080 path=/x query= frag= opaque="},
      // Escaping: space, apostrophe, backslash, a code below 16 with one digit, UTF-8 bytewise.
      {"http://a/b c", "scheme=http user= host=a port=-1 path=/b%20c query= frag= opaque="},
      {"http://a/it's\\", "scheme=http user= host=a port=-1 path=/it%27s%5C query= frag= opaque="},
      {"http://a/a\tb", "scheme=http user= host=a port=-1 path=/a%9b query= frag= opaque="},
      {"http://a/caf\xC3\xA9",
       "scheme=http user= host=a port=-1 path=/caf%C3%A9 query= frag= opaque="},
      // Query and fragment; the query is HTML-decoded first.
      {"http://a/p?x=1&amp;y=a b#f g",
       "scheme=http user= host=a port=-1 path=/p query=x=1&y=a%20b frag=f%20g opaque="},
      {"http://a/p#f?x", "scheme=http user= host=a port=-1 path=/p query= frag=f?x opaque="},
      // A colon after "/", "?" or "#" is no scheme separator.
      {"http://a/b:c", "scheme=http user= host=a port=-1 path=/b:c query= frag= opaque="},
      // Semi-generic: the tail is a path, taken whole.
      {"telnet://h:23/x?y#z",
       "scheme=telnet user= host=h port=-1 path=/x?y%23z query= frag= opaque="},
      {"ldap://h", "scheme=ldap user= host=h port=-1 path= query= frag= opaque="},
      // Opaque schemes.
      {"mailto:someone@example.com",
       "scheme=mailto user= host= port=-1 path= query= frag= opaque=someone@example.com"},
      {"foo:/bar baz", "scheme=foo user= host= port=-1 path= query= frag= opaque=%2Fbar%20baz"},
      // Dot segments of an absolute address stay.
      {"http://h/a/../b", "scheme=http user= host=h port=-1 path=/a/../b query= frag= opaque="},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Describe(Uri(c.text)), c.want);
  }
}

TEST(UriParse, ResolvesAgainstABase) {
  struct Case {
    const char* base;
    const char* text;
    const char* want;
  };
  const Case cases[] = {
      {"http://a/b/c.html", "x.html", "http://a/b/x.html"},
      // A query alone merges the path with an empty last segment.
      {"http://a/b/c.html?old", "?q=1", "http://a/b/?q=1"},
      // A fragment alone takes the base's path and query.
      {"http://a/b/c.html?k=v", "#top", "http://a/b/c.html?k=v#top"},
      {"http://u@a:81/b/c", "d/./e/../f", "http://u@a:81/b/d/f"},
      // Unresolvable ".." segments stay.
      {"http://a/b/", "../../../x", "http://a/../../x"},
      // An absolute path keeps its dot segments.
      {"http://a/b/c", "/x/../y", "http://a/x/../y"},
      // A network-path reference takes only the scheme.
      {"https://a/b/c", "//h2/p/../q", "https://h2/p/../q"},
      // The same scheme written out still resolves; another scheme does not.
      {"http://a/b/c", "http:x", "http://a/b/x"},
      {"http://a/b/c", "HTTPS://z/", "https://z/"},
      // A base path without a slash contributes nothing; an empty one gives "/".
      {"http:abc", "d", "http:d"},
      {"http://h", "x", "http://h/x"},
      // Semi-generic: the authority comes from the base, the path stays as parsed.
      {"telnet://h/a/b", "x", "telnet://h/x"},
      // An address with a scheme of its own is not resolved.
      {"http://a/b", "a:b/c", "a:b/c"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.base) + " + " + c.text);
    const Uri base(c.base);
    EXPECT_EQ(Uri(c.text, &base).ToExternalForm(), c.want);
  }
}

TEST(UriParse, FailuresCarryTheirNumbersAndTexts) {
  EXPECT_EQ(ParseError(""), errnum::kNoScheme);
  EXPECT_EQ(ParseError("   "), errnum::kNoScheme);
  const Uri mail("mailto:a@b.c");
  testing::ExpectFailures({
      {[] { Uri u("x.html"); }, errnum::kNoScheme, "Uri.Parse", "No Scheme found in Uri: x.html"},
      {[&] { Uri u("x", &mail); }, errnum::kCannotResolve, "Uri.Parse",
       "Can't resolve relative URI for scheme mailto"},
      {[] { Uri u("http://u@[::1/x"); }, errnum::kNoClosingBracket, "Uri.ParseAuthority",
       "No closing ']' found for opening '[' at position 3 in authority 'u@[::1'"},
  });
  const Error e = testing::CaughtError([] { Uri u("x.html"); });
  ASSERT_FALSE(e.CallStack().empty());
  EXPECT_NE(e.CallStack().front().find("Uri.Parse(relUri,base)"), std::string::npos);
  // With a scheme of its own an opaque address needs no resolution.
  EXPECT_EQ(ParseError("news2:x", &mail), 0u);
  // A port whose escape is broken fails while being unescaped.
  EXPECT_EQ(ParseError("http://a:%zz/"), gw::errnum::kTypeMismatch);
}

TEST(UriParse, ParseClearsEverythingThatWasThere) {
  Uri u("http://u@a:81/p?q#f");
  u.SetLinkText("click");
  const std::string old_hash = u.HashCode();
  u.Parse("mailto:x@y");
  EXPECT_EQ(Describe(u), "scheme=mailto user= host= port=-1 path= query= frag= opaque=x@y");
  EXPECT_EQ(u.linkText(), "");
  EXPECT_EQ(u.HashCode(), "mailto:x@y");
}

// One row for each turn of the walk; the generated paths below check every mix of them against
// the walk as first described.
TEST(UriCanonicalizePath, RemovesDotSegmentsAsTheWalkDefines) {
  struct Case {
    const char* in;
    const char* want;
  };
  const Case cases[] = {
      {"/a/b/../c", "/a/c"},
      {"/a/./b", "/a/b"},
      {"/a/b/..", "/a/"},
      {"/a/.", "/a/"},
      // Nothing to back up over: the ".." segments stay.
      {"/../a", "/../a"},
      // Only the first "/." decides: a name that starts with a dot hides later dot segments.
      {"/.x/../y", "/.x/../y"},
      // A ".." backs up over a ".." that could not be resolved before it.
      {"aaaa/../../x", "aaaa/x"},
      {"", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(Uri::CanonicalizePath(c.in), c.want);
  }
}

// The walk as first described: erase from the path in place, positions 1-based, reading past the
// shrinking end as empty characters.
std::string CanonicalizeModel(std::string p) {
  const long start_len = static_cast<long>(p.size());
  const std::size_t first = p.find("/.");
  if (first == std::string::npos) return p;
  auto c = [&](long k) { return k >= 1 && k <= static_cast<long>(p.size()) ? p[k - 1] : '\0'; };
  const long i = static_cast<long>(first) + 1;
  if (!(i + 1 == start_len || c(i + 2) == '/' ||
        (c(i + 2) == '.' && (i + 2 == start_len || c(i + 3) == '/')))) {
    return p;
  }
  long beg = 1;
  long idx = 2;
  while (idx <= start_len) {
    const long len = static_cast<long>(p.size());
    if (c(idx) == '.' && c(idx - 1) == '/') {
      if (idx == len) {
        p.erase(static_cast<std::size_t>(idx - 1), 1);
        ++idx;
        continue;
      }
      if (c(idx + 1) == '/') {
        p.erase(static_cast<std::size_t>(idx - 1), 2);
        continue;
      }
      if (c(idx + 1) == '.' && (idx + 1 == len || c(idx + 2) == '/')) {
        if (idx < beg + 2) {
          beg = idx + 2;
        } else {
          long j = idx - 2;
          while (j > beg && c(j) != '/') --j;
          if (c(j) == '/') {
            if (idx + 1 == len) {
              p.erase(static_cast<std::size_t>(j), static_cast<std::size_t>(idx + 1 - j));
            } else {
              p.erase(static_cast<std::size_t>(j - 1), static_cast<std::size_t>(idx + 2 - j));
            }
            idx = j;
            continue;
          }
        }
      }
    }
    ++idx;
  }
  return p;
}

TEST(UriCanonicalizePath, AgreesWithThePlainWalkOnGeneratedPaths) {
  const char* const segments[] = {"a", "bc", ".", "..", ".x", "..y", "...", ""};
  std::uint32_t seed = 12345;
  auto next = [&] {
    seed = seed * 1664525u + 1013904223u;
    return seed >> 8;
  };
  for (int n = 0; n < 20000; ++n) {
    std::string path = next() % 4 == 0 ? "" : "/";
    const int count = static_cast<int>(next() % 8);
    for (int k = 0; k < count; ++k) {
      if (k > 0) path += "/";
      path += segments[next() % 8];
    }
    if (next() % 3 == 0) path += "/";
    SCOPED_TRACE(path);
    ASSERT_EQ(Uri::CanonicalizePath(path), CanonicalizeModel(path));
  }
  // Long runs stay cheap: a ".." after a long segment that has nothing to back up over.
  const std::string long_path = std::string(100000, 'a') + [] {
    std::string tail;
    for (int k = 0; k < 20000; ++k) tail += "/..";
    return tail;
  }();
  EXPECT_EQ(Uri::CanonicalizePath(long_path), CanonicalizeModel(long_path));
}

TEST(UriTextForms, ExternalDisplayAndHashForms) {
  struct Case {
    const char* text;
    const char* external;
    const char* display;
    const char* hash;
  };
  const Case cases[] = {
      {"HTTP://A/b", "http://A/b", "http://A/b", "http://a:80/b"},
      {"http://Host.COM:80/Path/A%2Fb?Q=%41#frag", "http://Host.COM/Path/A%2Fb?Q=%41#frag",
       "http://Host.COM/Path/A/b?Q=A#frag", "http://host.com:80/path/a/b?Q=A"},
      {"http://User@h:8080/", "http://User@h:8080/", "http://User@h:8080/", "http://User@h:8080/"},
      {"http://[FE80::1]/x", "http://[FE80::1]/x", "http://[FE80::1]/x", "http://[fe80::1]:80/x"},
      {"http://a/b c?x=a b", "http://a/b%20c?x=a%20b", "http://a/b c?x=a b",
       "http://a:80/b c?x=a b"},
      {"http://a/a+b", "http://a/a+b", "http://a/a b", "http://a:80/a b"},
      {"MAILTO:Some@Example.COM", "mailto:Some@Example.COM", "mailto:Some@Example.COM",
       "mailto:some@example.com"},
      // A scheme with no default port ends its authority with ":0".
      {"sip://h/x", "sip://h/x", "sip://h/x", "sip://h:0/x"},
      {"file:///c:/dir/f.txt", "file:/c:/dir/f.txt", "file:/c:/dir/f.txt", "file::0/c:/dir/f.txt"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Uri u(c.text);
    EXPECT_EQ(u.ToExternalForm(), c.external);
    EXPECT_EQ(u.ToString(), c.display);
    EXPECT_EQ(u.HashCode(), c.hash);
  }
}

TEST(UriTextForms, SameLinkSameHash) {
  const std::string h = Uri("http://A:80/Index.html?k=V#one").HashCode();
  EXPECT_EQ(Uri("http://a/index.HTML?k=V#two").HashCode(), h);
  EXPECT_NE(Uri("http://a/index.html?k=v").HashCode(), h);  // query case counts
  EXPECT_NE(Uri("http://a:81/index.html?k=V").HashCode(), h);
}

TEST(UriTextForms, BrokenEscapeFailsOnlyWhereTextIsUnescaped) {
  const Uri u("http://a/100%zz");
  EXPECT_EQ(u.ToExternalForm(), "http://a/100%zz");
  EXPECT_THROW(u.ToString(), Error);
  EXPECT_EQ(testing::FailureNumber([&] { u.HashCode(); }), gw::errnum::kTypeMismatch);
}

TEST(UriTextForms, SettersWriteAsGivenAndKeepTheHash) {
  Uri u("http://a/b");
  const std::string hash = u.HashCode();
  u.SetPath("/other path");
  EXPECT_EQ(u.HashCode(), hash);
  EXPECT_EQ(u.ToExternalForm(), "http://a/other path");  // not escaped
  u.SetPort(8080);
  EXPECT_EQ(u.PathAndQuery(), "/other path");
  u.SetQueryString("q=1");
  EXPECT_EQ(u.PathAndQuery(), "/other path?q=1");
  EXPECT_EQ(u.ToExternalForm(), "http://a:8080/other path?q=1");
}

TEST(UriFileParts, FileNameExtensionAndFolder) {
  struct Case {
    const char* path;
    const char* file;
    const char* ext;
    const char* folder;
  };
  const Case cases[] = {
      {"/a/b.html", "b.html", "html", "/a/"},
      {"/a/b", "", "", "/a/b"},
      {"/a/b.", "", "", "/a/b."},
      {"/a/", "", "", "/a/"},
      {"b.html", "", "", "b.html"},
      {"/a.b/c", "", "", "/a.b/c"},
      {"/a/x.tar.gz", "x.tar.gz", "gz", "/a/"},
      {"/a/b.abcde", "b.abcde", "abcde", "/a/"},
      {"/a/b.abcdef", "b.abcdef", "", "/a/"},
      // The file name is removed at its last occurrence, found ignoring case.
      {"/X.html/x.html", "x.html", "html", "/X.html/"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    Uri u;
    u.SetPath(c.path);
    EXPECT_EQ(u.FileName(), c.file);
    EXPECT_EQ(u.FileExtension(), c.ext);
    EXPECT_EQ(u.PathWithoutFile(), c.folder);
  }
}

TEST(UriTables, SchemesAndDefaultPorts) {
  EXPECT_TRUE(Uri::UsesGenericSyntax(" HTTP "));
  EXPECT_TRUE(Uri::UsesGenericSyntax("sipu"));
  EXPECT_FALSE(Uri::UsesGenericSyntax("ldap"));
  EXPECT_TRUE(Uri::UsesSemiGenericSyntax("Z39.50s"));
  EXPECT_FALSE(Uri::UsesSemiGenericSyntax("mailto"));
  EXPECT_EQ(Uri::DefaultPort("Gopher"), 70);
  EXPECT_EQ(Uri::DefaultPort("rwhois"), 4321);
  EXPECT_EQ(Uri::DefaultPort("sip"), 0);
}

TEST(UriClone, CopiesTheAddressButNotTheLinkText) {
  Uri u("http://u@a:81/p?q#f");
  u.SetLinkText("click");
  const auto copy = u.Clone();
  EXPECT_EQ(Describe(*copy), Describe(u));
  EXPECT_EQ(copy->linkText(), "");
  EXPECT_EQ(copy->HashCode(), u.HashCode());
  copy->SetPath("/changed");
  EXPECT_EQ(u.path(), "/p");
  const auto as_object = u.CloneObject();
  EXPECT_EQ(as_object->TypeName(), "Uri");
}

}  // namespace
}  // namespace gw::web
