#pragma once
// Relationships: typed links from the package root or a part to a part or an external resource.
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/ustring.h"
#include "opc/model/part_name.h"
#include "opc/model/uri.h"

namespace opc::model {

enum class TargetMode { Internal, External };

// One relationship, a value. The source URI is "/" for the package root, else the source part's name.
class Relationship {
 public:
  Relationship(ustring id, ustring type, URI target, TargetMode mode, URI source);

  [[nodiscard]] const ustring& getId() const { return id_; }
  [[nodiscard]] const ustring& getType() const { return type_; }
  [[nodiscard]] const URI& getTargetURI() const { return target_; }
  [[nodiscard]] TargetMode getTargetMode() const { return mode_; }
  [[nodiscard]] const URI& getSourceURI() const { return source_; }
  // The target resolved against the source ("b.xml" from "/a/x.xml" is "/a/b.xml"). For an internal
  // target only; throws opc::Exception for an external one or one that names no valid part.
  [[nodiscard]] PartName getTargetPartName() const;

  [[nodiscard]] bool operator==(const Relationship&) const = default;

 private:
  ustring id_;
  ustring type_;
  URI target_;
  TargetMode mode_;
  URI source_;
};

// The relationships of one source, in document order. Owned by the package (or by its part); a
// reference to it lives as long as its source. Not thread-safe.
class Relationships {
 public:
  explicit Relationships(URI source);

  [[nodiscard]] const URI& getSourceURI() const { return source_; }

  // Adds a relationship at the end. An empty id is assigned: "rId" and the smallest number from a
  // running counter (starting at 1) that no relationship of this source uses, so an explicit id such
  // as "rId100" is never taken twice. Throws opc::Exception for an id that is no XML NCName or is
  // already used, an empty type, or an internal target that is absolute or resolves to no valid part
  // name. Returns the relationship as stored.
  Relationship createRelationship(const URI& target, const ustring& type, const ustring& id = {},
                                  TargetMode mode = TargetMode::Internal);
  [[nodiscard]] bool hasRelationship(const ustring& id) const;
  // Throws opc::Exception when there is no relationship with that id.
  [[nodiscard]] const Relationship& getRelationship(const ustring& id) const;
  // Exact (case-sensitive) type match, document order.
  [[nodiscard]] std::vector<Relationship> getRelationshipsByType(const ustring& type) const;
  [[nodiscard]] const std::vector<Relationship>& getRelationships() const { return items_; }
  [[nodiscard]] std::size_t size() const { return items_.size(); }
  [[nodiscard]] bool empty() const { return items_.empty(); }
  // Returns false (and changes nothing) when there is no relationship with that id.
  bool deleteRelationship(const ustring& id);

  // The relationships part as it is written on close: UTF-8 XML, one Relationship element per entry
  // in document order, TargetMode only for external targets.
  [[nodiscard]] std::string toXml() const;

  // True once anything was added or removed since construction or markSaved().
  [[nodiscard]] bool isModified() const { return modified_; }
  void markSaved() { modified_ = false; }

 private:
  friend class Package;
  friend class Part;
  void requireWritable() const;
  bool readOnly_ = false;  // set by the owning package in read mode
  URI source_;
  std::vector<Relationship> items_;
  std::unordered_map<ustring, std::size_t> byId_;  // id -> position in items_
  std::uint64_t nextId_ = 1;
  bool modified_ = false;
};

}  // namespace opc::model
