#include "opc/model/part_index.h"

#include <bit>

#include "opc/exception.h"
#include "opc/model/part.h"

namespace opc::model {

std::string_view PartIndex::nameOf(std::uint32_t part) const { return (*parts_)[part]->getPartName().text(); }

std::size_t PartIndex::probe(const PartNameKey& key) const {
  const std::size_t mask = slots_.size() - 1;
  const auto hash = static_cast<std::uint32_t>(key.hash);
  for (std::size_t at = key.hash & mask;; at = (at + 1) & mask) {
    const Slot& slot = slots_[at];
    if (slot.part == kEmpty) return at;
    if (slot.part != kErased && slot.hash == hash && PartNameKeyEqual{}(key.text, nameOf(slot.part))) return at;
  }
}

std::optional<std::uint32_t> PartIndex::find(const PartNameKey& key) const {
  if (live_ == 0) return std::nullopt;
  const Slot& slot = slots_[probe(key)];
  if (slot.part == kEmpty) return std::nullopt;
  return slot.part;
}

void PartIndex::insert(std::uint32_t part, std::size_t hash) {
  if (part >= kErased) throw Exception("too many parts in one package");
  // At most three quarters used, erased slots included, so that every probe meets an empty slot.
  if ((used_ + 1) * 4 > slots_.size() * 3) rehash(std::max<std::size_t>(16, std::bit_ceil((live_ + 1) * 2)));
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  while (slots_[at].part != kEmpty && slots_[at].part != kErased) at = (at + 1) & mask;
  if (slots_[at].part == kEmpty) ++used_;
  slots_[at] = {part, static_cast<std::uint32_t>(hash)};
  ++live_;
}

void PartIndex::erase(std::string_view name) {
  if (live_ == 0) return;
  Slot& slot = slots_[probe(PartNameKey{name, PartNameKeyHash{}(name)})];
  if (slot.part == kEmpty) return;
  slot.part = kErased;
  --live_;
}

void PartIndex::clear() noexcept {
  slots_.clear();
  live_ = used_ = 0;
}

void PartIndex::reserve(std::size_t count) {
  const std::size_t wanted = std::bit_ceil(std::max<std::size_t>(16, count + count / 2 + 1));
  if (wanted > slots_.size()) rehash(wanted);
}

// Slots keep the low 32 bits of the hash, which place them again without reading the names.
void PartIndex::rehash(std::size_t capacity) {
  std::vector<Slot> old(capacity, Slot{kEmpty, 0});
  old.swap(slots_);
  const std::size_t mask = capacity - 1;
  for (const Slot& slot : old) {
    if (slot.part == kEmpty || slot.part == kErased) continue;
    std::size_t at = slot.hash & mask;
    while (slots_[at].part != kEmpty) at = (at + 1) & mask;
    slots_[at] = slot;
  }
  used_ = live_;
}

}  // namespace opc::model
