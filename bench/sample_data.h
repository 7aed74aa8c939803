#pragma once
// Deterministic sample contents for the micro-benchmarks.
#include <cstddef>
#include <iterator>
#include <random>
#include <string>

namespace zvbench {

// Code-like text: words from a small vocabulary, so that it deflates about as source files do.
inline std::string text(std::size_t size, unsigned seed) {
  static const char* const words[] = {"function", "end", "if", "else", "for", "return", "zeros", "size", "x",
                                      "value", "signal", "filter", "(", ")", ";", "=", "\n", "    "};
  std::mt19937 gen(seed);
  std::string out;
  while (out.size() < size) {
    out += words[gen() % std::size(words)];
    out += ' ';
  }
  out.resize(size);
  return out;
}

// Bytes that do not compress, as images and packed data.
inline std::string noise(std::size_t size, unsigned seed) {
  std::mt19937 gen(seed);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(gen() & 0xff);
  return out;
}

}  // namespace zvbench
