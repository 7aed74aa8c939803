// zvaddon: build, inspect, verify and unpack add-on packages without the host.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "commands.h"
#include "host/reference/host_error.h"
#include "tool_error.h"

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 success (verify: signature valid); 1 the package or a file could not be read or\n"
    "written (a host error, printed with its message identifier); 2 usage error; 3 verify: unsigned;\n"
    "4 verify: signature invalid; 5 the manifest or a record's JSON is malformed.";

int fail(const std::string& command, const std::string& message, zvaddon::tool::ExitStatus status) {
  // Whatever a command printed before it failed comes first.
  std::cout << std::flush;
  std::cerr << "zvaddon" << (command.empty() ? "" : " " + command) << ": " << message << "\n";
  return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace zvaddon::tool;
  // With TZ unset the C library stats /etc/localtime on every local-time conversion, and the package
  // reader converts each entry's DOS time when it opens a package: 20,000 system calls for a large one.
  // Naming the same zone file keeps local time as it was and has it read once.
  if (std::getenv("TZ") == nullptr) ::setenv("TZ", ":/etc/localtime", 0);
  CLI::App app{"zvaddon: add-on packages from the command line"};
  app.require_subcommand(1);
  app.footer(kExitStatuses);
  app.set_version_flag("--version", "zvaddon " ZV_VERSION);
  int exitStatus = 0;
  for (auto add : {addInitCommand, addBuildCommand, addInspectCommands, addPackageCommands, addRecordCommands,
                   addCallCommand}) {
    add(app, exitStatus);
  }

  auto command = [&app]() -> std::string {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? std::string() : chosen.front()->get_name();
  };
  // CLI11 would only say that a subcommand is required.
  const auto known = [&app](const char* name) {
    const auto all = app.get_subcommands([](CLI::App*) { return true; });
    return std::any_of(all.begin(), all.end(), [&](const CLI::App* s) { return s->check_name(name); });
  };
  if (argc > 1 && argv[1][0] != '-' && !known(argv[1])) {
    return fail("", std::string("no command '") + argv[1] + "' (zvaddon --help lists them)", ExitStatus::usage);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : static_cast<int>(ExitStatus::usage);
  } catch (const zvhost::reference::HostError& e) {
    return fail(command(), e.message() + " (" + e.identifier() + ")", ExitStatus::hostError);
  } catch (const ToolError& e) {
    return fail(command(), e.what(), e.status());
  } catch (const std::exception& e) {
    return fail(command(), e.what(), ExitStatus::hostError);
  }
  return exitStatus;
}
