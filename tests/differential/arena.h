// The memory of one call: slots of several sizes between protected pages. Every run of the call
// finds the same content at the same addresses, so pointers in memory compare like the rest of it.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
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
    constexpr size_t periods[] = {0, 0, 1, 16, 64};
    period_ = periods[seed_ % std::size(periods)];
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

  /// Random bytes, in a narrow range where pixels are to be nearly gray, or extreme ones. Where there
  /// is a period, nearly all of them repeat its bytes, as on paper.
  void fill(const Slot& slot) {
    const uint8_t* from = pool_.data() + seed_;
    seed_ = static_cast<uint16_t>(seed_ + 9973);
    if (period_ == 0) {
      for (uint8_t& sample : slot) sample = sampleOf(*from++);
      return;
    }
    for (size_t i = 0; i < slot.size(); ++i) slot[i] = i < period_ ? *from++ : slot[i - period_];
    const size_t rare = size_t{1} << *from % 8;
    for (size_t i = *from; i < slot.size(); i += 1 + *from++ * rare) slot[i] = sampleOf(*from);
  }

  uint8_t sampleOf(uint8_t random) const {
    static constexpr uint8_t extreme[] = {0, 1, 127, 128, 254, 255, 0, 255};
    if (extremes_) return extreme[random % 8];
    return static_cast<uint8_t>(lowest_ + (random * span_ >> 8));
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
  size_t period_ = 0;
};

}  // namespace rast::test
