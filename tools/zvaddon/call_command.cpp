// zvaddon call: any gateway function called as the host does, JSON in and JSON out.
#include <iostream>

#include "commands.h"
#include "foundation/i18n.h"
#include "gateway.h"
#include "host/json/json.h"
#include "host/reference/call.h"
#include "host/reference/host_error.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {

Json argumentJson(const foundation::core::msg::MessageArgument& argument) {
  return std::visit(
      [](const auto& value) -> Json {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, ustring>) {
          return fl::i18n::to_utf8(value);
        } else if constexpr (std::is_same_v<T, std::string>) {
          // Narrow arguments are bytes; show them as text when they are UTF-8.
          if (fl::i18n::utf16_length(value)) return value;
          std::string hex;
          for (unsigned char c : value) hex += "\\x" + std::string(1, "0123456789abcdef"[c >> 4]) + "0123456789abcdef"[c & 15];
          return hex;
        } else {
          return value;
        }
      },
      argument);
}

int runCall(const std::string& name, std::optional<int> nargout, const std::vector<std::string>& arguments) {
  const GatewayFunction* function = findGatewayFunction(name);
  if (function == nullptr) throw ToolError(ExitStatus::usage, "no gateway function named '" + name + "'");
  std::vector<matrix::unique_qxarray_ptr> owned;
  std::vector<const qxArray*> inputs;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    try {
      owned.push_back(zvhost::json::toOwnedArray(Json::parse(arguments[i])));
    } catch (const std::exception& e) {
      throw ToolError(ExitStatus::usage, "argument " + std::to_string(i + 1) + " is not valid input: " + e.what());
    }
    inputs.push_back(owned.back().get());
  }
  try {
    const zvhost::reference::OwnedArrays outputs =
        zvhost::reference::call(function->entry, nargout.value_or(function->maxOutputs), inputs);
    // Written straight from the arrays: a 20,000-name list would otherwise be built as a document first.
    // Room that is never touched costs no memory: ample room spares the copies and pages of doubling.
    std::string result;
    result.reserve(std::size_t{16} << 20);
    result += '[';
    for (std::size_t k = 0; k < outputs.size(); ++k) {
      if (k != 0) result += ',';
      zvhost::json::appendText(result, outputs[k].get());
    }
    result += "]\n";
    std::cout << result;
    return 0;
  } catch (const zvhost::reference::HostError& error) {
    Json shown = Json::array();
    for (const auto& argument : error.arguments()) shown.push_back(argumentJson(argument));
    const Json body = {{"identifier", error.identifier()}, {"key", error.key()}, {"arguments", shown},
                       {"message", error.message()}};
    std::cout << Json{{"error", body}}.dump() << "\n";
    return 1;
  }
}

}  // namespace

// Arguments are taken as they stand: CLI11 would split a JSON list such as ["a","b"] at its commas.
void addCallCommand(CLI::App& app, int& exitStatus) {
  CLI::App* call = app.add_subcommand("call", "Call a gateway function as the host does (JSON in, JSON out)");
  call->prefix_command();
  call->footer("Usage: zvaddon call FUNCTION [--nargout N] [--] ARG...\n"
               "Each ARG is a JSON value (a path is a JSON string: '\"/tmp/a.zvaddon\"').\n"
               "Prints the outputs as one JSON array; a host error as {\"error\": {...}} with exit status 1.");
  call->callback([call, &exitStatus] {
    std::string function;
    std::optional<int> nargout;
    std::vector<std::string> arguments;
    bool optionsEnded = false;
    const std::vector<std::string> words = call->remaining();
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::string& word = words[i];
      if (!optionsEnded && word == "--") {
        optionsEnded = true;
      } else if (!optionsEnded && (word == "--nargout" || word.rfind("--nargout=", 0) == 0)) {
        const std::string value = word == "--nargout" ? (i + 1 < words.size() ? words[++i] : "") : word.substr(10);
        try {
          std::size_t used = 0;
          nargout = std::stoi(value, &used);
          if (used != value.size() || *nargout < 0) throw std::invalid_argument(value);
        } catch (const std::exception&) {
          throw ToolError(ExitStatus::usage, "--nargout takes a whole number of 0 or more, not '" + value + "'");
        }
      } else if (function.empty()) {
        function = word;
      } else {
        arguments.push_back(word);
      }
    }
    if (function.empty()) {
      throw ToolError(ExitStatus::usage, "name a gateway function, e.g. zvaddon call zvAddonGetProperties '\"a.zvaddon\"'");
    }
    exitStatus = runCall(function, nargout, arguments);
  });
}

}  // namespace zvaddon::tool
