// Peak memory while adding one large content file to a package, writing it, and extracting it
// again: all three stream, so memory must not grow with the file's size.
//
// Usage: files_memory [size in MiB, default 4096] [folder, default the system temp folder]
// Prints the peak resident set size after each stage; exits 1 when it exceeds 100 MB or the
// extracted file differs in size.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/i18n.h"
#include "opc/exception.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"

namespace {

constexpr long kLimitKb = 100 * 1024;

long peakRssKb() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

void report(const char* stage, std::chrono::steady_clock::time_point start) {
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%-36s peak RSS %6.1f MB  (%.1f s)\n", stage, static_cast<double>(peakRssKb()) / 1024.0, seconds);
}

// Bytes deflate cannot reduce to nothing, so the compressor really works.
void fill(std::vector<std::uint8_t>& buffer, std::uint64_t offset) {
  std::uint32_t x = static_cast<std::uint32_t>(offset) | 1u;
  for (auto& b : buffer) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    b = static_cast<std::uint8_t>(x & 0x3F);
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace opc;
  const std::uint64_t size = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 4096ull) << 20;
  const std::filesystem::path folder = argc > 2 ? std::filesystem::path(argv[2]) : std::filesystem::temp_directory_path();
  const std::filesystem::path work = folder / ("files_memory." + std::to_string(::getpid()));
  std::filesystem::create_directories(work);
  const std::string source = (work / "big source.bin").string();
  const ustring package = fl::i18n::from_utf8((work / "big.zvaddon").string());
  const ustring destination = fl::i18n::from_utf8((work / "out").string());
  int status = 0;

  auto start = std::chrono::steady_clock::now();
  {
    std::vector<std::uint8_t> chunk(1 << 20);
    const int fd = ::open(source.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (std::uint64_t done = 0; done < size; done += chunk.size()) {
      fill(chunk, done);
      if (::write(fd, chunk.data(), chunk.size()) != static_cast<ssize_t>(chunk.size())) return 2;
    }
    ::close(fd);
  }
  report("source file written", start);

  try {
    start = std::chrono::steady_clock::now();
    {
      zippackage::ZipPhysicalPackage physical(package, false);
      model::Package pkg(physical);
      pkg.open(interfaces::OpenMode::Create);
      kqservices::FileSystemManager files(pkg);
      (void)files.addFile(fl::i18n::from_utf8(source), u"data/big source.bin", kqservices::TransformMode::Encode);
      report("file added", start);
      pkg.close();
    }
    report("package written", start);

    start = std::chrono::steady_clock::now();
    {
      zippackage::ZipPhysicalPackage physical(package, false);
      model::Package pkg(physical);
      pkg.open(interfaces::OpenMode::Read);
      kqservices::FileSystemManager files(pkg);
      files.extractAll(destination, kqservices::RestoreMode::Attributes, kqservices::TransformMode::Encode,
                       kqservices::ReplaceMode::Never);
    }
    report("package extracted", start);
    const auto extracted = std::filesystem::file_size(work / "out" / "data" / "big source.bin");
    if (extracted != size) {
      std::printf("extracted %llu bytes, expected %llu\n", static_cast<unsigned long long>(extracted),
                  static_cast<unsigned long long>(size));
      status = 1;
    }
  } catch (const Exception& e) {
    std::printf("failed: %s\n", e.what());
    status = 1;
  }
  std::filesystem::remove_all(work);
  if (peakRssKb() > kLimitKb) {
    std::printf("peak RSS above %ld MB\n", kLimitKb / 1024);
    status = 1;
  }
  return status;
}
