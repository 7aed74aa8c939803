// Extraction on workers: every defect of an entry found in a worker undoes the whole extraction.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

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

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 engine(seed);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(engine() & 0xff);
  return out;
}

class ParallelExtractTest : public ::testing::Test {
 protected:
  ~ParallelExtractTest() override { ::unsetenv("ZVADDON_THREADS"); }

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

  // Extracts with `threads` workers into a new folder; returns the error, or "".
  static std::string extract(const ustring& package, const std::filesystem::path& destination, const char* threads) {
    ::setenv("ZVADDON_THREADS", threads, 1);
    std::filesystem::remove_all(destination);
    std::filesystem::create_directories(destination);
    try {
      Session s(package, OpenMode::Read);
      FileSystemManager manager(s.package, {});
      manager.extractAll(u16(destination.string()), RestoreMode::Attributes, TransformMode::Encode, ReplaceMode::Never);
      return {};
    } catch (const Exception& e) {
      return e.what();
    }
  }

  ScratchDir dir;
};

// A defect found by a worker (after the file and others were created, and while later files are
// being read) fails the extraction naming the part and leaves the destination as it was.
TEST_F(ParallelExtractTest, DefectsFoundByWorkersUndoEverything) {
  const std::filesystem::path source = dir.path() / "source";
  for (int i = 0; i < 40; ++i) {
    plantFile(source, "a" + std::to_string(i % 5) + "/f" + std::to_string(i) + ".txt",
              TreeFile{patternBytes(4000, static_cast<unsigned>(i)), 1'600'000'000, 0, false});
  }
  plantFile(source, "m/deep/target.txt", TreeFile{patternBytes(200'000, 99), 1'600'000'000, 0, false});
  plantFile(source, "m/deep/picture.png", TreeFile{randomBytes(50'000, 98), 1'600'000'000, 0, false});
  // Above the size read whole: streamed.
  plantFile(source, "m/deep/large.txt", TreeFile{patternBytes(3u << 20, 96), 1'600'000'000, 0, false});
  plantFile(source, "m/deep/huge.png", TreeFile{randomBytes(3u << 20, 95), 1'600'000'000, 0, false});
  plantFile(source, "z/last.txt", TreeFile{patternBytes(4000, 97), 1'600'000'000, 0, false});
  for (int i = 0; i < 100; ++i) {
    plantFile(source, "many/f" + std::to_string(i) + ".txt",
              TreeFile{patternBytes(3000, 200u + static_cast<unsigned>(i)), 1'600'000'000, 0, false});
  }
  const ustring package = dir.ufile("bad.zvaddon");
  pack(source, package);
  const std::string good = readFile(u8(package));
  const auto u16At = [&](std::size_t i) {
    return static_cast<std::size_t>(static_cast<unsigned char>(good[i])) |
           static_cast<std::size_t>(static_cast<unsigned char>(good[i + 1])) << 8;
  };
  // The entry's local header is the first place its name occurs in the file.
  const auto corruptData = [&](std::string& bytes, std::size_t header) {
    const std::size_t compressed = u16At(header + 18) | u16At(header + 20) << 16;
    bytes[header + 30 + u16At(header + 26) + u16At(header + 28) + compressed / 2] ^= 0x5a;
  };
  const auto breakSignature = [](std::string& bytes, std::size_t header) { bytes[header + 3] = '\x05'; };
  const struct {
    const char* name;
    const char* entry;
    std::function<void(std::string&, std::size_t header)> damage;
    const char* fragment;  // expected in the error
  } cases[] = {
      {"DeflatedDataBroken", "fsroot/m/deep/target.txt", corruptData, "target.txt'"},
      {"StoredDataFailsItsCrc", "fsroot/m/deep/picture.png", corruptData, "CRC"},
      {"DefectInALaterBatchOfALargeFolder", "fsroot/many/f70.txt", corruptData, "f70.txt'"},
      {"LargeDeflatedDataBroken", "fsroot/m/deep/large.txt", corruptData, "large.txt'"},
      {"LargeStoredDataFailsItsCrc", "fsroot/m/deep/huge.png", corruptData, "CRC"},
      {"DamagedLocalHeader", "fsroot/a1/f6.txt", breakSignature, "no local header"},
      {"DamagedLocalHeaderOfAStreamedEntry", "fsroot/m/deep/large.txt", breakSignature, "no local header"},
  };
  for (const char* threads : {"1", "2"}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.name) + " threads " + threads);
      std::string bytes = good;
      const std::size_t header = good.find(c.entry) - 30;
      ASSERT_EQ(good.compare(header, 4, "PK\x03\x04"), 0);
      c.damage(bytes, header);
      writeFile(u8(package), bytes);
      const std::filesystem::path destination = dir.path() / "dest";
      const std::string error = extract(package, destination, threads);
      EXPECT_NE(error.find(c.fragment), std::string::npos) << error;
      EXPECT_NE(error.find("refusing to extract"), std::string::npos) << error;
      EXPECT_TRUE(std::filesystem::is_empty(destination)) << error;
    }
  }
}

}  // namespace
}  // namespace opc::test
