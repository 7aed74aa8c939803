#include "metadata/license.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

std::string license(const std::string& type, const std::string& text) {
  return R"({"type":)" + type + R"(,"text":)" + text + "}";
}

TEST(AddonLicenseTest, RecordRules) {
  RecordRules rules("license.xsd", license(R"("held")", R"("held")"));
  rules.roundTrips = {
      {"MultiLineAgreement",
       license(R"("BSD-3")", R"("Copyright (c) 2024\n\nRedistribution ...\r\n  indented\n")"), ""},
      {"NonAsciiAndMarkup", license(R"("Lizenz für 例")", R"("<b>&amp; \"quoted\" 'x' ☃ 𝄞\ttab")"), ""},
      {"EmptyTypeAndText", license(R"("")", R"("")"), ""},
      {"ExtraFieldsIgnored", R"({"text":"t","other":1,"type":"k"})", license(R"("k")", R"("t")")},
  };
  rules.written = {
      {"DefaultWritesEmptyTypeAndText", "", "license\n licenseText type=\"\": \"\"\n"},
      {"TypeAsAttributeTextAsContent", license(R"("MIT")", R"("x")"),
       "license\n licenseText type=\"MIT\": \"x\"\n"},
  };
  rules.reading = {
      {"MissingElementReadsEmpty", R"(<license xmlns="NS"/>)", license(R"("")", R"("")")},
      {"MissingTypeReadsEmptyTextStillRead", R"(<license xmlns="NS"><licenseText>t</licenseText></license>)",
       license(R"("")", R"("t")")},
      {"FirstElementWins",
       R"(<license xmlns="NS"><licenseText type="a">1</licenseText><licenseText type="b">2</licenseText></license>)",
       license(R"("a")", R"("1")")},
      {"NoRootReadsEmpty", "", license(R"("")", R"("")")},
      {"ForeignElementIgnored",
       R"(<license xmlns="NS"><licenseText xmlns="urn:x" type="a">1</licenseText></license>)",
       license(R"("")", R"("")")},
  };
  rules.wrongInput = {
      license(R"("MIT")", "5"),
      license(R"(["MIT"])", R"("t")"),
      R"({"type":"MIT"})",
      "null",
  };
  checkRecord<AddonLicense>(rules);
}

}  // namespace
}  // namespace addon::packaging
