// Property tables: conversions at the setters, and the mistakes a table refuses.
#include "platform/property_table.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace gw {
namespace {

enum class Colour { Red = 0, Green = 1 };

class Widget : public Object {
 public:
  std::string TypeName() const override { return "Widget"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table =
        PropertyTableBuilder<Widget>("Widget")
            .Value("Label", &Widget::Label, &Widget::SetLabel)  // takes a view
            .Value("Size", &Widget::Size, &Widget::SetSize)
            .Value("Colour", &Widget::GetColour, &Widget::SetColour)
            .Value(
                "Shown", [](const Widget& w) { return w.shown; },
                [](Widget& w, bool v) { w.shown = v; })
            .Value("When", &Widget::When, &Widget::SetWhen)
            .Value("Id", &Widget::Id)
            .Member("Weight", &Widget::weight)
            .Child("Next", &Widget::Next)
            .Build();
    return &table;
  }
  const std::string& Label() const { return label_; }
  void SetLabel(std::string_view v) { label_ = std::string(v); }
  std::int16_t Size() const { return size_; }
  void SetSize(std::int16_t v) { size_ = v; }
  Colour GetColour() const { return colour_; }
  void SetColour(Colour c) { colour_ = c; }
  DateTime When() const { return when_; }
  void SetWhen(DateTime d) { when_ = d; }
  std::string Id() const { return "w1"; }
  std::shared_ptr<Widget> Next() const { return next; }

  bool shown = false;
  double weight = 0;
  std::shared_ptr<Widget> next;

 private:
  std::string label_;
  std::int16_t size_ = 0;
  Colour colour_ = Colour::Red;
  DateTime when_;
};

class Other : public Object {
 public:
  std::string TypeName() const override { return "Other"; }
};

void Set(Object& o, const char* name, const Variant& v) {
  o.GetPropertyTable()->Find(name)->set(o, v);
}

TEST(PropertyTable, SettersReceiveTheirOwnTypes) {
  Widget w;
  // The text behind a view setter must outlive the call: a long one shows a dangling view.
  const std::string long_label(200, 'L');
  Set(w, "label", Variant(long_label));
  EXPECT_EQ(w.Label(), long_label);
  Set(w, "Label", Variant(7));
  EXPECT_EQ(w.Label(), "7");
  Set(w, "Size", Variant("12"));
  EXPECT_EQ(w.Size(), 12);
  Set(w, "Colour", Variant(1));
  EXPECT_EQ(w.GetColour(), Colour::Green);
  Set(w, "Shown", Variant("True"));
  EXPECT_TRUE(w.shown);
  Set(w, "Weight", Variant("2.5"));
  EXPECT_EQ(w.weight, 2.5);
  EXPECT_EQ(w.GetPropertyTable()->Find("weight")->get(w), Variant(2.5));
  Set(w, "When", Variant("2024-03-05 10:11:12"));
  EXPECT_EQ(w.When(), DateTime::FromParts(2024, 3, 5, 10, 11, 12));
  const Error e = testing::CaughtError([&] { Set(w, "Size", Variant("twelve")); });
  EXPECT_EQ(e.Number(), errnum::kTypeMismatch);
  const PropertyTable& t = *w.GetPropertyTable();
  EXPECT_TRUE(t.Find("Id")->IsReadOnly());
  EXPECT_TRUE(t.Find("Next")->IsReadOnly());
  EXPECT_EQ(t.Find("Colour")->get(w), Variant(1));
  EXPECT_TRUE(t.Find("Next")->get(w).IsEmpty());
  w.next = std::make_shared<Widget>();
  EXPECT_EQ(t.Find("Next")->get(w).ToObject(), w.next);
  EXPECT_EQ(t.FindMembers(), nullptr);
}

TEST(PropertyTable, ATableUsedOnAnotherClassFailsInsteadOfCorruptingIt) {
  Widget w;
  Other o;
  const PropertyInfo* label = w.GetPropertyTable()->Find("Label");
  const Error e = testing::CaughtError([&] { label->set(o, Variant("x")); });
  EXPECT_EQ(e.Number(), errnum::kTypeMismatch);
}

TEST(PropertyTable, BuildRefusesNamesTwiceAndTwoEnumerators) {
  struct Case {
    const char* what;
    std::function<void()> build;
  };
  const Case cases[] = {
      {"same name in another case",
       [] {
         PropertyTableBuilder<Widget>("Widget")
             .Value("Label", &Widget::Label)
             .Value("LABEL", &Widget::Id)
             .Build();
       }},
      {"empty name", [] { PropertyTableBuilder<Widget>("Widget").Value("", &Widget::Id).Build(); }},
      {"two enumerators",
       [] {
         auto none = [](const Widget&) { return std::vector<std::shared_ptr<Widget>>{}; };
         PropertyTableBuilder<Widget>("Widget").Members(none).Members(none).Build();
       }},
      {"two add methods",
       [] {
         auto add = [](Widget&) { return std::make_shared<Widget>(); };
         PropertyTableBuilder<Widget>("Widget").AddMethod("Add", add).AddMethod("New", add).Build();
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(testing::FailureNumber([&] { c.build(); }), errnum::kInvalidProcedureCall);
  }
}

}  // namespace
}  // namespace gw
