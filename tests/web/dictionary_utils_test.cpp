#include "web/dictionary_utils.h"

#include <gtest/gtest.h>

#include "support/test_support.h"
#include "web/cookie.h"
#include "web/uri.h"

namespace gw::web {
namespace {

TEST(DictionaryUtils, CombineKeepsDict1FirstAndClonesCloneableValues) {
  auto shared_object = std::make_shared<Object>();  // not cloneable: shared, not copied
  auto uri = std::make_shared<Uri>("http://a/");
  Dictionary<Variant> d1(CompareMode::Text), d2;
  d1.Add("Name", Variant("one"));
  d1.Add("uri", Variant(uri));
  d2.Add("NAME", Variant("two"));
  d2.Add("obj", Variant(shared_object));
  d2.Add("n", Variant(7));

  Dictionary<Variant> combined = DictionaryUtils::CombineDictionaries(d1, d2);
  EXPECT_EQ(combined.Keys(), (std::vector<std::string>{"Name", "uri", "obj", "n"}));
  EXPECT_EQ(combined.Item("name").ToString(), "one");
  EXPECT_EQ(combined.GetCompareMode(), CompareMode::Text);
  const auto copied_uri = combined.Item("uri").As<Uri>();
  ASSERT_NE(copied_uri, nullptr);
  EXPECT_NE(copied_uri, uri);
  EXPECT_EQ(copied_uri->ToExternalForm(), "http://a/");
  EXPECT_EQ(combined.Item("obj").ToObject(), shared_object);
  EXPECT_EQ(combined.Item("n").ToLong(), 7);
}

TEST(DictionaryUtils, CopyClonesTypedValues) {
  Dictionary<std::shared_ptr<Cookie>> d;
  auto cookie = std::make_shared<Cookie>();
  cookie->SetValue("v");
  d.Add("c", cookie);
  auto copy = DictionaryUtils::CopyDictionary(d);
  ASSERT_NE(copy.Item("c"), nullptr);
  EXPECT_NE(copy.Item("c"), cookie);
  EXPECT_EQ(copy.Item("c")->Value(), "v");
}

TEST(DictionaryUtils, TraceAppendsLinesExceptDefault) {
  gw::testing::ScopedHome home;
  DictionaryUtils::Trace("first");
  DictionaryUtils::Trace("Default");
  DictionaryUtils::Trace("second");
  EXPECT_EQ(gw::testing::ReadFile(home.Path() / "TraceFile.txt"), "first\nsecond\n");
}

}  // namespace
}  // namespace gw::web
