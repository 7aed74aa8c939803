#include "metadata/examples.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

struct Case {
  const char* name;
  std::string input;     // host value as JSON, or XML text with "NS" for the namespace
  std::string expected;  // host value as JSON ("" = the input as records return it), outline, or error
};

const std::string kFull = R"({"name":"e1","type":"script","source":"s.m","main":"m.m","thumbnail":"t.png","images":["a.png","b.png"]})";
const std::string kBare = R"({"name":"e2","type":"","source":"","main":"","thumbnail":"","images":[]})";
const char* kNoCategories = R"({"$class":"struct","$dims":[0,1],"$fields":["name","examples"]})";

std::string category(const std::string& files) {
  return R"(<examples xmlns="NS"><exampleCategory name="c"><example name="e" type="t">)" + files +
         "</example></exampleCategory></examples>";
}
std::string oneExample(const std::string& source, const std::string& main, const std::string& thumbnail,
                       const std::string& images) {
  return R"([{"name":"c","examples":[{"name":"e","type":"t","source":")" + source + R"(","main":")" + main +
         R"(","thumbnail":")" + thumbnail + R"(","images":)" + images + "}]}]";
}

TEST(AddonExamplesTest, HostValuesSurviveXmlRoundTrip) {
  const Case cases[] = {
      {"OrderAndDuplicatesKept", R"([{"name":"B","examples":[)" + kFull + R"(]},{"name":"A","examples":[]},)"
                                 R"({"name":"B","examples":[)" + kBare + "," + kBare + "]}]", ""},
      {"NonAsciiMultiLine", R"([{"name":"Grüße 例 ☃","examples":[{"name":"two\nlines\r\nand\ttab","type":"<&>\"",)"
                            R"("source":"ä dir/𝄞.m","main":"","thumbnail":"","images":["𝄞.png"]}]}])", ""},
      {"ImagesColumnComeBackAsRow", oneExample("", "", "", R"({"$class":"cell","$dims":[3,1],"$data":["x","y","z"]})"),
       oneExample("", "", "", R"(["x","y","z"])")},
      {"EmptyImagesCellComesBackUnset", oneExample("s", "", "", R"({"$class":"cell","$dims":[0,0]})"),
       oneExample("s", "", "", "null")},
      {"EmptyDoubleGivesNoCategories", "null", kNoCategories},
      {"EmptyStructGivesNoCategories", R"({"$class":"struct","$dims":[0,0],"$fields":["x"]})", kNoCategories},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    const Json want = asReturned(Json::parse(c.expected.empty() ? c.input : c.expected));
    const Owned direct(AddonExamples(input.get()).getStructArray());
    EXPECT_TRUE(sameArray(direct.get(), want));
    const Owned trip = viaXml<AddonExamples>(input.get());
    EXPECT_TRUE(sameArray(trip.get(), want));
    EXPECT_TRUE(sameArray(viaXml<AddonExamples>(trip.get()).get(), want)) << "output fed back as input";
    EXPECT_TRUE(schemaAccepts("examples.xsd", AddonExamples(input.get()).getAsXMLString()));
  }
}

TEST(AddonExamplesTest, XmlReadingRules) {
  const Case cases[] = {
      {"SecondSourceWins", category(R"(<file type="source">a.m</file><file type="source">b.m</file>)"),
       oneExample("b.m", "", "", "null")},
      {"CapitalisedTypesIgnored", category(R"(<file type="Source">a.m</file><file type="IMAGE">i</file>)"),
       oneExample("", "", "", "null")},
      {"FileOrderFreeOnRead",
       category(R"(<file type="image">i1</file><file type="thumbnail">t</file><file type="image">i2</file><file type="main">m</file>)"),
       oneExample("", "m", "t", R"(["i1","i2"])")},
      {"UnknownContentIgnored",
       category(R"(<file>u</file><file type="readme">r</file><note/><x:file xmlns:x="urn:x" type="source">z</x:file>)"),
       oneExample("", "", "", "null")},
      {"MissingAttributesReadEmpty", R"(<examples xmlns="NS"><exampleCategory><example/></exampleCategory></examples>)",
       R"([{"name":"","examples":[{"name":"","type":"","source":"","main":"","thumbnail":"","images":null}]}])"},
      {"RootNameNotChecked", R"(<gallery xmlns="NS"><exampleCategory name="c"/></gallery>)",
       R"([{"name":"c","examples":null}])"},
      {"ForeignCategoriesIgnored", R"(<examples xmlns="NS"><exampleCategory xmlns="urn:x" name="c"/></examples>)",
       kNoCategories},
      {"BareRootGivesNoCategories", R"(<examples xmlns="NS"/>)", kNoCategories},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonExamples record(host(R"([{"name":"held","examples":[]}])").get());
    record.populateFromXML(inRecordNamespace<AddonExamples>(c.input));
    record.populateFromXML(inRecordNamespace<AddonExamples>(c.input));  // replaces, never accumulates
    EXPECT_TRUE(sameArray(Owned(record.getStructArray()).get(), asReturned(Json::parse(c.expected))));
  }
}

TEST(AddonExamplesTest, WrittenXmlShape) {
  const Case cases[] = {
      {"FilesInFixedOrderEmptyPathsOmitted", oneExample("s", "", "t", R"(["i1","i2"])"),
       "examples\n exampleCategory name=\"c\"\n  example name=\"e\" type=\"t\"\n   file type=\"source\": \"s\"\n"
       "   file type=\"thumbnail\": \"t\"\n   file type=\"image\": \"i1\"\n   file type=\"image\": \"i2\"\n"},
      {"EmptyCategoryAndBareExample", R"([{"name":"","examples":[]},{"name":"d","examples":[)" + kBare + "]}]",
       "examples\n exampleCategory name=\"\": \"\"\n exampleCategory name=\"d\"\n  example name=\"e2\" type=\"\": \"\"\n"},
      {"EmptyInputWritesBareRoot", "null", "examples: \"\"\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AddonExamples record(host(c.input).get());
    EXPECT_EQ(outline(record), c.expected);
    EXPECT_TRUE(schemaAccepts("examples.xsd", record.getAsXMLString()));
  }
}

TEST(AddonExamplesTest, WrongHostInputRaisesHostError) {
  const Case cases[] = {
      {"NameNotText", R"([{"name":5,"examples":[]}])", ""},
      {"NameMissing", R"([{"title":"c","examples":[]}])", ""},
      {"ExampleFieldMissing", R"([{"name":"c","examples":[{"name":"e","type":"","source":"","main":""}]}])", ""},
      {"ImagesCellOfNumbers", oneExample("", "", "", R"({"$class":"cell","$data":[1,2]})"), ""},
      {"ExamplesNotStructures", R"([{"name":"c","examples":"abc"}])", ""},
      {"ExamplesCellOfStructures", R"([{"name":"c","examples":{"$class":"cell","$data":[)" + kBare + "]}}]", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Owned input = host(c.input);
    EXPECT_EQ(hostErrorOf([&] { AddonExamples record(input.get()); }), zvhost::reference::errors::notString);
  }
}

TEST(AddonExamplesTest, SchemaRejectsWhatRecordsNeverWrite) {
  for (const char* xml : {R"(<examples xmlns="NS"><exampleCategory name="c"><example name="e" type="t"><file type="Source">a</file></example></exampleCategory></examples>)",
                          R"(<examples xmlns="NS"><exampleCategory/></examples>)",
                          R"(<examples xmlns="urn:elsewhere"/>)"}) {
    EXPECT_FALSE(schemaAccepts("examples.xsd", inRecordNamespace<AddonExamples>(xml))) << xml;
  }
}

}  // namespace
}  // namespace addon::packaging
