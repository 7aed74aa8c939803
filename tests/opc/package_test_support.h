#pragma once
// Package sessions and raw ZIP inspection for the package tests.
#include <zip.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"
#include "opc_test_support.h"

namespace opc::test {

using interfaces::OpenMode;

// A physical package and its model, as a caller holds them for one session.
struct Session {
  Session(const ustring& path, OpenMode mode, bool durable = false) : physical(path, durable), package(physical) {
    package.open(mode);
  }
  zippackage::ZipPhysicalPackage physical;
  model::Package package;
};

// Opens `path` in `mode`, runs `change` on the package and closes it.
inline void withPackage(const ustring& path, OpenMode mode, const std::function<void(model::Package&)>& change) {
  Session s(path, mode);
  change(s.package);
  s.package.close();
}

inline model::PartPtr addPart(model::Package& package, const ustring& name, const ustring& type,
                              const std::string& bytes, Compression compression = Compression::Deflated) {
  auto part = package.createPart(model::PartName(name), model::ContentType(type), compression);
  auto out = part->getOutputStream();
  writeAll(*out, bytes);
  return part;
}

inline std::string partBytes(const model::Package& package, const ustring& name) {
  auto in = package.getPart(model::PartName(name))->getInputStream();
  return readAll(*in);
}

// What libzip sees in a file, checking that local headers agree with the directory: per item, method,
// compressed bytes, CRC and the bytes it inflates to.
struct RawItem {
  int method = 0;
  std::string compressed;
  std::uint32_t crc = 0;
  std::string text;
  std::string storedName;  // the name's bytes as stored, before any decoding
};

inline std::map<std::string, RawItem> rawItems(const std::string& path) {
  int error = 0;
  zip_t* za = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
  if (za == nullptr) throw std::runtime_error("zip_open failed on " + path + ": " + std::to_string(error));
  const auto read = [&](zip_uint64_t index, zip_flags_t flags) {
    std::string out;
    zip_file_t* f = zip_fopen_index(za, index, flags);
    if (f == nullptr) throw std::runtime_error(std::string("zip_fopen_index failed: ") + zip_strerror(za));
    char buffer[4096];
    for (zip_int64_t n; (n = zip_fread(f, buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<std::size_t>(n));
    zip_fclose(f);
    return out;
  };
  std::map<std::string, RawItem> items;
  for (zip_uint64_t i = 0; i < static_cast<zip_uint64_t>(zip_get_num_entries(za, 0)); ++i) {
    zip_stat_t st;
    zip_stat_index(za, i, 0, &st);
    items[st.name] = {st.comp_method, read(i, ZIP_FL_COMPRESSED), st.crc, read(i, 0), zip_get_name(za, i, ZIP_FL_ENC_RAW)};
  }
  zip_discard(za);
  return items;
}

inline std::string itemText(const std::string& path, const std::string& item) { return rawItems(path).at(item).text; }

// An archive as libzip writes it: items in order, a name ending in '/' a folder item.
inline void writeZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& items,
                     zip_flags_t nameFlags = ZIP_FL_ENC_GUESS) {
  int error = 0;
  zip_t* za = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (za == nullptr) throw std::runtime_error("zip_open failed on " + path + ": " + std::to_string(error));
  for (const auto& [name, bytes] : items) {
    const zip_int64_t at = name.ends_with('/') ? zip_dir_add(za, name.c_str(), nameFlags)
                                               : zip_file_add(za, name.c_str(), zip_source_buffer(za, bytes.data(), bytes.size(), 0), nameFlags);
    if (at < 0) throw std::runtime_error(std::string("libzip refused ") + name + ": " + zip_strerror(za));
  }
  if (zip_close(za) != 0) throw std::runtime_error(std::string("zip_close failed: ") + zip_strerror(za));
}

}  // namespace opc::test
