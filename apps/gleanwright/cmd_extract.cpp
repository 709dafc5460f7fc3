// gleanwright extract: applies one datapage to local files, the quickest way to try a template.
//
// The datapage's database and tables are made once (no temporary tables, no overrides); for each
// file, the file's text is read as a run reads a document (decoded to UTF-8 from its
// declared or detected character set, then line breaks removed and curly double quotes made
// plain; no cleansing), the page is extracted into each dataset's own target, and one line says
// how many rows each dataset wrote, and how many its target refused and why; a last line adds
// them up. The file itself is only read. Exit status 0 when every file was extracted and every
// row written, 3 when a file failed or a row was refused.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "commands.h"
#include "engine/run_session.h"
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

struct ExtractTotals {
  long files = 0;
  long failed = 0;
  long rows_written = 0;
  long rows_refused = 0;
};

std::string Rows(long n) { return std::to_string(n) + (n == 1 ? " row" : " rows"); }

// Extracts one file into the tables made for `datasets` and prints its line: the rows each
// dataset wrote, and those its target refused with the target's reason.
void ExtractFile(DataPage& page, const std::vector<EntityPtr>& datasets, const std::string& path,
                 ExtractTotals& totals) {
  std::string text =
      filters::Transformations::NormalizeText(DecodeToUtf8(ReadFileBytes(path)).text);
  auto doc = std::make_shared<PlainDoc>(std::filesystem::absolute(path).string());
  page.SetDoc(doc);
  page.Extract(text, false);

  const MetaDocPtr meta = doc->Metadata();
  std::cout << path << ":";
  if (datasets.empty()) std::cout << " no datasets";
  for (std::size_t k = 0; k < datasets.size(); ++k) {
    const RowTally tally = meta->RowsOf(datasets[k]->Id());
    std::cout << (k == 0 ? " " : ", ") << text::EscapeControlCharacters(datasets[k]->EntityName())
              << " " << Rows(tally.written);
    if (tally.refused > 0) {
      std::cout << ", " << tally.refused << " refused ("
                << text::EscapeControlCharacters(tally.first_refusal) << ")";
    }
  }
  std::cout << "\n";
  totals.rows_written += meta->RowsWritten();
  totals.rows_refused += meta->RowsRefused();
}

int RunExtract(const std::string& datapage, const std::vector<std::string>& files) {
  // The files share what a package run keeps: one connection per target (each file is still one
  // transaction) and one to the rules store; the datapage is loaded and its tables made once.
  const RunSession session;
  const auto page = LoadDataPage(datapage);
  ExtractTotals totals;
  std::vector<EntityPtr> datasets;
  std::optional<Error> not_made;
  try {
    page->CreateDB(false);
    CollectDatasets(page->RootEntities(), datasets);
  } catch (const Error& e) {
    not_made = e;  // every file fails with it
  }
  for (const std::string& file : files) {
    ++totals.files;
    try {
      if (not_made) throw *not_made;
      ExtractFile(*page, datasets, file, totals);
    } catch (const Error& e) {
      ++totals.failed;
      std::cout.flush();
      std::cerr << file << ": error " << e.NumberText() << " (" << e.Source()
                << "): " << e.Description() << "\n";
    }
  }
  std::cout << totals.files << (totals.files == 1 ? " file: " : " files: ")
            << totals.files - totals.failed << " done, " << totals.failed << " failed; "
            << Rows(totals.rows_written) << " written, " << totals.rows_refused << " refused\n";
  return totals.failed > 0 || totals.rows_refused > 0 ? kExitFinishedWithLosses : 0;
}

// The paths of `list`, one a line ("-": standard input), after `files`; empty lines are skipped.
std::vector<std::string> WithListedFiles(std::vector<std::string> files, const std::string& list) {
  if (list.empty()) return files;
  std::ifstream named;
  if (list != "-") named.open(list);
  std::istream& in = list == "-" ? std::cin : named;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) files.push_back(line);
  }
  return files;
}

CommandAction SetUpExtract(CLI::App& cmd) {
  auto datapage = std::make_shared<std::string>();
  auto files = std::make_shared<std::vector<std::string>>();
  auto list = std::make_shared<std::string>();
  cmd.add_option("--datapage", *datapage, "The datapage's id or display name")->required();
  cmd.add_option("files", *files, "Files to extract (they are only read)");
  cmd.add_option("--files-from", *list,
                 "Also extract the files this file names, one path a line (- reads them from "
                 "standard input): for more files than a command line holds")
      ->check(CLI::ExistingFile | CLI::IsMember({"-"}));
  return [datapage, files, list] {
    const std::vector<std::string> all = WithListedFiles(*files, *list);
    if (all.empty()) throw CLI::RequiredError("files or --files-from");
    return RunExtract(*datapage, all);
  };
}

const CommandRegistration kExtract(
    40, "extract", SetUpExtract,
    "Apply a datapage to local files: make its tables, read each file as a run reads a document, "
    "write the rows into each dataset's own target, and print the rows written and refused per "
    "dataset; exit status 3 when a file failed or a row was refused");

}  // namespace
}  // namespace gw::app
