// The writer's parallel paths: the work queue every worker runs on, and how pieces of a large entry
// join into one stream whatever the number of workers.
#include "opc/zippackage/parallel_deflate.h"

#include <gtest/gtest.h>
#include <libdeflate.h>
#include <zlib.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>

#include "opc/detail/content_sources.h"
#include "opc/detail/work_queue.h"
#include "opc/exception.h"
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
  std::string out;
  deflateInto(makeCompressor(level).get(), data.data(), data.size(), out);
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

struct StringSink : OutputSink {
  std::string bytes;
  void append(const std::uint8_t* data, std::size_t size) override { bytes.append(reinterpret_cast<const char*>(data), size); }
};

// Tasks run in order on any number of workers, each told a worker number below slots(); the first
// failure reaches the caller from finish() and every later submit, whose task then never runs.
TEST(WorkQueueTest, TasksRunAndTheFirstFailureReachesTheCaller) {
  for (const unsigned workers : {0u, 1u, 3u}) {
    SCOPED_TRACE(workers);
    detail::WorkQueue queue(workers, 4);
    std::vector<int> ran(40, 0);
    std::atomic<bool> slotsKept{true};
    for (int i = 0; i < 40; ++i) {
      EXPECT_EQ(queue.submit([&, i](unsigned worker) {
        if (worker >= queue.slots()) slotsKept = false;
        ran[i] = i + 1;
      }), static_cast<std::uint64_t>(i));
    }
    queue.wait(20);
    EXPECT_EQ(ran[20], 21);
    queue.finish();
    for (int i = 0; i < 40; ++i) EXPECT_EQ(ran[i], i + 1);
    EXPECT_TRUE(slotsKept);
    EXPECT_EQ(errorOf([&] {
                (void)queue.submit([](unsigned) { throw Exception("the first failure"); });
                queue.finish();
              }),
              "the first failure");
    bool late = false;
    EXPECT_THROW((void)queue.submit([&](unsigned) { late = true; }), Exception);
    EXPECT_FALSE(late);
  }
}

// Pieces join into one stream that zlib inflates whole, for each kind of content, at and around every
// piece boundary; the stream is the same bytes for any number of workers. A source that holds another
// size than it says is refused.
TEST(ParallelDeflateTest, PiecesJoinIntoOneStreamWhateverTheWorkers) {
  const struct {
    const char* kind;
    std::string (*make)(std::size_t, unsigned);
  } contents[] = {{"incompressible", randomBytes}, {"compressible", wordBytes}, {"noisy samples", noisySamples}};
  const std::size_t sizes[] = {0, 1, kPieceSize - 1, kPieceSize, kPieceSize + 1, 2 * kPieceSize - 1, 2 * kPieceSize,
                               2 * kPieceSize + 1, 3 * kPieceSize + 2, 5 * kPieceSize + 12345};
  for (const auto& content : contents) {
    for (const std::size_t size : sizes) {
      SCOPED_TRACE(std::string(content.kind) + " " + std::to_string(size));
      const std::string data = content.make(size, static_cast<unsigned>(size));
      std::string first;
      for (const unsigned workers : {0u, 2u, 3u}) {
        detail::WorkQueue work(workers, 8);
        StringSink sink;
        const PieceStream result = deflateInPieces(detail::MemoryContentSource(data), sink, work, "x");
        EXPECT_EQ(result.size, size);
        EXPECT_EQ(result.crc, libdeflate_crc32(0, data.data(), data.size()));
        EXPECT_EQ(result.compressedSize, sink.bytes.size());
        if (workers == 0) {
          EXPECT_TRUE(zlibInflate(sink.bytes) == data) << "the joined stream inflates to other bytes";
          first = sink.bytes;
        } else {
          EXPECT_TRUE(sink.bytes == first) << workers << " workers";
        }
      }
    }
  }
  struct Lying : detail::MemoryContentSource {
    std::uint64_t claimed;
    Lying(std::string bytes, std::uint64_t c) : MemoryContentSource(std::move(bytes)), claimed(c) {}
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return claimed; }
  };
  detail::WorkQueue work(2, 8);
  StringSink sink;
  for (const std::uint64_t claimed : {3 * kPieceSize - 1, 5 * kPieceSize}) {
    EXPECT_THROW((void)deflateInPieces(Lying(patternBytes(3 * kPieceSize, 1), claimed), sink, work, "x"), Exception);
  }
}

// A stream made joinable is followed by another and zlib reads both as one, also after an empty
// fixed block whose six padding bits are ones (which inflaters ignore but a stored block's header must
// not inherit); what is not exactly one stream is refused and left as it was. (Streams whose padding
// has room for the stored block's header bits or not: the pieces test.)
TEST(ParallelDeflateTest, UnfinishedStreamsJoinOrAreRefused) {
  std::string stream("\x03\xfc", 2);
  unfinishStream(stream);
  EXPECT_TRUE(zlibInflate(stream + libdeflateCompress("tail", 6)) == "tail");
  const std::string whole = libdeflateCompress(wordBytes(100000, 8), 6);
  // Empty, truncated, trailing bytes, a reserved block type, a stored length and its complement
  // that disagree, two streams.
  for (const std::string& bytes : {std::string(), whole.substr(0, whole.size() / 2), whole + "xyz",
                                   std::string("\x07\x00", 2), std::string("\x01\x05\x00\x05\x00hello", 10),
                                   libdeflateCompress("ab", 6) + libdeflateCompress("cd", 6)}) {
    std::string refused = bytes;
    EXPECT_THROW(unfinishStream(refused), Exception) << bytes.size();
    EXPECT_TRUE(refused == bytes) << bytes.size() << ": changed although refused";
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
  detail::WorkQueue work(0, 1);
  for (const auto& c : cases) {
    ASSERT_FALSE(libdeflateCompress(c.bytes, kPoorDataLevel) == libdeflateCompress(c.bytes, kDeflateLevel)) << c.kind;
    StringSink sink;
    (void)deflateInPieces(detail::MemoryContentSource(c.bytes), sink, work, "x");
    EXPECT_TRUE(sink.bytes == libdeflateCompress(c.bytes, c.level)) << c.kind;
  }
}

}  // namespace
}  // namespace opc::zippackage
