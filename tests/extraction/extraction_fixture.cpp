#include "extraction_fixture.h"

#include "extraction/stored_fields.h"

namespace gw::extraction_test {

namespace {

class RecordingRow : public SinkRow {
 public:
  RecordingRow(std::unique_ptr<SinkRow> inner, int& closed)
      : inner_(std::move(inner)), closed_(closed) {}
  ~RecordingRow() override { Close(); }
  std::int32_t DefinedSize(std::string_view c) override { return inner_->DefinedSize(c); }
  void SetValue(std::string_view c, Variant v) override { inner_->SetValue(c, std::move(v)); }
  long ColumnCount() override { return inner_->ColumnCount(); }
  std::string_view ColumnName(long i) override { return inner_->ColumnName(i); }
  void Update() override { inner_->Update(); }
  void TakeWritten(WrittenRow& into) override { inner_->TakeWritten(into); }
  void Close() noexcept override {
    if (!is_closed_) ++closed_;
    is_closed_ = true;
    inner_->Close();
  }

 private:
  std::unique_ptr<SinkRow> inner_;
  int& closed_;
  bool is_closed_ = false;
};

}  // namespace

std::unique_ptr<SinkRow> RecordingSink::OpenRow(std::string_view cn_str, std::string_view table) {
  auto row = inner_.OpenRow(cn_str, table);
  ++opened;
  return std::make_unique<RecordingRow>(std::move(row), closed);
}

ExtractionTest::ExtractionTest()
    : cn_str_("Provider=SQLite;Data Source=" + (dir_ / "target.db").string()),
      doc_(std::make_shared<PlainDoc>("http://example.test/list.html")),
      page_(DataPage::Create()) {
  page_->SetDisplayName("Listing");
  page_->SetDoc(doc_);
}

void ExtractionTest::Exec(const std::string& sql) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str_);
  cn->ExecuteScript(sql);
}

std::vector<std::vector<std::string>> ExtractionTest::Rows(const std::string& sql) {
  auto cn = db::Connection::Create();
  cn->Open(cn_str_);
  auto rs = cn->Execute(sql);
  std::vector<std::vector<std::string>> rows;
  while (!rs->IsEOF()) {
    std::vector<std::string> row;
    for (auto& f : rs->GetFields()) {
      row.push_back(f.Value().IsNull() ? "NULL" : f.Value().ToText());
    }
    rows.push_back(std::move(row));
    rs->MoveNext();
  }
  return rows;
}

EntityPtr ExtractionTest::NewEntity(const std::string& name, const std::string& init,
                                    const std::string& table) {
  auto e = Entity::Create();
  e->SetEntityName(name);
  e->SetInitString(init);
  e->SetTableName(table);
  e->SetDBConnStr(cn_str_);
  return e;
}

EntityPtr ExtractionTest::AddRoot(const std::string& name, const std::string& init,
                                  const std::string& table) {
  auto e = NewEntity(name, init, table);
  page_->RootEntities().Add(e, e->Id());
  page_->GetEntities().Add(e, e->Id());
  return e;
}

EntityPtr ExtractionTest::AddChild(const EntityPtr& parent, const std::string& name,
                                   const std::string& init, const std::string& table) {
  auto e = NewEntity(name, init, table);
  parent->ChildrenOnPage().Add(e, e->Id());
  parent->AllChildren().Add(e, e->Id());
  return e;
}

AttribPtr ExtractionTest::AddField(const EntityPtr& entity, const std::string& column,
                                   const std::string& start, const std::string& end, bool optional,
                                   std::int32_t size) {
  const auto step = static_cast<std::int16_t>(entity->GetAttributes().Count() + 1);
  auto a = testing::Field(entity, column, step, start, end);
  a->SetIsOptional(optional);
  a->SetColumnSize(size);
  return a;
}

MetaFieldsPtr MetaColumns(std::initializer_list<std::pair<const char*, const char*>> columns) {
  auto fields = MetaFields::Create();
  long id = 0;
  for (const auto& [column, member] : columns) {
    auto f = MetaField::Create();
    f->SetId(++id);
    f->SetColumnName(column);
    f->SetMetadataClassMember(member);
    fields->Add(f);
  }
  return fields;
}

}  // namespace gw::extraction_test
