#pragma once
// In-memory streams for the XML tests: bytes in (in reads of a chosen size) and bytes out.
#include <algorithm>
#include <cstdint>
#include <string>

#include "opc/streams.h"

namespace opc::testing {

// Serves `bytes` in reads of at most `chunk` bytes.
class BytesInput : public opc::InputStream {
 public:
  explicit BytesInput(std::string bytes, std::size_t chunk = 1 << 16) : bytes_(std::move(bytes)), chunk_(chunk) {}

  std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    const std::size_t n = std::min({size, chunk_, bytes_.size() - offset_});
    std::copy_n(bytes_.data() + offset_, n, buffer);
    offset_ += n;
    return n;
  }
  [[nodiscard]] std::size_t consumed() const { return offset_; }

 private:
  std::string bytes_;
  std::size_t chunk_;
  std::size_t offset_ = 0;
};

class BytesOutput : public opc::OutputStream {
 public:
  void write(const std::uint8_t* data, std::size_t size) override {
    bytes.append(reinterpret_cast<const char*>(data), size);
  }
  void flush() override {}
  std::string bytes;
};

}  // namespace opc::testing
