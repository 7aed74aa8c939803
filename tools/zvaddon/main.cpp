// zvaddon: build, inspect, verify and unpack add-on packages without the host.
#include <CLI/CLI.hpp>

#include "call_command.h"

int main(int argc, char** argv) {
  CLI::App app{"zvaddon: add-on packages from the command line"};
  app.require_subcommand(1);
  int exitStatus = 0;
  zvaddon::tool::addCallCommand(app, exitStatus);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status == 0 ? 0 : 2;
  }
  return exitStatus;
}
