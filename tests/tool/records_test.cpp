// The records in people's form: what recordToHost refuses, how recordFromHost reads the host's shapes.
// (The round trip of every record through a package is the golden case cases/records.t.)
#include "records.h"

#include <gtest/gtest.h>

#include "host/json/json.h"
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

// The host forms a package's records do not show (its column structure arrays: records.t): empty
// structure arrays with fields, column cells, typed and empty text; each reads as what it stands for.
TEST(RecordFromHostTest, ReadsTypedHostForms) {
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

}  // namespace
}  // namespace zvaddon::tool
