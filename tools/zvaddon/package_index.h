#pragma once
// What the ZIP directory of a package says that no gateway function reports: entry sizes, the
// screenshot's format, the instruction-set parts and whether signature parts are present. Read-only;
// the package's content is never read through here.
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zvaddon::tool {

struct PackageEntry {
  std::string name;  // ZIP entry name (the part name without its leading '/')
  std::uint64_t size = 0;
  std::uint64_t compressedSize = 0;
};

class PackageIndex {
 public:
  // Throws ToolError(hostError) naming the path when the file is no readable ZIP archive.
  [[nodiscard]] static PackageIndex read(const std::filesystem::path& package);

  [[nodiscard]] const std::vector<PackageEntry>& entries() const { return entries_; }
  // Size of each content file by its path in the add-on ("/doc/guide.html"), as zvAddonGetFileList
  // names it.
  [[nodiscard]] std::map<std::string, std::uint64_t> contentFileSizes() const;
  // The screenshot part's entry, if any.
  [[nodiscard]] std::optional<PackageEntry> screenshot() const;
  // File names of the instruction-set parts, in directory order.
  [[nodiscard]] std::vector<std::string> instructionSets() const;
  // True when signature parts ("_xmlsignatures/...") are present, whether or not they verify.
  [[nodiscard]] bool hasSignatureParts() const;

 private:
  std::vector<PackageEntry> entries_;
};

// A content part's name segment back to the file name it stands for: "%XX" and ":XX" are UTF-8 bytes,
// a ':' that ends the segment is dropped. Malformed escapes are kept as they are.
[[nodiscard]] std::string decodeContentSegment(const std::string& segment);

}  // namespace zvaddon::tool
