#pragma once
// ZIP's little-endian integers, read from and written to raw bytes of any character type.
#include <cstdint>
#include <string>

namespace opc::zippackage::le {

inline std::uint16_t get16(const void* p) {
  const auto* b = static_cast<const unsigned char*>(p);
  return static_cast<std::uint16_t>(b[0] | (b[1] << 8));
}
inline std::uint32_t get32(const void* p) {
  const auto* b = static_cast<const unsigned char*>(p);
  return get16(b) | (static_cast<std::uint32_t>(get16(b + 2)) << 16);
}
inline std::uint64_t get64(const void* p) {
  const auto* b = static_cast<const unsigned char*>(p);
  return get32(b) | (static_cast<std::uint64_t>(get32(b + 4)) << 32);
}

inline void put16(void* p, std::uint16_t v) {
  auto* b = static_cast<unsigned char*>(p);
  b[0] = static_cast<unsigned char>(v);
  b[1] = static_cast<unsigned char>(v >> 8);
}
inline void put32(void* p, std::uint32_t v) {
  auto* b = static_cast<unsigned char*>(p);
  put16(b, static_cast<std::uint16_t>(v));
  put16(b + 2, static_cast<std::uint16_t>(v >> 16));
}
inline void put64(void* p, std::uint64_t v) {
  auto* b = static_cast<unsigned char*>(p);
  put32(b, static_cast<std::uint32_t>(v));
  put32(b + 4, static_cast<std::uint32_t>(v >> 32));
}

inline void append16(std::string& s, std::uint16_t v) {
  char b[2];
  put16(b, v);
  s.append(b, sizeof b);
}
inline void append32(std::string& s, std::uint32_t v) {
  char b[4];
  put32(b, v);
  s.append(b, sizeof b);
}
inline void append64(std::string& s, std::uint64_t v) {
  char b[8];
  put64(b, v);
  s.append(b, sizeof b);
}

}  // namespace opc::zippackage::le
