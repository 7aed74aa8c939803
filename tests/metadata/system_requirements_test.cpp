#include "metadata/system_requirements.h"

#include <regex>

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

// The outline without namespace declarations, which the outline shows or not as the parser keeps them.
std::string shape(AddonSystemRequirements& record) {
  static const std::regex declaration(R"( xmlns(:\w+)?="[^"]*")");
  return std::regex_replace(outline(record), declaration, "");
}

// Reads `xml` ("NS" for the namespace; "" for a document without root) into `record` twice: the
// second reading must give the same record, adding nothing to it.
void readTwice(AddonSystemRequirements& record, const std::string& xml) {
  for (int pass = 0; pass < 2; ++pass) {
    if (xml.empty()) {
      record.populateFromDOM(createRecordDocument().get());
    } else {
      record.populateFromXML(inRecordNamespace<AddonSystemRequirements>(xml));
    }
  }
}

struct Case {
  const char* name;
  std::string input;     // host value as JSON, or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input as records return it), or outline
};

const std::string kAllTrue = R"({"win":"true","linux":"true","mac":"true","ZORVANOnline":"true"})";

std::string product(const std::string& name, const std::string& version, const std::string& id) {
  return R"({"name":")" + name + R"(","version":")" + version + R"(","identifier":")" + id + R"("})";
}
std::string addon(const std::string& name, const std::string& id, const std::string& rest = "") {
  return R"({"name":")" + name + R"(","identifier":")" + id + R"(","earliestVersion":")" + rest +
         R"(","latestVersion":"","downloadURL":")" + rest + R"(","checksum":"","checksumVersion":")" + rest +
         R"("})";
}
// The five fields in the order records return them; "null" leaves a field unset.
std::string requirements(const std::string& products, const std::string& supportPackages,
                         const std::string& platform, const std::string& release, const std::string& addons) {
  return R"({"productDependency":)" + products + R"(,"supportPackageDependency":)" + supportPackages +
         R"(,"platformCompatibility":)" + platform + R"(,"releaseCompatibility":)" + release +
         R"(,"addonDependency":)" + addons + "}";
}
const std::string kDefaults = requirements("null", "null", kAllTrue, "null", "null");

TEST(AddonSystemRequirementsTest, HostValuesSurviveXmlRoundTrip) {
  const std::string three =
      "[" + product("P", "1", "id") + "," + product("Ä", "", "id") + "," + product("P", "1", "id") + "]";
  const Case cases[] = {
      {"OrderAndDuplicatesKept",
       requirements(three, "[" + product("S2", "", "") + "," + product("S1", "x", "y") + "]",
                    R"({"win":"true","linux":"false","mac":"false","ZORVANOnline":"true"})",
                    R"({"start":"R2019b","end":"R2024a"})",
                    "[" + addon("B", "b", "r") + "," + addon("A", "a") + "]"),
       ""},
      {"NonAsciiMultiLineAndMarkup",
       requirements("[" + product("Grüße 例\\nzwei", "<&>\\\"'", "𝄞\\ttab") + "]", "null",
                    R"({"win":"ja","linux":"","mac":"NO","ZORVANOnline":"Ünï"})",
                    R"({"start":"α","end":"ω"})",
                    "[" + addon("x\\r\\ny", "☃", "https://e.org/?a=1&b=2") + "]"),
       ""},
      {"OneEndedRangeIsNoRange",
       requirements("null", "null", kAllTrue, R"({"start":"R2020a","end":""})", "null"), kDefaults},
      {"OtherEndAloneIsNoRange",
       requirements("null", "null", kAllTrue, R"({"start":"","end":"R2020a"})", "null"), kDefaults},
      {"MissingGroupsGiveDefaults", R"({"productDependency":[]})", kDefaults},
      {"EmptyGroupsGiveDefaults",
       requirements("[]", R"({"$class":"struct","$dims":[0,0],"$fields":["name"]})",
                    R"({"$class":"struct","$dims":[1,0],"$fields":["win"]})", "[]", "[]"),
       kDefaults},
      {"EmptyDoubleGivesDefaults", "null", kDefaults},
      {"DependencyColumnReadInOrder",
       requirements(
           R"({"$class":"struct","$dims":[2,1],"$fields":["name","version","identifier"],"$data":[)" +
               product("1", "", "") + "," + product("2", "", "") + "]}",
           "null", kAllTrue, "null", "null"),
       requirements("[" + product("1", "", "") + "," + product("2", "", "") + "]", "null", kAllTrue, "null",
                    "null")},
      {"ExtraFieldsIgnored",
       R"({"platformCompatibility":{"win":"false","linux":"true","mac":"true","ZORVANOnline":"true","bsd":"x"},"other":1})",
       requirements("null", "null", R"({"win":"false","linux":"true","mac":"true","ZORVANOnline":"true"})",
                    "null", "null")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    const Json want = asReturned(Json::parse(c.expected.empty() ? c.input : c.expected));
    const Owned direct(AddonSystemRequirements(input.get()).getStructArray());
    EXPECT_TRUE(sameArray(direct.get(), want));
    const Owned trip = viaXml<AddonSystemRequirements>(input.get());
    EXPECT_TRUE(sameArray(trip.get(), want));
    EXPECT_TRUE(sameArray(viaXml<AddonSystemRequirements>(trip.get()).get(), want))
        << "output fed back as input";
    EXPECT_TRUE(
        schemaAccepts("system_requirements.xsd", AddonSystemRequirements(input.get()).getAsXMLString()));
  }
}

TEST(AddonSystemRequirementsTest, WrittenXmlShape) {
  const std::string platforms =
      R"( platformCompatibility ZORVANOnline="true" linux="true" mac="true" win="true": "")";
  const Case cases[] = {
      {"DefaultsWritePlatformsOnly", "null", "systemRequirements\n" + platforms + "\n"},
      {"ChildrenInFixedOrder",
       requirements("[" + product("A", "", "a") + "]", "[" + product("S", "2", "s") + "]",
                    R"({"win":"false","linux":"true","mac":"true","ZORVANOnline":"true"})",
                    R"({"start":"R1","end":"R2"})", "[" + addon("A", "a", "r") + "]"),
       "systemRequirements\n"
       " requiredProducts\n  product identifier=\"a\" name=\"A\" version=\"\": \"\"\n"
       " requiredSupportPackages\n  supportPackage identifier=\"s\" name=\"S\" version=\"2\": \"\"\n"
       " platformCompatibility ZORVANOnline=\"true\" linux=\"true\" mac=\"true\" win=\"false\": \"\"\n"
       " releaseCompatibility end=\"R2\" start=\"R1\": \"\"\n"
       " requiredAddons\n  addon checksum=\"\" checksumVersion=\"r\" downloadURL=\"r\" earliestVersion=\"r\""
       " identifier=\"a\" latestVersion=\"\" name=\"A\": \"\"\n"},
      {"OneEndedRangeNotWritten",
       requirements("null", "null", kAllTrue, R"({"start":"R1","end":""})", "null"),
       "systemRequirements\n" + platforms + "\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonSystemRequirements record(host(c.input).get());
    EXPECT_EQ(shape(record), c.expected);
    EXPECT_TRUE(schemaAccepts("system_requirements.xsd", record.getAsXMLString()));
  }
}

TEST(AddonSystemRequirementsTest, XmlReadingRules) {
  const std::string held =
      requirements("[" + product("old", "", "") + "]", "null",
                   R"({"win":"false","linux":"false","mac":"false","ZORVANOnline":"false"})",
                   R"({"start":"R1","end":"R2"})", "[" + addon("old", "") + "]");
  const Case cases[] = {
      {"EmptyListElementsGiveNoEntries",
       R"(<systemRequirements xmlns="NS"><requiredProducts/><requiredAddons/>)"
       R"(<platformCompatibility win="a" linux="b" mac="c" ZORVANOnline="d"/></systemRequirements>)",
       requirements("null", "null", R"({"win":"a","linux":"b","mac":"c","ZORVANOnline":"d"})", "null",
                    "null")},
      {"AbsentGroupsResetToDefaults", R"(<systemRequirements xmlns="NS"/>)", kDefaults},
      {"ReadOrderIndependentOfWriteOrder",
       R"(<systemRequirements xmlns="NS"><releaseCompatibility start="s" end="e"/><requiredAddons>)"
       R"(<addon name="A" identifier="a"/></requiredAddons><requiredProducts><product name="P"/></requiredProducts>)"
       R"(</systemRequirements>)",
       requirements(R"([{"name":"P","version":"","identifier":""}])", "null", kAllTrue,
                    R"({"start":"s","end":"e"})", "[" + addon("A", "a") + "]")},
      {"MissingAttributesReadEmpty",
       R"(<systemRequirements xmlns="NS"><platformCompatibility mac="false"/></systemRequirements>)",
       requirements("null", "null", R"({"win":"","linux":"","mac":"false","ZORVANOnline":""})", "null",
                    "null")},
      {"NoRootEmptiesListsOnly", "",
       requirements("null", "null", R"({"win":"false","linux":"false","mac":"false","ZORVANOnline":"false"})",
                    R"({"start":"R1","end":"R2"})", "null")},
      {"ForeignElementsIgnored",
       R"(<systemRequirements xmlns="NS" xmlns:x="urn:x"><x:requiredProducts><product name="P"/></x:requiredProducts>)"
       R"(<requiredSupportPackages><x:supportPackage name="S"/><product name="wrong"/></requiredSupportPackages>)"
       R"(</systemRequirements>)",
       kDefaults},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonSystemRequirements record(host(held).get());
    readTwice(record, c.input);
    EXPECT_TRUE(sameArray(Owned(record.getStructArray()).get(), asReturned(Json::parse(c.expected))));
  }
}

TEST(AddonSystemRequirementsTest, WrongHostInputRaisesHostError) {
  const Case cases[] = {
      {"ProductNameNotText",
       requirements(R"([{"name":5,"version":"","identifier":""}])", "null", "null", "null", "null"), ""},
      {"ProductFieldMissing", requirements(R"([{"name":"P","version":""}])", "null", "null", "null", "null"),
       ""},
      {"SupportPackagesCellOfNumbers", R"({"supportPackageDependency":{"$class":"cell","$data":[1,2]}})", ""},
      {"AddonsAsText", R"({"addonDependency":"abc"})", ""},
      {"AddonFieldMissing", R"({"addonDependency":[{"name":"A","identifier":"a"}]})", ""},
      {"PlatformFlagMissing",
       R"({"platformCompatibility":{"win":"true","linux":"true","ZORVANOnline":"true"}})", ""},
      {"PlatformFlagLogical",
       R"({"platformCompatibility":{"win":true,"linux":"true","mac":"true","ZORVANOnline":"true"}})", ""},
      {"PlatformAsText", R"({"platformCompatibility":"true"})", ""},
      {"ReleaseEndNumber", R"({"releaseCompatibility":{"start":"R1","end":2024}})", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    EXPECT_EQ(hostErrorOf([&] { AddonSystemRequirements record(input.get()); }),
              zvhost::reference::errors::notString);
  }
}

TEST(AddonSystemRequirementsTest, SchemaRejectsWhatRecordsNeverWrite) {
  const std::string platforms = R"(<platformCompatibility win="t" linux="t" mac="t" ZORVANOnline="t"/>)";
  const std::string documents[] = {
      "",
      R"(<platformCompatibility win="t" linux="t" mac="t"/>)",
      "<requiredProducts/>" + platforms,
      platforms + R"(<releaseCompatibility start="a" end=""/>)",
      R"(<requiredAddons><addon name="A"/></requiredAddons>)" + platforms,
      platforms + R"(<requiredProducts><product name="" version="" identifier=""/></requiredProducts>)",
  };
  for (const std::string& content : documents) {
    const std::string xml = R"(<systemRequirements xmlns="NS">)" + content + "</systemRequirements>";
    EXPECT_FALSE(schemaAccepts("system_requirements.xsd", inRecordNamespace<AddonSystemRequirements>(xml)))
        << xml;
  }
}

}  // namespace
}  // namespace addon::packaging
