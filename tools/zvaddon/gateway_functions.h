#pragma once
// The gateway functions as the tool sees them: looked up by name in the loaded library, with the
// number of outputs each can give.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/qx.h"

namespace zvaddon::tool {

struct GatewayFunction {
  std::string name;
  int maxOutputs;
  qxFunction entry;
};

// The function of that name, or nothing when the library exports none.
[[nodiscard]] std::optional<GatewayFunction> findGatewayFunction(std::string_view name);
// The names of every gateway function, in the library's documented order.
[[nodiscard]] const std::vector<std::string_view>& gatewayFunctionNames();

}  // namespace zvaddon::tool
