// The gateway's 24 functions as the host calls them. First the frame they share, as one table: count
// errors in their precedence, the structure check, a path that is not text, not-found with the path as
// given, and each function's own key with its arguments for a package that does not open; a failed call
// leaves every file as it was. Then ComputeHash. Then each record on a real package file: Get without
// the part gives the record's defaults, Get after Set what was stored; a refused Set leaves the file
// byte for byte (the records' reading and writing rules are tables in tests/metadata). Then the
// content files and the file list.
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <sstream>

#include "foundation/crypto.h"
#include "foundation/i18n.h"
#include "gateway/frame.h"
#include "gateway/zvaddon.h"
#include "metadata/addon_properties.h"
#include "metadata/license.h"
#include "package/addon_package.h"
#include "package/xml_part_type.h"
#include "support/command.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

Json configuration(Json paths, Json info) {
  return {{"zorvanPaths", paths}, {"javaClassPaths", paths}, {"infoXMLPath", info},
          {"gettingStartedDocPath", info}, {"installMapPath", info}};
}

struct Function {
  const char* name;
  qxFunction f;
  int maxOutputs;
  bool structCheck;
  const char* key;  // raised for a package that does not open (or, for Create and Hash, their failure)
  std::vector<Json> rest;  // inputs after the path that pass, so that only the package can fail; "@x": file x
  std::vector<int> leading = {0};  // the inputs the key's arguments start with, before the OPC message
};

const Function kFunctions[] = {
    {"Create", zvAddonCreate, 0, true, "CREATE", {zvtest::properties()}},
    {"SetProperties", zvAddonSetProperties, 0, true, "SET_PROPERTIES", {zvtest::properties()}},
    {"GetProperties", zvAddonGetProperties, 1, false, "GET_PROPERTIES", {}},
    {"AddFiles", zvAddonAddFiles, 0, false, "ADD_FILES", {"@file.m", "file.m"}},
    {"AddFolders", zvAddonAddFolders, 0, false, "ADD_FOLDERS", {"folder"}},
    {"ExtractAllFiles", zvAddonExtractAllFiles, 0, false, "EXTRACT_ALL_FILES", {"@out"}, {0, 1}},
    {"GetFileList", zvAddonGetFileList, 1, false, "GET_FILE_LIST", {}},
    {"SetRevisionHistory", zvAddonSetRevisionHistory, 0, true, "SET_REVISION_HISTORY", {nullptr}},
    {"GetRevisionHistory", zvAddonGetRevisionHistory, 1, false, "GET_REVISION_HISTORY", {}},
    {"SetScreenshot", zvAddonSetScreenshot, 0, false, "SET_SCREENSHOT", {"@file.m"}, {1, 0}},
    {"GetScreenshot", zvAddonGetScreenshot, 1, false, "GET_SCREENSHOT", {}},
    {"SetAppInstallList", zvAddonSetAppInstallList, 0, true, "SET_APP_INSTALL_LIST", {nullptr}},
    {"GetAppInstallList", zvAddonGetAppInstallList, 1, false, "GET_APP_INSTALL_LIST", {}},
    {"SetExamples", zvAddonSetExamples, 0, true, "SET_EXAMPLES", {nullptr}},
    {"GetExamples", zvAddonGetExamples, 1, false, "GET_EXAMPLES", {}},
    {"SetSystemRequirements", zvAddonSetSystemRequirements, 0, true, "SET_SYSTEM_REQS", {nullptr}},
    {"GetSystemRequirements", zvAddonGetSystemRequirements, 1, false, "GET_SYSTEM_REQS", {}},
    {"AddInstructionSet", zvAddonAddInstructionSet, 0, false, "SET_INSTRUCTION_SETS", {"@file.m"}},
    {"Sign", zvAddonSign, 0, false, "SIGN", {}},
    {"SetLicense", zvAddonSetLicense, 0, true, "SET_LICENSE", {{{"type", "t"}, {"text", ""}}}},
    {"GetLicense", zvAddonGetLicense, 1, false, "GET_LICENSE", {}},
    {"SetConfiguration", zvAddonSetConfiguration, 0, true, "SET_CONFIGURATION", {configuration(Json::array(), "")}},
    {"GetConfiguration", zvAddonGetConfiguration, 1, false, "GET_CONFIGURATION", {}},
    {"ComputeHash", zvAddonComputeHash, 1, false, "COMPUTE_HASH", {}},
};

std::string identifier(const zvtest::CallResult& r) { return r.error ? r.error->identifier() : "(no error)"; }

// A gateway-shaped function whose protected block throws an OPC failure without a message.
void failsWithoutMessage(int, qxArray**, int, const qxArray** inputs) {
  const ustring path = matrix::get_ustring(inputs[0]);
  zvaddon::gateway::guarded<zvaddon_builtins::zvaddon_builtins::ZVADDON_BUILTINS_ERROR_GET_LICENSE>(
      path, [] { throw opc::Exception(""); });
}

TEST(Frame, EveryFunctionFollowsTheFrame) {
  zvtest::TempDir dir;
  zvtest::writeBytes(dir.file("file.m"), "x");
  const std::string missing = dir.file("d\xC3\xA9j\xC3\xA0 \xF0\x9F\x98\x80.zvaddon");
  const std::string corrupt = dir.file("corrupt.zvaddon");
  zvtest::writeBytes(corrupt, "PK\x03\x04 not a zip archive");
  ASSERT_EQ(std::size(kFunctions), 24u);
  for (const Function& fn : kFunctions) {
    SCOPED_TRACE(fn.name);
    std::vector<Json> in{missing};
    for (const Json& j : fn.rest) in.push_back(j.is_string() && j.get<std::string>()[0] == '@' ? Json(dir.file(j.get<std::string>().substr(1))) : j);
    std::vector<Json> more = in;
    more.push_back(1);
    EXPECT_EQ(identifier(call(fn.f, {}, fn.maxOutputs + 1)), "zvhost:tooManyOutputs") << "outputs first";
    EXPECT_EQ(identifier(call(fn.f, more, fn.maxOutputs + 1)), "zvhost:tooManyOutputs") << "outputs first";
    EXPECT_EQ(identifier(call(fn.f, more, 0)), "zvhost:tooManyInputs");
    EXPECT_EQ(identifier(call(fn.f, {in.begin(), in.end() - 1}, 0)), "zvhost:notEnoughInputs");
    more.pop_back();
    more[0] = 42;
    EXPECT_EQ(identifier(call(fn.f, more, fn.maxOutputs)), "zvhost:notString") << "a path that is not text";
    if (fn.structCheck) {
      for (const Json& passes : {Json(nullptr), Json{{"$class", "cell"}, {"$dims", {0, 0}}, {"$data", Json::array()}}}) {
        EXPECT_NE(call(fn.f, {missing, passes}).key(), "ZVADDON_BUILTINS_ERROR_NON_STRUCT") << passes;
      }
      const auto r = call(fn.f, {missing, 5});
      EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_NON_STRUCT");
      EXPECT_TRUE(r.ok() || r.error->arguments().empty());
    }
    const std::string ownKey = std::string("ZVADDON_BUILTINS_ERROR_") + fn.key;
    if (fn.f == zvAddonComputeHash) {
      const auto r = call(fn.f, in, 1);
      ASSERT_EQ(r.key(), "ZVADDON_BUILTINS_FILE_NONEXISTENT");
      EXPECT_EQ(std::get<std::string>(r.error->arguments().at(0)), missing) << "narrow UTF-8 text";
      continue;
    }
    if (fn.f != zvAddonCreate) {
      const auto r = call(fn.f, in, fn.maxOutputs);
      ASSERT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_PACKAGE_NOT_FOUND");
      ASSERT_EQ(r.error->arguments().size(), 1u);
      EXPECT_EQ(std::get<ustring>(r.error->arguments()[0]), fl::i18n::from_utf8(missing));
    }
    // Create cannot meet a missing package: its failure is any creation failure.
    in[0] = fn.f == zvAddonCreate ? dir.file("no-such-folder/new.zvaddon") : corrupt;
    const auto r = call(fn.f, in, fn.maxOutputs);
    ASSERT_EQ(r.key(), ownKey);
    const auto& arguments = r.error->arguments();
    ASSERT_EQ(arguments.size(), fn.leading.size() + 1);
    for (std::size_t i = 0; i < fn.leading.size(); ++i) {
      EXPECT_EQ(std::get<ustring>(arguments[i]), fl::i18n::from_utf8(in[fn.leading[i]].get<std::string>())) << i;
    }
    EXPECT_FALSE(std::get<std::string>(arguments.back()).empty()) << "the OPC message";
    EXPECT_NE(r.error->message().find(in[0].get<std::string>()), std::string::npos) << "the catalogue's text";
  }
  EXPECT_EQ(zvtest::readBytes(corrupt), "PK\x03\x04 not a zip archive");
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"corrupt.zvaddon", "file.m"}));
  // An OPC failure without a message still gives the key both its arguments.
  const auto empty = call(failsWithoutMessage, {"p.zvaddon"});
  ASSERT_EQ(empty.key(), "ZVADDON_BUILTINS_ERROR_GET_LICENSE");
  ASSERT_EQ(empty.error->arguments().size(), 2u);
  EXPECT_EQ(std::get<std::string>(empty.error->arguments()[1]), "");
}

TEST(Frame, OnlyGatewayFunctionsHaveCLinkage) {
  const zvtest::CommandRun nm = zvtest::runCommand("nm -D --defined-only " + zvtest::shellQuoted(
                                                       std::string(ZV_BINARY_DIR) + "/src/gateway/libzvaddon.so"));
  ASSERT_EQ(nm.status, 0) << nm.output;
  std::set<std::string> c;
  std::istringstream lines(nm.output);
  for (std::string address, type, name; lines >> address >> type >> name;) {
    if (name.rfind("_Z", 0) != 0 && !std::set<std::string>{"_init", "_fini", "__bss_start", "_edata", "_end"}.count(name)) {
      c.insert(name);
    }
  }
  std::set<std::string> expected;
  for (const Function& fn : kFunctions) expected.insert(std::string("zvAddon") + fn.name);
  EXPECT_EQ(c, expected);
}

// ComputeHash against openssl, on a folder, an empty file, a sparse 1 GiB file and non-ASCII names.
TEST(ContentHash, AgreesWithOpensslForEverySize) {
  zvtest::TempDir dir;
  const struct {
    const char* name;
    std::string bytes;
    std::uintmax_t extendTo;  // sparse tail of zeros: a large file without filling the disk
  } cases[] = {
      {"empty", "", 0},
      {"one byte", "x", 0},
      {"1 GiB", "head", 1ull << 30},
      {"d\xC3\xA9j\xC3\xA0 \xF0\x9F\x98\x80.bin", std::string(3 << 20, 'q') + "tail", 0},
      {"sub/same bytes elsewhere", "x", 0},
  };
  std::filesystem::create_directory(dir.path() / "sub");
  EXPECT_TRUE(call(zvAddonComputeHash, {dir.path().string()}, 1).ok()) << "a folder passes the existence test";
  for (const auto& c : cases) {
    const std::string path = dir.file(c.name);
    zvtest::writeBytes(path, c.bytes);
    if (c.extendTo > 0) std::filesystem::resize_file(path, c.extendTo);
    const std::string ours = callOk(zvAddonComputeHash, {path}, 1).get<std::string>();
    EXPECT_EQ(ours.size(), 88u) << c.name;
    const std::string digest = "openssl dgst -sha512 -binary " + zvtest::shellQuoted(path) + " | base64 -w0";
    EXPECT_EQ(ours, zvtest::runCommand(digest).output) << c.name;
  }
}

// An N-by-1 structure array of `entries` with `fields`.
Json column(const std::vector<Json>& entries, const Json& fields) {
  return {{"$class", "struct"}, {"$dims", {entries.size(), 1}}, {"$fields", fields}, {"$data", entries}};
}
Json requirements(Json products, Json platform, Json release) {
  return {{"productDependency", std::move(products)}, {"supportPackageDependency", nullptr},
          {"platformCompatibility", std::move(platform)}, {"releaseCompatibility", std::move(release)},
          {"addonDependency", nullptr}};
}

// The text of a licence whose XML part is exactly `bytes` long, plus `extra` characters.
std::string licenceText(std::size_t bytes, std::size_t extra) {
  addon::packaging::AddonLicense one(zvhost::json::toOwnedArray({{"type", "big"}, {"text", "x"}}).get());
  return std::string(bytes - one.getAsXMLString().size() + 1 + extra, 'x');
}

class PackageFunctions : public ::testing::Test {
 protected:
  void SetUp() override { callOk(zvAddonCreate, {path_, zvtest::properties()}); }
  // The package model of path_, opened for reading.
  addon::packaging::AddonPackage& opened() {
    package_.emplace(fl::i18n::from_utf8(path_));
    package_->getPackage().open(static_cast<opc::interfaces::OpenMode>(0));
    return *package_;
  }
  // One part under `prefix`, named `name` of `type`; the root relationships to parts under `prefix`
  // have the ids `ids`.
  void expectOnePart(std::u16string_view prefix, const ustring& name, const ustring& type, const std::vector<ustring>& ids) {
    opc::model::Package& model = opened().getPackage();
    std::vector<ustring> names, relationships;
    for (const auto& part : model.getParts()) {
      if (!part->getPartName().getName().starts_with(prefix)) continue;
      names.push_back(part->getPartName().getName());
      EXPECT_EQ(part->getContentType().toString(), type);
    }
    for (const auto& r : model.getRelationships().getRelationships()) {
      if (r.getTargetPartName().getName().starts_with(prefix)) relationships.push_back(r.getId());
    }
    EXPECT_EQ(names, std::vector<ustring>{name});
    EXPECT_EQ(relationships, ids);
  }
  zvtest::TempDir dir_;
  std::string path_ = dir_.file("package.zvaddon");
  std::optional<addon::packaging::AddonPackage> package_;
};

TEST_F(PackageFunctions, GetGivesDefaultsThenWhatSetStored) {
  const Json kCategory = {"name", "examples"}, kRevision = {"date", "version", "description"};
  const Json kApp = {"name", "guid", "relativePath", "installByDefault"};
  const Json example = {{"name", "lowpass"}, {"type", "script"}, {"source", "demo/lp.m"},
                        {"main", "true"},    {"thumbnail", ""},   {"images", nullptr}};
  const Json product = {{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}};
  const Json revision = {{"date", "2024-01-02"}, {"version", "1.0"}, {"description", "first"}};
  const Json app = {{"name", "v"}, {"guid", "0f8f"}, {"relativePath", "v.app"}, {"installByDefault", "false"}};
  zvtest::writeBytes(dir_.file("shot.png"), std::string("\x89PNG\0\xFF", 6));
  // Set changes title, description, version and creator, never the type, the release (the running
  // host's) or the modification time.
  Json properties = zvtest::properties("Second name", "Something Else");
  properties["ZORVANRelease"] = "R1999a";
  Json asRead = zvtest::properties("Second name");
  asRead["ZORVANRelease"] = callOk(zvAddonGetProperties, {path_}, 1)["ZORVANRelease"];
  const auto modified = [&] {
    addon::packaging::AddonProperties record;
    opened().getAddonProperties(record);
    return record.lastModified;
  };
  const auto created = modified();
  ASSERT_TRUE(created.has_value());
  const struct {
    const char* name;
    qxFunction set, get;
    std::optional<Json> defaults;  // Get before any Set
    Json stored;                   // given to Set
    Json returned;                 // expected from Get; null: what was stored
  } cases[] = {
      {"properties", zvAddonSetProperties, zvAddonGetProperties, std::nullopt, properties, asRead},
      {"licence", zvAddonSetLicense, zvAddonGetLicense, Json{{"type", ""}, {"text", ""}},
       {{"type", "MIT"}, {"text", "line one\r\nline two \xE2\x82\xAC <&> ]]>\n"}}, nullptr},
      {"licence of the largest part read back", zvAddonSetLicense, zvAddonGetLicense, std::nullopt,
       {{"type", "big"}, {"text", licenceText(16u << 20, 0)}}, nullptr},
      {"requirements", zvAddonSetSystemRequirements, zvAddonGetSystemRequirements,
       requirements(nullptr, {{"win", "true"}, {"linux", "true"}, {"mac", "true"}, {"ZORVANOnline", "true"}}, nullptr),
       requirements(column({product, product}, {"name", "version", "identifier"}),
                    {{"win", "true"}, {"linux", "false"}, {"mac", "true"}, {"ZORVANOnline", "false"}},
                    {{"start", "R2019b"}, {"end", "R2024a"}}),
       nullptr},
      {"configuration", zvAddonSetConfiguration, zvAddonGetConfiguration,
       configuration({{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}}, nullptr),
       configuration(Json::array({"a", "b/c"}), "doc/info.xml"), nullptr},
      {"examples", zvAddonSetExamples, zvAddonGetExamples, column({}, kCategory),
       column({{{"name", "Filters"}, {"examples", example}}, {{"name", "More"}, {"examples", example}}}, kCategory),
       nullptr},
      {"revisions", zvAddonSetRevisionHistory, zvAddonGetRevisionHistory, column({}, kRevision),
       column({revision, revision}, kRevision), nullptr},
      {"apps", zvAddonSetAppInstallList, zvAddonGetAppInstallList, column({}, kApp), column({app, app}, kApp), nullptr},
      {"screenshot", zvAddonSetScreenshot, zvAddonGetScreenshot, "", dir_.file("shot.png"), "iVBORwD/"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.defaults) {
      EXPECT_EQ(callOk(c.get, {path_}, 1), *c.defaults);
    }
    callOk(c.set, {path_, c.stored});
    EXPECT_EQ(callOk(c.get, {path_}, 1), c.returned.is_null() ? c.stored : c.returned);
  }
  EXPECT_EQ(modified(), created);
  // Each record part: its name, its content type, and the root's one relationship of its type.
  const opc::model::Package& model = opened().getPackage();
  for (const auto& [part, type] : std::vector<std::pair<ustring, ustring>>{
           {u"addonProperties", u"properties"}, {u"license", u"license"}, {u"systemRequirements", u"systemRequirements"},
           {u"configuration", u"configuration"}, {u"examples", u"examples"}, {u"revisionHistory", u"revisionHistory"},
           {u"applications", u"applications"}}) {
    const opc::model::PartName name(u"/metadata/" + part + u".xml");
    EXPECT_EQ(model.getPart(name)->getContentType().toString(), u"application/vnd.kestrelon.zorvan.addon." + type + u"+xml");
    const auto related = model.getRelationships().getRelationshipsByType(
        addon::packaging::schemaURI(u"relationships/" + part));
    ASSERT_EQ(related.size(), 1u) << fl::i18n::to_utf8(part);
    EXPECT_EQ(related[0].getTargetPartName(), name);
  }
}

// Refusals inside the protected block: the host's conversion, a type Create does not know, a part
// too large to read back, a build time that cannot be used. None changes a file.
TEST_F(PackageFunctions, RefusedSetsLeaveTheFileByteForByte) {
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

// The parts the screenshot and instruction sets make: the extension decides the screenshot's content
// type and ending; replacing leaves one part and its two relationships; Get returns the bytes, at
// the 8,192-byte read step too. An instruction set is stored under its file name (once: the tool's
// build_failures.t).
TEST_F(PackageFunctions, ScreenshotAndInstructionSetParts) {
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
    expectOnePart(u"/metadata/primaryScreenShot.", c.part, c.type, {u"rId100", u"rId101"});
  }
  zvtest::writeBytes(dir_.file("setup.xml"), "<setup>\xE2\x82\xAC</setup>");
  callOk(zvAddonAddInstructionSet, {path_, dir_.file("setup.xml")});
  expectOnePart(u"/metadata/InstructionSets/", u"/metadata/InstructionSets/setup.xml",
                u"application/vnd.kestrelon.zorvan.addon.instructionSet+xml", {u"rId_IS_setup.xml"});
  EXPECT_TRUE(package_->hasInstructionSets());
}

// Content calls on a new package and the file list after them; inputs of other classes, a cell paired
// with a text and empty lists are deliberate silences: nothing raised, the package left byte for byte.
// A batch with a missing file adds none of it.
TEST_F(PackageFunctions, ContentCallsAndTheFileListAfterThem) {
  const std::string missing = dir_.file("no-such.zvaddon"), a = dir_.file("a.m"), b = dir_.file("b.m");
  zvtest::writeBytes(a, "a");
  zvtest::writeBytes(b, "b");
  const Json emptyCell = {{"$class", "cell"}, {"$dims", {0, 0}}, {"$data", Json::array()}};
  const Json noFiles = {{"$class", "cell"}, {"$dims", {1, 0}}, {"$data", Json::array()}};
  const Json column = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {a, b}}};
  const Json columnPaths = {{"$class", "cell"}, {"$dims", {2, 1}}, {"$data", {"c/a.m", "c/b.m"}}};
  const struct {
    const char* name;
    std::vector<std::pair<qxFunction, std::vector<Json>>> calls;
    std::vector<std::string> listAfter;  // empty: the package is as it was
  } cases[] = {
      {"NoContent", {}, {}},
      {"TwoCells", {{zvAddonAddFiles, {path_, Json{a, b}, Json{"p/a.m", "q.m"}}}}, {"/p/a.m", "/q.m"}},
      {"CellsOfAnyShape", {{zvAddonAddFiles, {path_, column, columnPaths}}}, {"/c/a.m", "/c/b.m"}},
      {"CellAndText", {{zvAddonAddFiles, {path_, Json{a}, "x.m"}}}, {}},
      {"Numbers", {{zvAddonAddFiles, {path_, 1, 2}}}, {}},
      {"EmptyCellsMissingPackage", {{zvAddonAddFiles, {missing, emptyCell, emptyCell}}}, {}},
      {"FolderText", {{zvAddonAddFolders, {path_, "f g"}}}, {"/f g"}},
      {"FolderCell", {{zvAddonAddFolders, {path_, Json{"f", "g/h"}}}}, {"/f", "/g/h"}},
      {"FoldersAlreadyThere", {{zvAddonAddFolders, {path_, Json{"e", "e/f", "e"}}}}, {"/e/f"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove(path_);
    callOk(zvAddonCreate, {path_, zvtest::properties()});
    const std::string before = zvtest::readBytes(path_);
    for (const auto& [f, inputs] : c.calls) callOk(f, inputs);
    EXPECT_FALSE(std::filesystem::exists(missing));
    EXPECT_EQ(zvtest::readBytes(path_) == before, c.listAfter.empty()) << "changed exactly when something was added";
    EXPECT_EQ(callOk(zvAddonGetFileList, {path_}, 1), c.listAfter.empty() ? noFiles : Json(c.listAfter));
  }
  callOk(zvAddonAddFiles, {path_, a, "first.m"});
  const std::string before = zvtest::readBytes(path_);
  const zvtest::CallResult r = call(zvAddonAddFiles, {path_, Json{a, dir_.file("nope.m")}, Json{"b.m", "c.m"}});
  EXPECT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_ADD_FILES");
  EXPECT_NE(std::get<std::string>(r.error->arguments().back()).find("nope.m"), std::string::npos) << r.error->message();
  EXPECT_EQ(zvtest::readBytes(path_), before);
}

}  // namespace
