// Reading a package's ZIP directory: content part names back to file names, and the parts inspect
// reports that no gateway function names.
#include "package_index.h"

#include <gtest/gtest.h>

#include <fstream>

#include "gateway.h"
#include "records.h"
#include "support/gateway_call.h"

namespace zvaddon::tool {
namespace {
namespace fs = std::filesystem;

TEST(DecodeSegmentTest, EscapesBecomeBytes) {
  const std::pair<const char*, const char*> cases[] = {
      {"plain.m", "plain.m"},
      {"a:20b", "a b"},                   // ':XX' for ASCII a URI cannot hold
      {"%E6%97%A5", "\xE6\x97\xA5"},      // '%XX' for UTF-8 bytes
      {"trailing.:", "trailing."},        // a bare ':' ends a segment that would end in '.'
      {"a%2", "a%2"},                     // malformed escapes stay as they are
      {"a:zz", "a:zz"},
      {"x:", "x"},
  };
  for (const auto& [segment, name] : cases) EXPECT_EQ(decodeContentSegment(segment), name) << segment;
}

class PackageIndexTest : public ::testing::Test {
 protected:
  void SetUp() override {
    package_ = dir_.file("p.zvaddon");
    (void)callGateway("zvAddonCreate", {package_, recordToHost(Record::properties,
                                                               Json::parse(R"({"name": "P", "version": "1", "GUID": "g"})"), "")});
  }
  std::string file(const std::string& name, const std::string& bytes) {
    const fs::path path = dir_.path() / "src" / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }
  zvtest::TempDir dir_;
  std::string package_;
};

TEST_F(PackageIndexTest, ScreenshotInstructionSetsAndSignaturePartsAreSeen) {
  PackageIndex index = PackageIndex::read(package_);
  EXPECT_FALSE(index.screenshot().has_value());
  EXPECT_TRUE(index.instructionSets().empty());
  EXPECT_FALSE(index.hasSignatureParts());

  (void)callGateway("zvAddonSetScreenshot", {package_, file("shot.GIF", "GIF89a")});
  (void)callGateway("zvAddonAddInstructionSet", {package_, file("one/setup.xml", "<a/>")});
  (void)callGateway("zvAddonAddInstructionSet", {package_, file("two/other.xml", "<b/>")});
  (void)callGateway("zvAddonSetSystemRequirements", {package_, recordToHost(Record::systemRequirements, Json::object(), "")});
  (void)callGateway("zvAddonSign", {package_});
  index = PackageIndex::read(package_);
  ASSERT_TRUE(index.screenshot().has_value());
  EXPECT_EQ(index.screenshot()->name, "metadata/primaryScreenShot.GIF");
  EXPECT_EQ(index.screenshot()->size, 6u);
  EXPECT_EQ(index.instructionSets(), (std::vector<std::string>{"setup.xml", "other.xml"}));
  EXPECT_TRUE(index.hasSignatureParts());
  // None of these are content files.
  EXPECT_TRUE(index.contentFileSizes().empty());
}

}  // namespace
}  // namespace zvaddon::tool
