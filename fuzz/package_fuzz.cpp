// Arbitrary bytes opened as a package: every Get, the file list, extraction, the instruction-set
// check and signature verification. Each must end in a host error or a result, never a crash.
#include <filesystem>

#include "foundation/i18n.h"
#include "fuzz_support.h"
#include "gateway/zvaddon.h"
#include "package/addon_package.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = zvfuzz::writeInput("input.zvaddon", {reinterpret_cast<const char*>(data), size});
  const ustring wide = fl::i18n::to_ustring(fl::i18n::codecvt_string_to_ustring("UTF-8"), path);
  // Reading functions with one output each.
  for (qxFunction f : {zvAddonGetProperties, zvAddonGetFileList, zvAddonGetRevisionHistory, zvAddonGetScreenshot,
                       zvAddonGetAppInstallList, zvAddonGetExamples, zvAddonGetSystemRequirements, zvAddonGetLicense,
                       zvAddonGetConfiguration}) {
    if (!zvfuzz::callGateway(f, 1, {path}) && f == zvAddonGetProperties) {
      return 0;  // the package does not open: the others fail the same way
    }
  }
  const auto out = zvfuzz::scratch() / "extracted";
  std::filesystem::remove_all(out);
  std::filesystem::create_directories(out);
  (void)zvfuzz::callGateway(zvAddonExtractAllFiles, 0, {path, out.string()});
  std::filesystem::remove_all(out);
  // Nothing may land beside the extraction folder, however the entries are named.
  for (const auto& entry : std::filesystem::directory_iterator(zvfuzz::scratch())) {
    if (entry.path() != path) {
      std::fprintf(stderr, "extraction escaped its folder: %s\n", entry.path().c_str());
      std::abort();
    }
  }

  try {
    addon::packaging::AddonPackage package(wide);
    (void)package.verifyAddonRequirements();
  } catch (const std::exception&) {
  }
  try {
    addon::packaging::AddonPackage package(wide);
    package.getPackage().open(opc::interfaces::OpenMode::Read);
    (void)package.hasInstructionSets();
    package.getPackage().close();
  } catch (const std::exception&) {
  }
  // Reading must never change the file.
  if (zvfuzz::readFile(path) != std::string_view(reinterpret_cast<const char*>(data), size)) std::abort();
  return 0;
}
