#pragma once
// Shared helpers of the OPC tests: a scratch folder, file bytes, UTF-16 literals in messages.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "foundation/i18n.h"
#include "foundation/ustring.h"
#include "opc/detail/text.h"
#include "opc/streams.h"

namespace opc::test {

// A fresh folder per test, removed afterwards.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "opc-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  [[nodiscard]] std::string file(const std::string& name) const { return (path_ / name).string(); }
  [[nodiscard]] ustring ufile(const std::string& name) const { return fl::i18n::from_utf8(file(name)); }
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  // Names in the folder, sorted.
  [[nodiscard]] std::vector<std::string> list() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(path_)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  std::filesystem::path path_;
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + path);
}

inline std::string readAll(InputStream& in) {
  std::string out;
  std::uint8_t buffer[4096];
  while (const std::size_t n = in.read(buffer, sizeof buffer)) out.append(reinterpret_cast<const char*>(buffer), n);
  return out;
}

inline void writeAll(OutputStream& out, const std::string& bytes) {
  out.write(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
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
