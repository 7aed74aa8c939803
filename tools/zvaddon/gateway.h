#pragma once
// Calling the gateway functions from the tool's commands, exactly as the host does: inputs are JSON
// turned into host arrays (zvhost::json's lossless mapping), outputs come back as JSON.
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/qx.h"

namespace zvaddon::tool {

using Json = nlohmann::ordered_json;

struct GatewayFunction {
  std::string_view name;
  int maxOutputs;
  qxFunction entry;
};

// The gateway function of that name, or nullptr.
[[nodiscard]] const GatewayFunction* findGatewayFunction(std::string_view name);

// Calls the named gateway function with `inputs` and returns its `nargout` outputs (default: the
// function's output limit). A host error raised by the function propagates as
// zvhost::reference::HostError; an unknown function or an input JSON cannot express throws
// std::invalid_argument.
[[nodiscard]] std::vector<Json> callGateway(std::string_view function, const std::vector<Json>& inputs,
                                            int nargout = -1);

// The one output of a Get function.
[[nodiscard]] Json getFromGateway(std::string_view function, const std::vector<Json>& inputs);

}  // namespace zvaddon::tool
