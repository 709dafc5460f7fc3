// Pieces shared by the extraction benchmarks: a document to extract and a sink that only counts.
#pragma once

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <string_view>

#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/row_sink.h"
#include "meta/meta_doc.h"

namespace gw::bench {

// A dataset named `name`, opened by `init`, writing into `table` through `cn_str`.
inline EntityPtr NewEntity(const char* name, const char* init, const char* table,
                           const std::string& cn_str) {
  auto e = Entity::Create();
  e->SetEntityName(name);
  e->SetInitString(init);
  e->SetTableName(table);
  e->SetDBConnStr(cn_str);
  return e;
}

// A datapage "Listing" over a document at "http://shop.test/list", with `root` as its one root
// dataset.
inline std::shared_ptr<DataPage> NewListingPage(const EntityPtr& root) {
  auto page = DataPage::Create();
  page->SetDisplayName("Listing");
  page->SetDoc(std::make_shared<PlainDoc>("http://shop.test/list"));
  page->RootEntities().Add(root, root->Id());
  page->GetEntities().Add(root, root->Id());
  return page;
}

// Adds a field as the entity's next step.
inline AttribPtr AddField(const EntityPtr& entity, const char* column, const char* start,
                          const char* end, bool optional = false) {
  auto a = Attrib::Create();
  a->SetColumnName(column);
  a->SetStartTag(start);
  a->SetEndTag(end);
  a->SetIsOptional(optional);
  const auto step = static_cast<std::int16_t>(entity->GetAttributes().Count() + 1);
  a->SetStep(step);
  entity->GetAttributes().Add(a, a->Id(), step);
  return a;
}

// Counts committed rows and keeps nothing.
class CountingSink : public RowSink {
 public:
  long rows = 0;
  std::unique_ptr<SinkRow> OpenRow(std::string_view, std::string_view) override {
    return std::make_unique<Row>(rows);
  }

 private:
  class Row : public SinkRow {
   public:
    explicit Row(long& rows) : rows_(rows) {}
    std::int32_t DefinedSize(std::string_view) override { return 1000; }
    void SetValue(std::string_view, Variant) override {}
    long ColumnCount() override { return 0; }
    std::string_view ColumnName(long) override { return {}; }
    void Update() override { ++rows_; }
    void TakeWritten(WrittenRow& into) override { into.Clear(); }
    void Close() noexcept override {}

   private:
    long& rows_;
  };
};

// Extracts a fresh copy of `listing` with `page` at every iteration into a `CountingSink` (the
// copy is not timed: extraction eats its text); returns the rows the sink counted.
inline long ExtractIntoCountingSink(benchmark::State& state, DataPage& page,
                                    const std::string& listing) {
  auto sink = std::make_shared<CountingSink>();
  page.SetRowSink(sink);
  for (auto _ : state) {
    state.PauseTiming();
    std::string text = listing;
    state.ResumeTiming();
    page.Extract(text, false);
    benchmark::DoNotOptimize(text.data());
  }
  return sink->rows;
}

}  // namespace gw::bench
