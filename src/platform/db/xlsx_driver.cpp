// The Excel workbook driver: "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=<file>;
// Extended Properties="Excel 8.0;HDR=Yes"" (any Jet provider whose string mentions Excel).
//
// A workbook is a set of tables, one sheet each, whose first row holds the column names. The
// driver understands the few statements that are run against such a target:
//   CREATE TABLE t (c1 TEXT, c2 TEXT, ...)   a new sheet with its header row
//   DROP TABLE t                             removes the sheet
//   SELECT * FROM t   (also [t$])            the sheet's rows; every column is text of 255
//                                            characters, as the Excel ISAM reports them
//   INSERT INTO t (c1, ...) VALUES (?, ...)  appends a row (what Recordset.Update sends)
// Deleting or updating rows of a sheet is refused, as the Excel ISAM refuses it.
//
// All connections of a process to one file share one in-memory workbook. Appending a row costs
// the same whatever the size of the workbook; the file is rewritten (to a temporary file, then
// renamed) when a table is created or dropped, when `FlushBufferedStores()` runs (the extraction
// engine calls it when the extraction of a document ends) and when the process exits normally.
// A workbook whose file was deleted by somebody else since it was last read or written starts
// again empty: that is how a table's rows are deleted. The file is always written in the .xlsx
// format, whatever its name's extension.

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xlsxwriter.h>
#include <zip.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>

#include "platform/db/driver.h"
#include "platform/text.h"

namespace gw::db {

namespace {

constexpr std::int32_t kExcelTextWidth = 255;

[[noreturn]] void Fail(ErrorNumber n, std::string text) {
  throw Error(n, "Microsoft JET Database Engine", std::move(text));
}

struct Sheet {
  std::string name;
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;
};

struct FileState {
  bool exists = false;
  std::int64_t mtime_ns = 0;
  std::int64_t size = 0;
  bool operator==(const FileState&) const = default;
};

FileState StatFile(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return {};
  return {true, static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec,
          static_cast<std::int64_t>(st.st_size)};
}

// ---- reading an existing workbook --------------------------------------------------------------

std::string ReadZipEntry(zip_t* z, const std::string& name) {
  zip_stat_t st;
  if (zip_stat(z, name.c_str(), 0, &st) != 0) return {};
  zip_file_t* f = zip_fopen(z, name.c_str(), 0);
  if (!f) return {};
  std::string data(static_cast<std::size_t>(st.size), '\0');
  const zip_int64_t n = zip_fread(f, data.data(), st.size);
  zip_fclose(f);
  if (n < 0) return {};
  data.resize(static_cast<std::size_t>(n));
  return data;
}

using XmlDoc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

XmlDoc ParseXml(const std::string& data) {
  return XmlDoc(xmlReadMemory(data.data(), static_cast<int>(data.size()), nullptr, nullptr,
                              XML_PARSE_NONET | XML_PARSE_NOBLANKS | XML_PARSE_HUGE),
                xmlFreeDoc);
}

bool Named(const xmlNode* n, const char* local) {
  return n->type == XML_ELEMENT_NODE && xmlStrcmp(n->name, BAD_CAST local) == 0;
}

std::string Attr(const xmlNode* n, const char* name) {
  for (const xmlAttr* a = n->properties; a; a = a->next) {
    if (xmlStrcmp(a->name, BAD_CAST name) == 0) {
      xmlChar* v = xmlNodeGetContent(a->children);
      std::string s = v ? reinterpret_cast<const char*>(v) : "";
      xmlFree(v);
      return s;
    }
  }
  return {};
}

std::string Content(const xmlNode* n) {
  xmlChar* v = xmlNodeGetContent(n);
  std::string s = v ? reinterpret_cast<const char*>(v) : "";
  xmlFree(v);
  return s;
}

// Text of a string item: <t>, or the <t> of every <r> run (phonetic runs left out).
std::string StringItem(const xmlNode* si) {
  std::string out;
  for (const xmlNode* c = si->children; c; c = c->next) {
    if (Named(c, "t")) out += Content(c);
    if (Named(c, "r")) {
      for (const xmlNode* t = c->children; t; t = t->next) {
        if (Named(t, "t")) out += Content(t);
      }
    }
  }
  return out;
}

std::size_t ColumnOfRef(const std::string& ref) {
  std::size_t col = 0;
  for (char c : ref) {
    if (c >= 'A' && c <= 'Z') {
      col = col * 26 + static_cast<std::size_t>(c - 'A' + 1);
    } else {
      break;
    }
  }
  return col == 0 ? 0 : col - 1;
}

std::vector<Sheet> ReadWorkbook(const std::string& path) {
  int err = 0;
  zip_t* z = zip_open(path.c_str(), ZIP_RDONLY, &err);
  if (!z) Fail(dberr::kProvider, "External table is not in the expected format: " + path);
  std::vector<Sheet> sheets;
  try {
    std::vector<std::string> shared;
    if (auto doc = ParseXml(ReadZipEntry(z, "xl/sharedStrings.xml"))) {
      for (const xmlNode* si = xmlDocGetRootElement(doc.get())->children; si; si = si->next) {
        if (Named(si, "si")) shared.push_back(StringItem(si));
      }
    }
    std::map<std::string, std::string> targets;  // relationship id -> part name
    if (auto rels = ParseXml(ReadZipEntry(z, "xl/_rels/workbook.xml.rels"))) {
      for (const xmlNode* r = xmlDocGetRootElement(rels.get())->children; r; r = r->next) {
        if (!Named(r, "Relationship")) continue;
        std::string target = Attr(r, "Target");
        if (!target.empty() && target[0] == '/') {
          target = target.substr(1);
        } else {
          target = "xl/" + target;
        }
        targets[Attr(r, "Id")] = target;
      }
    }
    auto book = ParseXml(ReadZipEntry(z, "xl/workbook.xml"));
    if (!book) Fail(dberr::kProvider, "External table is not in the expected format: " + path);
    for (const xmlNode* n = xmlDocGetRootElement(book.get())->children; n; n = n->next) {
      if (!Named(n, "sheets")) continue;
      for (const xmlNode* s = n->children; s; s = s->next) {
        if (!Named(s, "sheet")) continue;
        Sheet sheet;
        sheet.name = Attr(s, "name");
        auto data = ParseXml(ReadZipEntry(z, targets[Attr(s, "id")]));
        std::vector<std::vector<std::string>> grid;
        if (data) {
          for (const xmlNode* w = xmlDocGetRootElement(data.get())->children; w; w = w->next) {
            if (!Named(w, "sheetData")) continue;
            for (const xmlNode* row = w->children; row; row = row->next) {
              if (!Named(row, "row")) continue;
              std::vector<std::string> values;
              std::size_t next_col = 0;
              for (const xmlNode* c = row->children; c; c = c->next) {
                if (!Named(c, "c")) continue;
                const std::string ref = Attr(c, "r");
                const std::size_t col = ref.empty() ? next_col : ColumnOfRef(ref);
                next_col = col + 1;
                const std::string type = Attr(c, "t");
                std::string value;
                for (const xmlNode* v = c->children; v; v = v->next) {
                  if (Named(v, "v")) {
                    value = Content(v);
                    if (type == "s") {
                      const auto idx =
                          static_cast<std::size_t>(std::strtoul(value.c_str(), nullptr, 10));
                      value = idx < shared.size() ? shared[idx] : std::string();
                    } else if (type == "b") {
                      value = value == "1" ? "True" : "False";
                    }
                  } else if (Named(v, "is")) {
                    value = StringItem(v);
                  }
                }
                if (values.size() <= col) values.resize(col + 1);
                values[col] = std::move(value);
              }
              grid.push_back(std::move(values));
            }
          }
        }
        if (!grid.empty()) {
          sheet.columns = grid.front();
          for (std::size_t k = 1; k < grid.size(); ++k) {
            grid[k].resize(sheet.columns.size());
            sheet.rows.push_back(std::move(grid[k]));
          }
        }
        sheets.push_back(std::move(sheet));
      }
    }
  } catch (...) {
    zip_discard(z);
    throw;
  }
  zip_discard(z);
  return sheets;
}

// ---- the shared workbooks
// ------------------------------------------------------------------------

struct Workbook {
  std::string path;
  std::vector<Sheet> sheets;
  bool dirty = false;
  FileState seen;  // the file as this process last read or wrote it

  Sheet* Find(std::string_view name) {
    for (auto& s : sheets) {
      if (text::EqualsNoCase(s.name, name)) return &s;
    }
    return nullptr;
  }

  void Write() {
    const std::filesystem::path target(path);
    std::error_code ec;
    if (target.has_parent_path()) std::filesystem::create_directories(target.parent_path(), ec);
    const std::string tmp = path + ".tmp-" + std::to_string(::getpid()) + ".xlsx";
    lxw_workbook_options options{};
    options.constant_memory = LXW_TRUE;
    lxw_workbook* wb = workbook_new_opt(tmp.c_str(), &options);
    if (!wb) Fail(dberr::kProvider, "Cannot write the workbook " + path);
    bool ok = true;
    for (const auto& s : sheets) {
      lxw_worksheet* ws = workbook_add_worksheet(wb, s.name.c_str());
      if (!ws) {
        ok = false;
        break;
      }
      for (std::size_t c = 0; c < s.columns.size(); ++c) {
        worksheet_write_string(ws, 0, static_cast<lxw_col_t>(c), s.columns[c].c_str(), nullptr);
      }
      for (std::size_t r = 0; r < s.rows.size(); ++r) {
        const auto& row = s.rows[r];
        for (std::size_t c = 0; c < row.size(); ++c) {
          if (row[c].empty()) continue;
          worksheet_write_string(ws, static_cast<lxw_row_t>(r + 1), static_cast<lxw_col_t>(c),
                                 row[c].c_str(), nullptr);
        }
      }
    }
    if (sheets.empty()) {
      // A workbook needs one sheet to open in a spreadsheet program.
      ok = workbook_add_worksheet(wb, nullptr) != nullptr;
    }
    const lxw_error rc = workbook_close(wb);
    if (!ok || rc != LXW_NO_ERROR) {
      std::filesystem::remove(tmp, ec);
      Fail(dberr::kProvider, "Cannot write the workbook " + path + ": " +
                                 (rc != LXW_NO_ERROR ? lxw_strerror(rc) : "invalid sheet name"));
    }
    std::filesystem::rename(tmp, target, ec);
    if (ec) {
      std::filesystem::remove(tmp, ec);
      Fail(dberr::kProvider, "Cannot write the workbook " + path + ": " + ec.message());
    }
    seen = StatFile(path);
    dirty = false;
  }
};

class WorkbookCache {
 public:
  static WorkbookCache& Instance() {
    static WorkbookCache cache;
    return cache;
  }
  ~WorkbookCache() {
    try {
      FlushAll();
    } catch (...) {
      // Nothing can be reported at exit.
    }
  }

  std::shared_ptr<Workbook> Open(const std::string& path) {
    const std::string key = std::filesystem::absolute(path).lexically_normal().string();
    auto& book = books_[key];
    const FileState now = StatFile(key);
    if (!book) {
      book = std::make_shared<Workbook>();
      book->path = key;
      if (now.exists) book->sheets = ReadWorkbook(key);
      book->seen = now;
    } else if (now != book->seen) {
      // Changed or deleted behind our back: what is on disk wins.
      book->sheets = now.exists ? ReadWorkbook(key) : std::vector<Sheet>{};
      book->dirty = false;
      book->seen = now;
    }
    return book;
  }

  void FlushAll() {
    for (auto& [path, book] : books_) {
      if (!book->dirty) continue;
      if (StatFile(path) != book->seen) {
        // Deleted or replaced since it was last read or written: what is on disk wins, so a
        // deleted workbook is not brought back by rows that were appended to it.
        book->sheets.clear();
        book->dirty = false;
        continue;
      }
      book->Write();
    }
  }

 private:
  std::map<std::string, std::shared_ptr<Workbook>> books_;
};

// ---- the statements
// --------------------------------------------------------------------------------

class Scanner {
 public:
  explicit Scanner(std::string_view s) : s_(s) {}
  void Skip() {
    while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\r' || s_[i_] == '\n'))
      ++i_;
  }
  bool Keyword(std::string_view word) {
    Skip();
    if (!text::StartsWithNoCase(s_.substr(i_), word)) return false;
    const std::size_t end = i_ + word.size();
    if (end < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[end])) || s_[end] == '_'))
      return false;
    i_ = end;
    return true;
  }
  bool Symbol(char c) {
    Skip();
    if (i_ < s_.size() && s_[i_] == c) {
      ++i_;
      return true;
    }
    return false;
  }
  // A name: bare, [bracketed], "quoted" or `quoted` (the closing character doubled inside). For
  // a table, a trailing "$" (a sheet reference) is dropped.
  std::string Name(bool table = false) {
    Skip();
    std::string out;
    if (i_ < s_.size() && (s_[i_] == '[' || s_[i_] == '"' || s_[i_] == '`')) {
      text::ReadQuoted(s_, i_, s_[i_] == '[' ? ']' : s_[i_], out);
    } else {
      while (i_ < s_.size() && !std::strchr(" \t\r\n,();", s_[i_])) out += s_[i_++];
    }
    if (table && !out.empty() && out.back() == '$') out.pop_back();
    return out;
  }
  // Skips a column type such as "TEXT" or "VARCHAR(50)".
  void SkipType() {
    Skip();
    int depth = 0;
    while (i_ < s_.size()) {
      const char c = s_[i_];
      if (c == '(') ++depth;
      if (c == ')') {
        if (depth == 0) return;
        --depth;
      }
      if (c == ',' && depth == 0) return;
      ++i_;
    }
  }
  bool AtEnd() {
    Skip();
    while (i_ < s_.size() && s_[i_] == ';') ++i_;
    Skip();
    return i_ >= s_.size();
  }

 private:
  std::string_view s_;
  std::size_t i_ = 0;
};

class XlsxDriver final : public Driver {
 public:
  explicit XlsxDriver(const ConnectionProperties& props) {
    const std::string path = props.Get("Data Source");
    if (path.empty()) {
      Fail(dberr::kProvider,
           "The connection string names no workbook: add \"Data Source=<file>\".");
    }
    book_ = WorkbookCache::Instance().Open(path);
  }

  std::string_view Dialect() const override { return "excel"; }

  ResultSet Execute(std::string_view sql, std::span<const Variant> params, long max_rows) override {
    Scanner sc(sql);
    if (sc.Keyword("CREATE")) {
      if (!sc.Keyword("TABLE")) Unsupported(sql);
      Sheet sheet;
      sheet.name = sc.Name(true);
      if (!sc.Symbol('(')) Unsupported(sql);
      do {
        const std::string col = sc.Name();
        if (col.empty()) Unsupported(sql);
        sheet.columns.push_back(col);
        sc.SkipType();
      } while (sc.Symbol(','));
      if (!sc.Symbol(')') || !sc.AtEnd()) Unsupported(sql);
      // Refused before the workbook holds it: a sheet it cannot write would fail every write.
      if (const std::string why = IdentifierProblem(IdentifierKind::Table, sheet.name);
          !why.empty()) {
        Fail(dberr::kSyntax, "The sheet name '" + sheet.name + "' cannot be used: " + why + ".");
      }
      for (const auto& col : sheet.columns) {
        if (const std::string why = IdentifierProblem(IdentifierKind::Column, col); !why.empty()) {
          Fail(dberr::kSyntax, "The column name '" + col + "' cannot be used: " + why + ".");
        }
      }
      if (book_->Find(sheet.name))
        Fail(dberr::kSyntax, "Table '" + sheet.name + "' already exists.");
      book_->sheets.push_back(std::move(sheet));
      book_->Write();
      return {};
    }
    if (sc.Keyword("DROP")) {
      if (!sc.Keyword("TABLE")) Unsupported(sql);
      const std::string name = sc.Name(true);
      Sheet* sheet = Require(name);
      book_->sheets.erase(book_->sheets.begin() + (sheet - book_->sheets.data()));
      book_->Write();
      return {};
    }
    if (sc.Keyword("SELECT")) {
      if (!sc.Symbol('*') || !sc.Keyword("FROM")) Unsupported(sql);
      Sheet* sheet = Require(sc.Name(true));
      if (!sc.AtEnd()) Unsupported(sql);
      ResultSet r;
      r.has_columns = true;
      for (const auto& c : sheet->columns) r.columns.push_back(TextColumn(sheet->name, c));
      for (const auto& row : sheet->rows) {
        if (max_rows > 0 && static_cast<long>(r.rows.size()) >= max_rows) break;
        Row out;
        for (const auto& v : row) out.push_back(v.empty() ? Variant(kNull) : Variant(v));
        r.rows.push_back(std::move(out));
      }
      return r;
    }
    if (sc.Keyword("INSERT")) {
      if (!sc.Keyword("INTO")) Unsupported(sql);
      Sheet* sheet = Require(sc.Name(true));
      std::vector<std::size_t> targets;
      if (sc.Symbol('(')) {
        do {
          const std::string col = sc.Name();
          const auto it =
              std::find_if(sheet->columns.begin(), sheet->columns.end(),
                           [&](const std::string& c) { return text::EqualsNoCase(c, col); });
          if (it == sheet->columns.end()) {
            Fail(dberr::kSyntax,
                 "The INSERT INTO statement contains the following unknown field name: '" + col +
                     "'.");
          }
          targets.push_back(static_cast<std::size_t>(it - sheet->columns.begin()));
        } while (sc.Symbol(','));
        if (!sc.Symbol(')')) Unsupported(sql);
      }
      std::vector<std::string> row(sheet->columns.size());
      if (sc.Keyword("DEFAULT")) {
        if (!sc.Keyword("VALUES")) Unsupported(sql);
      } else {
        if (!sc.Keyword("VALUES") || !sc.Symbol('(')) Unsupported(sql);
        std::size_t k = 0;
        do {
          if (!sc.Symbol('?') || k >= params.size() || k >= targets.size()) Unsupported(sql);
          row[targets[k]] =
              params[k].IsNull() || params[k].IsEmpty() ? std::string() : params[k].ToText();
          ++k;
        } while (sc.Symbol(','));
        if (!sc.Symbol(')') || k != params.size() || k != targets.size()) Unsupported(sql);
      }
      sheet->rows.push_back(std::move(row));
      book_->dirty = true;
      ResultSet r;
      r.rows_affected = 1;
      return r;
    }
    if (sc.Keyword("DELETE") || sc.Keyword("UPDATE")) {
      Fail(dberr::kProvider, "Deleting data in a linked table is not supported by this ISAM.");
    }
    Unsupported(sql);
  }

  void ExecuteScript(std::string_view sql) override {
    for (const auto& piece : text::Split(sql, ";")) {
      if (!text::TrimWhitespace(piece).empty()) Execute(piece, {}, 0);
    }
  }

  long long LastInsertId() override { return 0; }
  void Begin() override {}
  void Commit() override {}
  void Rollback() override {}
  bool InTransaction() const override { return false; }

  std::vector<ColumnInfo> TableColumns(std::string_view table) override {
    std::vector<ColumnInfo> cols;
    Sheet* sheet = Require(table);
    for (const auto& c : sheet->columns) cols.push_back(TextColumn(sheet->name, c));
    return cols;
  }
  bool TableExists(std::string_view table) override { return book_->Find(table) != nullptr; }
  std::string QuoteIdentifier(std::string_view name) const override {
    return "[" + text::ReplaceAll(name, "]", "]]") + "]";
  }
  // A table is a sheet, whose name a workbook limits: at most 31 characters, none of []:*?/\,
  // no apostrophe at either end, and not "History", which spreadsheet programs keep for
  // themselves. A column is the text of a header cell, which may be anything but empty.
  std::string IdentifierProblem(IdentifierKind kind, std::string_view name) const override {
    std::string problem = Driver::IdentifierProblem(kind, name);
    if (!problem.empty() || kind != IdentifierKind::Table) return problem;
    if (text::CountCodePoints(name) > 31) return "a sheet name holds at most 31 characters";
    if (name.find_first_of("[]:*?/\\") != std::string_view::npos) {
      return "a sheet name cannot hold any of the characters [ ] : * ? / \\";
    }
    if (name.front() == '\'' || name.back() == '\'') {
      return "a sheet name cannot begin or end with an apostrophe";
    }
    if (text::EqualsNoCase(name, "History")) return "a workbook keeps the sheet name History";
    return {};
  }

 private:
  static ColumnInfo TextColumn(const std::string& table, const std::string& name) {
    ColumnInfo c;
    c.name = name;
    c.type = DataType::VarWChar;
    c.defined_size = kExcelTextWidth;
    c.base_table = table;
    c.base_column = name;
    return c;
  }
  Sheet* Require(std::string_view name) {
    Sheet* sheet = book_->Find(name);
    if (!sheet) {
      Fail(dberr::kNoSuchTable,
           "The Microsoft Jet database engine could not find the object '" + std::string(name) +
               "'.  Make sure the object exists and that you spell its name and the path name "
               "correctly.");
    }
    return sheet;
  }
  [[noreturn]] static void Unsupported(std::string_view sql) {
    Fail(dberr::kSyntax, "Syntax error in the statement for a workbook: " + std::string(sql));
  }

  std::shared_ptr<Workbook> book_;
};

bool IsJet(const ConnectionProperties& props) {
  return text::StartsWithNoCase(props.Get("Provider"), "Microsoft.Jet.OLEDB");
}

}  // namespace

bool XlsxAccepts(const ConnectionProperties& props) {
  return IsJet(props) && text::FindNoCase(props.ToString(), "Excel") != text::npos;
}

std::unique_ptr<Driver> MakeXlsxDriver(const ConnectionProperties& props) {
  return std::make_unique<XlsxDriver>(props);
}

// An Access (Jet) target without "Excel" is a SQLite file at its "Data Source".
bool JetAccessAccepts(const ConnectionProperties& props) {
  return IsJet(props) && text::FindNoCase(props.ToString(), "Excel") == text::npos;
}

void FlushBufferedStores() { WorkbookCache::Instance().FlushAll(); }

}  // namespace gw::db
