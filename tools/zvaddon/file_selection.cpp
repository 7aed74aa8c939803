#include "file_selection.h"

#include <fnmatch.h>

#include <algorithm>
#include <system_error>

#include "tool_error.h"

namespace zvaddon::tool {
namespace fs = std::filesystem;
namespace {

bool componentMatches(std::string_view pattern, std::string_view name) {
  return ::fnmatch(std::string(pattern).c_str(), std::string(name).c_str(), 0) == 0;
}

bool matchComponents(const std::vector<std::string_view>& pattern, std::size_t p,
                     const std::vector<std::string_view>& path, std::size_t q) {
  if (p == pattern.size()) return q == path.size();
  if (pattern[p] == "**") {
    for (std::size_t skip = q; skip <= path.size(); ++skip) {
      if (matchComponents(pattern, p + 1, path, skip)) return true;
    }
    return false;
  }
  return q < path.size() && componentMatches(pattern[p], path[q]) && matchComponents(pattern, p + 1, path, q + 1);
}

struct Pattern {
  std::vector<std::string_view> components;
  bool foldersOnly = false;
};

Pattern parse(std::string_view text) {
  Pattern p;
  if (text.starts_with("./")) text.remove_prefix(2);
  if (!text.empty() && text.back() == '/') {
    p.foldersOnly = true;
    text.remove_suffix(1);
  }
  const bool anchored = text.find('/') != std::string_view::npos;
  p.components = splitPath(text);
  // Unanchored patterns match a name at any depth.
  if (!anchored && !p.components.empty()) p.components.insert(p.components.begin(), "**");
  return p;
}

// True when a pattern matches `path` or one of the folders above it.
bool anyMatch(const std::vector<std::string>& patterns, std::string_view path, bool isFolder) {
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    if (globMatch(pattern, path, isFolder)) return true;
    for (std::size_t slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
      if (globMatch(pattern, path.substr(0, slash), true)) return true;
    }
    return false;
  });
}

// Excluded unless FilePatterns::defaultExcludes is false.
const char* const kDefaultExcludes[] = {".git/", ".hg/", ".svn/", ".bzr/", "CVS/", "_darcs/", ".DS_Store", "Thumbs.db",
                                        "desktop.ini", "*~", ".*.swp", "*.asv", "*.zvaddon", "/zvaddon.json"};

[[noreturn]] void cannotRead(const fs::path& path, const std::error_code& ec) {
  throw ToolError(ExitStatus::hostError, "cannot read '" + path.string() + "': " + ec.message());
}

}  // namespace

std::vector<std::string_view> splitPath(std::string_view path) {
  std::vector<std::string_view> parts;
  for (std::size_t start = 0, end = 0; start < path.size(); start = end + 1) {
    end = std::min(path.find('/', start), path.size());
    if (end > start) parts.push_back(path.substr(start, end - start));
  }
  return parts;
}

bool globMatch(std::string_view pattern, std::string_view path, bool isFolder) {
  const Pattern p = parse(pattern);
  if (p.components.empty() || (p.foldersOnly && !isFolder)) return false;
  return matchComponents(p.components, 0, splitPath(path), 0);
}

Selection selectFiles(const fs::path& root, const FilePatterns& patterns, const std::vector<fs::path>& skip) {
  std::error_code ec;
  if (!fs::is_directory(root, ec)) {
    throw ToolError(ExitStatus::hostError, "'" + root.string() + "' is not a folder");
  }
  std::vector<std::string> exclude = patterns.exclude;
  if (patterns.defaultExcludes) {
    exclude.insert(exclude.end(), std::begin(kDefaultExcludes), std::end(kDefaultExcludes));
  }
  std::vector<fs::path> skipped;
  for (const fs::path& s : skip) {
    std::error_code e;
    const fs::path canonical = fs::weakly_canonical(s, e);
    if (!e) skipped.push_back(canonical);
  }

  Selection selection;
  fs::recursive_directory_iterator it(root, fs::directory_options::none, ec);
  if (ec) cannotRead(root, ec);
  for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (ec) cannotRead(it->path(), ec);
    const fs::directory_entry& entry = *it;
    const std::string relative = entry.path().lexically_relative(root).generic_string();
    std::error_code e;
    const bool isLink = entry.is_symlink(e);
    const bool isFolder = entry.is_directory(e) && !isLink;
    if (isFolder) {
      if (anyMatch(exclude, relative, true)) {
        it.disable_recursion_pending();
        continue;
      }
      if (fs::is_empty(entry.path(), e) && !e && anyMatch(patterns.include, relative, true)) {
        selection.emptyFolders.push_back(relative);
      }
      continue;
    }
    if (!entry.is_regular_file(e)) continue;  // follows links to files; skips dangling links and devices
    if (anyMatch(exclude, relative, false) || !anyMatch(patterns.include, relative, false)) continue;
    if (!skipped.empty()) {
      const fs::path canonical = fs::weakly_canonical(entry.path(), e);
      if (std::find(skipped.begin(), skipped.end(), canonical) != skipped.end()) continue;
    }
    const std::uintmax_t size = entry.file_size(e);
    if (e) cannotRead(entry.path(), e);
    selection.files.push_back({relative, size});
    selection.totalBytes += size;
  }
  std::sort(selection.files.begin(), selection.files.end(),
            [](const SelectedFile& a, const SelectedFile& b) { return a.path < b.path; });
  std::sort(selection.emptyFolders.begin(), selection.emptyFolders.end());
  return selection;
}

std::vector<Batch> planBatches(const std::vector<SelectedFile>& files) {
  constexpr std::size_t kFloorFiles = 1000;
  constexpr std::uint64_t kFloorBytes = 32u << 20;
  std::vector<Batch> batches;
  Batch current;
  std::uint64_t bytesBefore = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    current.end = i + 1;
    current.bytes += files[i].size;
    const std::size_t count = current.end - current.first;
    if (count >= std::max(kFloorFiles, current.first / 2) || current.bytes >= std::max(kFloorBytes, bytesBefore / 2)) {
      bytesBefore += current.bytes;
      batches.push_back(current);
      current = Batch{i + 1, i + 1, 0};
    }
  }
  if (current.end > current.first) batches.push_back(current);
  return batches;
}

}  // namespace zvaddon::tool
