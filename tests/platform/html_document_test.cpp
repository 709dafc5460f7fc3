#include "platform/html/document.h"

#include "platform/text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace gw::html {
namespace {

std::shared_ptr<const Document> Parse(const std::string& text) {
  return Document::Parse(text, "file:///tmp/page.htm");
}

std::vector<std::string> Names(const std::vector<Element>& elems) {
  std::vector<std::string> out;
  for (const Element& e : elems) {
    std::string n = e.tagName();
    if (!e.name().empty()) n += ":" + e.name();
    out.push_back(n);
  }
  return out;
}

TEST(HtmlDocument, BuildsTheTreeABrowserBuilds) {
  // Misnested formatting, a paragraph closed by a block, a table cell's content: each ends where
  // a browser puts it.
  auto doc = Parse(
      "<p>one<div>two</div><b>bold<i>both</b>italic</i>"
      "<table><tr><td><span name=cell>x</span></table>");
  const auto all = doc->all();
  std::vector<std::string> tags;
  for (const Element& e : all) tags.push_back(e.tagName());
  EXPECT_EQ(tags, (std::vector<std::string>{"HTML", "HEAD", "BODY", "P", "DIV", "B", "I", "I",
                                            "TABLE", "TBODY", "TR", "TD", "SPAN"}));
  EXPECT_EQ(ElementPath(doc->tags("span").at(0)), "/BODY/TABLE/TBODY/TR/TD/SPAN:cell");
  // The P is closed by the DIV, so the DIV is the body's child, not the paragraph's.
  EXPECT_EQ(doc->tags("DIV").at(0).parentElement().tagName(), "BODY");
  EXPECT_EQ(doc->documentElement().tagName(), "HTML");
  EXPECT_FALSE(doc->documentElement().parentElement());
  EXPECT_EQ(doc->readyState(), "complete");
  EXPECT_EQ(doc->URL(), "file:///tmp/page.htm");
}

TEST(HtmlDocument, TagsIgnoreCaseAndKeepUnknownNames) {
  auto doc = Parse("<A href=x>1</a><my-widget id=w>2</MY-WIDGET><a>3</a>");
  EXPECT_EQ(doc->tags("a").size(), 2u);
  EXPECT_EQ(doc->tags("A").size(), 2u);
  ASSERT_EQ(doc->tags("my-widget").size(), 1u);
  EXPECT_EQ(doc->tags("MY-WIDGET").at(0).tagName(), "MY-WIDGET");
  EXPECT_EQ(doc->getElementById("w").tagName(), "MY-WIDGET");
  EXPECT_FALSE(doc->getElementById("nothing"));
  EXPECT_EQ(doc->documentElement().tags("a").size(), 2u);
}

TEST(HtmlDocument, FormElementsIncludeControlsThatBelongToTheFormElsewhere) {
  auto doc = Parse(
      "<form id=f1 action=/a><input name=a><input type=image name=img>"
      "<select name=s><option>1</select><textarea name=t></textarea><button name=b>go</button>"
      "<fieldset><input name=nested></fieldset></form>"
      "<input name=outside><input name=linked form=f1>"
      // A form opened inside a table is closed at once by the parser; the controls of the table
      // still belong to it up to its end tag.
      "<table><form id=f2><tr><td><input name=in_table></td></tr></form></table>"
      "<input name=after_f2>"
      // A form closed with the element around it stays open to the parser.
      "<div><form id=f3><input name=in_div></div><input name=after_div>");
  const auto forms = doc->forms();
  ASSERT_EQ(forms.size(), 3u);
  EXPECT_EQ(Names(forms[0].elements()),
            (std::vector<std::string>{"INPUT:a", "SELECT:s", "TEXTAREA:t", "BUTTON:b",
                                      "INPUT:nested", "INPUT:linked"}));
  EXPECT_EQ(Names(forms[1].elements()), (std::vector<std::string>{"INPUT:in_table"}));
  EXPECT_EQ(Names(forms[2].elements()),
            (std::vector<std::string>{"INPUT:in_div", "INPUT:after_div"}));
  // The image button stands in the form but is not among its elements.
  EXPECT_EQ(forms[0].tags("INPUT").size(), 3u);
  EXPECT_TRUE(doc->tags("p").empty());
}

TEST(HtmlDocument, ControlValuesAndTypes) {
  auto doc = Parse(
      "<input id=c1 type=checkbox><input id=c2 type=RADIO value=x>"
      "<input id=c3 value='a\nb'><input id=c4 type=hidden value='a\nb'>"
      "<input id=c5 type=email><input id=c6 type=bogus><input id=c7>"
      "<button id=c8>b</button><button id=c9 type=Reset>r</button>"
      "<textarea id=c10>\nline1\nline2 &amp; more</textarea>"
      "<select id=c11><option>a</option><option value=bv>b</option></select>"
      "<select id=c12 multiple><option selected>a<option value=x selected>b<option>c</select>"
      "<input id=c13 maxlength=' 12'><input id=c14 maxlength=x><textarea id=c15></textarea>");
  struct Case {
    const char* id;
    const char* value;
    const char* type;
    long max_length;
  };
  const Case cases[] = {
      {"c1", "on", "checkbox", 2147483647},
      {"c2", "x", "radio", 2147483647},
      {"c3", "ab", "text", 2147483647},
      {"c4", "a\nb", "hidden", 2147483647},
      {"c5", "", "email", 2147483647},
      {"c6", "", "text", 2147483647},
      {"c7", "", "text", 2147483647},
      {"c8", "", "submit", 2147483647},
      {"c9", "", "reset", 2147483647},
      {"c10", "line1\nline2 & more", "textarea", 2147483647},
      {"c11", "a", "select-one", 2147483647},
      {"c12", "a", "select-multiple", 2147483647},
      {"c13", "", "text", 12},
      {"c14", "", "text", 2147483647},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    const Element e = doc->getElementById(c.id);
    ASSERT_TRUE(e);
    EXPECT_EQ(e.value(), c.value);
    EXPECT_EQ(e.type(), c.type);
    EXPECT_EQ(e.maxLength(), c.max_length);
  }
  EXPECT_TRUE(doc->getElementById("c12").multiple());
  EXPECT_FALSE(doc->getElementById("c11").multiple());
}

TEST(HtmlDocument, OptionsAndTheirSelectedness) {
  auto doc = Parse(
      "<select id=none><option disabled>d</option><option> two  words </option></select>"
      "<select id=two><option selected value=1>a<option selected value=2>b</select>"
      "<select id=tall size=3><option>a<option>b</select>"
      "<select id=grouped multiple><optgroup><option selected>g1<option>g2</optgroup>"
      "<option value=''>empty value</option></select>");
  auto selected = [&](const char* id) {
    std::vector<std::string> out;
    for (const Element& o : doc->getElementById(id).options()) {
      out.push_back(o.text() + "=" + o.value() + (o.selected() ? "*" : ""));
    }
    return out;
  };
  // One row, nothing marked: the first option that can be chosen is shown chosen.
  EXPECT_EQ(selected("none"), (std::vector<std::string>{"d=d", "two words=two words*"}));
  // Two marked in a single-choice list: the last one wins.
  EXPECT_EQ(selected("two"), (std::vector<std::string>{"a=1", "b=2*"}));
  // A list of several rows shows nothing chosen.
  EXPECT_EQ(selected("tall"), (std::vector<std::string>{"a=a", "b=b"}));
  // An empty value attribute is a value.
  EXPECT_EQ(selected("grouped"), (std::vector<std::string>{"g1=g1*", "g2=g2", "empty value="}));
  EXPECT_EQ(doc->getElementById("two").value(), "2");
  EXPECT_EQ(doc->getElementById("tall").value(), "");
}

TEST(HtmlDocument, OuterHtmlIsStable) {
  struct Case {
    const char* html;
    const char* tag;
    const char* outer;
  };
  const Case cases[] = {
      {"<INPUT Type=Text NAME='q' value=\"a&quot;b&amp;c\" disabled>", "input",
       "<input type=\"Text\" name=\"q\" value=\"a&quot;b&amp;c\" disabled=\"\" />"},
      {"<a href='x?a=1&b=2&lt;'>A &lt; B&nbsp;<b>bold</a>", "a",
       "<a href=\"x?a=1&amp;b=2&lt;\">A &lt; B\xC2\xA0<b>bold</b></a>"},
      {"<p>one<br>two<!-- note --></p>", "p", "<p>one<br />two<!-- note --></p>"},
      {"<script>if (a < b && c) x();</script>", "script", "<script>if (a < b && c) x();</script>"},
      {"<select name=s><option value=1 selected>One</select>", "select",
       "<select name=\"s\"><option value=\"1\" selected=\"\">One</option></select>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.html);
    auto doc = Parse(c.html);
    const auto found = doc->tags(c.tag);
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found[0].outerHTML(), c.outer);
    // Written out and read again, the markup stays the same.
    auto again = Parse(found[0].outerHTML());
    EXPECT_EQ(again->tags(c.tag).at(0).outerHTML(), c.outer);
  }
}

TEST(HtmlDocument, InnerTextIsWhatAReaderSees) {
  auto doc = Parse(
      "<div id=d>  Hello   <b>big</b>\n world<script>var x;</script><style>p{}</style>"
      "<p>para one</p><ul><li>item 1<li>item 2</ul>line<br>break"
      "<pre>  kept   as\n  is</pre></div>");
  EXPECT_EQ(doc->getElementById("d").innerText(),
            "Hello big world\npara one\nitem 1\nitem 2\nline\nbreak\nkept   as\nis");
}

TEST(HtmlDocument, ElementsKnowWhereTheirStartTagsStand) {
  const std::string html =
      "<!DOCTYPE html>\n<title>T\xC3\xA9st</title>\n<p class=x>caf\xC3\xA9 <A\nhref=\"y\">link</a>"
      "<table><tr><td>cell</table>";
  auto doc = Parse(html);
  for (const Element& e : doc->all()) {
    SCOPED_TRACE(e.tagName());
    const std::size_t at = e.SourceOffset();
    if (e.tagName() == "HTML" || e.tagName() == "HEAD" || e.tagName() == "BODY" ||
        e.tagName() == "TBODY") {
      EXPECT_EQ(at, Element::npos);  // made by the parser, no tag of its own
      continue;
    }
    ASSERT_NE(at, Element::npos);
    const std::string tag = html.substr(at, e.SourceTagLength());
    EXPECT_TRUE(text::StartsWithNoCase(tag, "<" + e.tagName())) << tag;
    EXPECT_EQ(tag.back(), '>');
  }
  EXPECT_EQ(html.substr(doc->tags("a").at(0).SourceOffset(), 3), "<A\n");
}

TEST(HtmlDocument, LinksAreAnchorsAndAreasWithAnAddress) {
  auto doc = Parse(
      "<a href=1>x</a><a name=top>no address</a><map><area href=2 alt=a><area alt=b></map>"
      "<A HREF=''>empty</A>");
  std::vector<std::string> hrefs;
  for (const Element& e : doc->links()) hrefs.push_back(e.getAttribute("href").value());
  EXPECT_EQ(hrefs, (std::vector<std::string>{"1", "2", ""}));
  EXPECT_FALSE(doc->tags("a").at(1).getAttribute("href").has_value());
}

TEST(HtmlDocument, ElementDescriptionsNameFormsByTheirAction) {
  auto doc = Parse(
      "<div id=main><form name=search action='/find?x=1'><input name=q><input id=only_id>"
      "</form><form action=/post><p><input></p></form></div>");
  const auto inputs = doc->tags("input");
  ASSERT_EQ(inputs.size(), 3u);
  EXPECT_EQ(ElementPath(inputs[0]), "/BODY/DIV:main/FORM:search:/find?x=1/INPUT:q");
  EXPECT_EQ(ElementPath(inputs[1]), "/BODY/DIV:main/FORM:search:/find?x=1/INPUT:only_id");
  EXPECT_EQ(ElementPath(inputs[2]), "/BODY/DIV:main/FORM:/post/P/INPUT");
  EXPECT_EQ(ElementDescription(doc->forms().at(0)), "/FORM:search:/find?x=1");
  EXPECT_EQ(ElementPath(Element()), "");
}

TEST(HtmlDocument, HandlesOutliveTheirDocumentVariable) {
  Element kept;
  {
    auto doc = Parse("<p id=x>still here</p>");
    kept = doc->getElementById("x");
  }
  EXPECT_EQ(kept.innerText(), "still here");
  EXPECT_EQ(kept.OwnerDocument()->Source(), "<p id=x>still here</p>");
}

TEST(HtmlDocument, XmlRootAttributeReadsWellFormedMarkupOnly) {
  struct Case {
    const char* xml;
    bool well_formed;
    std::optional<std::string> value;
  };
  const Case cases[] = {
      {"<a href=\"x?a=1&amp;b=2\">t</a>", true, "x?a=1&b=2"},
      {"<a name=\"n\">t</a>", true, std::nullopt},
      {"<a href=\"x\">t<br></a>", false, std::nullopt},
      {"<a href=\"x\">&nbsp;</a>", false, std::nullopt},
      {"<!DOCTYPE a [<!ENTITY e \"x\">]><a href=\"&e;\"/>", false, std::nullopt},
      {"", false, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.xml);
    const XmlRootAttribute read = ReadXmlRootAttribute(c.xml, "href");
    EXPECT_EQ(read.well_formed, c.well_formed);
    EXPECT_EQ(read.value, c.value);
  }
  // What the document writes of an anchor reads as XML, void elements and no-break spaces too.
  auto doc = Parse("<a href='p?a=1&b=2'>More&nbsp;<img src=x.gif><br></a>");
  EXPECT_EQ(ReadXmlRootAttribute(doc->tags("a").at(0).outerHTML(), "href").value, "p?a=1&b=2");
}

}  // namespace
}  // namespace gw::html
