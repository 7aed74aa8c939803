#include "package_report.h"

#include <map>

#include "foundation/i18n.h"
#include "records.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
using Contents = addon::packaging::AddonPackage::Contents;

namespace {

SignatureStatus signatureOf(const fs::path& package, const Contents& contents) {
  if (!contents.hasSignatureParts) return {};
  try {
    addon::packaging::AddonPackage addon(fl::i18n::from_utf8(package.string()));
    return {addon.verifyAddonRequirements() ? SignatureState::valid : SignatureState::invalid, {}};
  } catch (const std::exception& e) {
    // A signature that cannot even be read does not check out.
    return {SignatureState::invalid, e.what()};
  }
}

// The names zvAddonGetFileList gave, each with its size.
Json filesOf(const Json& names, const Contents& contents) {
  std::map<std::string, std::uint64_t> sizes;
  for (const auto& [path, size] : contents.files) sizes.emplace(fl::i18n::to_utf8(path), size);
  Json files = Json::array();
  auto add = [&](const Json& name) {
    const std::string path = name.is_string() ? name.get<std::string>() : name.dump();
    const auto size = sizes.find(path);
    files.push_back({{"path", path}, {"bytes", size == sizes.end() ? Json(nullptr) : Json(size->second)}});
  };
  // One name comes back as a one-element list; none as an empty array in a typed form.
  if (names.is_array()) {
    for (const Json& name : names) add(name);
  } else if (names.is_object() && names.contains("$data")) {
    for (const Json& name : names["$data"]) add(name);
  }
  return files;
}

}  // namespace

std::string_view signatureStateName(SignatureState state) {
  switch (state) {
    case SignatureState::unsigned_: return "unsigned";
    case SignatureState::valid: return "valid";
    case SignatureState::invalid: return "invalid";
  }
  return "unknown";
}

Contents readContents(const fs::path& package) {
  try {
    return addon::packaging::AddonPackage(fl::i18n::from_utf8(package.string())).readContents();
  } catch (const std::exception& e) {
    throw ToolError(ExitStatus::hostError, "cannot read the package '" + package.string() + "': " + e.what());
  }
}

SignatureStatus checkSignature(const fs::path& package) {
  // Opening through a gateway function first gives the host's own error for a missing or broken
  // package, the same one every other command gives.
  (void)getFromGateway("zvAddonGetProperties", {package.string()});
  return signatureOf(package, readContents(package));
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
  report["signature"] = std::string(signatureStateName(signatureOf(package, contents).state));
  for (const RecordInfo& info : allRecords()) {
    const Json host = info.record == Record::properties ? properties
                                                         : getFromGateway(info.getFunction, {package.string()});
    report[std::string(info.name)] = recordFromHost(info.record, host);
  }
  if (contents.screenshot) {
    report["screenshot"] = {{"part", fl::i18n::to_utf8(contents.screenshot->name)}, {"bytes", contents.screenshot->size}};
  } else {
    report["screenshot"] = nullptr;
  }
  Json sets = Json::array();
  for (const ustring& name : contents.instructionSets) sets.push_back(fl::i18n::to_utf8(name));
  report["instructionSets"] = sets;
  report["files"] = filesOf(getFromGateway("zvAddonGetFileList", {package.string()}), contents);
  return report;
}

}  // namespace zvaddon::tool
