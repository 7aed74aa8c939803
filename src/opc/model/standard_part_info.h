#pragma once
// How a part is stored physically.
#include <cstdint>

#include "opc/compression.h"

namespace opc::model {

// The compression type (deflate, value 1, by default) and the expected content length, a hint that
// may be 0 when unknown.
class StandardPartInfo {
 public:
  explicit StandardPartInfo(Compression compression = Compression::Deflated, std::uint64_t size = 0)
      : compression_(compression), size_(size) {}
  [[nodiscard]] Compression getCompressionType() const { return compression_; }
  [[nodiscard]] std::uint64_t getSize() const { return size_; }

 private:
  Compression compression_;
  std::uint64_t size_;
};

}  // namespace opc::model
