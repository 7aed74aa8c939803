// The parallel deflate path of the package writer: what it stores, that its output does not depend on
// the number of threads, and that the pipeline hands results over in order within its window.
#include "opc/zippackage/parallel_deflate.h"

#include <gtest/gtest.h>
#include <libdeflate.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
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

// Inflates a raw deflate stream with zlib, which the deflate side does not use; fails the test unless
// the stream ends exactly at the end of `compressed`.
std::string zlibInflate(const std::string& compressed) {
  z_stream z{};
  EXPECT_EQ(inflateInit2(&z, -15), Z_OK);
  std::string out;
  std::string window(1u << 16, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
  z.avail_in = static_cast<uInt>(compressed.size());
  int result = Z_OK;
  while (result == Z_OK) {
    z.next_out = reinterpret_cast<Bytef*>(window.data());
    z.avail_out = static_cast<uInt>(window.size());
    result = inflate(&z, Z_NO_FLUSH);
    out.append(window.data(), window.size() - z.avail_out);
  }
  EXPECT_EQ(result, Z_STREAM_END) << (z.msg != nullptr ? z.msg : "");
  EXPECT_EQ(z.avail_in, 0u) << "bytes after the final block";
  inflateEnd(&z);
  return out;
}

std::string libdeflateCompress(const std::string& data, int level) {
  libdeflate_compressor* c = libdeflate_alloc_compressor(level);
  std::string out(libdeflate_deflate_compress_bound(c, data.size()), '\0');
  out.resize(libdeflate_deflate_compress(c, data.data(), data.size(), out.data(), out.size()));
  libdeflate_free_compressor(c);
  return out;
}

// Text-like bytes from a vocabulary, so that they deflate well and use matches of every length.
std::string wordBytes(std::size_t size, unsigned seed) {
  static const char* const words[] = {"alpha ", "beta ", "gamma\n", "0.125,", "signal ", "x(i) = ", "end\n"};
  std::mt19937 gen(seed);
  std::string out;
  while (out.size() < size) out += words[gen() % std::size(words)];
  out.resize(size);
  return out;
}

// Samples whose low 12 bits of every 32 are noise: what a float recording looks like, keeping about
// four fifths of its size under deflate.
std::string noisySamples(std::size_t size, unsigned seed) {
  std::mt19937 gen(seed);
  std::string out(size, '\0');
  for (std::size_t i = 0; i + 4 <= size; i += 4) {
    const std::uint32_t v = 0x40000000u + static_cast<std::uint32_t>((i / 4 * 3 / 10) % 4096) * 4096u + (gen() & 0xfff);
    std::memcpy(out.data() + i, &v, 4);
  }
  return out;
}

// Runs of text and noise that straddle piece boundaries, so that a piece holds blocks of both kinds.
std::string mixedBytes(std::size_t size, unsigned seed) {
  std::string out;
  for (unsigned run = 0; out.size() < size; ++run) {
    out += (run % 2 != 0 ? randomBytes : wordBytes)(200000 + run * 37111, seed);
  }
  out.resize(size);
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

// Pieces join into one stream that zlib inflates whole, for each kind of content, at and around every
// piece boundary and over many rounds; the stream is the same bytes for any thread count.
TEST(ParallelDeflateTest, PiecesJoinIntoOneStreamWhateverTheThreads) {
  const struct {
    const char* kind;
    std::string (*make)(std::size_t, unsigned);
  } contents[] = {{"incompressible", randomBytes}, {"compressible", wordBytes}, {"mixed", mixedBytes},
                  {"noisy samples", noisySamples}};
  const std::size_t sizes[] = {0, 1, kPieceSize - 1, kPieceSize, kPieceSize + 1, 2 * kPieceSize - 1, 2 * kPieceSize,
                               2 * kPieceSize + 1, 3 * kPieceSize + 2, 5 * kPieceSize + 12345};
  for (const auto& content : contents) {
    for (const std::size_t size : sizes) {
      SCOPED_TRACE(std::string(content.kind) + " " + std::to_string(size));
      const std::string data = content.make(size, static_cast<unsigned>(size));
      std::string first;
      for (const unsigned threads : {1u, 2u, 3u}) {
        StringSink sink;
        const PieceStream result = deflateInPieces(detail::MemoryContentSource(data), sink, threads);
        EXPECT_EQ(result.size, size);
        EXPECT_EQ(result.crc, libdeflate_crc32(0, data.data(), data.size()));
        EXPECT_EQ(result.compressedSize, sink.bytes.size());
        if (threads == 1) {
          EXPECT_TRUE(zlibInflate(sink.bytes) == data) << "the joined stream inflates to other bytes";
          first = sink.bytes;
        } else {
          EXPECT_TRUE(sink.bytes == first) << threads << " threads";
        }
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

// A stream made joinable is followed by another, and zlib reads both as one: whether the final
// block's padding had room for the stored block's header bits or not, whatever the block type
// (stored, fixed, dynamic) and wherever the final block starts.
TEST(ParallelDeflateTest, UnfinishedStreamsJoinWhateverTheirPadding) {
  unsigned roomy = 0;
  unsigned cramped = 0;
  for (const int level : {0, 1, 6, 12}) {
    for (std::size_t size = 0; size < 300; size += 7) {
      for (const bool noise : {false, true}) {
        SCOPED_TRACE("level " + std::to_string(level) + ", " + std::to_string(size) + (noise ? " noise" : " text"));
        const std::string a = noise ? randomBytes(size, 11 + static_cast<unsigned>(size)) : wordBytes(size, 3);
        const std::string b = wordBytes(size / 2 + 5, 4);
        std::string stream = libdeflateCompress(a, level);
        const std::size_t before = stream.size();
        unfinishStream(stream);
        ASSERT_TRUE(stream.size() == before + 4 || stream.size() == before + 5) << stream.size() - before;
        EXPECT_EQ(stream.compare(stream.size() - 4, 4, std::string("\x00\x00\xff\xff", 4)), 0);
        (stream.size() == before + 4 ? roomy : cramped) += 1;
        EXPECT_TRUE(zlibInflate(stream + libdeflateCompress(b, 6)) == a + b);
      }
    }
  }
  EXPECT_GT(roomy, 10u) << "too few streams whose padding held the stored block's header";
  EXPECT_GT(cramped, 10u) << "too few streams whose padding was under three bits";

  // A final block that is not the first: large noise makes several stored blocks, text several
  // dynamic ones. And an empty fixed block whose six padding bits are ones, which inflaters ignore
  // but a stored block's header must not inherit.
  const std::string emptyWithSetPadding("\x03\xfc", 2);
  for (const std::string& a : {randomBytes(700000, 5), wordBytes(3000000, 6), mixedBytes(900000, 7), std::string()}) {
    std::string stream = a.empty() ? emptyWithSetPadding : libdeflateCompress(a, 6);
    unfinishStream(stream);
    EXPECT_TRUE(zlibInflate(stream + libdeflateCompress("tail", 6)) == a + "tail") << a.size();
  }
}

TEST(ParallelDeflateTest, WhatIsNotOneStreamIsNotUnfinished) {
  const std::string whole = libdeflateCompress(wordBytes(100000, 8), 6);
  // Empty, truncated, trailing bytes, a reserved block type, a stored length and its complement
  // that disagree, two streams.
  for (const std::string& bytes : {std::string(), whole.substr(0, whole.size() / 2), whole + "xyz",
                                   std::string("\x07\x00", 2), std::string("\x01\x05\x00\x05\x00hello", 10),
                                   libdeflateCompress("ab", 6) + libdeflateCompress("cd", 6)}) {
    std::string stream = bytes;
    EXPECT_THROW(unfinishStream(stream), Exception) << bytes.size();
    EXPECT_TRUE(stream == bytes) << bytes.size() << ": changed although refused";
  }
}

// Large entries that keep most of their size are deflated at the faster level; others, and entries
// too short to judge, at the writer's level. A one-piece entry is libdeflate's own stream.
TEST(ParallelDeflateTest, PoorlyCompressibleEntriesUseTheFasterLevel) {
  const struct {
    const char* kind;
    std::string bytes;
    int level;
  } cases[] = {
      {"noisy samples", noisySamples(kPieceSize, 1), kPoorDataLevel},
      {"text", wordBytes(kPieceSize, 2), kDeflateLevel},
      {"noisy samples and text", noisySamples(kPieceSize / 2, 3) + wordBytes(kPieceSize / 2, 3), kPoorDataLevel},
      {"short noisy samples", noisySamples(60000, 4), kDeflateLevel},
  };
  for (const auto& c : cases) {
    ASSERT_FALSE(libdeflateCompress(c.bytes, kPoorDataLevel) == libdeflateCompress(c.bytes, kDeflateLevel)) << c.kind;
    StringSink sink;
    (void)deflateInPieces(detail::MemoryContentSource(c.bytes), sink, 1);
    EXPECT_TRUE(sink.bytes == libdeflateCompress(c.bytes, c.level)) << c.kind;
  }
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
