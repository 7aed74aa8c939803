// The add-on's files in the package: a tree round trip on any number of workers, what adding refuses,
// empty folders, and extraction that writes nothing when it refuses (existing files, links, hostile
// packages, defects found by workers, too little space).
#include "opc/kqservices/file_system_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <string_view>

#include "opc/exception.h"
#include "opc/file_system_ops.h"
#include "opc/model/content_type.h"
#include "opc/zippackage/zip_format.h"
#include "opc_test_support.h"

namespace opc::kqservices {
namespace {

using namespace opc::test;
using interfaces::OpenMode;

// A file as the round trip must preserve it.
struct TreeFile {
  std::string bytes;
  std::int64_t seconds = 1'600'000'000;
  std::uint32_t nanoseconds = 0;
  bool executable = false;
  bool operator==(const TreeFile&) const = default;
};

// What a folder on disk holds, keyed by relative path; folders end in "/" and say whether empty.
struct TreeSnapshot {
  std::map<std::string, TreeFile> files;
  std::map<std::string, bool> folders;
  bool operator==(const TreeSnapshot&) const = default;
};

void plantFile(const std::filesystem::path& root, const std::string& relative, const TreeFile& file) {
  const std::filesystem::path path = root / relative;
  std::filesystem::create_directories(path.parent_path());
  writeBytes(path.string(), file.bytes);
  ::chmod(path.c_str(), file.executable ? 0755 : 0644);
  const struct timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(file.seconds), static_cast<long>(file.nanoseconds)}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

TreeSnapshot snapshot(const std::filesystem::path& root) {
  TreeSnapshot out;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string relative = std::filesystem::relative(entry.path(), root).string();
    struct stat st {};
    if (::lstat(entry.path().c_str(), &st) != 0) throw std::runtime_error("lstat failed");
    if (S_ISDIR(st.st_mode)) {
      out.folders[relative + "/"] = std::filesystem::is_empty(entry.path());
    } else {
      out.files[relative] = TreeFile{readBytes(entry.path().string()), st.st_mtim.tv_sec,
                                     static_cast<std::uint32_t>(st.st_mtim.tv_nsec), (st.st_mode & 0100) != 0};
    }
  }
  return out;
}

class FileSystemTest : public ::testing::Test {
 protected:
  struct Open {
    Open(const ustring& path, OpenMode mode) : session(path, mode), manager(session.package) {}
    Session session;
    FileSystemManager manager;
  };
  std::unique_ptr<Open> open(OpenMode mode) { return std::make_unique<Open>(package, mode); }

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

  // Adds every file and empty folder below `source` under its relative path, in a new package.
  void pack() {
    withPackage(package, OpenMode::Create, [&](model::Package& p) {
      FileSystemManager manager(p);
      for (const auto& [relative, file] : snapshot(source).files) {
        (void)manager.addFile(u16((source / relative).string()), u16(relative), TransformMode::Encode);
      }
      for (const auto& [relative, empty] : snapshot(source).folders) {
        if (empty) (void)manager.createFolder(u16(relative.substr(0, relative.size() - 1)));
      }
    });
  }

  // Extracts the package with `threads` workers; returns the error, or "" when it succeeded.
  std::string extract(ReplaceMode replace = ReplaceMode::Never, const char* threads = "2") {
    ::setenv("ZVADDON_THREADS", threads, 1);
    const std::string error = errorOf([&] {
      Session s(package, OpenMode::Read);
      FileSystemManager(s.package).extractAll(u16(destination.string()), RestoreMode::Attributes, TransformMode::Encode, replace);
    });
    ::unsetenv("ZVADDON_THREADS");
    return error == "(no error)" ? "" : error;
  }

  // An empty destination and an empty folder beside it.
  void clearDestination() {
    for (const auto& folder : {destination, outside}) {
      std::filesystem::remove_all(folder);
      std::filesystem::create_directories(folder);
    }
  }

  ScratchDir dir;
  ustring package = dir.ufile("pkg.zvaddon");
  std::filesystem::path source = dir.path() / "source";
  std::filesystem::path destination = dir.path() / "destination";
  std::filesystem::path outside = dir.path() / "outside";

  void SetUp() override { writeBytes(dir.file("one.txt"), "one"); }
};

// Names (each a URI-safe segment), bytes (empty, above the whole-file limit), times and executable
// bits come back as they were, whatever the number of workers.
TEST_F(FileSystemTest, TreeRoundTripsWithNamesBytesTimesAndExecutableBits) {
  // Names a local file system allows and a part name cannot hold as they are.
  const std::vector<std::string> awkwardNames = {
      "plain.m", "with space.txt", "#hash", "100%", "percent%41", "[bracket]", "a&b;c=d", "trailing.", "...",
      "_rels", "x.rels", "caf\xC3\xA9", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E.txt", "\xF0\x9F\x98\x80",
      "ab:c", "quote'and\"double", "tilde~", "question?", "colon:", "!", "nb\xC2\xA0sp", "ideo\xE3\x80\x80space",
      "tab\there", "ctl\x01", "line\xE2\x80\xA8sep", "c1\xC2\x85", "ends with space ",
  };
  // Times outside DOS time's 1980..2107, before 1970, and beyond the extended timestamp's 2038 with
  // sub-second parts in NTFS's 100 ns steps (within its range a time is kept to the second).
  const std::vector<std::pair<std::int64_t, std::uint32_t>> times = {
      {1700000000, 0}, {-315619200, 0}, {7258118400, 999999900}, {315532800, 0}, {4354819199, 500}};
  for (std::size_t i = 0; i < awkwardNames.size(); ++i) {
    const auto [seconds, nanos] = times[i % times.size()];
    const std::string& name = awkwardNames[i];
    plantFile(source, name, TreeFile{patternBytes(100 + i * 37, static_cast<unsigned>(i)), seconds, nanos, i % 3 == 0});
    plantFile(source, "nested/" + name + "/deeper/file " + std::to_string(i),
              TreeFile{patternBytes(i, static_cast<unsigned>(i + 99)), seconds + 1, nanos, i % 2 == 0});
  }
  plantFile(source, "nested/_rels/inner.rels", TreeFile{"<Relationships/>"});
  plantFile(source, "big.bin", TreeFile{patternBytes(3 << 20, 7)});
  plantFile(source, "empty file", TreeFile{"", 1400000000, 0, true});
  for (int k = 0; k < 70; ++k) {  // more files in one folder than a worker takes at once
    plantFile(source, "crowd/c" + std::to_string(k), TreeFile{std::string(50 + k, 'c'), 1600000000 + k, 0, k % 2 == 0});
  }
  std::filesystem::create_directories(source / "empty");
  std::filesystem::create_directories(source / "nested" / "empty #2" / "empty.");
  const TreeSnapshot original = snapshot(source);
  pack();
  std::multiset<std::string> expected;
  for (const auto& [relative, file] : original.files) expected.insert("/" + relative);
  for (const auto& [relative, empty] : original.folders) expected.insert("/" + relative);
  const std::vector<std::string> listed = walk(open(OpenMode::Read)->manager);
  EXPECT_EQ(std::multiset<std::string>(listed.begin(), listed.end()), expected);
  for (const char* threads : {"1", "4"}) {
    SCOPED_TRACE(threads);
    std::filesystem::remove_all(destination);
    EXPECT_EQ(extract(ReplaceMode::Never, threads), "");
    EXPECT_EQ(snapshot(destination), original);
  }
}

// Each case: what is in the add-on first ("": nothing), then one addition that must fail with the given
// error and change nothing; a path ending in '/' is a folder, created empty.
TEST_F(FileSystemTest, ConflictsAndBadPathsAreErrorsThatChangeNothing) {
  // Name, what is there first, what is added, whether the error's class is AlreadyExists, a fragment of it.
  const std::tuple<const char*, ustring, ustring, bool, const char*> cases[] = {
      {"SameFileTwice", u"a/b.m", u"/a/b.m", true, "/a/b.m"},
      {"FileOverFolder", u"a/b.m", u"a", true, "/a"},
      {"EmptyFolderTwice", u"a/b/", u"a/b/", true, "/a/b"},
      {"FileNameDiffersInCase", u"Readme.txt", u"README.txt", false, "/Readme.txt"},
      {"FolderNameDiffersInCase", u"Dir/a.m", u"dir/b.m", false, "/Dir"},
      {"DotDot", u"", u"a/../b.m", false, "'..'"},
      {"Nul", u"", ustring(u"a\0b", 3), false, "NUL"},
      {"NameTooLong", u"", ustring(256, u'x'), false, "255 bytes"},
      {"UnpairedSurrogate", u"", ustring(1, char16_t(0xD800)), false, "surrogate"},
  };
  const auto add = [&](FileSystemManager& manager, const ustring& path) {
    if (!path.ends_with(u'/')) return (void)manager.addFile(dir.ufile("one.txt"), path, TransformMode::Encode);
    (void)manager.createFolder(path.substr(0, path.size() - 1));
  };
  for (const auto& [name, first, added, alreadyExists, fragment] : cases) {
    SCOPED_TRACE(name);
    withPackage(package, OpenMode::Create, [&](model::Package& p) {
      FileSystemManager manager(p);
      if (!first.empty()) add(manager, first);
    });
    auto s = open(OpenMode::Modify);
    const std::vector<std::string> before = walk(s->manager);
    const std::size_t parts = s->session.package.getPartCount();
    try {
      add(s->manager, added);
      ADD_FAILURE() << "no error";
    } catch (const Exception& e) {
      EXPECT_EQ(dynamic_cast<const FileSystemEntryAlreadyExists*>(&e) != nullptr, alreadyExists) << e.what();
      EXPECT_NE(std::string(e.what()).find(fragment), std::string::npos) << e.what();
    }
    EXPECT_EQ(walk(s->manager), before);
    EXPECT_EQ(s->session.package.getPartCount(), parts);
  }
}

// An empty folder is a part of its own until something goes into it, and comes back when that fails.
TEST_F(FileSystemTest, EmptyFolderIsOnePartThatGivesWayToContent) {
  const model::ContentType folderType(FileSystemManager::getFolderContentType());
  auto folderParts = [&](const model::Package& p) {
    std::vector<std::string> names;
    for (const auto& part : p.getParts()) {
      if (part->getContentType() == folderType) names.push_back(u8(part->getPartName().getName()));
    }
    return names;
  };
  const std::vector<std::string> both{"/fsroot/a/b:20c/d.:", "/fsroot/x"};
  {
    Session(package, OpenMode::Create).package.close();
    auto s = open(OpenMode::Modify);
    for (const char16_t* folder : {u"a/b c", u"a/b c/d.", u"x"}) (void)s->manager.createFolder(folder);
    EXPECT_EQ(walk(s->manager), (std::vector<std::string>{"/a/", "/a/b c/", "/a/b c/d./", "/x/"}));
    EXPECT_EQ(folderParts(s->session.package), both);
    s->session.package.close();
  }
  {
    auto s = open(OpenMode::Modify);
    EXPECT_THROW((void)s->manager.addFile(dir.ufile("missing"), u"x/f.txt", TransformMode::Encode), Exception);
    EXPECT_THROW((void)s->manager.addFile(dir.ufile("one.txt"), u"x/f g", TransformMode::None), Exception);
    EXPECT_EQ(folderParts(s->session.package), both);
    (void)s->manager.addFile(dir.ufile("one.txt"), u"x/f.txt", TransformMode::Encode);
    EXPECT_EQ(folderParts(s->session.package), std::vector<std::string>{both[0]});
    s->session.package.close();
  }
  auto s = open(OpenMode::Read);
  EXPECT_EQ(walk(s->manager), (std::vector<std::string>{"/a/", "/a/b c/", "/a/b c/d./", "/x/", "/x/f.txt"}));
}

// What stands in the destination where a file or folder goes: an existing file stops extraction
// before anything is written unless replacing was asked for; a symbolic link is never followed; a
// destination that is a file is refused.
TEST_F(FileSystemTest, WhatStandsInTheDestinationIsReplacedOnlyWhenAskedAndLinksNeverFollowed) {
  plantFile(source, "sub/inner.txt", TreeFile{"payload"});
  plantFile(source, "top.txt", TreeFile{"#!/bin/sh\n", 100000000, 0, true});
  pack();
  // Name, what is planted, a link to outside (else its own file), replace mode, error fragment (nullptr: extracted).
  const std::tuple<const char*, std::string, bool, ReplaceMode, const char*> cases[] = {
      {"FileWhereAFileGoes", "top.txt", false, ReplaceMode::Never, "exists in the destination"},
      {"FileWhereAFileGoesReplaced", "top.txt", false, ReplaceMode::Replace, nullptr},
      {"LinkWhereAFolderGoes", "sub", true, ReplaceMode::Replace, "symbolic link"},
      {"LinkWhereAFileGoes", "top.txt", true, ReplaceMode::Never, "exists"},
      {"LinkWhereAFileGoesReplaced", "top.txt", true, ReplaceMode::Replace, nullptr},
  };
  for (const auto& [name, planted, link, replace, fragment] : cases) {
    SCOPED_TRACE(name);
    clearDestination();
    writeBytes((outside / "top.txt").string(), "untouched");
    if (link) {
      std::filesystem::create_symlink(planted == "sub" ? outside : outside / "top.txt", destination / planted);
    } else {
      writeBytes((destination / planted).string(), "mine");
    }
    const std::string error = extract(replace);
    if (fragment == nullptr) {
      EXPECT_EQ(error, "");
      EXPECT_EQ(snapshot(destination), snapshot(source));
    } else {
      EXPECT_NE(error.find(fragment), std::string::npos) << error;
      EXPECT_FALSE(std::filesystem::exists(destination / "sub" / "inner.txt"));
    }
    EXPECT_EQ(readBytes((outside / "top.txt").string()), "untouched");
    EXPECT_FALSE(std::filesystem::exists(outside / "inner.txt"));
  }
  destination = dir.path() / "one.txt";
  EXPECT_NE(extract().find("not a folder"), std::string::npos);
  EXPECT_EQ(readBytes(dir.file("one.txt")), "one");
}

// Names that would escape the destination. (Sizes an entry lies about: the ZIP reader's table; a lie
// found while extracting undoes everything: the next test.)
TEST_F(FileSystemTest, HostileCorpusIsRefusedWithNothingWritten) {
  const std::pair<const char*, const char*> cases[] = {  // file, a fragment naming the entry or the rule
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
  };
  for (const auto& [file, fragment] : cases) {
    SCOPED_TRACE(file);
    clearDestination();
    package = u16(std::string(ZV_TEST_DATA_DIR) + "/hostile/" + file);
    const std::string error = extract();
    EXPECT_NE(error.find(fragment), std::string::npos) << error;
    EXPECT_TRUE(std::filesystem::is_empty(destination)) << error;
    EXPECT_TRUE(std::filesystem::is_empty(outside));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "evil.txt"));
  }
}

// A defect found by a worker (after the file and others were created, and while later files are
// being read) fails the extraction naming the part and leaves the destination as it was.
TEST_F(FileSystemTest, DefectsFoundByWorkersUndoEverything) {
  for (int i = 0; i < 40; ++i) {
    plantFile(source, "a" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".txt", TreeFile{patternBytes(4000, i)});
  }
  plantFile(source, "m/deep/target.txt", TreeFile{patternBytes(200'000, 99)});
  plantFile(source, "m/deep/large.txt", TreeFile{patternBytes(3u << 20, 96)});  // above the size read whole: streamed
  plantFile(source, "z/last.txt", TreeFile{patternBytes(4000, 97)});
  for (int i = 0; i < 100; ++i) plantFile(source, "many/f" + std::to_string(i) + ".txt", TreeFile{patternBytes(3000, 200 + i)});
  pack();
  const std::string good = readBytes(u8(package));
  // The entry's local header is the first place its name occurs in the file.
  const auto corruptData = [](std::string& b, std::size_t at) {
    using zippackage::le::get16, zippackage::le::get32;
    b[at + 30 + get16(&b[at + 26]) + get16(&b[at + 28]) + get32(&b[at + 18]) / 2] ^= 0x5a;
  };
  const auto breakSignature = [](std::string& bytes, std::size_t header) { bytes[header + 3] = '\x05'; };
  // Name, entry, damage done to the bytes given its local header's offset, a fragment of the error.
  const std::tuple<const char*, const char*, std::function<void(std::string&, std::size_t)>, const char*> cases[] = {
      {"DeflatedDataBroken", "fsroot/m/deep/target.txt", corruptData, "target.txt'"},
      {"DefectInALaterBatchOfALargeFolder", "fsroot/many/f70.txt", corruptData, "f70.txt'"},
      {"LargeDeflatedDataBroken", "fsroot/m/deep/large.txt", corruptData, "large.txt'"},
      {"DamagedLocalHeader", "fsroot/a1/f6.txt", breakSignature, "no local header"},
      {"DamagedLocalHeaderOfAStreamedEntry", "fsroot/m/deep/large.txt", breakSignature, "no local header"},
  };
  for (const char* threads : {"1", "2"}) {
    for (const auto& [name, entry, damage, fragment] : cases) {
      SCOPED_TRACE(std::string(name) + " threads " + threads);
      std::string bytes = good;
      const std::size_t header = good.find(entry) - 30;
      ASSERT_EQ(good.compare(header, 4, "PK\x03\x04"), 0);
      damage(bytes, header);
      writeBytes(u8(package), bytes);
      clearDestination();
      const std::string error = extract(ReplaceMode::Never, threads);
      EXPECT_NE(error.find(fragment), std::string::npos) << error;
      EXPECT_NE(error.find("refusing to extract"), std::string::npos) << error;
      EXPECT_TRUE(std::filesystem::is_empty(destination)) << error;
    }
  }
}

// The declared total is compared with the free space before anything is written. Runs in a child
// with its own mount namespace and a 1 MiB tmpfs; skipped where such namespaces are not allowed.
TEST_F(FileSystemTest, ExtractionBeyondFreeSpaceIsRefusedBeforeWriting) {
  plantFile(source, "a-small.txt", TreeFile{"small"});
  plantFile(source, "z-large.bin", TreeFile{patternBytes(2 << 20, 3)});
  pack();
  std::filesystem::create_directories(destination);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // 2: namespaces unavailable (skip); 0: refused with nothing written; 1: anything else.
    const std::string uidMap = "0 " + std::to_string(::getuid()) + " 1";
    const std::string gidMap = "0 " + std::to_string(::getgid()) + " 1";
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ::_exit(2);
    try {
      writeBytes("/proc/self/setgroups", "deny");
      writeBytes("/proc/self/uid_map", uidMap);
      writeBytes("/proc/self/gid_map", gidMap);
    } catch (const std::exception&) {
      ::_exit(2);
    }
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(2);
    if (::mount("zvtest", destination.c_str(), "tmpfs", 0, "size=1m") != 0) ::_exit(2);
    const bool refused = extract().find("are free") != std::string::npos;
    ::_exit(refused && std::filesystem::is_empty(destination) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "no user and mount namespaces here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(FileSystemOpsTest, PathText) {
  const opc::FileSystemOps ops;
  const std::tuple<const char16_t*, ustring, ustring> cases[] = {  // path, file name, extension
      {u"/a/shot.png", u"shot.png", u"png"}, {u"/a/archive.tar.gz", u"archive.tar.gz", u"gz"},
      {u"/a/.profile", u".profile", u""},    {u"/a.d/file", u"file", u""},
      {u"/a/dir/", u"dir", u""},             {u"/top", u"top", u""},
      {u"/\u4e2d/\u6587.\u00e9", u"\u6587.\u00e9", u"\u00e9"}};
  for (const auto& [path, filename, extension] : cases) {
    EXPECT_EQ(std::pair(ops.getFilename(path), ops.getExtension(path)), std::pair(filename, extension)) << u8(path);
  }
}

}  // namespace
}  // namespace opc::kqservices
