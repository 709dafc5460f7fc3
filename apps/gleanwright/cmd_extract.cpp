// gleanwright extract: applies one datapage to local files, the quickest way to try a template.
//
// For each file: the datapage's database and tables are made (no temporary tables, no
// overrides), the file's text is read as a run reads a document (decoded to UTF-8 from its
// declared or detected character set, then line breaks removed and curly double quotes made
// plain; no cleansing), the page is extracted into each dataset's own target, and one line says
// how many rows each dataset wrote. The file itself is only read. Exit status 0 when every file
// was processed, 1 otherwise.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "commands.h"
#include "extraction/data_page.h"
#include "extraction/failures.h"
#include "filters/transformations.h"
#include "meta/meta_doc.h"
#include "platform/charset.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "rules/template_data_access.h"

namespace gw::app {
namespace {

// A local file as the document being extracted.
class FileDoc : public IDoc {
 public:
  explicit FileDoc(std::string path) : path_(std::move(path)) {}
  std::string SourceUri() const override { return path_; }
  MetaDocPtr Metadata() override { return meta_; }

 private:
  std::string path_;
  MetaDocPtr meta_ = MetaDoc::Create();
};

// Counts the rows of one dataset that its target took.
class CountingSink : public RowSink {
 public:
  long rows = 0;
  std::unique_ptr<SinkRow> OpenRow(std::string_view cn_str, std::string_view table) override {
    return std::make_unique<Row>(DefaultRowSink().OpenRow(cn_str, table), rows);
  }

 private:
  class Row : public SinkRow {
   public:
    Row(std::unique_ptr<SinkRow> inner, long& rows) : inner_(std::move(inner)), rows_(rows) {}
    std::int32_t DefinedSize(std::string_view c) override { return inner_->DefinedSize(c); }
    void SetValue(std::string_view c, const Variant& v) override { inner_->SetValue(c, v); }
    long ColumnCount() override { return inner_->ColumnCount(); }
    std::string ColumnName(long i) override { return inner_->ColumnName(i); }
    void Update() override {
      inner_->Update();
      ++rows_;
    }
    std::shared_ptr<db::Recordset> Recordset() override { return inner_->Recordset(); }
    void Close() noexcept override { inner_->Close(); }

   private:
    std::unique_ptr<SinkRow> inner_;
    long& rows_;
  };
};

// The datapage with the id `id_or_name`, or else the one with that display name (letter case
// ignored).
std::shared_ptr<DataPage> LoadDataPage(const std::string& id_or_name) {
  auto page = DataPage::Create();
  if (D_DataPage().Selectx(id_or_name)->RecordCount() == 1) {
    page->Load(id_or_name);
    return page;
  }
  std::vector<std::string> ids;
  for (auto all = D_DataPage().GetAllDataPages(); !all->IsEOF(); all->MoveNext()) {
    if (text::EqualsNoCase((*all)["display_name"].Value().ToText(), id_or_name)) {
      ids.push_back((*all)["datapage_id"].Value().ToText());
    }
  }
  if (ids.empty()) {
    throw Error(exerr::kNoSuchDataPage, "gleanwright extract",
                "There is no datapage with the id or name \"" + id_or_name + "\".");
  }
  if (ids.size() > 1) {
    throw Error(exerr::kDuplicateDataPage, "gleanwright extract",
                "Several datapages are named \"" + id_or_name +
                    "\"; give one of their ids: " + text::Join(ids, ", ") + ".");
  }
  page->Load(ids.front());
  return page;
}

// The datasets under `entities`, parents before their children.
void CollectDatasets(Entities& entities, std::vector<EntityPtr>& out) {
  for (const EntityPtr& e : entities) {
    out.push_back(e);
    CollectDatasets(e->ChildrenOnPage(), out);
  }
}

std::string ReadFileBytes(const std::string& path) {
  // A folder, a named pipe or a device is not opened.
  if (const FileCheck check = CheckDocumentFile(path); !check.Ok()) {
    throw Error(errnum::kFileNotFound, "gleanwright extract",
                "Cannot read " + path + ": " + check.reason + ".");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Error(errnum::kFileNotFound, "gleanwright extract", "Cannot read " + path);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Extracts one file and prints its summary line.
void ExtractFile(DataPage& page, const std::string& path) {
  page.CreateDB(false);
  std::vector<EntityPtr> datasets;
  CollectDatasets(page.RootEntities(), datasets);
  std::vector<std::shared_ptr<CountingSink>> counts;
  for (const EntityPtr& e : datasets) {
    counts.push_back(std::make_shared<CountingSink>());
    e->SetRowSink(counts.back());
  }
  std::string text =
      filters::Transformations::NormalizeText(DecodeToUtf8(ReadFileBytes(path)).text);
  page.SetDoc(std::make_shared<FileDoc>(std::filesystem::absolute(path).string()));
  page.Extract(text, false);

  std::cout << path << ":";
  if (datasets.empty()) std::cout << " no datasets";
  for (std::size_t k = 0; k < datasets.size(); ++k) {
    const long n = counts[k]->rows;
    std::cout << (k == 0 ? " " : ", ") << datasets[k]->EntityName() << " " << n
              << (n == 1 ? " row" : " rows");
  }
  std::cout << "\n";
}

int RunExtract(const std::string& datapage, const std::vector<std::string>& files) {
  const auto page = LoadDataPage(datapage);
  int status = 0;
  for (const std::string& file : files) {
    try {
      ExtractFile(*page, file);
    } catch (const Error& e) {
      status = 1;
      std::cout.flush();
      std::cerr << file << ": error " << e.NumberText() << " (" << e.Source()
                << "): " << e.Description() << "\n";
    }
  }
  return status;
}

const CommandRegistration kExtract(40, [](CLI::App& app, const GlobalOptions&,
                                          const std::function<void(int)>& set_exit) {
  auto* cmd = app.add_subcommand(
      "extract",
      "Apply a datapage to local files: make its tables, read each file as a run reads a "
      "document, write the rows into each dataset's own target, and print the rows written per "
      "dataset");
  auto datapage = std::make_shared<std::string>();
  auto files = std::make_shared<std::vector<std::string>>();
  cmd->add_option("--datapage", *datapage, "The datapage's id or display name")->required();
  cmd->add_option("files", *files, "Files to extract (they are only read)")->required();
  cmd->callback([set_exit, datapage, files] { set_exit(RunExtract(*datapage, *files)); });
});

}  // namespace
}  // namespace gw::app
