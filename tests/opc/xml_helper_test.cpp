#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/i18n.h"
#include "opc/exception.h"
#include "opc/xml/xerces_helper.h"
#include "xml_test_streams.h"

namespace opc::model {
namespace {

using ::testing::HasSubstr;
using opc::testing::BytesInput;
using opc::testing::BytesOutput;

constexpr char16_t kNs[] = u"urn:zvaddon:test:record";

class XmlHelperTest : public ::testing::Test {
 protected:
  // Builds <record xmlns=kNs><field a="text">text</field></record>, serializes it, and parses it back.
  static DocumentPtr roundTrip(const ustring& text, std::string* bytes = nullptr) {
    DocumentPtr document = XercesHelper::createDocument();
    xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), kNs, u"record");
    xercesc::DOMElement* field = XercesHelper::appendElementNS(root, kNs, u"field");
    XercesHelper::setElementText(field, text);
    XercesHelper::setElementAttribute(field, u"a", text);
    BytesOutput out;
    XercesHelper::writeDocumentToStream(XercesHelper::createWriter(), document, out);
    if (bytes != nullptr) *bytes = out.bytes;
    BytesInput in(out.bytes, 7);  // small reads: the parser must not depend on read sizes
    return XercesHelper::readDocumentFromStream(XercesHelper::createParser(), in, false, u"", kNs);
  }

  // The message of the refusal of `xml`, by `parser` when given (so that one parser meets many faults).
  static std::string parseError(const std::string& xml, const ParseLimits& limits = {},
                                xercesc::DOMLSParser* parser = nullptr) {
    try {
      BytesInput in(xml);
      ParserPtr own = parser ? nullptr : XercesHelper::createParser();
      (void)XercesHelper::readDocumentFromStream(parser ? parser : own.get(), in, false, u"", u"", limits);
    } catch (const opc::Exception& e) {
      return e.what();
    }
    return "(parsed without error)";
  }

  XercesGuard guard_;
};

TEST_F(XmlHelperTest, TextAndAttributesRoundTrip) {
  const struct {
    const char* label;
    ustring text;
  } cases[] = {
      {"empty", u""},
      {"astral characters", u"emoji \U0001F600, music \U0001D11E, CJK ext-B \U00020BB7"},
      {"markup characters", u"a < b && c > d \"quoted\" 'single'"},
      {"cdata terminator", u"x ]]> y ]]>"},
      {"whitespace only", u"   \t  "},
      {"CR LF line ends", u"one\r\ntwo\r\n"},
      {"non-ASCII BMP", u"Grüße, ΚΑΛΗΜΕΡΑ, 日本語, \u200Bzero-width"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::string bytes;
    DocumentPtr document = roundTrip(c.text, &bytes);
    const xercesc::DOMElement* field = XercesHelper::getElement(document->getDocumentElement(), u"field");
    ASSERT_NE(field, nullptr) << bytes;
    ustring text;
    ustring attribute;
    XercesHelper::getElementText(field, text);
    EXPECT_TRUE(XercesHelper::getElementAttribute(field, u"a", attribute));
    EXPECT_EQ(fl::i18n::to_utf8(text), fl::i18n::to_utf8(c.text)) << bytes;
    EXPECT_EQ(fl::i18n::to_utf8(attribute), fl::i18n::to_utf8(c.text)) << bytes;
  }
}

TEST_F(XmlHelperTest, TextXmlCannotCarryIsRefusedAndElementKept) {
  const struct {
    const char* label;
    ustring text;
    const char* named;
  } cases[] = {
      {"NUL", ustring(u"a") + u'\0' + u"b", "U+0000"},
      {"U+FFFE", u"\uFFFE", "U+FFFE"},
      {"lone high surrogate", ustring(u"x") + char16_t(0xD83D), "U+D83D"},
      {"reversed pair", ustring{char16_t(0xDE00), char16_t(0xD83D)}, "U+DE00"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    DocumentPtr document = XercesHelper::createDocument();
    xercesc::DOMElement* root = XercesHelper::appendElementNS(document.get(), kNs, u"record");
    XercesHelper::setElementText(root, u"kept");
    try {
      XercesHelper::setElementText(root, c.text);
      ADD_FAILURE() << "text accepted";
    } catch (const opc::Exception& e) {
      EXPECT_THAT(e.what(), HasSubstr(c.named));
    }
    EXPECT_THROW(XercesHelper::setElementAttribute(root, u"a", c.text), opc::Exception);
    ustring text;
    XercesHelper::getElementText(root, text);
    EXPECT_EQ(text, u"kept");
    EXPECT_FALSE(root->hasAttributes());
  }
}

TEST_F(XmlHelperTest, HostileOrMalformedDocumentsAreRefused) {
  const std::string laughs =
      "<?xml version=\"1.0\"?>\n"
      "<!DOCTYPE lolz [<!ENTITY lol \"lol\">"
      "<!ENTITY lol1 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">"
      "<!ENTITY lol2 \"&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;&lol1;\">"
      "<!ENTITY lol3 \"&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;\">"
      "<!ENTITY lol9 \"&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;&lol3;\">]>\n"
      "<lolz>&lol9;</lolz>";
  const struct {
    const char* label;
    std::string xml;
    const char* what;   // in the message
    const char* where;  // in the message
  } cases[] = {
      {"billion laughs", laughs, "DOCTYPE is not allowed", "line 2"},
      {"external entity", "<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>",
       "DOCTYPE is not allowed", "line 1"},
      {"DOCTYPE after a comment", "<?xml version='1.0'?><!-- c --><!DOCTYPE r><r/>", "DOCTYPE is not allowed",
       "line 1"},
      {"undeclared entity", "<r>&undeclared;</r>", "malformed XML", "line 1"},
      {"empty input", "", "malformed XML", ""},
      {"not UTF-8", "<r>\xff\xfe</r>", "malformed XML", ""},
      {"second line error", "<r>\n  <a>\n</r>", "malformed XML", "line 3"},
  };
  ParserPtr parser = XercesHelper::createParser();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string message = parseError(c.xml, {}, parser.get());
    EXPECT_THAT(message, HasSubstr(c.what));
    EXPECT_THAT(message, HasSubstr(c.where));
  }
  // The parser is still good after every refusal, and keeps no limit of an earlier parse.
  EXPECT_THAT(parseError("<a><a><a></a></a></a>", {.maxDepth = 2}, parser.get()), HasSubstr("nest deeper"));
  BytesInput good("<r xmlns='urn:x'><v>ok</v></r>");
  DocumentPtr document = XercesHelper::readDocumentFromStream(parser, good, false, u"", u"urn:x");
  ustring text;
  XercesHelper::getElementText(document->getDocumentElement(), text);
  EXPECT_EQ(text, u"ok");
}

TEST_F(XmlHelperTest, DoctypeIsRefusedBeforeTheRestIsRead) {
  // The DOCTYPE leads a document far larger than one read: refusing it must not need the rest.
  std::string xml = "<!DOCTYPE r [<!ENTITY a \"b\">]><r>" + std::string(4 << 20, 'x') + "</r>";
  BytesInput in(xml, 4096);
  EXPECT_THROW((void)XercesHelper::readDocumentFromStream(XercesHelper::createParser(), in, false, u"", u""),
               opc::Exception);
  EXPECT_LT(in.consumed(), xml.size() / 4);
}

TEST_F(XmlHelperTest, LimitsBoundWhatAParseMayBuild) {
  std::string deep;
  for (int i = 0; i < 40; ++i) deep += "<a>";
  for (int i = 0; i < 40; ++i) deep += "</a>";
  std::string wide = "<r>";
  for (int i = 0; i < 200; ++i) wide += "<a/>";
  wide += "</r>";
  std::string attributes = "<r";
  for (int i = 0; i < 200; ++i) attributes += " a" + std::to_string(i) + "='v'";
  attributes += "/>";
  const std::string large = "<r>" + std::string(100000, 'x') + "</r>";

  const struct {
    const char* label;
    const std::string& xml;
    ParseLimits refusing;
    ParseLimits accepting;
    const char* expected;
  } cases[] = {
      {"depth", deep, {.maxDepth = 39}, {.maxDepth = 40}, "nest deeper than 39"},
      {"elements", wide, {.maxNodes = 150}, {.maxNodes = 201}, "more than 150 nodes"},
      {"attributes", attributes, {.maxNodes = 150}, {.maxNodes = 201}, "more than 150 nodes"},
      {"bytes", large, {.maxBytes = 50000}, {.maxBytes = large.size()}, "exceeds 50000 bytes"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_THAT(parseError(c.xml, c.refusing), HasSubstr(c.expected));
    EXPECT_EQ(parseError(c.xml, c.accepting), "(parsed without error)");
  }
}

}  // namespace
}  // namespace opc::model
