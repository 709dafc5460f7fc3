#include "infra/xml_serializer.h"

#include <gtest/gtest.h>

#include "platform/collection.h"
#include "platform/property_table.h"

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

  int name_sets = 0;
  Variant attachment;

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

TEST(XmlSerializer, ReadingTypesValuesByTheirText) {
  struct Case {
    const char* xml_value;
    const char* stored;
  };
  const Case cases[] = {
      {"007", "7"},  // a number, whatever the property's type
      {"2.5", "2"},  // rounded half to even
      {"3.5", "4"},
      {" false ", "False"},  // Booleans are recognised in any case, spaces trimmed
      {"%26lt;", "&lt;"},    // the escape's reverse, not the XML one
      {"plain", "plain"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xml_value);
    Job job;
    XmlSerializer().Deserialize(
        job, std::string("<Job Object=\"True\"><Name>") + c.xml_value + "</Name></Job>");
    EXPECT_EQ(job.Name(), c.stored);
  }
}

TEST(XmlSerializer, EscapeIsNotSymmetric) {
  EXPECT_EQ(XmlSerializer::Escape("&<>"), "%26%3C%3E");
  EXPECT_EQ(XmlSerializer::Unescape(XmlSerializer::Escape("a&b")), "a&b");
  // A value that really holds "%26" comes back as "&".
  EXPECT_EQ(XmlSerializer::Unescape(XmlSerializer::Escape("%26")), "&");
}

TEST(XmlSerializer, EmptyAndBlankTextsSetNothing) {
  Job job;
  job.SetName("kept");
  job.name_sets = 0;
  XmlSerializer().Deserialize(job, "<Job Object=\"True\"><Name></Name><Name>   </Name></Job>");
  EXPECT_EQ(job.Name(), "kept");
  EXPECT_EQ(job.name_sets, 0);
}

TEST(XmlSerializer, IgnoredPropertiesAreStillReadAndPiecesAreSetOneByOne) {
  Job job;
  XmlSerializer s;
  s.SetIgnoreList("Job.Secret");
  s.Deserialize(job, "<Job Object=\"True\"><Secret>x</Secret><Name>a&amp;b</Name></Job>");
  EXPECT_EQ(job.Secret(), "x");
  // The parser hands the text over in pieces around the entity; the last piece wins.
  EXPECT_GT(job.name_sets, 1);
  EXPECT_EQ(job.Name(), "b");
}

TEST(XmlSerializer, FailuresEndTheParse) {
  Job job;
  XmlSerializer s;
  try {
    s.Deserialize(job,
                  "<Job Object=\"True\"><Name>x</Name><Nope>1</Nope><Retries>5</Retries></Job>");
    FAIL() << "unknown property accepted";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), 438u);
  }
  EXPECT_EQ(job.Name(), "x");   // filled up to the failure
  EXPECT_EQ(job.Retries(), 0);  // not after it
  try {
    s.Deserialize(job, "<Job Object=\"True\"><Name>x</Job>");
    FAIL() << "malformed XML accepted";
  } catch (const Error& e) {
    EXPECT_EQ(e.Source(), "SAXXMLReader");
    EXPECT_NE(e.Number(), 0u);
    EXPECT_NE(s.LastError().find("line 1"), std::string::npos) << s.LastError();
  }
}

}  // namespace
}  // namespace gw
