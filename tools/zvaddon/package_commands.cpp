// zvaddon extract, sign, verify and hash: one gateway call each, or the exported C++ checks and the
// author signature.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands.h"
#include "package_report.h"
#include "progress.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
namespace {

struct PackageOptions {
  std::string package;
  std::string destination;
  std::string trust;
  AuthorKeyFiles author;
  bool quiet = false;
  bool json = false;
};

ExitStatus runExtract(const PackageOptions& options) {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  const Json list = listFiles(options.package);
  for (const Json& f : list) {
    if (!f["bytes"].is_number()) continue;
    ++files;
    bytes += f["bytes"].get<std::uint64_t>();
  }
  // One gateway call: the bar shows the start and the end.
  Progress progress("extract", files, bytes, options.quiet);
  (void)callGateway("zvAddonExtractAllFiles", {options.package, options.destination});
  progress.update(files, bytes);
  progress.finish();
  if (!options.quiet) {
    // The package does not say which entries are empty folders; the unpacked tree does.
    const auto folders = std::count_if(list.begin(), list.end(), [&](const Json& f) {
      std::error_code ec;
      return fs::is_directory(fs::path(options.destination) / fs::path(f["path"].get<std::string>()).relative_path(), ec);
    });
    std::cout << "extracted " << files - folders << " files (" << formatBytes(bytes) << ")";
    if (folders > 0) std::cout << " and " << folders << " empty folders";
    std::cout << " into " << options.destination << "\n";
  }
  return ExitStatus::ok;
}

ExitStatus runSign(const PackageOptions& options) {
  if (options.author.key.empty()) {
    (void)callGateway("zvAddonSign", {options.package});
    if (!options.quiet) std::cout << "signed the system requirements of " << options.package << "\n";
  } else {
    signAsAuthor(options.package, options.author);
    if (!options.quiet) std::cout << "signed " << options.package << " as its author\n";
  }
  return ExitStatus::ok;
}

// 4 when a signature present does not check out, else 3 when the signature asked for is missing.
ExitStatus verdict(const SignatureReport& report) {
  const SignatureState asked = report.author ? report.author->state : report.requirements;
  if (report.requirements == SignatureState::invalid || asked == SignatureState::invalid) return ExitStatus::invalid;
  return asked == SignatureState::unsigned_ ? ExitStatus::unsigned_ : ExitStatus::ok;
}

ExitStatus runVerify(const PackageOptions& options) {
  const SignatureReport report =
      checkSignatures(options.package, options.trust.empty() ? std::nullopt : std::optional<fs::path>(options.trust));
  if (options.json) {
    Json out = {{"requirements", signatureStateName(report.requirements)}};
    if (report.author) {
      out["author"] = {{"state", signatureStateName(report.author->state)}, {"reason", report.author->reason},
                       {"signer", signerJson(report.author->signer)}};
    }
    std::cout << out.dump(2) << "\n";
    return verdict(report);
  }
  if (options.quiet) return verdict(report);
  switch (report.requirements) {
    case SignatureState::valid:
      std::cout << "valid: the requirements signature of " << options.package << " checks out\n";
      break;
    case SignatureState::unsigned_:
      if (!report.author) std::cout << "unsigned: " << options.package << " carries no signature\n";
      break;
    case SignatureState::invalid:
      std::cout << "invalid: the requirements signature of " << options.package << " does not check out"
                << (report.requirementsDetail.empty() ? "" : " (" + report.requirementsDetail + ")") << "\n";
      break;
  }
  if (!report.author) return verdict(report);
  const AuthorVerification& author = *report.author;
  if (author.state == SignatureState::unsigned_) {
    std::cout << "unsigned: " << options.package << " carries no author signature\n";
  } else {
    std::cout << signatureStateName(author.state) << ": the author signature of " << options.package
              << (author.state == SignatureState::valid ? " checks out" : " does not check out (" + author.reason + ")")
              << "\n";
  }
  if (author.signer) std::cout << "signer: " << author.signer->subject << "\n";
  return verdict(report);
}

struct HashOptions {
  std::string file;
};

ExitStatus runHash(const HashOptions& options) {
  std::cout << getFromGateway("zvAddonComputeHash", {options.file}).get<std::string>() << "\n";
  return ExitStatus::ok;
}

}  // namespace

void addPackageCommands(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<PackageOptions>();
  CLI::App* extract =
      addCommand(app, exitStatus, "extract", "Unpack a package's content files into DIR", options, runExtract);
  extract->add_option("dir", options->destination, "Destination folder")->required();
  extract->add_flag("-q,--quiet", options->quiet, "No progress bar, no summary");

  CLI::App* sign = addCommand(app, exitStatus, "sign",
                              "Sign a package's system requirements, or with --key and --cert as its author", options,
                              runSign);
  addAuthorKeyOptions(*sign, options->author);
  sign->add_flag("-q,--quiet", options->quiet, "Print nothing on success");

  CLI::App* verify = addCommand(
      app, exitStatus, "verify",
      "Check the requirements signature, and the author's with --trust; exit 0 valid, 3 unsigned, 4 invalid", options,
      runVerify);
  verify->add_option("--trust", options->trust, "Trusted certificates (PEM): check the author signature against them");
  verify->add_flag("--json", options->json, "The verdicts as one JSON object");
  verify->add_flag("-q,--quiet", options->quiet, "Only the exit status");

  auto hash = std::make_shared<HashOptions>();
  addCommand(app, exitStatus, "hash", "Print the SHA-512 digest of a file, base64", hash, runHash)
      ->add_option("file", hash->file, "Any file")
      ->required();
}

}  // namespace zvaddon::tool
