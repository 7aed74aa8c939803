// Every record as tables: host -> record -> host and host -> record -> XML -> record -> host round
// trips whose XML is valid by the record's schema, what each reads, the inputs each refuses.
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/i18n.h"
#include "host/json/json.h"
#include "host/reference/host_error.h"
#include "metadata/addon_properties.h"
#include "metadata/app_install_list.h"
#include "metadata/configuration.h"
#include "metadata/examples.h"
#include "metadata/license.h"
#include "metadata/revision_history.h"
#include "metadata/system_requirements.h"
#include "support/command.h"

namespace addon::packaging {
namespace {

using Json = zvhost::json::Json;
using Owned = matrix::unique_qxarray_ptr;

// Records give lists back with one dimension: an N-by-1 structure array.
Json asReturned(const Json& j) {
  if (j.is_array() && !j.empty() && j.front().is_object()) {
    Json fields = Json::array(), data = Json::array();
    for (const auto& [key, value] : j.front().items()) fields.push_back(key);
    for (const Json& e : j) data.push_back(asReturned(e));
    return {{"$class", "struct"}, {"$dims", {j.size(), 1}}, {"$fields", fields}, {"$data", data}};
  }
  if (!j.is_object() || j.contains("$class")) return j;
  Json out = Json::object();
  for (const auto& [key, value] : j.items()) out[key] = asReturned(value);
  return out;
}

::testing::AssertionResult returns(qxArray* raw, const std::string& expected) {
  const Owned actual(raw);
  const Owned want = zvhost::json::toOwnedArray(asReturned(Json::parse(expected)));
  if (zvhost::json::arraysEqual(actual.get(), want.get())) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got " << zvhost::json::fromArray(actual.get()).dump();
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Rules {
  std::string schema;
  std::string held;                       // the host value that reading rows read over ("" = a default record)
  Pairs trips{};                          // host value -> host value returned ("" = the input), directly and via XML
  Pairs reading{};                        // XML, "NS" its namespace ("" = a document without root) -> host value
  std::vector<std::string> wrongInput{};  // host values that raise the host's not-a-string error
};

template <class Record>
Record make(const std::string& json) {
  return json.empty() ? Record() : Record(zvhost::json::toOwnedArray(Json::parse(json)).get());
}

template <class Record>
void check(const Rules& r) {
  for (const auto& [input, output] : r.trips) {
    SCOPED_TRACE("trip " + input);
    Record written = make<Record>(input);
    const ustring xml = written.getAsXMLString();
    const zvtest::CommandRun lint = zvtest::xmllint(fl::i18n::to_utf8(xml), ZV_SOURCE_DIR "/resources/schemas/" + r.schema);
    EXPECT_EQ(lint.status, 0) << lint.output;
    Record read;
    read.populateFromXML(xml);
    EXPECT_TRUE(returns(written.getStructArray(), output.empty() ? input : output));
    EXPECT_TRUE(returns(read.getStructArray(), output.empty() ? input : output)) << "through XML";
  }
  for (const auto& [xml, output] : r.reading) {
    SCOPED_TRACE("reading " + xml);
    Record record = make<Record>(r.held);
    const std::string ns = fl::i18n::to_utf8(record.getNamespace());
    for (int pass = 0; pass < 2; ++pass) {  // a second reading replaces, never accumulates
      if (xml.empty()) record.populateFromDOM(createRecordDocument().get());
      else record.populateFromXML(fl::i18n::from_utf8(std::regex_replace(xml, std::regex("NS"), ns)));
    }
    EXPECT_TRUE(returns(record.getStructArray(), output));
  }
  for (const std::string& input : r.wrongInput) {
    EXPECT_THAT([&] { (void)make<Record>(input); },
                ::testing::Throws<zvhost::reference::HostError>(
                    ::testing::Property(&zvhost::reference::HostError::identifier, zvhost::errors::notString)))
        << input;
  }
}

std::string product(const std::string& name, const std::string& version = "", const std::string& id = "") {
  return R"({"name":")" + name + R"(","version":")" + version + R"(","identifier":")" + id + R"("})";
}
std::string addon(const std::string& name, const std::string& rest = "") {
  return R"({"name":")" + name + R"(","identifier":"i","earliestVersion":")" + rest +
         R"(","latestVersion":"","downloadURL":")" + rest + R"(","checksum":"","checksumVersion":"v"})";
}
std::string flags(const std::string& win, const std::string& linux = "true", const std::string& mac = "true",
                  const std::string& online = "true") {
  return R"({"win":")" + win + R"(","linux":")" + linux + R"(","mac":")" + mac + R"(","ZORVANOnline":")" + online + "\"}";
}
// The five fields in the order the record returns them; "null" leaves one unset.
std::string requirements(const std::string& products, const std::string& packages, const std::string& platform,
                         const std::string& release, const std::string& addons) {
  return R"({"productDependency":)" + products + R"(,"supportPackageDependency":)" + packages +
         R"(,"platformCompatibility":)" + platform + R"(,"releaseCompatibility":)" + release + R"(,"addonDependency":)" +
         addons + "}";
}

TEST(Records, SystemRequirements) {
  const std::string defaults = requirements("null", "null", flags("true"), "null", "null");
  Rules r{"system_requirements.xsd",
          requirements("[" + product("old") + "]", "null", flags("false", "false", "false", "false"),
                       R"({"start":"R1","end":"R2"})", "[" + addon("old") + "]")};
  r.trips = {
      {requirements("[" + product("P", "1", "id") + "," + product("Grüße 例\\nzwei", "<&>\\\"'", "𝄞") + "," +
                        product("P", "1", "id") + "]",
                    "[" + product("S") + "]", flags("ja", "", "NO", "Ünï"), R"({"start":"α","end":"R2024a"})",
                    "[" + addon("B", "https://e.org/?a=1&b=2") + "," + addon("x\\r\\ny") + "]"), ""},
      {requirements("null", "null", flags("true"), R"({"start":"R2020a","end":""})", "null"), defaults},
      {R"({"productDependency":[],"releaseCompatibility":{"$class":"struct","$dims":[1,0],"$fields":["start"]}})", defaults},
      {requirements(R"({"$class":"struct","$dims":[2,1],"$fields":["name","version","identifier"],"$data":[)" +
                        product("1") + "," + product("2") + "]}", "null", flags("true"), "null", "null"),
       requirements("[" + product("1") + "," + product("2") + "]", "null", flags("true"), "null", "null")},
  };
  r.reading = {
      {R"(<systemRequirements xmlns="NS"><requiredProducts/><requiredAddons/><platformCompatibility win="a" linux="b" mac="c" ZORVANOnline="d"/></systemRequirements>)",
       requirements("null", "null", flags("a", "b", "c", "d"), "null", "null")},
      {R"(<systemRequirements xmlns="NS"/>)", defaults},
      {"", requirements("null", "null", flags("false", "false", "false", "false"), R"({"start":"R1","end":"R2"})", "null")},
      {R"(<systemRequirements xmlns="NS" xmlns:x="urn:x"><x:requiredProducts><product name="P"/></x:requiredProducts>)"
       R"(<requiredSupportPackages><x:supportPackage name="S"/><product name="wrong"/></requiredSupportPackages></systemRequirements>)",
       defaults},
  };
  r.wrongInput = {R"({"addonDependency":[{"name":"A","identifier":"a"}]})", R"({"releaseCompatibility":{"start":"R1","end":2024}})"};
  check<AddonSystemRequirements>(r);
}

std::string app(const std::string& flag) {
  return R"([{"name":"a","guid":"g","relativePath":"p","installByDefault":")" + flag + "\"}]";
}
std::string application(const std::string& attributes) {
  return R"(<applications xmlns="NS"><application name="a" guid="g" )" + attributes + "><file>p</file></application></applications>";
}

TEST(Records, Applications) {
  const char* none = R"({"$class":"struct","$dims":[0,1],"$fields":["name","guid","relativePath","installByDefault"]})";
  Rules r{"app_install_list.xsd", app("true")};
  r.trips = {
      {R"([{"name":"Viewer","guid":"1b4e","relativePath":"apps/v.app","installByDefault":"false"},)"
       R"({"name":"Grüße\n例","guid":"","relativePath":"ä/𝄞 <&>\".app","installByDefault":"true"}])", ""},
      {app("yes"), app("true")},
      {"null", none},
  };
  r.reading = {
      {application(R"(installByDefault="true")"), app("true")},
      {application(R"(installByDefault="TRUE")"), app("false")},
      {R"(<applications xmlns="NS"><application/><note/></applications>)",
       R"([{"name":"","guid":"","relativePath":"","installByDefault":"false"}])"},
      {"", none},
  };
  check<AddonAppInstallList>(r);
}

// The five fields in the order the record returns them; "null" leaves one unset.
std::string configuration(const std::string& paths, const std::string& classPaths, const std::string& info,
                          const std::string& start = "null", const std::string& map = "null") {
  return R"({"zorvanPaths":)" + paths + R"(,"javaClassPaths":)" + classPaths + R"(,"infoXMLPath":)" + info +
         R"(,"gettingStartedDocPath":)" + start + R"(,"installMapPath":)" + map + "}";
}

TEST(Records, Configuration) {
  const std::string noList = R"({"$class":"cell","$dims":[1,0]})";
  Rules r{"configuration.xsd", configuration(R"(["old"])", R"(["old.jar"])", R"("i0")", R"("g0")", R"("m0")")};
  r.trips = {
      {configuration(R"(["tb/b","Grüße/例","tb/b","two\nlines <&>"])", R"(["𝄞.jar"])", R"("info.xml")", R"(" gs ")",
                     R"("map.xml")"), ""},
      {configuration("[]", R"({"$class":"cell","$dims":[0,0]})", R"("")", R"("")", R"("")"),
       configuration(noList, noList, "null")},
      {configuration(R"("only")", R"("j")", R"("")", R"("")", R"("")"), configuration(R"(["only"])", R"(["j"])", "null")},
  };
  r.reading = {
      {R"(<configuration xmlns="NS"/>)", configuration(noList, noList, R"("i0")", R"("g0")", R"("m0")")},
      {R"(<configuration xmlns="NS"><installMapPath>m1</installMapPath><infoXMLPath/></configuration>)",
       configuration(noList, noList, "null", R"("g0")", R"("m1")")},
      {R"(<configuration xmlns="NS"><zorvanPaths><zorvanPath/><zorvanPath>a</zorvanPath></zorvanPaths></configuration>)",
       configuration(R"(["a"])", noList, R"("i0")", R"("g0")", R"("m0")")},
      {"", configuration(noList, noList, R"("i0")", R"("g0")", R"("m0")")},
  };
  r.wrongInput = {R"({"zorvanPaths":[],"javaClassPaths":[],"infoXMLPath":"","installMapPath":""})",
                  configuration(R"({"$class":"cell","$data":[1,2]})", "[]", R"("")", R"("")", R"("")")};
  check<AddonConfiguration>(r);
}

std::string oneExample(const std::string& source, const std::string& main, const std::string& images) {
  return R"([{"name":"c","examples":[{"name":"e","type":"t","source":")" + source + R"(","main":")" + main +
         R"(","thumbnail":"","images":)" + images + "}]}]";
}
std::string category(const std::string& files) {
  return R"(<examples xmlns="NS"><exampleCategory name="c"><example name="e" type="t">)" + files +
         "</example></exampleCategory></examples>";
}

TEST(Records, Examples) {
  const std::string full = R"({"name":"e1","type":"script","source":"s.m","main":"m.m","thumbnail":"t.png","images":["a.png","b.png"]})";
  const std::string bare = R"({"name":"e2","type":"","source":"","main":"","thumbnail":"","images":[]})";
  const char* none = R"({"$class":"struct","$dims":[0,1],"$fields":["name","examples"]})";
  Rules r{"examples.xsd", R"([{"name":"held","examples":[]}])"};
  r.trips = {
      {R"([{"name":"B","examples":[)" + full + R"(]},{"name":"","examples":[]},{"name":"B","examples":[)" + bare +
           R"(,{"name":"two\nlines","type":"<&>\"","source":"ä/𝄞.m","main":"","thumbnail":"","images":["𝄞.png"]}]}])",
       ""},
      {oneExample("", "", R"({"$class":"cell","$dims":[3,1],"$data":["x","y","z"]})"), oneExample("", "", R"(["x","y","z"])")},
      {oneExample("s", "", R"({"$class":"cell","$dims":[0,0]})"), oneExample("s", "", "null")},
      {"null", none},
  };
  r.reading = {
      {category(R"(<file type="source">a.m</file><file type="source">b.m</file>)"), oneExample("b.m", "", "null")},
      {category(R"(<file type="Source">a.m</file><file type="image">i1</file><file type="main">m</file><file>u</file>)"),
       oneExample("", "m", R"(["i1"])")},
      {R"(<examples xmlns="NS"><exampleCategory><example/></exampleCategory><exampleCategory xmlns="urn:x" name="c"/></examples>)",
       R"([{"name":"","examples":[{"name":"","type":"","source":"","main":"","thumbnail":"","images":null}]}])"},
      {"", none},
  };
  r.wrongInput = {R"([{"name":"c","examples":[{"name":"e","type":"","source":"","main":""}]}])",
                  oneExample("", "", R"({"$class":"cell","$data":[1,2]})"), R"([{"name":"c","examples":"abc"}])"};
  check<AddonExamples>(r);
}

TEST(Records, LicenseAndRevisionHistory) {
  Rules license{"license.xsd", R"({"type":"held","text":"held"})"};
  license.trips = {{R"({"type":"Lizenz für 例","text":"Copyright (c)\n\n<b>&amp; \"q\" ☃ 𝄞\r\n  indented\n"})", ""},
                   {R"({"text":"t","other":1,"type":""})", R"({"type":"","text":"t"})"},
                   {R"({"type":" ","text":" \t\r\n "})", ""}};
  license.reading = {{R"(<license xmlns="NS"><licenseText>t</licenseText><licenseText type="b">2</licenseText></license>)",
                      R"({"type":"","text":"t"})"},
                     {"", R"({"type":"","text":""})"}};
  license.wrongInput = {R"({"type":"MIT"})", "null"};
  check<AddonLicense>(license);

  Rules revisions{"revision_history.xsd", R"([{"date":"held","version":"held","description":"held"}])"};
  revisions.trips = {
      {R"([{"date":"2021-05-01","version":"2.0","description":"b"},{"date":"","version":"","description":""},)"
       R"({"date":"2021-05-01","version":"2.0","description":"Grüße\nZeile\r\n\t<&>\"𝄞"}])", ""},
      {"null", R"({"$class":"struct","$dims":[0,1],"$fields":["date","version","description"]})"}};
  revisions.reading = {
      {R"(<revisionHistory xmlns="NS"><revision/><revision date="d" version="v"><description>one</description>)"
       R"(<description>two</description></revision><note/><revision xmlns="urn:x" date="x"/></revisionHistory>)",
       R"([{"date":"","version":"","description":""},{"date":"d","version":"v","description":"one"}])"}};
  revisions.wrongInput = {R"([{"date":20240101,"version":"1","description":""}])", R"([{"date":"d","version":"1"}])"};
  check<AddonRevisionHistory>(revisions);
}

// The authors element is written when an author field is set (empty ones included), and only the
// first author is read; an absent element leaves its field.
TEST(Records, PropertiesAuthors) {
  AddonProperties record;
  EXPECT_EQ(record.getAsXMLString().find(u"authors"), ustring::npos);
  record.authorContact = u"c@example.org";
  const ustring xml = record.getAsXMLString();
  EXPECT_NE(xml.find(u"<name"), ustring::npos);
  EXPECT_NE(xml.find(u"<organization"), ustring::npos);
  record.description = u"kept";
  record.populateFromXML(u"<addonProperties xmlns='" + record.getNamespace() +
                         u"'><authors><author><name>A</name></author>"
                         u"<author><name>B</name><contact>b</contact></author></authors></addonProperties>");
  EXPECT_EQ(record.authorName, u"A");
  EXPECT_EQ(record.authorContact, u"");
  EXPECT_EQ(record.description, u"kept");
}

}  // namespace
}  // namespace addon::packaging
