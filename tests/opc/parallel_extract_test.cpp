// Extraction with worker threads: the same tree as one thread writes, and every defect of an
// entry's data caught in a worker undoes the whole extraction. Listing in one pass: the same paths
// as walking the tree folder by folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <zip.h>

#include "file_system_test_support.h"
#include "opc/exception.h"
#include "opc/kqservices/file_system_manager.h"
#include "package_test_support.h"

namespace opc::test {
namespace {

using kqservices::FileSystemManager;
using kqservices::ReplaceMode;
using kqservices::RestoreMode;
using kqservices::TransformMode;
using interfaces::OpenMode;

// Sets ZVADDON_THREADS for the scope, restoring what was there.
class ThreadCount {
 public:
  explicit ThreadCount(const char* count) {
    if (const char* old = std::getenv("ZVADDON_THREADS")) old_ = old;
    ::setenv("ZVADDON_THREADS", count, 1);
  }
  ~ThreadCount() {
    if (old_) {
      ::setenv("ZVADDON_THREADS", old_->c_str(), 1);
    } else {
      ::unsetenv("ZVADDON_THREADS");
    }
  }
  ThreadCount(const ThreadCount&) = delete;
  ThreadCount& operator=(const ThreadCount&) = delete;

 private:
  std::optional<std::string> old_;
};

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 engine(seed);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(engine() & 0xff);
  return out;
}

class ParallelExtractTest : public ::testing::Test {
 protected:
  // Packs the tree below `source` into `package`.
  static void pack(const std::filesystem::path& source, const ustring& package) {
    Session s(package, OpenMode::Create);
    FileSystemManager manager(s.package, {});
    for (const auto& entry : std::filesystem::recursive_directory_iterator(source)) {
      if (!entry.is_regular_file()) continue;
      (void)manager.addFile(u16(entry.path().string()), u16(std::filesystem::relative(entry.path(), source).string()),
                            TransformMode::Encode);
    }
    s.package.close();
  }

  static std::string extract(const ustring& package, const std::filesystem::path& destination) {
    try {
      Session s(package, OpenMode::Read);
      FileSystemManager manager(s.package, {});
      manager.extractAll(u16(destination.string()), RestoreMode::Attributes, TransformMode::Encode,
                         ReplaceMode::Never);
      return {};
    } catch (const Exception& e) {
      return e.what();
    }
  }

  // Flips one byte in the middle of the stored data of the entry named `name` (its local header is
  // the first place the name occurs in the file).
  static void corruptEntry(const std::string& package, const std::string& name) {
    std::string bytes = readFile(package);
    const std::size_t at = bytes.find(name);
    ASSERT_NE(at, std::string::npos);
    ASSERT_GE(at, 30U);
    const auto u16At = [&](std::size_t i) {
      return static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])) |
             static_cast<std::size_t>(static_cast<unsigned char>(bytes[i + 1])) << 8;
    };
    const std::size_t header = at - 30;
    ASSERT_EQ(bytes.compare(header, 4, "PK\x03\x04"), 0);
    const std::size_t compressed = u16At(header + 18) | u16At(header + 20) << 16;
    ASSERT_GT(compressed, 16U);
    const std::size_t data = at + u16At(header + 26) + u16At(header + 28);
    bytes[data + compressed / 2] = static_cast<char>(bytes[data + compressed / 2] ^ 0x5a);
    writeFile(package, bytes);
  }

  ScratchDir dir;
};

// Text, incompressible data, empty files, an entry above the whole-entry limit and many folders:
// every thread count writes the same names, bytes, times and permission bits.
TEST_F(ParallelExtractTest, EveryThreadCountWritesTheSameTree) {
  const std::filesystem::path source = dir.path() / "source";
  for (int i = 0; i < 120; ++i) {
    const std::string folder = "d" + std::to_string(i % 9) + "/s" + std::to_string(i % 4) + "/";
    const TreeFile file{i % 3 == 0 ? randomBytes(static_cast<std::size_t>(1000 + 97 * i), static_cast<unsigned>(i))
                                   : patternBytes(static_cast<std::size_t>(i * 331), static_cast<unsigned>(i)),
                        1'600'000'000 + i, static_cast<std::uint32_t>(i * 1000), i % 5 == 0};
    plantFile(source, folder + "f " + std::to_string(i) + (i % 7 == 0 ? ".png" : ".txt"), file);
  }
  // More files in one folder than a worker takes at once.
  for (int i = 0; i < 70; ++i) {
    plantFile(source, "crowd/c" + std::to_string(i), TreeFile{patternBytes(static_cast<std::size_t>(50 + i), 60u + i),
                                                              1'600'000'000 + i, 0, i % 2 == 0});
  }
  plantFile(source, "big/large.csv", TreeFile{patternBytes(9u << 20, 7), 1'500'000'000, 0, false});
  plantFile(source, "big/noise.bin", TreeFile{randomBytes(5u << 20, 8), 1'500'000'001, 0, false});
  plantFile(source, "empty", TreeFile{"", 1'400'000'000, 0, true});
  const ustring package = dir.ufile("tree.zvaddon");
  pack(source, package);

  const TreeSnapshot expected = snapshot(source);
  for (const char* threads : {"1", "2", "4"}) {
    SCOPED_TRACE(threads);
    const ThreadCount count(threads);
    const std::filesystem::path destination = dir.path() / (std::string("out") + threads);
    ASSERT_EQ(extract(package, destination), "");
    EXPECT_EQ(snapshot(destination), expected);
  }
}

// A defect found by a worker (after the file and others were created, and while later files are
// being read) fails the extraction naming the part and leaves the destination as it was.
TEST_F(ParallelExtractTest, DefectsFoundByWorkersUndoEverything) {
  struct Case {
    const char* name;
    const char* entry;     // whose data is corrupted
    const char* fragment;  // expected in the error
  };
  const std::vector<Case> cases = {
      {"DeflatedDataBroken", "fsroot/m/deep/target.txt", "target.txt'"},
      {"StoredDataFailsItsCrc", "fsroot/m/deep/picture.png", "CRC"},
      {"DefectInALaterBatchOfALargeFolder", "fsroot/many/f70.txt", "f70.txt'"},
      {"LargeDeflatedDataBroken", "fsroot/m/deep/large.txt", "large.txt'"},
      {"LargeStoredDataFailsItsCrc", "fsroot/m/deep/huge.png", "CRC"},
  };
  for (const char* threads : {"1", "2"}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + " threads " + threads);
      const ThreadCount count(threads);
      const std::filesystem::path source = dir.path() / "source";
      std::filesystem::remove_all(source);
      for (int i = 0; i < 40; ++i) {
        plantFile(source, "a" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".txt",
                  TreeFile{patternBytes(4000, static_cast<unsigned>(i)), 1'600'000'000, 0, false});
      }
      plantFile(source, "m/deep/target.txt", TreeFile{patternBytes(200'000, 99), 1'600'000'000, 0, false});
      plantFile(source, "m/deep/picture.png", TreeFile{randomBytes(50'000, 98), 1'600'000'000, 0, false});
      // Above the size read whole: streamed in pieces.
      plantFile(source, "m/deep/large.txt", TreeFile{patternBytes(3u << 20, 96), 1'600'000'000, 0, false});
      plantFile(source, "m/deep/huge.png", TreeFile{randomBytes(3u << 20, 95), 1'600'000'000, 0, false});
      plantFile(source, "z/last.txt", TreeFile{patternBytes(4000, 97), 1'600'000'000, 0, false});
      for (int i = 0; i < 100; ++i) {
        plantFile(source, "many/f" + std::to_string(i) + ".txt",
                  TreeFile{patternBytes(3000, 200u + static_cast<unsigned>(i)), 1'600'000'000, 0, false});
      }
      const ustring package = dir.ufile("bad.zvaddon");
      pack(source, package);
      corruptEntry(u8(package), c.entry);

      const std::filesystem::path destination = dir.path() / "dest";
      std::filesystem::remove_all(destination);
      std::filesystem::create_directories(destination);
      const std::string error = extract(package, destination);
      EXPECT_NE(error.find(c.fragment), std::string::npos) << error;
      EXPECT_NE(error.find("refusing to extract"), std::string::npos) << error;
      EXPECT_TRUE(std::filesystem::is_empty(destination)) << error;
    }
  }
}

// Workers read each entry's stored bytes where its local header says they start, which need not be
// where the directory record suggests: a local extra field may be longer (or the only one). A
// header that is not there is refused, naming the part, with nothing written.
TEST_F(ParallelExtractTest, EntryDataIsFoundFromItsLocalHeader) {
  struct Case {
    const char* name;
    std::function<void(const std::string& package)> change;
    const char* fragment;  // expected in the error; nullptr: extracts as packed
  };
  const auto localExtra = [](const char* entry, std::size_t size) {
    return [entry, size](const std::string& package) {
      int error = 0;
      zip_t* archive = zip_open(package.c_str(), 0, &error);
      ASSERT_NE(archive, nullptr) << error;
      const zip_int64_t index = zip_name_locate(archive, entry, 0);
      ASSERT_GE(index, 0) << entry;
      const std::string data(size, 'x');
      ASSERT_EQ(zip_file_extra_field_set(archive, static_cast<zip_uint64_t>(index), 0x7a76, ZIP_EXTRA_FIELD_NEW,
                                         reinterpret_cast<const zip_uint8_t*>(data.data()),
                                         static_cast<zip_uint16_t>(size), ZIP_FL_LOCAL),
                0);
      ASSERT_EQ(zip_close(archive), 0) << zip_strerror(archive);
    };
  };
  const auto damageSignature = [](const char* entry) {
    return [entry](const std::string& package) {
      std::string bytes = readFile(package);
      const std::size_t at = bytes.find(entry);
      ASSERT_NE(at, std::string::npos);
      ASSERT_EQ(bytes.compare(at - 30, 4, "PK\x03\x04"), 0);
      bytes[at - 27] = '\x05';
      writeFile(package, bytes);
    };
  };
  // As a writer that streams its output leaves it: sizes and CRC only in a data descriptor and the
  // directory.
  const auto sizesOnlyInTheDirectory = [](const char* entry) {
    return [entry](const std::string& package) {
      std::string bytes = readFile(package);
      const std::size_t at = bytes.find(entry);
      ASSERT_NE(at, std::string::npos);
      const std::size_t header = at - 30;
      ASSERT_EQ(bytes.compare(header, 4, "PK\x03\x04"), 0);
      bytes[header + 6] = static_cast<char>(bytes[header + 6] | 0x08);
      std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(header + 14),
                bytes.begin() + static_cast<std::ptrdiff_t>(header + 26), '\0');
      writeFile(package, bytes);
    };
  };
  const std::vector<Case> cases = {
      {"SizesOnlyInTheDirectory", sizesOnlyInTheDirectory("fsroot/a/text.txt"), nullptr},
      {"LongLocalExtraOnADeflatedEntry", localExtra("fsroot/a/text.txt", 3000), nullptr},
      {"ShortLocalExtraOnAStoredEntry", localExtra("fsroot/a/noise.png", 8), nullptr},
      {"LocalExtraJustPastTheGuess", localExtra("fsroot/b/tiny.txt", 65), nullptr},
      {"LocalExtraOnAStreamedEntry", localExtra("fsroot/a/big.txt", 500), nullptr},
      {"DamagedLocalHeader", damageSignature("fsroot/b/tiny.txt"), "tiny.txt': its local header"},
      {"DamagedLocalHeaderOfAStreamedEntry", damageSignature("fsroot/a/big.txt"), "big.txt': its local header"},
  };
  const std::filesystem::path source = dir.path() / "source";
  plantFile(source, "a/text.txt", TreeFile{patternBytes(70'000, 5), 1'600'000'000, 0, false});
  plantFile(source, "a/noise.png", TreeFile{randomBytes(30'000, 6), 1'600'000'001, 0, true});
  plantFile(source, "b/tiny.txt", TreeFile{"tiny", 1'600'000'002, 0, false});
  plantFile(source, "a/big.txt", TreeFile{patternBytes(1'500'000, 8), 1'600'000'004, 0, false});
  plantFile(source, "c/other.txt", TreeFile{patternBytes(5000, 7), 1'600'000'003, 0, false});
  const TreeSnapshot expected = snapshot(source);
  for (const char* threads : {"1", "2"}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + " threads " + threads);
      const ThreadCount count(threads);
      const ustring package = dir.ufile("changed.zvaddon");
      std::filesystem::remove(u8(package));
      pack(source, package);
      c.change(u8(package));
      const std::filesystem::path destination = dir.path() / "dest";
      std::filesystem::remove_all(destination);
      std::filesystem::create_directories(destination);
      const std::string error = extract(package, destination);
      if (c.fragment == nullptr) {
        EXPECT_EQ(error, "");
        EXPECT_EQ(snapshot(destination), expected);
      } else {
        EXPECT_NE(error.find(c.fragment), std::string::npos) << error;
        EXPECT_TRUE(std::filesystem::is_empty(destination)) << error;
      }
    }
  }
}

// Files and empty folders in the order of a getChildren walk, with decoded names (spaces, '#', '%',
// non-ASCII, names that sort differently encoded and decoded), read back from the written package.
TEST_F(ParallelExtractTest, ListingInOnePassMatchesTheFolderWalk) {
  const std::vector<std::string> files = {"b/z.txt", "b/a b.txt", "a#1/x%y.m", "A2/\xc3\xa9t\xc3\xa9.m", "top.m",
                                          "deep/er/est/f", "b/_rels", "b/name."};
  const std::vector<std::string> folders = {"empty", "b/also empty", "deep/er/vide"};
  writeFile(dir.file("payload"), "x");
  const ustring package = dir.ufile("list.zvaddon");
  {
    Session s(package, OpenMode::Create);
    FileSystemManager manager(s.package, {});
    for (const std::string& file : files) {
      (void)manager.addFile(u16(dir.file("payload")), u16(file), TransformMode::Encode);
    }
    for (const std::string& folder : folders) (void)manager.createFolder(u16(folder));
    s.package.close();
  }
  Session s(package, OpenMode::Read);
  FileSystemManager manager(s.package, {});
  std::vector<ustring> walked;
  std::function<void(const kqservices::FileSystemEntry&)> visit = [&](const kqservices::FileSystemEntry& folder) {
    for (const kqservices::FileSystemEntry& child : manager.getChildren(folder)) {
      if (child.isFile() || manager.getChildren(child).empty()) {
        walked.push_back(child.getPathName());
      } else {
        visit(child);
      }
    }
  };
  visit(manager.getRoot());
  EXPECT_EQ(walked.size(), files.size() + folders.size());
  EXPECT_EQ(manager.listFiles(), walked);
  EXPECT_NE(std::find(walked.begin(), walked.end(), u"/b/also empty"), walked.end());
  EXPECT_NE(std::find(walked.begin(), walked.end(), u"/a#1/x%y.m"), walked.end());
}

}  // namespace
}  // namespace opc::test
