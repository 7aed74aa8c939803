// The frame all 24 gateway functions share, as one table: count errors in their precedence, the
// structure check, a path that is not text, not-found with the path as given, and each function's own
// key with its arguments for a package that does not open; a failed call leaves every file as it was.
// Then ComputeHash.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "foundation/i18n.h"
#include "gateway/frame.h"
#include "gateway/zvaddon.h"
#include "support/command.h"
#include "support/gateway_call.h"

namespace {

using zvtest::call;
using zvtest::callOk;
using zvtest::Json;

const Json kConfiguration = {{"zorvanPaths", Json::array()}, {"javaClassPaths", Json::array()}, {"infoXMLPath", ""},
                              {"gettingStartedDocPath", ""}, {"installMapPath", ""}};

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
    {"SetConfiguration", zvAddonSetConfiguration, 0, true, "SET_CONFIGURATION", {kConfiguration}},
    {"GetConfiguration", zvAddonGetConfiguration, 1, false, "GET_CONFIGURATION", {}},
    {"ComputeHash", zvAddonComputeHash, 1, false, "COMPUTE_HASH", {}},
};

std::string identifier(const zvtest::CallResult& r) { return r.error ? r.error->identifier() : "(no error)"; }

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
}

// A gateway-shaped function whose protected block throws an OPC failure without a message.
void failsWithoutMessage(int, qxArray**, int, const qxArray** inputs) {
  const ustring path = matrix::get_ustring(inputs[0]);
  zvaddon::gateway::guarded<zvaddon_builtins::zvaddon_builtins::ZVADDON_BUILTINS_ERROR_GET_LICENSE>(
      path, [] { throw opc::Exception(""); });
}

TEST(Frame, AnOpcFailureWithoutMessageStillCarriesTwoArguments) {
  const auto r = call(failsWithoutMessage, {"p.zvaddon"});
  ASSERT_EQ(r.key(), "ZVADDON_BUILTINS_ERROR_GET_LICENSE");
  ASSERT_EQ(r.error->arguments().size(), 2u);
  EXPECT_EQ(std::get<std::string>(r.error->arguments()[1]), "");
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
std::string opensslDigest(const std::string& path) {
  return zvtest::runCommand("openssl dgst -sha512 -binary " + zvtest::shellQuoted(path) + " | base64 -w0").output;
}

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
    EXPECT_EQ(ours, opensslDigest(path)) << c.name;
  }
}

}  // namespace
