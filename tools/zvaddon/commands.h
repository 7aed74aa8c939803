#pragma once
// The person-facing commands. Each add*Command registers one subcommand whose callback sets
// `exitStatus`; failures travel as ToolError or zvhost::reference::HostError to main, which prints
// them as one line.
#include <CLI/CLI.hpp>

namespace zvaddon::tool {

void addBuildCommand(CLI::App& app, int& exitStatus);
void addInitCommand(CLI::App& app, int& exitStatus);
void addInspectCommand(CLI::App& app, int& exitStatus);
void addListCommand(CLI::App& app, int& exitStatus);
void addExtractCommand(CLI::App& app, int& exitStatus);
void addSignCommand(CLI::App& app, int& exitStatus);
void addVerifyCommand(CLI::App& app, int& exitStatus);
void addHashCommand(CLI::App& app, int& exitStatus);
void addGetCommand(CLI::App& app, int& exitStatus);
void addSetCommand(CLI::App& app, int& exitStatus);
void addScreenshotCommand(CLI::App& app, int& exitStatus);

}  // namespace zvaddon::tool
