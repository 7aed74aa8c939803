#include "metadata/license.h"

#include <regex>

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

// The outline without namespace declarations, which the outline shows or not as the parser keeps them.
std::string shape(AddonLicense& record) {
  static const std::regex declaration(R"( xmlns(:\w+)?="[^"]*")");
  return std::regex_replace(outline(record), declaration, "");
}

// Reads `xml` ("NS" for the namespace; "" for a document without root) into `record` twice: the
// second reading must give the same record, adding nothing to it.
void readTwice(AddonLicense& record, const std::string& xml) {
  for (int pass = 0; pass < 2; ++pass) {
    if (xml.empty()) {
      record.populateFromDOM(createRecordDocument().get());
    } else {
      record.populateFromXML(inRecordNamespace<AddonLicense>(xml));
    }
  }
}

struct Case {
  const char* name;
  std::string input;     // host value as JSON, or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input), or outline
};

std::string license(const std::string& type, const std::string& text) {
  return R"({"type":)" + type + R"(,"text":)" + text + "}";
}

TEST(AddonLicenseTest, HostValuesSurviveXmlRoundTrip) {
  const Case cases[] = {
      {"MultiLineAgreement",
       license(R"("BSD-3")", R"("Copyright (c) 2024\n\nRedistribution ...\r\n  indented\n")"), ""},
      {"NonAsciiAndMarkup", license(R"("Lizenz für 例")", R"("<b>&amp; \"quoted\" 'x' ☃ 𝄞\ttab")"), ""},
      {"EmptyTypeAndText", license(R"("")", R"("")"), ""},
      {"OnlyWhitespace", license(R"(" ")", R"("\n  \n")"), ""},
      {"ExtraFieldsIgnored", R"({"text":"t","other":1,"type":"k"})", license(R"("k")", R"("t")")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    const Json want = Json::parse(c.expected.empty() ? c.input : c.expected);
    EXPECT_TRUE(sameArray(Owned(AddonLicense(input.get()).getStructArray()).get(), want));
    EXPECT_TRUE(sameArray(viaXml<AddonLicense>(input.get()).get(), want));
    EXPECT_TRUE(schemaAccepts("license.xsd", AddonLicense(input.get()).getAsXMLString()));
  }
}

TEST(AddonLicenseTest, WrittenXmlShape) {
  const Case cases[] = {
      {"DefaultWritesEmptyTypeAndText", "", "license\n licenseText type=\"\": \"\"\n"},
      {"EmptyTypeStillWritten", license(R"("")", R"("t")"), "license\n licenseText type=\"\": \"t\"\n"},
      {"TypeAsAttributeTextAsContent", license(R"("MIT")", R"("x")"),
       "license\n licenseText type=\"MIT\": \"x\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonLicense record = c.input.empty() ? AddonLicense() : AddonLicense(host(c.input).get());
    EXPECT_EQ(shape(record), c.expected);
    EXPECT_TRUE(schemaAccepts("license.xsd", record.getAsXMLString()));
  }
}

TEST(AddonLicenseTest, XmlReadingRules) {
  const Case cases[] = {
      {"MissingElementReadsEmpty", R"(<license xmlns="NS"/>)", license(R"("")", R"("")")},
      {"MissingTypeReadsEmpty", R"(<license xmlns="NS"><licenseText>t</licenseText></license>)",
       license(R"("")", R"("t")")},
      {"FirstElementWins",
       R"(<license xmlns="NS"><licenseText type="a">1</licenseText><licenseText type="b">2</licenseText></license>)",
       license(R"("a")", R"("1")")},
      {"NoRootReadsEmpty", "", license(R"("")", R"("")")},
      {"ForeignElementIgnored",
       R"(<license xmlns="NS"><licenseText xmlns="urn:x" type="a">1</licenseText></license>)",
       license(R"("")", R"("")")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonLicense record(host(license(R"("held")", R"("held")")).get());
    readTwice(record, c.input);
    EXPECT_TRUE(sameArray(Owned(record.getStructArray()).get(), Json::parse(c.expected)));
  }
}

TEST(AddonLicenseTest, WrongHostInputRaisesHostError) {
  const Case cases[] = {
      {"TextNotText", license(R"("MIT")", "5"), ""},
      {"TypeCellOfText", license(R"(["MIT"])", R"("t")"), ""},
      {"TextMissing", R"({"type":"MIT"})", ""},
      {"EmptyInputLacksFields", "null", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    EXPECT_EQ(hostErrorOf([&] { AddonLicense record(input.get()); }), zvhost::reference::errors::notString);
  }
}

}  // namespace
}  // namespace addon::packaging
