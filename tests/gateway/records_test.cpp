// Each record's Set then Get through the gateway on a real package file: what Set stores, Get
// returns; without a part Get gives the record's defaults; a refused Set leaves the file as it was.
// (The records' own reading and writing rules are tested in tests/metadata.)
#include <gtest/gtest.h>

#include "foundation/crypto.h"
#include "foundation/i18n.h"
#include "gateway/new_package_test.h"
#include "gateway/zvaddon.h"
#include "metadata/addon_properties.h"
#include "metadata/license.h"
#include "package/addon_package.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

// An N-by-1 structure array of `entries` with `fields`.
Json column(const std::vector<Json>& entries, const Json& fields) {
  return {{"$class", "struct"}, {"$dims", {entries.size(), 1}}, {"$fields", fields}, {"$data", entries}};
}
const Json kCategory = {"name", "examples"};
const Json kRevision = {"date", "version", "description"};
const Json kApp = {"name", "guid", "relativePath", "installByDefault"};
const Json kNoPaths = {{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};
const Json kAllTrue = {{"win", "true"}, {"linux", "true"}, {"mac", "true"}, {"ZORVANOnline", "true"}};

Json requirements(Json products, Json platform, Json release) {
  return {{"productDependency", std::move(products)}, {"supportPackageDependency", nullptr},
          {"platformCompatibility", std::move(platform)}, {"releaseCompatibility", std::move(release)},
          {"addonDependency", nullptr}};
}
Json configuration(Json paths, Json info) {
  return {{"zorvanPaths", paths}, {"javaClassPaths", paths}, {"infoXMLPath", info},
          {"gettingStartedDocPath", info}, {"installMapPath", info}};
}

// The text of a licence whose XML part is exactly `bytes` long, plus `extra` characters.
std::string licenceText(std::size_t bytes, std::size_t extra) {
  const addon::packaging::AddonLicense one(zvhost::json::toOwnedArray({{"type", "big"}, {"text", "x"}}).get());
  return std::string(bytes - const_cast<addon::packaging::AddonLicense&>(one).getAsXMLString().size() + 1 + extra, 'x');
}

struct Record {
  const char* name;
  qxFunction set;
  qxFunction get;
  Json stored;    // given to Set
  Json returned;  // expected from Get; null: what was stored
};

class RecordFunctions : public zvtest::NewPackageTest {};

TEST_F(RecordFunctions, GetReturnsWhatSetStored) {
  const Json example = {{"name", "lowpass"}, {"type", "script"}, {"source", "demo/lp.m"},
                        {"main", "true"},    {"thumbnail", ""},   {"images", nullptr}};
  const Json examples = column({{{"name", "Filters"}, {"examples", example}}, {{"name", "More"}, {"examples", example}}},
                               kCategory);
  const Json product = {{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}};
  const Json revision = {{"date", "2024-01-02"}, {"version", "1.0"}, {"description", "first"}};
  const Json app = {{"name", "v"}, {"guid", "0f8f"}, {"relativePath", "v.app"}, {"installByDefault", "false"}};
  Json properties = zvtest::properties("Second name");
  properties["ZORVANRelease"] = "R1999a";
  const Json running = callOk(zvAddonGetProperties, {path_}, 1)["ZORVANRelease"];
  Json asRead = properties;
  asRead["ZORVANRelease"] = running;  // the running host's, never the input's
  const Record cases[] = {
      {"all ten properties", zvAddonSetProperties, zvAddonGetProperties, properties, asRead},
      {"licence over lines", zvAddonSetLicense, zvAddonGetLicense,
       {{"type", "MIT"}, {"text", "line one\r\nline two \xE2\x82\xAC <&> ]]>\n"}}, nullptr},
      {"licence of the largest part read back", zvAddonSetLicense, zvAddonGetLicense,
       {{"type", "big"}, {"text", licenceText(16u << 20, 0)}}, nullptr},
      {"requirements", zvAddonSetSystemRequirements, zvAddonGetSystemRequirements,
       requirements(column({product, product}, {"name", "version", "identifier"}), {{"win", "true"}, {"linux", "false"}, {"mac", "true"}, {"ZORVANOnline", "false"}},
                    {{"start", "R2019b"}, {"end", "R2024a"}}),
       nullptr},
      {"configuration", zvAddonSetConfiguration, zvAddonGetConfiguration,
       configuration(Json::array({"a", "b/c"}), "doc/info.xml"), nullptr},
      {"examples", zvAddonSetExamples, zvAddonGetExamples, examples, nullptr},
      {"revisions", zvAddonSetRevisionHistory, zvAddonGetRevisionHistory, column({revision, revision}, kRevision),
       nullptr},
      {"apps", zvAddonSetAppInstallList, zvAddonGetAppInstallList, column({app, app}, kApp), nullptr},
      {"no examples", zvAddonSetExamples, zvAddonGetExamples, nullptr, column({}, kCategory)},
      {"no revisions", zvAddonSetRevisionHistory, zvAddonGetRevisionHistory, nullptr, column({}, kRevision)},
      {"no apps", zvAddonSetAppInstallList, zvAddonGetAppInstallList, nullptr, column({}, kApp)},
  };
  for (const Record& c : cases) {
    SCOPED_TRACE(c.name);
    callOk(c.set, {path_, c.stored});
    EXPECT_EQ(callOk(c.get, {path_}, 1), c.returned.is_null() ? c.stored : c.returned);
  }
}

TEST_F(RecordFunctions, GetWithoutThePartGivesDefaults) {
  const Record cases[] = {
      {"requirements", nullptr, zvAddonGetSystemRequirements, nullptr, requirements(nullptr, kAllTrue, nullptr)},
      {"licence", nullptr, zvAddonGetLicense, nullptr, {{"type", ""}, {"text", ""}}},
      {"configuration", nullptr, zvAddonGetConfiguration, nullptr, configuration(kNoPaths, nullptr)},
      {"examples", nullptr, zvAddonGetExamples, nullptr, column({}, kCategory)},
      {"revisions", nullptr, zvAddonGetRevisionHistory, nullptr, column({}, kRevision)},
      {"apps", nullptr, zvAddonGetAppInstallList, nullptr, column({}, kApp)},
      {"screenshot", nullptr, zvAddonGetScreenshot, nullptr, ""},
  };
  for (const Record& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(callOk(c.get, {path_}, 1), c.returned);
  }
}

// Refusals inside the protected block: the host's conversion, a type Create does not know, a part
// too large to read back. None changes a file.
TEST_F(RecordFunctions, RefusedSetsLeaveTheFileByteForByte) {
  callOk(zvAddonSetLicense, {path_, {{"type", "MIT"}, {"text", "kept"}}});
  const std::string before = zvtest::readBytes(path_);
  Json notText = zvtest::properties();
  notText["version"] = 3;
  const struct {
    const char* name;
    qxFunction f;
    Json input;
    std::string key;
  } cases[] = {
      {"property not text", zvAddonSetProperties, notText, "notString"},
      {"app flag not text", zvAddonSetAppInstallList,
       {{{"name", "w"}, {"guid", "g"}, {"relativePath", ""}, {"installByDefault", true}}}, "notString"},
      {"licence one byte too large", zvAddonSetLicense, {{"type", "big"}, {"text", licenceText(16u << 20, 1)}},
       "ZVADDON_BUILTINS_ERROR_SET_LICENSE"},
      {"summary too large for the core properties", zvAddonSetProperties,
       zvtest::properties(std::string(17u << 20, 's')), "ZVADDON_BUILTINS_ERROR_SET_PROPERTIES"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(call(c.f, {path_, c.input}).key(), c.key);
    EXPECT_EQ(zvtest::readBytes(path_), before);
  }
  // A build time that cannot be used fails every writer alike, naming the variable.
  for (const char* epoch : {"abc", "999999999999", "-1"}) {
    SCOPED_TRACE(epoch);
    ::setenv("SOURCE_DATE_EPOCH", epoch, 1);
    const auto set = call(zvAddonSetLicense, {path_, {{"type", "MIT"}, {"text", "new"}}});
    const auto create = call(zvAddonCreate, {dir_.file("new.zvaddon"), zvtest::properties()});
    ::unsetenv("SOURCE_DATE_EPOCH");
    EXPECT_EQ(set.key(), "ZVADDON_BUILTINS_ERROR_SET_LICENSE");
    ASSERT_EQ(create.key(), "ZVADDON_BUILTINS_ERROR_CREATE");
    EXPECT_NE(std::get<std::string>(create.error->arguments().at(1)).find("SOURCE_DATE_EPOCH"), std::string::npos);
    EXPECT_EQ(zvtest::readBytes(path_), before);
  }
  for (const char* type : {"zorvan toolbox", "", "ZORVAN Toolbox ", "App"}) {
    EXPECT_EQ(call(zvAddonCreate, {dir_.file("new.zvaddon"), zvtest::properties("n", type)}).key(),
              "ZVADDON_BUILTINS_ERROR_CREATE");
    EXPECT_FALSE(std::filesystem::exists(dir_.file("new.zvaddon"))) << type;
  }
}

// Setting properties changes title, description, version and creator, never the type, the release
// or the modification time.
TEST_F(RecordFunctions, SetPropertiesKeepsTypeReleaseAndModificationTime) {
  const auto modified = [&] {
    addon::packaging::AddonPackage package(fl::i18n::from_utf8(path_));
    package.getPackage().open(static_cast<opc::interfaces::OpenMode>(0));
    addon::packaging::AddonProperties record;
    package.getAddonProperties(record);
    return record.lastModified;
  };
  const auto before = modified();
  ASSERT_TRUE(before.has_value());
  const Json release = callOk(zvAddonGetProperties, {path_}, 1)["ZORVANRelease"];
  callOk(zvAddonSetProperties, {path_, zvtest::properties("Second", "Something Else")});
  const Json after = callOk(zvAddonGetProperties, {path_}, 1);
  EXPECT_EQ(after["name"], "Second");
  EXPECT_EQ(after["type"], "ZORVAN Toolbox");
  EXPECT_EQ(after["ZORVANRelease"], release);
  EXPECT_EQ(modified(), before);
}

// The extension decides the content type and the part's ending; replacing leaves one part and one
// relationship of each type; Get returns padded base64 of the bytes, at the 8,192-byte read step too.
TEST_F(RecordFunctions, ScreenshotTypesAndBytes) {
  const struct {
    const char* file;
    std::size_t size;
    const char16_t* part;
    const char16_t* type;
  } cases[] = {
      {"Screen.JPG", 0, u"/metadata/primaryScreenShot.jpg", u"image/jpeg"},
      {"Screen.Png", 1, u"/metadata/primaryScreenShot.Png", u"image/png"},
      {"scan.tif", 8191, u"/metadata/primaryScreenShot.jpg", u"image/jpeg"},
      {"scan.TIFF", 8192, u"/metadata/primaryScreenShot.TIFF", u"image/tiff"},
      {"pic.bmp", 8193, u"/metadata/primaryScreenShot.bmp", u"image/bmp"},
      {"noextension", 3, u"/metadata/primaryScreenShot.jpg", u"image/jpeg"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    std::string bytes(c.size, '\0');
    for (std::size_t i = 0; i < c.size; ++i) bytes[i] = static_cast<char>(i * 131 + 7);
    zvtest::writeBytes(dir_.file(c.file), bytes);
    callOk(zvAddonSetScreenshot, {path_, dir_.file(c.file)});
    EXPECT_EQ(foundation::crypto::utils::base64Decode(callOk(zvAddonGetScreenshot, {path_}, 1).get<std::string>()),
              std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    addon::packaging::AddonPackage package(fl::i18n::from_utf8(path_));
    opc::model::Package& model = package.getPackage();
    model.open(static_cast<opc::interfaces::OpenMode>(0));
    std::vector<ustring> parts;
    for (const auto& part : model.getParts()) {
      if (part->getPartName().getName().starts_with(u"/metadata/primaryScreenShot.")) {
        parts.push_back(part->getPartName().getName());
        EXPECT_EQ(part->getContentType().toString(), c.type);
      }
    }
    EXPECT_EQ(parts, std::vector<ustring>{c.part});
    std::vector<ustring> ids;
    for (const auto& r : model.getRelationships().getRelationships()) {
      if (r.getTargetPartName().getName().starts_with(u"/metadata/primaryScreenShot.")) ids.push_back(r.getId());
    }
    EXPECT_EQ(ids, (std::vector<ustring>{u"rId100", u"rId101"}));
  }
}

TEST_F(RecordFunctions, InstructionSetsStoredUnderTheirFileNameOnceEach) {
  std::filesystem::create_directories(dir_.path() / "a");
  zvtest::writeBytes(dir_.file("a/setup.xml"), "<setup>\xE2\x82\xAC</setup>");
  zvtest::writeBytes(dir_.file("setup.xml"), "<other/>");
  callOk(zvAddonAddInstructionSet, {path_, dir_.file("a/setup.xml")});
  const std::string before = zvtest::readBytes(path_);
  EXPECT_EQ(call(zvAddonAddInstructionSet, {path_, dir_.file("setup.xml")}).key(),
            "ZVADDON_BUILTINS_ERROR_SET_INSTRUCTION_SETS");
  EXPECT_EQ(zvtest::readBytes(path_), before);
  addon::packaging::AddonPackage package(fl::i18n::from_utf8(path_));
  opc::model::Package& model = package.getPackage();
  model.open(static_cast<opc::interfaces::OpenMode>(0));
  EXPECT_TRUE(package.hasInstructionSets());
  const auto part = model.getPart(opc::model::PartName(u"/metadata/InstructionSets/setup.xml"));
  EXPECT_EQ(part->getContentType().toString(), u"application/vnd.kestrelon.zorvan.addon.instructionSet+xml");
  EXPECT_TRUE(model.hasRelationship(u"rId_IS_setup.xml"));
}

// The authors element is written when an author field is set (empty ones included), and only the
// first author is read; an absent element leaves its field.
TEST(PropertiesRecord, AuthorsElementRules) {
  addon::packaging::AddonProperties record;
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
