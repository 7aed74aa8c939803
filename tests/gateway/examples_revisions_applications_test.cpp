// The Set and Get functions of the examples, revision-history and applications records, through a
// real package file.
#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

struct Functions {
  const char* name;
  qxFunction set;
  qxFunction get;
  std::string setKey;
  std::string getKey;
  Json fields;  // of the returned structure array
};

const Functions kExamples{"examples", zvAddonSetExamples, zvAddonGetExamples, "ZVADDON_BUILTINS_ERROR_SET_EXAMPLES",
                          "ZVADDON_BUILTINS_ERROR_GET_EXAMPLES", {"name", "examples"}};
const Functions kRevisions{"revisions", zvAddonSetRevisionHistory, zvAddonGetRevisionHistory,
                           "ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY", "ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY",
                           {"date", "version", "description"}};
const Functions kApps{"apps", zvAddonSetAppInstallList, zvAddonGetAppInstallList,
                      "ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST", "ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST",
                      {"name", "guid", "relativePath", "installByDefault"}};

// The form records return a list in: one column, empty lists included.
Json column(const Json& fields, const Json& entries) {
  return {{"$class", "struct"}, {"$dims", {entries.size(), 1}}, {"$fields", fields}, {"$data", entries}};
}
Json example(const std::string& name, Json images) {
  return {{"name", name}, {"type", "live"}, {"source", ""}, {"main", name + ".m"}, {"thumbnail", ""}, {"images", images}};
}
Json app(const std::string& name, const std::string& flag) {
  return {{"name", name}, {"guid", "0f8fad5b"}, {"relativePath", name + ".app"}, {"installByDefault", flag}};
}
const Json kExampleFields = {"name", "type", "source", "main", "thumbnail", "images"};

class ListRecordFunctions : public ::testing::Test {
 protected:
  void SetUp() override { callOk(zvAddonCreate, {path_, zvtest::properties()}); }
  zvtest::TempDir dir_;
  std::string path_ = dir_.file("lists.zvaddon");
};

TEST_F(ListRecordFunctions, SetThenGetReturnsTheRecord) {
  const Json column3 = {{"$class", "cell"}, {"$dims", {3, 1}}, {"$data", {"a.png", "b.png", "c.png"}}};
  const Json revisions = Json::parse(R"([{"date":"2024-02-01","version":"2.0","description":"Zweite\nZeile ☃"},
                                         {"date":"not a date","version":"1.0","description":""}])");
  const struct {
    const Functions& functions;
    Json input;
    Json expected;
  } cases[] = {
      {kExamples,
       {{{"name", "B"}, {"examples", {example("x", column3), example("x", nullptr)}}},
        {{"name", "A"}, {"examples", nullptr}},
        {{"name", "B"}, {"examples", {example("y", Json::array())}}}},
       column(kExamples.fields,
              {{{"name", "B"}, {"examples", column(kExampleFields, {example("x", {"a.png", "b.png", "c.png"}),
                                                                   example("x", nullptr)})}},
               {{"name", "A"}, {"examples", nullptr}},
               {{"name", "B"}, {"examples", example("y", nullptr)}}})},
      {kRevisions, revisions, column(kRevisions.fields, revisions)},
      {kApps, {app("v", "yes"), app("w", "false"), app("v", "False")},
       column(kApps.fields, {app("v", "true"), app("w", "false"), app("v", "true")})},
      {kExamples, nullptr, column(kExamples.fields, Json::array())},
      {kRevisions, nullptr, column(kRevisions.fields, Json::array())},
      {kApps, nullptr, column(kApps.fields, Json::array())},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.functions.name + c.input.dump());
    EXPECT_EQ(callOk(c.functions.get, {path_}, 1), column(c.functions.fields, Json::array())) << "before any Set";
    callOk(c.functions.set, {path_, c.input});
    const Json got = callOk(c.functions.get, {path_}, 1);
    EXPECT_EQ(got, c.expected);
    callOk(c.functions.set, {path_, got});
    EXPECT_EQ(callOk(c.functions.get, {path_}, 1), c.expected) << "output fed back as input";
    callOk(c.functions.set, {path_, nullptr});
  }
}

TEST_F(ListRecordFunctions, FailuresLeaveThePackageByteForByte) {
  callOk(zvAddonSetRevisionHistory, {path_, Json::parse(R"([{"date":"d","version":"1","description":"kept"}])")});
  const std::string before = zvtest::readBytes(path_);
  const std::string corrupt = dir_.file("corrupt.zvaddon");
  zvtest::writeBytes(corrupt, "PK\x03\x04 not a zip archive");
  const struct {
    const Functions& functions;
    std::string path;
    Json input;
    std::string key;
  } cases[] = {
      {kExamples, path_, Json::parse(R"([{"name":1,"examples":[]}])"), "notString"},
      {kExamples, path_, Json::parse(R"([{"name":"c","examples":[{"name":"e"}]}])"), "notString"},
      {kRevisions, path_, Json::parse(R"([{"date":"d","version":"1"}])"), "notString"},
      {kApps, path_, {app("v", "true"), {{"name", "w"}, {"guid", "g"}, {"relativePath", ""}, {"installByDefault", true}}},
       "notString"},
      {kApps, path_, 5, "ZVADDON_BUILTINS_ERROR_NON_STRUCT"},
      {kExamples, dir_.file("missing.zvaddon"), nullptr, "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND"},
      {kExamples, corrupt, nullptr, kExamples.setKey},
      {kRevisions, corrupt, nullptr, kRevisions.setKey},
      {kApps, corrupt, nullptr, kApps.setKey},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.functions.name + c.input.dump());
    EXPECT_EQ(call(c.functions.set, {c.path, c.input}).key(), c.key);
    if (c.path == corrupt) {
      EXPECT_EQ(call(c.functions.get, {c.path}, 1).key(), c.functions.getKey);
    }
  }
  EXPECT_EQ(zvtest::readBytes(path_), before);
  EXPECT_EQ(zvtest::readBytes(corrupt), "PK\x03\x04 not a zip archive");
}

}  // namespace
