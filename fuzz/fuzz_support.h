#pragma once
// What every fuzz target shares: a scratch folder of its own, files written from the input, and
// gateway calls made as the host makes them. Each target defines LLVMFuzzerTestOneInput; libFuzzer or
// replay_main.cpp drives it.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/reference/call.h"
#include "host/reference/host_error.h"

namespace zvfuzz {

// A folder under the temporary folder, one per process, removed at exit.
inline const std::filesystem::path& scratch() {
  static const std::filesystem::path dir = [] {
    auto path = std::filesystem::temp_directory_path() / ("zvfuzz-" + std::to_string(::getpid()));
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(scratch(), ec);
    });
    return path;
  }();
  return dir;
}

inline std::string writeInput(const std::string& name, std::string_view bytes) {
  const std::string path = (scratch() / name).string();
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return path;
}

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Calls f with text inputs; a host error is an expected outcome, anything else escapes to the fuzzer.
inline bool callGateway(qxFunction f, int nargout, const std::vector<std::string>& inputs) {
  std::vector<matrix::unique_qxarray_ptr> owned;
  std::vector<const qxArray*> args;
  for (const auto& input : inputs) {
    owned.emplace_back(qxCreateString(input.c_str()));
    args.push_back(owned.back().get());
  }
  try {
    (void)zvhost::reference::call(f, nargout, args);
    return true;
  } catch (const zvhost::reference::HostError& e) {
    // An exception the gateway let escape unclassified is a fault, not a hostile-input error.
    if (e.key() == "unexpectedException") {
      std::fprintf(stderr, "unclassified failure: %s\n", e.what());
      std::abort();
    }
    return false;
  }
}

}  // namespace zvfuzz
