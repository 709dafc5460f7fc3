// Cutting a row: `Entity.Extract` and its pieces, the children that follow a row, the metadata
// columns.
//
// `ExtractRow` reads top to bottom as the row's life: where it goes (`ResolveTarget`), where it
// starts (`FindRowStart`), the row opened and counted, the skip map, the fields cut
// (`CutFields`, each failure classified by `ClassifyFieldFailure`), the row written
// (`WriteRow`), the children taken (`ExtractChildEntities`).
#include <algorithm>

#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/entity_internal.h"
#include "extraction/failures.h"
#include "extraction/internal.h"
#include "platform/event_loop.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"

namespace gw {

namespace {

constexpr std::string_view kExtractLogName =
    "Entity.Extract(SrcHTML,UseTmpTbls,OverrideConnStr,UniqueTblPrefix)";

// Links a dataset to the field that is cutting the real row, so that the field's events are
// re-raised; the link ends with the object.
class FieldRelay {
 public:
  FieldRelay() = default;
  FieldRelay(const FieldRelay&) = delete;
  FieldRelay& operator=(const FieldRelay&) = delete;
  ~FieldRelay() { Detach(); }
  // `slot` is the field's link to the dataset that re-raises its events.
  void Attach(Entity*& slot, Entity* entity) {
    Detach();
    slot = entity;
    slot_ = &slot;
  }
  void Detach() {
    if (slot_) *slot_ = nullptr;
    slot_ = nullptr;
  }

 private:
  Entity** slot_ = nullptr;
};

// `a` is what is left of a row and `b` the text that followed the row: together they are one
// stretch of the page.
std::string_view Rejoin(std::string_view a, std::string_view b) {
  return std::string_view(a.data(), a.size() + b.size());
}

}  // namespace

FieldFailure ClassifyFieldFailure(const Status& failure, std::string_view column_name,
                                  std::string_view table_name) {
  switch (failure.Number()) {
    case 0:
      return {};
    case exerr::kStartTagMissing:
    case exerr::kEndTagMissing:
      return {FieldFailureAction::Count, failure};
    case errnum::kItemNotFound:
      return {FieldFailureAction::LoseRow,
              Status(exerr::kColumnMismatch, "Entity.Extract",
                     "The actual database column name and the expected column name do not "
                     "match.  The expected column name is: " +
                         std::string(column_name) +
                         " Please ensure that a column with this name exists in the table " +
                         std::string(table_name) + " in the target database.  ")};
    default:
      return {FieldFailureAction::EndFields,
              Status(exerr::kColumnRefused, "Entity.Extract",
                     "During an extraction to the column " + std::string(column_name) +
                         " an error occurred.  This may be because the start or end tag for the "
                         "field is too short, the column size is too small or the column may not "
                         "exist.",
                     failure.HelpFile(), failure.HelpContext())};
  }
}

bool Entity::HasParserListeners() const {
  return OnParserAction.HasHandlers() ||
         (relay_page_ != nullptr && relay_page_->OnParserAction.HasHandlers());
}

void Entity::RaiseParserAction(std::string_view attrib_name, TokenTypeEnum type, long start_index,
                               std::string_view value, std::string_view source,
                               std::string_view message) {
  if (OnParserAction.HasHandlers()) {
    OnParserAction.Emit(entity_name_, attrib_name, type, start_index, value, source, message);
  }
  if (relay_page_ && relay_page_->OnParserAction.HasHandlers()) {
    relay_page_->OnParserAction.Emit(entity_name_, attrib_name, type, start_index, value, source,
                                     message);
  }
}

std::shared_ptr<db::Recordset> Entity::Extract(std::string& SrcHTML, bool UseTmpTbls,
                                               std::string_view OverrideConnStr,
                                               std::string_view UniqueTblPrefix,
                                               long ParentOrderOnPage,
                                               long* SrcLengthAfterFindingInitString) {
  PageText text(SrcHTML);
  RowSink* sink = &DefaultRowSink();
  if (const auto dp = DataPageIfSet(); dp && dp->GetRowSink()) sink = dp->GetRowSink().get();
  const PageScan scan = PageScan::Begin(text.Whole(), sink);
  ExtractRow(scan, text.Rest(), UseTmpTbls, OverrideConnStr, UniqueTblPrefix, ParentOrderOnPage,
             SrcLengthAfterFindingInitString);
  return nullptr;
}

void Entity::ExtractRow(const PageScan& scan, std::string_view& SrcHTML, bool UseTmpTbls,
                        std::string_view OverrideConnStr, std::string_view UniqueTblPrefix,
                        long ParentOrderOnPage, long* SrcLengthAfterFindingInitString) {
  // `text` is what the row hands back. Until the text is taken it is empty, so a fault before
  // that leaves nothing of `SrcHTML`.
  std::string_view text = SrcHTML.substr(SrcHTML.size());
  std::unique_ptr<SinkRow> row;
  pending_.Clear();
  try {
    const RowTarget target = ResolveTarget(OverrideConnStr, UniqueTblPrefix, UseTmpTbls);
    text = SrcHTML;
    text = FindRowStart(scan, text);
    if (SrcLengthAfterFindingInitString) {
      *SrcLengthAfterFindingInitString = static_cast<long>(text.size());
    }
    row = (row_sink_ ? *row_sink_ : *scan.sink).OpenRow(target.cn_str, target.table);

    GetDataPage()->IncrementEntityPageOrder(id_);
    const MetaEntityPtr meta = Metadata();
    meta->IncrementOnPageOrder();
    if (ParentOrderOnPage > 0) meta->SetParentOnPageOrder(ParentOrderOnPage);

    // Trials are silent: no field is linked while the skip map is searched.
    float coefficient = 0;
    const SkipMap skip_map = FindBestSkipMap(*this, text, coefficient, &scan);
    std::string_view row_text = CurrentRowText(*this, text, &scan);
    text.remove_prefix(row_text.size());

    // A lost row (a missing column) is not written and has no children; its text stays consumed.
    if (CutFields(row_text, skip_map, *row, *meta)) {
      // What the fields left of the row goes back in front of the rest, so the children whose
      // opening strings stand after the last field's end tag are still found.
      text = Rejoin(row_text, text);
      if (WriteRow(*row, *meta)) {
        ExtractChildEntities(scan, text, target.overridden, UseTmpTbls, target.cn_str,
                             UniqueTblPrefix);
        meta->IncrementExtractCount();
      }
    }
    row->Close();
    SrcHTML = text;
  } catch (...) {
    if (row) row->Close();
    SrcHTML = text;
    RethrowWithCallStack(
        kExtractLogName,
        Args(SrcHTML, UseTmpTbls, AsConnectionString(OverrideConnStr), UniqueTblPrefix));
  }
}

Entity::RowTarget Entity::ResolveTarget(std::string_view OverrideConnStr,
                                        std::string_view UniqueTblPrefix, bool UseTmpTbls) {
  RowTarget target;
  target.overridden = !OverrideConnStr.empty();
  target.cn_str = target.overridden ? OverrideConnStr : std::string_view(db_conn_str_);
  if (target.cn_str.empty()) {
    throw Error(exerr::kNoConnectionString, "Entity.Extract",
                "Connection string not specified, or invalid connection string");
  }
  target.table = UniqueTblPrefix.empty() ? table_name_ : std::string(UniqueTblPrefix) + table_name_;
  const std::shared_ptr<DataPage> page = GetDataPage();
  if (UseTmpTbls) {
    target.table = "##" + target.table;
  } else if (!page->DBName().empty()) {
    target.cn_str = extraction_internal::ChangeDefaultDB(target.cn_str, page->DBName());
  }
  static const text::NoCaseSearcher kMySql("MySQL");
  if (kMySql.Find(target.cn_str) != text::npos) {
    target.cn_str = extraction_internal::ReformatMySQLCnStr(target.cn_str);
  }
  return target;
}

std::string_view Entity::FindRowStart(const PageScan& scan, std::string_view text) {
  const std::size_t p = init_finder_.Find(&scan, text);
  RaiseParserAction({}, TokenTypeEnum::EntityInit, p == text::npos ? 0 : static_cast<long>(p + 1),
                    InitString(), text, "Found initialization string for row.");
  if (p != text::npos) text.remove_prefix(p);
  return text;
}

bool Entity::CutFields(std::string_view& row_text, const SkipMap& skip_map, SinkRow& row,
                       MetaEntity& meta) {
  FieldRelay relay;
  for (const AttribPtr& field : GetAttributes()) {
    if (IsSkipStep(field->Step(), skip_map)) continue;
    relay.Attach(field->relay_, this);
    const Status failure = CutField(*field, row_text, row);
    relay.Detach();
    FieldFailure verdict = ClassifyFieldFailure(failure, field->ColumnName(), table_name_);
    if (verdict.action != FieldFailureAction::None) {
      pending_ = std::move(verdict.pending);
      meta.IncrementErrorCount();
      if (verdict.action == FieldFailureAction::LoseRow) {
        meta.RecordRefusal(pending_.Description());
        return false;
      }
      if (verdict.action == FieldFailureAction::EndFields) return true;
    }
    DoEvents();
  }
  return true;
}

Status Entity::CutField(Attrib& field, std::string_view& row_text, SinkRow& row) {
  Status failure;
  try {
    const std::string* cut = field.Cut(row_text, failure);
    std::string value = cut ? *cut : std::string();
    const std::string& column = field.ColumnName();
    if (field.ColumnSize() >= 0) {
      // The target's column width cuts the value, not the field's own size.
      const auto width = static_cast<std::size_t>(std::max(row.DefinedSize(column), 0));
      // A text of no more bytes than the width has no more characters either.
      if (value.size() > width) value.resize(text::TruncateCodePoints(value, width).size());
    }
    row.SetValue(column, Variant(std::move(value)));
  } catch (const Error& e) {
    failure = Status::FromError(e);
  }
  return failure;
}

bool Entity::WriteRow(SinkRow& row, MetaEntity& meta) {
  meta.GetMetaFieldValues(*selected_meta_fields_);
  FillRSMetaFields(row);
  try {
    row.Update();
  } catch (const Error& refused) {
    // The target's own words say why the row is lost.
    meta.RecordRefusal(refused.Description());
    pending_ = Status(
        exerr::kUpdateRefused, "Entity.Extract",
        "Microsoft OLEDB raised a fairly generic error.  This usually means that the data "
        "extracted exceeds the length of the database column.  Make sure that the column "
        "length is set appropriately.  Also, the end tag may include dynamic or invalid data.  "
        "Either adjust the End tag directly or reduce the Minimum tag length option.");
    return false;
  }
  row.TakeWritten(written_);
  extraction_.reset();
  return true;
}

const std::shared_ptr<db::Recordset>& Entity::Extraction() const {
  if (!extraction_ && written_.table) extraction_ = written_.table->ToRecordset(written_.values);
  return extraction_;
}

void Entity::ExtractChildEntities(const PageScan& scan, std::string_view& sSrcHTML, bool overridden,
                                  bool UseTmpTbls, std::string_view CnStr,
                                  std::string_view UniqueTblPrefix) {
  const std::shared_ptr<DataPage> page = GetDataPage();
  if (!page->Doc()) ThrowObjectNotSet("Entity.ExtractChildEntities");
  Entities& children = ChildrenOnPage();
  children.InitMetadata(page->Doc()->Metadata());
  Entities& roots = page->RootEntities();

  long child_pos = 0;
  long root_pos = 0;
  EntityPtr child = FirstInStr(children, sSrcHTML, child_pos, &scan);
  FirstInStr(roots, sSrcHTML, root_pos, &scan);
  // The next root row comes first: these children belong to it.
  if (child_pos <= 0 || (root_pos > 0 && root_pos <= child_pos)) return;
  while (child) {
    const long order = page->GetEntityPageOrder(id_);
    const std::size_t before = sSrcHTML.size();
    long after = 0;
    child->ExtractRow(scan, sSrcHTML, UseTmpTbls, overridden ? CnStr : std::string_view(),
                      UniqueTblPrefix, order, &after);
    // A child row that consumed nothing would be found again at the same place for ever: drop
    // the first character of its occurrence, as the datapage does for root rows.
    if (sSrcHTML.size() == before) sSrcHTML = DropFirstCharacter(sSrcHTML, after);
    DoEvents();
    FirstInStr(roots, sSrcHTML, root_pos, &scan);
    child = FirstInStr(children, sSrcHTML, child_pos, &scan);
    if (root_pos >= 1 && root_pos <= child_pos) break;
    DoEvents();
  }
}

bool Entity::IsFieldInRecordset(std::string_view FieldName, SinkRow& row) {
  const long count = row.ColumnCount();
  for (long k = 0; k < count; ++k) {
    if (row.ColumnName(k) == FieldName) return true;
  }
  return false;
}

void Entity::FillRSMetaFields(SinkRow& row) {
  for (const MetaFieldPtr& mf : *selected_meta_fields_) {
    if (!IsFieldInRecordset(mf->ColumnName(), row)) continue;
    const std::int32_t width = row.DefinedSize(mf->ColumnName());
    if (width < 1) continue;
    const Variant& value = mf->Value();
    if (value.IsNull()) {
      row.SetValue(mf->ColumnName(), value);
      continue;
    }
    std::string text = value.ToText();
    text.resize(text::TruncateCodePoints(text, static_cast<std::size_t>(width)).size());
    row.SetValue(mf->ColumnName(), Variant(std::move(text)));
  }
}

}  // namespace gw
