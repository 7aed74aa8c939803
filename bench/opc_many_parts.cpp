// Opening and listing a package of many parts: the time must stay well under a second for 70,000.
//
// Usage: opc_many_parts [parts, default 70000] [folder, default the system temp folder]
// Prints wall and CPU time of each stage; exits 1 when opening and listing take a second of CPU
// time or more (CPU rather than wall time, so that a busy machine does not fail the check). The
// goal holds for optimised builds; an unoptimised one only reports.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "foundation/i18n.h"
#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"

namespace {

double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

struct Stopwatch {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  double cpu = cpuSeconds();
  double report(const char* stage) const {
    const double w = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
    const double c = cpuSeconds() - cpu;
    std::printf("%-28s wall %7.3f s  cpu %7.3f s\n", stage, w, c);
    return c;
  }
};

}  // namespace

int main(int argc, char** argv) {
  using namespace opc;
  const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 70000;
  const std::filesystem::path folder = argc > 2 ? std::filesystem::path(argv[2]) : std::filesystem::temp_directory_path();
  const ustring path = fl::i18n::from_utf8((folder / "opc_many_parts.zip").string());
  try {
    Stopwatch create;
    {
      zippackage::ZipPhysicalPackage physical(path, false);
      model::Package package(physical);
      package.open(interfaces::OpenMode::Create);
      for (long i = 0; i < count; ++i) {
        const std::string name = "/content/d" + std::to_string(i / 1000) + "/file" + std::to_string(i) + ".m";
        auto part = package.createPart(model::PartName(fl::i18n::from_utf8(name)), model::ContentType(u"text/plain"));
        const std::string text = "x = " + std::to_string(i) + ";\n";
        part->getOutputStream()->write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
      }
      create.report("create parts");
      Stopwatch close;
      package.close();
      close.report("close (write)");
    }
    Stopwatch open;
    zippackage::ZipPhysicalPackage physical(path, false);
    model::Package package(physical);
    package.open(interfaces::OpenMode::Read);
    const auto parts = package.getParts();
    const double cpu = open.report("open and list");
    std::filesystem::remove(folder / "opc_many_parts.zip");
    if (parts.size() != static_cast<std::size_t>(count)) {
      std::fprintf(stderr, "listed %zu parts, expected %ld\n", parts.size(), count);
      return 2;
    }
#ifdef NDEBUG
    const bool checked = true;
#else
    const bool checked = false;
#endif
    std::printf("%ld parts opened and listed in %.3f s of CPU time: %s\n", count, cpu,
                !checked ? "not checked (unoptimised build)" : cpu < 1.0 ? "ok" : "TOO SLOW");
    return !checked || cpu < 1.0 ? 0 : 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "failed: %s\n", e.what());
    return 2;
  }
}
