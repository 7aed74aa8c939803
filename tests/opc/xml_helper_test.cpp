// The XML layer: text and attributes XML cannot carry are refused naming the character, leaving the
// element as it was; hostile, malformed or oversized documents are refused saying why and where.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "opc/exception.h"
#include "opc/xml/xerces_helper.h"
#include "opc_test_support.h"

namespace opc::model {
namespace {

using namespace opc::test;

constexpr char16_t kNs[] = u"urn:zvaddon:test:record";

// Text and attribute values that XML cannot carry are refused naming the character, leaving the
// element as it was. (What it can carry round-trips in the records' tables: markup, "]]>", CR LF,
// tabs, astral characters, empty and white-space-only values.)
TEST(XmlHelperTest, TextXmlCannotCarryIsRefused) {
  const XercesGuard guard;
  const std::tuple<const char*, ustring, const char*> cases[] = {  // label, text, the character named
      {"NUL", ustring(u"a") + u'\0' + u"b", "U+0000"},
      {"U+FFFE", u"\uFFFE", "U+FFFE"},
      {"lone high surrogate", ustring(u"x") + char16_t(0xD83D), "U+D83D"},
      {"reversed pair", ustring{char16_t(0xDE00), char16_t(0xD83D)}, "U+DE00"},
  };
  for (const auto& [label, text, refused] : cases) {
    SCOPED_TRACE(label);
    DocumentPtr document = XercesHelper::createDocument();
    xercesc::DOMElement* field = XercesHelper::appendElementNS(XercesHelper::appendElementNS(document.get(), kNs, u"record"), kNs, u"field");
    XercesHelper::setElementText(field, u"kept");
    EXPECT_THAT(errorOf([&] { XercesHelper::setElementText(field, text); }), HasSubstr(refused));
    EXPECT_THROW(XercesHelper::setElementAttribute(field, u"a", text), opc::Exception);
    EXPECT_EQ(XercesString::toUString(field->getTextContent()), u"kept");
    EXPECT_FALSE(field->hasAttributes());
  }
}

// Each limit refuses one more than it allows. (Entity expansion behind a DOCTYPE: the package
// corpus's content-types-doctype.zip.)
TEST(XmlHelperTest, HostileMalformedOrOversizedDocumentsAreRefused) {
  const XercesGuard guard;
  std::string deep;
  for (int i = 0; i < 40; ++i) deep = "<a>" + deep + "</a>";
  std::string wide = "<r>";
  for (int i = 0; i < 200; ++i) wide += "<a/>";
  std::string attributes = "<r";
  for (int i = 0; i < 200; ++i) attributes += " a" + std::to_string(i) + "='v'";
  const std::string large = "<r>" + std::string(100000, 'x') + "</r>";
  const struct {
    const char* label;
    std::string xml;
    const char* what;   // in the message
    const char* where;  // in the message
    ParseLimits limits = {};
    std::optional<ParseLimits> accepting = {};
  } cases[] = {
      {"external entity", "<!DOCTYPE r [<!ENTITY x SYSTEM \"file:///etc/passwd\">]><r>&x;</r>", "DOCTYPE is not allowed", "line 1"},
      {"DOCTYPE after a comment", "<?xml version='1.0'?><!-- c --><!DOCTYPE r><r/>", "DOCTYPE is not allowed", "line 1"},
      {"undeclared entity", "<r>&undeclared;</r>", "malformed XML", "line 1"},
      {"empty input", "", "malformed XML", ""},
      {"not UTF-8", "<r>\xff\xfe</r>", "malformed XML", ""},
      {"second line error", "<r>\n  <a>\n</r>", "malformed XML", "line 3"},
      {"depth", deep, "nest deeper than 39", "", {.maxDepth = 39}, ParseLimits{.maxDepth = 40}},
      {"elements", wide + "</r>", "more than 150 nodes", "", {.maxNodes = 150}, ParseLimits{.maxNodes = 201}},
      {"attributes", attributes + "/>", "more than 150 nodes", "", {.maxNodes = 150}, ParseLimits{.maxNodes = 201}},
      {"bytes", large, "exceeds 50000 bytes", "", {.maxBytes = 50000}, ParseLimits{.maxBytes = large.size()}},
  };
  const auto parse = [&](const std::string& xml, const ParseLimits& limits) {
    BytesInput in(xml);
    return XercesHelper::readDocumentFromStream(in, u"", limits);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_THAT(errorOf([&] { (void)parse(c.xml, c.limits); }), AllOf(HasSubstr(c.what), HasSubstr(c.where)));
    if (c.accepting) {
      EXPECT_NO_THROW((void)parse(c.xml, *c.accepting));
    }
  }
  const DocumentPtr longText = parse("<r>" + std::string(200000, 'x') + "</r>", {});
  EXPECT_EQ(XercesString::toUString(longText->getDocumentElement()->getTextContent()).size(), 200000u);
  // A DOCTYPE leading a document far larger than one read is refused before the rest is read.
  BytesInput in("<!DOCTYPE r [<!ENTITY a \"b\">]><r>" + std::string(4 << 20, 'x') + "</r>", 4096);
  EXPECT_THROW((void)XercesHelper::readDocumentFromStream(in, u""), opc::Exception);
  EXPECT_LT(in.consumed(), 1u << 20);
}

}  // namespace
}  // namespace opc::model
