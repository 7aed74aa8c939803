// The Set and Get functions of the six metadata records through a real package file: each reaches
// its record, lists come back as N-by-1 structure arrays, and a failure leaves the file as it was.
// The records' own reading and writing rules are tested in tests/metadata.
#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "gateway/new_package_test.h"
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
};

const Functions kRequirements{"requirements", zvAddonSetSystemRequirements, zvAddonGetSystemRequirements,
                              "ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS", "ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS"};
const Functions kLicense{"license", zvAddonSetLicense, zvAddonGetLicense, "ZVADDON_BUILTINS_ERROR_SET_LICENSE",
                         "ZVADDON_BUILTINS_ERROR_GET_LICENSE"};
const Functions kConfiguration{"configuration", zvAddonSetConfiguration, zvAddonGetConfiguration,
                               "ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION", "ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION"};
const Functions kExamples{"examples", zvAddonSetExamples, zvAddonGetExamples, "ZVADDON_BUILTINS_ERROR_SET_EXAMPLES",
                          "ZVADDON_BUILTINS_ERROR_GET_EXAMPLES"};
const Functions kRevisions{"revisions", zvAddonSetRevisionHistory, zvAddonGetRevisionHistory,
                           "ZVADDON_BUILTINS_ERROR_SET_REVISION_HISTORY", "ZVADDON_BUILTINS_ERROR_GET_REVISION_HISTORY"};
const Functions kApps{"apps", zvAddonSetAppInstallList, zvAddonGetAppInstallList,
                      "ZVADDON_BUILTINS_ERROR_SET_APP_INSTALL_LIST", "ZVADDON_BUILTINS_ERROR_GET_APP_INSTALL_LIST"};

// An N-by-1 structure array of `entries`, with `fields` (the first entry's keys when not given).
Json column(const std::vector<Json>& entries, Json fields = nullptr) {
  if (fields.is_null()) {
    fields = Json::array();
    for (const auto& [key, value] : entries.front().items()) fields.push_back(key);
  }
  return {{"$class", "struct"}, {"$dims", {entries.size(), 1}}, {"$fields", fields}, {"$data", entries}};
}

const Json kAllTrue = {{"win", "true"}, {"linux", "true"}, {"mac", "true"}, {"ZORVANOnline", "true"}};
const Json kNoPaths = {{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};
const Json kNoCategories = column({}, {"name", "examples"});
const Json kNoRevisions = column({}, {"date", "version", "description"});
const Json kNoApps = column({}, {"name", "guid", "relativePath", "installByDefault"});

Json requirements(Json products, Json platform, Json release, Json addons) {
  return Json{{"productDependency", std::move(products)},
              {"supportPackageDependency", nullptr},
              {"platformCompatibility", std::move(platform)},
              {"releaseCompatibility", std::move(release)},
              {"addonDependency", std::move(addons)}};
}
Json configuration(Json zorvanPaths, Json javaClassPaths, Json info, Json gettingStarted, Json installMap) {
  return Json{{"zorvanPaths", std::move(zorvanPaths)},
              {"javaClassPaths", std::move(javaClassPaths)},
              {"infoXMLPath", std::move(info)},
              {"gettingStartedDocPath", std::move(gettingStarted)},
              {"installMapPath", std::move(installMap)}};
}
Json app(const std::string& name, const std::string& flag) {
  return {{"name", name}, {"guid", "0f8fad5b"}, {"relativePath", name + ".app"}, {"installByDefault", flag}};
}

class RecordFunctions : public zvtest::NewPackageTest {};

TEST_F(RecordFunctions, GetWithoutThePartGivesDefaults) {
  const struct {
    const Functions& functions;
    Json expected;
  } cases[] = {
      {kRequirements, requirements(nullptr, kAllTrue, nullptr, nullptr)},
      {kLicense, {{"type", ""}, {"text", ""}}},
      {kConfiguration, configuration(kNoPaths, kNoPaths, nullptr, nullptr, nullptr)},
      {kExamples, kNoCategories},
      {kRevisions, kNoRevisions},
      {kApps, kNoApps},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.functions.name);
    EXPECT_EQ(callOk(c.functions.get, {path_}, 1), c.expected);
  }
}

// Wrong host input (the records' own refusals are tested in tests/metadata), a missing package and a
// corrupt one: each function raises its key, and neither file changes.
TEST_F(RecordFunctions, FailuresCarryTheirKeyAndLeaveThePackageByteForByte) {
  callOk(zvAddonSetLicense, {path_, {{"type", "MIT"}, {"text", "kept"}}});
  callOk(zvAddonSetRevisionHistory, {path_, Json::parse(R"([{"date":"d","version":"1","description":"kept"}])")});
  const std::string before = zvtest::readBytes(path_);
  const std::string missing = dir_.file("missing.zvaddon");
  const std::string corrupt = dir_.file("corrupt.zvaddon");
  zvtest::writeBytes(corrupt, "PK\x03\x04 not a zip archive");
  const struct {
    const Functions& functions;
    Json input;
    std::string key;
  } wrongInput[] = {
      {kRequirements, Json::parse(R"({"productDependency":[{"name":1,"version":"","identifier":""}]})"), "notString"},
      {kApps, {app("v", "true"), {{"name", "w"}, {"guid", "g"}, {"relativePath", ""}, {"installByDefault", true}}},
       "notString"},
      {kConfiguration, 5, "ZVADDON_BUILTINS_ERROR_NON_STRUCT"},
  };
  for (const auto& c : wrongInput) {
    SCOPED_TRACE(c.functions.name + c.input.dump());
    EXPECT_EQ(call(c.functions.set, {path_, c.input}).key(), c.key);
  }
  const std::pair<const Functions*, Json> valid[] = {
      {&kRequirements, nullptr}, {&kLicense, {{"type", ""}, {"text", ""}}},
      {&kConfiguration, configuration(Json::array(), Json::array(), "", "", "")},
      {&kExamples, nullptr}, {&kRevisions, nullptr}, {&kApps, nullptr}};
  for (const auto& [f, input] : valid) {
    SCOPED_TRACE(f->name);
    EXPECT_EQ(call(f->set, {missing, input}).key(), "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
    EXPECT_EQ(call(f->get, {missing}, 1).key(), "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
    EXPECT_EQ(call(f->set, {corrupt, input}).key(), f->setKey);
    const auto get = call(f->get, {corrupt}, 1);
    ASSERT_EQ(get.key(), f->getKey);
    ASSERT_EQ(get.error->arguments().size(), 2u);
    EXPECT_EQ(std::get<ustring>(get.error->arguments()[0]), ustring(corrupt.begin(), corrupt.end()));
    EXPECT_FALSE(std::get<std::string>(get.error->arguments()[1]).empty()) << "the OPC message";
    EXPECT_NE(get.error->message().find(corrupt), std::string::npos) << "catalogue text names the package";
  }
  EXPECT_EQ(zvtest::readBytes(path_), before);
  EXPECT_FALSE(std::filesystem::exists(missing));
  EXPECT_EQ(zvtest::readBytes(corrupt), "PK\x03\x04 not a zip archive");
}

}  // namespace
