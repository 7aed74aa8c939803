#include "metadata/configuration.h"

#include <regex>

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

// The outline without namespace declarations, which the outline shows or not as the parser keeps them.
std::string shape(AddonConfiguration& record) {
  static const std::regex declaration(R"( xmlns(:\w+)?="[^"]*")");
  return std::regex_replace(outline(record), declaration, "");
}

// Reads `xml` ("NS" for the namespace; "" for a document without root) into `record` twice: the
// second reading must give the same record, adding nothing to it.
void readTwice(AddonConfiguration& record, const std::string& xml) {
  for (int pass = 0; pass < 2; ++pass) {
    if (xml.empty()) {
      record.populateFromDOM(createRecordDocument().get());
    } else {
      record.populateFromXML(inRecordNamespace<AddonConfiguration>(xml));
    }
  }
}

struct Case {
  const char* name;
  std::string input;     // host value as JSON, or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input), outline, or host error
  std::string viaXml;    // host value after the XML trip, when it differs from `expected`
};

// The five fields in the order records return them; "null" leaves a field unset.
std::string configuration(const std::string& zorvanPaths, const std::string& javaClassPaths,
                          const std::string& info, const std::string& gettingStarted,
                          const std::string& installMap) {
  return R"({"zorvanPaths":)" + zorvanPaths + R"(,"javaClassPaths":)" + javaClassPaths +
         R"(,"infoXMLPath":)" + info + R"(,"gettingStartedDocPath":)" + gettingStarted +
         R"(,"installMapPath":)" + installMap + "}";
}
const std::string kNoList = R"({"$class":"cell","$dims":[1,0]})";
const std::string kEmpty = configuration(kNoList, kNoList, "null", "null", "null");

TEST(AddonConfigurationTest, HostValuesSurviveXmlRoundTrip) {
  const Case cases[] = {
      {"OrderAndDuplicatesKept",
       configuration(R"(["tb/b","tb/a","tb/b"])", R"(["lib/x.jar"])", R"("info.xml")", R"("doc/gs.html")",
                     R"("map.xml")"),
       "", ""},
      {"NonAsciiMultiLineAndMarkup",
       configuration(R"(["Grüße/例","two\nlines","a\r\nb","<&>\"'"])", R"(["𝄞 ☃"])", R"("ä\tö")",
                     R"(" lead")", R"("trail ")"),
       "", ""},
      {"EmptyListEntryKeptButNotRead",
       configuration(R"(["a","","a"])", R"([""])", R"("i")", R"("g")", R"("m")"), "",
       configuration(R"(["a","a"])", kNoList, R"("i")", R"("g")", R"("m")")},
      {"EmptyPathsLeaveFieldsUnset",
       configuration(R"([])", R"({"$class":"cell","$dims":[0,0]})", R"("")", R"("")", R"("")"), kEmpty, ""},
      {"ColumnOfPathsComesBackAsRow",
       configuration(R"({"$class":"cell","$dims":[3,1],"$data":["x","y","z"]})", "null", R"("")", R"("")",
                     R"("")"),
       configuration(R"(["x","y","z"])", kNoList, "null", "null", "null"), ""},
      {"OnePathAsTextIsAListOfOne", configuration(R"("only")", R"("j")", R"("")", R"("")", R"("")"),
       configuration(R"(["only"])", R"(["j"])", "null", "null", "null"), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    const Json want = Json::parse(c.expected.empty() ? c.input : c.expected);
    EXPECT_TRUE(sameArray(Owned(AddonConfiguration(input.get()).getStructArray()).get(), want));
    EXPECT_TRUE(sameArray(viaXml<AddonConfiguration>(input.get()).get(),
                          c.viaXml.empty() ? want : Json::parse(c.viaXml)));
    EXPECT_TRUE(schemaAccepts("configuration.xsd", AddonConfiguration(input.get()).getAsXMLString()));
  }
}

TEST(AddonConfigurationTest, WrittenXmlShape) {
  const Case cases[] = {
      {"DefaultIsLoneRoot", "", "configuration: \"\"\n", ""},
      {"ChildrenInFixedOrderEmptyPathsOmitted",
       configuration(R"(["a",""])", R"(["j"])", R"("")", R"("gs")", R"("m")"),
       "configuration\n zorvanPaths\n  zorvanPath: \"a\"\n  zorvanPath: \"\"\n javaClassPaths\n  "
       "javaClassPath: \"j\"\n"
       " gettingStartedDocPath: \"gs\"\n installMapPath: \"m\"\n",
       ""},
      {"OnlyInfoPath", configuration("[]", "[]", R"("i.xml")", R"("")", R"("")"),
       "configuration\n infoXMLPath: \"i.xml\"\n", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonConfiguration record =
        c.input.empty() ? AddonConfiguration() : AddonConfiguration(host(c.input).get());
    EXPECT_EQ(shape(record), c.expected);
    EXPECT_TRUE(schemaAccepts("configuration.xsd", record.getAsXMLString()));
  }
}

TEST(AddonConfigurationTest, XmlReadingRules) {
  const std::string held = configuration(R"(["old"])", R"(["old.jar"])", R"("i0")", R"("g0")", R"("m0")");
  const Case cases[] = {
      {"AbsentPathsKeepValuesListsEmptied", R"(<configuration xmlns="NS"/>)",
       configuration(kNoList, kNoList, R"("i0")", R"("g0")", R"("m0")"), ""},
      {"PresentPathsReplace",
       R"(<configuration xmlns="NS"><installMapPath>m1</installMapPath><infoXMLPath/></configuration>)",
       configuration(kNoList, kNoList, "null", R"("g0")", R"("m1")"), ""},
      {"EntriesWithoutTextSkipped",
       R"(<configuration xmlns="NS"><zorvanPaths><zorvanPath/><zorvanPath>a</zorvanPath><zorvanPath></zorvanPath>)"
       R"(</zorvanPaths><javaClassPaths><javaClassPath><!-- none --></javaClassPath></javaClassPaths></configuration>)",
       configuration(R"(["a"])", kNoList, R"("i0")", R"("g0")", R"("m0")"), ""},
      {"NoRootEmptiesListsOnly", "", configuration(kNoList, kNoList, R"("i0")", R"("g0")", R"("m0")"), ""},
      {"ForeignElementsIgnored",
       R"(<configuration xmlns="NS" xmlns:x="urn:x"><x:zorvanPaths><zorvanPath>a</zorvanPath></x:zorvanPaths>)"
       R"(<javaClassPaths><x:javaClassPath>j</x:javaClassPath></javaClassPaths><x:infoXMLPath>i</x:infoXMLPath>)"
       R"(</configuration>)",
       configuration(kNoList, kNoList, R"("i0")", R"("g0")", R"("m0")"), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonConfiguration record(host(held).get());
    readTwice(record, c.input);
    EXPECT_TRUE(sameArray(Owned(record.getStructArray()).get(), Json::parse(c.expected)));
  }
}

TEST(AddonConfigurationTest, WrongHostInputRaisesHostError) {
  const Case cases[] = {
      {"PathNotText", configuration("[]", "[]", "5", R"("")", R"("")"), "", ""},
      {"PathFieldMissing", R"({"zorvanPaths":[],"javaClassPaths":[],"infoXMLPath":"","installMapPath":""})",
       "", ""},
      {"ListCellOfNumbers",
       configuration(R"({"$class":"cell","$data":[1,2]})", "[]", R"("")", R"("")", R"("")"), "", ""},
      {"ListEntryStructure",
       configuration("[]", R"({"$class":"cell","$data":[{"a":"b"}]})", R"("")", R"("")", R"("")"), "", ""},
      {"ListNumber", configuration("7", "[]", R"("")", R"("")", R"("")"), "", ""},
      {"EmptyInputLacksPaths", "null", "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    EXPECT_EQ(hostErrorOf([&] { AddonConfiguration record(input.get()); }),
              zvhost::reference::errors::notString);
  }
}

TEST(AddonConfigurationTest, SchemaRejectsWhatRecordsNeverWrite) {
  for (
      const char* xml :
      {R"(<configuration xmlns="NS"><zorvanPaths/></configuration>)",
       R"(<configuration xmlns="NS"><infoXMLPath></infoXMLPath></configuration>)",
       R"(<configuration xmlns="NS"><installMapPath>m</installMapPath><infoXMLPath>i</infoXMLPath></configuration>)"}) {
    EXPECT_FALSE(schemaAccepts("configuration.xsd", inRecordNamespace<AddonConfiguration>(xml))) << xml;
  }
}

}  // namespace
}  // namespace addon::packaging
