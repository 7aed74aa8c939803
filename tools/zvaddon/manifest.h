#pragma once
// The manifest `zvaddon.json` of an add-on folder: what `zvaddon build` puts into the package.
//
// Top-level keys: one per metadata record ("properties", "systemRequirements", "configuration",
// "license", "examples", "revisionHistory", "apps", each in the form records.h describes), plus
// "screenshot" (an image path), "instructionSets" (paths), "files" ({"include": [globs], "exclude":
// [globs], "defaultExcludes": true}), "signing" ({"key", "cert", "chain", "passphraseFile"}: the
// author's files, key and cert required). "license" may name a "file" whose text becomes the licence
// text. Paths are relative to the add-on folder. "properties" must give "name", "version", "GUID".
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "file_selection.h"
#include "package_report.h"
#include "records.h"

namespace zvaddon::tool {

struct Manifest {
  Json properties;                             // host form, for zvAddonCreate
  std::vector<std::pair<const RecordInfo*, Json>> records;  // the other records given, host form, in allRecords order
  std::optional<std::filesystem::path> screenshot;
  std::vector<std::filesystem::path> instructionSets;
  FilePatterns files;
  std::optional<AuthorKeyFiles> signing;
};

// Reads the manifest file and resolves its paths against `folder`. Throws ToolError(badInput), the
// message beginning with the file's path, naming the JSON pointer of an unknown key, a value of the
// wrong type, a missing required field or a path that names no file.
[[nodiscard]] Manifest readManifest(const std::filesystem::path& manifestFile, const std::filesystem::path& folder);

// The whole file as bytes; throws ToolError(hostError) naming the path when it cannot be read.
[[nodiscard]] std::string readFileBytes(const std::filesystem::path& path);
// The JSON document in `text`; throws ToolError(badInput) "ORIGIN: not valid JSON: ..." when it is none.
[[nodiscard]] Json parseJson(const std::string& text, const std::string& origin);

}  // namespace zvaddon::tool
