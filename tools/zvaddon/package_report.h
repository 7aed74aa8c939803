#pragma once
// Everything `inspect` shows about a package, gathered through the gateway functions (records, file
// list, hash) and the library's read-only view of the package (AddonPackage::readContents: sizes,
// screenshot and instruction-set parts, whether it is signed), and AddonPackage::verifyAddonRequirements.
#include <cstdint>
#include <filesystem>
#include <string>

#include "gateway.h"
#include "package/addon_package.h"

namespace zvaddon::tool {

enum class SignatureState { unsigned_, valid, invalid };

struct SignatureStatus {
  SignatureState state = SignatureState::unsigned_;
  std::string detail;  // why verification failed, when it threw
};

[[nodiscard]] std::string_view signatureStateName(SignatureState state);

// AddonPackage::readContents of the package; throws ToolError(hostError) naming the path when it
// cannot be read.
[[nodiscard]] addon::packaging::AddonPackage::Contents readContents(const std::filesystem::path& package);

// Verifies the requirements signature. "unsigned" when the package holds no signature parts. Host
// errors of a package that cannot be opened propagate as HostError.
[[nodiscard]] SignatureStatus checkSignature(const std::filesystem::path& package);

// The content files as zvAddonGetFileList lists them, each with its size (null for a name the
// package holds no part for, such as a folder item of a foreign archive).
[[nodiscard]] Json listFiles(const std::filesystem::path& package);

// The whole report in the form `inspect --json` prints: "package", "bytes", "sha512", "signature",
// one key per record (people's form, records.h), "screenshot", "instructionSets", "files".
[[nodiscard]] Json inspectPackage(const std::filesystem::path& package);

}  // namespace zvaddon::tool
