#pragma once
// How a part is stored physically.
#include <cstdint>

namespace opc::model {

// compressionType: 0 stored, 1 deflate (the default). size: the expected content length, a hint
// that may be 0 when unknown. Throws opc::Exception for any other compression type.
class StandardPartInfo {
 public:
  static constexpr int Stored = 0;
  static constexpr int Deflated = 1;

  explicit StandardPartInfo(int compressionType = Deflated, std::uint64_t size = 0);
  [[nodiscard]] int getCompressionType() const { return compressionType_; }
  [[nodiscard]] std::uint64_t getSize() const { return size_; }

 private:
  int compressionType_;
  std::uint64_t size_;
};

}  // namespace opc::model
