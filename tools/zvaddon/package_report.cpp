#include "package_report.h"

#include "foundation/i18n.h"
#include "package/addon_package.h"
#include "package_index.h"
#include "records.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;

std::string_view signatureStateName(SignatureState state) {
  switch (state) {
    case SignatureState::unsigned_: return "unsigned";
    case SignatureState::valid: return "valid";
    case SignatureState::invalid: return "invalid";
  }
  return "unknown";
}

SignatureStatus checkSignature(const fs::path& package) {
  // Opening through a gateway function first gives the host's own error for a missing or broken
  // package, the same one every other command gives.
  (void)getFromGateway("zvAddonGetProperties", {package.string()});
  if (!PackageIndex::read(package).hasSignatureParts()) return {};
  try {
    addon::packaging::AddonPackage addon(fl::i18n::from_utf8(package.string()));
    return {addon.verifyAddonRequirements() ? SignatureState::valid : SignatureState::invalid, {}};
  } catch (const std::exception& e) {
    // A signature that cannot even be read does not check out.
    return {SignatureState::invalid, e.what()};
  }
}

Json listFiles(const fs::path& package) {
  const Json names = getFromGateway("zvAddonGetFileList", {package.string()});
  const auto sizes = PackageIndex::read(package).contentFileSizes();
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

Json inspectPackage(const fs::path& package) {
  Json report = Json::object();
  report["package"] = package.string();
  // The properties come first: their error is the one people expect for a missing package.
  const Json properties = getFromGateway("zvAddonGetProperties", {package.string()});
  std::error_code ec;
  report["bytes"] = fs::file_size(package, ec);
  report["sha512"] = getFromGateway("zvAddonComputeHash", {package.string()});
  report["signature"] = std::string(signatureStateName(checkSignature(package).state));
  for (const RecordInfo& info : allRecords()) {
    const Json host = info.record == Record::properties ? properties
                                                         : getFromGateway(info.getFunction, {package.string()});
    report[std::string(info.name)] = recordFromHost(info.record, host);
  }
  const PackageIndex index = PackageIndex::read(package);
  if (const auto shot = index.screenshot()) {
    report["screenshot"] = {{"part", "/" + shot->name}, {"bytes", shot->size}};
  } else {
    report["screenshot"] = nullptr;
  }
  report["instructionSets"] = index.instructionSets();
  report["files"] = listFiles(package);
  return report;
}

}  // namespace zvaddon::tool
