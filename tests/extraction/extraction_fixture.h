// A datapage over a real SQLite target file, for the extraction tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/failures.h"
#include "meta/meta_doc.h"
#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "support/test_support.h"

namespace gw::extraction_test {

using testing::CaughtError;
using testing::FailureNumber;

// Wraps the database sink and records how many rows it opened and closed.
class RecordingSink : public RowSink {
 public:
  std::unique_ptr<SinkRow> OpenRow(std::string_view cn_str, std::string_view table) override;
  int opened = 0;
  int closed = 0;

 private:
  DatabaseRowSink inner_;
};

class ExtractionTest : public ::testing::Test {
 protected:
  ExtractionTest();

  // Runs a script on the target file.
  void Exec(const std::string& sql);
  // The rows a query yields, every value as text ("NULL" for a null).
  std::vector<std::vector<std::string>> Rows(const std::string& sql);

  // A dataset writing into `table` of the target file, on no datapage yet.
  EntityPtr NewEntity(const std::string& name, const std::string& init, const std::string& table);
  // A root dataset of `page_`, writing into `table`.
  EntityPtr AddRoot(const std::string& name, const std::string& init, const std::string& table);
  // A child dataset of `parent`, on the page.
  EntityPtr AddChild(const EntityPtr& parent, const std::string& name, const std::string& init,
                     const std::string& table);
  // A field appended to `entity`, with the next step number.
  AttribPtr AddField(const EntityPtr& entity, const std::string& column, const std::string& start,
                     const std::string& end, bool optional = false, std::int32_t size = 0);

  // The program's files (registry, rules store) stay in a folder of the test's own.
  testing::ScopedHome home_;
  testing::TempDir dir_;
  std::string cn_str_;
  std::shared_ptr<PlainDoc> doc_;
  std::shared_ptr<DataPage> page_;
};

// Metadata columns chosen by hand, numbered from 1: each a column name and the member that fills
// it ("MetaEntity.OnPageOrder").
MetaFieldsPtr MetaColumns(std::initializer_list<std::pair<const char*, const char*>> columns);

}  // namespace gw::extraction_test
