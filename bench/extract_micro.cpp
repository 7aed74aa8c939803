// Micro-benchmarks of extraction: a package of many small text files and a few incompressible
// ones, extracted with one, two and four threads (ZVADDON_THREADS). Bytes/s counts extracted bytes;
// each run writes a new tree.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundation/i18n.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"
#include "sample_data.h"

namespace {

using zvbench::text;
using zvbench::noise;

using namespace opc;

constexpr int kFiles = 1000;

// The package, made once per run in a scratch folder; `bytes` is the size of its files together.
struct Fixture {
  std::filesystem::path root;
  std::string package;
  std::uint64_t bytes = 0;

  Fixture() {
    root = std::filesystem::temp_directory_path() / ("extract_micro." + std::to_string(::getpid()));
    std::filesystem::create_directories(root / "src");
    package = (root / "p.zvaddon").string();
    zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(package), false);
    model::Package pkg(physical);
    pkg.open(interfaces::OpenMode::Create);
    kqservices::FileSystemManager manager(pkg);
    for (int i = 0; i < kFiles; ++i) {
      const bool image = i % 10 == 0;
      const std::string data = image ? noise(40'000, static_cast<unsigned>(i)) : text(30'000, static_cast<unsigned>(i));
      // Appended piece by piece: GCC 12 warns (-Wrestrict) about "literal" + std::string temporaries.
      std::string name = "f";
      name += std::to_string(i);
      name += image ? ".png" : ".m";
      std::string inAddon = "d";
      inAddon += std::to_string(i % 40);
      inAddon += '/';
      inAddon += name;
      std::ofstream(root / "src" / name, std::ios::binary) << data;
      bytes += data.size();
      (void)manager.addFile(fl::i18n::from_utf8((root / "src" / name).string()),
                            fl::i18n::from_utf8(inAddon),
                            kqservices::TransformMode::Encode);
    }
    pkg.close();
  }
  ~Fixture() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
};

void BM_ExtractAll(benchmark::State& state) {
  static const Fixture fixture;
  ::setenv("ZVADDON_THREADS", std::to_string(state.range(0)).c_str(), 1);
  // A new folder every time: ext4 without a journal passes over inodes freed in the last minute
  // one by one when it picks an inode for a new file, so extracting just after removing the
  // previous tree times the file system's scan more than the extraction. The trees go with the
  // fixture.
  static int run = 0;
  for (auto _ : state) {
    std::string name = "out";
    name += std::to_string(++run);
    const std::filesystem::path destination = fixture.root / name;
    zippackage::ZipPhysicalPackage physical(fl::i18n::from_utf8(fixture.package), false);
    model::Package pkg(physical);
    pkg.open(interfaces::OpenMode::Read);
    kqservices::FileSystemManager manager(pkg);
    manager.extractAll(fl::i18n::from_utf8(destination.string()), kqservices::RestoreMode::Attributes,
                       kqservices::TransformMode::Encode, kqservices::ReplaceMode::Never);
    pkg.close();
  }
  ::unsetenv("ZVADDON_THREADS");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fixture.bytes));
}
BENCHMARK(BM_ExtractAll)->Arg(1)->Arg(2)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
