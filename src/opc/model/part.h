#pragma once
// A part of an open package.
#include <cstdint>
#include <memory>
#include <optional>

#include "opc/compression.h"
#include "opc/content_source.h"
#include "opc/file_time.h"
#include "opc/model/content_type.h"
#include "opc/model/part_name.h"
#include "opc/model/relationship.h"
#include "opc/streams.h"

namespace opc::model {

class Package;

namespace detail {
// The budget of building, listing and extracting 70,000 entries below 100 MB of peak memory holds one
// Part an entry, and plain std::optional fields cost a part 32 bytes more (about 3% of the budget):
// these two types keep a part's optional fields in the room of their values.

// An optional ZIP entry index, UINT32_MAX standing for none (a package holds at most a million).
class OptionalEntry {
 public:
  OptionalEntry& operator=(std::uint64_t index) {
    index_ = static_cast<std::uint32_t>(index);
    return *this;
  }
  explicit operator bool() const { return index_ != kNone; }
  [[nodiscard]] std::uint64_t operator*() const { return index_; }
  operator std::optional<std::uint64_t>() const { return *this ? std::optional<std::uint64_t>(index_) : std::nullopt; }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;
  std::uint32_t index_ = kNone;
};
static_assert(sizeof(OptionalEntry) == 4);

// An optional modification time and optional Unix mode bits (07777).
class OptionalAttributes {
 public:
  [[nodiscard]] std::optional<FileTime> time() const {
    return nanoseconds_ == kNone ? std::nullopt : std::optional(FileTime{seconds_, nanoseconds_});
  }
  [[nodiscard]] std::optional<std::uint32_t> mode() const {
    return hasMode_ ? std::optional<std::uint32_t>(mode_) : std::nullopt;
  }
  void setTime(const std::optional<FileTime>& time) {
    seconds_ = time ? time->seconds : 0;
    nanoseconds_ = time ? time->nanoseconds : kNone;
  }
  void setMode(const std::optional<std::uint32_t>& mode) {
    hasMode_ = mode.has_value();
    mode_ = static_cast<std::uint16_t>(mode.value_or(0) & 07777);
  }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;  // in nanoseconds_: no time
  std::int64_t seconds_ = 0;
  std::uint32_t nanoseconds_ = kNone;
  std::uint16_t mode_ = 0;
  bool hasMode_ = false;
};
static_assert(sizeof(OptionalAttributes) == 16);
}  // namespace detail

// A part: its name, content type, content and relationships. Made only by Package (createPart,
// getPart, getParts), which owns the part's state; a PartPtr is a handle that may outlive the part's
// presence in the package. Once the part is deleted or the package is closed or reverted, the
// handle is detached: its name and content type stay readable, every other operation throws
// opc::Exception. Changing operations throw opc::Exception in a package opened for reading.
//
// Content lives in one place at a time: the package file (unchanged parts, read on demand and copied
// as compressed bytes on close), a content source (a file on disk, streamed on close), or a spool
// written through getOutputStream (memory up to a small limit, then an unnamed temporary file in the
// package's folder). No part's content is ever held whole in memory beyond that limit.
class Part {
  struct Key {
    explicit Key() = default;
  };

 public:
  // Callable by Package only (Key is private); public so that the part and its count share one block.
  Part(Key, Package* owner, PartName name, ContentType contentType, Compression compression);
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part();

  [[nodiscard]] const PartName& getPartName() const { return name_; }
  [[nodiscard]] URI getURI() const { return name_.getURI(); }
  [[nodiscard]] const ContentType& getContentType() const { return contentType_; }
  [[nodiscard]] bool isDetached() const { return owner_ == nullptr; }

  // The current content from its first byte. Several streams may be open at once.
  [[nodiscard]] std::unique_ptr<InputStream> getInputStream() const;
  // Empties the part and returns a stream that appends to it. Writing through an older stream of
  // the same part after this call throws opc::Exception.
  [[nodiscard]] std::unique_ptr<OutputStream> getOutputStream();
  // Replaces the content with `source`, read only when the package is written (and by
  // getInputStream). The source must stay readable until close().
  void setContentSource(std::shared_ptr<const ContentSource> source);
  // The ZIP directory index of the entry that holds the part's content, while the content is the one
  // the package file holds.
  [[nodiscard]] std::optional<std::uint64_t> getDirectoryIndex() const {
    return content_ ? std::nullopt : std::optional<std::uint64_t>(sourceEntry_);
  }
  // Content length in bytes; for a content source of unknown size, found by reading it.
  [[nodiscard]] std::uint64_t getSize() const;

  // Physical attributes carried by the ZIP entry: modification time (any instant; stored as DOS time
  // when in its range plus an NTFS time extra field that holds the exact value) and Unix mode bits
  // (07777, in the external attributes). Absent when the entry has none.
  [[nodiscard]] std::optional<FileTime> getLastModifiedTime() const;
  void setLastModifiedTime(FileTime time);
  [[nodiscard]] std::optional<std::uint32_t> getUnixMode() const;
  void setUnixMode(std::uint32_t mode);

  // The relationships whose source is this part (stored in its relationships part, read on the first
  // call: opc::Exception when it is malformed).
  [[nodiscard]] Relationships& getRelationships();
  [[nodiscard]] const Relationships& getRelationships() const;

 private:
  friend class Package;
  Package& owner() const;       // throws when detached
  Package& writableOwner();     // throws when detached or read only
  void contentChanged();
  Relationships& relationships() const;
  // A relationships part not read yet counts as holding some.
  [[nodiscard]] bool hasRelationships() const {
    return relationships_ ? !relationships_->empty() : static_cast<bool>(relationshipsEntry_);
  }

  Package* owner_;
  PartName name_;
  ContentType contentType_;
  detail::OptionalEntry sourceEntry_;              // unchanged content: this ZIP entry
  detail::OptionalEntry relationshipsEntry_;       // its relationships part, when unchanged
  std::shared_ptr<const ContentSource> content_;   // replaced content
  mutable std::unique_ptr<Relationships> relationships_;  // made (and read) on first use: most parts have none
  detail::OptionalAttributes attributes_;          // as recorded, or as set
  std::uint32_t contentGeneration_ = 0;            // invalidates older output streams
  Compression compression_;                        // the part information's compression type
  bool contentChanged_ = false;                    // content differs from the file's entry
  bool attributesChanged_ = false;                 // time or mode differ from the file's entry
};

using PartPtr = std::shared_ptr<Part>;

}  // namespace opc::model
