#include "platform/collection.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/test_support.h"

namespace gw {
namespace {

std::vector<std::string> Items(const Collection<std::string>& c) {
  return std::vector<std::string>(c.begin(), c.end());
}

TEST(Collection, KeysBeyondAsciiIgnoreCaseAndSurviveRenumbering) {
  Collection<int> c;
  c.Add(1, "Straßenbahn-ÄRGER");
  c.Add(2, "École");
  c.AddBefore(0, "Öl", 1);  // every key after it moves one place on
  EXPECT_EQ(c.Item("straßenbahn-ärger"), 1);
  EXPECT_EQ(c.PositionOf("ÉCOLE"), 3);
  EXPECT_EQ(c.PositionOf("öL"), 1);
  EXPECT_THROW(c.Add(9, "éCOLE"), Error);
  c.Remove("öl");
  EXPECT_EQ(c.PositionOf("école"), 2);
  EXPECT_FALSE(c.Exists("Öl"));
  c.Add(4, "ÖL");  // a removed key can come back
  EXPECT_EQ(c.PositionOf("öl"), 3);
}

TEST(Collection, FailuresCarryTheRuntimeNumbers) {
  Collection<int> c;
  c.Add(1, "one");
  struct Case {
    const char* what;
    std::function<void()> call;
    ErrorNumber number;
  };
  const Case cases[] = {
      {"position 0", [&] { c.Item(0); }, errnum::kSubscriptOutOfRange},
      {"position past the end", [&] { c.Item(2); }, errnum::kSubscriptOutOfRange},
      {"unknown key", [&] { c.Item("two"); }, errnum::kInvalidProcedureCall},
      {"duplicate key", [&] { c.Add(2, "ONE"); }, errnum::kDuplicateKey},
      {"remove unknown key", [&] { c.Remove("zz"); }, errnum::kInvalidProcedureCall},
  };
  for (const auto& k : cases) {
    SCOPED_TRACE(k.what);
    EXPECT_EQ(testing::FailureNumber([&] { k.call(); }), k.number);
  }
  EXPECT_EQ(c.Count(), 1);  // the refused Add left nothing behind
  EXPECT_EQ(c.Find("two"), nullptr);
  EXPECT_FALSE(c.TryRemove(5));
}

TEST(Collection, InsertBeforeAndAfterKeepKeysPointingAtTheirItems) {
  Collection<std::string> c;
  c.Add("b", "kb");
  c.AddBefore("a", "ka", 1);
  c.AddAfter("c", "kc", "kb");
  c.AddBefore("a2", "", "kb");
  EXPECT_EQ(Items(c), (std::vector<std::string>{"a", "a2", "b", "c"}));
  EXPECT_EQ(c.Item(2), "a2");
  EXPECT_EQ(c.Item("kb"), "b");
  EXPECT_EQ(c.Item("kc"), "c");
  c.Remove(1);
  EXPECT_EQ(c.Item("kb"), "b");
  EXPECT_EQ(c.PositionOf("kc"), 3);
  c.Remove("kb");
  EXPECT_EQ(Items(c), (std::vector<std::string>{"a2", "c"}));
  EXPECT_EQ(c.Item("kc"), "c");
  EXPECT_FALSE(c.Exists("kb"));
}

TEST(Dictionary, CompareModesDecideWhetherCaseMatters) {
  Dictionary<std::string> binary;
  binary.Add("Name", "1");
  EXPECT_FALSE(binary.Exists("name"));
  binary.Add("name", "2");
  EXPECT_EQ(binary.Count(), 2);

  Dictionary<std::string> textual(CompareMode::Text);
  textual.Add("Content-Type", "text/html");
  EXPECT_TRUE(textual.Exists("content-type"));
  EXPECT_EQ(*textual.StoredKey("CONTENT-TYPE"), "Content-Type");
  const Error e = testing::CaughtError([&] { textual.Add("CONTENT-TYPE", "x"); });
  EXPECT_EQ(e.Number(), errnum::kDuplicateKey);
  // The compare mode can change only while the map is empty, and then it takes effect.
  EXPECT_THROW(textual.SetCompareMode(CompareMode::Binary), Error);
  textual.RemoveAll();
  textual.SetCompareMode(CompareMode::Binary);
  textual.Add("Ä", "1");
  EXPECT_FALSE(textual.Exists("ä"));
  binary.RemoveAll();
  binary.SetCompareMode(CompareMode::Text);
  binary.Add("Ä", "1");
  EXPECT_TRUE(binary.Exists("ä"));
}

TEST(Dictionary, ItemOfAnUnknownKeyAddsItButFindDoesNot) {
  Dictionary<> d;
  EXPECT_EQ(d.Find("x"), nullptr);
  EXPECT_EQ(d.Count(), 0);
  EXPECT_TRUE(d.Item("x").IsEmpty());
  EXPECT_EQ(d.Count(), 1);
  d.Set("x", Variant(5));
  EXPECT_EQ(d["x"].ToLong(), 5);
  EXPECT_EQ(testing::FailureNumber([&] { d.Remove("nope"); }), errnum::kElementNotFound);
}

// Small dictionaries are searched in order, larger ones through an index: the same answers on
// either side of the change and across it, in both directions.
TEST(Dictionary, AnswersAreTheSameWhateverItsSize) {
  for (const int size : {1, 8, 9, 30}) {
    SCOPED_TRACE(size);
    Dictionary<int> d(CompareMode::Text);
    std::vector<std::string> keys;
    for (int k = 0; k < size; ++k) {
      keys.push_back("Key-" + std::to_string(k));
      d.Add(keys.back(), k);
    }
    for (int k = 0; k < size; ++k) {
      ASSERT_NE(d.Find("KEY-" + std::to_string(k)), nullptr) << k;
      EXPECT_EQ(*d.Find("key-" + std::to_string(k)), k);
      EXPECT_EQ(*d.StoredKey("kEy-" + std::to_string(k)), keys[k]);
    }
    EXPECT_FALSE(d.Exists("Key-" + std::to_string(size)));
    EXPECT_THROW(d.Add("KEY-0", 0), Error);
    // Remove every other key, down across the change of search, and add them back at the end.
    for (int k = 0; k < size; k += 2) d.Remove("key-" + std::to_string(k));
    for (int k = 0; k < size; ++k) {
      EXPECT_EQ(d.Exists("Key-" + std::to_string(k)), k % 2 == 1) << k;
    }
    for (int k = 0; k < size; k += 2) d.Add(keys[k], -k);
    // Keys and items stay in the order they were added, across the removals.
    std::vector<std::string> expected;
    std::vector<int> expected_items;
    for (const int first : {1, 0}) {
      for (int k = first; k < size; k += 2) {
        expected.push_back(keys[k]);
        expected_items.push_back(first == 1 ? k : -k);
      }
    }
    EXPECT_EQ(d.Keys(), expected);
    EXPECT_EQ(d.Items(), expected_items);
    for (int k = 0; k < size; ++k) EXPECT_EQ(*d.Find(keys[k]), k % 2 == 1 ? k : -k);
    d.RemoveAll();
    EXPECT_EQ(d.Find("key-0"), nullptr);
    d.Add("key-0", 7);
    EXPECT_EQ(*d.Find("KEY-0"), 7);
  }
}

TEST(Dictionary, CopiesAreIndependent) {
  Dictionary<int> a(CompareMode::Text);
  a.Add("k", 1);
  Dictionary<int> b = a;
  b.Set("K", 2);
  b.Add("j", 3);
  EXPECT_EQ(*a.Find("k"), 1);
  EXPECT_EQ(a.Count(), 1);
  EXPECT_EQ(*b.Find("k"), 2);
  EXPECT_EQ(b.GetCompareMode(), CompareMode::Text);
}

}  // namespace
}  // namespace gw
