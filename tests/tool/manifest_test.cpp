// The manifest: sections in the host's form, paths resolved against the add-on folder, and the
// faults that stop a build.
#include "manifest.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/gateway_call.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {
namespace fs = std::filesystem;

class ManifestTest : public ::testing::Test {
 protected:
  void write(const std::string& relative, const std::string& bytes) {
    const fs::path path = dir_.path() / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  [[nodiscard]] Manifest parse(const std::string& text) const { return parseManifest(Json::parse(text), dir_.path()); }
  [[nodiscard]] std::string refusal(const std::string& text) const {
    try {
      (void)parse(text);
    } catch (const ToolError& e) {
      EXPECT_EQ(e.status(), ExitStatus::badInput) << text;
      return e.what();
    }
    return "accepted";
  }
  zvtest::TempDir dir_;
};

constexpr const char* kIdentity = R"("properties": {"name": "N", "version": "1", "GUID": "g"})";

TEST_F(ManifestTest, ResolvesPathsAndKeepsRecordsInTheirOrder) {
  write("LICENSE", "terms\n");
  write("img/s.png", "png");
  write("install/a.xml", "<a/>");
  const Manifest m = parse(std::string("{") + kIdentity + R"(,
      "apps": [], "license": {"type": "T", "file": "LICENSE"}, "examples": [],
      "screenshot": "img/s.png", "instructionSets": ["install/a.xml"],
      "files": {"include": ["src/"], "exclude": ["*.o"], "defaultExcludes": false}})");
  EXPECT_EQ(m.properties["name"], "N");
  EXPECT_EQ(m.properties["type"], "ZORVAN Toolbox");
  ASSERT_EQ(m.records.size(), 3u);
  // The order of allRecords, whatever the manifest's.
  EXPECT_EQ(m.records[0].first, Record::license);
  EXPECT_EQ(m.records[1].first, Record::examples);
  EXPECT_EQ(m.records[2].first, Record::apps);
  EXPECT_EQ(m.records[0].second, Json::parse(R"({"type": "T", "text": "terms\n"})"));
  ASSERT_TRUE(m.screenshot.has_value());
  EXPECT_EQ(*m.screenshot, dir_.path() / "img/s.png");
  EXPECT_EQ(m.instructionSets, std::vector<fs::path>{dir_.path() / "install/a.xml"});
  EXPECT_EQ(m.files.include, std::vector<std::string>{"src/"});
  EXPECT_EQ(m.files.exclude, std::vector<std::string>{"*.o"});
  EXPECT_FALSE(m.files.defaultExcludes);
}

TEST_F(ManifestTest, DefaultsWhenOnlyThePropertiesAreGiven) {
  const Manifest m = parse(std::string("{") + kIdentity + "}");
  EXPECT_TRUE(m.records.empty());
  EXPECT_FALSE(m.screenshot.has_value());
  EXPECT_EQ(m.files.include, std::vector<std::string>{"**"});
  EXPECT_TRUE(m.files.defaultExcludes);
}

TEST_F(ManifestTest, RefusesWhatABuildCannotUse) {
  write("latin1.txt", "caf\xE9");
  write("folder/x", "x");
  const std::pair<std::string, std::string> cases[] = {
      {R"({"properties": {"name": "", "version": "1", "GUID": "g"}})", "/properties/name: required"},
      {R"({"properties": {"name": "N", "GUID": "g"}})", "/properties/version: required"},
      {std::string("{") + kIdentity + R"(, "license": {"file": "latin1.txt"}})",
       "/license/file: 'latin1.txt' is not UTF-8 text"},
      {std::string("{") + kIdentity + R"(, "license": {"file": "folder"}})",
       "/license/file: no file 'folder' in the add-on folder"},
      {std::string("{") + kIdentity + R"(, "screenshot": ""})", "/screenshot: expected a file path, found text"},
      {std::string("{") + kIdentity + R"(, "instructionSets": "a.xml"})",
       "/instructionSets: expected an array of file paths, found text"},
      {std::string("{") + kIdentity + R"(, "files": {"defaultExcludes": "no"}})",
       "/files/defaultExcludes: expected true or false, found text"},
      {std::string("{") + kIdentity + R"(, "files": []})", "/files: expected an object, found an array"},
      {std::string("{") + kIdentity + R"(, "revisionHistory": [{"date": 1}]})",
       "/revisionHistory/0/date: expected text, found a number"},
  };
  for (const auto& [text, message] : cases) EXPECT_EQ(refusal(text), message) << text;
}

TEST_F(ManifestTest, ReadManifestNamesTheFileInEveryMessage) {
  write("zvaddon.json", R"({"properties": 3})");
  try {
    (void)readManifest(dir_.path() / "zvaddon.json", dir_.path());
    FAIL() << "accepted";
  } catch (const ToolError& e) {
    EXPECT_EQ(std::string(e.what()), (dir_.path() / "zvaddon.json").string() + ": /properties: expected an object, found a number");
    EXPECT_EQ(e.status(), ExitStatus::badInput);
  }
  try {
    (void)readManifest(dir_.path() / "none.json", dir_.path());
    FAIL() << "accepted";
  } catch (const ToolError& e) {
    EXPECT_EQ(e.status(), ExitStatus::hostError);
  }
}

}  // namespace
}  // namespace zvaddon::tool
