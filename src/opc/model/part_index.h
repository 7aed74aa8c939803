#pragma once
// The parts of a package by name, ignoring ASCII case, in a few bytes a part.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "opc/model/part_name.h"

namespace opc::model {

class Part;

// An open-addressing table of part numbers: each slot holds a number into `parts` and 32 bits of
// the name's hash, and names are read from the parts themselves: 8 to 16 bytes a part where a map of
// name views takes about 56, for the budget of building, listing and extracting 70,000 entries below
// 100 MB of peak memory (a package model holds every part). Holds a pointer to `parts`, which must outlive it; numbers it holds
// must name live parts there. Lookups run on any thread while nothing changes the table.
class PartIndex {
 public:
  explicit PartIndex(const std::vector<std::shared_ptr<Part>>& parts) : parts_(&parts) {}

  [[nodiscard]] std::optional<std::uint32_t> find(const PartNameKey& key) const;
  [[nodiscard]] std::optional<std::uint32_t> find(std::string_view name) const {
    return find(PartNameKey{name, PartNameKeyHash{}(name)});
  }
  [[nodiscard]] bool contains(const PartNameKey& key) const { return find(key).has_value(); }
  [[nodiscard]] bool contains(std::string_view name) const { return find(name).has_value(); }
  // Adds part number `part`, whose name (of hash `hash`, PartNameKeyHash's) must not be in the table yet.
  void insert(std::uint32_t part, std::size_t hash);
  // Removes the name, which must be there; its part must still answer for it during the call.
  void erase(std::string_view name);
  void clear() noexcept;
  // Room for `count` parts without growing.
  void reserve(std::size_t count);
  [[nodiscard]] std::size_t size() const noexcept { return live_; }

 private:
  struct Slot {
    std::uint32_t part;
    std::uint32_t hash;
  };
  static_assert(sizeof(Slot) == 8);
  static constexpr std::uint32_t kEmpty = UINT32_MAX;
  static constexpr std::uint32_t kErased = UINT32_MAX - 1;

  [[nodiscard]] std::string_view nameOf(std::uint32_t part) const;
  // The slot holding `key`, or the one where probing for it ends (empty).
  [[nodiscard]] std::size_t probe(const PartNameKey& key) const;
  void rehash(std::size_t capacity);

  const std::vector<std::shared_ptr<Part>>* parts_;
  std::vector<Slot> slots_;  // a power of two in size, or empty
  std::size_t live_ = 0;
  std::size_t used_ = 0;  // live and erased slots
};

}  // namespace opc::model
