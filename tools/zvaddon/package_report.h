#pragma once
// Everything `inspect` shows about a package, gathered through the gateway functions (records, file
// list, hash) and the library's read-only view of the package (AddonPackage::readContents: sizes,
// screenshot and instruction-set parts), and its signatures (AddonPackage::readSignatures,
// verifyAddonRequirements, verifyAuthor).
#include <filesystem>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "gateway.h"
#include "package/addon_package.h"

namespace zvaddon::tool {

using AuthorVerification = addon::packaging::AddonPackage::AuthorVerification;
using SignatureState = AuthorVerification::State;

[[nodiscard]] std::string_view signatureStateName(SignatureState state);

// The author's key and certificate files, as the options and the manifest's "signing" name them.
struct AuthorKeyFiles {
  std::string key;
  std::string cert;
  std::string chain;
  std::string passphraseFile;
};
// Registers --key, --cert, --chain and --passphrase-file on `command`; --cert needs --key and back.
void addAuthorKeyOptions(CLI::App& command, AuthorKeyFiles& files);
// Adds or replaces the author signature. Files that cannot be read: ToolError(hostError); what the
// library refuses (a key not of the certificate, an encrypted key without passphrase, malformed PEM,
// a certificate not valid now) propagates as opc::Exception, the package unchanged.
void signAsAuthor(const std::filesystem::path& package, const AuthorKeyFiles& files);

// Both signatures: the requirements signature's state ("unsigned" without one), and when
// `trustStore` (a PEM file) is given, the author signature verified against it.
struct SignatureReport {
  SignatureState requirements = SignatureState::unsigned_;
  std::string requirementsDetail;  // why verification failed, when it threw
  std::optional<AuthorVerification> author;
  std::optional<opc::model::CertificateInfo> signer;  // read, not verified
};
// Host errors of a package that cannot be opened propagate as HostError.
[[nodiscard]] SignatureReport checkSignatures(const std::filesystem::path& package,
                                              const std::optional<std::filesystem::path>& trustStore);
// {"subject", "issuer", "sha256"}, or null.
[[nodiscard]] Json signerJson(const std::optional<opc::model::CertificateInfo>& signer);

// AddonPackage::readContents of the package; throws ToolError(hostError) naming the path when it
// cannot be read.
[[nodiscard]] addon::packaging::AddonPackage::Contents readContents(const std::filesystem::path& package);

// The content files as zvAddonGetFileList lists them, each with its size (null for a name the
// package holds no part for, such as a folder item of a foreign archive).
[[nodiscard]] Json listFiles(const std::filesystem::path& package);

// The whole report in the form `inspect --json` prints: "package", "bytes", "sha512", "signature",
// "signer", one key per record (people's form, records.h), "screenshot", "instructionSets", "files".
[[nodiscard]] Json inspectPackage(const std::filesystem::path& package);

}  // namespace zvaddon::tool
