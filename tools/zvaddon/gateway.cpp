#include "gateway.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "gateway/zvaddon.h"
#include "host/json/json.h"
#include "host/reference/call.h"

namespace zvaddon::tool {
namespace {

#define ZV_ENTRY(NAME, OUTPUTS) {#NAME, OUTPUTS, &NAME}
constexpr GatewayFunction kFunctions[] = {
    ZV_ENTRY(zvAddonCreate, 0),
    ZV_ENTRY(zvAddonSetProperties, 0),
    ZV_ENTRY(zvAddonGetProperties, 1),
    ZV_ENTRY(zvAddonAddFiles, 0),
    ZV_ENTRY(zvAddonAddFolders, 0),
    ZV_ENTRY(zvAddonExtractAllFiles, 0),
    ZV_ENTRY(zvAddonGetFileList, 1),
    ZV_ENTRY(zvAddonSetRevisionHistory, 0),
    ZV_ENTRY(zvAddonGetRevisionHistory, 1),
    ZV_ENTRY(zvAddonSetScreenshot, 0),
    ZV_ENTRY(zvAddonGetScreenshot, 1),
    ZV_ENTRY(zvAddonSetAppInstallList, 0),
    ZV_ENTRY(zvAddonGetAppInstallList, 1),
    ZV_ENTRY(zvAddonSetExamples, 0),
    ZV_ENTRY(zvAddonGetExamples, 1),
    ZV_ENTRY(zvAddonSetSystemRequirements, 0),
    ZV_ENTRY(zvAddonGetSystemRequirements, 1),
    ZV_ENTRY(zvAddonAddInstructionSet, 0),
    ZV_ENTRY(zvAddonSign, 0),
    ZV_ENTRY(zvAddonSetLicense, 0),
    ZV_ENTRY(zvAddonGetLicense, 1),
    ZV_ENTRY(zvAddonSetConfiguration, 0),
    ZV_ENTRY(zvAddonGetConfiguration, 1),
    ZV_ENTRY(zvAddonComputeHash, 1),
};
#undef ZV_ENTRY

}  // namespace

const GatewayFunction* findGatewayFunction(std::string_view name) {
  const auto* found = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                   [&](const GatewayFunction& f) { return f.name == name; });
  return found == std::end(kFunctions) ? nullptr : found;
}

std::vector<Json> callGateway(std::string_view function, const std::vector<Json>& inputs, int nargout) {
  const GatewayFunction* entry = findGatewayFunction(function);
  if (entry == nullptr) throw std::invalid_argument("no gateway function named '" + std::string(function) + "'");
  std::vector<matrix::unique_qxarray_ptr> owned;
  std::vector<const qxArray*> arrays;
  owned.reserve(inputs.size());
  for (const Json& input : inputs) {
    owned.push_back(zvhost::json::toOwnedArray(input));
    arrays.push_back(owned.back().get());
  }
  const zvhost::reference::OwnedArrays outputs =
      zvhost::reference::call(entry->entry, nargout < 0 ? entry->maxOutputs : nargout, arrays);
  std::vector<Json> result;
  result.reserve(outputs.size());
  for (const auto& output : outputs) result.push_back(zvhost::json::fromArray(output.get()));
  return result;
}

Json getFromGateway(std::string_view function, const std::vector<Json>& inputs) {
  return std::move(callGateway(function, inputs, 1).at(0));
}

}  // namespace zvaddon::tool
