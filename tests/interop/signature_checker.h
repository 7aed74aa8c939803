#pragma once
// Running the independent signature checker (signature_xmlsec_check.c over the XML Security
// Library) on a package file. Needs ZV_SOURCE_DIR and ZV_BINARY_DIR, as every layer's tests have.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/command.h"

namespace zvtest::signature {

using zvtest::CommandRun;
using zvtest::runCommand;
using zvtest::shellQuoted;

// The checker's path, compiled when missing or older than its source (aside and renamed, so that
// parallel test programs never run half a binary). Throws std::runtime_error with the compiler's
// output when it cannot be built.
inline std::string checkerPath() {
  const std::string source = std::string(ZV_SOURCE_DIR) + "/tests/interop/signature_xmlsec_check.c";
  const std::string binary = std::string(ZV_BINARY_DIR) + "/tests/signature_xmlsec_check";
  if (std::filesystem::exists(binary) &&
      std::filesystem::last_write_time(binary) >= std::filesystem::last_write_time(source)) {
    return binary;
  }
  const std::string scratch = binary + "." + std::to_string(::getpid());
  const CommandRun build = runCommand("cc -O1 -o " + shellQuoted(scratch) + " " + shellQuoted(source) +
                                      " $(pkg-config --cflags --libs xmlsec1-openssl)");
  if (build.status != 0) {
    throw std::runtime_error("building the xmlsec checker failed (libxmlsec1-dev missing?):\n" + build.output);
  }
  std::filesystem::rename(scratch, binary);
  return binary;
}

// Unzips `package` into `scratch`/unzipped and checks its signature part `signaturePart` with the
// DER public key `key`, or with `key` as a PEM trust store when `keyName` ends in ".pem". Exit
// status 0: verified; 1: refused; 2: the checker could not run.
inline CommandRun checkSignature(const std::string& package, const std::string& signaturePart,
                                 const std::vector<std::uint8_t>& key, const std::filesystem::path& scratch,
                                 const std::string& keyName = "verification.der") {
  const std::filesystem::path folder = scratch / "unzipped";
  const std::filesystem::path keyFile = scratch / keyName;
  std::filesystem::remove_all(folder);
  {
    std::ofstream out(keyFile, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(key.data()), static_cast<std::streamsize>(key.size()));
  }
  const CommandRun unzip = runCommand("unzip -q -o " + shellQuoted(package) + " -d " + shellQuoted(folder.string()));
  if (unzip.status != 0) return {2, "unzip failed:\n" + unzip.output};
  return runCommand(shellQuoted(checkerPath()) + " " + shellQuoted(folder.string()) + " " +
                    shellQuoted(signaturePart) + " " + shellQuoted(keyFile.string()));
}

// The JDK's XML-DSig engine (SignatureCheck.java) on the package checkSignature last unzipped into
// `scratch`, with the PEM trust store it wrote there as `trustName`. Exit statuses as checkSignature's.
inline CommandRun checkWithJdk(const std::string& signaturePart, const std::filesystem::path& scratch,
                               const std::string& trustName) {
  return runCommand("java " + shellQuoted(std::string(ZV_SOURCE_DIR) + "/tests/interop/SignatureCheck.java") + " " +
                    shellQuoted((scratch / "unzipped").string()) + " " + shellQuoted(signaturePart) + " " +
                    shellQuoted((scratch / trustName).string()));
}

}  // namespace zvtest::signature
