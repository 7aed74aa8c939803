// The progress line: figures, units, and a line that never outgrows the terminal.
#include "progress.h"

#include <gtest/gtest.h>

#include <set>

namespace zvaddon::tool {
namespace {

TEST(ProgressFormatTest, BytesInDecimalUnitsDurationsInMinutesAndHours) {
  const std::pair<std::uint64_t, const char*> cases[] = {
      {999, "999 B"}, {1550, "1.6 kB"}, {999949999, "999.9 MB"}, {1000000000, "1.0 GB"}, {~0ull, "18446.7 PB"},
  };
  for (const auto& [bytes, text] : cases) EXPECT_EQ(formatBytes(bytes), text) << bytes;
  const std::pair<double, const char*> durations[] = {
      {-3, "0:00"}, {59.6, "1:00"}, {3599, "59:59"}, {3723, "1:02:03"}, {360000, "100:00:00"},
  };
  for (const auto& [seconds, text] : durations) EXPECT_EQ(formatDuration(seconds), text) << seconds;
}

TEST(ProgressFormatTest, ShowsFiguresAndRateOnceSettled) {
  const struct {
    ProgressState state;
    int width;
    const char* line;
  } cases[] = {
      {{5000, 20000, 4'000'000, 16'000'000, 0.1}, 120, "build [#######-----------------------]  25% 5000/20000 files 4.0 MB/16.0 MB"},
      {{5000, 20000, 4'000'000, 16'000'000, 2}, 120,  // 2 MB/s, 12 MB to go
       "build [#######-----------------------]  25% 5000/20000 files 4.0 MB/16.0 MB 2.0 MB/s 0:06 left"},
      // Without bytes the rate and the fraction come from files.
      {{10, 40, 0, 0, 5}, 120, "build [#######-----------------------]  25% 10/40 files 0 B/0 B 2 files/s 0:15 left"},
      // Done: the time taken instead of the time left.
      {{40, 40, 100, 100, 4}, 120, "build [##############################] 100% 40/40 files 100 B/100 B 25 B/s in 0:04"},
      // A narrow terminal drops the bar before it drops figures.
      {{1, 2, 3, 4, 0}, 50, "build  75% 1/2 files 3 B/4 B"},
  };
  for (const auto& c : cases) EXPECT_EQ(formatProgress("build", c.state, c.width), c.line);
}

// Never wider than the terminal, and the bar keeps its place while the figures after it grow: it is
// sized for the longest of them.
TEST(ProgressFormatTest, FitsTheTerminalAndTheBarKeepsItsPlaceThroughARun) {
  for (const auto& [files, bytes] : {std::pair{20000ull, 20000ull * 937}, {9999999ull, 999999999999ull}}) {
    for (int width = 0; width <= 200; ++width) {
      std::set<std::size_t> closes;
      for (std::uint64_t step = 0; step <= 8; ++step) {
        const ProgressState s{files * step / 8, files, bytes * step / 8, bytes, step * 1234.5};
        const std::string line = formatProgress("extract", s, width);
        EXPECT_LE(static_cast<int>(line.size()), width) << width;
        closes.insert(line.find(']'));
      }
      EXPECT_EQ(closes.size(), 1u) << width << " columns, " << files << " files";
    }
  }
}

}  // namespace
}  // namespace zvaddon::tool
