#pragma once
// Shared helpers of the OPC tests: a scratch folder, file bytes, in-memory streams, UTF-16 literals in
// messages, the message of a refusal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "foundation/i18n.h"
#include "foundation/ustring.h"
#include "opc/exception.h"
#include "opc/detail/text.h"
#include "opc/streams.h"
#include "support/scratch.h"

namespace opc::test {

using ::testing::AllOf;
using ::testing::HasSubstr;

// A scratch folder whose paths also come as UTF-16.
class ScratchDir : public zvtest::TempDir {
 public:
  [[nodiscard]] ustring ufile(const std::string& name) const { return fl::i18n::from_utf8(file(name)); }
};

inline std::string readFile(const std::string& path) { return zvtest::readBytes(path); }
inline void writeFile(const std::string& path, const std::string& bytes) { zvtest::writeBytes(path, bytes); }

inline std::string readAll(InputStream& in) {
  std::string out;
  std::uint8_t buffer[4096];
  while (const std::size_t n = in.read(buffer, sizeof buffer)) out.append(reinterpret_cast<const char*>(buffer), n);
  return out;
}

inline void writeAll(OutputStream& out, const std::string& bytes) {
  out.write(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

// Serves `bytes` in reads of at most `chunk` bytes.
class BytesInput : public InputStream {
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

struct BytesOutput : OutputStream {
  void write(const std::uint8_t* data, std::size_t size) override { bytes.append(reinterpret_cast<const char*>(data), size); }
  void flush() override {}
  std::string bytes;
};

// What `f` throws as an opc::Exception, or "(no error)": match it against the expected fragment.
template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (const Exception& e) {
    return e.what();
  }
  return "(no error)";
}

inline std::string u8(const ustring& text) { return opc::detail::narrow(text); }
inline ustring u16(const std::string& text) { return fl::i18n::from_utf8(text); }

// Bytes that do not compress to nothing and differ by seed.
inline std::string patternBytes(std::size_t size, unsigned seed) {
  std::string out(size, '\0');
  std::uint32_t x = 2463534242u ^ seed;
  for (auto& c : out) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    c = static_cast<char>(x % 64 + 32);
  }
  return out;
}

}  // namespace opc::test
