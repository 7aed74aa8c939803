// The content-file round trip through `zvaddon call`, judged by the system's own tools (diff, stat).
#include <gtest/gtest.h>

#include <string>

#include "support/command.h"
#include "support/gateway_call.h"

namespace {

// The script builds a tree with nested and empty folders and awkward names, sends it through the
// four functions, and compares with diff -r and with stat (name, size, modification time to the
// 100 ns the package records, executable bit). It prints the file list last.
const char* const kScript = R"SH(
set -euo pipefail
cd "$WORK"
mkdir -p "src/a b/c#d" "src/empty" "src/日本/deep." "src/[x]/_rels" "src/nested/empty too"
printf "hi\n" > "src/a b/c#d/x%y.m"
printf "#!/bin/sh\necho run\n" > "src/run me.sh"; chmod 755 "src/run me.sh"
printf "e" > "src/日本/🚀 launch&go.txt"
printf "r" > "src/[x]/_rels/.rels"
printf "dot" > "src/[x]/trailing."
touch -d "1960-05-01 12:00:00.1234567" "src/run me.sh"
touch -d "2200-01-01 00:00:00" "src/a b/c#d/x%y.m"
touch -d "1979-12-31 23:59:59" "src/[x]/trailing."
P="$WORK/p.zvaddon"
json() { /usr/bin/python3 -c "import json, sys; print(json.dumps([sys.argv[1] + l for l in sys.stdin.read().splitlines()]))" "$1"; }
FILES=$(cd src && find . -type f | sed "s|^\./||" | sort)
FOLDERS=$(cd src && find . -type d -empty | sed "s|^\./||" | sort)
"$ZVADDON" call zvAddonCreate "\"$P\"" "$PROPS"
"$ZVADDON" call zvAddonAddFiles "\"$P\"" "$(json "$WORK/src/" <<< "$FILES")" "$(json "" <<< "$FILES")"
"$ZVADDON" call zvAddonAddFolders "\"$P\"" "$(json "" <<< "$FOLDERS")"
"$ZVADDON" call zvAddonExtractAllFiles "\"$P\"" "\"$WORK/out\""
diff -r src out
(cd src && find . -type f -exec stat -c "%n %s %.7Y %A" {} + | sort) > src.stat
(cd out && find . -type f -exec stat -c "%n %s %.7Y %A" {} + | sort) > out.stat
diff src.stat out.stat
"$ZVADDON" call zvAddonGetFileList "\"$P\""
)SH";

TEST(ContentFilesCliTest, TreeThroughZvaddonCallMatchesDiffAndStat) {
  zvtest::TempDir dir;
  zvtest::writeBytes(dir.file("roundtrip.sh"), kScript);
  const zvtest::CommandRun run = zvtest::runCommand(
      "WORK='" + dir.path().string() + "' ZVADDON='" + ZV_BINARY_DIR + "/tools/zvaddon/zvaddon' PROPS=" +
      zvtest::shellQuoted(zvtest::properties().dump()) + " /bin/bash '" + dir.file("roundtrip.sh") + "'");
  ASSERT_EQ(run.status, 0) << run.output;
  const std::string& output = run.output;
  // Every call prints its outputs; the file list comes last. Depth first, by name in UTF-16 order,
  // empty folders as themselves.
  const std::size_t lastLine = output.rfind('\n', output.size() - 2);
  EXPECT_EQ(zvtest::Json::parse(output.substr(lastLine == std::string::npos ? 0 : lastLine + 1)), zvtest::Json::parse(R"([["/[x]/_rels/.rels", "/[x]/trailing.",
      "/a b/c#d/x%y.m", "/empty", "/nested/empty too", "/run me.sh", "/日本/deep.", "/日本/🚀 launch&go.txt"]])"));
}

}  // namespace
