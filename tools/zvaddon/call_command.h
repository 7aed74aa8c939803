#pragma once
#include <CLI/CLI.hpp>

namespace zvaddon::tool {

// `zvaddon call FUNCTION [--nargout N] ARG...`: each ARG is JSON turned into a host array; prints the
// outputs as one JSON array, or a host error as {"error": {...}} with exit status 1.
void addCallCommand(CLI::App& app, int& exitStatus);

}  // namespace zvaddon::tool
