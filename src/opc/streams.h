#pragma once
// Byte streams of the OPC library and adaptors to the standard streams.
#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>

namespace opc {

// A source of bytes read front to back. Not thread-safe.
class InputStream {
 public:
  virtual ~InputStream() = default;
  // Reads up to `size` bytes into `buffer`; returns how many. 0 means the end (never for size > 0
  // before the end). Throws opc::Exception on a read error (a corrupt entry, an I/O failure).
  [[nodiscard]] virtual std::size_t read(std::uint8_t* buffer, std::size_t size) = 0;
};

// A sink of bytes. Not thread-safe. Throws opc::Exception on a write error.
class OutputStream {
 public:
  virtual ~OutputStream() = default;
  virtual void write(const std::uint8_t* data, std::size_t size) = 0;
  virtual void flush() = 0;
};

// Reads a std::istream it does not own; the stream must outlive the adaptor. A stream that goes bad
// (not merely at its end) throws opc::Exception.
class StdIStreamAdaptor : public InputStream {
 public:
  explicit StdIStreamAdaptor(std::istream& stream) : stream_(stream) {}
  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override;

 private:
  std::istream& stream_;
};

// Writes to a std::ostream it does not own; the stream must outlive the adaptor.
class StdOStreamAdaptor : public OutputStream {
 public:
  explicit StdOStreamAdaptor(std::ostream& stream) : stream_(stream) {}
  void write(const std::uint8_t* data, std::size_t size) override;
  void flush() override;

 private:
  std::ostream& stream_;
};

// Copies `input` to its end into `output` through a fixed buffer, so memory does not grow with the
// length; returns the number of bytes copied. Errors of either stream propagate.
std::uint64_t copyStream(InputStream& input, OutputStream& output);

}  // namespace opc
