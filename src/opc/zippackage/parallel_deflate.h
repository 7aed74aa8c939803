#pragma once
// The writer's deflate: what to deflate, small entries whole, large ones in pieces on every worker.
// Internal to opc::zippackage.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <libdeflate.h>

#include "foundation/scope.h"
#include "opc/content_source.h"
#include "opc/exception.h"
#include "opc/detail/work_queue.h"

namespace opc::zippackage {

// The deflate level of the pieces of large entries.
constexpr int kDeflateLevel = 5;
// Entries deflated whole (up to kWholeEntryLimit) run on the workers while the writer is busy with the
// tree's large and stored entries, so they take a stronger level. The near-optimal levels (10 and
// up) hold too much memory a worker for the 70,000-entry build's 100 MB budget.
constexpr int kWholeEntryLevel = 7;
// The level of large entries whose first 64 KiB keep more than three quarters of their size.
constexpr int kPoorDataLevel = 4;
// Entries to deflate up to this size are read whole and deflated by one worker ahead of the writing;
// larger ones stream through the writer, deflated in pieces.
constexpr std::uint64_t kWholeEntryLimit = 1u << 20;
// The size of the pieces a large entry is deflated in, each by one worker; pieces start cold (no
// preset dictionary), so larger ones pack a little tighter and hold more memory on every core.
constexpr std::size_t kPieceSize = 512u << 10;

// A failure that already names its entry ("entry 'NAME': why"), as the writer's workers throw it.
struct EntryError : Exception {
  using Exception::Exception;
};

// `task` as a worker's task whose failure is an EntryError naming `entry`.
template <class Task>
[[nodiscard]] auto namingEntry(std::string entry, Task task) {
  return [entry = std::move(entry), task = std::move(task)](unsigned worker) mutable {
    try {
      task(worker);
    } catch (const std::exception& e) {
      throw EntryError("entry '" + entry + "': " + e.what());
    }
  };
}

using Compressor = std::unique_ptr<libdeflate_compressor, CDeleter<&libdeflate_free_compressor>>;
[[nodiscard]] Compressor makeCompressor(int level);

// True when the name ends in the extension of a format that is already compressed (images, audio,
// video, archives), so deflating it would cost time and gain nothing.
[[nodiscard]] bool isCompressedFormat(std::string_view name);

// True when deflating the first bytes of `source` at a fast level saves at least 8% of them.
// Throws opc::Exception when the source cannot be read.
[[nodiscard]] bool worthDeflating(const ContentSource& source);

// Reads all of `source` into `bytes` (whose capacity is kept from one call to the next). Throws
// opc::Exception when it holds more than `limit` bytes or cannot be read.
void readWhole(const ContentSource& source, std::uint64_t limit, std::string& bytes);

// Deflates `size` bytes at `data` with `compressor` into `out` (resized to the stream's length).
void deflateInto(libdeflate_compressor* compressor, const void* data, std::size_t size, std::string& out);

// Turns `stream`, one complete raw deflate stream, into one that another raw deflate stream can
// follow: its final block becomes an ordinary one and it ends on a byte boundary with an empty
// stored block, as a zlib sync flush ends. Costs an inflate of the stream. Throws opc::Exception,
// leaving `stream` as it was, unless `stream` is exactly one valid stream.
void unfinishStream(std::string& stream);

// Where deflateInPieces puts its output, one piece at a time.
using PieceSink = std::function<void(std::string_view bytes)>;

// A raw deflate stream made by deflateInPieces.
struct PieceStream {
  std::uint64_t size = 0;  // bytes read from the source
  std::uint32_t crc = 0;
  std::uint64_t compressedSize = 0;
};

// Deflates `source` (whose size() must be known) in kPieceSize pieces on the workers of `work`,
// reading the next pieces while earlier ones are deflated: every piece but the last has its
// final-block bit cleared and ends on a byte boundary with an empty stored block, so the pieces join
// into one raw deflate stream, appended to `out` in order. Memory holds about two pieces a worker.
// The output does not depend on the number of workers. Throws opc::Exception (a failed piece's
// message names `entry`) when the source cannot be read or holds another size than it said; what was
// appended to `out` by then is to be dropped.
PieceStream deflateInPieces(const ContentSource& source, const PieceSink& out, detail::WorkQueue& work,
                            std::string_view entry);

}  // namespace opc::zippackage
