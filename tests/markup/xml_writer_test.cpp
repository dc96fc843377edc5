#include "markup/xml.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

namespace corvid {
namespace {

using test::Written;

std::string Rewritten(const std::string& text, char indent = '\t', bool lineBreaks = true) {
    XmlDocument document;
    document.ParseCopy(text, kXmlStandardReader);
    return Written(document, indent, lineBreaks);
}

TEST(XmlWriter, WritesNestedElementsOnIndentedLinesAndTextElementsOnOne) {
    EXPECT_EQ(Rewritten("<a><b/></a>"), "<a>\n\t<b/>\n</a>\n");
    EXPECT_EQ(Rewritten("<a><t>text</t><u>x<v/></u></a>"),
              "<a>\n\t<t>text</t>\n\t<u>\n\t\tx\n\t\t<v/>\n\t</u>\n</a>\n");
}

TEST(XmlWriter, WritesEveryKindLiterallyWithoutEscaping) {
    XmlDocument document;
    document.Create();
    XmlBranch item = document.Root().AppendChild(kXmlElement).AppendChild(kXmlElement);
    ASSERT_TRUE(document.Root().Child(0).SetName("menu"));
    ASSERT_TRUE(item.SetName("item"));
    item.SetAttributeValue(item.AttributeOrAdd("label"), "A&B");
    item.SetAttributeValue(item.AttributeOrAdd("id"), "x");
    EXPECT_EQ(Written(document), "<menu>\n\t<item label=\"A&B\" id=\"x\"/>\n</menu>\n");
    std::ostringstream one;
    item.Write(one, '\t', true);
    EXPECT_EQ(one.str(), "<item label=\"A&B\" id=\"x\"/>\n");

    EXPECT_EQ(Rewritten("<?xml version=\"1.0\"?><a v='say \"hi\" &amp;'><!--c--><![CDATA[<&>]]>"
                        "<![INCLUDE[i]]></a>"),
              "<?xml version=\"1.0\"?>\n<a v=\"say \"hi\" &amp;\">\n\t<!--c-->\n\t<![CDATA[<&>]]>\n"
              "\t<![INCLUDE[i]]>\n</a>\n");
}

TEST(XmlWriter, WritesDocTypesWithTheirDeclarationsOrRawSubset) {
    EXPECT_EQ(Rewritten("<!DOCTYPE r SYSTEM \"r.dtd\" [<!ENTITY % e \"x\"><!ELEMENT r ANY>]>"),
              "<!DOCTYPE r SYSTEM \"r.dtd\"\n[\n\t<!ENTITY %e \"x\">\n\t<!ELEMENT r ANY>\n]>\n");
    EXPECT_EQ(Rewritten("<!DOCTYPE r [<!ENTITY e 'x'>]>", 0, false),
              "<!DOCTYPE r [ <!ENTITY e 'x'>]>");
    XmlDocument raw;
    raw.ParseCopy("<!DOCTYPE r [ raw ]>", kXmlParseDocType | kXmlTrimDocType);
    EXPECT_EQ(Written(raw), "<!DOCTYPE r [raw]>\n");
    XmlDocument bare;
    bare.ParseCopy("<!DOCTYPE r>", kXmlStandardReader);
    EXPECT_EQ(Written(bare), "<!DOCTYPE r>\n");
}

TEST(XmlWriter, WithoutIndentOrLineBreaksAddsNoWhitespace) {
    EXPECT_EQ(Rewritten("<a>\n  <b x='1'>\n <c/> </b>\n  <d>t</d>\n</a>", 0, false),
              "<a><b x=\"1\"><c/></b><d>t</d></a>");
}

TEST(XmlWriter, KeepsTheQuirksOfNamelessAndValuelessNodes) {
    XmlDocument document;
    document.Create();
    XmlBranch anonymous = document.Root().AppendChild(kXmlElement);
    anonymous.AppendChild(kXmlElement).SetName("x");
    anonymous.AppendChild(kXmlText);
    XmlAttribute* flag = anonymous.AttributeOrAdd("flag");
    std::free(flag->value);
    flag->value = nullptr;
    EXPECT_EQ(Written(document), "<anonymous flag>\n\t<x/>\n\t\n</>\n");
    XmlDocument single;
    single.Create();
    single.Root().AppendChild(kXmlElement).AppendChild(kXmlText);
    EXPECT_EQ(Written(single), "<anonymous></>\n");
}

TEST(XmlWriter, StopsAtAFailedStream) {
    XmlDocument document;
    document.ParseCopy("<a><b/><c/></a>", kXmlStandardReader);
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    document.Write(out, '\t', true);
    EXPECT_EQ(out.str(), "");
    XmlDocument empty;
    std::ostringstream nothing;
    empty.Write(nothing, '\t', true);
    EXPECT_EQ(nothing.str(), "");
}

TEST(XmlRoundTrip, WrittenTreesParseBackToTheSameTree) {
    const char* const documents[] = {
        "<?xml version=\"1.0\"?><menu id='main'><item label='A&amp;B' cmd='p2p_search'/>"
        "<popup label='More'><item label='x'/><sep/></popup><t>text here</t></menu>",
        "<!DOCTYPE r SYSTEM 'r.dtd' [<!ENTITY % e 'x'><!ATTLIST r a CDATA #IMPLIED>]><r><!--c-->"
        "<![CDATA[raw]]><a b c='1'/></r>",
        "<lang><define><item id='IDS_A' value='32949'/></define><string><item id='IDS_A' "
        "value='Hello'/></string></lang>",
    };
    for (const char* text : documents) {
        XmlDocument first;
        first.ParseCopy(text, kXmlStandardReader);
        const std::string once = Written(first);
        XmlDocument second;
        second.ParseCopy(once, kXmlStandardReader);
        if (!std::string_view(text).starts_with("<!DOCTYPE")) {
            // (A parsed subset leaves the DocType's raw value pointing at cut text.)
            EXPECT_EQ(test::Describe(second.Root().node()), test::Describe(first.Root().node()))
                << once;
        }
        EXPECT_EQ(Written(second), once);
    }
}

TEST(XmlTreeBuilding, AppendsOnlyBelowTheDocumentAndElements) {
    XmlDocument document;
    document.Create();
    XmlBranch root = document.Root();
    XmlBranch text = root.AppendChild(kXmlText);
    EXPECT_EQ(text.Kind(), kXmlText);
    EXPECT_TRUE(text.AppendChild(kXmlElement).IsNull());
    EXPECT_TRUE(XmlBranch().AppendChild(kXmlElement).IsNull());
    XmlBranch element = root.AppendChild(kXmlElement);
    for (int i = 0; i < 5; ++i) {
        element.AppendChild(kXmlElement);
    }
    EXPECT_EQ(element.node()->childCapacity, 5u); // grown one slot at a time
    EXPECT_EQ(element.Child(4).node()->parent, element.node());
}

TEST(XmlTreeBuilding, AParsedTreeTakesNewChildrenAndAttributes) {
    XmlDocument document;
    document.ParseCopy("<m><i a='1'/><i/><t>x</t></m>", kXmlStandardReader);
    XmlBranch menu = document.Root().Child(0);
    ASSERT_TRUE(menu.AppendChild(kXmlElement).SetName("j"));
    EXPECT_EQ(menu.ChildCount(), 4u);
    EXPECT_EQ(menu.Child(3).node()->parent, menu.node());
    XmlBranch first = menu.Child(0);
    first.SetAttributeValue(first.AttributeOrAdd("b"), "2");
    first.SetAttributeValue(first.AttributeOrAdd("c"), "3");
    XmlBranch second = menu.Child(1);
    second.SetAttributeValue(second.AttributeOrAdd("d"), "4");
    ASSERT_TRUE(document.Root().AppendChild(kXmlElement).SetName("after"));
    EXPECT_EQ(test::Written(document), "<m>\n\t<i a=\"1\" b=\"2\" c=\"3\"/>\n\t<i d=\"4\"/>\n"
                                       "\t<t>x</t>\n\t<j/>\n</m>\n<after/>\n");
}

TEST(XmlTreeBuilding, NamesAndValuesAreCopiedInPlaceWhenTheyFitElseOwned) {
    XmlDocument document;
    document.ParseCopy("<element a='value'/>", kXmlStandardReader);
    XmlBranch element = document.Root().Child(0);
    ASSERT_TRUE(element.SetName("elem"));
    EXPECT_STREQ(element.Name(), "elem");
    EXPECT_EQ(element.node()->nameInPlace, 1);
    ASSERT_TRUE(element.SetName("a-much-longer-name"));
    EXPECT_STREQ(element.Name(), "a-much-longer-name");
    EXPECT_EQ(element.node()->nameInPlace, 0);
    ASSERT_TRUE(element.SetName("again-longer-than-that-one"));
    EXPECT_FALSE(element.SetName(nullptr));
    EXPECT_FALSE(document.Root().SetName("doc"));

    XmlAttribute* existing = element.AttributeOrAdd("a");
    EXPECT_STREQ(existing->value, "value");
    element.SetAttributeValue(existing, "v");
    EXPECT_EQ(existing->valueInPlace, 1);
    element.SetAttributeValue(existing, "a longer value");
    EXPECT_EQ(existing->valueInPlace, 0);
    XmlAttribute* added = element.AttributeOrAdd("b");
    EXPECT_STREQ(added->value, "");
    EXPECT_EQ(element.AttributeCount(), 2u);
    EXPECT_EQ(element.AttributeOrAdd("b"), added);
    EXPECT_EQ(element.AttributeOrAdd("[ab]"), existing);
}

} // namespace
} // namespace corvid
