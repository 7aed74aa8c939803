#include "manifest.h"

#include <fstream>
#include <sstream>

#include "foundation/i18n.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
namespace {

fs::path existingFile(const fs::path& folder, const Json& value, const std::string& pointer) {
  if (!value.is_string() || value.get<std::string>().empty()) {
    wrongType(pointer, "a file path", value);
  }
  const fs::path path = folder / fs::path(value.get<std::string>());
  std::error_code ec;
  if (!fs::is_regular_file(path, ec)) badInput(pointer, "no file '" + value.get<std::string>() + "' in the add-on folder");
  return path;
}

std::vector<std::string> textList(const Json& value, const std::string& pointer) {
  if (!value.is_array()) wrongType(pointer, "an array of texts", value);
  std::vector<std::string> out;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (!value[i].is_string()) wrongType(childPointer(pointer, i), "text", value[i]);
    out.push_back(value[i].get<std::string>());
  }
  return out;
}

FilePatterns filePatterns(const Json& value, const std::string& pointer) {
  if (!value.is_object()) wrongType(pointer, "an object", value);
  requireKnownKeys(value, pointer, {"include", "exclude", "defaultExcludes"});
  FilePatterns patterns;
  for (auto [key, list] : {std::pair{"include", &patterns.include}, std::pair{"exclude", &patterns.exclude}}) {
    if (const auto it = value.find(key); it != value.end()) *list = textList(*it, childPointer(pointer, key));
  }
  if (const auto it = value.find("defaultExcludes"); it != value.end()) {
    if (!it->is_boolean()) wrongType(childPointer(pointer, "defaultExcludes"), "true or false", *it);
    patterns.defaultExcludes = it->get<bool>();
  }
  return patterns;
}

// The licence section with "file" replaced by the file's text.
Json licenseSection(const Json& value, const fs::path& folder) {
  if (!value.is_object() || !value.contains("file")) return value;
  const std::string pointer = "/license";
  if (value.contains("text")) badInput(pointer, "give either \"text\" or \"file\", not both");
  Json out = value;
  out.erase("file");
  const std::string text = readFileBytes(existingFile(folder, value["file"], childPointer(pointer, "file")));
  if (!fl::i18n::utf16_length(text)) {
    badInput(childPointer(pointer, "file"), "'" + value["file"].get<std::string>() + "' is not UTF-8 text");
  }
  out["text"] = text;
  return out;
}

Manifest parseManifest(const Json& document, const fs::path& folder) {
  if (!document.is_object()) wrongType("", "an object", document);
  std::vector<std::string_view> keys;
  for (const RecordInfo& info : allRecords()) keys.push_back(info.name);
  keys.insert(keys.end(), {"screenshot", "instructionSets", "files", "signing"});
  requireKnownKeys(document, "", keys);

  Manifest manifest;
  const auto properties = document.find("properties");
  if (properties == document.end()) badInput("/properties", "required");
  manifest.properties = recordToHost(Record::properties, *properties, "/properties");
  for (const char* key : {"name", "version", "GUID"}) {
    const Json& value = manifest.properties[key];
    if (value.is_string() && value.get<std::string>().empty()) badInput(childPointer("/properties", key), "required");
  }

  for (const RecordInfo& info : allRecords()) {
    if (info.record == Record::properties) continue;
    const auto it = document.find(info.name);
    if (it == document.end()) continue;
    const std::string pointer = childPointer("", info.name);
    const Json section = info.record == Record::license ? licenseSection(*it, folder) : *it;
    manifest.records.emplace_back(&info, recordToHost(info.record, section, pointer));
  }

  if (const auto it = document.find("screenshot"); it != document.end() && !it->is_null()) {
    manifest.screenshot = existingFile(folder, *it, "/screenshot");
  }
  if (const auto it = document.find("instructionSets"); it != document.end()) {
    if (!it->is_array()) wrongType("/instructionSets", "an array of file paths", *it);
    for (std::size_t i = 0; i < it->size(); ++i) {
      manifest.instructionSets.push_back(existingFile(folder, (*it)[i], childPointer("/instructionSets", i)));
    }
  }
  if (const auto it = document.find("files"); it != document.end()) {
    manifest.files = filePatterns(*it, "/files");
  }
  if (const auto it = document.find("signing"); it != document.end()) {
    if (!it->is_object()) wrongType("/signing", "an object", *it);
    requireKnownKeys(*it, "/signing", {"key", "cert", "chain", "passphraseFile"});
    AuthorKeyFiles& files = manifest.signing.emplace();
    for (auto [key, path] : {std::pair{"key", &files.key}, std::pair{"cert", &files.cert}, std::pair{"chain", &files.chain},
                             std::pair{"passphraseFile", &files.passphraseFile}}) {
      if (it->contains(key) || path == &files.key || path == &files.cert) {
        *path = existingFile(folder, it->value(key, Json()), childPointer("/signing", key)).string();
      }
    }
  }
  return manifest;
}

}  // namespace

std::string readFileBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (!in || in.bad()) throw ToolError(ExitStatus::hostError, "cannot read '" + path.string() + "'");
  return bytes.str();
}

Json parseJson(const std::string& text, const std::string& origin) {
  try {
    return Json::parse(text);
  } catch (const Json::exception& e) {
    throw ToolError(ExitStatus::badInput, origin + ": not valid JSON: " + e.what());
  }
}

Manifest readManifest(const fs::path& manifestFile, const fs::path& folder) {
  std::error_code ec;
  if (!fs::is_regular_file(manifestFile, ec)) {
    throw ToolError(ExitStatus::hostError, "no manifest '" + manifestFile.string() +
                                               "' (zvaddon init writes a starting one)");
  }
  const Json document = parseJson(readFileBytes(manifestFile), manifestFile.string());
  try {
    return parseManifest(document, folder);
  } catch (const ToolError& e) {
    throw ToolError(e.status(), manifestFile.string() + ": " + e.what());
  }
}

}  // namespace zvaddon::tool
