#include "extraction/template_checks.h"

#include <set>

#include "extraction/attrib.h"
#include "filters/column_filter.h"
#include "platform/text.h"

namespace gw::template_checks {

std::string NameProblem(std::string_view name) {
  return text::HasControlCharacter(name) ? "it holds a control character" : std::string();
}

std::optional<std::pair<std::size_t, std::size_t>> FindRepeatedName(
    const std::vector<std::string>& names) {
  for (std::size_t later = 1; later < names.size(); ++later) {
    for (std::size_t earlier = 0; earlier < later; ++earlier) {
      if (text::EqualsNoCase(names[earlier], names[later])) return std::pair(earlier, later);
    }
  }
  return std::nullopt;
}

bool InParentLoop(const std::string& id,
                  const std::function<std::string(const std::string&)>& parent_of) {
  std::set<std::string> passed;
  for (std::string at = id; !at.empty(); at = parent_of(at)) {
    if (!passed.insert(text::FoldCaseKey(at)).second) return true;
  }
  return false;
}

bool IsKnownFilter(std::string_view stored_column_type) {
  return filters::IsColumnFilterName(SplitColumnType(stored_column_type).column_type);
}

}  // namespace gw::template_checks
