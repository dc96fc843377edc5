#include "markup/xml.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace corvid {
namespace {

using test::ParseAndDescribe;

constexpr std::uint32_t kNothing = 0;

TEST(XmlParserElements, BuildsElementsTextAndIgnoresEndTagNames) {
    EXPECT_EQ(ParseAndDescribe("<a>x</b>"), "el a {text 'x'}");
    EXPECT_EQ(ParseAndDescribe("<r><a/><b></b><c>t</c></r>"), "el r {el a, el b, el c {text 't'}}");
    EXPECT_EQ(ParseAndDescribe("<a>  hello \t\n  world  </a>"), "el a {text 'hello world'}");
}

TEST(XmlParserElements, LeadingBlanksOfTextAreAlwaysDroppedTrailingOnlyWhenTrimming) {
    EXPECT_EQ(ParseAndDescribe("<a>  x  y </a>", kNothing), "el a {text 'x  y '}");
    EXPECT_EQ(ParseAndDescribe("<a>  x  y </a>", kXmlTrimText), "el a {text 'x  y'}");
}

TEST(XmlParserElements, TextAfterAnEndTagOrEmptyElementIsSkippedButNotAfterText) {
    EXPECT_EQ(ParseAndDescribe("<a><b/>lost<c/></a>"), "el a {el b, el c}");
    EXPECT_EQ(ParseAndDescribe("<a><b></b>lost</a>"), "el a {el b}");
    EXPECT_EQ(ParseAndDescribe("<a><b>x</b>kept</a>"), "el a {el b {text 'x'}, text 'kept'}");
}

TEST(XmlParserElements, SurplusEndTagsKeepParsingAtTheDocumentLevel) {
    EXPECT_EQ(ParseAndDescribe("</x></y><a/><b/>"), "el a, el b");
    EXPECT_EQ(ParseAndDescribe("<a><b></a></a></a><c/>"), "el a {el b}, el c");
}

TEST(XmlParserElements, NamesRunOverEveryNameByteAtAnyLength) {
    const std::string tail = "Zz09_:-.\xc3\xa9";
    for (std::size_t length = 1; length < 24; ++length) {
        const std::string name = std::string(length, 'n') + tail.substr(0, length % tail.size());
        for (const char* end : {">", "/>", " a='1'/>", "\t>", "=x>"}) {
            XmlDocument document;
            document.ParseCopy("<" + name + end + "</" + name + ">", kXmlStandardReader);
            EXPECT_STREQ(document.Root().Child(0).Name(), name.c_str()) << name << end;
        }
    }
}

TEST(XmlParserElements, EmptyOrTaglessTextGivesAChildlessDocument) {
    for (const char* text : {"", "plain text only", "   "}) {
        XmlDocument document;
        document.ParseCopy(text, kXmlStandardReader);
        EXPECT_EQ(document.Root().Kind(), kXmlDocument);
        EXPECT_EQ(document.Root().ChildCount(), 0u);
    }
}

TEST(XmlParserElements, TopLevelTextAfterAMarkupSectionBelongsToTheDocument) {
    EXPECT_EQ(ParseAndDescribe("<!-- c --> loose <a/>"), "comment 'c', text 'loose', el a");
}

TEST(XmlParserElements, ReferencesAreNeverDecoded) {
    EXPECT_EQ(ParseAndDescribe("<a v=\"&lt;&#65;\">&amp; &#x41;</a>"),
              "el a ['v'='&lt;&#65;'] {text '&amp; &#x41;'}");
}

TEST(XmlParserAttributes, ReadsQuotedValuesValuelessNamesAndBlanksAroundEquals) {
    EXPECT_EQ(ParseAndDescribe("<a b c='1 \"q\"'/>"), "el a ['b'=~] ['c'='1 \"q\"']");
    EXPECT_EQ(ParseAndDescribe("<a x = \"1\"\ty\n=\n'2'/>"), "el a ['x'='1'] ['y'='2']");
    EXPECT_EQ(ParseAndDescribe("<a b>t</a>"), "el a ['b'=~] {text 't'}");
    EXPECT_EQ(ParseAndDescribe("<a b/><c/>"), "el a ['b'=~], el c");
}

TEST(XmlParserAttributes, UnquotedValuesBecomeAttributesOrEndTheTag) {
    EXPECT_EQ(ParseAndDescribe("<a x=b/>"), "el a ['x'=~] ['b'=~]");
    // A value starting with any other byte ends the tag: the text up to the next `<` is skipped.
    EXPECT_EQ(ParseAndDescribe("<a x=#1>lost<b/></a>"), "el a ['x'=~] {el b}");
}

TEST(XmlParserAttributes, TrimsOrNormalisesValuesByTheFlags) {
    EXPECT_EQ(ParseAndDescribe("<a v=' 1   2 '/>", kNothing), "el a ['v'=' 1   2 ']");
    EXPECT_EQ(ParseAndDescribe("<a v=' 1   2 '/>", kXmlTrimAttributes), "el a ['v'='1   2']");
    EXPECT_EQ(ParseAndDescribe("<a v=' 1 \t\n 2 '/>", kXmlTrimAttributes | kXmlNormaliseSpace),
              "el a ['v'='1 2']");
    // Normalising alone, without a trim flag, changes nothing.
    EXPECT_EQ(ParseAndDescribe("<a v=' 1  2'/>", kXmlNormaliseSpace), "el a ['v'=' 1  2']");
}

// Trimming and normalising the slow way, to check the parser's fast paths against.
std::string Normalised(const std::string& text) {
    std::string out;
    bool blank = false;
    for (char c : text) {
        if (c >= 1 && c <= 32) {
            blank = !out.empty();
        } else {
            if (blank) {
                out += ' ';
            }
            blank = false;
            out += c;
        }
    }
    return out;
}

TEST(XmlParserAttributes, NormalisesBlanksAtEveryOffsetOfLongValues) {
    const char* const runs[] = {" ", "  ", "\t", " \n ", "\r\n"};
    for (const char* run : runs) {
        for (std::size_t at = 0; at < 24; ++at) {
            std::string value = "abcdefghijklmnopqrstuvwxyz0123456789";
            value.insert(at, run);
            value.insert(std::min<std::size_t>(value.size(), at + 11), " ");
            value += std::string(at % 3, ' ');
            XmlDocument document;
            document.ParseCopy("<a v='" + value + "'>" + value + "<b/></a>", kXmlStandardReader);
            XmlBranch a = document.Root().Child(0);
            EXPECT_EQ(a.Attribute("v")->value, Normalised(value)) << at << " " << value;
            EXPECT_EQ(std::string(a.Child(0).Value()), Normalised(value)) << at;
        }
    }
}

TEST(XmlParserInstructions, ReadsInstructionsAsNamedNodesWithAttributes) {
    EXPECT_EQ(ParseAndDescribe("<?xml version=\"1.0\"?><a/>"), "pi xml ['version'='1.0'], el a");
    EXPECT_EQ(ParseAndDescribe("<?xml version=\"1.0\" enc='x' ?>\n<a/>"),
              "pi xml ['version'='1.0'] ['enc'='x'], el a");
    EXPECT_EQ(ParseAndDescribe("<?go?><a/>"), "pi go, el a");
    EXPECT_EQ(ParseAndDescribe("<?xml v=\"1\"?><a/>", kNothing), "el a");
    EXPECT_EQ(ParseAndDescribe("<? odd ?><a/>"), "el a");
}

TEST(XmlParserSections, CommentsCDataAndIncludesFollowTheirFlags) {
    EXPECT_EQ(ParseAndDescribe("<a><!--  x  y --></a>"), "el a {comment 'x y'}");
    EXPECT_EQ(ParseAndDescribe("<a><!-- x --><b/></a>", kNothing), "el a {el b}");
    EXPECT_EQ(ParseAndDescribe("<a><![CDATA[ <b> & ]]></a>"), "el a {cdata '<b> &'}");
    EXPECT_EQ(ParseAndDescribe("<a><![CDATA[ x ]]></a>", kXmlParseCData), "el a {cdata ' x '}");
    EXPECT_EQ(ParseAndDescribe("<a><![CDATA[x]]><b/></a>", kNothing), "el a {el b}");
    EXPECT_EQ(ParseAndDescribe("<a><![INCLUDE[ i ]]></a>"), "el a {include 'i'}");
    EXPECT_EQ(ParseAndDescribe("<a><![INCLUDE[i]]><b/></a>", kNothing), "el a {el b}");
    // Text right after a section is kept, as after a start tag.
    EXPECT_EQ(ParseAndDescribe("<a><!--c-->tail</a>"), "el a {comment 'c', text 'tail'}");
}

TEST(XmlParserDocType, ReadsTheRootNameWordsLiteralsAndTheParsedSubset) {
    // The value keeps pointing at the start of the subset, whose text the declarations have cut.
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r SYSTEM \"r.dtd\" [<!ENTITY % e \"x\">]><r/>"),
              "doctype r ['r'='r'] ['SYSTEM'='SYSTEM'] [~='r.dtd'] '<!ENTITY  %e' "
              "{entity %e '\"x\"'}, el r");
    EXPECT_EQ(
        ParseAndDescribe("<!DOCTYPE r [\n<!ELEMENT r (#PCDATA)>\n<!ATTLIST r a CDATA #IMPLIED>\n"
                         "<!NOTATION n SYSTEM 'x'>\n<!ENTITY e 'a>b'>\n]>"),
        "doctype r ['r'='r'] '\n<!ELEMENT r' {element r '(#PCDATA)', attlist r 'a CDATA #IMPLIED', "
        "notation n 'SYSTEM 'x'', entity e ''a>b''}");
}

TEST(XmlParserDocType, ADocTypeWithoutSubsetEndsAtItsOwnClosingBracket) {
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE skin><skin/>"), "doctype skin ['skin'='skin'], el skin");
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r PUBLIC><r/>"),
              "doctype r ['r'='r'] ['PUBLIC'='PUBLIC'], el r");
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r 'x'><r/>"), "doctype r ['r'='r'] [~='x'], el r");
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r><r/>", kNothing), "el r");
}

TEST(XmlParserDocType, KeepsTheSubsetRawWithoutParseDtdAndCountsNestedBrackets) {
    const std::uint32_t raw = kXmlParseDocType | kXmlTrimDocType;
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r [ a [b] c ]><r/>", raw),
              "doctype r ['r'='r'] 'a [b] c', el r");
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r [ a ]><r/>", kXmlParseDocType),
              "doctype r ['r'='r'] ' a ', el r");
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r [<!ENTITY e 'x'>]><r/>", kNothing), "el r");
}

TEST(XmlParserDocType, DtdOnlyStopsJustPastTheSubset) {
    XmlDocument document;
    const std::string text = "<!DOCTYPE r [<!ENTITY e 'x'>]><r/>";
    const char* stop = document.ParseCopy(text, kXmlParseDocType | kXmlParseDtd | kXmlDtdOnly);
    ASSERT_NE(stop, nullptr);
    EXPECT_EQ(std::string(stop), "><r/>");
    EXPECT_EQ(document.Root().ChildCount(), 1u);
}

TEST(XmlParserDocType, EndTagsInASubsetLeaveItsDocTypeAndWhatFollowsGoesBackBelowItsParent) {
    // Surplus end tags in the subset leave the DocType, its parent and further; the subset's
    // elements land wherever that left them, and after the DocType parsing goes on below the
    // DocType's parent, opened again with the children it already had.
    EXPECT_EQ(ParseAndDescribe("<r><a><!DOCTYPE d [</x></y><b/>]><c/></a><e/></r><f/>"),
              "el r {el a {doctype d ['d'='d'] '</x></y><b', el c}, el b, el e}, el f");
    EXPECT_EQ(ParseAndDescribe("<r><a><!DOCTYPE d [</x></y></z><n><m>]><c/></a></r><g/>"),
              "el r {el a {doctype d ['d'='d'] '</x></y></z><n', el c}}, el n {el m}, el g");
}

TEST(XmlParserDocType, DeclarationsOutsideADocTypeStillBecomeNodes) {
    EXPECT_EQ(ParseAndDescribe("<!ENTITY  %  pe  'v' ><!FOO bar><!ELEMENT>"),
              "entity %pe ''v'', entity bar, element ");
    EXPECT_EQ(ParseAndDescribe("<!Doc><a/>"), "el a");
}

TEST(XmlParserOptions, StoresTheOptionsUnlessAskedToKeepThem) {
    XmlDocument document;
    document.ParseCopy("<a/>", kXmlStandardReader);
    EXPECT_EQ(document.options, kXmlStandardReader);
    document.options = kNothing;
    document.ParseCopy("<?p?><!--c--><a/>", kXmlKeepOptions);
    EXPECT_EQ(document.options, kNothing);
    EXPECT_EQ(test::Describe(document.Root().node()), "doc {el a}");
    EXPECT_EQ(document.Parse(nullptr, kXmlStandardReader), nullptr);
}

TEST(XmlNamePatterns, MatchWildcardsSetsAndRanges) {
    struct Case {
        const char* pattern;
        const char* name;
        bool matches;
    };
    const Case cases[] = {
        {"item", "item", true},   {"Item", "item", false},
        {"item", "items", false}, {"item*", "item", true},
        {"item*", "items", true}, {"*", "", true},
        {"a**b", "ab", true},     {"*b*", "abc", true},
        {"*x", "abc", false},     {"?", "a", true},
        {"?", "", false},         {"a?c", "abc", true},
        {"[abc]x", "bx", true},   {"[!abc]x", "bx", false},
        {"[!abc]x", "dx", true},  {"[a-c]", "b", true},
        {"[a-c]", "d", false},    {"[c-a]", "b", false},
        {"[c-a]", "-", true},     {"[-a]", "-", true},
        {"[a-]", "-", true},      {"[]]", "]", true},
        {"[!]]", "a", true},      {"[abc", "a", false},
        {"*[abc", "xa", false},   {"*.xml", "skin.xml", true},
        {"*a*a*a", "aaaa", true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(XmlNameMatches(c.pattern, c.name), c.matches) << c.pattern << " ~ " << c.name;
    }
    EXPECT_FALSE(XmlNameMatches(nullptr, "a"));
}

TEST(XmlLookups, FindFirstSearchesPreOrderAndAttributesInDocumentOrder) {
    XmlDocument document;
    document.ParseCopy("<r><a><x id='1'/></a><x id='2'/><items n='1' n2='2'/></r>",
                       kXmlStandardReader);
    XmlBranch root = document.Root();
    EXPECT_STREQ(root.FindFirst("x").Attribute("id")->value, "1");
    EXPECT_STREQ(root.FindFirst("item*").Name(), "items");
    EXPECT_TRUE(root.FindFirst("missing").IsNull());
    EXPECT_TRUE(root.FindFirst(nullptr).IsNull());
    EXPECT_STREQ(root.FindFirst("items").Attribute("n*")->value, "1");
    EXPECT_EQ(root.FindFirst("items").Attribute("z"), nullptr);
    // A null handle reads as an empty node.
    XmlBranch none = root.Child(99);
    EXPECT_EQ(none.Kind(), kXmlNull);
    EXPECT_STREQ(none.Name(), "");
    EXPECT_EQ(none.ChildCount(), 0u);
    EXPECT_FALSE(none.MatchesName("*"));
}

// A document that uses every construct, for the truncation and round-trip tests.
const char* const kRichDocument =
    "<?xml version=\"1.0\" encoding='x'?>\n"
    "<!DOCTYPE skin SYSTEM \"s.dtd\" [\n  <!ENTITY % pe \"a > b\">\n  <!ELEMENT skin (x)*>\n"
    "  <!ATTLIST skin id CDATA #IMPLIED>\n  <!NOTATION n PUBLIC 'p'>\n]>\n"
    "<!-- top comment -->\n"
    "<skin id='main' flag>\n"
    "  <rebar background=\"bg.bmp\" backcolor = '#ff0000' mode=\"tile\"/>\n"
    "  <tab><active borderwidth=\"1,2\" bordercolor='#1,#2,#3,#4'/><normal/></tab>\n"
    "  <![CDATA[ raw <text> ]]>\n  <![INCLUDE[ inc ]]>\n"
    "  <label>  some   text &amp; more </label>\n"
    "  <menu><seperator color=\"#888\" style='dot' width=\"2\"/></menu>\n"
    "</skin>\n";

TEST(XmlHostileInput, EveryPrefixOfARichDocumentParsesWithinItsBuffer) {
    const std::string full = kRichDocument;
    for (std::size_t length = 0; length <= full.size(); ++length) {
        // An exact-size heap copy, so that any read past the end is caught by the sanitizer.
        XmlDocument document;
        const char* stop = document.ParseCopy(full.substr(0, length), kXmlStandardReader);
        ASSERT_NE(stop, nullptr);
        EXPECT_EQ(document.Root().Kind(), kXmlDocument);
        test::Written(document);
    }
}

TEST(XmlHostileInput, ANulEndsTheParseWhereverItStands) {
    const std::string full = kRichDocument;
    for (std::size_t at = 0; at < full.size(); at += 7) {
        std::string text = full;
        text[at] = '\0';
        XmlDocument document;
        document.ParseCopy(text, kXmlStandardReader);
        EXPECT_EQ(test::Describe(document.Root().node()),
                  [&] {
                      XmlDocument prefix;
                      prefix.ParseCopy(full.substr(0, at), kXmlStandardReader);
                      return test::Describe(prefix.Root().node());
                  }())
            << "NUL at " << at;
    }
}

TEST(XmlHostileInput, AnOwnedBufferAndACopyEndAtTheSameNul) {
    const std::string text = std::string("<a x='1'><b/>", 13) + '\0' + "<c/></a>";
    XmlDocument copied;
    const char* copyStop = copied.ParseCopy(text, kXmlStandardReader);
    char* owned = static_cast<char*>(std::malloc(text.size() + 1));
    ASSERT_NE(owned, nullptr);
    std::memcpy(owned, text.data(), text.size() + 1);
    XmlDocument taken;
    const char* takenStop = taken.Parse(owned, kXmlStandardReader);
    EXPECT_EQ(copied.length(), 13u);
    EXPECT_EQ(taken.length(), 13u);
    EXPECT_EQ(copyStop - copied.Root().Child(0).Name(), takenStop - taken.Root().Child(0).Name());
    EXPECT_EQ(test::Describe(copied.Root().node()), "doc {el a ['x'='1'] {el b}}");
    EXPECT_EQ(test::Describe(taken.Root().node()), test::Describe(copied.Root().node()));
}

TEST(XmlHostileInput, UnclosedConstructsKeepWhatWasReached) {
    EXPECT_EQ(ParseAndDescribe("<a><b x='never closed"), "el a {el b ['x'='never closed']}");
    EXPECT_EQ(ParseAndDescribe("<a><!-- open"), "el a {comment 'open'}");
    EXPECT_EQ(ParseAndDescribe("<a><![CDATA[ open ]]"), "el a {cdata 'open ]]'}");
    EXPECT_EQ(ParseAndDescribe("<!DOCTYPE r [ <!ENTITY e 'x'> [[["),
              "doctype r ['r'='r'] ' <!ENTITY e' {entity e ''x''}");
    EXPECT_EQ(ParseAndDescribe("<!ENTITY e 'unclosed >"), "entity e ''unclosed >'");
    EXPECT_EQ(ParseAndDescribe("<a>text"), "el a {text 'text'}");
    EXPECT_EQ(ParseAndDescribe("<"), "");
    EXPECT_EQ(ParseAndDescribe("<a"), "el a");
}

TEST(XmlHostileInput, NestedDocTypesAreParsedOnlySoDeep) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "<!DOCTYPE a [";
    }
    XmlDocument document;
    document.ParseCopy(text, kXmlStandardReader);
    EXPECT_EQ(document.Root().ChildCount(), 1u);
}

TEST(XmlHostileInput, AMillionLevelsOfNestingParseSearchWriteAndFree) {
    const int depth = 1000000;
    std::string text;
    text.reserve(depth * 3 + 16);
    for (int i = 0; i < depth; ++i) {
        text += "<a>";
    }
    text += "<b/>";
    XmlDocument document;
    document.ParseCopy(text, kXmlStandardReader);
    XmlBranch found = document.Root().FindFirst("b");
    EXPECT_EQ(found.Kind(), kXmlElement);
    EXPECT_TRUE(document.Root().FindFirst("c").IsNull());
    std::ostringstream out;
    document.Write(out, 0, false);
    EXPECT_EQ(out.str().size(), static_cast<std::size_t>(depth) * 7 + 4);
}

TEST(XmlHostileInput, AFlatListLargerThanAPoolBlockGetsAnArrayOfItsOwnSize) {
    std::string text = "<r>";
    for (int i = 0; i < 700000; ++i) {
        text += "<i/>";
    }
    XmlDocument document;
    document.ParseCopy(text, kXmlStandardReader);
    EXPECT_EQ(document.Root().Child(0).ChildCount(), 700000u);
}

TEST(XmlHostileInput, WideFlatListsAndManyAttributesGrowTheirArrays) {
    std::string text = "<r>";
    for (int i = 0; i < 5000; ++i) {
        text += "<i/>";
    }
    text += "<many";
    for (int i = 0; i < 3000; ++i) {
        text += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    }
    text += "/></r>";
    XmlDocument document;
    document.growStep = 1;
    document.ParseCopy(text, kXmlStandardReader);
    XmlBranch r = document.Root().Child(0);
    EXPECT_EQ(r.ChildCount(), 5001u);
    EXPECT_STREQ(r.FindFirst("many").Attribute("a2999")->value, "2999");
}

} // namespace
} // namespace corvid
