#pragma once
// A one-line progress bar on the terminal for long work (many files): files and bytes done, rate,
// time left. Drawn on stderr, only when stderr is a terminal and the user did not ask for quiet, so
// pipelines and logs never see it.
#include <chrono>
#include <cstdint>
#include <string>

namespace zvaddon::tool {

struct ProgressState {
  std::uint64_t files = 0, totalFiles = 0;
  std::uint64_t bytes = 0, totalBytes = 0;
  double elapsedSeconds = 0;
};

// The bar's text for a terminal `width` columns wide (never longer than width; the bar itself is
// left out when it does not fit). Rate and time left
// come from bytes when there are any, else from files; shown once a little time has passed.
[[nodiscard]] std::string formatProgress(const std::string& label, const ProgressState& state, int width);
// "0 B", "1.5 kB", "12.3 MB": decimal units.
[[nodiscard]] std::string formatBytes(std::uint64_t bytes);
// "0:07", "1:02:03".
[[nodiscard]] std::string formatDuration(double seconds);

class Progress {
 public:
  // Shows nothing when `quiet` or when stderr is not a terminal.
  Progress(std::string label, std::uint64_t totalFiles, std::uint64_t totalBytes, bool quiet);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Sets the amounts done so far; redraws at most ten times a second.
  void update(std::uint64_t files, std::uint64_t bytes);
  // Draws the final state and ends the line; later updates draw nothing.
  void finish();

 private:
  void draw();

  std::string label_;
  ProgressState state_;
  bool enabled_;
  bool finished_ = false;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace zvaddon::tool
