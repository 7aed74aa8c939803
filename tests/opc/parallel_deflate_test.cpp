// The parallel deflate path of the package writer: what it stores, that its output does not depend on
// the number of threads, and that the pipeline hands results over in order within its window.
#include "opc/zippackage/parallel_deflate.h"

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <cstdlib>
#include <random>

#include "opc/detail/content_sources.h"
#include "opc/exception.h"
#include "opc/zippackage/zip_physical_package.h"
#include "package_test_support.h"

namespace opc::zippackage {
namespace {

using namespace opc::test;

std::string randomBytes(std::size_t size, unsigned seed) {
  std::mt19937 gen(seed);
  std::string out(size, '\0');
  for (auto& c : out) c = static_cast<char>(gen());
  return out;
}

std::string inflate(const std::string& compressed, std::size_t size) {
  std::string out(size, '\0');
  libdeflate_decompressor* d = libdeflate_alloc_decompressor();
  const auto result = libdeflate_deflate_decompress(d, compressed.data(), compressed.size(), out.data(), size, nullptr);
  libdeflate_free_decompressor(d);
  EXPECT_EQ(result, LIBDEFLATE_SUCCESS);
  return out;
}

class ThreadsOverride {
 public:
  explicit ThreadsOverride(const char* value) { ::setenv("ZVADDON_THREADS", value, 1); }
  ~ThreadsOverride() { ::unsetenv("ZVADDON_THREADS"); }
};

TEST(ParallelDeflateTest, NamesOfCompressedFormats) {
  const struct {
    const char* name;
    bool compressed;
  } cases[] = {{"a/b/photo.PNG", true}, {"x.jpeg", true}, {"lib.jar", true}, {"a.tar.gz", true},
               {"code.m", false},       {"png", false},   {"dir.png/readme", false}, {"noext", false},
               {"data.mat", false},     {"a.", false}};
  for (const auto& c : cases) EXPECT_EQ(isCompressedFormat(c.name), c.compressed) << c.name;
}

// One table of entries written with one thread and with several: the archives are the same bytes,
// each entry reads back whole, and each is stored or deflated as its content calls for.
TEST(ParallelDeflateTest, PackagesDoNotDependOnThreadsAndStoreWhatDoesNotShrink) {
  const struct {
    const char* name;
    std::string bytes;
    Compression asked;
    std::uint16_t method;
  } entries[] = {
      {"empty.txt", "", Compression::Deflated, 8},
      {"small.m", patternBytes(1000, 1), Compression::Deflated, 8},
      {"image.png", randomBytes(300000, 2), Compression::Deflated, 0},
      {"noise.bin", randomBytes(300000, 3), Compression::Deflated, 8},  // small: deflate falls back to stored blocks
      {"at limit.txt", patternBytes(kWholeEntryLimit, 4), Compression::Deflated, 8},
      {"large text.csv", patternBytes(kWholeEntryLimit + 4097, 5), Compression::Deflated, 8},
      {"large noise.mat", randomBytes(kWholeEntryLimit + 1, 6), Compression::Deflated, 0},
      {"asked stored.txt", patternBytes(5000, 7), Compression::Stored, 0},
  };
  ScratchDir dir;
  std::string archives[2];
  const char* threads[2] = {"1", "4"};
  for (int run = 0; run < 2; ++run) {
    SCOPED_TRACE(threads[run]);
    const ThreadsOverride override(threads[run]);
    const std::string file = dir.file(std::string("pkg") + threads[run] + ".zip");
    {
      ZipPhysicalPackage physical(u16(file), false);
      auto writer = physical.createWriter();
      for (int copy = 0; copy < 3; ++copy) {  // more entries than workers
        for (const auto& e : entries) {
          writer->addEntry(std::to_string(copy) + "/" + e.name, std::make_shared<detail::MemoryContentSource>(e.bytes),
                           e.asked, {FileTime{1700000000, 0}, 0644});
        }
      }
      writer->commit();
    }
    archives[run] = readFile(file);
    ZipPhysicalPackage physical(u16(file), false);
    physical.openArchive();
    std::size_t i = 0;
    for (int copy = 0; copy < 3; ++copy) {
      for (const auto& e : entries) {
        const ZipEntry& entry = physical.getEntries().at(i);
        EXPECT_EQ(entry.name, std::to_string(copy) + "/" + e.name);
        EXPECT_EQ(entry.compressionMethod, e.method) << entry.name;
        if (copy == 0) {
          EXPECT_EQ(readAll(*physical.openEntry(i)), e.bytes) << entry.name;
        }
        ++i;
      }
    }
  }
  EXPECT_TRUE(archives[0] == archives[1]) << "the archives differ";
}

struct StringSink : OutputSink {
  std::string bytes;
  void append(const std::uint8_t* data, std::size_t size) override {
    bytes.append(reinterpret_cast<const char*>(data), size);
  }
};

// Pieces join into one stream at every boundary (one piece, exactly a round, a byte past it, many
// rounds), and the stream is the same for any thread count; sizes that changed since are refused.
TEST(ParallelDeflateTest, PiecesJoinIntoOneStreamWhateverTheThreads) {
  const std::size_t sizes[] = {1, kPieceSize, 2 * kPieceSize, 2 * kPieceSize + 1, 7 * kPieceSize + 12345};
  for (const std::size_t size : sizes) {
    SCOPED_TRACE(size);
    const std::string data = patternBytes(size, static_cast<unsigned>(size));
    std::string first;
    for (const unsigned threads : {1u, 2u, 3u}) {
      StringSink sink;
      const PieceStream result = deflateInPieces(detail::MemoryContentSource(data), sink, threads);
      EXPECT_EQ(result.size, size);
      EXPECT_EQ(result.crc, libdeflate_crc32(0, data.data(), data.size()));
      EXPECT_EQ(result.compressedSize, sink.bytes.size());
      if (threads == 1) {
        EXPECT_EQ(inflate(sink.bytes, size), data);
        first = sink.bytes;
      } else {
        EXPECT_TRUE(sink.bytes == first) << threads << " threads";
      }
    }
  }
  struct Lying : detail::MemoryContentSource {
    std::uint64_t claimed;
    Lying(std::string bytes, std::uint64_t c) : MemoryContentSource(std::move(bytes)), claimed(c) {}
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return claimed; }
  };
  StringSink sink;
  EXPECT_THROW((void)deflateInPieces(Lying(patternBytes(3 * kPieceSize, 1), 3 * kPieceSize - 1), sink, 2), Exception);
  EXPECT_THROW((void)deflateInPieces(Lying(patternBytes(3 * kPieceSize, 1), 5 * kPieceSize), sink, 2), Exception);
}

TEST(ParallelDeflateTest, PipelineGivesResultsInOrderWhateverItsWindow) {
  for (const std::uint64_t window : {std::uint64_t{1}, std::uint64_t{64} << 20}) {
    SCOPED_TRACE(window);
    DeflatePipeline pipeline(3, window);
    std::vector<std::string> inputs;
    for (unsigned i = 0; i < 60; ++i) {
      inputs.push_back(patternBytes(1000 + i * 3001, i));
      EXPECT_EQ(pipeline.add(std::make_shared<detail::MemoryContentSource>(inputs.back())), i);
    }
    pipeline.start();
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      const DeflatedEntry result = pipeline.take(i);
      ASSERT_TRUE(result.error.empty()) << result.error;
      EXPECT_EQ(result.size, inputs[i].size());
      EXPECT_EQ(result.crc, libdeflate_crc32(0, inputs[i].data(), inputs[i].size()));
      EXPECT_EQ(inflate(result.compressed, inputs[i].size()), inputs[i]);
    }
  }
  // Stopping with results nobody took joins the workers.
  DeflatePipeline abandoned(2, 1);
  for (unsigned i = 0; i < 10; ++i) (void)abandoned.add(std::make_shared<detail::MemoryContentSource>(patternBytes(5000, i)));
  abandoned.start();
}

}  // namespace
}  // namespace opc::zippackage
