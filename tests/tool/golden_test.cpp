// Golden cases of the zvaddon tool: each file in cases/ is a transcript of shell commands with the
// output and exit status each must give, compared by content.
//
// Format: lines indented by two spaces are the transcript; everything else is commentary.
//   "  $ command"   a command (bash, run in the case's own scratch folder $WORK);
//   "  > more"      continues the command on the next line;
//   "  text"        a line the command must print (stdout and stderr together);
//   "  text (re)"   a line that must match the regular expression `text` whole;
//   "  [N]"         the command's exit status when it is not 0.
// Paths of the scratch folder and the source tree print as $WORK and $SRC. The commands run with
// zvaddon on the PATH, TZ=UTC, no SOURCE_DATE_EPOCH unless a case sets one, and $EXAMPLES naming the
// example add-on.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

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
  std::string text;
  int number = 0;
  while (std::getline(in, text)) {
    ++number;
    if (!text.starts_with("  ")) continue;
    const std::string body = text.substr(2);
    if (body.starts_with("$ ")) {
      steps.push_back({number, body.substr(2), {}});
    } else if (body.starts_with("> ") && !steps.empty() && steps.back().expected.empty()) {
      steps.back().command += "\n" + body.substr(2);
    } else if (!steps.empty()) {
      steps.back().expected.push_back(body);
    } else {
      ADD_FAILURE() << file << ":" << number << ": output before the first command";
    }
  }
  return steps;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Runs every step in one shell, so that steps share variables and files; returns each step's
// output lines with its status line appended.
std::vector<std::vector<std::string>> runCase(const std::vector<Step>& steps, const fs::path& work,
                                              const fs::path& scriptFolder) {
  const std::string salt = "ZVTOOL-GOLDEN-7f3a9c";
  std::ostringstream script;
  script << "cd \"$WORK\" || exit 99\n";
  for (const Step& step : steps) {
    script << step.command << "\nprintf '\\n" << salt << " %d\\n' $?\n";
  }
  const fs::path scriptFile = scriptFolder / "case.sh";
  std::ofstream(scriptFile) << script.str();

  const std::string source = ZV_SOURCE_DIR;
  const std::string command =
      "env -u SOURCE_DATE_EPOCH -u ZVADDON_MESSAGE_DIR -u ZVADDON_HOST_RELEASE WORK='" + work.string() + "' EXAMPLES='" + source +
      "/examples' SRC='" + source + "' TZ=UTC LC_ALL=C.UTF-8 PATH='" + ZV_TOOL_DIR + ":'\"$PATH\" bash '" +
      scriptFile.string() + "' 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return {};
  std::string output;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
  ::pclose(pipe);

  replaceAll(output, fs::canonical(work).string(), "$WORK");
  replaceAll(output, work.string(), "$WORK");
  replaceAll(output, source, "$SRC");

  std::vector<std::vector<std::string>> results;
  std::vector<std::string> current;
  for (std::string& line : splitLines(output)) {
    if (line.starts_with(salt + " ")) {
      // The marker starts with a newline of its own: drop the empty line it leaves.
      if (!current.empty() && current.back().empty()) current.pop_back();
      const std::string status = line.substr(salt.size() + 1);
      if (status != "0") current.push_back("[" + status + "]");
      results.push_back(std::move(current));
      current.clear();
    } else {
      current.push_back(std::move(line));
    }
  }
  return results;
}

bool lineMatches(const std::string& expected, const std::string& actual) {
  constexpr std::string_view marker = " (re)";
  if (!expected.ends_with(marker)) return expected == actual;
  try {
    return std::regex_match(actual, std::regex(expected.substr(0, expected.size() - marker.size())));
  } catch (const std::regex_error&) {
    return false;
  }
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& l : lines) text += "  " + l + "\n";
  return text;
}

class GoldenCase : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenCase, TranscriptMatches) {
  const fs::path file = fs::path(ZV_TOOL_CASES_DIR) / GetParam();
  const std::vector<Step> steps = parseCase(file);
  ASSERT_FALSE(steps.empty()) << file << " holds no command";
  zvtest::TempDir work;
  zvtest::TempDir script;
  const auto results = runCase(steps, work.path(), script.path());
  ASSERT_EQ(results.size(), steps.size()) << "the shell stopped early; output of the steps that ran:\n"
                                          << [&] {
                                               std::string all;
                                               for (const auto& r : results) all += joined(r);
                                               return all;
                                             }();
  for (std::size_t i = 0; i < steps.size(); ++i) {
    std::vector<std::string> actual = results[i];
    // Lines that match a pattern are shown as the pattern, so the comparison reports real differences.
    for (std::size_t k = 0; k < actual.size() && k < steps[i].expected.size(); ++k) {
      if (lineMatches(steps[i].expected[k], actual[k])) actual[k] = steps[i].expected[k];
    }
    EXPECT_EQ(joined(steps[i].expected), joined(actual))
        << GetParam() << ":" << steps[i].line << ": $ " << steps[i].command;
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

INSTANTIATE_TEST_SUITE_P(Cases, GoldenCase, ::testing::ValuesIn(caseFiles()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           std::string name = fs::path(info.param).stem().string();
                           for (char& c : name) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return name;
                         });

}  // namespace
