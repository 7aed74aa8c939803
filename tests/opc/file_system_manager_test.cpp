#include "opc/kqservices/file_system_manager.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <string_view>

#include "file_system_test_support.h"
#include "opc/exception.h"
#include "opc/model/content_type.h"
#include "package_test_support.h"

namespace opc::kqservices {
namespace {

using namespace opc::test;

// Names a local file system allows and a part name cannot hold as they are.
const std::vector<std::string> kAwkwardNames = {
    "plain.m", "with space.txt", "#hash", "100%", "percent%41", "[bracket]", "a&b;c=d", "trailing.", "...",
    "_rels", "x.rels", "caf\xC3\xA9", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt", "\xF0\x9F\x98\x80",
    "ab:c", "quote'and\"double", "tilde~", "question?", "colon:", "!", "nb\xC2\xA0sp", "ideo\xE3\x80\x80space",
    "tab\there", "ctl\x01", "line\xE2\x80\xA8sep", "c1\xC2\x85", "ends with space ",
};

// After percent-decoding (as some readers do before parsing a URI), a character a URI path cannot
// hold would make such readers refuse the package.
bool uriSafeOnceDecoded(const ustring& segment) {
  for (const char16_t c : model::PartName::decodeSegment(segment)) {
    const bool ascii = c < 0x80;
    if (ascii && !(std::isalnum(c) || std::string_view("-._~!$&'()*+,;=:@").find(static_cast<char>(c)) !=
                                          std::string_view::npos)) {
      return false;
    }
    if (!ascii && (c <= 0x9F || c == 0xA0 || c == 0x3000 || c == 0x2028 || c == 0x1680)) return false;
  }
  return true;
}

TEST(FileSystemNamesTest, EveryNameRoundTripsThroughAValidSegment) {
  std::set<ustring> segments;
  for (const std::string& name : kAwkwardNames) {
    SCOPED_TRACE(name);
    const ustring segment = FileSystemManager::encodeName(u16(name));
    EXPECT_NO_THROW(model::PartName(u"/fsroot/" + segment + u"/x"));
    EXPECT_NO_THROW(model::PartName(u"/fsroot/" + segment));
    EXPECT_FALSE(model::PartName(u"/fsroot/a/" + segment).isRelationshipsPartName());
    EXPECT_EQ(u8(FileSystemManager::decodeName(segment)), name);
    EXPECT_TRUE(uriSafeOnceDecoded(segment)) << u8(segment);
    EXPECT_TRUE(segments.insert(segment).second) << "two names share the segment " << u8(segment);
  }
}

class FileSystemManagerTest : public ::testing::Test {
 protected:
  struct Open {
    Open(const ustring& path, interfaces::OpenMode mode) : session(path, mode), manager(session.package, {}) {}
    Session session;
    FileSystemManager manager;
  };

  std::unique_ptr<Open> open(interfaces::OpenMode mode) { return std::make_unique<Open>(package, mode); }

  // Every path name below the root, depth first, folders before their content.
  static std::vector<std::string> walk(const FileSystemManager& manager) {
    std::vector<std::string> out;
    std::function<void(const FileSystemEntry&)> visit = [&](const FileSystemEntry& folder) {
      for (const FileSystemEntry& child : manager.getChildren(folder)) {
        out.push_back(u8(child.getPathName()) + (child.isFile() ? "" : "/"));
        visit(child);
      }
    };
    visit(manager.getRoot());
    return out;
  }

  // Adds every file and empty folder of `root` with its path as the name inside the add-on.
  static void addTree(FileSystemManager& manager, const std::filesystem::path& root, const TreeSnapshot& tree) {
    for (const auto& [relative, file] : tree.files) {
      (void)manager.addFile(u16((root / relative).string()), u16(relative),
                            TransformMode::Encode);
    }
    for (const auto& [relative, empty] : tree.folders) {
      if (empty) (void)manager.createFolder(u16(relative.substr(0, relative.size() - 1)));
    }
  }

  ScratchDir dir;
  ustring package = dir.ufile("pkg.zvaddon");
  std::filesystem::path source = dir.path() / "source";
  std::filesystem::path destination = dir.path() / "destination";

  void SetUp() override {
    Session s(package, interfaces::OpenMode::Create);
    s.package.close();
    writeFile(dir.file("one.txt"), "one");
  }
};

// Names, bytes (empty, above the whole-file limit), times and executable bits come back as they were.
TEST_F(FileSystemManagerTest, TreeRoundTripsWithNamesBytesTimesAndExecutableBits) {
  // Times outside DOS time's 1980..2107, before 1970, with sub-second parts in its 100 ns steps.
  const std::vector<std::pair<std::int64_t, std::uint32_t>> times = {
      {1700000000, 123456700}, {-315619200, 0}, {7258118400, 999999900}, {315532800, 0}, {4354819199, 500}};
  std::size_t i = 0;
  for (const std::string& name : kAwkwardNames) {
    const auto [seconds, nanos] = times[i % times.size()];
    plantFile(source, name, TreeFile{patternBytes(100 + i * 37, static_cast<unsigned>(i)), seconds, nanos, i % 3 == 0});
    plantFile(source, "nested/" + name + "/deeper/file " + std::to_string(i),
              TreeFile{patternBytes(i, static_cast<unsigned>(i + 99)), seconds + 1, nanos, i % 2 == 0});
    ++i;
  }
  plantFile(source, "nested/_rels/inner.rels", TreeFile{"<Relationships/>", 1500000000, 0, false});
  plantFile(source, "big.bin", TreeFile{patternBytes(3 << 20, 7), 1600000000, 0, false});
  plantFile(source, "empty file", TreeFile{"", 1400000000, 0, true});
  for (int k = 0; k < 70; ++k) {  // more files in one folder than a worker takes at once
    plantFile(source, "crowd/c" + std::to_string(k), TreeFile{std::string(50 + k, 'c'), 1600000000 + k, 0, k % 2 == 0});
  }
  std::filesystem::create_directories(source / "empty");
  std::filesystem::create_directories(source / "nested" / "empty #2" / "empty.");
  const TreeSnapshot original = snapshot(source);

  {
    auto s = open(interfaces::OpenMode::Modify);
    addTree(s->manager, source, original);
    s->session.package.close();
  }
  auto s = open(interfaces::OpenMode::Read);
  std::vector<std::string> expected;
  for (const auto& [relative, file] : original.files) expected.push_back("/" + relative);
  for (const auto& [relative, empty] : original.folders) expected.push_back("/" + relative);
  std::vector<std::string> listed = walk(s->manager);
  std::sort(listed.begin(), listed.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(listed, expected);

  // Every number of workers writes the same tree.
  for (const char* threads : {"1", "2", "4"}) {
    SCOPED_TRACE(threads);
    ::setenv("ZVADDON_THREADS", threads, 1);
    const std::filesystem::path out = destination / threads;
    s->manager.extractAll(u16(out.string()), RestoreMode::Attributes, TransformMode::Encode, ReplaceMode::Never);
    ::unsetenv("ZVADDON_THREADS");
    EXPECT_EQ(snapshot(out), original);
  }
}

// Each case: what is in the add-on first, then one operation that must fail with the given error and
// change nothing.
TEST_F(FileSystemManagerTest, ConflictsAndBadPathsAreErrorsThatChangeNothing) {
  enum class Kind { AlreadyExists, Other };
  struct Case {
    const char* name;
    std::vector<std::pair<bool, ustring>> before;  // (is file, path)
    bool addAsFile;
    ustring path;
    Kind kind;
    const char* fragment;
  };
  const std::vector<Case> cases = {
      {"SameFileTwice", {{true, u"a/b.m"}}, true, u"/a/b.m", Kind::AlreadyExists, "/a/b.m"},
      {"FileOverFolder", {{true, u"a/b.m"}}, true, u"a", Kind::AlreadyExists, "/a"},
      {"EmptyFolderTwice", {{false, u"a/b"}}, false, u"a/b", Kind::AlreadyExists, "/a/b"},
      {"FileNameDiffersInCase", {{true, u"Readme.txt"}}, true, u"README.txt", Kind::Other, "/Readme.txt"},
      {"FolderNameDiffersInCase", {{true, u"Dir/a.m"}}, true, u"dir/b.m", Kind::Other, "/Dir"},
      {"DotDot", {}, true, u"a/../b.m", Kind::Other, "'..'"},
      {"Nul", {}, true, ustring(u"a\0b", 3), Kind::Other, "NUL"},
      {"NameTooLong", {}, true, ustring(256, u'x'), Kind::Other, "255 bytes"},
      {"UnpairedSurrogate", {}, true, ustring(1, char16_t(0xD800)), Kind::Other, "surrogate"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    {
      Session s(package, interfaces::OpenMode::Create);
      FileSystemManager manager(s.package, {});
      for (const auto& [isFile, path] : c.before) {
        if (isFile) {
          (void)manager.addFile(dir.ufile("one.txt"), path, TransformMode::Encode);
        } else {
          (void)manager.createFolder(path);
        }
      }
      s.package.close();
    }
    auto s = open(interfaces::OpenMode::Modify);
    const std::vector<std::string> before = walk(s->manager);
    const std::size_t parts = s->session.package.getPartCount();
    try {
      if (c.addAsFile) {
        (void)s->manager.addFile(dir.ufile("one.txt"), c.path, TransformMode::Encode);
      } else {
        (void)s->manager.createFolder(c.path);
      }
      ADD_FAILURE() << "no error";
    } catch (const Exception& e) {
      const bool alreadyExists = dynamic_cast<const FileSystemEntryAlreadyExists*>(&e) != nullptr;
      EXPECT_EQ(alreadyExists, c.kind == Kind::AlreadyExists) << e.what();
      EXPECT_NE(std::string(e.what()).find(c.fragment), std::string::npos) << e.what();
    }
    EXPECT_EQ(walk(s->manager), before);
    EXPECT_EQ(s->session.package.getPartCount(), parts);
  }
}

// An empty folder is a part of its own until something goes into it, and comes back when that fails.
TEST_F(FileSystemManagerTest, EmptyFolderIsOnePartThatGivesWayToContent) {
  const model::ContentType folderType(FileSystemManager::getFolderContentType());
  auto folderParts = [&](const model::Package& p) {
    std::vector<std::string> names;
    for (const auto& part : p.getParts()) {
      if (part->getContentType() == folderType) names.push_back(u8(part->getPartName().getName()));
    }
    return names;
  };
  {
    auto s = open(interfaces::OpenMode::Modify);
    (void)s->manager.createFolder(u"a/b c");
    (void)s->manager.createFolder(u"a/b c/d.");
    (void)s->manager.createFolder(u"x");
    EXPECT_EQ(folderParts(s->session.package), (std::vector<std::string>{"/fsroot/a/b:20c/d.:", "/fsroot/x"}));
    s->session.package.close();
  }
  {
    auto s = open(interfaces::OpenMode::Modify);
    EXPECT_EQ(walk(s->manager), (std::vector<std::string>{"/a/", "/a/b c/", "/a/b c/d./", "/x/"}));
    EXPECT_THROW((void)s->manager.addFile(dir.ufile("missing"), u"x/f.txt", TransformMode::Encode), Exception);
    EXPECT_THROW((void)s->manager.addFile(dir.ufile("one.txt"), u"x/f g", TransformMode::None), Exception);
    EXPECT_EQ(folderParts(s->session.package), (std::vector<std::string>{"/fsroot/a/b:20c/d.:", "/fsroot/x"}));
    (void)s->manager.addFile(dir.ufile("one.txt"), u"x/f.txt", TransformMode::Encode);
    EXPECT_EQ(folderParts(s->session.package), (std::vector<std::string>{"/fsroot/a/b:20c/d.:"}));
    s->session.package.close();
  }
  auto s = open(interfaces::OpenMode::Read);
  EXPECT_EQ(walk(s->manager), (std::vector<std::string>{"/a/", "/a/b c/", "/a/b c/d./", "/x/", "/x/f.txt"}));
}

// An existing file stops extraction before anything is written, unless replacing was asked for; a
// destination that is a file is refused.
TEST_F(FileSystemManagerTest, ExistingFilesAreReplacedOnlyWhenAsked) {
  plantFile(source, "bin/run me", TreeFile{"#!/bin/sh\n", 100000000, 0, true});
  plantFile(source, "data.", TreeFile{"dot", 200000000, 0, false});
  {
    auto s = open(interfaces::OpenMode::Modify);
    addTree(s->manager, source, snapshot(source));
    s->session.package.close();
  }
  plantFile(destination, "data.", TreeFile{"mine", 0, 0, false});
  auto s = open(interfaces::OpenMode::Read);
  const auto extract = [&](ReplaceMode replace) {
    s->manager.extractAll(u16(destination.string()), RestoreMode::None, TransformMode::Encode, replace);
  };
  try {
    extract(ReplaceMode::Never);
    ADD_FAILURE() << "no error";
  } catch (const Exception& e) {
    EXPECT_NE(std::string(e.what()).find("exists in the destination"), std::string::npos) << e.what();
  }
  EXPECT_EQ(readFile((destination / "data.").string()), "mine");
  EXPECT_FALSE(std::filesystem::exists(destination / "bin"));
  extract(ReplaceMode::Replace);
  EXPECT_EQ(readFile((destination / "data.").string()), "dot");
  writeFile(dir.file("plain"), "x");
  try {
    s->manager.extractAll(dir.ufile("plain"), RestoreMode::None, TransformMode::Encode, ReplaceMode::Never);
    ADD_FAILURE() << "extracted into a file";
  } catch (const Exception& e) {
    EXPECT_NE(std::string(e.what()).find("not a folder"), std::string::npos) << e.what();
  }
  EXPECT_EQ(readFile(dir.file("plain")), "x");
  EXPECT_EQ(readFile((destination / "bin" / "run me").string()), "#!/bin/sh\n");
}

// ---- hostile packages ----------------------------------------------------------------------------

class HostileExtractionTest : public ::testing::Test {
 protected:
  // Extracts `packagePath` into `dest`; returns the error text, or "" when it succeeded.
  static std::string extract(const ustring& packagePath, const std::filesystem::path& dest,
                             ReplaceMode replace = ReplaceMode::Never) {
    try {
      Session s(packagePath, interfaces::OpenMode::Read);
      FileSystemManager manager(s.package, {});
      manager.extractAll(u16(dest.string()), RestoreMode::Attributes, TransformMode::Encode, replace);
      return {};
    } catch (const Exception& e) {
      return e.what();
    }
  }

  ScratchDir dir;
  std::filesystem::path outside = dir.path() / "outside";
  std::filesystem::path destination = dir.path() / "dest";
  void SetUp() override { std::filesystem::create_directories(outside); }
};

TEST_F(HostileExtractionTest, CorpusIsRefusedWithNothingWritten) {
  struct Case {
    const char* file;
    const char* fragment;  // names the entry or the rule
  };
  const std::vector<Case> cases = {
      {"traversal-raw-dotdot.zip", "fsroot/../../evil.txt"},
      {"traversal-percent-dotdot.zip", "percent-encoded unreserved"},
      {"traversal-escaped-dotdot.zip", "'/fsroot/..:'"},
      {"absolute-path.zip", "/tmp/evil.txt"},
      {"backslash-raw.zip", "evil.txt"},
      {"backslash-percent.zip", "'\\'"},
      {"traversal-colon-slash.zip", "'/fsroot/..:2F..:2Fevil.txt': a component holds '/'"},
      {"backslash-colon.zip", "'/fsroot/..:5C..:5Cevil.txt': a component holds '\\'"},
      {"drive-letter-percent.zip", "'/fsroot/C%3A'"},
      {"nul-percent.zip", "'/fsroot/evil%00.txt'"},
      {"decoded-collision.zip", "'a!.txt'"},
      {"size-inflates-beyond-declared.zip", "/fsroot/big.bin"},
      {"size-shorter-than-declared.zip", "/fsroot/short.bin"},
      {"ratio-beyond-deflate.zip", "'/fsroot/bomb.bin'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    std::filesystem::remove_all(destination);
    std::filesystem::create_directories(destination);
    const std::string error = extract(u16(std::string(ZV_TEST_DATA_DIR) + "/hostile/" + c.file), destination);
    EXPECT_NE(error, "");
    EXPECT_NE(error.find(c.fragment), std::string::npos) << error;
    EXPECT_TRUE(std::filesystem::is_empty(destination)) << error;
    EXPECT_TRUE(std::filesystem::is_empty(outside));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "evil.txt"));
  }
}

TEST_F(HostileExtractionTest, SymbolicLinksInTheDestinationAreNeverFollowed) {
  const ustring packagePath = u16(dir.file("pkg.zvaddon"));
  writeFile(dir.file("payload"), "payload");
  {
    Session s(packagePath, interfaces::OpenMode::Create);
    FileSystemManager manager(s.package, {});
    (void)manager.addFile(u16(dir.file("payload")), u"sub/inner.txt", TransformMode::Encode);
    (void)manager.addFile(u16(dir.file("payload")), u"top.txt", TransformMode::Encode);
    s.package.close();
  }
  struct Case {
    const char* name;
    const char* link;  // planted in the destination, pointing outside
    ReplaceMode replace;
    const char* fragment;
  };
  const std::vector<Case> cases = {
      {"LinkWhereAFolderGoes", "sub", ReplaceMode::Replace, "symbolic link"},
      {"LinkWhereAFileGoesNeverReplace", "top.txt", ReplaceMode::Never, "exists"},
      {"LinkWhereAFileGoesReplaced", "top.txt", ReplaceMode::Replace, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(destination);
    std::filesystem::remove_all(outside);
    std::filesystem::create_directories(destination);
    std::filesystem::create_directories(outside);
    writeFile((outside / "top.txt").string(), "untouched");
    std::filesystem::create_symlink(std::string(c.link) == "sub" ? outside : outside / "top.txt",
                                    destination / c.link);
    const std::string error = extract(packagePath, destination, c.replace);
    if (c.fragment == nullptr) {
      EXPECT_EQ(error, "");
      EXPECT_FALSE(std::filesystem::is_symlink(destination / c.link));
      EXPECT_EQ(readFile((destination / c.link).string()), "payload");
    } else {
      EXPECT_NE(error.find(c.fragment), std::string::npos) << error;
    }
    EXPECT_EQ(readFile((outside / "top.txt").string()), "untouched");
    EXPECT_FALSE(std::filesystem::exists(outside / "inner.txt"));
  }
}

// The declared total is compared with the free space before anything is written. Runs in a child
// with its own mount namespace and a 1 MiB tmpfs; skipped where such namespaces are not allowed.
TEST_F(HostileExtractionTest, ExtractionBeyondFreeSpaceIsRefusedBeforeWriting) {
  const ustring packagePath = u16(dir.file("pkg.zvaddon"));
  writeFile(dir.file("small"), "small");
  writeFile(dir.file("large"), patternBytes(2 << 20, 3));
  {
    Session s(packagePath, interfaces::OpenMode::Create);
    FileSystemManager manager(s.package, {});
    (void)manager.addFile(u16(dir.file("small")), u"a-small.txt", TransformMode::Encode);
    (void)manager.addFile(u16(dir.file("large")), u"z-large.bin", TransformMode::Encode);
    s.package.close();
  }
  std::filesystem::create_directories(destination);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // 2: namespaces unavailable (skip); 0: refused with nothing written; 1: anything else.
    const std::string uidMap = "0 " + std::to_string(::getuid()) + " 1";
    const std::string gidMap = "0 " + std::to_string(::getgid()) + " 1";
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ::_exit(2);
    try {
      writeFile("/proc/self/setgroups", "deny");
      writeFile("/proc/self/uid_map", uidMap);
      writeFile("/proc/self/gid_map", gidMap);
    } catch (const std::exception&) {
      ::_exit(2);
    }
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(2);
    if (::mount("zvtest", destination.c_str(), "tmpfs", 0, "size=1m") != 0) ::_exit(2);
    const std::string error = extract(packagePath, destination);
    const bool refused = error.find("are free") != std::string::npos;
    ::_exit(refused && std::filesystem::is_empty(destination) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "no user and mount namespaces here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace opc::kqservices
