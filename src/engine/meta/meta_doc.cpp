#include "engine/meta/meta_doc.h"

namespace gw {

float MetaDoc::AvgExtractionPct() const {
  if (meta_entities_.Count() == 0) return 0;
  double sum = 0;
  for (const MetaEntityPtr& e : meta_entities_) sum += e->ExtractionPct();
  return static_cast<float>(sum / static_cast<double>(meta_entities_.Count()));
}

}  // namespace gw
