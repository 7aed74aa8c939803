// zvaddon init: a starting manifest for an add-on folder.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "commands.h"
#include "file_selection.h"
#include "gateway.h"
#include "progress.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
namespace {

struct InitOptions {
  std::string folder = ".";
  bool force = false;
};

ExitStatus runInit(const InitOptions& options) {
  const fs::path folder = options.folder;
  const fs::path manifestFile = folder / "zvaddon.json";
  std::error_code ec;
  if (fs::exists(manifestFile, ec) && !options.force) {
    throw ToolError(ExitStatus::hostError, "'" + manifestFile.string() + "' exists already (--force replaces it)");
  }
  const Selection selection = selectFiles(folder, FilePatterns{});

  // The include list names the top-level entries that would go in, so files added below them later
  // are taken too.
  std::set<std::string> topLevel;
  for (const SelectedFile& f : selection.files) {
    const std::size_t slash = f.path.find('/');
    topLevel.insert(slash == std::string::npos ? f.path : f.path.substr(0, slash) + "/");
  }
  for (const std::string& f : selection.emptyFolders) topLevel.insert(f.substr(0, f.find('/')) + "/");

  Json manifest = Json::object();
  manifest["properties"] = {{"name", fs::weakly_canonical(folder, ec).filename().string()}, {"version", "1.0.0"},
                            {"GUID", boost::uuids::to_string(boost::uuids::random_generator()())},
                            {"summary", ""}, {"description", ""}, {"authorName", ""}, {"authorContact", ""},
                            {"authorOrganization", ""}};
  for (const char* licence : {"LICENSE", "LICENSE.txt", "LICENSE.md", "LICENCE", "COPYING"}) {
    if (fs::is_regular_file(folder / licence, ec)) {
      manifest["license"] = {{"type", ""}, {"file", licence}};
      break;
    }
  }
  manifest["files"] = {{"include", topLevel}, {"exclude", Json::array()}};

  std::ofstream out(manifestFile, std::ios::binary | std::ios::trunc);
  out << manifest.dump(2) << "\n";
  out.close();
  if (!out) throw ToolError(ExitStatus::hostError, "cannot write '" + manifestFile.string() + "'");
  std::cout << "wrote " << manifestFile.string() << ": " << selection.files.size() << " files ("
            << formatBytes(selection.totalBytes) << ") would be included\n";
  return ExitStatus::ok;
}

}  // namespace

void addInitCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<InitOptions>();
  CLI::App* cmd =
      addCommand(app, exitStatus, "init", "Write a starting manifest zvaddon.json for the add-on in DIR", options, runInit);
  cmd->add_option("dir", options->folder, "Add-on folder (default: the current folder)");
  cmd->add_flag("-f,--force", options->force, "Replace an existing manifest");
}

}  // namespace zvaddon::tool
