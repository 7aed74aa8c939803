#include "metadata/configuration.h"

#include "list_record_testing.h"

namespace addon::packaging {
namespace {

using namespace list_records;

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

TEST(AddonConfigurationTest, RecordRules) {
  const std::string held = configuration(R"(["old"])", R"(["old.jar"])", R"("i0")", R"("g0")", R"("m0")");
  RecordRules rules("configuration.xsd", held, false);
  rules.roundTrips = {
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
      {"OnePathAsTextIsAListOfOne", configuration(R"("only")", R"("j")", R"("")", R"("")", R"("")"),
       configuration(R"(["only"])", R"(["j"])", "null", "null", "null"), ""},
  };
  rules.written = {
      {"DefaultIsLoneRoot", "", "configuration: \"\"\n", ""},
      {"ChildrenInFixedOrderEmptyPathsOmitted",
       configuration(R"(["a",""])", R"(["j"])", R"("")", R"("gs")", R"("m")"),
       "configuration\n zorvanPaths\n  zorvanPath: \"a\"\n  zorvanPath: \"\"\n javaClassPaths\n  "
       "javaClassPath: \"j\"\n"
       " gettingStartedDocPath: \"gs\"\n installMapPath: \"m\"\n",
       ""},
  };
  rules.reading = {
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
  };
  rules.wrongInput = {
      configuration("[]", "[]", "5", R"("")", R"("")"),
      R"({"zorvanPaths":[],"javaClassPaths":[],"infoXMLPath":"","installMapPath":""})",
      configuration(R"({"$class":"cell","$data":[1,2]})", "[]", R"("")", R"("")", R"("")"),
      "null",
  };
  rules.schemaRejects = {
      R"(<configuration xmlns="NS"><zorvanPaths/></configuration>)",
      R"(<configuration xmlns="NS"><infoXMLPath></infoXMLPath></configuration>)",
      R"(<configuration xmlns="NS"><installMapPath>m</installMapPath><infoXMLPath>i</infoXMLPath></configuration>)",
  };
  checkRecord<AddonConfiguration>(rules);
}

}  // namespace
}  // namespace addon::packaging
