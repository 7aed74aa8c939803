#pragma once
// How `build` splits the selected files into zvAddonAddFiles calls. Each call rewrites the package,
// copying what it already holds; batches that grow with what is already stored (half of it, past a
// floor) keep that copying to about twice the package while the progress bar still moves several
// times on the way.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "file_selection.h"

namespace zvaddon::tool {

struct Batch {
  std::size_t first = 0, end = 0;  // files [first, end) of the selection
  std::uint64_t bytes = 0;
};

struct BatchFloor {
  std::size_t files = 1000;
  std::uint64_t bytes = 32u << 20;
};

// Consecutive batches covering every file once, in order. A batch closes when its files reach
// max(floor.files, files before it / 2) or its bytes reach max(floor.bytes, bytes before it / 2).
[[nodiscard]] std::vector<Batch> planBatches(const std::vector<SelectedFile>& files, BatchFloor floor = {});

}  // namespace zvaddon::tool
