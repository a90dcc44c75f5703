#include "platform/data/XMLDocument.h"

#include <gtest/gtest.h>

namespace platform::data {
namespace {

XMLDocumentRef parsed(std::string_view text) {
    auto document = XMLDocument::parse(text);
    EXPECT_TRUE(document) << document.error().localizedDescription << " in " << text;
    return document ? *document : XMLDocument::withRoot(XMLNode::element("failed"));
}

/// The children of a node as they are written, with a bar between them.
std::string outline(const XMLNode& node) {
    std::string text;
    for (const XMLNodeRef& child : node.children()) {
        text += (text.empty() ? "" : "|") + child->xmlString();
    }
    return text;
}

TEST(XMLDocument, KeepsEveryNodeInOrder) {
    const auto document =
        parsed("<?xml version=\"1.0\" encoding=\"UTF-16\" standalone=\"yes\"?>\n"
               "<!--first--><!DOCTYPE data PUBLIC \"p\" \"http://example.invalid/s.dtd\">"
               "<data xmlns:k=\"urn:k\" Type=\"VELM_Job\" k:b=\"&lt;2&#10;\">"
               "one<![CDATA[<two>]]>&amp;three<!--note--><?go now?><k:sub>deep</k:sub></data><!--last-->");
    EXPECT_TRUE(document->isStandalone());
    EXPECT_EQ(document->kindNumber(), 1u);
    EXPECT_EQ(document->children().size(), 4u);
    EXPECT_EQ(document->children()[1]->kindNumber(), 8u);
    const XMLNodeRef root = document->rootElement();
    ASSERT_EQ(root->attributes().size(), 2u);
    EXPECT_EQ(root->attributes()[0]->kindNumber(), 3u);
    EXPECT_EQ(root->attributeValue("tYPE"), "VELM_Job");
    EXPECT_EQ(root->attributeValue("K:B"), "<2\n");
    EXPECT_EQ(root->attributeValue("none"), std::nullopt);
    ASSERT_EQ(root->namespaces().size(), 1u);
    EXPECT_EQ(root->namespaces()[0]->name(), "xmlns:k");
    EXPECT_EQ(outline(*root), "one|<![CDATA[<two>]]>|&amp;three|<!--note-->|<?go now?>|<k:sub>deep</k:sub>");
    EXPECT_EQ(root->stringValue(), "one<two>&threedeep");
    EXPECT_TRUE(root->children()[1]->isCDATA());
    EXPECT_EQ(root->children()[3]->kindNumber(), 6u);
    EXPECT_EQ(root->children()[4]->kindNumber(), 5u);
    EXPECT_EQ(root->childNamed("K:SUB")->stringValue(), "deep");
    EXPECT_EQ(root->childNamed("sub"), nullptr);

    EXPECT_EQ(document->level(), 0u);
    EXPECT_EQ(root->level(), 1u);
    EXPECT_EQ(root->children()[5]->level(), 2u);
    EXPECT_EQ(root->children()[5]->index(), 5u);
    EXPECT_EQ(root->attributes()[1]->index(), 1u);
    EXPECT_EQ(parsed(document->xmlData().asText())->xmlString(), document->xmlString());
}

TEST(XMLDocument, DropsWhiteSpaceThatOnlyLaysOut) {
    struct Case {
        std::string_view text, outline;
    };
    const Case cases[] = {
        {"<a>\n  <b/>\n  <c/>\n</a>", "<b/>|<c/>"},
        {"<a>\n  <!--x-->\n</a>", "<!--x-->"},
        {"<a> \n</a>", " \n"},
        {"<a> <b/> text <c/> </a>", " |<b/>| text |<c/>| "},
        {"<a> <![CDATA[ ]]> <b/></a>", " |<![CDATA[ ]]>| |<b/>"},
        {"<a>&#32;<b/></a>", "<b/>"},
        {"<a></a>", ""},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(outline(*parsed(test.text)->rootElement()), test.outline) << test.text;
    }
}

TEST(XMLDocument, LongTextsAreOneNode) {
    const std::string text = std::string(100'000, 'x') + "\u00fc" + std::string(100'000, 'y');
    const auto document = parsed("<a>" + text + "</a>");
    ASSERT_EQ(document->rootElement()->children().size(), 1u);
    EXPECT_EQ(document->stringValue(), text);
}

TEST(XMLDocument, StrictParsingNamesTheLineOfTheFaultAndTidyParsingMakesSenseOfIt) {
    struct Case {
        std::string text, words, tidied; // the plain text of the root; empty for a failure
    };
    const Case cases[] = {
        {"", "empty", ""},
        {" \n\t ", "empty", ""},
        {"no markup at all", "Line 1", ""},
        {"<a>\n<b>x\n</a>", "Line 3: Opening and ending tag mismatch", "<a><b>x\n</b></a>"},
        {"<a>\n<b>x", "Line 2", "<a><b>x</b></a>"},
        {"<a>1 & 2</a>", "Line 1", "<a>1  2</a>"},
        {"<a x='1' x='2'/>", "Attribute x redefined", "<a x=\"1\"/>"},
        {"junk <a/>", "Line 1", "<a/>"},
        {"<a/><b/>", "Extra content", "<a/>"},
        {"</b><a/>", "Line 1", ""},
        {"<a>&nothing;</a>", "nothing", "<a/>"},
        {"<a>\x01</a>", "Line 1", "<a/>"},
        {std::string("<a>\0</a>", 8), "Line 1", "<a/>"},
        {"<a>\xFF</a>", "not UTF-8", ""},
        {"<!-- only a comment -->", "Line 1", ""},
        {"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", "entity, \"e\"", "<a/>"},
        {"<!DOCTYPE a [<!ENTITY % p 'x'> %p;]><a/>", "entity, \"p\"", "<a/>"},
    };
    for (const Case& test : cases) {
        const auto document = XMLDocument::parse(test.text);
        ASSERT_FALSE(document) << test.text;
        EXPECT_EQ(document.error().domain, "NSXMLParserErrorDomain");
        EXPECT_NE(document.error().localizedDescription.find(test.words), std::string::npos)
            << test.text << ": " << document.error().localizedDescription;
        const auto tidied = XMLDocument::parseTidy(test.text);
        EXPECT_EQ(tidied ? (*tidied)->rootElement()->xmlString() : "", test.tidied) << test.text;
    }
}

TEST(XMLDocument, NodesKnowWhereTheyBegin) {
    const std::string far = std::string(70'000, '\n');
    const auto document = parsed("<?xml version='1.0'?>\n<a\n  b='1'\n  c='2'>\n<!--x\ny--><e>one\ntwo</e>" + far +
                                 "<?go now\nhere?><f/></a>");
    const XMLNodeRef root = document->rootElement();
    std::vector<unsigned> lines{root->line(), root->attributes()[1]->line()};
    for (const XMLNodeRef& child : root->children())
        lines.push_back(child->line());
    EXPECT_EQ(lines, (std::vector<unsigned>{2, 2, 5, 6, 70'007, 70'008}));
    EXPECT_EQ(root->childNamed("e")->children()[0]->line(), 6u);
    EXPECT_EQ(XMLNode::element("made")->line(), 0u);

    // The recovering parse counts what it skips, and tells what it met first.
    const auto tidied = XMLDocument::parseTidy("junk\n\n<a>\n<b>&nothing;</a>");
    ASSERT_TRUE(tidied);
    EXPECT_EQ((*tidied)->rootElement()->childNamed("b")->line(), 4u);
    ASSERT_TRUE((*tidied)->recoveredFrom());
    EXPECT_EQ((*tidied)->recoveredFrom()->localizedDescription, "Line 4: Entity 'nothing' not defined");
    EXPECT_FALSE(document->recoveredFrom());
}

TEST(XMLDocument, NeitherExpandsNorFetchesEntities) {
    std::string bomb = "<!DOCTYPE a [<!ENTITY e0 'ha'>";
    for (int level = 1; level < 30; ++level) {
        const std::string inner = "&e" + std::to_string(level - 1) + ";";
        bomb += "<!ENTITY e" + std::to_string(level) + " '" + inner + inner + "'>";
    }
    bomb += "]><a b='&e29;'>&e29;</a>";
    EXPECT_FALSE(XMLDocument::parse(bomb));
    const auto tidied = XMLDocument::parseTidy(bomb);
    EXPECT_TRUE(!tidied || (*tidied)->stringValue().size() < 100);

    const std::string external = "<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a>&company;!</a>";
    EXPECT_EQ(parsed(external)->stringValue(), "&company;!") << "kept as it was written";
    EXPECT_FALSE(XMLDocument::parse("<!DOCTYPE a [<!ENTITY e SYSTEM \"/etc/passwd\">]><a>&e;</a>"));

    // Defaults of the document type are not multiplied into the elements.
    EXPECT_EQ(parsed("<!DOCTYPE a [<!ATTLIST b c CDATA 'd'>]><a><b e='f'/></a>")->rootElement()->xmlString(),
              "<a><b e=\"f\"/></a>");
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    for (std::size_t index = 0; index < count; ++index) {
        result += text;
    }
    return result;
}

TEST(XMLDocument, HasLimitsThatItNames) {
    struct Case {
        std::string text, words;
    };
    const Case cases[] = {
        {repeated("<a>", maximumXMLDepth + 1) + repeated("</a>", maximumXMLDepth + 1), "nested deeper"},
        {repeated("<a>", 500'000), "nested deeper"},
        {"<a>" + repeated("<b/>", maximumXMLNodes) + "</a>", "nodes"},
        {"<a>" + std::string(maximumXMLSize, ' ') + "</a>", "larger than"},
        {"<!-- \" > -->\n<a " + repeated("b='>' ", maximumXMLAttributes + 1) + "/>",
         "Line 2: an element has more than"},
        {"<a>" + repeated("<!--", 1'000'000), "that don't end"},
        {"<a><!--" + std::string(100'000, '-') + "</a>", "too many \"--\""},
        {"<!DOCTYPE a [" + repeated("<!ATTLIST a b CDATA ''>", 21) + "]><a/>", "more than 20 attributes"},
    };
    for (const Case& test : cases) {
        for (const auto& document : {XMLDocument::parse(test.text), XMLDocument::parseTidy(test.text)}) {
            ASSERT_FALSE(document) << test.words;
            EXPECT_NE(document.error().localizedDescription.find(test.words), std::string::npos)
                << document.error().localizedDescription;
        }
    }
    EXPECT_TRUE(XMLDocument::parse(repeated("<a>", maximumXMLDepth) + repeated("</a>", maximumXMLDepth)));
}

TEST(XMLDocument, SurvivesEveryCutAndManyMutations) {
    const std::string whole = "<?xml version=\"1.0\"?><!DOCTYPE d [<!ELEMENT d ANY>]><d a=\"1\" b='&lt;'>text<!--c-->"
                              "<![CDATA[x]]><?p q?>\u00fc&#x20AC;<e><f g=\"h\"/></e></d>";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(XMLDocument::parse(whole.substr(0, length))) << length;
        static_cast<void>(XMLDocument::parseTidy(whole.substr(0, length)));
        static_cast<void>(XMLDocument::parseRootStartTag(whole.substr(0, length)));
    }
    std::uint32_t random = 12345;
    for (int round = 0; round < 3000; ++round) {
        std::string mutated = whole;
        for (int change = 0; change < 3; ++change) {
            random = random * 1664525 + 1013904223;
            mutated[(random >> 8) % mutated.size()] = "<>&;\"'!-[]?/ax\0\xC3"[random >> 28];
        }
        for (const auto& document : {XMLDocument::parse(mutated), XMLDocument::parseTidy(mutated)}) {
            if (!document) continue;
            ASSERT_TRUE(XMLDocument::parse((*document)->xmlString())) << mutated << "\n" << (*document)->xmlString();
        }
        static_cast<void>(XMLDocument::parseRootStartTag(mutated));
    }
}

TEST(XMLDocument, TheCheapLookReadsNoFurtherThanTheRootsTag) {
    const auto root = XMLDocument::parseRootStartTag("<?xml version=\"1.0\"?><!--c--><data type=\"VELM_Package\" "
                                                     "name='A &amp; B'><broken></data>");
    ASSERT_TRUE(root) << root.error().localizedDescription;
    EXPECT_EQ((*root)->name(), "data");
    EXPECT_EQ((*root)->attributeValue("name"), "A & B");
    EXPECT_TRUE((*root)->children().empty());
    EXPECT_FALSE(XMLDocument::parseRootStartTag("<data type=\"VELM_Pack"));
    EXPECT_FALSE(XMLDocument::parseRootStartTag("<data a='1' a='2'>"));
    EXPECT_FALSE(XMLDocument::parseRootStartTag(""));
    EXPECT_FALSE(XMLDocument::parseRootStartTag("binary \x01\x02"));
}

TEST(XMLDocument, WritesPrettyAndReadsBackTheSame) {
    const XMLNodeRef root = XMLNode::element("data");
    root->setAttribute("type", "velm_job");
    root->setAttribute("note", "a\"<&>\n\t'");
    root->addChild(XMLNode::element("image1", "pic & <1>.jpg"));
    const XMLNodeRef package = XMLNode::element("package");
    package->addChildren({XMLNode::comment("two -- dashes"), XMLNode::element("empty", ""),
                          XMLNode::element("blank", "  "), XMLNode::element("string", "line\r\nline")});
    root->addChild(package);
    const XMLNodeRef mixed = XMLNode::element("mixed", "text ");
    mixed->addChildren({XMLNode::element("b", "bold"), XMLNode::cdata("a]]>b")});
    root->addChild(mixed);
    const auto document = XMLDocument::withRoot(root);
    const std::string expected = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
                                 "<data type=\"velm_job\" note=\"a&quot;&lt;&amp;&gt;&#10;&#9;'\">\n"
                                 "    <image1>pic &amp; &lt;1&gt;.jpg</image1>\n"
                                 "    <package>\n"
                                 "        <!--two - - dashes-->\n"
                                 "        <empty/>\n"
                                 "        <blank>  </blank>\n"
                                 "        <string>line&#13;\nline</string>\n"
                                 "    </package>\n"
                                 "    <mixed>text <b>bold</b><![CDATA[a]]]]><![CDATA[>b]]></mixed>\n"
                                 "</data>\n";
    EXPECT_EQ(document->xmlData(XMLFormat::prettyPrinted).asText(), expected);
    EXPECT_EQ(parsed(expected)->xmlData(XMLFormat::prettyPrinted).asText(), expected);
}

TEST(XMLDocument, WritesNothingThatCanNotBeReadBack) {
    for (const std::string& text : {std::string("a\x01z"), std::string("a\0z", 3), std::string("a\xFFz"),
                                    std::string("a\xEF\xBF\xBFz"), std::string("a\xED\xA0\x80z")}) {
        const XMLNodeRef node = XMLNode::element("a", text);
        node->setAttribute("b", text);
        const std::string value = parsed(node->xmlString())->rootElement()->attributeValue("b").value_or("");
        EXPECT_TRUE(value.starts_with("a\uFFFD") && value.ends_with("z")) << value;
    }
}

TEST(XMLDocument, EditsKeepParentsRight) {
    const XMLNodeRef first = XMLNode::element("first");
    const XMLNodeRef second = XMLNode::element("second");
    const XMLNodeRef child = XMLNode::element("child", "old");
    first->addChild(child);
    second->addChild(child);
    EXPECT_TRUE(first->children().empty());
    EXPECT_EQ(child->parent(), second);
    child->setStringValue("new");
    EXPECT_EQ(second->xmlString(), "<second><child>new</child></second>");
    child->setStringValue("");
    EXPECT_TRUE(child->children().empty());

    second->setAttribute("Size", "1");
    second->setAttribute("size", "2");
    second->addAttribute(XMLNode::attribute("SIZE", "3"));
    second->setAttribute("other", "4");
    EXPECT_EQ(second->xmlString(), "<second SIZE=\"3\" other=\"4\"><child/></second>");
    second->removeAttribute("size");
    child->detach();
    child->detach();
    EXPECT_EQ(second->xmlString(), "<second other=\"4\"/>");
    EXPECT_EQ(child->level(), 0u);
    second->setName("renamed");
    EXPECT_TRUE(second->nameIs("RENAMED"));

    const XMLNodeRef orphan = parsed("<a><b/></a>")->rootElement()->children()[0];
    EXPECT_EQ(orphan->parent(), nullptr) << "the document has gone";
}

} // namespace
} // namespace platform::data
