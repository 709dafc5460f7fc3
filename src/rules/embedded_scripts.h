// The schema scripts of the rules database, built into the library (schema/<dialect>/<name>.sql).
#pragma once

#include <cstddef>
#include <string_view>

namespace gw {

// The text of the script `name` ("schema", "base_data", "procedures", "upgrade") for a SQL
// dialect as drivers name it ("sqlite"); empty when the dialect has no such script.
std::string_view EmbeddedRulesScript(std::string_view dialect, std::string_view name);

namespace rules_detail {
struct EmbeddedScript {
  const char* dialect;
  const char* name;
  const char* text;
};
extern const EmbeddedScript kEmbeddedScripts[];
extern const std::size_t kEmbeddedScriptCount;
}  // namespace rules_detail

}  // namespace gw
