// A call in the making: what the choices put where in the arena, and what there is to tell of it.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "arena.h"
#include "choices.h"
#include "frame/rows.h"

// Of the memory sanitizer alone.
extern "C" [[gnu::weak]] void __msan_unpoison(const volatile void* at, size_t size);

namespace rast::test {

/// One way of running a call: the definition, a level, or the exported function.
struct Way {
  std::string name;
  const Rows* rows;
  bool exported;
};

using Answers = std::vector<uint32_t>;
using Run = std::function<Answers(const Way&)>;

/// Sets a record in the arena, whose padding the memory sanitizer is to take for set as well.
template <class T>
void assign(T& record, const T& value) {
  memcpy(&record, &value, sizeof(T));
  if (__msan_unpoison) __msan_unpoison(&record, sizeof(T));
}

/// Memory that a call uses: `size` bytes at `at`, `lowest` bytes from the pointer that it is given.
struct Region {
  const char* name;
  size_t index;
  ptrdiff_t lowest;
  size_t size;
  uint8_t* at = nullptr;
  size_t word = 0;     // a record is told in words of this size
  size_t skipped = 0;  // all but its first bytes

  uint8_t* pointer() const { return at - lowest; }
};

class Draft : public Choices {
 public:
  Draft(std::span<const uint8_t> bytes, Arena& arena) : Choices(bytes), arena_(arena) {
    arena.clear(*this);
  }

  /// The call and its memory, to be read by people.
  std::string text() const;

  /// True when an argument was broken: the call must be refused and leave everything as it is.
  bool refused() const { return refused_; }

  /// From here on no argument is broken.
  void keepWhole() { breakable_ = false; }

  /// `value` or, where this is the argument to be broken, one outside lowest .. highest.
  template <class T>
  T within(T value, int64_t lowest, int64_t highest = std::numeric_limits<T>::max()) {
    constexpr int64_t least = std::numeric_limits<T>::min();
    constexpr int64_t most = std::numeric_limits<T>::max();
    if ((lowest == least && highest == most) || !breaks()) return value;
    const bool below = lowest > least && (highest == most || oneIn(2));
    if (oneIn(2)) return static_cast<T>(below ? lowest - 1 : highest + 1);
    return below ? pick<T>(least, lowest - 1) : pick<T>(highest + 1, most);
  }
  template <class T>
  T valid(int64_t lowest, int64_t highest) {
    return within(pick<T>(lowest, highest), lowest, highest);
  }
  template <class T>
  T* needed(T* pointer) {
    return breaks() ? nullptr : pointer;
  }
  template <class T>
  T* refusedUnlessNull(T* pointer) {
    return breaks() ? pointer : nullptr;
  }

  /// For a pointer that is not to be followed: null or next to either end of the address space,
  /// where the sanitizers report an offset added to it.
  uint8_t* garbage() { return reinterpret_cast<uint8_t*>(pick<intptr_t>(-1, 1) * 16); }
  uint8_t* garbageButNotNull() { return reinterpret_cast<uint8_t*>(intptr_t{oneIn(2) ? -16 : 16}); }

  /// The pointer to a region, which need not be there where the call touches nothing of it.
  uint8_t* pointerTo(const Region& region) { return region.size ? region.pointer() : garbage(); }
  uint8_t* checkedPointerTo(const Region& region) {
    return region.size ? region.pointer() : garbageButNotNull();
  }

  Arena::Slot take(size_t size) { return arena_.take(size); }

  /// A place in the slot for `size` bytes: against either protected page, or anywhere.
  uint8_t* placeIn(Arena::Slot slot, size_t size, size_t alignment = 1);

  /// Places planes: apart, in place, crossed, or close to one another at chosen distances. Lines of
  /// `width` bytes are `pitch` bytes apart.
  void arrange(std::span<Region> in, std::span<Region> out, ptrdiff_t pitch, ptrdiff_t width);

  /// Outputs that blocks may lie over from here on.
  void mayCover(std::span<const Region> outs) { outs_.assign(outs.begin(), outs.end()); }

  /// Memory of its own or, among the other such blocks, over an output.
  uint8_t* block(const char* name, size_t size, size_t alignment, size_t word = 0,
                 size_t skipped = 0);

  /// A record that the call reads once, and that is told from byte `skipped` on.
  template <class Word, class T>
  T* put(const char* name, const T& value, size_t skipped = 0) {
    uint8_t* const at = block(name, sizeof(T), alignof(T), sizeof(Word), skipped);
    auto* const record = reinterpret_cast<T*>(at);
    assign(*record, value);
    return record;
  }
  template <class Word, class T>
  T* record(const char* name, const T& value, size_t skipped = 0) {
    return needed(put<Word>(name, value, skipped));
  }

  /// Memory and values to be told of.
  void tell(const Region& region) { regions_.push_back(region); }
  void tell(int64_t value) { arguments_.push_back({value, nullptr}); }
  void tell(const void* pointer) { arguments_.push_back({0, pointer ? pointer : this}); }

  /// A run of the internal or the exported function with these arguments.
  template <class Internal, class Exported, class... Args>
  Run call(Internal internal, Exported exported, Args... args) {
    (tell(args), ...);
    return [=](const Way& way) {
      return Answers{way.exported ? exported(args...) : internal(way.rows, args...)};
    };
  }

 private:
  static constexpr int32_t kReach = 130;  // two registers of the widest level, and a little

  bool breaks() {
    if (!breakable_ || !oneIn(100)) return false;
    breakable_ = false;
    return refused_ = true;
  }
  ptrdiff_t distance(ptrdiff_t pitch, ptrdiff_t width);
  uint8_t* beside(const uint8_t* at, ptrdiff_t distance, size_t size) const;

  struct Argument {
    int64_t value;
    const void* pointer;  // this draft for null; null for a value
  };

  Arena& arena_;
  std::vector<Region> regions_;
  std::vector<Argument> arguments_;
  std::vector<Region> outs_;
  uint8_t* nextOver_ = nullptr;  // where the next block over an output goes
  bool breakable_ = true;
  bool refused_ = false;
};

enum class Family { tone, color, overlay, geometry };

/// Families stand one after the other.
struct Operation {
  const char* name;
  Family family;
  Run (*draw)(Draft& draft);
};
extern const std::span<const Operation> kOperations;

Run drawExpGamma(Draft& draft);
Run drawColGamma(Draft& draft);
Run drawBinConv(Draft& draft);
Run drawBinConvRecord(Draft& draft);
Run drawSatAdjust(Draft& draft);
Run drawHueAdjust(Draft& draft);
Run drawColBalance(Draft& draft);
Run drawOverlayRgb(Draft& draft);
Run drawOverlay(Draft& draft);
Run drawRotate(Draft& draft);
Run drawZoom(Draft& draft);
Run drawImageShift(Draft& draft);

}  // namespace rast::test
