// The strict reader of object XML: exact values, and refusals that name the line.
#include "infra/object_xml_reader.h"

#include <gtest/gtest.h>

#include "platform/property_table.h"
#include "support/test_support.h"

namespace gw {
namespace {

class Leaf : public Object {
 public:
  std::string TypeName() const override { return "Leaf"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table =
        PropertyTableBuilder<Leaf>("Leaf")
            .Value("Text", &Leaf::text, [](Leaf& l, std::string v) { l.text = std::move(v); })
            .Value("Count", &Leaf::count, [](Leaf& l, int v) { l.count = v; })
            .Build();
    return &table;
  }
  std::string text;
  int count = 0;
};

class Leaves : public Object {
 public:
  std::string TypeName() const override { return "Leaves"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table =
        PropertyTableBuilder<Leaves>("Leaves")
            .Members([](const Leaves& l) { return l.items; })
            .AddMethod("Add",
                       [](Leaves& l) { return l.items.emplace_back(std::make_shared<Leaf>()); })
            .Build();
    return &table;
  }
  std::vector<std::shared_ptr<Leaf>> items;
};

class Tree : public Object {
 public:
  std::string TypeName() const override { return "Tree"; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table =
        PropertyTableBuilder<Tree>("Tree")
            .Value("Name", &Tree::name, [](Tree& t, std::string v) { t.name = std::move(v); })
            .Value("Age", &Tree::age, [](Tree& t, std::int16_t v) { t.age = v; })
            .Value("Kind", [](const Tree&) { return std::string("oak"); })
            .Child("Leaves", [](const Tree& t) { return t.leaves; })
            .Build();
    return &table;
  }
  std::string name;
  std::int16_t age = 0;
  std::shared_ptr<Leaves> leaves = std::make_shared<Leaves>();
};

TEST(ObjectXmlReader, GivesBackExactlyWhatTheReversibleSerializerWrote) {
  Tree tree;
  tree.name = "  007 & <b>%26 True\r\n\tend  ";
  tree.age = 12;
  for (const char* t : {"", " ", "False", "2.5", "é%3C"}) {
    tree.leaves->items.push_back(std::make_shared<Leaf>());
    tree.leaves->items.back()->text = t;
    tree.leaves->items.back()->count = 3;
  }
  XmlSerializer s;
  s.SetValueEscape(ValueEscape::Reversible);
  s.SetIgnoreList("Tree.Kind");
  const std::string xml = s.Serialize(tree);
  Tree back;
  ObjectXmlReader reader;
  reader.Read(back, xml, "tree.xml");
  EXPECT_EQ(back.name, tree.name);
  EXPECT_EQ(back.age, 12);
  ASSERT_EQ(back.leaves->items.size(), 5u);
  for (std::size_t k = 0; k < 5; ++k) {
    SCOPED_TRACE(k);
    EXPECT_EQ(back.leaves->items[k]->text, tree.leaves->items[k]->text);
    EXPECT_EQ(back.leaves->items[k]->count, 3);
  }
  EXPECT_TRUE(reader.Has(back, "name"));
  EXPECT_TRUE(reader.Has(back, "Leaves"));
  EXPECT_FALSE(reader.Has(back, "Kind"));
  EXPECT_TRUE(reader.Has(*back.leaves->items[0], "Text")) << "an empty element is there";
  EXPECT_EQ(reader.LineOf(back), 1);
  EXPECT_EQ(reader.LineOf(back, "Age"), 4);  // the name holds a line end
  EXPECT_EQ(reader.LineOf(*back.leaves->items[1]), 10);
  EXPECT_EQ(reader.Where(*back.leaves->items[1], "Text"), "tree.xml:11: ");
}

TEST(ObjectXmlReader, HandWrittenFormsAreAccepted) {
  Tree tree;
  ObjectXmlReader().Read(tree,
                         "<!-- a tree -->\n"
                         "<Tree Object=\"True\">\n"
                         "  <name>Elm</name> <!-- names ignore case -->\n"
                         "  <Leaves Object=\"True\">\n"
                         "    <Leaf Object=\"True\"><Text><![CDATA[<b>]]> &amp; x</Text></Leaf>\n"
                         "    <Leaf Object=\"True\" Index=\"7\"><Count>4</Count></Leaf>\n"
                         "  </Leaves>\n"
                         "</Tree>\n",
                         "hand.xml");
  EXPECT_EQ(tree.name, "Elm");
  ASSERT_EQ(tree.leaves->items.size(), 2u);
  EXPECT_EQ(tree.leaves->items[0]->text, "<b> & x");
  EXPECT_EQ(tree.leaves->items[1]->count, 4);
  // An empty element sets nothing: a number keeps its value rather than failing.
  Tree other;
  other.age = 9;
  ObjectXmlReader().Read(other, "<Tree Object=\"True\"><Age></Age></Tree>", "e.xml");
  EXPECT_EQ(other.age, 9);
}

// A Tree whose root element carries `count` attributes after a comment line.
std::string CrowdedRoot(int count) {
  std::string xml = "<!-- crowded\n--><Tree Object=\"True\"";
  for (int k = 0; k < count; ++k)
    xml += " a" + std::to_string(k) + "=\"" + std::to_string(k) + "\"";
  return xml + "/>";
}

TEST(ObjectXmlReader, RefusalsNameTheSourceAndTheLine) {
  struct Case {
    const char* what;
    std::string xml;
    const char* expected;
  };
  const std::string head = "<Tree Object=\"True\">\n";
  const Case cases[] = {
      {"not well-formed", head + "<Name>x</Nam>\n</Tree>", "t.xml:2: "},
      {"no document", "", "t.xml:1: "},
      {"another root", "<Forest Object=\"True\"/>", "t.xml:1: the document is a <Forest>"},
      {"root without the flag", "<Tree/>", "t.xml:1: the document is a <Tree>"},
      {"unknown value", head + "\n<Height>3</Height></Tree>",
       "t.xml:3: a Tree has no property Height"},
      {"read-only value", head + "<Kind>ash</Kind></Tree>",
       "t.xml:2: Kind of a Tree cannot be set"},
      {"twice", head + "<Name>a</Name>\n<name>b</name></Tree>", "t.xml:3: name is given twice"},
      {"value of the wrong type", head + "<Age>old</Age></Tree>",
       "t.xml:2: the value \"old\" does not fit Age"},
      {"value holding an element", head + "<Name><b>x</b></Name></Tree>",
       "t.xml:2: <Name> is a value and cannot hold the element <b>"},
      {"object without the flag", head + "<Leaves></Leaves></Tree>",
       "t.xml:2: Leaves of a Tree is an object"},
      {"flag not True", head + "<Leaves Object=\"true\"></Leaves></Tree>",
       "t.xml:2: the attribute Object of <Leaves> is \"true\""},
      {"unknown object", head + "<Roots Object=\"True\"/></Tree>",
       "t.xml:2: a Tree has no object property Roots"},
      {"member of the wrong type",
       head + "<Leaves Object=\"True\">\n<Twig Object=\"True\" Index=\"1\"/></Leaves></Tree>",
       "t.xml:3: the members of a Leaves are Leaf elements, not <Twig>"},
      {"bad index",
       head + "<Leaves Object=\"True\"><Leaf Object=\"True\" Index=\"0\"/></Leaves></Tree>",
       "t.xml:2: the Index of <Leaf> is \"0\""},
      {"stray text", head + "oops<Name>x</Name></Tree>",
       "t.xml:2: the text \"oops\" stands inside <Tree>"},
      {"other attribute", head + "<Name lang=\"en\">x</Name></Tree>",
       "t.xml:2: the element <Name> has the attribute lang"},
      {"document type", "<!DOCTYPE Tree [<!ENTITY e \"x\">]>\n" + head + "<Name>&e;</Name></Tree>",
       "t.xml:1: a document type declaration is not allowed"},
      {"undeclared entity", head + "<Name>&e;</Name></Tree>", "t.xml:2: "},
      {"three attributes",
       head + "<Leaves Object=\"True\">\n<Leaf Object=\"True\" Index=\"1\" x='>'/></Leaves></Tree>",
       "t.xml:3: the element <Leaf> has more than two attributes; only Object and Index are used"},
      // Refused after one pass over the text: the parser would compare each attribute with
      // every one before it first.
      {"a root with 200,000 attributes", CrowdedRoot(200'000),
       "t.xml:2: the element <Tree> has more than two attributes"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Tree tree;
    const Error e = testing::CaughtError([&] { ObjectXmlReader().Read(tree, c.xml, "t.xml"); });
    EXPECT_EQ(e.Number(), infraerr::kBadDocument);
    EXPECT_EQ(e.Description().rfind(c.expected, 0), 0u) << e.Description();
  }
}

}  // namespace
}  // namespace gw
