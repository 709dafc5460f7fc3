// The skip-map search: scores, the order of trials, and what a skipped field leaves.
#include <gtest/gtest.h>

#include "extraction/entity_internal.h"
#include "extraction/skip_map.h"
#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

TEST(SkipMap, SummatorialAddsTheLargestWholeNumbers) {
  struct Case {
    std::int32_t num, times, sum;
  };
  const Case cases[] = {{5, 2, 9}, {5, -1, 15}, {5, 0, 0}, {0, 0, 0}, {2, 4, 2}, {1, 1, 1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.num) + "," + std::to_string(c.times));
    EXPECT_EQ(Summatorial(c.num, c.times), c.sum);
  }
  EXPECT_EQ(CaughtError([] { Summatorial(5, -2); }).Number(), errnum::kOverflow);
}

TEST(SkipMap, CoefficientsFavourFewAndLateFailures) {
  EXPECT_FLOAT_EQ(CalcSuccessCoefficient(1, 3, 5), 0.6f);
  EXPECT_FLOAT_EQ(CalcSuccessCoefficient(2, 1, 5), 7.2f);
  EXPECT_EQ(CalcSuccessCoefficient(0, 4, 5), 0.0f);
  EXPECT_LT(CalcSuccessCoefficient(1, 4, 5), CalcSuccessCoefficient(1, 2, 5));
  EXPECT_EQ(CaughtError([] { CalcSuccessCoefficient(1, 1, 0); }).Number(), errnum::kDivisionByZero);
}

TEST(SkipMap, BitsChooseRecordsAndTheFirstRecordOfAStepAnswers) {
  SkipMap map = {{2, false}, {4, false}, {2, false}};
  GetSkipMap(0b101, map);
  EXPECT_TRUE(map[0].skip);
  EXPECT_FALSE(map[1].skip);
  EXPECT_TRUE(map[2].skip);
  GetSkipMap(0b110, map);
  EXPECT_FALSE(IsSkipStep(2, map));  // the first record with step 2 is not skipped
  EXPECT_TRUE(IsSkipStep(4, map));
  EXPECT_FALSE(IsSkipStep(9, map));
  EXPECT_FALSE(IsSkipStep(1, SkipMap{}));
}

// A dataset with fields over <a>, <b>, <c>...; counts the trials by the events of a field that no
// trial skips (a field raises its own events in trials too).
class SkipSearch : public ExtractionTest {
 protected:
  AttribPtr Add(const std::string& tag, bool optional) {
    return AddField(entity_, tag, "<" + tag + ">", "</" + tag + ">", optional);
  }
  int CountTrials(const std::string& row, SkipMap& best, float& coefficient, long watched) {
    int trials = 0;
    ScopedConnection c = entity_->GetAttributes().Item(watched)->OnParserAction.Connect(
        [&](std::string_view, TokenTypeEnum type, long, std::string_view, std::string_view,
            std::string_view) {
          if (type == TokenTypeEnum::FieldStartTag || type == TokenTypeEnum::FieldStartTagNotFound)
            ++trials;
        });
    best = FindBestSkipMap(*entity_, row, coefficient, nullptr);
    return trials;
  }
  EntityPtr entity_ = AddRoot("Rows", "<r>", "rows");
};

TEST_F(SkipSearch, TrialsStopAtAScoreOfZeroAndTiesGoToTheFirstPattern) {
  struct Case {
    const char* name;
    std::vector<std::pair<std::string, bool>> fields;  // tag, optional
    const char* row;
    long watched;  // a field that no trial skips
    int trials;
    float coefficient;
    const char* map;  // step and "+" (skipped) or "-" for each optional field
  };
  const Case cases[] = {
      // One failure at step 2 of 2 fields: 1 x (2 + 1 - 2) / 2.
      {"no optional field", {{"a", false}, {"b", false}}, "<r><a>1</a>", 1, 1, 0.5f, ""},
      {"every field present",
       {{"a", false}, {"b", true}, {"c", true}},
       "<r><a>1</a><b>2</b><c>3</c>",
       1,
       1,
       0.0f,
       "2- 3-"},
      {"the first optional field absent",
       {{"a", true}, {"b", true}},
       "<r><b>2</b><r>",
       2,
       2,
       0.0f,
       "1+ 2-"},
      // "a" is absent in every combination.
      {"a tie", {{"a", false}, {"b", true}}, "<r><b>2</b>", 1, 2, 1.0f, "2-"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    entity_ = AddRoot(c.name, "<r>", "rows");
    for (const auto& [tag, optional] : c.fields) Add(tag, optional);
    SkipMap best;
    float coefficient = -5;
    EXPECT_EQ(CountTrials(c.row, best, coefficient, c.watched), c.trials);
    EXPECT_FLOAT_EQ(coefficient, c.coefficient);
    std::string map;
    for (const auto& record : best) {
      map += (map.empty() ? "" : " ") + std::to_string(record.step) + (record.skip ? "+" : "-");
    }
    EXPECT_EQ(map, c.map);
  }
}

TEST_F(SkipSearch, TrialsSeeOnlyTheCurrentRowAndNeverConsumeIt) {
  Add("a", false);
  Add("b", false);
  // <b> exists only in the next row: the trial fails on it.
  float coefficient = -5;
  FindBestSkipMap(*entity_, "<r><a>1</a><r><b>2</b>", coefficient, nullptr);
  EXPECT_FLOAT_EQ(coefficient, 0.5f);
  EXPECT_FLOAT_EQ(TrySkipMap(*entity_, {}, "<r><a>1</a><b>2</b>"), 0.0f);
  EXPECT_FLOAT_EQ(TrySkipMap(*Entity::Create(), {}, "anything"), kFailedTrialCoefficient);
}

TEST_F(SkipSearch, ASkippedFieldLeavesItsColumnUnsetAndItsTagsInTheText) {
  Exec("CREATE TABLE rows (a VARCHAR(5), i VARCHAR(5), b VARCHAR(5))");
  Add("a", false);
  Add("i", true);  // present, but after <b>: cutting it would swallow <b>
  Add("b", false);
  std::string text = "<r><a>1</a><b>2</b><i>x</i>";
  entity_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT a, i, b FROM rows"), (RowList{{"1", "NULL", "2"}}));
  EXPECT_EQ(text, "</b><i>x</i>");
  EXPECT_EQ(entity_->PendingFailure().Number(), 0u);
  EXPECT_EQ(entity_->Metadata()->TotalErrorCount(), 0);
}

TEST_F(SkipSearch, ThirtyOneOptionalFieldsOverflowAsAFaultOfTheRow) {
  Exec("CREATE TABLE rows (a VARCHAR(5))");
  for (int k = 0; k < 31; ++k) Add("f" + std::to_string(k), true);
  std::string text = "<r><f0>1</f0>";
  const Error e = CaughtError([&] { entity_->Extract(text, false); });
  EXPECT_EQ(e.Number(), errnum::kOverflow);
  EXPECT_EQ(e.CallStack(),
            std::vector<std::string>{
                "Entity.Extract(SrcHTML,UseTmpTbls,OverrideConnStr,UniqueTblPrefix)"});
  EXPECT_TRUE(Rows("SELECT * FROM rows").empty());
}

}  // namespace
}  // namespace gw::extraction_test
