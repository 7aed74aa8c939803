#include "metadata/app_install_list.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

const char* kNoApps = R"({"$class":"struct","$dims":[0,1],"$fields":["name","guid","relativePath","installByDefault"]})";

std::string app(const std::string& flag) {
  return R"([{"name":"a","guid":"g","relativePath":"p","installByDefault":")" + flag + "\"}]";
}

TEST(AddonAppInstallListTest, RecordRules) {
  const auto application = [](const std::string& attributes) {
    return R"(<applications xmlns="NS"><application name="a" guid="g" )" + attributes +
           "><file>p</file></application></applications>";
  };
  RecordRules rules("app_install_list.xsd", app("true"));
  rules.roundTrips = {
      {"OrderAndDuplicateGuidsKept",
       R"([{"name":"Viewer","guid":"1b4e28ba","relativePath":"apps/v.app","installByDefault":"false"},)"
       R"({"name":"Editor","guid":"1b4e28ba","relativePath":"","installByDefault":"true"}])", ""},
      {"NonAsciiMultiLine", R"([{"name":"Grüße\n例","guid":"not a guid <&>\"","relativePath":"ä/𝄞 app.app","installByDefault":"true"}])", ""},
      {"OnlyExactFalseIsFalse", app("false"), ""},
      {"YesIsTrue", app("yes"), app("true")},
      {"EmptyIsTrue", app(""), app("true")},
      {"EmptyDoubleGivesNoApps", "null", kNoApps},
  };
  rules.written = {
      {"EmptyValuesStillWritten", R"([{"name":"","guid":"","relativePath":"","installByDefault":"no"}])",
       "applications\n application guid=\"\" installByDefault=\"true\" name=\"\"\n  file: \"\"\n"},
      {"EmptyInputWritesBareRoot", "null", "applications: \"\"\n"},
  };
  rules.reading = {
      {"OnlyExactTrueIsTrue", application(R"(installByDefault="true")"), app("true")},
      {"CapitalTrueIsFalse", application(R"(installByDefault="TRUE")"), app("false")},
      {"MissingFlagIsFalse", application(""), app("false")},
      {"MissingFileAndAttributesReadEmpty", R"(<applications xmlns="NS"><application/><note/></applications>)",
       R"([{"name":"","guid":"","relativePath":"","installByDefault":"false"}])"},
      {"BareRootGivesNoApps", R"(<applications xmlns="NS"/>)", kNoApps},
  };
  rules.wrongInput = {
      R"([{"name":"a","guid":"g","relativePath":"p","installByDefault":true}])",
      R"([{"name":"a","guid":7,"relativePath":"p","installByDefault":"true"}])",
      R"([{"name":"a","guid":"g","installByDefault":"true"}])",
  };
  rules.schemaRejects = {
      R"(<applications xmlns="NS"><application name="a" guid="g" installByDefault="yes"><file/></application></applications>)",
      R"(<applications xmlns="NS"><application name="a" guid="g" installByDefault="true"/></applications>)",
  };
  checkRecord<AddonAppInstallList>(rules);
}

}  // namespace
}  // namespace addon::packaging
