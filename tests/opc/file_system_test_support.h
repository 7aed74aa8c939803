#pragma once
// Source trees on disk and their comparison, for the file-system manager's tests.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>

#include "opc_test_support.h"

namespace opc::test {

// A file as the round trip must preserve it.
struct TreeFile {
  std::string bytes;
  std::int64_t seconds = 0;
  std::uint32_t nanoseconds = 0;
  bool executable = false;
};

// What a folder on disk holds, keyed by relative path; folders end in "/".
struct TreeSnapshot {
  std::map<std::string, TreeFile> files;
  std::map<std::string, bool> folders;  // path -> empty
  bool operator==(const TreeSnapshot&) const = default;
};

inline bool operator==(const TreeFile& a, const TreeFile& b) {
  return a.bytes == b.bytes && a.seconds == b.seconds && a.nanoseconds == b.nanoseconds &&
         a.executable == b.executable;
}

inline void setTimes(const std::string& path, std::int64_t seconds, std::uint32_t nanoseconds) {
  const struct timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(seconds), static_cast<long>(nanoseconds)}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
    throw std::runtime_error("utimensat failed on " + path);
  }
}

// Writes the file with its bytes, time and executable bit, creating its folders.
inline void plantFile(const std::filesystem::path& root, const std::string& relative, const TreeFile& file) {
  const std::filesystem::path path = root / relative;
  std::filesystem::create_directories(path.parent_path());
  writeFile(path.string(), file.bytes);
  ::chmod(path.c_str(), file.executable ? 0755 : 0644);
  setTimes(path.string(), file.seconds, file.nanoseconds);
}

inline TreeSnapshot snapshot(const std::filesystem::path& root) {
  TreeSnapshot out;
  for (auto it = std::filesystem::recursive_directory_iterator(root); it != std::filesystem::recursive_directory_iterator();
       ++it) {
    const std::string relative = std::filesystem::relative(it->path(), root).string();
    struct stat st {};
    if (::lstat(it->path().c_str(), &st) != 0) throw std::runtime_error("lstat failed");
    if (S_ISDIR(st.st_mode)) {
      out.folders[relative + "/"] = std::filesystem::is_empty(it->path());
    } else {
      out.files[relative] = TreeFile{readFile(it->path().string()), st.st_mtim.tv_sec,
                                     static_cast<std::uint32_t>(st.st_mtim.tv_nsec), (st.st_mode & 0100) != 0};
    }
  }
  return out;
}

}  // namespace opc::test
