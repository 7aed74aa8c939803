#include "package_report.h"

#include <map>

#include "foundation/i18n.h"
#include "manifest.h"
#include "records.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
using Contents = addon::packaging::AddonPackage::Contents;

namespace {

addon::packaging::AddonPackage open(const fs::path& package) {
  return addon::packaging::AddonPackage(fl::i18n::from_utf8(package.string()));
}

// The names zvAddonGetFileList gave, each with its size.
Json filesOf(const Json& names, const Contents& contents) {
  std::map<std::string, std::uint64_t> sizes;
  for (const auto& [path, size] : contents.files) sizes.emplace(fl::i18n::to_utf8(path), size);
  Json files = Json::array();
  for (const Json* name : hostElements(names)) {
    const std::string path = name->is_string() ? name->get<std::string>() : name->dump();
    const auto size = sizes.find(path);
    files.push_back({{"path", path}, {"bytes", size == sizes.end() ? Json(nullptr) : Json(size->second)}});
  }
  return files;
}

}  // namespace

std::string_view signatureStateName(SignatureState state) {
  constexpr std::string_view kNames[] = {"unsigned", "valid", "invalid"};  // in State order
  return kNames[static_cast<std::size_t>(state)];
}

void addAuthorKeyOptions(CLI::App& command, AuthorKeyFiles& files) {
  CLI::Option* key = command.add_option("--key", files.key, "The author's private key (PEM)");
  CLI::Option* cert = command.add_option("--cert", files.cert, "The author's certificate (PEM)");
  key->needs(cert);
  cert->needs(key);
  command.add_option("--chain", files.chain, "Intermediate certificates (PEM)")->needs(cert);
  command.add_option("--passphrase-file", files.passphraseFile, "The key's passphrase, first line")->needs(key);
}

void signAsAuthor(const fs::path& package, const AuthorKeyFiles& files) {
  opc::model::CertificateKey key{readFileBytes(files.key), std::nullopt, readFileBytes(files.cert),
                                 files.chain.empty() ? std::string() : readFileBytes(files.chain)};
  if (!files.passphraseFile.empty()) {
    const std::string text = readFileBytes(files.passphraseFile);
    key.passphrase = text.substr(0, text.find_first_of("\r\n"));
  }
  // The gateway first: its error is the host's for a missing or broken package.
  (void)getFromGateway("zvAddonGetProperties", {package.string()});
  open(package).signAsAuthor(key);
}

SignatureReport checkSignatures(const fs::path& package, const std::optional<fs::path>& trustStore) {
  (void)getFromGateway("zvAddonGetProperties", {package.string()});
  const std::string trust = trustStore ? readFileBytes(*trustStore) : std::string();
  SignatureReport report;
  try {
    const auto found = open(package).readSignatures();
    report.signer = found.author;
    if (found.requirements) {
      report.requirements = open(package).verifyAddonRequirements() ? SignatureState::valid : SignatureState::invalid;
    }
  } catch (const std::exception& e) {
    // A signature that cannot even be read does not check out.
    report.requirements = SignatureState::invalid;
    report.requirementsDetail = e.what();
  }
  if (trustStore) report.author = open(package).verifyAuthor(trust);
  return report;
}

Json signerJson(const std::optional<opc::model::CertificateInfo>& signer) {
  if (!signer) return nullptr;
  return {{"subject", signer->subject}, {"issuer", signer->issuer}, {"sha256", signer->fingerprint}};
}

Contents readContents(const fs::path& package) {
  try {
    return open(package).readContents();
  } catch (const std::exception& e) {
    throw ToolError(ExitStatus::hostError, "cannot read the package '" + package.string() + "': " + e.what());
  }
}

Json listFiles(const fs::path& package) {
  // The gateway first: its error is the host's for a missing or broken package.
  const Json names = getFromGateway("zvAddonGetFileList", {package.string()});
  return filesOf(names, readContents(package));
}

Json inspectPackage(const fs::path& package) {
  Json report = Json::object();
  report["package"] = package.string();
  // The properties come first: their error is the one people expect for a missing package.
  const Json properties = getFromGateway("zvAddonGetProperties", {package.string()});
  const Contents contents = readContents(package);
  std::error_code ec;
  report["bytes"] = fs::file_size(package, ec);
  report["sha512"] = getFromGateway("zvAddonComputeHash", {package.string()});
  const SignatureReport signatures = checkSignatures(package, std::nullopt);
  report["signature"] = std::string(signatureStateName(signatures.requirements));
  report["signer"] = signerJson(signatures.signer);
  for (const RecordInfo& info : allRecords()) {
    const Json host = info.record == Record::properties ? properties
                                                         : getFromGateway(info.getFunction, {package.string()});
    report[std::string(info.name)] = recordFromHost(info.record, host);
  }
  const auto& shot = contents.screenshot;
  report["screenshot"] = shot ? Json{{"part", fl::i18n::to_utf8(shot->name)}, {"bytes", shot->size}} : Json(nullptr);
  Json& sets = report["instructionSets"] = Json::array();
  for (const ustring& name : contents.instructionSets) sets.push_back(fl::i18n::to_utf8(name));
  report["files"] = filesOf(getFromGateway("zvAddonGetFileList", {package.string()}), contents);
  return report;
}

}  // namespace zvaddon::tool
