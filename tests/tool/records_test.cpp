// The records in people's form: what recordToHost refuses, how recordFromHost reads every shape the
// host gives, and the round trip through a package for each record.
#include "records.h"

#include <gtest/gtest.h>

#include "gateway.h"
#include "host/json/json.h"
#include "support/gateway_call.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {

struct RefusalCase {
  Record record;
  const char* json;
  const char* message;  // the whole ToolError text
};

TEST(RecordToHostTest, RefusesUnknownKeysAndWrongTypesNamingThePointer) {
  const RefusalCase cases[] = {
      {Record::properties, R"(["x"])", "/: expected an object, found an array"},
      {Record::properties, R"({"GUID": false})", "/GUID: expected text, found false"},
      {Record::systemRequirements, R"({"platformCompatibility": {"win": null, "beos": true}})",
       "/platformCompatibility/beos: unknown key; expected one of: win, linux, mac, ZORVANOnline"},
      {Record::systemRequirements, R"({"releaseCompatibility": "R2020a"})",
       "/releaseCompatibility: expected an object, found text"},
      {Record::systemRequirements, R"({"addonDependency": [{"checksum": 12}]})",
       "/addonDependency/0/checksum: expected text, found a number"},
      {Record::systemRequirements, R"({"productDependency": [{}, "P"]})",
       "/productDependency/1: expected an object, found text"},
      {Record::examples, R"([{"examples": [{"thumbnail": {}}]}])",
       "/0/examples/0/thumbnail: expected text, found an object"},
      {Record::apps, R"(null)", "/: expected an array of objects, found null"},
      {Record::apps, R"([{"installByDefault": [true]}])", "/0/installByDefault: expected true, false or text, found an array"},
      // Keys with '/' and '~' are escaped in the pointer.
      {Record::license, R"({"a/b~c": 1})", "/a~1b~0c: unknown key; expected one of: type, text"},
      // Typed host forms are not people's form for a structure.
      {Record::license, R"({"$class": "struct", "$dims": [1, 1], "$fields": [], "$data": [{}]})",
       "/: expected an object, found an object"},
  };
  for (const RefusalCase& c : cases) {
    try {
      (void)recordToHost(c.record, Json::parse(c.json), "");
      ADD_FAILURE() << c.json << ": accepted";
    } catch (const ToolError& e) {
      EXPECT_EQ(e.status(), ExitStatus::badInput);
      EXPECT_EQ(std::string(e.what()), c.message) << c.json;
    }
  }
}

TEST(RecordToHostTest, FillsEveryFieldInHostOrderWithItsDefault) {
  const Json host = recordToHost(Record::systemRequirements,
                                 Json::parse(R"({"platformCompatibility": {"mac": false, "win": "maybe"}})"), "");
  EXPECT_EQ(host.dump(),
            R"({"productDependency":null,"supportPackageDependency":null,)"
            R"("platformCompatibility":{"win":"maybe","linux":"true","mac":"false","ZORVANOnline":"true"},)"
            R"("releaseCompatibility":null,"addonDependency":null})");
  const Json app = recordToHost(Record::apps, Json::parse(R"([{"relativePath": "x", "name": "n"}])"), "");
  EXPECT_EQ(app.dump(), R"([{"name":"n","guid":"","relativePath":"x","installByDefault":"true"}])");
  // A properties type left out is the one type the host creates.
  EXPECT_EQ(recordToHost(Record::properties, Json::object(), "")["type"], "ZORVAN Toolbox");
}

// The host gives structure arrays that are not one row, empty ones with fields, and text that is
// not one row in typed forms; each reads as the list or text it stands for.
TEST(RecordFromHostTest, ReadsTypedHostForms) {
  const Json columnRevisions = Json::parse(R"({"$class": "struct", "$dims": [2, 1],
      "$fields": ["date", "version", "description"],
      "$data": [{"date": "d1", "version": "v1", "description": "x"}, {"date": "d2", "version": "v2", "description": "y"}]})");
  const Json people = recordFromHost(Record::revisionHistory, columnRevisions);
  ASSERT_EQ(people.size(), 2u);
  EXPECT_EQ(people[1]["version"], "v2");

  const Json noApps = Json::parse(R"({"$class": "struct", "$dims": [0, 1],
      "$fields": ["name", "guid", "relativePath", "installByDefault"], "$data": []})");
  EXPECT_EQ(recordFromHost(Record::apps, noApps), Json::array());

  const Json oneCategory = Json::parse(R"({"name": "c", "examples": {"name": "e", "type": "t", "source": "",
      "main": "", "thumbnail": "", "images": {"$class": "cell", "$dims": [2, 1], "$data": ["a.png", "b.png"]}}})");
  const Json examples = recordFromHost(Record::examples, oneCategory);
  ASSERT_EQ(examples.size(), 1u);
  ASSERT_EQ(examples[0]["examples"].size(), 1u);
  EXPECT_EQ(examples[0]["examples"][0]["images"], Json::parse(R"(["a.png", "b.png"])"));

  const Json config = Json::parse(R"({"zorvanPaths": {"$class": "cell", "$dims": [1, 0], "$data": []},
      "javaClassPaths": ["only.jar"], "infoXMLPath": null,
      "gettingStartedDocPath": {"$class": "char", "$dims": [0, 0], "$data": ""},
      "installMapPath": {"$class": "char", "$dims": [1, 2], "$data": [55357, 65]}})");
  const Json c = recordFromHost(Record::configuration, config);
  EXPECT_EQ(c["zorvanPaths"], Json::array());
  EXPECT_EQ(c["javaClassPaths"], Json::parse(R"(["only.jar"])"));
  EXPECT_EQ(c["infoXMLPath"], "");
  EXPECT_EQ(c["gettingStartedDocPath"], "");
  // Text with a lone surrogate has no UTF-8 form: it stays typed, and recordToHost passes it back.
  EXPECT_EQ(c["installMapPath"], config["installMapPath"]);
  EXPECT_EQ(recordToHost(Record::configuration, c, "")["installMapPath"], config["installMapPath"]);

  // A package without the part gives the empty record, every field present.
  EXPECT_EQ(recordFromHost(Record::license, nullptr), Json::parse(R"({"type": "", "text": ""})"));
}

// For each record, values in people's form (every field given, as recordFromHost writes them) go
// into a package and come back unchanged: no field dropped, renamed or retyped by either direction.
class RecordRoundTripTest : public ::testing::Test {
 protected:
  void SetUp() override {
    package_ = dir_.file("r.zvaddon");
    (void)callGateway("zvAddonCreate", {package_, recordToHost(Record::properties,
                                                               Json::parse(R"({"name": "R", "version": "1", "GUID": "g"})"), "")});
  }
  Json roundTrip(Record record, const Json& people) {
    (void)callGateway(recordInfo(record).setFunction, {package_, recordToHost(record, people, "")});
    return recordFromHost(record, getFromGateway(recordInfo(record).getFunction, {package_}));
  }
  zvtest::TempDir dir_;
  std::string package_;
};

TEST_F(RecordRoundTripTest, EveryRecordComesBackUnchanged) {
  const std::pair<Record, const char*> cases[] = {
      {Record::properties, R"({"type": "ZORVAN Toolbox", "name": "Näme", "version": "2.0", "ZORVANRelease": "R2026b",
          "summary": "s", "authorName": "a", "authorContact": "c", "authorOrganization": "o", "GUID": "g-1",
          "description": "line 1\nline 2"})"},
      {Record::systemRequirements, R"({"productDependency": [{"name": "P", "version": "1", "identifier": "p"}],
          "supportPackageDependency": [{"name": "S1", "version": "", "identifier": "s1"}, {"name": "S2", "version": "2", "identifier": "s2"}],
          "platformCompatibility": {"win": "false", "linux": "true", "mac": "odd text", "ZORVANOnline": "true"},
          "releaseCompatibility": {"start": "R2020a", "end": "R2026b"},
          "addonDependency": [{"name": "A", "identifier": "a", "earliestVersion": "1", "latestVersion": "2",
            "downloadURL": "https://x.example/a?b=c&d", "checksum": "00ff", "checksumVersion": "1"}]})"},
      {Record::systemRequirements, R"({"productDependency": [], "supportPackageDependency": [],
          "platformCompatibility": {"win": "true", "linux": "true", "mac": "true", "ZORVANOnline": "true"},
          "releaseCompatibility": null, "addonDependency": []})"},
      {Record::configuration, R"({"zorvanPaths": ["one"], "javaClassPaths": ["a.jar", "a.jar", "b/"],
          "infoXMLPath": "i.xml", "gettingStartedDocPath": "g.html", "installMapPath": "m.xml"})"},
      {Record::configuration, R"({"zorvanPaths": [], "javaClassPaths": [], "infoXMLPath": "",
          "gettingStartedDocPath": "", "installMapPath": ""})"},
      {Record::license, R"({"type": "", "text": "<b>&amp; ünïcödé ✓</b>\r\n"})"},
      {Record::examples, R"([{"name": "One", "examples": [{"name": "e", "type": "t", "source": "s.m", "main": "m.m",
          "thumbnail": "t.png", "images": ["i1.png", "i2.png", "i3.png"]}]},
          {"name": "One", "examples": []}, {"name": "", "examples": [
          {"name": "", "type": "", "source": "", "main": "", "thumbnail": "", "images": []},
          {"name": "x", "type": "", "source": "", "main": "", "thumbnail": "", "images": ["only.png"]}]}])"},
      {Record::examples, R"([])"},
      {Record::revisionHistory, R"([{"date": "not a date", "version": "", "description": ""}])"},
      {Record::revisionHistory, R"([{"date": "2", "version": "b", "description": "x"}, {"date": "1", "version": "a", "description": "y"}])"},
      {Record::apps, R"([{"name": "A", "guid": "same", "relativePath": "", "installByDefault": "false"},
          {"name": "B", "guid": "same", "relativePath": "b.zvapp", "installByDefault": "true"}])"},
      {Record::apps, R"([])"},
  };
  for (const auto& [record, text] : cases) {
    const Json people = Json::parse(text);
    EXPECT_EQ(roundTrip(record, people), people) << recordInfo(record).name << ": " << text;
  }
}

TEST_F(RecordRoundTripTest, FlagsAndLeftOutFieldsTakeTheirDocumentedValues) {
  const Json app = roundTrip(Record::apps, Json::parse(R"([{"installByDefault": false}, {"installByDefault": true}, {}])"));
  EXPECT_EQ(app[0]["installByDefault"], "false");
  EXPECT_EQ(app[1]["installByDefault"], "true");
  EXPECT_EQ(app[2]["installByDefault"], "true");
  const Json req = roundTrip(Record::systemRequirements, Json::parse(R"({"platformCompatibility": {"linux": false}})"));
  EXPECT_EQ(req["platformCompatibility"], Json::parse(R"({"win": "true", "linux": "false", "mac": "true", "ZORVANOnline": "true"})"));
}

}  // namespace
}  // namespace zvaddon::tool
