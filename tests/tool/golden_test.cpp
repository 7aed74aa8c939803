// Golden cases of the zvaddon tool: each file in cases/ is a transcript of shell commands with the
// output and exit status each must give. Lines indented by two spaces are the transcript, the rest
// commentary: "  $ command" (bash, in the case's scratch folder $WORK), "  > more" (continues it),
// "  text" (a line it prints, stdout and stderr together), "  text (re)" (a line matching the regular
// expression whole), "  [N]" (its exit status when not 0). $WORK and the source tree print as $WORK
// and $SRC. The commands run with zvaddon on the PATH, TZ=UTC, no SOURCE_DATE_EPOCH unless a case
// sets one, and $EXAMPLES naming the example add-on.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "support/command.h"
#include "support/gateway_call.h"

namespace {
namespace fs = std::filesystem;

struct Step {
  int line = 0;
  std::string command;
  std::vector<std::string> expected;  // output lines, then "[N]" for a non-zero status
};

std::vector<Step> parseCase(const fs::path& file) {
  std::ifstream in(file);
  std::vector<Step> steps;
  int number = 0;
  for (std::string text; std::getline(in, text);) {
    ++number;
    if (!text.starts_with("  ")) continue;
    const std::string body = text.substr(2);
    if (body.starts_with("$ ")) {
      steps.push_back({number, body.substr(2), {}});
    } else if (steps.empty()) {
      ADD_FAILURE() << file << ":" << number << ": output before the first command";
    } else if (body.starts_with("> ") && steps.back().expected.empty()) {
      steps.back().command += "\n" + body.substr(2);
    } else {
      steps.back().expected.push_back(body);
    }
  }
  return steps;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// Runs every step in one shell, so that steps share variables and files; returns each step's output
// lines with its status line appended.
std::vector<std::vector<std::string>> runCase(const std::vector<Step>& steps, const zvtest::TempDir& work,
                                              const zvtest::TempDir& scratch) {
  const std::string salt = "ZVTOOL-GOLDEN-7f3a9c";
  std::ostringstream script;
  script << "cd \"$WORK\" || exit 99\n";
  for (const Step& step : steps) script << step.command << "\nprintf '\\n" << salt << " %d\\n' $?\n";
  zvtest::writeBytes(scratch.file("case.sh"), script.str());
  const std::string source = ZV_SOURCE_DIR;
  std::string output = zvtest::runCommand(
      "env -u SOURCE_DATE_EPOCH -u ZVADDON_MESSAGE_DIR -u ZVADDON_HOST_RELEASE WORK=" + zvtest::shellQuoted(work.path()) +
      " EXAMPLES='" + source + "/examples' SRC='" + source + "' TZ=UTC LC_ALL=C.UTF-8 PATH='" + ZV_TOOL_DIR +
      ":'\"$PATH\" bash " + zvtest::shellQuoted(scratch.file("case.sh"))).output;
  replaceAll(output, fs::canonical(work.path()).string(), "$WORK");
  replaceAll(output, work.path().string(), "$WORK");
  replaceAll(output, source, "$SRC");

  std::vector<std::vector<std::string>> results(1);
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(salt + " ")) {
      results.back().push_back(std::move(line));
      continue;
    }
    // The marker starts with a newline of its own: drop the empty line it leaves.
    if (!results.back().empty() && results.back().back().empty()) results.back().pop_back();
    if (line.substr(salt.size() + 1) != "0") results.back().push_back("[" + line.substr(salt.size() + 1) + "]");
    results.emplace_back();
  }
  results.pop_back();
  return results;
}

bool lineMatches(const std::string& expected, const std::string& actual) {
  constexpr std::string_view marker = " (re)";
  if (!expected.ends_with(marker)) return expected == actual;
  return std::regex_match(actual, std::regex(expected.substr(0, expected.size() - marker.size())));
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& l : lines) text += "  " + l + "\n";
  return text;
}

class GoldenCase : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenCase, TranscriptMatches) {
  const std::vector<Step> steps = parseCase(fs::path(ZV_TOOL_CASES_DIR) / GetParam());
  ASSERT_FALSE(steps.empty()) << GetParam() << " holds no command";
  zvtest::TempDir work, scratch;
  const auto results = runCase(steps, work, scratch);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    ASSERT_LT(i, results.size()) << GetParam() << ":" << steps[i].line << ": the shell stopped before this step";
    std::vector<std::string> actual = results[i];
    // Lines that match a pattern are shown as the pattern, so the comparison reports real differences.
    for (std::size_t k = 0; k < actual.size() && k < steps[i].expected.size(); ++k) {
      if (lineMatches(steps[i].expected[k], actual[k])) actual[k] = steps[i].expected[k];
    }
    EXPECT_EQ(joined(steps[i].expected), joined(actual)) << GetParam() << ":" << steps[i].line << ": $ " << steps[i].command;
  }
}

std::vector<std::string> caseFiles() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(ZV_TOOL_CASES_DIR)) {
    if (entry.path().extension() == ".t") names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

INSTANTIATE_TEST_SUITE_P(Cases, GoldenCase, ::testing::ValuesIn(caseFiles()), [](const auto& info) {
  std::string name = fs::path(info.param).stem().string();
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
});

}  // namespace
