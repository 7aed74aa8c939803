#include "batches.h"

#include <algorithm>

namespace zvaddon::tool {

std::vector<Batch> planBatches(const std::vector<SelectedFile>& files, BatchFloor floor) {
  std::vector<Batch> batches;
  Batch current;
  std::uint64_t bytesBefore = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    current.end = i + 1;
    current.bytes += files[i].size;
    const std::size_t count = current.end - current.first;
    if (count >= std::max(floor.files, current.first / 2) || current.bytes >= std::max(floor.bytes, bytesBefore / 2)) {
      bytesBefore += current.bytes;
      batches.push_back(current);
      current = Batch{i + 1, i + 1, 0};
    }
  }
  if (current.end > current.first) batches.push_back(current);
  return batches;
}

}  // namespace zvaddon::tool
