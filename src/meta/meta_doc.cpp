#include "meta/meta_doc.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <type_traits>

#include "meta/meta_internal.h"
#include "meta/meta_task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"

namespace gw {

float MetaDoc::AvgExtractionPct() const {
  if (meta_entities_.Count() == 0) return 0;
  double sum = 0;
  for (const MetaEntityPtr& e : meta_entities_) sum += e->ExtractionPct();
  return static_cast<float>(sum / static_cast<double>(meta_entities_.Count()));
}

std::string MetaDoc::SuccessCode() const {
  return meta_internal::SuccessCodeName(meta_internal::kDocCode, AvgExtractionPct());
}

std::int16_t MetaDoc::SuccessCodeId() const {
  return meta_internal::SuccessCodeId(meta_internal::kDocCode, AvgExtractionPct());
}

namespace {

// What a document's row holds: the same writes whether the document is an object or settled.
void SaveDocumentRow(const std::string& doc_id, const std::string& source_uri,
                     const std::string& local_path, const DateTime& extraction_start,
                     const DateTime& extraction_complete, std::int16_t success_code_id,
                     bool with_row_counts, long written, long refused,
                     const std::string& first_refusal) {
  D_Doc().SaveDocument(doc_id, "", "", DateTime(), source_uri, local_path, "", extraction_start,
                       extraction_complete, 0, success_code_id);
  if (with_row_counts) D_Doc().SaveRowCounts(doc_id, written, refused, first_refusal);
}

}  // namespace

bool MetaDoc::SaveToMetabase() {
  return ReportAs("MetaDoc.SaveToMetabase", [&] {
    // A document that was not extracted has no row counts.
    const bool with_row_counts = failure_.empty() && !extraction_start_.IsEmpty();
    SaveDocumentRow(doc_id_, source_uri_, local_path_, extraction_start_, extraction_complete_,
                    SuccessCodeId(), with_row_counts, with_row_counts ? RowsWritten() : 0,
                    with_row_counts ? RowsRefused() : 0,
                    with_row_counts ? FirstRefusal() : std::string());
    return true;
  });
}

RowTally& MetaDoc::TallyOf(std::string_view entity_id) {
  for (auto& [id, tally] : tallies_) {
    if (id == entity_id) return tally;
  }
  return tallies_.emplace_back(std::string(entity_id), RowTally{}).second;
}

void MetaDoc::CountRowWritten(std::string_view entity_id) { ++TallyOf(entity_id).written; }

void MetaDoc::CountRowRefused(std::string_view entity_id, std::string reason) {
  RowTally& tally = TallyOf(entity_id);
  if (tally.refused++ == 0) tally.first_refusal = std::move(reason);
}

long MetaDoc::RowsWritten() const {
  long n = 0;
  for (const auto& entry : tallies_) n += entry.second.written;
  return n;
}

long MetaDoc::RowsRefused() const {
  long n = 0;
  for (const auto& entry : tallies_) n += entry.second.refused;
  return n;
}

std::string MetaDoc::FirstRefusal() const {
  for (const auto& entry : tallies_) {
    if (entry.second.refused > 0) return entry.second.first_refusal;
  }
  return {};
}

RowTally MetaDoc::RowsOf(std::string_view entity_id) const {
  for (const auto& [id, tally] : tallies_) {
    if (id == entity_id) return tally;
  }
  return {};
}

namespace {

// A settled document's record, as bytes: numbers as they are in memory (the record is read back
// by the process that wrote it), texts after their length.
class RecordWriter {
 public:
  explicit RecordWriter(std::string& out) : out_(out) {}
  template <class T>
  void Put(T value) {
    static_assert(std::is_arithmetic_v<T>);
    out_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void PutText(std::string_view text) {
    Put(static_cast<std::uint32_t>(text.size()));
    out_.append(text);
  }
  void PutDate(const DateTime& date) {
    Put(static_cast<std::uint8_t>(date.IsEmpty()));
    Put(date.MillisecondsSince(Epoch()));
  }
  static const DateTime& Epoch() {
    static const DateTime epoch = DateTime::FromParts(1970, 1, 1);
    return epoch;
  }

 private:
  std::string& out_;
};

class RecordReader {
 public:
  explicit RecordReader(std::string_view in) : in_(in) {}
  bool AtEnd() const { return in_.empty(); }
  template <class T>
  T Get() {
    T value;
    std::memcpy(&value, Take(sizeof value).data(), sizeof value);
    return value;
  }
  std::string GetText() { return std::string(Take(Get<std::uint32_t>())); }
  DateTime GetDate() {
    const bool empty = Get<std::uint8_t>() != 0;
    const auto ms = Get<std::int64_t>();
    return empty ? DateTime() : RecordWriter::Epoch().AddMilliseconds(ms);
  }

 private:
  std::string_view Take(std::size_t n) {
    if (n > in_.size()) {
      throw Error(errnum::kProviderError, "MetaDocs.SaveAll",
                  "The saved results of the settled documents are cut short.");
    }
    std::string_view taken = in_.substr(0, n);
    in_.remove_prefix(n);
    return taken;
  }
  std::string_view in_;
};

}  // namespace

// What SaveAll writes for the settled documents, one record after another: in memory until a
// block is full, then in an unnamed temporary file that goes with the process, so a run's memory
// does not grow with the documents it went through. When the file cannot be made or written, the
// records stay in memory: nothing is lost, only the memory grows.
struct MetaDocs::Settled {
  static constexpr std::size_t kBlockSize = 64 * 1024;

  std::vector<std::string> entity_ids;  // the dataset ids repeat on every document: kept once
  std::string block;                    // the records not in the file, in order
  std::FILE* file = nullptr;
  bool spill = true;               // false once the file failed
  std::vector<std::size_t> filed;  // the sizes of the blocks in the file, in order
  long count = 0;

  Settled() = default;
  Settled(const Settled&) = delete;
  Settled& operator=(const Settled&) = delete;
  ~Settled() {
    if (file) std::fclose(file);
  }

  std::uint32_t EntityIndex(const std::string& id) {
    // A datapage has a handful of datasets: the newest is the likeliest.
    for (std::size_t i = entity_ids.size(); i-- > 0;) {
      if (entity_ids[i] == id) return static_cast<std::uint32_t>(i);
    }
    entity_ids.push_back(id);
    return static_cast<std::uint32_t>(entity_ids.size() - 1);
  }

  void Add(const MetaDoc& doc) {
    RecordWriter out(block);
    out.PutText(doc.DocId());
    out.PutText(doc.SourceUri());
    out.PutText(doc.LocalPath());
    out.PutDate(doc.ExtractionStart());
    out.PutDate(doc.ExtractionComplete());
    out.Put(doc.AvgExtractionPct());
    const bool with_row_counts = doc.Failure().empty() && !doc.ExtractionStart().IsEmpty();
    out.Put(static_cast<std::uint8_t>(with_row_counts));
    if (with_row_counts) {
      out.Put(doc.RowsWritten());
      out.Put(doc.RowsRefused());
      out.PutText(doc.FirstRefusal());
    }
    out.Put(static_cast<std::uint32_t>(doc.GetMetaEntities().Count()));
    for (const MetaEntityPtr& e : doc.GetMetaEntities()) {
      const meta_internal::DatasetResult r = meta_internal::ResultOf(*e, doc);
      out.Put(EntityIndex(e->EntityId()));
      out.Put(r.occur_count);
      out.Put(r.extract_count);
      out.Put(r.error_count);
      out.Put(r.avg_success_coeff);
      out.Put(r.avg_errors);
      out.Put(r.extraction_pct);
      out.Put(r.rows_refused);
      out.PutText(r.first_refusal);
    }
    ++count;
    if (spill && block.size() >= kBlockSize) File();
  }

  // Moves the block into the file.
  void File() {
    if (!file) file = OpenUnnamedFile();
    if (file && std::fwrite(block.data(), 1, block.size(), file) == block.size()) {
      filed.push_back(block.size());
      block.clear();
    } else {
      spill = false;
    }
  }

  // An unnamed file in the temporary folder ($TMPDIR or /tmp); null when there is none to have.
  static std::FILE* OpenUnnamedFile() {
    std::error_code ec;
    const std::filesystem::path dir = std::filesystem::temp_directory_path(ec);
    const int fd = ec ? -1 : ::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) return nullptr;
    std::FILE* f = ::fdopen(fd, "w+b");
    if (!f) {
      ::close(fd);
      return nullptr;
    }
    // Unbuffered: a block goes to the file whole or is known not to, and nothing is left in a
    // buffer to be written later.
    std::setvbuf(f, nullptr, _IONBF, 0);
    return f;
  }

  // Each record in the order settled: the blocks of the file, then the block in memory.
  template <class Fn>
  void ForEach(Fn&& save) const {
    if (!filed.empty()) {
      if (std::fseek(file, 0, SEEK_SET) != 0) ThrowUnreadable();
      std::string buffer;
      for (std::size_t size : filed) {
        buffer.resize(size);
        if (std::fread(buffer.data(), 1, size, file) != size) ThrowUnreadable();
        ForEachIn(buffer, save);
      }
      std::fseek(file, 0, SEEK_END);
    }
    ForEachIn(block, save);
  }

  [[noreturn]] static void ThrowUnreadable() {
    throw Error(errnum::kProviderError, "MetaDocs.SaveAll",
                "The saved results of the settled documents could not be read back.");
  }

  template <class Fn>
  void ForEachIn(std::string_view records, Fn& save) const {
    RecordReader in(records);
    while (!in.AtEnd()) save([&] { Save(in); });
  }

  // The same writes as the document's `SaveToMetabase` and then its datasets' `SaveAll`.
  void Save(RecordReader& in) const {
    const std::string id = in.GetText();
    const std::string uri = in.GetText();
    const std::string local_path = in.GetText();
    const DateTime extraction_start = in.GetDate();
    const DateTime extraction_complete = in.GetDate();
    const auto avg_extraction_pct = in.Get<float>();
    const bool with_row_counts = in.Get<std::uint8_t>() != 0;
    long rows_written = 0;
    long rows_refused = 0;
    std::string first_refusal;
    if (with_row_counts) {
      rows_written = in.Get<long>();
      rows_refused = in.Get<long>();
      first_refusal = in.GetText();
    }
    ReportAs("MetaDoc.SaveToMetabase", [&] {
      const std::int16_t code =
          meta_internal::SuccessCodeId(meta_internal::kDocCode, avg_extraction_pct);
      SaveDocumentRow(id, uri, local_path, extraction_start, extraction_complete, code,
                      with_row_counts, rows_written, rows_refused, first_refusal);
      return true;
    });
    const auto datasets = in.Get<std::uint32_t>();
    ReportAs("MetaEntities.SaveAll", [&] {
      for (std::uint32_t k = 0; k < datasets; ++k) {
        const std::string& entity_id = entity_ids.at(in.Get<std::uint32_t>());
        meta_internal::DatasetResult r;
        r.occur_count = in.Get<long>();
        r.extract_count = in.Get<long>();
        r.error_count = in.Get<long>();
        r.avg_success_coeff = in.Get<float>();
        r.avg_errors = in.Get<float>();
        r.extraction_pct = in.Get<float>();
        r.rows_refused = in.Get<long>();
        r.first_refusal = in.GetText();
        ReportAs("MetaEntity.SaveToMetabase",
                 [&] { return meta_internal::SaveDatasetResult(id, entity_id, r); });
      }
    });
  }
};

MetaDocs::MetaDocs() = default;
MetaDocs::~MetaDocs() = default;
MetaDocs::MetaDocs(MetaDocs&&) noexcept = default;
MetaDocs& MetaDocs::operator=(MetaDocs&&) noexcept = default;

long MetaDocs::SettledCount() const { return settled_ ? settled_->count : 0; }

void MetaDocs::SettleAll() {
  if (items_.Empty()) return;
  if (!settled_) settled_ = std::make_unique<Settled>();
  for (const MetaDocPtr& doc : items_) {
    settled_->Add(*doc);
    settled_pct_sum_ += doc->AvgExtractionPct();
  }
  items_.Clear();
}

void MetaDocs::SaveAll() {
  ReportAs("MetaDocs.SaveAll", [&] {
    const std::string cn_str = modConnectionString::GetCnStr();
    // The documents' rows and their datasets' results, a hundred documents to a transaction
    // (inside a caller's, part of that one): a document's history is never split, a commit is
    // not paid per document, and the store's write lock is not held for long.
    constexpr long kDocsPerTransaction = 100;
    std::optional<RulesTransaction> history;
    long saved = 0;
    const auto save = [&](const auto& write) {
      if (!history && !RulesTransaction::ActiveConnection(cn_str)) history.emplace(cn_str);
      write();
      if (++saved % kDocsPerTransaction == 0) {
        if (history) history->Commit();
        history.reset();
        DoEvents();
      }
    };
    if (settled_) settled_->ForEach(save);
    for (const MetaDocPtr& doc : items_) {
      save([&] {
        doc->SaveToMetabase();
        doc->GetMetaEntities().SaveAll();
      });
    }
    if (history) history->Commit();
    history.reset();
    DoEvents();
  });
}

MetaDocPtr MetaDocs::Add(MetaDocPtr NewMetaDoc, const std::shared_ptr<MetaTask>& ParentMetaTask) {
  const std::string key = NewMetaDoc->DocId();
  MetaDocPtr& stored = items_.Add(std::move(NewMetaDoc), key);
  stored->SetMetaTask(ParentMetaTask);
  return stored;
}

MetaDocPtr MetaDocs::Find(std::string_view doc_id) const {
  const MetaDocPtr* found = items_.Find(IndexKey(doc_id));
  return found ? *found : nullptr;
}

}  // namespace gw
