#pragma once
// Unchanged entries of an existing archive carried into a new one as the bytes they are stored as:
// local header, data and descriptor copied in as few kernel-side copies as the layout allows, and
// their directory records copied with the new offsets. Nothing is read through user space, inflated
// or CRC-checked, which is what makes a one-record change on a large package cost little more than
// copying its file.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "opc/zippackage/central_directory.h"

namespace opc::zippackage {

class RawCopier {
 public:
  // Copies from the archive open on `sourceFd`, whose directory is `source` (both must stay as they
  // are while the copier is used).
  RawCopier(int sourceFd, std::string sourcePath, std::shared_ptr<const CentralDirectory> source);

  // True when directory record `index` is named `name` and its bytes lie whole between its start
  // and the next entry (or the directory): only such entries are copied raw; the caller rewrites
  // the others from their data.
  [[nodiscard]] bool canCopy(std::size_t index, std::string_view name) const;
  // Queues record `index` (canCopy must hold); entries go in the order queued.
  void add(std::size_t index) { queued_.push_back(index); }
  [[nodiscard]] bool empty() const { return queued_.empty(); }

  // Writes the queued entries' bytes into `fd` from `position` on, hands each one's directory
  // record, relocated, to `record` in order, and returns the position after the last. Throws
  // opc::Exception naming `path` on any failure; the file is then garbage, to be discarded by the
  // caller.
  std::uint64_t copyTo(int fd, std::uint64_t position, const std::function<void(std::string_view)>& record,
                       const std::string& path) const;

 private:
  int sourceFd_;
  std::string sourcePath_;
  std::shared_ptr<const CentralDirectory> source_;
  std::vector<std::uint64_t> extentEnd_;  // per record: where the next entry or the directory starts
  std::vector<std::size_t> queued_;
};

}  // namespace opc::zippackage
