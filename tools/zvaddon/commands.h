#pragma once
// The person-facing commands. Each add*Command registers subcommands whose callbacks set
// `exitStatus`; failures travel as ToolError or zvhost::reference::HostError to main, which prints
// them as one line.
#include <CLI/CLI.hpp>

#include <memory>

#include "tool_error.h"

namespace zvaddon::tool {

// The frame of a command: `options` live as long as the app, a "package" positional is required when
// Options has one, and the callback exits with the status `run` returns.
template <class Options>
CLI::App* addCommand(CLI::App& app, int& exitStatus, const char* name, const char* description,
                     const std::shared_ptr<Options>& options, ExitStatus (*run)(const Options&)) {
  CLI::App* cmd = app.add_subcommand(name, description);
  if constexpr (requires { options->package; }) cmd->add_option("package", options->package, "Package file")->required();
  cmd->callback([options, run, &exitStatus] { exitStatus = static_cast<int>(run(*options)); });
  return cmd;
}

// Each registers its commands: init; build; inspect and ls; extract, sign, verify and hash; get, set
// and screenshot.
void addInitCommand(CLI::App& app, int& exitStatus);
void addBuildCommand(CLI::App& app, int& exitStatus);
void addInspectCommands(CLI::App& app, int& exitStatus);
void addPackageCommands(CLI::App& app, int& exitStatus);
void addRecordCommands(CLI::App& app, int& exitStatus);
// `zvaddon call FUNCTION [--nargout N] ARG...`: each ARG is JSON turned into a host array; prints the
// outputs as one JSON array, or a host error as {"error": {...}} with exit status 1.
void addCallCommand(CLI::App& app, int& exitStatus);

}  // namespace zvaddon::tool
