#pragma once
// In-memory streams for the XML tests: bytes in, bytes out, and faults on demand.
#include <algorithm>
#include <cstdint>
#include <string>

#include "opc/exception.h"
#include "opc/streams.h"

namespace opc::testing {

// Serves `bytes` in reads of at most `chunk` bytes; throws opc::Exception("injected read fault")
// once more than `failAfter` bytes have been asked for.
class BytesInput : public opc::InputStream {
 public:
  explicit BytesInput(std::string bytes, std::size_t chunk = 1 << 16,
                      std::size_t failAfter = std::string::npos)
      : bytes_(std::move(bytes)), chunk_(chunk), failAfter_(failAfter) {}

  std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    if (offset_ >= failAfter_) throw opc::Exception("injected read fault");
    const std::size_t n = std::min({size, chunk_, bytes_.size() - offset_});
    std::copy_n(bytes_.data() + offset_, n, buffer);
    offset_ += n;
    return n;
  }
  [[nodiscard]] std::size_t consumed() const { return offset_; }

 private:
  std::string bytes_;
  std::size_t chunk_;
  std::size_t failAfter_;
  std::size_t offset_ = 0;
};

class BytesOutput : public opc::OutputStream {
 public:
  explicit BytesOutput(std::size_t failAfter = std::string::npos) : failAfter_(failAfter) {}
  void write(const std::uint8_t* data, std::size_t size) override {
    if (bytes.size() + size > failAfter_) throw opc::Exception("injected write fault");
    bytes.append(reinterpret_cast<const char*>(data), size);
  }
  void flush() override {}
  std::string bytes;

 private:
  std::size_t failAfter_;
};

}  // namespace opc::testing
