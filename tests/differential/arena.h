// The memory of one call: slots of several sizes between protected pages. Every run of the call
// finds the same content at the same addresses, so pointers in memory compare like the rest of it.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "choices.h"
#include "support/memory.h"
#include "support/random.h"

namespace rast::test {

class Arena {
 public:
  using Slot = std::span<uint8_t>;
  using Image = std::vector<uint8_t>;

  Arena() {
    Random random(1);
    random.fill(pool_.data(), pool_.size());
  }

  /// Gives all slots back; those taken from here on have the content that is chosen.
  void clear(Choices& choices) {
    taken_.clear();
    next_ = {};
    seed_ = choices.any<uint16_t>();
    extremes_ = choices.oneIn(8);
    const bool narrow = choices.oneIn(3);
    lowest_ = narrow ? choices.any<uint8_t>() : uint8_t{0};
    span_ = narrow ? choices.pick<uint16_t>(1, 30) : uint16_t{256};
  }

  Slot take(size_t size) {
    for (size_t i = 0; i < memories_.size(); ++i) {
      const Memory& memory = memories_[i];
      if (size > memory.slotSize() || next_[i] == memory.slots()) continue;
      taken_.emplace_back(memory.slot(next_[i]++), memory.slotSize());
      fill(taken_.back());
      return taken_.back();
    }
    throw std::length_error("a call needs more memory than there is");
  }

  /// The slot that holds `at`, or an empty one.
  Slot slotOf(const uint8_t* at) const {
    for (const Slot& slot : taken_) {
      if (at >= slot.data() && at <= slot.data() + slot.size()) return slot;
    }
    return {};
  }

  /// Where in which slot, also close outside it.
  std::string placeOf(const uint8_t* at) const {
    constexpr ptrdiff_t page = 4096;
    for (size_t i = 0; i < taken_.size(); ++i) {
      const ptrdiff_t offset = at - taken_[i].data();
      if (offset >= -page && offset < std::ssize(taken_[i]) + page)
        return "slot " + std::to_string(i) + " + " + std::to_string(offset) + " of " +
               std::to_string(taken_[i].size());
    }
    return "an address that is no slot's";
  }

  Image image() const {
    Image image;
    for (const Slot& slot : taken_) image.insert(image.end(), slot.begin(), slot.end());
    return image;
  }

  void restore(const Image& image) const {
    const uint8_t* from = image.data();
    for (const Slot& slot : taken_) {
      memcpy(slot.data(), from, slot.size());
      from += slot.size();
    }
  }

  /// The first byte that differs from the image and what it is there; null where none does.
  const uint8_t* difference(const Image& image, uint8_t& expected) const {
    const uint8_t* from = image.data();
    for (const Slot& slot : taken_) {
      if (memcmp(slot.data(), from, slot.size()) != 0) {
        size_t i = 0;
        while (slot[i] == from[i]) ++i;
        expected = from[i];
        return &slot[i];
      }
      from += slot.size();
    }
    return nullptr;
  }

 private:
  static constexpr size_t kLargest = 262144;

  /// Random bytes, in a narrow range where pixels are to be nearly gray, or extreme ones.
  void fill(const Slot& slot) {
    static constexpr uint8_t extreme[] = {0, 1, 127, 128, 254, 255, 0, 255};
    const uint8_t* const from = pool_.data() + seed_;
    seed_ = static_cast<uint16_t>(seed_ + 9973);
    for (size_t i = 0; i < slot.size(); ++i) {
      slot[i] = static_cast<uint8_t>(lowest_ + (from[i] * span_ >> 8));
    }
    for (size_t i = 0; extremes_ && i < slot.size(); ++i) slot[i] = extreme[from[i] % 8];
  }

  std::array<Memory, 4> memories_{Memory(16, 4096), Memory(16, 16384), Memory(16, 65536),
                                  Memory(12, kLargest)};
  std::array<size_t, 4> next_{};
  std::vector<Slot> taken_;
  std::vector<uint8_t> pool_ = std::vector<uint8_t>(kLargest + 65536);
  uint16_t seed_ = 0;
  bool extremes_ = false;
  uint8_t lowest_ = 0;
  uint16_t span_ = 256;
};

}  // namespace rast::test
