#include "rules/shape.h"

#include <algorithm>
#include <map>
#include <vector>

#include "platform/db/connection_string.h"
#include "platform/text.h"
#include "rules/connection_string.h"
#include "rules/settings.h"

namespace gw {

namespace {

// A relate key: texts compare without case, other values by their text form.
std::string RelateKey(const Variant& v) { return text::FoldCaseKey(v.ToText()); }

void AppendRow(db::Recordset& dst, db::Recordset& src) {
  dst.AddNew();
  auto& from = src.GetFields();
  auto& to = dst.GetFields();
  for (long k = 0; k < from.Count(); ++k) to.Item(k).SetValue(from.Item(k).Value());
  dst.Update();
}

std::u32string Decode(std::string_view s) {
  std::u32string out;
  for (std::size_t i = 0; i < s.size();) out.push_back(text::DecodeUtf8(s, i));
  return out;
}

std::string Encode(std::u32string_view s) {
  std::string out;
  for (char32_t c : s) text::AppendUtf8(out, c);
  return out;
}

std::u32string StripBackslashes(std::u32string s) {
  std::erase(s, U'\\');
  return s;
}

std::string TrimmedText(std::u32string_view s) { return std::string(text::TrimSpaces(Encode(s))); }

}  // namespace

db::RecordsetPtr EmptyRecordsetLike(const db::Recordset& like) {
  auto rs = db::Recordset::Create();
  for (const auto& c : like.Columns()) {
    const bool text_column = db::IsTextType(c.type);
    rs->AppendField(c.name, c.type, text_column ? 0 : c.defined_size, true);
  }
  rs->OpenFabricated();
  return rs;
}

db::RecordsetPtr ShapeAppend(db::Recordset& parent, db::Recordset& child,
                             std::string_view parent_column, std::string_view child_column,
                             std::string chapter_name) {
  // Group the child rows once, keeping their order within each group.
  std::map<std::string, db::RecordsetPtr> groups;
  if (child.RecordCount() > 0) {
    child.MoveFirst();
    while (!child.IsEOF()) {
      const Variant& key = child[child_column].Value();
      if (!key.IsNull() && !key.IsEmpty()) {
        auto& group = groups[RelateKey(key)];
        if (!group) group = EmptyRecordsetLike(child);
        AppendRow(*group, child);
      }
      child.MoveNext();
    }
  }

  auto shaped = db::Recordset::Create();
  for (const auto& c : parent.Columns()) {
    shaped->AppendField(c.name, c.type, db::IsTextType(c.type) ? 0 : c.defined_size, true);
  }
  shaped->AppendField(std::move(chapter_name), db::DataType::Chapter);
  shaped->OpenFabricated();
  const long chapter = static_cast<long>(parent.Columns().size());
  if (parent.RecordCount() > 0) {
    parent.MoveFirst();
    while (!parent.IsEOF()) {
      shaped->AddNew();
      auto& from = parent.GetFields();
      auto& to = shaped->GetFields();
      for (long k = 0; k < from.Count(); ++k) to.Item(k).SetValue(from.Item(k).Value());
      const Variant& key = parent[parent_column].Value();
      db::RecordsetPtr rows;
      if (!key.IsNull() && !key.IsEmpty()) {
        if (auto it = groups.find(RelateKey(key)); it != groups.end()) rows = it->second->Clone();
      }
      if (!rows) rows = EmptyRecordsetLike(child);
      if (rows->RecordCount() > 0) rows->MoveFirst();
      to.Item(chapter).SetValue(Variant(rows));
      shaped->Update();
      parent.MoveNext();
    }
    parent.MoveFirst();
  }
  if (shaped->RecordCount() > 0) shaped->MoveFirst();
  return shaped;
}

Variant CategoryOfName(const Variant& name) {
  if (name.IsNull()) return Variant(kNull);
  const std::u32string x = Decode(name.ToText());
  const std::size_t slash = x.find(U'\\');
  const std::size_t left = slash == std::u32string::npos ? 0 : slash + 1;  // LEFT(x, CHARINDEX)
  const std::string category = TrimmedText(StripBackslashes(x.substr(0, left)));
  return Variant(category.empty() ? std::string("(Default)") : category);
}

Variant ShortNameOf(const Variant& name) {
  if (name.IsNull()) return Variant(kNull);
  const std::u32string x = Decode(name.ToText());
  const std::size_t slash = x.find(U'\\');
  const std::size_t charindex = slash == std::u32string::npos ? 0 : slash + 1;
  std::size_t len = x.size();  // LEN: trailing spaces do not count
  while (len > 0 && x[len - 1] == U' ') --len;
  const std::size_t n = len > charindex ? len - charindex : 0;
  return Variant(TrimmedText(StripBackslashes(x.substr(x.size() - n))));
}

namespace {
bool TextLess(const Variant& a, const Variant& b) {
  if (a.IsNull() || b.IsNull()) return a.IsNull() && !b.IsNull();
  return text::CompareNoCase(a.ToText(), b.ToText()) < 0;
}
}  // namespace

db::RecordsetPtr CategoryChildRecordset(db::Recordset& items, std::string_view id_column,
                                        std::string_view name_column,
                                        std::string_view modified_label, CategoryOrder order) {
  struct Item {
    Variant id, full_name, category, name, description, created, modified;
  };
  std::vector<Item> rows;
  if (items.RecordCount() > 0) {
    for (items.MoveFirst(); !items.IsEOF(); items.MoveNext()) {
      const Variant full = items[name_column].Value();
      rows.push_back(Item{items[id_column].Value(), full, CategoryOfName(full), ShortNameOf(full),
                          items["description"].Value(), items["date_created"].Value(),
                          items["date_modified"].Value()});
    }
  }
  std::stable_sort(rows.begin(), rows.end(), [&](const Item& a, const Item& b) {
    return order == CategoryOrder::ByShortName ? TextLess(a.name, b.name)
                                               : TextLess(a.full_name, b.full_name);
  });
  auto child = db::Recordset::Create();
  child->AppendField(std::string(id_column), db::DataType::VarWChar);
  child->AppendField("category", db::DataType::VarWChar);
  child->AppendField("Name", db::DataType::VarWChar);
  child->AppendField("Description", db::DataType::VarWChar);
  child->AppendField("Create Date", db::DataType::Date);
  child->AppendField(std::string(modified_label), db::DataType::Date);
  child->OpenFabricated();
  for (const Item& r : rows) {
    child->AddNew();
    auto& f = child->GetFields();
    f.Item(0L).SetValue(r.id);
    f.Item(1L).SetValue(r.category);
    f.Item(2L).SetValue(r.name);
    f.Item(3L).SetValue(r.description);
    f.Item(4L).SetValue(r.created);
    f.Item(5L).SetValue(r.modified);
    child->Update();
  }
  if (child->RecordCount() > 0) child->MoveFirst();
  return child;
}

db::RecordsetPtr CategoryParentRecordset(db::Recordset& child) {
  std::vector<Variant> categories;
  if (child.RecordCount() > 0) {
    for (child.MoveFirst(); !child.IsEOF(); child.MoveNext()) {
      categories.push_back(child["category"].Value());
    }
    child.MoveFirst();
  }
  std::stable_sort(categories.begin(), categories.end(), TextLess);
  auto parent = db::Recordset::Create();
  parent->AppendField("category", db::DataType::VarWChar);
  parent->OpenFabricated();
  for (std::size_t k = 0; k < categories.size(); ++k) {
    // DISTINCT, as the store compares: without case.
    if (k > 0 && !TextLess(categories[k - 1], categories[k])) continue;
    parent->AddNew();
    parent->GetFields().Item(0L).SetValue(categories[k]);
    parent->Update();
  }
  if (parent->RecordCount() > 0) parent->MoveFirst();
  return parent;
}

db::RecordsetPtr CategoryTree(db::Recordset& child) {
  auto parent = CategoryParentRecordset(child);
  return ShapeAppend(*parent, child, "category", "category");
}

std::string ShapeConnectionString() {
  std::string cn = Settings().GetOption("ShapeCnStr").ToText();
  if (cn.empty()) return modConnectionString::GetCnStr();
  auto props = db::ConnectionProperties::Parse(cn);
  if (text::EqualsNoCase(props.Get("Provider"), "MSDataShape")) {
    const std::string data_provider = props.Get("Data Provider");
    props.Remove("Data Provider");
    props.Set("Provider", data_provider);
    cn = props.ToString();
  }
  return cn;
}

}  // namespace gw
