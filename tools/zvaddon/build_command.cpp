// zvaddon build: an add-on folder and its manifest into a package, through the gateway functions.
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <set>

#include <boost/algorithm/string/replace.hpp>

#include "commands.h"
#include "file_selection.h"
#include "host/reference/host_error.h"
#include "manifest.h"
#include "progress.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
namespace {

struct BuildOptions {
  std::string folder = ".";
  std::string output;
  std::string manifest;
  bool sign = false;
  AuthorKeyFiles author;
  bool quiet = false;
};

// The package is written under a temporary name beside its destination and renamed into place only
// when every step succeeded, so a failed build leaves no half package and an earlier one untouched.
struct PendingFile {
  explicit PendingFile(const fs::path& destination)
      : destination(destination),
        path(destination.parent_path() /
             ("." + destination.filename().string() + "." + std::to_string(::getpid()) + ".partial")) {
    std::error_code ec;
    fs::remove(path, ec);
  }
  ~PendingFile() {
    std::error_code ec;
    if (!committed) fs::remove(path, ec);
  }
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  void commit() {
    std::error_code ec;
    fs::rename(path, destination, ec);
    if (ec) throw ToolError(ExitStatus::hostError, "cannot write '" + destination.string() + "': " + ec.message());
    committed = true;
  }

  const fs::path destination;
  const fs::path path;
  bool committed = false;
};

std::string normalised(std::string path) {
  while (path.starts_with("./")) path.erase(0, 2);
  while (path.starts_with("/")) path.erase(0, 1);
  while (path.size() > 1 && path.ends_with("/")) path.pop_back();
  return path;
}

// Paths the records name that the package will not hold: worth a warning, not a failure, since
// authors may add those files later through `zvaddon set`.
std::vector<std::string> missingReferences(const Manifest& manifest, const Selection& selection) {
  std::set<std::string> files;
  std::set<std::string> folders(selection.emptyFolders.begin(), selection.emptyFolders.end());
  for (const SelectedFile& f : selection.files) {
    files.insert(f.path);
    for (std::size_t slash = f.path.find('/'); slash != std::string::npos; slash = f.path.find('/', slash + 1)) {
      folders.insert(f.path.substr(0, slash));
    }
  }

  std::vector<std::string> missing;
  auto check = [&](const Json& value, const std::string& pointer, bool folder) {
    if (!value.is_string() || value.get<std::string>().empty()) return;
    const std::string path = normalised(value.get<std::string>());
    if ((folder && (path.empty() || path == ".")) || (folder ? folders : files).contains(path)) return;
    missing.push_back(pointer + ": '" + value.get<std::string>() + "' is not among the package's " +
                      (folder ? "folders" : "files"));
  };
  // visit(element, its JSON pointer) for each element of an array.
  auto each = [](const Json& list, const std::string& pointer, auto&& visit) {
    if (!list.is_array()) return;
    for (std::size_t i = 0; i < list.size(); ++i) visit(list[i], childPointer(pointer, i));
  };
  for (const auto& [info, host] : manifest.records) {
    const std::string base = childPointer("", info->name);
    if (info->record == Record::configuration) {
      each(host["zorvanPaths"], base + "/zorvanPaths", [&](const Json& v, const std::string& at) { check(v, at, true); });
      for (const char* key : {"infoXMLPath", "gettingStartedDocPath", "installMapPath"}) {
        check(host[key], childPointer(base, key), false);
      }
    } else if (info->record == Record::examples) {
      each(host, base, [&](const Json& category, const std::string& c) {
        each(category["examples"], c + "/examples", [&](const Json& example, const std::string& at) {
          for (const char* key : {"source", "main", "thumbnail"}) check(example[key], childPointer(at, key), false);
          each(example["images"], at + "/images", [&](const Json& v, const std::string& i) { check(v, i, false); });
        });
      });
    } else if (info->record == Record::apps) {
      each(host, base, [&](const Json& app, const std::string& at) { check(app["relativePath"], at + "/relativePath", false); });
    }
  }
  return missing;
}

fs::path defaultOutput(const fs::path& folder, const Manifest& manifest) {
  std::error_code ec;
  fs::path name = fs::weakly_canonical(folder, ec).filename();
  if (ec || name.empty()) name = "addon";
  return name.string() + "-" + manifest.properties["version"].get<std::string>() + ".zvaddon";
}

void buildInto(const BuildOptions& options, const fs::path& folder, const Manifest& manifest,
               const Selection& selection, const std::string& package) {
  (void)callGateway("zvAddonCreate", {package, manifest.properties});
  bool hasRequirements = false;
  for (const auto& [info, host] : manifest.records) {
    (void)callGateway(info->setFunction, {package, host});
    hasRequirements = hasRequirements || info->record == Record::systemRequirements;
  }
  if (options.sign && !hasRequirements) {
    // The signature covers the requirements part, so a signed package needs one: the defaults.
    (void)callGateway("zvAddonSetSystemRequirements",
                      {package, recordToHost(Record::systemRequirements, Json::object(), "")});
  }
  if (manifest.screenshot) (void)callGateway("zvAddonSetScreenshot", {package, manifest.screenshot->string()});
  for (const fs::path& file : manifest.instructionSets) {
    (void)callGateway("zvAddonAddInstructionSet", {package, file.string()});
  }

  Progress progress("build", selection.files.size(), selection.totalBytes, options.quiet);
  std::uint64_t filesDone = 0;
  std::uint64_t bytesDone = 0;
  for (const Batch& batch : planBatches(selection.files)) {
    Json sources = Json::array();
    Json targets = Json::array();
    for (std::size_t i = batch.first; i < batch.end; ++i) {
      sources.push_back((folder / selection.files[i].path).string());
      targets.push_back(selection.files[i].path);
    }
    (void)callGateway("zvAddonAddFiles", {package, sources, targets});
    filesDone += batch.end - batch.first;
    bytesDone += batch.bytes;
    progress.update(filesDone, bytesDone);
  }
  if (!selection.emptyFolders.empty()) (void)callGateway("zvAddonAddFolders", {package, Json(selection.emptyFolders)});
  progress.finish();
  if (options.sign) (void)callGateway("zvAddonSign", {package});
  // Last: the author signature covers every part, the requirements signature included.
  if (!options.author.key.empty()) signAsAuthor(package, options.author);
}

ExitStatus runBuild(const BuildOptions& given) {
  BuildOptions options = given;
  const fs::path folder = fs::absolute(options.folder);
  const fs::path manifestFile =
      options.manifest.empty() ? fs::path(options.folder) / "zvaddon.json" : fs::path(options.manifest);
  Manifest manifest = readManifest(manifestFile, folder);
  if (options.author.key.empty() && manifest.signing) options.author = *manifest.signing;
  const fs::path output = options.output.empty() ? defaultOutput(folder, manifest) : fs::path(options.output);

  PendingFile pending(fs::absolute(output));
  const Selection selection = selectFiles(folder, manifest.files, {output, pending.path});
  for (const std::string& warning : missingReferences(manifest, selection)) {
    std::cerr << "zvaddon build: warning: " << manifestFile.string() << ": " << warning << "\n";
  }

  const std::string package = pending.path.string();
  try {
    buildInto(options, folder, manifest, selection, package);
  } catch (const zvhost::reference::HostError& e) {
    // People know the package by the name they asked for, not by its temporary one.
    throw zvhost::reference::HostError(e.identifier(), boost::replace_all_copy(e.message(), package, output.string()),
                                       e.arguments());
  }
  pending.commit();

  if (!options.quiet) {
    std::cout << "built " << output.string() << ": " << selection.files.size() << " files ("
              << formatBytes(selection.totalBytes) << ")";
    if (!selection.emptyFolders.empty()) std::cout << ", " << selection.emptyFolders.size() << " empty folders";
    std::cout << (options.sign ? ", signed" : "") << (options.author.key.empty() ? "" : ", signed by its author") << "\n";
  }
  return ExitStatus::ok;
}

}  // namespace

void addBuildCommand(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<BuildOptions>();
  CLI::App* cmd = addCommand(app, exitStatus, "build", "Package the add-on in DIR as its manifest zvaddon.json describes",
                             options, runBuild);
  cmd->add_option("dir", options->folder, "Add-on folder (default: the current folder)");
  cmd->add_option("-o,--output", options->output, "Package file (default: <folder>-<version>.zvaddon here)");
  cmd->add_option("-m,--manifest", options->manifest, "Manifest (default: DIR/zvaddon.json)");
  cmd->add_flag("--sign", options->sign, "Sign the system requirements");
  addAuthorKeyOptions(*cmd, options->author);
  cmd->add_flag("-q,--quiet", options->quiet, "No progress bar, no summary");
}

}  // namespace zvaddon::tool
