// Skip maps: which optional fields a row leaves out.
//
// A skip map has one record per optional field of a dataset, in field order; a field without a
// record (a required one) is never skipped. A bit map (a 32-bit number) chooses the records to
// skip: bit i set skips record i. `Entity.FindBestSkipMap` tries every bit map on a row and keeps
// the one with the lowest success coefficient (lower is better, 0 is perfect).
#pragma once

#include <cstdint>
#include <vector>

namespace gw {

struct SkipItem {
  std::int32_t step = 0;  // the field's `Step`
  bool skip = false;
};

using SkipMap = std::vector<SkipItem>;

// Sets the skip flags of `base` in place from the bits of `bit_map`.
void GetSkipMap(std::int32_t bit_map, SkipMap& base);

// The flag of the first record whose step is `step_num`; false when none has it.
bool IsSkipStep(std::int32_t step_num, const SkipMap& skip_map);

// The sum of the `times` largest whole numbers up to `num`: `num` + (`num` - 1) + ... counting
// `times` numbers (`times` -1 means `num` numbers). A `times` above `num` counts on through zero
// into the negative numbers. Fails with 6 (overflow) for a `times` below -1, for which the count
// would never end.
std::int32_t Summatorial(std::int32_t num, std::int32_t times);

// err_count squared x (Summatorial(field_count, err_count) + 1 - min_failed_step) / field_count,
// held in single precision. Fails with 11 (division by zero) when `field_count` is 0.
float CalcSuccessCoefficient(std::int32_t err_count, std::int32_t min_failed_step,
                             std::int32_t field_count);

// The score a trial gets when it fails for any reason other than a missing tag: worse than any
// ordinary score.
inline constexpr float kFailedTrialCoefficient = 1000000000.0f;

}  // namespace gw
