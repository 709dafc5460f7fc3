#include "rules/embedded_scripts.h"

#include "platform/text.h"

namespace gw {

std::string_view EmbeddedRulesScript(std::string_view dialect, std::string_view name) {
  for (std::size_t k = 0; k < rules_detail::kEmbeddedScriptCount; ++k) {
    const auto& s = rules_detail::kEmbeddedScripts[k];
    if (text::EqualsNoCase(s.dialect, dialect) && text::EqualsNoCase(s.name, name)) return s.text;
  }
  return {};
}

}  // namespace gw
