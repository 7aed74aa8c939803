#pragma once
// Which files of an add-on folder go into the package: glob patterns over paths relative to the
// folder, '/'-separated.
//
// Pattern rules: '*' matches any run of characters within one path component, '?' one character,
// "[...]" a class (fnmatch(3)); a component "**" matches any number of components, none included.
// A pattern without '/' matches a name at any depth ("*.asv", ".git"); one with '/' is anchored at
// the folder ("doc/**", "/build"); a trailing '/' makes it match folders only. A pattern that matches
// a folder matches everything below it.
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zvaddon::tool {

struct FilePatterns {
  std::vector<std::string> include{"**"};
  std::vector<std::string> exclude;
  bool defaultExcludes = true;  // version-control folders, editor leftovers, packages, the manifest
};

struct SelectedFile {
  std::string path;  // relative, '/'-separated
  std::uint64_t size = 0;
};

// Files and empty folders, each list sorted by path (byte order), so that the same folder always
// gives the same package.
struct Selection {
  std::vector<SelectedFile> files;
  std::vector<std::string> emptyFolders;
  std::uint64_t totalBytes = 0;
};

// The non-empty components of a '/'-separated path, viewing `path`.
[[nodiscard]] std::vector<std::string_view> splitPath(std::string_view path);

// True when `pattern` matches `path` itself (not its folders); `isFolder` says what `path` names.
[[nodiscard]] bool globMatch(std::string_view pattern, std::string_view path, bool isFolder);

// Walks `root`. A file is selected when an include pattern matches it (or a folder above it) and no
// exclude pattern does; an excluded folder is not entered. Symbolic links to files are followed;
// links to folders, sockets and devices are skipped. `skip` names paths never to take (the package
// being written). Throws ToolError(hostError) when the folder cannot be read.
[[nodiscard]] Selection selectFiles(const std::filesystem::path& root, const FilePatterns& patterns,
                                    const std::vector<std::filesystem::path>& skip = {});

// How `build` splits the selected files into zvAddonAddFiles calls. Each call rewrites the package,
// copying what it already holds; batches that grow with what is already stored (half of it, past a
// floor) keep that copying to about twice the package while the progress bar still moves several
// times on the way.
struct Batch {
  std::size_t first = 0, end = 0;  // files [first, end) of the selection
  std::uint64_t bytes = 0;
};

// Consecutive batches covering every file once, in order. A batch closes when its files reach
// max(1000, files before it / 2) or its bytes reach max(32 MiB, bytes before it / 2).
[[nodiscard]] std::vector<Batch> planBatches(const std::vector<SelectedFile>& files);

}  // namespace zvaddon::tool
