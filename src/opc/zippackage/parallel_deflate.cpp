#include "opc/zippackage/parallel_deflate.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <deque>
#include <limits>
#include <vector>

#include "opc/exception.h"

namespace opc::zippackage {

namespace {

// Fills `size` bytes at `into` from `stream`; fewer only at its end.
std::size_t readFully(InputStream& stream, std::uint8_t* into, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const std::size_t n = stream.read(into + filled, size - filled);
    if (n == 0) break;
    filled += n;
  }
  return filled;
}

// Where a raw deflate stream's blocks lie: the bit at which its final block's header starts (the
// BFINAL bit) and the bit just past that block's end-of-block code.
struct FinalBlock {
  std::uint64_t headerBit = 0;
  std::uint64_t endBit = 0;
};

// Inflates `stream` into a small window, overwritten as often as needed, stopping at each block
// boundary to note where the next block starts. Throws opc::Exception unless `stream` is exactly one
// valid stream.
FinalBlock locateFinalBlock(const std::uint8_t* stream, std::size_t size) {
  if (size > std::numeric_limits<uInt>::max()) throw Exception("a deflated piece is too large to join");
  z_stream z{};
  if (inflateInit2(&z, -15) != Z_OK) throw Exception("cannot start inflate");
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> guard(&z, &inflateEnd);
  std::vector<std::uint8_t> window(64u << 10);
  z.next_in = const_cast<std::uint8_t*>(stream);
  z.avail_in = static_cast<uInt>(size);
  FinalBlock found;
  for (;;) {
    z.next_out = window.data();
    z.avail_out = static_cast<uInt>(window.size());
    const int result = inflate(&z, Z_BLOCK);
    if (result == Z_STREAM_END) break;
    if (result != Z_OK) throw Exception("a deflated piece does not inflate");
    // Stopped between blocks: the low bits count what is left unread of the last byte taken, 64
    // says the block just ended was the final one.
    if ((z.data_type & 128) != 0) {
      const std::uint64_t bit = (size - z.avail_in) * 8u - static_cast<unsigned>(z.data_type & 7);
      if ((z.data_type & 64) != 0) {
        found.endBit = bit;
      } else {
        found.headerBit = bit;
      }
    }
  }
  if (z.avail_in != 0 || found.endBit == 0 || (stream[found.headerBit / 8] >> (found.headerBit % 8) & 1) != 1) {
    throw Exception("a deflated piece does not end as a single stream");
  }
  return found;
}

// Data that keeps more than three quarters of its size at level 1 (noisy samples, packed numbers)
// comes out no larger at level 4 than at kDeflateLevel and about a tenth faster, since the lazy
// matching of the higher levels finds little in it. The choice rests on the entry's first bytes,
// so that every piece, and the stream, is the same whatever the thread count.
int pieceLevel(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kSample = 64u << 10;
  size = std::min(size, kSample);
  if (size < kSample) return kDeflateLevel;
  std::string out;
  deflateInto(makeCompressor(1).get(), data, size, out);
  return out.size() * 4 > size * 3 ? kPoorDataLevel : kDeflateLevel;
}

}  // namespace

Compressor makeCompressor(int level) {
  Compressor c(libdeflate_alloc_compressor(level));
  if (!c) throw Exception("cannot allocate a deflate compressor");
  return c;
}

void deflateInto(libdeflate_compressor* compressor, const void* data, std::size_t size, std::string& out) {
  out.resize(libdeflate_deflate_compress_bound(compressor, size));
  const std::size_t n = libdeflate_deflate_compress(compressor, data, size, out.data(), out.size());
  if (n == 0) throw Exception("deflate output exceeded its bound");
  out.resize(n);
}

void readWhole(const ContentSource& source, std::uint64_t limit, std::string& bytes) {
  // One byte more than expected, so that the end shows in the same read.
  bytes.resize(static_cast<std::size_t>(std::min(source.size().value_or(0), limit)) + 1);
  const auto stream = source.openStream();
  std::size_t used = 0;
  while (const std::size_t n = stream->read(reinterpret_cast<std::uint8_t*>(bytes.data()) + used, bytes.size() - used)) {
    used += n;
    if (used < bytes.size()) continue;
    if (used > limit) throw Exception("the content grew past the size it had when added");
    bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(used * 2 + 4096, limit + 1)));
  }
  bytes.resize(used);
}

void unfinishStream(std::string& stream) {
  auto* bytes = reinterpret_cast<std::uint8_t*>(stream.data());
  const FinalBlock last = locateFinalBlock(bytes, stream.size());
  bytes[last.headerBit / 8] &= static_cast<std::uint8_t>(~(1u << (last.headerBit % 8)));
  // The stored block's three header bits, all zero, go into the padding after the end code when it
  // has room for them, else into one more byte.
  const std::uint64_t padding = stream.size() * 8u - last.endBit;
  if (padding > 0) bytes[last.endBit / 8] &= static_cast<std::uint8_t>((1u << (last.endBit % 8)) - 1);
  if (padding < 3) stream.push_back('\0');
  stream.append("\x00\x00\xff\xff", 4);
}

PieceStream deflateInPieces(const ContentSource& source, const PieceSink& out, detail::WorkQueue& work,
                            std::string_view entry) {
  const std::optional<std::uint64_t> expected = source.size();
  if (!expected) throw Exception("a source of unknown size cannot be deflated in pieces");
  struct Piece {
    std::vector<std::uint8_t> input;
    std::string output;
    std::uint64_t task = 0;
  };
  struct Shared {  // what the tasks use, kept alive by each of them
    int level = kDeflateLevel;
    std::vector<Compressor> compressors;  // a worker's, made on its first piece
  };
  const auto shared = std::make_shared<Shared>();
  shared->compressors.resize(work.slots());
  std::deque<std::shared_ptr<Piece>> flight;  // submitted, in order
  std::vector<std::shared_ptr<Piece>> spare;
  PieceStream result;
  const auto writeOldest = [&] {
    std::shared_ptr<Piece> piece = std::move(flight.front());
    flight.pop_front();
    work.wait(piece->task);
    out(piece->output);
    result.compressedSize += piece->output.size();
    spare.push_back(std::move(piece));
  };
  const auto stream = source.openStream();
  for (bool end = false; !end;) {
    std::shared_ptr<Piece> piece = spare.empty() ? std::make_shared<Piece>() : std::move(spare.back());
    if (!spare.empty()) spare.pop_back();
    piece->input.resize(kPieceSize);
    const std::size_t filled = readFully(*stream, piece->input.data(), kPieceSize);
    piece->input.resize(filled);
    result.crc = static_cast<std::uint32_t>(libdeflate_crc32(result.crc, piece->input.data(), filled));
    result.size += filled;
    if (result.size > *expected) throw Exception("the content grew past the size it had when added");
    end = result.size == *expected;
    std::uint8_t probe;
    if (end && stream->read(&probe, 1) != 0) throw Exception("the content grew past the size it had when added");
    if (!end && filled < kPieceSize) throw Exception("the content shrank below the size it had when added");
    // The level rests on the entry's first bytes, so that the stream does not depend on the workers.
    if (result.size == filled) shared->level = pieceLevel(piece->input.data(), filled);
    piece->task = work.submit(namingEntry(std::string(entry), [shared, piece, end](unsigned worker) {
      Compressor& compressor = shared->compressors[worker];
      if (!compressor) compressor = makeCompressor(shared->level);
      // Cold: libdeflate takes no preset dictionary, and what a piece loses for it is small next
      // to what libdeflate gains over zlib in speed and size.
      deflateInto(compressor.get(), piece->input.data(), piece->input.size(), piece->output);
      if (!end) unfinishStream(piece->output);
    }), true);
    flight.push_back(std::move(piece));
    if (flight.size() >= work.slots()) writeOldest();
  }
  while (!flight.empty()) writeOldest();
  return result;
}

bool isCompressedFormat(std::string_view name) {
  static constexpr std::array<std::string_view, 31> kExtensions = {
      "png", "jpg", "jpeg", "gif", "webp", "heic", "avif", "jp2", "mp3", "m4a", "aac", "ogg", "opus", "flac", "mp4",
      "m4v", "mov", "mkv", "webm", "avi", "zip", "gz", "tgz", "bz2", "xz", "zst", "7z", "rar", "jar", "docx", "xlsx"};
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || name.size() - dot > 6) return false;
  std::string ext(name.substr(dot + 1));
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::find(kExtensions.begin(), kExtensions.end(), ext) != kExtensions.end();
}

bool worthDeflating(const ContentSource& source) {
  constexpr std::size_t kSample = 256u << 10;
  std::vector<std::uint8_t> sample(kSample);
  sample.resize(readFully(*source.openStream(), sample.data(), kSample));
  if (sample.empty()) return true;
  std::string out;
  deflateInto(makeCompressor(1).get(), sample.data(), sample.size(), out);
  return out.size() * 100 <= sample.size() * 92;
}

}  // namespace opc::zippackage
