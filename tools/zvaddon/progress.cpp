#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace zvaddon::tool {
namespace {

int terminalWidth() {
  winsize size{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

// Rates need a little history before they mean anything.
constexpr double kSettleSeconds = 0.5;

struct Figures {
  double fraction = 1;
  std::string text;
};

// " 25% 5000/20000 files 4.0 MB/16.0 MB 2.0 MB/s 0:06 left"
Figures figures(const ProgressState& s) {
  const bool byBytes = s.totalBytes > 0;
  const double done = byBytes ? static_cast<double>(s.bytes) : static_cast<double>(s.files);
  const double total = byBytes ? static_cast<double>(s.totalBytes) : static_cast<double>(s.totalFiles);
  Figures f;
  f.fraction = total > 0 ? std::clamp(done / total, 0.0, 1.0) : 1.0;
  char percent[8];
  std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(f.fraction * 100));
  f.text = std::string(" ") + percent + " " + std::to_string(s.files) + "/" + std::to_string(s.totalFiles) +
           " files " + formatBytes(s.bytes) + "/" + formatBytes(s.totalBytes);
  if (s.elapsedSeconds >= kSettleSeconds && done > 0) {
    const double rate = done / s.elapsedSeconds;
    f.text += " " + (byBytes ? formatBytes(static_cast<std::uint64_t>(rate)) + "/s"
                             : std::to_string(static_cast<long long>(rate)) + " files/s");
    f.text += f.fraction < 1.0 ? " " + formatDuration((total - done) / rate) + " left"
                               : " in " + formatDuration(s.elapsedSeconds);
  }
  return f;
}

}  // namespace

std::string formatBytes(std::uint64_t bytes) {
  static constexpr const char* units[] = {"B", "kB", "MB", "GB", "TB", "PB"};
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= 1000 && unit + 1 < std::size(units)) {
    value /= 1000;
    ++unit;
  }
  if (unit == 0) return std::to_string(bytes) + " B";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
  return text;
}

std::string formatDuration(double seconds) {
  const auto total = static_cast<long long>(std::llround(std::max(0.0, seconds)));
  char text[32];
  if (total >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", total / 60, total % 60);
  }
  return text;
}

std::string formatProgress(const std::string& label, const ProgressState& s, int width) {
  const Figures now = figures(s);
  // The bar's width is set by the longest figures the run can show, so it stays put while they
  // change length.
  const ProgressState widest{s.totalFiles, s.totalFiles, s.totalBytes, s.totalBytes, 0};
  const std::size_t reserve = figures(widest).text.size() + std::string(" 999.9 MB/s 99:59 left").size();
  constexpr int kMaxBar = 30;
  constexpr int kMinBar = 8;
  const int bar = std::min(kMaxBar, width - static_cast<int>(label.size() + 3 + reserve));
  std::string line;
  if (bar >= kMinBar) {
    const int filled = static_cast<int>(now.fraction * bar);
    line = label + " [" + std::string(filled, '#') + std::string(bar - filled, '-') + "]" + now.text;
  } else {
    line = label + now.text;
  }
  if (static_cast<int>(line.size()) > width) line.resize(std::max(0, width));
  return line;
}

Progress::Progress(std::string label, std::uint64_t totalFiles, std::uint64_t totalBytes, bool quiet)
    : label_(std::move(label)), enabled_(!quiet && ::isatty(STDERR_FILENO) == 1) {
  state_.totalFiles = totalFiles;
  state_.totalBytes = totalBytes;
  if (enabled_) draw();
}

Progress::~Progress() {
  if (enabled_ && !finished_) std::cerr << "\n" << std::flush;
}

void Progress::update(std::uint64_t files, std::uint64_t bytes) {
  state_.files = files;
  state_.bytes = bytes;
  if (!enabled_ || finished_) return;
  if (std::chrono::steady_clock::now() - lastDraw_ >= std::chrono::milliseconds(100)) draw();
}

void Progress::finish() {
  if (!enabled_ || finished_) return;
  draw();
  std::cerr << "\n" << std::flush;
  finished_ = true;
}

void Progress::draw() {
  lastDraw_ = std::chrono::steady_clock::now();
  state_.elapsedSeconds = std::chrono::duration<double>(lastDraw_ - start_).count();
  // One column short of the width: writing the last column makes some terminals wrap.
  std::cerr << "\r" << formatProgress(label_, state_, terminalWidth() - 1) << "\x1b[K" << std::flush;
}

}  // namespace zvaddon::tool
