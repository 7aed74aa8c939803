#include "metadata/app_install_list.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

struct Case {
  const char* name;
  std::string input;     // host value as JSON, or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input as records return it) or outline
};

const char* kNoApps = R"({"$class":"struct","$dims":[0,1],"$fields":["name","guid","relativePath","installByDefault"]})";

std::string app(const std::string& flag) {
  return R"([{"name":"a","guid":"g","relativePath":"p","installByDefault":")" + flag + "\"}]";
}

TEST(AddonAppInstallListTest, HostValuesSurviveXmlRoundTrip) {
  const Case cases[] = {
      {"OrderAndDuplicateGuidsKept",
       R"([{"name":"Viewer","guid":"1b4e28ba","relativePath":"apps/v.app","installByDefault":"false"},)"
       R"({"name":"Editor","guid":"1b4e28ba","relativePath":"","installByDefault":"true"}])", ""},
      {"NonAsciiMultiLine", R"([{"name":"Grüße\n例","guid":"not a guid <&>\"","relativePath":"ä/𝄞 app.app","installByDefault":"true"}])", ""},
      {"OnlyExactFalseIsFalse", app("false"), ""},
      {"YesIsTrue", app("yes"), app("true")},
      {"CapitalFalseIsTrue", app("False"), app("true")},
      {"EmptyIsTrue", app(""), app("true")},
      {"EmptyDoubleGivesNoApps", "null", kNoApps},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    const Json want = asReturned(Json::parse(c.expected.empty() ? c.input : c.expected));
    EXPECT_TRUE(sameArray(Owned(AddonAppInstallList(input.get()).getStructArray()).get(), want));
    const Owned trip = viaXml<AddonAppInstallList>(input.get());
    EXPECT_TRUE(sameArray(trip.get(), want));
    EXPECT_TRUE(sameArray(viaXml<AddonAppInstallList>(trip.get()).get(), want)) << "output fed back as input";
  }
}

TEST(AddonAppInstallListTest, XmlReadingRules) {
  const auto application = [](const std::string& attributes) {
    return R"(<applications xmlns="NS"><application name="a" guid="g" )" + attributes +
           "><file>p</file></application></applications>";
  };
  const Case cases[] = {
      {"OnlyExactTrueIsTrue", application(R"(installByDefault="true")"), app("true")},
      {"CapitalTrueIsFalse", application(R"(installByDefault="TRUE")"), app("false")},
      {"OneIsFalse", application(R"(installByDefault="1")"), app("false")},
      {"MissingFlagIsFalse", application(""), app("false")},
      {"MissingFileAndAttributesReadEmpty", R"(<applications xmlns="NS"><application/><note/></applications>)",
       R"([{"name":"","guid":"","relativePath":"","installByDefault":"false"}])"},
      {"BareRootGivesNoApps", R"(<applications xmlns="NS"/>)", kNoApps},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonAppInstallList record(host(app("true")).get());
    record.populateFromXML(inRecordNamespace<AddonAppInstallList>(c.input));
    record.populateFromXML(inRecordNamespace<AddonAppInstallList>(c.input));
    EXPECT_TRUE(sameArray(Owned(record.getStructArray()).get(), asReturned(Json::parse(c.expected))));
  }
}

TEST(AddonAppInstallListTest, WrittenXmlShape) {
  const Case cases[] = {
      {"EmptyValuesStillWritten", R"([{"name":"","guid":"","relativePath":"","installByDefault":"no"}])",
       "applications\n application guid=\"\" installByDefault=\"true\" name=\"\"\n  file: \"\"\n"},
      {"EmptyInputWritesBareRoot", "null", "applications: \"\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonAppInstallList record(host(c.input).get());
    EXPECT_EQ(outline(record), c.expected);
    EXPECT_TRUE(schemaAccepts("app_install_list.xsd", record.getAsXMLString()));
  }
  for (const char* xml : {R"(<applications xmlns="NS"><application name="a" guid="g" installByDefault="yes"><file/></application></applications>)",
                          R"(<applications xmlns="NS"><application name="a" guid="g" installByDefault="true"/></applications>)"}) {
    EXPECT_FALSE(schemaAccepts("app_install_list.xsd", inRecordNamespace<AddonAppInstallList>(xml))) << xml;
  }
}

TEST(AddonAppInstallListTest, WrongHostInputRaisesHostError) {
  for (const char* input : {R"([{"name":"a","guid":"g","relativePath":"p","installByDefault":true}])",
                            R"([{"name":"a","guid":7,"relativePath":"p","installByDefault":"true"}])",
                            R"([{"name":"a","guid":"g","installByDefault":"true"}])"}) {
    const Owned value = host(input);
    EXPECT_EQ(hostErrorOf([&] { AddonAppInstallList record(value.get()); }), zvhost::reference::errors::notString)
        << input;
  }
}

}  // namespace
}  // namespace addon::packaging
