#include "gateway.h"

#include <stdexcept>
#include <string>

#include "gateway_functions.h"
#include "host/json/json.h"
#include "host/reference/call.h"

namespace zvaddon::tool {

std::vector<Json> callGateway(std::string_view function, const std::vector<Json>& inputs, int nargout) {
  const std::optional<GatewayFunction> entry = findGatewayFunction(function);
  if (!entry) throw std::invalid_argument("no gateway function named '" + std::string(function) + "'");
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
  std::vector<Json> outputs = callGateway(function, inputs, 1);
  return std::move(outputs.at(0));
}

}  // namespace zvaddon::tool
