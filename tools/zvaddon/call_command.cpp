#include "call_command.h"

#include <iostream>
#include <memory>

#include "foundation/i18n.h"
#include "gateway_functions.h"
#include "host/json/json.h"
#include "host/reference/call.h"
#include "host/reference/host_error.h"

namespace zvaddon::tool {
namespace {

struct CallOptions {
  std::string function;
  std::optional<int> nargout;
  std::vector<std::string> arguments;
};

nlohmann::ordered_json argumentJson(const foundation::core::msg::MessageArgument& argument) {
  return std::visit(
      [](const auto& value) -> nlohmann::ordered_json {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, ustring>) {
          return fl::i18n::to_utf8(value);
        } else if constexpr (std::is_same_v<T, std::string>) {
          // Narrow arguments are bytes; show them as text when they are UTF-8.
          try {
            (void)fl::i18n::from_utf8(value);
            return value;
          } catch (const fl::i18n::conversion_error&) {
            std::string hex;
            for (unsigned char c : value) hex += "\\x" + std::string(1, "0123456789abcdef"[c >> 4]) + "0123456789abcdef"[c & 15];
            return hex;
          }
        } else {
          return value;
        }
      },
      argument);
}

int runCall(const CallOptions& options) {
  const std::optional<GatewayFunction> function = findGatewayFunction(options.function);
  if (!function) {
    std::cerr << "zvaddon call: no gateway function named '" << options.function << "'\n";
    return 2;
  }
  std::vector<matrix::unique_qxarray_ptr> owned;
  std::vector<const qxArray*> inputs;
  for (std::size_t i = 0; i < options.arguments.size(); ++i) {
    try {
      owned.push_back(zvhost::json::toOwnedArray(nlohmann::ordered_json::parse(options.arguments[i])));
    } catch (const std::exception& e) {
      std::cerr << "zvaddon call: argument " << i + 1 << " is not valid input: " << e.what() << "\n";
      return 2;
    }
    inputs.push_back(owned.back().get());
  }
  const int nargout = options.nargout.value_or(function->maxOutputs);
  try {
    const zvhost::reference::OwnedArrays outputs = zvhost::reference::call(function->entry, nargout, inputs);
    nlohmann::ordered_json result = nlohmann::ordered_json::array();
    for (const auto& output : outputs) result.push_back(zvhost::json::fromArray(output.get()));
    std::cout << result.dump() << "\n";
    return 0;
  } catch (const zvhost::reference::HostError& error) {
    nlohmann::ordered_json arguments = nlohmann::ordered_json::array();
    for (const auto& argument : error.arguments()) arguments.push_back(argumentJson(argument));
    nlohmann::ordered_json body;
    body["identifier"] = error.identifier();
    body["key"] = error.key();
    body["arguments"] = std::move(arguments);
    body["message"] = error.message();
    std::cout << nlohmann::ordered_json{{"error", std::move(body)}}.dump() << "\n";
    return 1;
  }
}

}  // namespace

void addCallCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<CallOptions>();
  CLI::App* call = app.add_subcommand("call", "Call a gateway function as the host does (JSON in, JSON out)");
  call->add_option("function", options->function, "Gateway function, e.g. zvAddonGetProperties")->required();
  call->add_option("--nargout", options->nargout, "Number of outputs requested (default: the function's limit)");
  call->add_option("args", options->arguments, "Inputs, each a JSON value");
  call->callback([options, &exitStatus] { exitStatus = runCall(*options); });
}

}  // namespace zvaddon::tool
