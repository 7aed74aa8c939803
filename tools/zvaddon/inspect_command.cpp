// zvaddon inspect and zvaddon ls: what a package holds, for people and for machines.
#include <iostream>
#include <memory>

#include "commands.h"
#include "file_selection.h"
#include "package_report.h"
#include "progress.h"

namespace zvaddon::tool {
namespace {

// inspect's and ls's.
struct InspectOptions {
  std::string package;
  bool json = false;
  bool noFiles = false;
  bool sizes = false;
};

std::string text(const Json& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

// Non-empty texts of `keys` in `object`, joined.
std::string joined(const Json& object, std::initializer_list<const char*> keys, const std::string& separator) {
  std::string out;
  for (const char* key : keys) {
    const std::string value = text(object[key]);
    if (value.empty()) continue;
    out += (out.empty() ? "" : separator) + value;
  }
  return out;
}

// The texts of a list (of its elements' `key` when given) joined by ", ", or "-" for none.
std::string listed(const Json& values, const char* key = nullptr) {
  std::string s;
  for (const Json& v : values) s += (s.empty() ? "" : ", ") + text(key ? v[key] : v);
  return s.empty() ? std::string("-") : s;
}

void line(std::ostream& out, const std::string& label, const std::string& value, int indent = 0) {
  const std::string head = std::string(indent, ' ') + label;
  out << head << std::string(head.size() < 19 ? 20 - head.size() : 1, ' ') << value << "\n";
}

void printRequirements(std::ostream& out, const Json& r) {
  out << "requirements\n";
  std::string platforms;
  for (const auto& [key, value] : r["platformCompatibility"].items()) {
    platforms += (platforms.empty() ? "" : ", ") + key + (text(value) == "true" ? "" : "=" + text(value));
  }
  line(out, "platforms", platforms, 2);
  const Json& releases = r["releaseCompatibility"];
  line(out, "releases", releases.is_object() ? text(releases["start"]) + " to " + text(releases["end"]) : "any", 2);
  for (const Json& p : r["productDependency"]) line(out, "product", joined(p, {"name", "version", "identifier"}, " "), 2);
  for (const Json& p : r["supportPackageDependency"]) {
    line(out, "support package", joined(p, {"name", "version", "identifier"}, " "), 2);
  }
  for (const Json& a : r["addonDependency"]) {
    std::string range = joined(a, {"earliestVersion", "latestVersion"}, " to ");
    line(out, "add-on", text(a["name"]) + (range.empty() ? "" : " " + range) + " [" + text(a["identifier"]) + "]", 2);
  }
}

void printConfiguration(std::ostream& out, const Json& c) {
  out << "configuration\n";
  line(out, "search path", listed(c["zorvanPaths"]), 2);
  line(out, "class path", listed(c["javaClassPaths"]), 2);
  for (const auto& [label, key] : {std::pair{"info XML", "infoXMLPath"}, std::pair{"getting started", "gettingStartedDocPath"},
                                   std::pair{"install map", "installMapPath"}}) {
    if (!text(c[key]).empty()) line(out, label, text(c[key]), 2);
  }
}

void printFiles(std::ostream& out, const Json& files) {
  std::uint64_t total = 0;
  for (const Json& f : files) total += f["bytes"].is_number() ? f["bytes"].get<std::uint64_t>() : 0;
  out << "files (" << files.size() << ", " << formatBytes(total) << ")\n";
  // Depth first as the package lists them: print each folder once, where its first file appears.
  std::vector<std::string> open;
  for (const Json& f : files) {
    const std::string path = text(f["path"]);
    const std::vector<std::string_view> parts = splitPath(path);
    std::size_t same = 0;
    while (same < open.size() && same + 1 < parts.size() && open[same] == parts[same]) ++same;
    open.resize(same);
    for (std::size_t k = same; k + 1 < parts.size(); ++k) {
      out << std::string(2 * (k + 1), ' ') << parts[k] << "/\n";
      open.emplace_back(parts[k]);
    }
    const std::string indent(2 * parts.size(), ' ');
    out << indent << parts.back()
        << (f["bytes"].is_number() ? "  " + formatBytes(f["bytes"].get<std::uint64_t>()) : std::string("  (folder)"))
        << "\n";
  }
}

void printReport(std::ostream& out, const Json& r, bool withFiles) {
  const Json& p = r["properties"];
  line(out, "package", text(r["package"]) + " (" + formatBytes(r["bytes"].get<std::uint64_t>()) + ")");
  constexpr std::pair<const char*, const char*> kShown[] = {{"name", "name"}, {"version", "version"}, {"type", "type"},
                                                            {"release", "ZORVANRelease"}, {"GUID", "GUID"}, {"summary", "summary"}};
  for (const auto& [label, key] : kShown) line(out, label, text(p[key]));
  line(out, "author", joined(p, {"authorName", "authorContact", "authorOrganization"}, ", "));
  if (!text(p["description"]).empty()) line(out, "description", text(p["description"]));
  line(out, "signature", text(r["signature"]));
  if (r["signer"].is_object()) line(out, "author signer", text(r["signer"]["subject"]) + ", SHA-256 " + text(r["signer"]["sha256"]));
  line(out, "sha512", text(r["sha512"]));
  printRequirements(out, r["systemRequirements"]);
  printConfiguration(out, r["configuration"]);
  const Json& licence = r["license"];
  if (text(licence["type"]).empty() && text(licence["text"]).empty()) {
    line(out, "license", "-");
  } else {
    line(out, "license", (text(licence["type"]).empty() ? "untyped" : text(licence["type"])) + ", " +
                             std::to_string(text(licence["text"]).size()) + " bytes of text");
  }
  out << "examples\n";
  for (const Json& category : r["examples"]) line(out, text(category["name"]), listed(category["examples"], "name"), 2);
  out << "revisions\n";
  for (const Json& v : r["revisionHistory"]) line(out, text(v["version"]), text(v["date"]) + "  " + text(v["description"]), 2);
  out << "apps\n";
  for (const Json& a : r["apps"]) {
    line(out, text(a["name"]), text(a["relativePath"]) + (text(a["installByDefault"]) == "true" ? ", installed by default" : ""), 2);
  }
  const Json& shot = r["screenshot"];
  line(out, "screenshot", shot.is_object() ? text(shot["part"]) + " (" + formatBytes(shot["bytes"].get<std::uint64_t>()) + ")" : "-");
  line(out, "instruction sets", listed(r["instructionSets"]));
  if (withFiles) printFiles(out, r["files"]);
}

ExitStatus runInspect(const InspectOptions& options) {
  const Json report = inspectPackage(options.package);
  if (options.json) {
    Json shown = report;
    if (options.noFiles) shown.erase("files");
    std::cout << shown.dump(2) << "\n";
  } else {
    printReport(std::cout, report, !options.noFiles);
  }
  return ExitStatus::ok;
}

ExitStatus runList(const InspectOptions& options) {
  for (const Json& f : listFiles(options.package)) {
    if (options.sizes) {
      const std::string size = f["bytes"].is_number() ? std::to_string(f["bytes"].get<std::uint64_t>()) : "-";
      std::cout << std::string(size.size() < 12 ? 12 - size.size() : 0, ' ') << size << "  ";
    }
    std::cout << text(f["path"]) << "\n";
  }
  return ExitStatus::ok;
}

}  // namespace

void addInspectCommands(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<InspectOptions>();
  CLI::App* inspect = addCommand(app, exitStatus, "inspect", "Show a package's properties, records, signatures and files",
                                 options, runInspect);
  inspect->add_flag("--json", options->json, "One JSON object, records in the form `set` takes");
  inspect->add_flag("--no-files", options->noFiles, "Leave out the file tree");
  addCommand(app, exitStatus, "ls", "List the content files of a package", options, runList)
      ->add_flag("-l,--long", options->sizes, "Show each file's size in bytes");
}

}  // namespace zvaddon::tool
