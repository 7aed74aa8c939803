#include "package_index.h"

#include <zip.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "foundation/scope.h"
#include "tool_error.h"

namespace zvaddon::tool {
namespace {

// zip_discard: the archive is only read; nothing may be written back.
using ZipPtr = std::unique_ptr<zip_t, CDeleter<&zip_discard>>;

constexpr std::string_view kContentPrefix = "fsroot/";
constexpr std::string_view kScreenshotPrefix = "metadata/primaryScreenShot.";
constexpr std::string_view kInstructionSetPrefix = "metadata/InstructionSets/";
constexpr std::string_view kSignaturePrefix = "_xmlsignatures/";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string decodeContentSegment(const std::string& segment) {
  std::string out;
  for (std::size_t i = 0; i < segment.size(); ++i) {
    const char c = segment[i];
    if ((c == '%' || c == ':') && i + 2 < segment.size()) {
      const int high = hexValue(segment[i + 1]);
      const int low = hexValue(segment[i + 2]);
      if (high >= 0 && low >= 0) {
        out += static_cast<char>(high * 16 + low);
        i += 2;
        continue;
      }
    }
    if (c == ':' && i + 1 == segment.size()) break;
    out += c;
  }
  return out;
}

PackageIndex PackageIndex::read(const std::filesystem::path& package) {
  // One open file from start to end: a package replaced meanwhile by another process is read whole,
  // old or new, never the old size with the new bytes.
  zip_error_t error;
  zip_error_init(&error);
  const auto fail = [&](const std::string& reason) {
    zip_error_fini(&error);
    throw ToolError(ExitStatus::hostError, "cannot read the package '" + package.string() + "': " + reason);
  };
  FILE* file = std::fopen(package.c_str(), "rb");
  if (file == nullptr) fail(std::strerror(errno));
  zip_source_t* source = zip_source_filep_create(file, 0, -1, &error);
  if (source == nullptr) {
    std::fclose(file);
    fail(zip_error_strerror(&error));
  }
  ZipPtr archive(zip_open_from_source(source, ZIP_RDONLY, &error));
  if (!archive) {
    zip_source_free(source);
    fail(zip_error_strerror(&error));
  }
  zip_error_fini(&error);
  PackageIndex index;
  const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(archive.get(), static_cast<zip_uint64_t>(i), 0, &st) != 0 || st.name == nullptr) continue;
    PackageEntry entry;
    entry.name = st.name;
    if ((st.valid & ZIP_STAT_SIZE) != 0) entry.size = st.size;
    if ((st.valid & ZIP_STAT_COMP_SIZE) != 0) entry.compressedSize = st.comp_size;
    index.entries_.push_back(std::move(entry));
  }
  return index;
}

std::map<std::string, std::uint64_t> PackageIndex::contentFileSizes() const {
  std::map<std::string, std::uint64_t> sizes;
  for (const PackageEntry& e : entries_) {
    if (!e.name.starts_with(kContentPrefix) || e.name.ends_with("/")) continue;
    std::string path;
    std::size_t start = kContentPrefix.size();
    while (start <= e.name.size()) {
      const std::size_t slash = e.name.find('/', start);
      const std::size_t end = slash == std::string::npos ? e.name.size() : slash;
      path += '/';
      path += decodeContentSegment(e.name.substr(start, end - start));
      if (slash == std::string::npos) break;
      start = slash + 1;
    }
    sizes[path] = e.size;
  }
  return sizes;
}

std::optional<PackageEntry> PackageIndex::screenshot() const {
  for (const PackageEntry& e : entries_) {
    if (e.name.starts_with(kScreenshotPrefix)) return e;
  }
  return std::nullopt;
}

std::vector<std::string> PackageIndex::instructionSets() const {
  std::vector<std::string> names;
  for (const PackageEntry& e : entries_) {
    if (e.name.starts_with(kInstructionSetPrefix) && e.name.size() > kInstructionSetPrefix.size()) {
      names.push_back(e.name.substr(kInstructionSetPrefix.size()));
    }
  }
  return names;
}

bool PackageIndex::hasSignatureParts() const {
  for (const PackageEntry& e : entries_) {
    if (e.name.starts_with(kSignaturePrefix) && e.name.ends_with(".xml") &&
        e.name.find("/_rels/") == std::string::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace zvaddon::tool
