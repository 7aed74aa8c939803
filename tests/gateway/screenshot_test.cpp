#include <gtest/gtest.h>

#include "foundation/crypto.h"
#include "gateway/zvaddon.h"
#include "opc/model/package_helper.h"
#include "package/addon_package.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

struct Screenshot {
  std::vector<ustring> partNames;
  std::vector<ustring> relationshipIds;
  ustring contentType;
};

// What the package holds under "/metadata/primaryScreenShot." and its two root relationships.
Screenshot inspect(const std::string& path) {
  addon::packaging::AddonPackage package(ustring(path.begin(), path.end()));
  opc::model::Package& model = package.getPackage();
  model.open(static_cast<opc::interfaces::OpenMode>(0));
  Screenshot s;
  for (const auto& part : model.getParts()) {
    const ustring& name = part->getPartName().getName();
    if (name.rfind(u"/metadata/primaryScreenShot.", 0) == 0) {
      s.partNames.push_back(name);
      s.contentType = part->getContentType().toString();
    }
  }
  for (const auto& r : model.getRelationships().getRelationships()) {
    if (r.getType() == opc::model::PackageHelper::getThumbnailRelationshipType() ||
        r.getType().find(u"primaryScreenShot") != ustring::npos) {
      s.relationshipIds.push_back(r.getId());
    }
  }
  model.close();
  return s;
}

class ScreenshotTest : public ::testing::Test {
 protected:
  void SetUp() override { callOk(zvAddonCreate, {package, zvtest::properties()}); }
  std::string image(const std::string& name, const std::string& bytes = "\x89PNG....") {
    const std::string path = dir.file(name);
    zvtest::writeBytes(path, bytes);
    return path;
  }
  zvtest::TempDir dir;
  std::string package = dir.file("s.zvaddon");
};

TEST_F(ScreenshotTest, ReplacingLeavesOnePartAndOneRelationshipOfEachType) {
  callOk(zvAddonSetScreenshot, {package, image("a.png")});
  callOk(zvAddonSetScreenshot, {package, image("b.gif", "GIF89a")});
  const Screenshot s = inspect(package);
  EXPECT_EQ(s.partNames, std::vector<ustring>{u"/metadata/primaryScreenShot.gif"});
  EXPECT_EQ(s.contentType, u"image/gif");
  std::vector<ustring> ids = s.relationshipIds;
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids, (std::vector<ustring>{u"rId100", u"rId101"}));
}

TEST_F(ScreenshotTest, ExtensionDecidesContentTypeAndStoredEnding) {
  const struct {
    const char* file;
    const char16_t* part;
    const char16_t* type;
  } cases[] = {
      {"Screen.JPG", u"/metadata/primaryScreenShot.jpg", u"image/jpeg"},
      {"Screen.Png", u"/metadata/primaryScreenShot.Png", u"image/png"},
      {"scan.tif", u"/metadata/primaryScreenShot.jpg", u"image/jpeg"},
      {"scan.TIFF", u"/metadata/primaryScreenShot.TIFF", u"image/tiff"},
      {"pic.bmp", u"/metadata/primaryScreenShot.bmp", u"image/bmp"},
      {"noextension", u"/metadata/primaryScreenShot.jpg", u"image/jpeg"},
  };
  for (const auto& c : cases) {
    callOk(zvAddonSetScreenshot, {package, image(c.file)});
    const Screenshot s = inspect(package);
    ASSERT_EQ(s.partNames.size(), 1u) << c.file;
    EXPECT_EQ(s.partNames[0], c.part) << c.file;
    EXPECT_EQ(s.contentType, c.type) << c.file;
  }
}

TEST_F(ScreenshotTest, GetReturnsPaddedBase64OfTheBytes) {
  EXPECT_EQ(callOk(zvAddonGetScreenshot, {package}, 1), "") << "no screenshot is no error";
  for (std::size_t size : {0u, 1u, 2u, 3u, 8193u}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 131 + 7);
    callOk(zvAddonSetScreenshot, {package, image("shot.png", bytes)});
    const std::string text = callOk(zvAddonGetScreenshot, {package}, 1).get<std::string>();
    EXPECT_EQ(text.size() % 4, 0u) << size;
    EXPECT_EQ(foundation::crypto::utils::base64Decode(text),
              std::vector<std::uint8_t>(bytes.begin(), bytes.end()))
        << size;
  }
}

TEST_F(ScreenshotTest, MissingImageNamesImageFirstAndLeavesPackage) {
  callOk(zvAddonSetScreenshot, {package, image("a.png")});
  const std::string before = zvtest::readBytes(package);
  const std::string missing = dir.file("missing.png");
  const auto r = call(zvAddonSetScreenshot, {package, missing});
  ASSERT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_SET_SCREENSHOT");
  ASSERT_EQ(r.error->arguments().size(), 3u);
  EXPECT_EQ(std::get<ustring>(r.error->arguments()[0]), ustring(missing.begin(), missing.end()));
  EXPECT_EQ(std::get<ustring>(r.error->arguments()[1]), ustring(package.begin(), package.end()));
  EXPECT_EQ(zvtest::readBytes(package), before);
}

TEST(InstructionSets, StoredUnderFileNameWithItsOwnIdAndDuplicatesRefused) {
  zvtest::TempDir dir;
  const std::string package = dir.file("i.zvaddon");
  callOk(zvAddonCreate, {package, zvtest::properties()});
  const ustring upackage(package.begin(), package.end());
  auto hasSets = [&] {
    addon::packaging::AddonPackage p(upackage);
    p.getPackage().open(static_cast<opc::interfaces::OpenMode>(0));
    const bool has = p.hasInstructionSets();
    p.getPackage().close();
    return has;
  };
  EXPECT_FALSE(hasSets());

  std::filesystem::create_directories(dir.path() / "a" / "b");
  std::filesystem::create_directories(dir.path() / "c");
  const std::string xml = "<?xml version='1.0'?><setup>\xE2\x82\xAC</setup>\n";
  zvtest::writeBytes(dir.file("a/b/setup.xml"), xml);
  zvtest::writeBytes(dir.file("c/setup.xml"), "<other/>");
  callOk(zvAddonAddInstructionSet, {package, dir.file("a/b/setup.xml")});
  EXPECT_TRUE(hasSets());

  {
    addon::packaging::AddonPackage p(upackage);
    auto& model = p.getPackage();
    model.open(static_cast<opc::interfaces::OpenMode>(0));
    const auto part = model.getPart(opc::model::PartName(u"/metadata/InstructionSets/setup.xml"));
    EXPECT_EQ(part->getContentType().toString(), u"application/vnd.kestrelon.zorvan.addon.instructionSet+xml");
    EXPECT_TRUE(model.hasRelationship(u"rId_IS_setup.xml"));
    std::string stored;
    auto in = part->getInputStream();
    std::uint8_t buffer[256];
    for (std::size_t n; (n = in->read(buffer, sizeof buffer)) > 0;) stored.append(reinterpret_cast<char*>(buffer), n);
    EXPECT_EQ(stored, xml);
    model.close();
  }

  const std::string before = zvtest::readBytes(package);
  const auto r = call(zvAddonAddInstructionSet, {package, dir.file("c/setup.xml")});
  EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS");
  EXPECT_EQ(zvtest::readBytes(package), before);
}

}  // namespace
