#include "platform/variant.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

#include "platform/error.h"

namespace gw {
namespace {

using testing::FailureNumber;

TEST(Variant, TextForms) {
  EXPECT_EQ(Variant().ToString(), "");
  EXPECT_EQ(Variant(true).ToString(), "True");
  EXPECT_EQ(Variant(1.5).ToString(), "1.5");
  EXPECT_EQ(Variant(0.1 + 0.2).ToString(), "0.3");
  EXPECT_EQ(Variant(1e20).ToString(), "1E+20");
  EXPECT_EQ(Variant(42).ToString(), "42");
  EXPECT_EQ(Variant(DateTime::FromParts(2026, 11, 3, 7, 5, 9)).ToString(), "11-03-2026 07:05:09");
  EXPECT_EQ(Variant(kNull).ToText(), "");
}

TEST(Variant, ConversionsFollowTheRuntime) {
  EXPECT_EQ(Variant("007").ToLong(), 7);
  EXPECT_EQ(Variant(2.5).ToLong(), 2);  // half to even
  EXPECT_EQ(Variant(3.5).ToLong(), 4);
  EXPECT_EQ(Variant("&H1F").ToLong(), 31);
  EXPECT_TRUE(Variant("true").ToBool());
  EXPECT_FALSE(Variant("0").ToBool());
  EXPECT_EQ(Variant(true).ToLong(), -1);
  EXPECT_EQ(Variant("12-25-2025 10:00:00").ToDate(), DateTime::FromParts(2025, 12, 25, 10));
}

TEST(Variant, FailuresCarryTheRuntimeNumbers) {
  EXPECT_EQ(FailureNumber([] { Variant(kNull).ToString(); }), errnum::kInvalidUseOfNull);
  EXPECT_EQ(FailureNumber([] { Variant("abc").ToLong(); }), errnum::kTypeMismatch);
  EXPECT_EQ(FailureNumber([] { Variant(70000).ToInteger(); }), errnum::kOverflow);
  EXPECT_EQ(FailureNumber([] { Variant("x").ToObject(); }), errnum::kTypeMismatch);
}

TEST(Variant, EqualityAcrossNumericTypes) {
  EXPECT_EQ(Variant(1), Variant(1.0));
  EXPECT_EQ(Variant(static_cast<std::int16_t>(3)), Variant(3LL));
  EXPECT_FALSE(Variant("1") == Variant(1));
  EXPECT_FALSE(Variant() == Variant(kNull));
  EXPECT_EQ(Variant(kNull), Variant(kNull));
}

TEST(Variant, HoldsObjectsByReference) {
  struct Thing : Object {
    int n = 1;
  };
  auto t = std::make_shared<Thing>();
  Variant v(t);
  EXPECT_TRUE(v.IsObject());
  v.As<Thing>()->n = 9;
  EXPECT_EQ(t->n, 9);
  EXPECT_EQ(Variant().ToObject(), nullptr);
}

TEST(DateTime, TextFormsBothWays) {
  const auto d = DateTime::FromParts(2026, 2, 28, 23, 59, 1);
  EXPECT_EQ(d.ToUsText(), "02-28-2026 23:59:01");
  EXPECT_EQ(d.ToIsoText(), "2026-02-28 23:59:01");
  EXPECT_EQ(DateTime::ParseUs("02-28-2026 23:59:01"), d);
  EXPECT_EQ(DateTime::ParseUs("2/28/2026 11:59:01 PM"), d);
  EXPECT_EQ(DateTime::ParseIso("2026-02-28T23:59:01"), d);
  EXPECT_FALSE(DateTime::ParseUs("02-30-2026").has_value());
  EXPECT_FALSE(DateTime::ParseIso("2026-13-01").has_value());
  EXPECT_FALSE(DateTime::Parse("soon").has_value());
}

TEST(DateTime, EmptySortsFirstAndArithmeticCrossesMonths) {
  DateTime empty;
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_EQ(empty.ToUsText(), "");
  const auto d = DateTime::FromParts(2024, 2, 28, 12);
  EXPECT_LT(empty, d);
  EXPECT_EQ(d.AddDays(1).ToIsoText(), "2024-02-29 12:00:00");
  EXPECT_EQ(d.AddDays(2).MillisecondsSince(d), 2 * 86'400'000LL);
  EXPECT_EQ(DateTime::FromOADate(d.ToOADate()), d);
  EXPECT_EQ(DateTime::FromOADate(0).ToIsoText(), "1899-12-30 00:00:00");
}

}  // namespace
}  // namespace gw
