// Field values cleaned by their column type on the way into a real SQLite target.
#include <gtest/gtest.h>

#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

class FilteredFields : public ExtractionTest {
 protected:
  void SetUp() override {
    Exec(
        "CREATE TABLE items (name VARCHAR(50), link VARCHAR(200), image VARCHAR(200), "
        "sku VARCHAR(20))");
    items_ = AddRoot("Items", "<tr>", "items");
    Typed(AddField(items_, "name", "<td class=n>", "</td>"), "textonly", "");
    Typed(AddField(items_, "link", "<td class=l><a ", ">"), "URL", "");
    Typed(AddField(items_, "image", "<img ", ">"), "Url", "http://cdn.example.org/shop/");
    sku_ = AddField(items_, "sku", "<td class=s>", "</td>");
    Typed(sku_, "RXMATCH", "[0-9]{4}");
  }
  static void Typed(const AttribPtr& field, const std::string& type, const std::string& parameter) {
    field->SetColumnType(type);
    field->SetColumnTypeParameter(parameter);
  }
  EntityPtr items_;
  AttribPtr sku_;
};

// What each filter makes of a value is checked in filters/column_filter_test; here, that the
// template's type and parameter and the document's address reach it.
TEST_F(FilteredFields, EachColumnTypeCleansItsValueBeforeTheRowIsWritten) {
  std::string text =
      "<table><tr><td class=n><b>Nut</b> &amp; bolt</td>"
      "<td class=l><a href='/items/nut.html'>more</a></td>"
      "<td class=i><img src=\"pic/nut.jpg\"></td>"
      "<td class=s>SKU-0042-X</td></tr>"
      "<tr><td class=n>Washer</td>"
      "<td class=l><a href=\"http://other.example/w?a=1&amp;b=2\">more</a></td>"
      "<td class=i><img src='mailto:x@y.z'></td>"
      "<td class=s>SKU-7-Y</td></tr></table>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT name, link, image, sku FROM items"),
            (RowList{{"Nut & bolt", "http://example.test/items/nut.html",
                      "http://cdn.example.org/shop/pic/nut.jpg", "0042"},
                     {"Washer", "http://other.example/w?a=1&b=2", "", ""}}));
}

TEST_F(FilteredFields, ABadPatternOfATemplateRefusesItsColumnAndTheRowIsStillWritten) {
  sku_->SetColumnTypeParameter("[0-9");
  std::string text = "<tr><td class=n>Nut</td><td class=s>0042</td>";
  page_->Extract(text, false);
  EXPECT_EQ(items_->PendingFailure().Number(), exerr::kColumnRefused);
  EXPECT_EQ(Rows("SELECT name, sku FROM items"), (RowList{{"Nut", "NULL"}}));

  // The pattern is fixed: the next page fills the column.
  sku_->SetColumnTypeParameter("[0-9]{4}");
  text = "<tr><td class=n>Bolt</td><td class=s>SKU-0043</td>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT name, sku FROM items WHERE name = 'Bolt'"), (RowList{{"Bolt", "0043"}}));
}

}  // namespace
}  // namespace gw::extraction_test
