#pragma once
// Everything `inspect` shows about a package, gathered through the gateway functions (records, file
// list, hash), the package's ZIP directory (sizes, screenshot and instruction-set parts) and
// AddonPackage::verifyAddonRequirements (the signature).
#include <cstdint>
#include <filesystem>
#include <string>

#include "gateway.h"

namespace zvaddon::tool {

enum class SignatureState { unsigned_, valid, invalid };

struct SignatureStatus {
  SignatureState state = SignatureState::unsigned_;
  std::string detail;  // why verification failed, when it threw
};

[[nodiscard]] std::string_view signatureStateName(SignatureState state);

// Verifies the requirements signature. "unsigned" when the package holds no signature parts. Host
// errors of a package that cannot be opened propagate as HostError.
[[nodiscard]] SignatureStatus checkSignature(const std::filesystem::path& package);

// The content files as zvAddonGetFileList lists them, each with its size from the ZIP directory
// (null for an entry the directory does not show as a file, such as an empty folder).
[[nodiscard]] Json listFiles(const std::filesystem::path& package);

// The whole report in the form `inspect --json` prints: "package", "bytes", "sha512", "signature",
// one key per record (people's form, records.h), "screenshot", "instructionSets", "files".
[[nodiscard]] Json inspectPackage(const std::filesystem::path& package);

}  // namespace zvaddon::tool
