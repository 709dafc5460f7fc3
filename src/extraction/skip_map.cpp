#include "extraction/skip_map.h"

#include <cstdint>

#include "platform/error.h"

namespace gw {

void GetSkipMap(std::int32_t bit_map, SkipMap& base) {
  const auto bits = static_cast<std::uint32_t>(bit_map);
  for (std::size_t i = 0; i < base.size(); ++i) {
    base[i].skip = i < 32 && (bits >> i & 1u) != 0;
  }
}

bool IsSkipStep(std::int32_t step_num, const SkipMap& skip_map) {
  for (const SkipItem& item : skip_map) {
    if (item.step == step_num) return item.skip;
  }
  return false;
}

std::int32_t Summatorial(std::int32_t num, std::int32_t times) {
  if (times == -1) times = num;
  if (times < -1) throw Error(errnum::kOverflow, "Entity.Summatorial", "Overflow");
  // Counting down from `num` to `num - times` is an arithmetic series.
  const std::int64_t first = num;
  const std::int64_t count = times;
  const std::int64_t sum = count * (2 * first - count + 1) / 2;
  if (sum < INT32_MIN || sum > INT32_MAX) {
    throw Error(errnum::kOverflow, "Entity.Summatorial", "Overflow");
  }
  return static_cast<std::int32_t>(sum);
}

float CalcSuccessCoefficient(std::int32_t err_count, std::int32_t min_failed_step,
                             std::int32_t field_count) {
  if (field_count == 0)
    throw Error(errnum::kDivisionByZero, "Entity.CalcSuccessCoefficient", "Division by zero");
  const double errors = err_count;
  const double spread = static_cast<double>(Summatorial(field_count, err_count)) + 1.0 -
                        static_cast<double>(min_failed_step);
  return static_cast<float>(errors * errors * spread / static_cast<double>(field_count));
}

}  // namespace gw
