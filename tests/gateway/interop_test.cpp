// Packages the gateway writes, read by independent OPC readers (Apache POI and python-docx).
#include <gtest/gtest.h>

#include "gateway/zvaddon.h"
#include "support/command.h"
#include "support/gateway_call.h"

namespace {

using zvtest::callOk;
using zvtest::Json;

// The driver's normalised summary; it exits non-zero when the readers disagree or a ZIP test fails.
Json readersSummary(const std::string& package) {
  const zvtest::CommandRun run = zvtest::runCommand(
      std::string("/usr/bin/python3 '") + ZV_INTEROP_DRIVER + "' --reader both --zip-test --java-classes '" +
      ZV_INTEROP_JAVA_CLASSES + "' " + zvtest::shellQuoted(package));
  EXPECT_EQ(run.status, 0) << run.output;
  return run.status == 0 ? Json::parse(run.output) : Json();
}

TEST(Interop, CreatedAndEditedPackageReadsTheSameInPoiAndPythonDocx) {
  zvtest::TempDir dir;
  const std::string path = dir.file("interop.zvaddon");
  callOk(zvAddonCreate, {path, zvtest::properties("First title")});
  Json edited = zvtest::properties("Caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87");
  edited["summary"] = "Second summary";
  edited["version"] = "2.0.1";
  edited["authorName"] = "Grace Hopper";
  callOk(zvAddonSetProperties, {path, edited});
  zvtest::writeBytes(dir.file("shot.png"), "\x89PNG\r\n\x1a\n");
  callOk(zvAddonSetScreenshot, {path, dir.file("shot.png")});

  const Json summary = readersSummary(path);
  ASSERT_TRUE(summary.is_object());
  const Json& core = summary["core"];
  EXPECT_EQ(core["title"], "Caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87");
  EXPECT_EQ(core["description"], "Second summary");
  EXPECT_EQ(core["version"], "2.0.1");
  EXPECT_EQ(core["creator"], "Grace Hopper");
  EXPECT_EQ(core["created"], core["modified"]);
  EXPECT_EQ(core["created"].get<std::string>().size(), 20u) << "whole seconds, UTC";
  EXPECT_EQ(summary["thumbnail"], Json::array({"/metadata/primaryScreenShot.png"}));
}

}  // namespace
