#pragma once
// Package sessions and raw ZIP inspection for the package tests.
#include <zip.h>

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

// What libzip sees in a file: per item, method, compressed bytes and CRC.
struct RawItem {
  int method = 0;
  std::string compressed;
  std::uint32_t crc = 0;
};

inline std::map<std::string, RawItem> rawItems(const std::string& path) {
  int error = 0;
  zip_t* za = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
  if (za == nullptr) throw std::runtime_error("zip_open failed on " + path + ": " + std::to_string(error));
  std::map<std::string, RawItem> items;
  for (zip_int64_t i = 0; i < zip_get_num_entries(za, 0); ++i) {
    zip_stat_t st;
    zip_stat_index(za, static_cast<zip_uint64_t>(i), 0, &st);
    RawItem item;
    item.method = st.comp_method;
    item.crc = st.crc;
    zip_file_t* f = zip_fopen_index(za, static_cast<zip_uint64_t>(i), ZIP_FL_COMPRESSED);
    char buffer[4096];
    zip_int64_t n;
    while ((n = zip_fread(f, buffer, sizeof buffer)) > 0) item.compressed.append(buffer, static_cast<std::size_t>(n));
    zip_fclose(f);
    items[st.name] = item;
  }
  zip_discard(za);
  return items;
}

inline std::vector<std::string> itemNames(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& [name, item] : rawItems(path)) names.push_back(name);
  return names;
}

inline std::string itemText(const std::string& path, const std::string& item) {
  int error = 0;
  zip_t* za = zip_open(path.c_str(), ZIP_RDONLY, &error);
  if (za == nullptr) throw std::runtime_error("zip_open failed");
  zip_file_t* f = zip_fopen(za, item.c_str(), 0);
  std::string out;
  if (f != nullptr) {
    char buffer[4096];
    zip_int64_t n;
    while ((n = zip_fread(f, buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<std::size_t>(n));
    zip_fclose(f);
  }
  zip_discard(za);
  if (f == nullptr) throw std::runtime_error("no item " + item);
  return out;
}

}  // namespace opc::test
