// Peak memory while writing a package with one large part: a part streamed from a file and a part
// written through its output stream must both cost memory that does not grow with their size.
//
// Usage: opc_write_memory [size in MiB, default 2048] [folder, default the system temp folder]
// Prints the peak resident set size after each stage; exits 1 when it exceeds 100 MB.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "foundation/i18n.h"
#include "opc/kqservices/file_content_source.h"
#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"

namespace {

constexpr long kLimitKb = 100 * 1024;

long peakRssKb() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void report(const char* stage, std::chrono::steady_clock::time_point start) {
  std::printf("%-44s peak RSS %6.1f MB  (%.1f s)\n", stage, static_cast<double>(peakRssKb()) / 1024.0, secondsSince(start));
}

// Bytes that deflate does not reduce to nothing, so the compressor really works.
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
  const std::uint64_t size = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 2048ull) << 20;
  const std::filesystem::path folder = argc > 2 ? std::filesystem::path(argv[2]) : std::filesystem::temp_directory_path();
  const std::string source = (folder / "opc_write_memory.source").string();
  const std::string package = (folder / "opc_write_memory.zip").string();
  std::vector<std::uint8_t> chunk(1 << 20);

  auto start = std::chrono::steady_clock::now();
  {
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
      zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(package), true);
      model::Package pkg(physical);
      pkg.open(interfaces::OpenMode::Create);
      auto part = pkg.createPart(model::PartName(u"/big/from-file.bin"), model::ContentType(u"application/octet-stream"));
      part->setContentSource(kqservices::fileContent(fl::i18n::from_utf8(source)));
      pkg.close();
    }
    report("package with a file-sourced part closed", start);

    start = std::chrono::steady_clock::now();
    {
      zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(package), true);
      model::Package pkg(physical);
      pkg.open(interfaces::OpenMode::Modify);
      auto part = pkg.createPart(model::PartName(u"/big/from-stream.bin"), model::ContentType(u"application/octet-stream"));
      auto out = part->getOutputStream();
      for (std::uint64_t done = 0; done < size; done += chunk.size()) {
        fill(chunk, done);
        out->write(chunk.data(), chunk.size());
      }
      report("same size written through an output stream", start);
      pkg.close();
    }
    report("package with both parts closed", start);

    start = std::chrono::steady_clock::now();
    {
      zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(package), true);
      model::Package pkg(physical);
      pkg.open(interfaces::OpenMode::Read);
      for (const auto& part : pkg.getParts()) {
        auto in = part->getInputStream();
        std::uint64_t total = 0;
        while (const std::size_t n = in->read(chunk.data(), chunk.size())) total += n;
        if (total != size) {
          std::fprintf(stderr, "read back %llu bytes, expected %llu\n", static_cast<unsigned long long>(total),
                       static_cast<unsigned long long>(size));
          return 2;
        }
      }
    }
    report("both parts read back", start);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "failed: %s\n", e.what());
    return 2;
  }
  std::printf("package size %.1f MB for 2 x %llu MiB of content\n",
              static_cast<double>(std::filesystem::file_size(package)) / 1048576.0,
              static_cast<unsigned long long>(size >> 20));
  std::filesystem::remove(source);
  std::filesystem::remove(package);
  const long peak = peakRssKb();
  std::printf("peak RSS %.1f MB (limit %.0f MB): %s\n", static_cast<double>(peak) / 1024.0, kLimitKb / 1024.0,
              peak < kLimitKb ? "ok" : "EXCEEDED");
  return peak < kLimitKb ? 0 : 1;
}
