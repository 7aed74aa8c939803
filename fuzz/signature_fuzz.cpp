// Arbitrary bytes as the signature part of a signed package, then verification: true, false or an
// error, never a crash.
#include <zip.h>

#include "foundation/i18n.h"
#include "fuzz_support.h"
#include "package/addon_package.h"

namespace {

// The signed package with its signature part replaced by `signature`.
std::string writePackage(std::string_view signature) {
  // Read once and written with plain writes: a file copy by copy_file_range fails on the fuzzer's
  // timer signal (EINTR) instead of going on.
  static const std::string seed = zvfuzz::readFile(ZV_FUZZ_SIGNED_PACKAGE);
  const std::string path = zvfuzz::writeInput("signed.zvaddon", seed);
  int code = 0;
  zip_t* zip = zip_open(path.c_str(), 0, &code);
  if (zip == nullptr) std::abort();
  const zip_int64_t count = zip_get_num_entries(zip, 0);
  zip_int64_t index = -1;
  for (zip_int64_t i = 0; i < count && index < 0; ++i) {
    const std::string_view name = zip_get_name(zip, static_cast<zip_uint64_t>(i), 0);
    if (name.starts_with("_xmlsignatures/sig") && name.ends_with(".xml")) index = i;
  }
  if (index < 0) std::abort();  // the seed package is not signed
  zip_source_t* source = zip_source_buffer(zip, signature.data(), signature.size(), 0);
  if (zip_file_replace(zip, static_cast<zip_uint64_t>(index), source, 0) != 0 || zip_close(zip) != 0) std::abort();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = writePackage({reinterpret_cast<const char*>(data), size});
  try {
    addon::packaging::AddonPackage package(
        fl::i18n::to_ustring(fl::i18n::codecvt_string_to_ustring("UTF-8"), path));
    (void)package.verifyAddonRequirements();
  } catch (const std::exception&) {
  }
  return 0;
}
