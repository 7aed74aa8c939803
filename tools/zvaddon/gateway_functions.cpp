#include "gateway_functions.h"

#include <dlfcn.h>

#include <algorithm>

namespace zvaddon::tool {
namespace {

struct Entry {
  std::string_view name;
  int maxOutputs;
};

constexpr Entry kFunctions[] = {
    {"zvAddonCreate", 0},
    {"zvAddonSetProperties", 0},
    {"zvAddonGetProperties", 1},
    {"zvAddonAddFiles", 0},
    {"zvAddonAddFolders", 0},
    {"zvAddonExtractAllFiles", 0},
    {"zvAddonGetFileList", 1},
    {"zvAddonSetRevisionHistory", 0},
    {"zvAddonGetRevisionHistory", 1},
    {"zvAddonSetScreenshot", 0},
    {"zvAddonGetScreenshot", 1},
    {"zvAddonSetAppInstallList", 0},
    {"zvAddonGetAppInstallList", 1},
    {"zvAddonSetExamples", 0},
    {"zvAddonGetExamples", 1},
    {"zvAddonSetSystemRequirements", 0},
    {"zvAddonGetSystemRequirements", 1},
    {"zvAddonAddInstructionSet", 0},
    {"zvAddonSign", 0},
    {"zvAddonSetLicense", 0},
    {"zvAddonGetLicense", 1},
    {"zvAddonSetConfiguration", 0},
    {"zvAddonGetConfiguration", 1},
    {"zvAddonComputeHash", 1},
};

}  // namespace

std::optional<GatewayFunction> findGatewayFunction(std::string_view name) {
  const auto* found = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                   [&](const Entry& e) { return e.name == name; });
  if (found == std::end(kFunctions)) return std::nullopt;
  // The library is linked in; looking the entry up by name lets the tool call exactly what it exports.
  const std::string symbol(found->name);
  void* address = dlsym(RTLD_DEFAULT, symbol.c_str());
  if (address == nullptr) return std::nullopt;
  return GatewayFunction{symbol, found->maxOutputs, reinterpret_cast<qxFunction>(address)};
}

const std::vector<std::string_view>& gatewayFunctionNames() {
  static const std::vector<std::string_view> names = [] {
    std::vector<std::string_view> all;
    for (const Entry& e : kFunctions) all.push_back(e.name);
    return all;
  }();
  return names;
}

}  // namespace zvaddon::tool
