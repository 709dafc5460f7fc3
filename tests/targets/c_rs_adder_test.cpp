// Appending one recordset's rows to another.
#include "targets/c_rs_adder.h"

#include <gtest/gtest.h>

#include "targets_fixture.h"

namespace gw::targets_test {
namespace {

db::RecordsetPtr List(const std::vector<std::pair<std::string, std::string>>& rows,
                      bool with_chapter = false) {
  auto rs = db::Recordset::Create();
  rs->AppendField("Name", db::DataType::VarWChar, 50);
  rs->AppendField("Url", db::DataType::VarWChar, 200);
  if (with_chapter) rs->AppendField("Children", db::DataType::Chapter);
  rs->OpenFabricated();
  for (const auto& [name, url] : rows) {
    rs->AddNew();
    (*rs)["Name"] = Variant(name);
    (*rs)["Url"] = Variant(url);
    rs->Update();
  }
  if (!rows.empty()) rs->MoveFirst();
  return rs;
}

std::vector<std::string> Names(const db::RecordsetPtr& rs) {
  std::vector<std::string> out;
  for (rs->MoveFirst(); !rs->IsEOF(); rs->MoveNext()) out.push_back((*rs)["Name"].Value().ToText());
  return out;
}

TEST(ConcatListRS, AppendsEveryRowFromTheFirst) {
  auto source = List({{"a", "http://a"}, {"b", "http://b"}});
  auto dest = List({{"x", "http://x"}}, true);
  source->MoveLast();  // positioned on a row: it starts again from the first
  CRSAdder::ConcatListRS(source, dest);
  EXPECT_EQ(Names(dest), (std::vector<std::string>{"x", "a", "b"}));
  dest->MoveLast();
  EXPECT_EQ((*dest)["Url"].Value().ToText(), "http://b");
  EXPECT_TRUE((*dest)["Children"].Value().IsNull());  // chapters are not copied
}

TEST(ConcatListRS, NothingHappensWithoutRowsOrAtTheEnd) {
  auto dest = List({});
  CRSAdder::ConcatListRS(List({}), dest);
  CRSAdder::ConcatListRS(db::Recordset::Create(), dest);  // not open
  auto at_end = List({{"a", "u"}});
  at_end->MoveNext();
  CRSAdder::ConcatListRS(at_end, dest);
  EXPECT_EQ(dest->RecordCount(), 0);
}

TEST(ConcatListRS, ADestinationColumnTheSourceLacksFails) {
  auto source = db::Recordset::Create();
  source->AppendField("Name", db::DataType::VarWChar, 50);
  source->OpenFabricated();
  source->AddNew();
  (*source)["Name"] = Variant("a");
  source->Update();
  const Error e = CaughtError([&] { CRSAdder::ConcatListRS(source, List({})); });
  EXPECT_EQ(e.Number(), errnum::kItemNotFound);
  EXPECT_EQ(e.CallStack().front(), "CRSAdder.ConcatListRS(rsSource,rsDest)");
}

}  // namespace
}  // namespace gw::targets_test
