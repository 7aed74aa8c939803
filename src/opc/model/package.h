#pragma once
// The OPC package model over a ZIP file.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "opc/interfaces/open_mode.h"
#include "opc/model/content_type.h"
#include "opc/model/part.h"
#include "opc/model/part_index.h"
#include "opc/model/part_name.h"
#include "opc/model/relationship.h"

namespace opc::zippackage {
class ZipPhysicalPackage;
struct ZipEntry;
}

namespace opc::model {

// One package held open for one session: open(mode), read and change parts and relationships, then
// close() to write or revert() to discard. Holds a reference to the physical package, which must
// outlive it. Not copyable, not thread-safe.
//
// Opening reads the ZIP directory, "[Content_Types].xml" and the root relationships, never a part's
// bytes, and refuses: no or a malformed "[Content_Types].xml"; an item that is no valid part name,
// two equivalent names, one a prefix segment of another; a part without a content type; malformed
// root relationships; a relationships part of no existing source. A part's relationships part is
// read when first asked for (Part::getRelationships throws then for a malformed one); one never read
// is copied as it is. Each failure is an opc::Exception naming the entry or part; a missing file is
// PackageNotFound.
//
// Nothing the file holds is dropped: an item named in UTF-8 outside ASCII is the part its IRI names
// (non-ASCII characters percent-encoded), and unchanged items are written back under the names they
// had; a folder item ("dir/") is no part and is carried over as it is.
//
// close() writes only in modes Create and Modify, and only when something changed: the new package is
// written to a temporary file in the same folder, which is synced and renamed over the package, and
// the folder is synced (see ZipPhysicalPackage), so a failure or a kill at any moment leaves the old
// file whole. Unchanged parts are copied as their compressed bytes. When close() throws, the
// package stays open and unchanged in memory and the file is as it was; revert() then discards.
// The destructor reverts.
class Package {
 public:
  explicit Package(zippackage::ZipPhysicalPackage& physical);
  ~Package();
  Package(const Package&) = delete;
  Package& operator=(const Package&) = delete;

  // Throws opc::Exception when already open; PackageNotFound (Read, Modify) for a missing file.
  void open(interfaces::OpenMode mode);
  // Throws opc::Exception when the package is not open.
  void close();
  // Discards every change and closes. Never throws; a package that is not open is left alone.
  void revert() noexcept;
  [[nodiscard]] bool isOpen() const { return mode_.has_value(); }
  [[nodiscard]] std::optional<interfaces::OpenMode> getOpenMode() const { return mode_; }

  // Throws opc::Exception when a part of an equivalent name exists, when the name is a prefix
  // segment of an existing part's name or has one as its prefix, when it is a relationships part
  // name (relationships are made through Relationships), or in read mode.
  PartPtr createPart(const PartName& name, const ContentType& contentType,
                     Compression compression = Compression::Deflated);
  // Throws opc::Exception when there is no such part.
  [[nodiscard]] PartPtr getPart(const PartName& name) const;
  [[nodiscard]] bool partExists(const PartName& name) const;
  // Removes the part and its relationships part; relationships elsewhere that target it are kept
  // (dangling targets are legal). Throws opc::Exception when there is no such part or in read mode.
  void deletePart(const PartName& name);
  // Every part except relationships parts, in a stable order: the order of the ZIP items for parts
  // read from the file, then created parts in creation order.
  [[nodiscard]] std::vector<PartPtr> getParts() const;
  [[nodiscard]] std::size_t getPartCount() const { return partCount_; }

  // Package-level relationships (source "/").
  [[nodiscard]] Relationships& getRelationships();
  [[nodiscard]] const Relationships& getRelationships() const;

  [[nodiscard]] zippackage::ZipPhysicalPackage& getPhysicalPackage() const { return physical_; }

 private:
  friend class Part;
  void requireOpen() const;
  void requireWritable() const;
  void load();
  // What opening may parse is bounded by a share per item; each XML item read spends from it.
  std::uint64_t spendXml(const zippackage::ZipEntry& entry, const std::string& where);
  void readPartRelationships(std::uint64_t index, Relationships& target);
  // `hash` is PartNameKeyHash of the part's name.
  void insertPart(PartPtr part, std::size_t hash);
  void removeFromIndex(const PartName& name);
  void release() noexcept;
  [[nodiscard]] bool isModified() const;
  void write();

  zippackage::ZipPhysicalPackage& physical_;
  std::optional<interfaces::OpenMode> mode_;
  std::vector<PartPtr> parts_;                        // null where a part was deleted
  // Names compare ignoring ASCII case; looked up by views, so that checking a name's prefixes
  // allocates nothing. byKey_ holds numbers into parts_ and reads the names from the parts: an entry
  // is erased before its part is let go.
  PartIndex byKey_{parts_};
  std::unordered_map<std::string, std::uint32_t, PartNameKeyHash, PartNameKeyEqual> folders_;  // prefix -> parts below
  // insertPart's memory of the last part's folder: its text (in that part's name) and the counts of
  // its prefixes in folders_. Dropped whenever a part or folder count can go.
  std::string_view lastFolder_;
  bool lastFolderValid_ = false;
  std::vector<std::uint32_t*> counted_;
  std::vector<std::string_view> uncounted_;  // scratch
  std::size_t partCount_ = 0;
  Relationships relationships_;
  std::optional<std::uint64_t> relationshipsEntry_;
  std::optional<std::uint64_t> contentTypesEntry_;  // the file's [Content_Types].xml
  std::vector<std::uint64_t> carriedItems_;         // folder items: no parts, copied as they are
  std::uint64_t xmlBudget_ = 0;
  bool structureChanged_ = false;                      // parts created or deleted
};

}  // namespace opc::model
