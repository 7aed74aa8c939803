// Faults while a call rewrites a package, each leaving a whole one: SIGKILL at any moment (old or new,
// and it opens; ZV_KILL_ROUNDS rounds per call), a full disk (the call's key and the system's reason,
// the package as it was; a tmpfs mounted as root), two writers while this process reads whole licences.
// Then: a small hostile package cannot make reading take gigabytes: XML too large or nested too deep
// each fails with the call's key and a message naming the bound (too many items: the ZIP reader's table).
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <thread>

#include "gateway/zvaddon.h"
#include "opc/opc_test_support.h"
#include "support/gateway_call.h"

namespace zvtest {
namespace {

// A package holding a large content file and system requirements.
void makePackage(const std::string& path, const std::string& content, std::size_t size) {
  writeBytes(content, opc::test::patternBytes(size, 7));
  callOk(zvAddonCreate, {path, properties()});
  callOk(zvAddonAddFiles, {path, Json{content}, Json{"data/big.bin"}});
  const Json requirements = {
      {"productDependency", Json::array({{{"name", "Signal"}, {"version", "9.1"}, {"identifier", "SG"}}})},
      {"platformCompatibility", {{"win", "true"}, {"linux", "true"}, {"mac", "false"}, {"ZORVANOnline", "true"}}},
      {"releaseCompatibility", {{"start", "R2019b"}, {"end", "R2024a"}}}};
  callOk(zvAddonSetSystemRequirements, {path, requirements});
}

// A call that rewrites the package, and how to recognise its result.
struct Write {
  const char* name;
  const char* key;  // its error key
  std::function<CallResult(const std::string& package, const std::string& newFile)> run;
  std::function<bool(const std::string& package)> done;
};

std::vector<Write> writes() {
  return {
      {"AddFiles", "ZVADDON_BUILTINS_ERROR_ADD_FILES",
       [](const std::string& p, const std::string& f) { return call(zvAddonAddFiles, {p, Json{f}, Json{"data/new.bin"}}); },
       [](const std::string& p) { return opc::test::rawItems(p).contains("fsroot/data/new.bin"); }},
      {"SetRecord", "ZVADDON_BUILTINS_ERROR_SET_SYSTEM_REQS",
       [](const std::string& p, const std::string&) {
         const Json changed = {{"releaseCompatibility", {{"start", "R2019b"}, {"end", "R2030b"}}}};
         return call(zvAddonSetSystemRequirements, {p, changed});
       },
       [](const std::string& p) {
         const CallResult r = call(zvAddonGetSystemRequirements, {p}, 1);
         return r.ok() && r.outputs.at(0)["releaseCompatibility"]["end"] == "R2030b";
       }},
      {"Sign", "ZVADDON_BUILTINS_ERROR_SIGN",
       [](const std::string& p, const std::string&) { return call(zvAddonSign, {p}); },
       [](const std::string& p) { return opc::test::rawItems(p).contains("_xmlsignatures/sig1.xml"); }},
  };
}

// Every reading call succeeds on the package.
void expectOpensCleanly(const std::string& path) {
  for (qxFunction f : {zvAddonGetProperties, zvAddonGetFileList, zvAddonGetSystemRequirements}) {
    const CallResult r = call(f, {path}, 1);
    EXPECT_TRUE(r.ok()) << r.key() << ": " << (r.error ? r.error->message() : "");
  }
}

TEST(KillTest, EveryKillLeavesTheOldOrTheNewPackage) {
  TempDir dir;
  const std::string package = dir.file("pkg.zvaddon");
  const std::string newFile = dir.file("new.bin");
  makePackage(package, dir.file("big.bin"), 12u << 20);
  writeBytes(newFile, opc::test::patternBytes(4u << 20, 11));
  const std::string old = readBytes(package);

  for (const Write& write : writes()) {
    SCOPED_TRACE(write.name);
    // How long an uninterrupted call takes sets the range of kill moments.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(write.run(package, newFile).ok());
    const auto duration = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(write.done(package));

    const char* rounds = std::getenv("ZV_KILL_ROUNDS");
    const int n = rounds != nullptr ? std::max(3, std::atoi(rounds)) : 8;
    int oldOutcomes = 0, newOutcomes = 0;
    for (int round = 0; round < n; ++round) {
      SCOPED_TRACE(round);
      writeBytes(package, old);
      const pid_t child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) ::_exit(write.run(package, newFile).ok() ? 0 : 1);
      // Kill moments spread from at once to past the end; the last round is never killed.
      if (round + 1 < n) {
        std::this_thread::sleep_for(duration * round * 11 / (10 * (n - 1)));
        ::kill(child, SIGKILL);
      }
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << "the call failed on its own";

      const bool unchanged = readBytes(package) == old;
      (unchanged ? oldOutcomes : newOutcomes)++;
      EXPECT_TRUE(unchanged || write.done(package)) << "neither the old package nor the new one";
      expectOpensCleanly(package);
    }
    EXPECT_GT(oldOutcomes, 0) << "no kill landed before the package was replaced";
    EXPECT_GT(newOutcomes, 0);
    // A kill between naming the new file and the rename can leave it; the next write removes it.
    writeBytes(package, old);
    ASSERT_TRUE(write.run(package, newFile).ok());
    EXPECT_EQ(dir.list(), (std::vector<std::string>{"big.bin", "new.bin", "pkg.zvaddon"}));
  }
}

TEST(KillTest, TemporariesOfDeadWritersGoWithTheNextWrite) {
  TempDir dir;
  const std::string package = dir.file("pkg.zvaddon");
  callOk(zvAddonCreate, {package, properties()});
  const pid_t dead = ::fork();
  if (dead == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(dead, nullptr, 0), dead);
  const std::string deadPid = std::to_string(dead);
  // Each name, and whether the next write removes it: a dead writer's temporaries go; a live writer's,
  // another package's and other files stay.
  const std::pair<std::string, bool> cases[] = {
      {".pkg.zvaddon." + deadPid + ".0.tmp", true}, {".pkg.zvaddon." + deadPid + ".a1B2c3.tmp", true},
      {".pkg.zvaddon.1.0.tmp", false}, {".pkg.zvaddon.other." + deadPid + ".0.tmp", false},
      {".pkg.zvaddon." + deadPid + ".0.tmp.keep", false},
  };
  for (const auto& [name, removed] : cases) writeBytes(dir.file(name), "partial");
  callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", "granted"}}});
  for (const auto& [name, removed] : cases) EXPECT_EQ(std::filesystem::exists(dir.file(name)), !removed) << name;
}

class FullDiskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
    if (::mount("tmpfs", mount_.path().c_str(), "tmpfs", 0, "size=8m") != 0) GTEST_SKIP() << "no tmpfs: " << std::strerror(errno);
    mounted_ = true;
  }
  void TearDown() override {
    if (mounted_) ::umount2(mount_.path().c_str(), MNT_DETACH);
  }
  TempDir mount_;
  TempDir outside_;  // the new content file lives off the small file system
  bool mounted_ = false;
};

TEST_F(FullDiskTest, AWriteWithoutSpaceFailsCleanly) {
  const std::string package = (mount_.path() / "pkg.zvaddon").string();
  const std::string newFile = outside_.file("new.bin");
  makePackage(package, outside_.file("big.bin"), 2u << 20);
  writeBytes(newFile, opc::test::patternBytes(1u << 20, 5));
  const std::string old = readBytes(package);
  // Less room than one copy of the package: every rewrite must run out.
  const auto free = std::filesystem::space(mount_.path()).available;
  ASSERT_GT(free, 512u << 10);
  writeBytes((mount_.path() / "filler").string(), std::string(free - (512u << 10), 'x'));

  for (const Write& write : writes()) {
    SCOPED_TRACE(write.name);
    const CallResult r = write.run(package, newFile);
    ASSERT_EQ(r.key(), write.key);
    EXPECT_NE(r.error->message().find("No space left on device"), std::string::npos) << r.error->message();
    EXPECT_EQ(readBytes(package), old);
    EXPECT_EQ(mount_.list(), (std::vector<std::string>{"filler", "pkg.zvaddon"}));
  }
  // With room again, the same package takes the change.
  std::filesystem::remove(mount_.path() / "filler");
  EXPECT_TRUE(writes().front().run(package, newFile).ok());
}

constexpr int kWrites = 100;

std::string licenceText(char writer, int i) { return std::string(1, writer) + " " + std::to_string(i); }

TEST(ConcurrentWritersTest, ReadersSeeOnlyWholePackages) {
  TempDir dir;
  const std::string package = dir.file("pkg.zvaddon");
  makePackage(package, dir.file("big.bin"), 256u << 10);
  callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", licenceText('A', -1)}}});

  std::vector<pid_t> writers;
  for (const char writer : {'A', 'B'}) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    int failures = 0;
    for (int i = 0; child == 0 && i < kWrites; ++i) {
      failures += call(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", licenceText(writer, i)}}}).ok() ? 0 : 1;
    }
    if (child == 0) ::_exit(failures == 0 ? 0 : 1);
    writers.push_back(child);
  }

  std::set<std::string> whole{licenceText('A', -1)};
  for (int i = 0; i < kWrites; ++i) whole.insert({licenceText('A', i), licenceText('B', i)});
  int reads = 0;
  std::size_t running = writers.size();
  while (running > 0) {
    const CallResult r = call(zvAddonGetLicense, {package}, 1);
    ASSERT_TRUE(r.ok()) << "read " << reads << ": " << r.key() << " " << r.error->message();
    const std::string text = r.outputs.at(0)["text"];
    ASSERT_TRUE(whole.contains(text)) << text;
    ++reads;
    for (pid_t& writer : writers) {
      int status = 0;
      if (writer > 0 && ::waitpid(writer, &status, WNOHANG) == writer) {
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a write failed";
        writer = 0;
        --running;
      }
    }
  }
  EXPECT_GT(reads, 1);
  const std::string last = callOk(zvAddonGetLicense, {package}, 1)["text"];
  EXPECT_TRUE(last == licenceText('A', kWrites - 1) || last == licenceText('B', kWrites - 1)) << last;
  expectOpensCleanly(package);
  EXPECT_EQ(dir.list(), (std::vector<std::string>{"big.bin", "pkg.zvaddon"}));
}

// Each gives an entry's new bytes from its old ones. The document with `padding` bytes of white space
// before its end tag: still valid, only large.
auto padded(std::size_t padding) {
  return [=](const std::string& xml) {
    const std::size_t end = xml.rfind("</");
    return xml.substr(0, end) + std::string(padding, ' ') + xml.substr(end);
  };
}

auto nested(int depth, const std::string& root) {
  return [=](const std::string&) {
    std::string xml = root;
    for (int i = 0; i < depth; ++i) xml += "<a>";
    for (int i = 0; i < depth; ++i) xml += "</a>";
    return xml + "</" + root.substr(1, root.find(' ') - 1) + ">";
  };
}

const std::string kLicense = R"(<license xmlns="https://schemas.zvaddon.org/zorvan/addon/2014/license">)";
const std::string kRels = R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)";

TEST(ReadLimitsTest, HostileXmlFailsWithTheBoundNamed) {
  zvtest::TempDir dir;
  using Read = std::pair<qxFunction, const char*>;  // the reading call and its error key
  const Read license{zvAddonGetLicense, "ZVADDON_BUILTINS_ERROR_GET_LICENSE"};
  const Read properties{zvAddonGetProperties, "ZVADDON_BUILTINS_ERROR_GET_PROPERTIES"};
  const struct {
    const char* name;
    std::string entry;  // replaced, deflated, by bytes(its old bytes)
    std::function<std::string(const std::string& old)> bytes;
    Read read;
    const char* message;
  } cases[] = {
      {"MetadataPartTooLarge", "metadata/license.xml", padded(17u << 20), license, "exceeds"},
      {"MetadataPartTooDeep", "metadata/license.xml", nested(100000, kLicense), license, "nest deeper"},
      {"CorePropertiesTooLarge", "docProps/core.xml", padded(17u << 20), properties, "exceeds"},
      {"RelationshipsTooDeep", "_rels/.rels", nested(1000, kRels), properties, "nest deeper"},
      // Opening parses content types and relationships up to a share per item, not 64 MiB each.
      {"RelationshipsBeyondTheirShare", "_rels/.rels", padded(20u << 20), properties, "exceed"},
      // (The file list reads item names only, never the content types.)
      {"ContentTypesBeyondTheirShare", "[Content_Types].xml", padded(20u << 20), properties, "exceed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string package = dir.file(std::string(c.name) + ".zvaddon");
    zvtest::callOk(zvAddonCreate, {package, zvtest::properties()});
    zvtest::callOk(zvAddonSetLicense, {package, {{"type", "MIT"}, {"text", "granted"}}});
    std::vector<std::pair<std::string, std::string>> rewritten;
    for (const auto& [name, item] : opc::test::rawItems(package)) {
      rewritten.emplace_back(name, name == c.entry ? c.bytes(item.text) : item.text);
    }
    opc::test::writeZip(package, rewritten);
    ASSERT_LT(std::filesystem::file_size(package), 1u << 20) << "not a small package";
    const zvtest::CallResult r = zvtest::call(c.read.first, {package}, 1);
    ASSERT_EQ(r.key(), c.read.second);
    EXPECT_NE(r.error->message().find(c.message), std::string::npos) << r.error->message();
  }
}

}  // namespace
}  // namespace zvtest
