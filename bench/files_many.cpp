// Adding, listing and extracting many small content files: each step must stay near linear.
//
// Usage: files_many [files, default 20000] [folder, default the system temp folder]
// The files sit 100 to a folder, 10 folders to a parent. Prints wall and CPU time of each stage;
// exits 1 when adding or listing take more than 2 s of CPU time (CPU rather than wall time, so that
// a busy machine does not fail the check).
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "foundation/i18n.h"
#include "opc/exception.h"
#include "opc/kqservices/file_system_manager.h"
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
    const double spent = cpuSeconds() - cpu;
    std::printf("%-28s %7.2f s wall  %7.2f s CPU\n", stage,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count(), spent);
    return spent;
  }
};

std::string relative(std::size_t i) {
  return "group " + std::to_string(i / 1000) + "/folder " + std::to_string(i / 100 % 10) + "/file #" +
         std::to_string(i) + ".m";
}

}  // namespace

int main(int argc, char** argv) {
  using namespace opc;
  const std::size_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 20000;
  const std::filesystem::path folder = argc > 2 ? std::filesystem::path(argv[2]) : std::filesystem::temp_directory_path();
  const std::filesystem::path work = folder / ("files_many." + std::to_string(::getpid()));
  std::filesystem::create_directories(work);
  const std::string source = (work / "source.m").string();
  std::ofstream(source) << "function y = f(x)\n  y = x;\nend\n";
  const ustring package = fl::i18n::from_utf8((work / "many.zvaddon").string());
  int status = 0;

  try {
    {
      zippackage::ZipPhysicalPackage physical(package, false);
      model::Package pkg(physical);
      pkg.open(interfaces::OpenMode::Create);
      kqservices::FileSystemManager files(pkg);
      const ustring from = fl::i18n::from_utf8(source);
      Stopwatch add;
      for (std::size_t i = 0; i < count; ++i) {
        (void)files.addFile(from, fl::i18n::from_utf8(relative(i)), kqservices::TransformMode::Encode);
      }
      if (add.report("add") > 2.0) status = 1;
      Stopwatch write;
      pkg.close();
      write.report("write");
    }
    zippackage::ZipPhysicalPackage physical(package, false);
    model::Package pkg(physical);
    Stopwatch list;
    pkg.open(interfaces::OpenMode::Read);
    kqservices::FileSystemManager files(pkg);
    std::size_t listed = 0;
    std::function<void(const kqservices::FileSystemEntry&)> walk = [&](const kqservices::FileSystemEntry& entry) {
      for (const auto& child : files.getChildren(entry)) {
        if (child.isFile()) {
          ++listed;
        } else {
          walk(child);
        }
      }
    };
    walk(files.getRoot());
    if (list.report("open and list") > 2.0) status = 1;
    if (listed != count) {
      std::printf("listed %zu files, expected %zu\n", listed, count);
      status = 1;
    }
    Stopwatch extract;
    files.extractAll(fl::i18n::from_utf8((work / "out").string()), kqservices::RestoreMode::Attributes,
                     kqservices::TransformMode::Encode, kqservices::ReplaceMode::Never);
    extract.report("extract");
  } catch (const Exception& e) {
    std::printf("failed: %s\n", e.what());
    status = 1;
  }
  std::filesystem::remove_all(work);
  return status;
}
