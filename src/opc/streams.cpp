#include "opc/streams.h"

#include <array>

#include "opc/exception.h"

namespace opc {

std::size_t StdIStreamAdaptor::read(std::uint8_t* buffer, std::size_t size) {
  if (size == 0) return 0;
  stream_.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(size));
  const auto count = static_cast<std::size_t>(stream_.gcount());
  if (stream_.bad()) throw Exception("read error on an input stream");
  return count;
}

void StdOStreamAdaptor::write(const std::uint8_t* data, std::size_t size) {
  stream_.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  if (!stream_) throw Exception("write error on an output stream");
}

void StdOStreamAdaptor::flush() {
  stream_.flush();
  if (!stream_) throw Exception("flush error on an output stream");
}

std::uint64_t copyStream(InputStream& input, OutputStream& output) {
  std::array<std::uint8_t, 64 * 1024> buffer;
  std::uint64_t total = 0;
  for (;;) {
    const std::size_t n = input.read(buffer.data(), buffer.size());
    if (n == 0) return total;
    output.write(buffer.data(), n);
    total += n;
  }
}

}  // namespace opc
