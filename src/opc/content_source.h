#pragma once
// Where a part's bytes come from when they are not (or no longer) those stored in the package.
#include <cstdint>
#include <memory>
#include <optional>

#include "opc/streams.h"

namespace opc {

// A repeatable source of bytes: every openStream() starts again from the first byte. Sources are
// shared (std::shared_ptr) between a part and the writer that streams them into the package, so an
// implementation must not depend on who holds it. Not thread-safe unless stated.
class ContentSource {
 public:
  virtual ~ContentSource() = default;
  // A fresh stream over the whole content. Throws opc::Exception when the bytes cannot be reached.
  [[nodiscard]] virtual std::unique_ptr<InputStream> openStream() const = 0;
  // The length when known without reading; a writer uses it to choose ZIP64 up front.
  [[nodiscard]] virtual std::optional<std::uint64_t> size() const = 0;
};

}  // namespace opc
