#include "draft.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace rast::test {

namespace {

constexpr auto kAll = std::to_array<Operation>({
    {"ExpGamma", Family::tone, drawExpGamma},
    {"ColGamma", Family::tone, drawColGamma},
    {"BinConv", Family::tone, drawBinConv},
    {"BinConvRecord", Family::tone, drawBinConvRecord},
    {"SatAdjust", Family::color, drawSatAdjust},
    {"HueAdjust", Family::color, drawHueAdjust},
    {"ColBalance", Family::color, drawColBalance},
    {"OverlayRGB24bpp", Family::overlay, drawOverlayRgb},
    {"Overlay", Family::overlay, drawOverlay},
    {"Rotate", Family::geometry, drawRotate},
    {"Zoom", Family::geometry, drawZoom},
    {"ImageShift", Family::geometry, drawImageShift},
});

uint8_t* alignedDown(uint8_t* at, size_t alignment) {
  return at - reinterpret_cast<uintptr_t>(at) % alignment;
}

int32_t wordAt(const uint8_t* at, size_t size) {
  int16_t narrow = 0;
  int32_t wide = 0;
  memcpy(size == 2 ? static_cast<void*>(&narrow) : &wide, at, size);
  return size == 2 ? narrow : wide;
}

}  // namespace

const std::span<const Operation> kOperations = kAll;

std::string Draft::text() const {
  std::ostringstream stream;
  for (const Argument& argument : arguments_) {
    const auto points = [&](const Region& r) { return r.pointer() == argument.pointer; };
    const auto region = std::ranges::find_if(regions_, points);
    stream << ' ';
    if (!argument.pointer) {
      stream << argument.value;
    } else if (argument.pointer == this) {
      stream << "null";
    } else {
      stream << (region == regions_.end() ? "garbage" : region->name);
    }
  }
  for (const Region& region : regions_) {
    stream << '\n'
           << region.name << '[' << region.index << "]: " << region.size << " bytes at "
           << arena_.placeOf(region.at);
    for (size_t i = region.skipped; region.word && i + region.word <= region.size; i += region.word)
      stream << (i == region.skipped ? ": " : ", ") << wordAt(region.at + i, region.word);
  }
  return stream.str();
}

uint8_t* Draft::placeIn(Arena::Slot slot, size_t size, size_t alignment) {
  const size_t last = slot.size() - size;
  const int32_t where = pick(0, 2);
  const size_t at = where == 0   ? 0
                    : where == 1 ? last
                                 : pick<size_t>(0, static_cast<int64_t>(last));
  return alignedDown(slot.data() + at, alignment);
}

/// `size` bytes at a distance from `at` in its slot; at the opposite one where that is outside.
uint8_t* Draft::beside(const uint8_t* at, ptrdiff_t distance, size_t size) const {
  const Arena::Slot slot = arena_.slotOf(at);
  const ptrdiff_t from = at - slot.data();
  const ptrdiff_t last = std::ssize(slot) - static_cast<ptrdiff_t>(size);
  const bool inside = from + distance >= 0 && from + distance <= last;
  return slot.data() + std::clamp<ptrdiff_t>(inside ? from + distance : from - distance, 0, last);
}

/// A little, up to two registers, or what makes lines just touch; and perhaps a line more or less.
ptrdiff_t Draft::distance(ptrdiff_t pitch, ptrdiff_t width) {
  const int32_t reach = oneIn(3) ? 4 : kReach;
  const ptrdiff_t touching = oneIn(4) ? (oneIn(2) ? -width : width) : 0;
  return (touching ? touching + pick(-1, 1) : pick(-reach, reach)) +
         (oneIn(4) ? pick(-1, 1) * pitch : 0);
}

void Draft::arrange(std::span<Region> in, std::span<Region> out, ptrdiff_t pitch, ptrdiff_t width) {
  enum { apart, inPlace, crossed, onInput, onOutput, close, oneMoved, kinds };
  const int32_t kind = pick(0, kinds - 1);
  const auto one = [&](std::span<Region> of) -> Region& {
    return of[pick<size_t>(0, std::ssize(of) - 1)];
  };
  size_t room = oneIn(4) ? 12000 : 0;  // beside which any lookup buffer finds its place
  for (const auto& regions : {in, out}) {
    for (const Region& region : regions) room = std::max(room, region.size + kReach);
  }
  const auto place = [&](Region& region) {
    region.at = kind == close && &region != &in[0]
                    ? beside(in[0].at, distance(pitch, width), region.size)
                    : placeIn(take(room), region.size);
  };
  for (Region& region : in) place(region);
  const size_t turn = kind == crossed ? pick<size_t>(0, std::ssize(in) - 1) : 0;
  const bool over = kind == inPlace || kind == crossed || kind == oneMoved;
  for (size_t k = 0; k < out.size(); ++k) {
    if (over) {
      out[k].at = beside(in[(k + turn) % in.size()].at, 0, out[k].size);
    } else {
      place(out[k]);
    }
  }
  if (kind == onInput || kind == onOutput || kind == oneMoved) {
    Region& moved = one(out);
    const Region& anchor = kind == onInput ? one(in) : kind == onOutput ? one(out) : moved;
    moved.at = beside(anchor.at, distance(pitch, width), moved.size);
  }
  regions_.insert(regions_.end(), in.begin(), in.end());
  regions_.insert(regions_.end(), out.begin(), out.end());
  mayCover(out);
}

uint8_t* Draft::block(const char* name, size_t size, size_t alignment, size_t word,
                      size_t skipped) {
  uint8_t* at = nullptr;
  if (!outs_.empty() && oneIn(4)) {
    if (!nextOver_) {
      const Region& out = outs_[pick<size_t>(0, std::ssize(outs_) - 1)];
      const Arena::Slot slot = arena_.slotOf(out.at);
      const auto reach = static_cast<ptrdiff_t>(size) + 8;
      const ptrdiff_t over =
          out.at - slot.data() + pick(-reach, reach + static_cast<ptrdiff_t>(out.size));
      nextOver_ = slot.data() + std::clamp<ptrdiff_t>(over, 0, std::ssize(slot));
    }
    // Blocks lie one behind the other: one must not change what another says.
    const Arena::Slot slot = arena_.slotOf(nextOver_);
    uint8_t* const start = alignedDown(nextOver_ + alignment - 1, alignment);
    if (start + size <= slot.data() + slot.size()) {
      at = start;
      nextOver_ = start + size;
    }
  }
  if (!at) at = placeIn(take(size), size, alignment);
  tell({name, 0, 0, size, at, word, skipped});
  return at;
}

}  // namespace rast::test
