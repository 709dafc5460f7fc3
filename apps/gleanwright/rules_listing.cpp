#include "rules_listing.h"

#include <algorithm>

#include "platform/db/connection_string.h"
#include "platform/text.h"

namespace gw::app {

std::string DescribeRulesStore(const std::string& cn_str) {
  const auto props = db::ConnectionProperties::Parse(cn_str);
  const std::string provider = props.Get("Provider");
  std::string source = props.Get("Data Source");
  if (source.empty()) source = props.Get("Database");
  if (text::StartsWithNoCase(provider, "SQLite")) return source;
  return "Provider=" + provider + ";Data Source=" + source;
}

void PrintCategoryTree(std::ostream& out, db::Recordset& tree, const std::string& id_column,
                       const std::string& empty_text) {
  if (tree.RecordCount() == 0) {
    out << empty_text << "\n";
    return;
  }
  // One width for the names of the whole listing, so that ids and descriptions line up.
  std::size_t width = 0;
  for (tree.MoveFirst(); !tree.IsEOF(); tree.MoveNext()) {
    auto items = tree["Chapter1"].Value().As<db::Recordset>();
    if (!items || items->RecordCount() == 0) continue;
    for (items->MoveFirst(); !items->IsEOF(); items->MoveNext()) {
      width = std::max(
          width,
          text::CountCodePoints(text::EscapeControlCharacters((*items)["Name"].Value().ToText())));
    }
    items->MoveFirst();
  }
  for (tree.MoveFirst(); !tree.IsEOF(); tree.MoveNext()) {
    out << text::EscapeControlCharacters(tree["category"].Value().ToText()) << "\n";
    auto items = tree["Chapter1"].Value().As<db::Recordset>();
    if (!items || items->RecordCount() == 0) continue;
    for (items->MoveFirst(); !items->IsEOF(); items->MoveNext()) {
      // A name or description with a line break prints as one line.
      const std::string name = text::EscapeControlCharacters((*items)["Name"].Value().ToText());
      const std::string description =
          text::EscapeControlCharacters((*items)["Description"].Value().ToText());
      out << "  " << name << std::string(width - text::CountCodePoints(name), ' ') << "  "
          << (*items)[id_column].Value().ToText();
      if (!description.empty()) out << "  " << description;
      out << "\n";
    }
    items->MoveFirst();
  }
  tree.MoveFirst();
}

}  // namespace gw::app
