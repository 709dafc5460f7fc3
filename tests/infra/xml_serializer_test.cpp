#include "infra/xml_serializer.h"

#include <gtest/gtest.h>

#include "platform/collection.h"
#include "platform/property_table.h"
#include "support/test_support.h"

namespace gw {
namespace {

class Item : public Object {
 public:
  std::string TypeName() const override { return "Item"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table =
        PropertyTableBuilder<Item>("Item").Value("Label", &Item::Label, &Item::SetLabel).Build();
    return &table;
  }
  const std::string& Label() const { return label_; }
  void SetLabel(const std::string& v) { label_ = v; }

 private:
  std::string label_;
};

class Items : public Object {
 public:
  std::string TypeName() const override { return "Items"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table = PropertyTableBuilder<Items>("Items")
                                           .Value("Count", &Items::Count)
                                           .Members(&Items::All)
                                           .AddMethod("Add", &Items::Add)
                                           .Build();
    return &table;
  }
  long Count() const { return static_cast<long>(items_.size()); }
  const std::vector<std::shared_ptr<Item>>& All() const { return items_; }
  std::shared_ptr<Item> Add() { return items_.emplace_back(std::make_shared<Item>()); }

 private:
  std::vector<std::shared_ptr<Item>> items_;
};

class Job : public Object {
 public:
  std::string TypeName() const override { return "Job"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table = PropertyTableBuilder<Job>("Job")
                                           .Value("Name", &Job::Name, &Job::SetName)
                                           .Value("Retries", &Job::Retries, &Job::SetRetries)
                                           .Value("Enabled", &Job::Enabled, &Job::SetEnabled)
                                           .Value("Secret", &Job::Secret, &Job::SetSecret)
                                           .Value("Attachment", &Job::Attachment)
                                           .Child("Items", &Job::GetItems)
                                           .Child("Spare", &Job::GetSpare)
                                           .Build();
    return &table;
  }
  const std::string& Name() const { return name_; }
  void SetName(const std::string& v) {
    name_ = v;
    ++name_sets;
  }
  int Retries() const { return retries_; }
  void SetRetries(int v) { retries_ = v; }
  bool Enabled() const { return enabled_; }
  void SetEnabled(bool v) { enabled_ = v; }
  const std::string& Secret() const { return secret_; }
  void SetSecret(const std::string& v) { secret_ = v; }
  Variant Attachment() const { return attachment; }  // an object held in a value: skipped
  std::shared_ptr<Items> GetItems() const { return items_; }
  std::shared_ptr<Items> GetSpare() const { return spare; }

  int name_sets = 0;
  Variant attachment;
  std::shared_ptr<Items> spare;  // held under a name that is not its type's

 private:
  std::string name_;
  int retries_ = 0;
  bool enabled_ = false;
  std::string secret_;
  std::shared_ptr<Items> items_ = std::make_shared<Items>();
};

TEST(XmlSerializer, WritesObjectsValuesAndCollectionMembersInInterfaceOrder) {
  Job job;
  job.SetName("a&b <c>");
  job.SetRetries(3);
  job.SetEnabled(true);
  job.attachment = Variant(std::make_shared<Item>());
  job.GetItems()->Add()->SetLabel("one");
  job.GetItems()->Add()->SetLabel("");
  XmlSerializer s;
  s.SetIgnoreList("Job.Secret; job.retries");
  EXPECT_EQ(s.IgnoreList(), "Job.Secret;job.retries");
  EXPECT_EQ(s.Serialize(job),
            "<Job Object=\"True\">\n"
            "\t<Name>a%26b %3Cc%3E</Name>\n"
            "\t<Enabled>True</Enabled>\n"
            "\t<Items Object=\"True\">\n"
            "\t\t<Count>2</Count>\n"
            "\t\t<Item Object=\"True\" Index=\"1\">\n"
            "\t\t\t<Label>one</Label>\n"
            "\t\t</Item>\n"
            "\t\t<Item Object=\"True\" Index=\"2\">\n"
            "\t\t\t<Label></Label>\n"
            "\t\t</Item>\n"
            "\t</Items>\n"
            "</Job>\n");
}

TEST(XmlSerializer, RoundTripRestoresValuesAndMembers) {
  Job job;
  job.SetName("x > y & z");
  job.SetRetries(4);
  job.SetSecret("s");
  job.GetItems()->Add()->SetLabel("first");
  job.GetItems()->Add()->SetLabel("second");
  XmlSerializer s;
  s.SetIgnoreList("Items.Count");  // read-only: it could not be set back
  const std::string xml = s.Serialize(job);
  Job back;
  ASSERT_TRUE(s.Deserialize(back, xml));
  EXPECT_EQ(back.Name(), "x > y & z");
  EXPECT_EQ(back.Retries(), 4);
  EXPECT_EQ(back.Secret(), "s");
  ASSERT_EQ(back.GetItems()->Count(), 2);
  EXPECT_EQ(back.GetItems()->All()[1]->Label(), "second");
}

// A value is read from its text, and the parser hands a text over in pieces around each
// reference: every piece is set in turn and the last one wins.
TEST(XmlSerializer, ValuesAreReadFromTheirTextOnePieceAtATime) {
  struct Case {
    const char* text;
    const char* last;
    int sets;
  };
  const Case cases[] = {
      {"007", "7", 1},  // a number, whatever the property's type
      {"2.5", "2", 1},  // rounded half to even
      {"3.5", "4", 1},
      {" false ", "False", 1},  // Booleans are recognised in any case,
                                // spaces trimmed
      {"%26lt;", "&lt;", 1},    // the escape's reverse, not the XML one
      {"plain", "plain", 1},
      {"a&amp;b", "b", 3},
      {"a&amp;", "&", 2},
      {"&lt;é&gt;", ">", 3},
      {"x&#13;y", "y", 2},  // the carriage return alone is blank: not set
      {"&#65;&#66;", "B", 2},
      {"caf&#233;s", "s", 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Job job;
    job.name_sets = 0;
    XmlSerializer().Deserialize(
        job, std::string("<Job Object=\"True\"><Name>") + c.text + "</Name></Job>");
    EXPECT_EQ(job.Name(), c.last);
    EXPECT_EQ(job.name_sets, c.sets);
  }
}

TEST(XmlSerializer, EmptyAndBlankTextsSetNothing) {
  Job job;
  job.SetName("kept");
  job.name_sets = 0;
  XmlSerializer().Deserialize(job, "<Job Object=\"True\"><Name></Name><Name>   </Name></Job>");
  EXPECT_EQ(job.Name(), "kept");
  EXPECT_EQ(job.name_sets, 0);
}

TEST(XmlSerializer, IgnoredPropertiesAreStillRead) {
  Job job;
  XmlSerializer s;
  s.SetIgnoreList("Job.Secret");
  s.Deserialize(job, "<Job Object=\"True\"><Secret>x</Secret></Job>");
  EXPECT_EQ(job.Secret(), "x");
}

TEST(XmlSerializer, FailuresEndTheParse) {
  Job job;
  XmlSerializer s;
  const Error e = testing::CaughtError([&] {
    s.Deserialize(job,
                  "<Job Object=\"True\"><Name>x</Name><Nope>1</Nope><Retries>5</Retries></Job>");
  });
  EXPECT_EQ(e.Number(), errnum::kNotSupported);
  EXPECT_EQ(job.Name(), "x");   // filled up to the failure
  EXPECT_EQ(job.Retries(), 0);  // not after it
  const Error e2 =
      testing::CaughtError([&] { s.Deserialize(job, "<Job Object=\"True\"><Name>x</Job>"); });
  EXPECT_EQ(e2.Source(), "SAXXMLReader");
  EXPECT_NE(e2.Number(), 0u);
  EXPECT_NE(s.LastError().find("line 1"), std::string::npos) << s.LastError();
}

TEST(XmlSerializer, PlainTextIsOnePieceHoweverLongAndLineEndsReadAsNewLines) {
  // The parser cuts long texts with non-ASCII characters at its buffer size; that must not cut
  // the value.
  std::string long_value;
  for (int k = 0; k < 400; ++k) long_value += "é" + std::to_string(k);
  struct Case {
    std::string value;
    std::string expected;
  };
  const Case cases[] = {
      {long_value, long_value},
      {std::string(5000, 'x'), std::string(5000, 'x')},
      {"first\r\nsecond\rthird", "first\nsecond\nthird"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.substr(0, 20));
    Job job;
    job.SetName(c.value);
    XmlSerializer s;
    s.SetIgnoreList("Items.Count");
    const std::string xml = s.Serialize(job);
    EXPECT_EQ(xml.find("&#13;"), std::string::npos) << xml;
    Job back;
    back.name_sets = 0;
    s.Deserialize(back, xml);
    EXPECT_EQ(back.Name(), c.expected);
    EXPECT_EQ(back.name_sets, 1);
  }
}

TEST(XmlSerializer, ReversibleEscapeBringsEveryValueBack) {
  const std::string values[] = {"%26",      "a%3Eb%3c", "%25%2526", "100%",       "%",
                                "<a&b>%3C", "%%26",     "50% off",  "%26amp;%3E<"};
  for (const std::string& v : values) {
    SCOPED_TRACE(v);
    EXPECT_EQ(XmlSerializer::UnescapeReversible(XmlSerializer::EscapeReversible(v)), v);
  }
  // Texts without the four codes are written as the program writes them, and read the same.
  for (const std::string v : {"a&b", "<td class=x>", "100% & more", "%3c lower case"}) {
    SCOPED_TRACE(v);
    EXPECT_EQ(XmlSerializer::EscapeReversible(v), XmlSerializer::Escape(v));
    EXPECT_EQ(XmlSerializer::UnescapeReversible(XmlSerializer::Escape(v)),
              XmlSerializer::Unescape(XmlSerializer::Escape(v)));
  }
  // Object XML nested as a value survives only the reversible escape.
  Job inner;
  inner.SetName("q=1&r=2");
  const std::string nested = XmlSerializer().Serialize(inner);
  Job outer;
  outer.SetName(nested);
  for (ValueEscape mode : {ValueEscape::Program, ValueEscape::Reversible}) {
    XmlSerializer s;
    s.SetIgnoreList("Items.Count");
    s.SetValueEscape(mode);
    Job back;
    s.Deserialize(back, s.Serialize(outer));
    if (mode == ValueEscape::Reversible) {
      EXPECT_EQ(back.Name(), nested);
    } else {
      EXPECT_NE(back.Name(), nested);
      EXPECT_NE(back.Name().find("q=1&r=2"), std::string::npos);  // the inner escape is undone
    }
  }
}

TEST(XmlSerializer, ReversibleModeKeepsLineEndsAndRefusesWhatXmlCannotCarry) {
  XmlSerializer s;
  s.SetIgnoreList("Items.Count");
  s.SetValueEscape(ValueEscape::Reversible);
  Job job;
  job.SetName("</td>\r\n<td>&amp; " + std::string(600, 'y') + "\r");
  const std::string xml = s.Serialize(job);
  EXPECT_NE(xml.find("%3C/td%3E&#13;\n%3Ctd%3E%26amp;"), std::string::npos) << xml;
  Job back;
  back.name_sets = 0;
  s.Deserialize(back, xml);
  EXPECT_EQ(back.Name(), job.Name());
  EXPECT_EQ(back.name_sets, 1);
  for (const std::string& bad :
       {std::string("a\x01b"), std::string("\xC3"), std::string("x\x1B[0m")}) {
    job.SetName(bad);
    EXPECT_EQ(testing::FailureNumber([&] { s.Serialize(job); }), errnum::kInvalidProcedureCall);
  }
  job.SetName("tab\there");
  EXPECT_NO_THROW(s.Serialize(job));
}

TEST(XmlSerializer, EmptyCollectionsAndMissingObjectsWriteLittle) {
  Job job;
  XmlSerializer s;
  s.SetIgnoreList("JOB.NAME;Job.Retries;job.enabled;Job.Secret;Items.Count");
  EXPECT_EQ(s.Serialize(job),
            "<Job Object=\"True\">\n"
            "\t<Attachment></Attachment>\n"  // Empty is a value: an element with no text
            "\t<Items Object=\"True\"></Items>\n"
            "</Job>\n");
}

TEST(XmlSerializer, AnObjectUnderAnotherNameKeepsTheElementsThatFollowIt) {
  // The end tag of a child is recognised by the child's type name only: "Spare" holds an Items,
  // so after </Spare> the reader still fills the Items, which has no Name.
  Job job;
  job.spare = std::make_shared<Items>();
  XmlSerializer s;
  const Error e = testing::CaughtError([&] {
    s.Deserialize(job, "<Job Object=\"True\"><Spare Object=\"True\"></Spare><Name>x</Name></Job>");
  });
  EXPECT_EQ(e.Number(), errnum::kNotSupported);
  EXPECT_NE(e.Description().find("Items.Name"), std::string::npos) << e.Description();
  EXPECT_EQ(s.LastError(), e.Description());
  // A property that holds no object leaves its contents on the object being filled.
  Job other;
  s.Deserialize(other, "<Job Object=\"True\"><Spare Object=\"True\"><Name>y</Name></Spare></Job>");
  EXPECT_EQ(other.Name(), "y");
}

TEST(XmlSerializer, ExternalEntitiesAreNeverRead) {
  testing::TempDir dir;
  testing::WriteFile(dir / "secret.txt", "SECRET");
  const std::string xml = "<!DOCTYPE Job [<!ENTITY e SYSTEM \"file://" +
                          (dir / "secret.txt").string() +
                          "\">]><Job Object=\"True\"><Name>&e;</Name></Job>";
  Job job;
  try {
    XmlSerializer().Deserialize(job, xml);
  } catch (const Error& e) {
    EXPECT_EQ(e.Source(), "SAXXMLReader");
  }
  EXPECT_EQ(job.Name().find("SECRET"), std::string::npos);
}

}  // namespace
}  // namespace gw
