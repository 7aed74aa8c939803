#pragma once
// Deflating entries on every core ahead of the writer, which then copies the finished streams.
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "opc/content_source.h"

namespace opc::zippackage {

// The deflate level of the streams the writer makes. libdeflate's level 5 packs an add-on tree as
// tightly as zlib's default level 6 does (the benchmark tree: 382.5 MB against Info-ZIP's 383.4 MB at
// -6) and takes a quarter less CPU than its own level 6.
constexpr int kDeflateLevel = 5;

// Entries up to this size are read whole and deflated in memory by one worker each.
constexpr std::uint64_t kWholeEntryLimit = 1u << 20;

// Worker threads to use: ZVADDON_THREADS when set (1 gives the sequential build, byte for byte the
// same package), else the number of cores.
[[nodiscard]] unsigned deflateThreads();

// True when the name ends in the extension of a format that is already compressed (images, audio,
// video, archives), so deflating it would cost time and gain nothing.
[[nodiscard]] bool isCompressedFormat(std::string_view name);

// True when deflating the first bytes of `source` at a fast level saves at least 8% of them.
// Throws opc::Exception when the source cannot be read.
[[nodiscard]] bool worthDeflating(const ContentSource& source);

// The size of the pieces a large entry is deflated in, each on its own thread. Pieces start cold
// (no preset dictionary); larger ones would gain about 0.1% in size and cost memory on every core
// (a piece and its output a thread, beside the whole-entry workers).
constexpr std::size_t kPieceSize = 512u << 10;

// The level of large entries whose first 64 KiB keep more than three quarters of their size.
constexpr int kPoorDataLevel = 4;

// A raw deflate stream made by deflateInPieces.
struct PieceStream {
  std::uint64_t size = 0;  // bytes read from the source
  std::uint32_t crc = 0;
  std::uint64_t compressedSize = 0;
};

// Deflates `source` (whose size() must be known) in kPieceSize pieces, up to `threads` at a time:
// every piece but the last has its final-block bit cleared and ends on a byte boundary with an
// empty stored block, so the pieces join into one raw deflate stream. The stream is appended to
// `out`; memory holds about two pieces per thread. The output does not depend on `threads`. Throws
// opc::Exception when the source cannot be read or holds another size than it said; what was
// appended to `out` by then is to be dropped.
PieceStream deflateInPieces(const ContentSource& source, class OutputSink& out, unsigned threads);

// Turns `stream`, one complete raw deflate stream, into one that another raw deflate stream can
// follow: its final block becomes an ordinary one and it ends on a byte boundary with an empty
// stored block, as a zlib sync flush ends. Costs an inflate of the stream. Throws opc::Exception,
// leaving `stream` as it was, unless `stream` is exactly one valid stream.
void unfinishStream(std::string& stream);

// Where deflateInPieces puts its output.
class OutputSink {
 public:
  virtual ~OutputSink() = default;
  virtual void append(const std::uint8_t* data, std::size_t size) = 0;
};

// One entry deflated whole: a raw deflate stream, the CRC-32 and size of the bytes it holds.
struct DeflatedEntry {
  std::string compressed;
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  std::string error;  // non-empty when the source could not be read; nothing else is set then
};

// Deflates sources of at most kWholeEntryLimit bytes on worker threads, in the order they were
// added, while the caller takes the results in that same order. Sources may be added before and
// after start(). Finished results not yet taken hold at most about `window` bytes (at least one
// result is always allowed), and a job is forgotten once taken, so memory stays bounded however many
// entries there are. Each source is used by one worker at a time and by nobody else meanwhile.
// Destroying the pipeline stops and joins the workers.
class DeflatePipeline {
 public:
  explicit DeflatePipeline(unsigned threads, std::uint64_t window = 2u << 20);
  ~DeflatePipeline();
  DeflatePipeline(const DeflatePipeline&) = delete;
  DeflatePipeline& operator=(const DeflatePipeline&) = delete;

  // Queues a source; returns its ticket (0, 1, 2, ... in order).
  std::size_t add(std::shared_ptr<const ContentSource> source);
  void start();
  // Waits for the result of `ticket`. Tickets must be taken in increasing order, each once.
  [[nodiscard]] DeflatedEntry take(std::size_t ticket);

 private:
  struct Job {
    std::shared_ptr<const ContentSource> source;
    DeflatedEntry result;
    bool done = false;
  };
  void work();

  unsigned threads_;
  std::uint64_t window_;
  std::deque<Job> jobs_;  // from ticket `first_` on; a worker's job keeps its place while others come
  std::size_t first_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t next_ = 0;         // the first job no worker has taken
  std::size_t taken_ = 0;        // the first job the caller has not taken
  std::uint64_t held_ = 0;       // bytes of finished results not yet taken
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace opc::zippackage
