#include "metadata/system_requirements.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

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

TEST(AddonSystemRequirementsTest, RecordRules) {
  const std::string three =
      "[" + product("P", "1", "id") + "," + product("Ä", "", "id") + "," + product("P", "1", "id") + "]";
  const std::string platforms =
      R"( platformCompatibility ZORVANOnline="true" linux="true" mac="true" win="true": "")";
  const std::string held =
      requirements("[" + product("old", "", "") + "]", "null",
                   R"({"win":"false","linux":"false","mac":"false","ZORVANOnline":"false"})",
                   R"({"start":"R1","end":"R2"})", "[" + addon("old", "") + "]");
  const std::string flags = R"(<platformCompatibility win="t" linux="t" mac="t" ZORVANOnline="t"/>)";
  const std::string documents[] = {
      "",
      flags + R"(<releaseCompatibility start="a" end=""/>)",
      R"(<requiredAddons><addon name="A"/></requiredAddons>)" + flags,
      flags + R"(<requiredProducts><product name="" version="" identifier=""/></requiredProducts>)",
  };
  RecordRules rules("system_requirements.xsd", held);
  rules.roundTrips = {
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
      {"MissingGroupsGiveDefaults", R"({"productDependency":[]})", kDefaults},
      {"EmptyGroupsGiveDefaults",
       requirements("[]", R"({"$class":"struct","$dims":[0,0],"$fields":["name"]})",
                    R"({"$class":"struct","$dims":[1,0],"$fields":["win"]})", "[]", "[]"),
       kDefaults},
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
  rules.written = {
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
  rules.reading = {
      {"EmptyListElementsGiveNoEntries",
       R"(<systemRequirements xmlns="NS"><requiredProducts/><requiredAddons/>)"
       R"(<platformCompatibility win="a" linux="b" mac="c" ZORVANOnline="d"/></systemRequirements>)",
       requirements("null", "null", R"({"win":"a","linux":"b","mac":"c","ZORVANOnline":"d"})", "null",
                    "null")},
      {"AbsentGroupsResetToDefaults", R"(<systemRequirements xmlns="NS"/>)", kDefaults},
      {"NoRootEmptiesListsOnly", "",
       requirements("null", "null", R"({"win":"false","linux":"false","mac":"false","ZORVANOnline":"false"})",
                    R"({"start":"R1","end":"R2"})", "null")},
      {"ForeignElementsIgnored",
       R"(<systemRequirements xmlns="NS" xmlns:x="urn:x"><x:requiredProducts><product name="P"/></x:requiredProducts>)"
       R"(<requiredSupportPackages><x:supportPackage name="S"/><product name="wrong"/></requiredSupportPackages>)"
       R"(</systemRequirements>)",
       kDefaults},
  };
  rules.wrongInput = {
      requirements(R"([{"name":5,"version":"","identifier":""}])", "null", "null", "null", "null"),
      R"({"supportPackageDependency":{"$class":"cell","$data":[1,2]}})",
      R"({"addonDependency":[{"name":"A","identifier":"a"}]})",
      R"({"platformCompatibility":{"win":true,"linux":"true","mac":"true","ZORVANOnline":"true"}})",
      R"({"releaseCompatibility":{"start":"R1","end":2024}})",
  };
  for (const std::string& content : documents) {
    rules.schemaRejects.push_back(R"(<systemRequirements xmlns="NS">)" + content + "</systemRequirements>");
  }
  checkRecord<AddonSystemRequirements>(rules);
}

}  // namespace
}  // namespace addon::packaging
