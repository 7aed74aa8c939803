#pragma once
// libzip ownership and error text, written once.
#include <memory>
#include <string>

#include <zip.h>

namespace opc::zippackage {

template <auto Free>
struct CDeleter {
  void operator()(auto* p) const noexcept { Free(p); }
};
// zip_discard frees an archive without writing anything.
using ZipArchivePtr = std::unique_ptr<zip_t, CDeleter<&zip_discard>>;
using ZipSourcePtr = std::unique_ptr<zip_source_t, CDeleter<&zip_source_free>>;

[[nodiscard]] std::string zipErrorText(int code);
[[nodiscard]] std::string zipErrorText(zip_error_t* error);

}  // namespace opc::zippackage
