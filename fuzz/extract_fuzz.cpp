// The extraction engine on a template and a page made from the fuzzer's bytes.
//
// Byte 0: bits 0-2 the number of fields of the root dataset less one, bit 3 a child dataset of one
// field, bits 4-7 which of the first four root fields are optional. Byte 1 picks the filter of the
// last root field (most of its values are "RAW"). Then, separated by 0x01: the root's
// initialization string, a start and an end tag per root field, and with a child its
// initialization string and its field's two tags; what follows the last separator is the page.
//
// Beyond the sanitizers, every run checks what must hold for any template and page: a value of a
// raw field is a piece of the page; the text handed back is the end of the page. (A root dataset
// can write more rows than its initialization string occurs: when its only field misses its
// start tag, the first occurrence is cut again. corpus/extract/root-row-twice shows it.) A failure
// with a number (a refused template) ends the run quietly; anything else escapes and is reported.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/row_sink.h"
#include "meta/meta_doc.h"
#include "platform/error.h"
#include "platform/text.h"

namespace {

using namespace gw;

// Notes whether a raw column got a value that is not a piece of the page.
class CheckingSink : public RowSink {
 public:
  CheckingSink(std::string_view page, std::vector<std::string> raw_columns)
      : page_(page), raw_columns_(std::move(raw_columns)) {}
  bool foreign_value = false;

  std::unique_ptr<SinkRow> OpenRow(std::string_view, std::string_view) override {
    return std::make_unique<Row>(*this);
  }

 private:
  class Row : public SinkRow {
   public:
    explicit Row(CheckingSink& sink) : sink_(sink) {}
    std::int32_t DefinedSize(std::string_view) override { return 1000; }
    void SetValue(std::string_view column, Variant value) override {
      for (const std::string& raw : sink_.raw_columns_) {
        if (raw == column && sink_.page_.find(value.ToString()) == std::string_view::npos) {
          sink_.foreign_value = true;
        }
      }
    }
    long ColumnCount() override { return 0; }
    std::string_view ColumnName(long) override { return {}; }
    void Update() override {}
    void TakeWritten(WrittenRow& into) override { into.Clear(); }
    void Close() noexcept override {}

   private:
    CheckingSink& sink_;
  };
  std::string_view page_;
  std::vector<std::string> raw_columns_;
};

std::vector<std::string_view> Split(std::string_view bytes, std::size_t parts) {
  std::vector<std::string_view> out;
  while (out.size() + 1 < parts) {
    const std::size_t sep = bytes.find('\x01');
    if (sep == std::string_view::npos) break;
    out.push_back(bytes.substr(0, sep));
    bytes.remove_prefix(sep + 1);
  }
  out.push_back(bytes);
  return out;
}

AttribPtr AddField(const EntityPtr& entity, const std::string& column, std::string_view start,
                   std::string_view end, bool optional) {
  auto a = Attrib::Create();
  a->SetColumnName(column);
  a->SetStartTag(std::string(start));
  a->SetEndTag(std::string(end));
  a->SetIsOptional(optional);
  const auto step = static_cast<std::int16_t>(entity->GetAttributes().Count() + 1);
  a->SetStep(step);
  entity->GetAttributes().Add(a, a->Id(), step);
  return a;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const char* const kFilters[] = {"RAW",
                                         "RAW",
                                         "RAW",
                                         "TEXTONLY",
                                         "URL",
                                         "EMAIL",
                                         "NUMBER",
                                         "NOLITERALS",
                                         "USPHONE",
                                         "NOHTMLCOMMENTS",
                                         "BETTERTEXTONLY",
                                         "FORMATTEDTEXT",
                                         "REMOVEHTMLATTRIBSEXCEPT"};
  if (size < 2 || size > (1 << 16)) return 0;
  const int fields = (data[0] & 0x07) + 1;
  const bool child = (data[0] & 0x08) != 0;
  const unsigned optional = data[0] >> 4;
  const char* last_filter = kFilters[data[1] % (sizeof kFilters / sizeof kFilters[0])];
  const std::string_view rest(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::size_t parts = 1 + 2 * static_cast<std::size_t>(fields) + (child ? 3 : 0) + 1;
  const std::vector<std::string_view> p = Split(rest, parts);
  if (p.size() != parts || p[0].empty()) return 0;
  const std::string_view page_text = p.back();

  auto page = DataPage::Create();
  page->SetDisplayName("Fuzz");
  page->SetDoc(std::make_shared<PlainDoc>("http://shop.test/dir/list.html"));
  auto root = Entity::Create();
  root->SetEntityName("Root");
  root->SetInitString(p[0]);
  root->SetTableName("root");
  root->SetDBConnStr("Provider=Checking");
  page->RootEntities().Add(root, root->Id());
  std::vector<std::string> raw_columns;
  for (int k = 0; k < fields; ++k) {
    const std::string column = "f" + std::to_string(k);
    auto a = AddField(root, column, p[1 + 2 * k], p[2 + 2 * k], k < 4 && ((optional >> k) & 1));
    if (k == fields - 1 && std::string_view(last_filter) != "RAW") {
      a->SetColumnType(last_filter);
    } else {
      raw_columns.push_back(column);
    }
  }
  if (child) {
    const std::size_t c = 1 + 2 * static_cast<std::size_t>(fields);
    auto kid = Entity::Create();
    kid->SetEntityName("Child");
    kid->SetInitString(p[c]);
    kid->SetTableName("child");
    kid->SetDBConnStr("Provider=Checking");
    root->ChildrenOnPage().Add(kid, kid->Id());
    AddField(kid, "c0", p[c + 1], p[c + 2], false);
    raw_columns.push_back("c0");
  }
  auto sink = std::make_shared<CheckingSink>(page_text, raw_columns);
  page->SetRowSink(sink);

  std::string text(page_text);
  try {
    page->Extract(text, false);
  } catch (const Error&) {
    // A template may be refused (a filter's expression that gives up, a field the target
    // refuses): a failure with a number is an answer, not a fault.
    return 0;
  }
  // A value is cut to its column by characters, so the check holds for pages of valid UTF-8.
  if (sink->foreign_value && text::IsValidUtf8(page_text)) __builtin_trap();
  if (!page_text.ends_with(text)) __builtin_trap();
  return 0;
}
