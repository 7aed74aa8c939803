// zvaddon get, set and screenshot: one metadata record or the screenshot at a time.
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "commands.h"
#include "foundation/crypto.h"
#include "foundation/i18n.h"
#include "manifest.h"
#include "package_report.h"
#include "progress.h"
#include "records.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {

struct RecordOptions {
  std::string package;
  std::string record;
  std::string value;
};

struct ScreenshotOptions {
  std::string package;
  std::string set;
  std::string get;
};

// JSON text as given, "@path" for a file's content, "-" for standard input.
Json readValue(const std::string& argument) {
  if (argument == "-") {
    return parseJson({std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()}, "standard input");
  }
  if (argument.starts_with("@")) return parseJson(readFileBytes(argument.substr(1)), argument.substr(1));
  return parseJson(argument, "the record's JSON");
}

ExitStatus runGet(const RecordOptions& options) {
  const RecordInfo& info = requireRecord(options.record);
  std::cout << recordFromHost(info.record, getFromGateway(info.getFunction, {options.package})).dump(2) << "\n";
  return ExitStatus::ok;
}

ExitStatus runSet(const RecordOptions& options) {
  const RecordInfo& info = requireRecord(options.record);
  const Json host = recordToHost(info.record, readValue(options.value), "");
  (void)callGateway(info.setFunction, {options.package, host});
  return ExitStatus::ok;
}

ExitStatus runScreenshot(const ScreenshotOptions& options) {
  if (!options.set.empty()) {
    (void)callGateway("zvAddonSetScreenshot", {options.package, options.set});
    return ExitStatus::ok;
  }
  const std::string encoded = getFromGateway("zvAddonGetScreenshot", {options.package}).get<std::string>();
  if (options.get.empty()) {
    const auto shot = readContents(options.package).screenshot;
    std::cout << (encoded.empty() || !shot ? "no screenshot"
                                           : fl::i18n::to_utf8(shot->name) + " (" + formatBytes(shot->size) + ")")
              << "\n";
    return ExitStatus::ok;
  }
  if (encoded.empty()) throw ToolError(ExitStatus::hostError, options.package + " has no screenshot");
  const foundation::crypto::Bytes bytes = foundation::crypto::utils::base64Decode(encoded);
  std::ofstream out(options.get, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) throw ToolError(ExitStatus::hostError, "cannot write '" + options.get + "'");
  return ExitStatus::ok;
}

}  // namespace

void addRecordCommands(CLI::App& app, int& exitStatus) {
  auto options = std::make_shared<RecordOptions>();
  addCommand(app, exitStatus, "get", "Print one metadata record as JSON", options, runGet)
      ->add_option("record", options->record,
                   "properties, systemRequirements, configuration, license, examples, revisionHistory or apps")
      ->required();

  CLI::App* set =
      addCommand(app, exitStatus, "set", "Replace one metadata record with JSON (as `get` prints it)", options, runSet);
  set->add_option("record", options->record, "Record name, as for get")->required();
  set->add_option("json", options->value, "The record: JSON text, @FILE, or - for standard input")->required();

  auto shot = std::make_shared<ScreenshotOptions>();
  CLI::App* screenshot = addCommand(app, exitStatus, "screenshot",
                                    "Show, store (--set) or save (--get) the package's screenshot", shot, runScreenshot);
  CLI::Option* store = screenshot->add_option("--set", shot->set, "Store this image as the screenshot");
  store->excludes(screenshot->add_option("--get", shot->get, "Write the screenshot's bytes to this file"));
}

}  // namespace zvaddon::tool
