// The Set and Get functions of the system-requirements, licence and configuration records, through
// a real package file.
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
};

const Functions kRequirements{"requirements", zvAddonSetSystemRequirements, zvAddonGetSystemRequirements,
                              "ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS",
                              "ZVADDON_BUILTINS_ERROR_GET_SYSTEM_REQS"};
const Functions kLicense{"license", zvAddonSetLicense, zvAddonGetLicense,
                         "ZVADDON_BUILTINS_ERROR_SET_LICENSE", "ZVADDON_BUILTINS_ERROR_GET_LICENSE"};
const Functions kConfiguration{"configuration", zvAddonSetConfiguration, zvAddonGetConfiguration,
                               "ZVADDON_BUILTINS_ERROR_SET_CONFIGURATION",
                               "ZVADDON_BUILTINS_ERROR_GET_CONFIGURATION"};

const Json kAllTrue = {{"win", "true"}, {"linux", "true"}, {"mac", "true"}, {"ZORVANOnline", "true"}};

Json requirements(Json products, Json platform, Json release, Json addons) {
  return Json{{"productDependency", std::move(products)},
              {"supportPackageDependency", nullptr},
              {"platformCompatibility", std::move(platform)},
              {"releaseCompatibility", std::move(release)},
              {"addonDependency", std::move(addons)}};
}
Json product(const std::string& name, const std::string& id) {
  return {{"name", name}, {"version", "1.0"}, {"identifier", id}};
}
Json addon(const std::string& name) {
  return {{"name", name},
          {"identifier", "id-" + name},
          {"earliestVersion", "1"},
          {"latestVersion", "2"},
          {"downloadURL", "https://example.org/" + name},
          {"checksum", "ab12"},
          {"checksumVersion", "sha1"}};
}
// The form records return a list of structures in: one column.
Json column(const std::vector<Json>& entries) {
  Json fields = Json::array();
  for (const auto& [key, value] : entries.front().items()) fields.push_back(key);
  return {{"$class", "struct"}, {"$dims", {entries.size(), 1}}, {"$fields", fields}, {"$data", entries}};
}
Json configuration(Json zorvanPaths, Json javaClassPaths, Json info, Json gettingStarted, Json installMap) {
  return Json{{"zorvanPaths", std::move(zorvanPaths)},
              {"javaClassPaths", std::move(javaClassPaths)},
              {"infoXMLPath", std::move(info)},
              {"gettingStartedDocPath", std::move(gettingStarted)},
              {"installMapPath", std::move(installMap)}};
}
const Json kNoPaths = {{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};

class RecordFunctions : public ::testing::Test {
 protected:
  void SetUp() override { callOk(zvAddonCreate, {path_, zvtest::properties()}); }
  zvtest::TempDir dir_;
  std::string path_ = dir_.file("records.zvaddon");
};

TEST_F(RecordFunctions, SetThenGetReturnsTheRecord) {
  const Json products =
      Json::array({product("Signal", "SG"), product("Ünïcode 例", "U"), product("Signal", "SG")});
  const struct {
    const char* name;
    const Functions& functions;
    Json input;
    Json expected;
  } cases[] = {
      {"RequirementsInOrderWithDuplicates", kRequirements,
       requirements(products, {{"win", "false"}, {"linux", "true"}, {"mac", "false"}, {"ZORVANOnline", "x"}},
                    {{"start", "R2019b"}, {"end", "R2024a"}}, Json::array({addon("B"), addon("A")})),
       requirements(column(products),
                    {{"win", "false"}, {"linux", "true"}, {"mac", "false"}, {"ZORVANOnline", "x"}},
                    {{"start", "R2019b"}, {"end", "R2024a"}}, column({addon("B"), addon("A")}))},
      {"RequirementsOneEndedRangeDropped", kRequirements,
       requirements(nullptr, kAllTrue, {{"start", "R2019b"}, {"end", ""}}, nullptr),
       requirements(nullptr, kAllTrue, nullptr, nullptr)},
      {"RequirementsFromEmptyInput", kRequirements, nullptr,
       requirements(nullptr, kAllTrue, nullptr, nullptr)},
      {"LicenseMultiLine",
       kLicense,
       {{"type", "Lizenz ☃"}, {"text", "First line\r\n\n  indented <&>\nlast"}},
       {{"type", "Lizenz ☃"}, {"text", "First line\r\n\n  indented <&>\nlast"}}},
      {"ConfigurationWithoutSinglePaths", kConfiguration,
       configuration(Json::array({"tb", "tb/sub", "tb"}), Json::array({"lib/a.jar"}), "", "", ""),
       configuration(Json::array({"tb", "tb/sub", "tb"}), Json::array({"lib/a.jar"}), nullptr, nullptr,
                     nullptr)},
      {"ConfigurationAllPaths", kConfiguration,
       configuration(Json::array(), Json::array(), "info.xml", "doc/GettingStarted.mlx", "map 例.xml"),
       configuration(kNoPaths, kNoPaths, "info.xml", "doc/GettingStarted.mlx", "map 例.xml")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    callOk(c.functions.set, {path_, c.input});
    EXPECT_EQ(callOk(c.functions.get, {path_}, 1), c.expected);
  }
}

TEST_F(RecordFunctions, GetWithoutThePartGivesDefaults) {
  const struct {
    const Functions& functions;
    Json expected;
  } cases[] = {
      {kRequirements, requirements(nullptr, kAllTrue, nullptr, nullptr)},
      {kLicense, {{"type", ""}, {"text", ""}}},
      {kConfiguration, configuration(kNoPaths, kNoPaths, nullptr, nullptr, nullptr)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.functions.name);
    EXPECT_EQ(callOk(c.functions.get, {path_}, 1), c.expected);
  }
}

TEST_F(RecordFunctions, WrongHostInputLeavesThePackageByteForByte) {
  callOk(zvAddonSetLicense, {path_, {{"type", "MIT"}, {"text", "kept"}}});
  const std::string before = zvtest::readBytes(path_);
  const struct {
    const char* name;
    const Functions& functions;
    Json input;
    std::string key;
  } cases[] = {
      {"ProductNameNumber", kRequirements,
       Json::parse(R"({"productDependency":[{"name":1,"version":"","identifier":""}]})"), "notString"},
      {"LicenseTextMissing", kLicense, Json::parse(R"({"type":"MIT"})"), "notString"},
      {"ZorvanPathsCellOfNumbers", kConfiguration,
       configuration(Json::parse(R"({"$class":"cell","$data":[1,2]})"), Json::array(), "", "", ""),
       "notString"},
      {"NumberIsNoStructure", kConfiguration, 5, "ZVADDON_BUILTINS_ERROR_NON_STRUCT"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto r = call(c.functions.set, {path_, c.input});
    ASSERT_FALSE(r.ok());
    EXPECT_EQ(r.key(), c.key);
    EXPECT_EQ(zvtest::readBytes(path_), before);
  }
}

TEST_F(RecordFunctions, PackageFailuresCarryTheFunctionsKeys) {
  const std::string missing = dir_.file("missing.zvaddon");
  const std::string corrupt = dir_.file("corrupt.zvaddon");
  zvtest::writeBytes(corrupt, "PK\x03\x04 not a zip archive");
  const Json inputs[] = {requirements(nullptr, kAllTrue, nullptr, nullptr), Json{{"type", ""}, {"text", ""}},
                         configuration(Json::array(), Json::array(), "", "", "")};
  const Functions* all[] = {&kRequirements, &kLicense, &kConfiguration};
  for (std::size_t i = 0; i < 3; ++i) {
    const Functions& f = *all[i];
    SCOPED_TRACE(f.name);
    EXPECT_EQ(call(f.set, {missing, inputs[i]}).key(), "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
    EXPECT_EQ(call(f.get, {missing}, 1).key(), "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
    const auto set = call(f.set, {corrupt, inputs[i]});
    EXPECT_EQ(set.key(), f.setKey);
    const auto get = call(f.get, {corrupt}, 1);
    EXPECT_EQ(get.key(), f.getKey);
    ASSERT_FALSE(get.ok());
    ASSERT_EQ(get.error->arguments().size(), 2u);
    EXPECT_EQ(std::get<ustring>(get.error->arguments()[0]), ustring(corrupt.begin(), corrupt.end()));
  }
  EXPECT_FALSE(std::filesystem::exists(missing));
  EXPECT_EQ(zvtest::readBytes(corrupt), "PK\x03\x04 not a zip archive");
}

}  // namespace
