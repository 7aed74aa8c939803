#include "metadata/examples.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

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

TEST(AddonExamplesTest, RecordRules) {
  RecordRules rules("examples.xsd", R"([{"name":"held","examples":[]}])");
  rules.roundTrips = {
      {"OrderAndDuplicatesKept", R"([{"name":"B","examples":[)" + kFull + R"(]},{"name":"A","examples":[]},)"
                                 R"({"name":"B","examples":[)" + kBare + "," + kBare + "]}]", ""},
      {"NonAsciiMultiLine", R"([{"name":"Grüße 例 ☃","examples":[{"name":"two\nlines\r\nand\ttab","type":"<&>\"",)"
                            R"("source":"ä dir/𝄞.m","main":"","thumbnail":"","images":["𝄞.png"]}]}])", ""},
      {"ImagesColumnComeBackAsRow", oneExample("", "", "", R"({"$class":"cell","$dims":[3,1],"$data":["x","y","z"]})"),
       oneExample("", "", "", R"(["x","y","z"])")},
      {"EmptyImagesCellComesBackUnset", oneExample("s", "", "", R"({"$class":"cell","$dims":[0,0]})"),
       oneExample("s", "", "", "null")},
      {"EmptyDoubleGivesNoCategories", "null", kNoCategories},
  };
  rules.written = {
      {"FilesInFixedOrderEmptyPathsOmitted", oneExample("s", "", "t", R"(["i1","i2"])"),
       "examples\n exampleCategory name=\"c\"\n  example name=\"e\" type=\"t\"\n   file type=\"source\": \"s\"\n"
       "   file type=\"thumbnail\": \"t\"\n   file type=\"image\": \"i1\"\n   file type=\"image\": \"i2\"\n"},
      {"EmptyCategoryAndBareExample", R"([{"name":"","examples":[]},{"name":"d","examples":[)" + kBare + "]}]",
       "examples\n exampleCategory name=\"\": \"\"\n exampleCategory name=\"d\"\n  example name=\"e2\" type=\"\": \"\"\n"},
      {"EmptyInputWritesBareRoot", "null", "examples: \"\"\n"},
  };
  rules.reading = {
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
      {"ForeignCategoriesIgnored", R"(<examples xmlns="NS"><exampleCategory xmlns="urn:x" name="c"/></examples>)",
       kNoCategories},
  };
  rules.wrongInput = {
      R"([{"name":5,"examples":[]}])",
      R"([{"title":"c","examples":[]}])",
      R"([{"name":"c","examples":[{"name":"e","type":"","source":"","main":""}]}])",
      oneExample("", "", "", R"({"$class":"cell","$data":[1,2]})"),
      R"([{"name":"c","examples":"abc"}])",
      R"([{"name":"c","examples":{"$class":"cell","$data":[)" + kBare + "]}}]",
  };
  rules.schemaRejects = {
      R"(<examples xmlns="NS"><exampleCategory name="c"><example name="e" type="t"><file type="Source">a</file></example></exampleCategory></examples>)",
      R"(<examples xmlns="NS"><exampleCategory/></examples>)",
      R"(<examples xmlns="urn:elsewhere"/>)",
  };
  checkRecord<AddonExamples>(rules);
}

}  // namespace
}  // namespace addon::packaging
