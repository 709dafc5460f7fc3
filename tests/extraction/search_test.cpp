// The searches under every row: starting points and counts, the memo of a page's hits, and the
// character the progress guard drops.
#include <gtest/gtest.h>

#include <random>

#include "extraction/entity.h"
#include "extraction/entity_internal.h"
#include "extraction/text_search.h"
#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

TEST(StartingPoints, OccurrencesMayOverlapAndMaxCountLimitsThem) {
  const InitStringFinder finder("aba");
  EXPECT_EQ(finder.StartingPoints(nullptr, "ababa_ABA", 0), (std::vector<long>{1, 3, 7}));
  EXPECT_EQ(finder.StartingPoints(nullptr, "ababa_ABA", 2), (std::vector<long>{1, 3}));
  auto e = Entity::Create();
  e->SetInitString("aba");
  EXPECT_EQ(CurrentRowText(*e, "xxababa", nullptr), "ab");
  EXPECT_EQ(CurrentRowText(*e, "xxaba and more", nullptr), "xxaba and more");
}

// The memo must answer exactly what a plain search of the same view answers, for the patterns in
// which the engine asks: forward-moving positions, rows that are prefixes of what is left, and
// the occasional step back to an earlier position.
TEST(InitStringFinder, MemoAnswersLikeAPlainSearch) {
  std::mt19937 rng(7);
  const std::string alphabet = "<>trTR x";
  for (int round = 0; round < 200; ++round) {
    std::string page;
    const int length = 20 + static_cast<int>(rng() % 300);
    for (int k = 0; k < length; ++k) page += alphabet[rng() % alphabet.size()];
    const std::string needle = (round % 3 == 0) ? "<tr>" : (round % 3 == 1 ? "r" : "tR t");
    InitStringFinder finder(needle);
    const text::NoCaseSearcher plain(needle);
    const PageScan scan = PageScan::Begin(page, nullptr);
    std::size_t offset = 0;
    for (int q = 0; q < 60; ++q) {
      if (rng() % 5 == 0 && offset > 0) offset -= rng() % (offset + 1);
      offset = std::min(page.size(), offset + rng() % 12);
      std::string_view rest = std::string_view(page).substr(offset);
      const std::size_t row_end = rng() % (rest.size() + 1);
      const std::string_view row = rest.substr(0, row_end);
      const std::size_t from = rest.empty() ? 0 : rng() % (rest.size() + 1);
      SCOPED_TRACE("round " + std::to_string(round) + " query " + std::to_string(q));
      EXPECT_EQ(finder.Find(&scan, rest, from), FindIn(plain, rest, from));
      EXPECT_EQ(finder.Find(&scan, row), FindIn(plain, row));
    }
  }
}

TEST(InitStringFinder, ANewNeedleOrANewPageForgetsTheMemo) {
  std::string page = "..<a>..<b>..";
  InitStringFinder finder("<a>");
  const PageScan scan = PageScan::Begin(page, nullptr);
  EXPECT_EQ(finder.Find(&scan, page), 2u);
  finder.Reset("<b>");
  EXPECT_EQ(finder.Find(&scan, page), 7u);
  std::string other = "<b>.........";
  const PageScan scan2 = PageScan::Begin(other, nullptr);
  EXPECT_EQ(finder.Find(&scan2, other), 0u);
}

TEST(DropFirstCharacter, DropsAWholeCharacterOfTheOccurrence) {
  EXPECT_EQ(DropFirstCharacter("xx<a>yy", 5), "a>yy");
  EXPECT_EQ(DropFirstCharacter("x\xC3\xA9y", 3), "y");
  EXPECT_EQ(DropFirstCharacter("a", 1), "");
  EXPECT_EQ(CaughtError([] { DropFirstCharacter("abc", 0); }).Number(),
            errnum::kInvalidProcedureCall);
}

}  // namespace
}  // namespace gw::extraction_test
