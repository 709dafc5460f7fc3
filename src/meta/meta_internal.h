// Internal to the run metadata: the success code of a level, as the rules store chooses it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/db/recordset.h"
#include "rules/package_data_access.h"

namespace gw {
class MetaDoc;
class MetaEntity;
}  // namespace gw

namespace gw::meta_internal {

// How a level of the tree asks the rules store for its success code: its name in reports, the
// store's query by determinant, and the column that holds the code's id.
struct SuccessCodeLookup {
  std::string_view level;
  db::RecordsetPtr (D_Metabase::*query)(double);
  std::string_view id_column;
};

inline constexpr SuccessCodeLookup kJobCode{"MetaJob", &D_Metabase::GetJobSuccessCode,
                                            "job_success_code_id"};
inline constexpr SuccessCodeLookup kTaskCode{"MetaTask", &D_Metabase::GetTaskSuccessCode,
                                             "task_success_code_id"};
inline constexpr SuccessCodeLookup kDocCode{"MetaDoc", &D_Metabase::GetDocSuccessCode,
                                            "doc_success_code_id"};
inline constexpr SuccessCodeLookup kEntityCode{"MetaEntity", &D_Metabase::GetEntitySuccessCode,
                                               "entity_success_code_id"};

// `sum / count` (count > 0), held at 100: the mean extraction percentage of a level's parts.
inline float MeanHeldAt100(double sum, long count) {
  const double mean = sum / static_cast<double>(count);
  return mean > 100 ? 100.0f : static_cast<float>(mean);
}

// The display name and the id of the code the store gives `determinant` at that level, asked
// anew at each call; they report as "<level>.SuccessCode" and "<level>.SuccessCodeId". A store
// that gives no row fails with 3021.
std::string SuccessCodeName(const SuccessCodeLookup& lookup, float determinant);
std::int16_t SuccessCodeId(const SuccessCodeLookup& lookup, float determinant);

// What a dataset's result row holds: the same write whether the dataset is still an object or
// its document was settled (`MetaDocs::SettleAll`).
struct DatasetResult {
  long occur_count = 0;
  long extract_count = 0;
  long error_count = 0;
  float avg_success_coeff = 0;
  float avg_errors = 0;
  float extraction_pct = 0;
  // Refusals as the document counted them for this dataset: over the whole document.
  long rows_refused = 0;
  std::string first_refusal;
};
DatasetResult ResultOf(const MetaEntity& dataset, const MetaDoc& doc);
// The dataset's row, with the success code the store gives its `extraction_pct`.
bool SaveDatasetResult(const std::string& doc_id, const std::string& entity_id,
                       const DatasetResult& result);

}  // namespace gw::meta_internal
