// The workloads: every operation on planes of a few sizes, splitting and joining of lines, a chain.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "frame/rows.h"
#include "rast.h"

namespace rast::bench {

struct Size {
  const char* name;
  int32_t width;
  int32_t height;
  int32_t calls;         // that are timed as one
  const char* document;  // the file of a color page in portable pixmap format; null for noise
};

/// An A4 page at 600 dpi, a band of it that the second-level cache holds, and a tile, all of random
/// samples; and a page of a printed manual, where it can be rendered.
inline constexpr Size kSizes[] = {
    {"page", 4960, 7016, 1, nullptr},
    {"band", 4960, 32, 50, nullptr},
    {"tile", 16, 16, 5000, nullptr},
#if RAST_HAS_DOCUMENT
    {"document", 4960, 7016, 1, RAST_DOCUMENT},
#endif
};

/// Three planes and a gray one in and three out, of which an operation uses what it needs.
struct Planes {
  explicit Planes(const Size& size);

  size_t bytes() const { return gray.size(); }
  RastPlaneSet mono();
  RastPlaneSet color();

  RastArea area;
  uint8_t curve[256];
  std::vector<uint8_t> in[3];
  std::vector<uint8_t> gray;
  std::vector<uint8_t> out[3];
};

/// As many samples as a plane has, as pixels of `components` samples each: interleaved in one memory,
/// and as planes that follow each other in another.
struct Pixels {
  Pixels(const Planes& planes, size_t componentCount)
      : components(componentCount), count(planes.bytes() / components / 16 * 16) {}

  const size_t components;
  const size_t count;
};

/// The interleaved color page of the workload "chain", as large as one plane: in[0] becomes out[0].
struct ChainPage {
  explicit ChainPage(const Planes& planes)
      : width(planes.area.nWidth), height(std::max(1, planes.area.nHeight / 3)) {}

  /// The steps; the workload calls the operations with the same parameters.
  static constexpr char kText[] =
      "satadjust raise : colgamma invert : colbalance curve=3 level=6,4,7,5";

  const int32_t width;
  const int32_t height;
};

struct Workload {
  const char* name;
  double copied;  // planes that memcpy moves in place of the operation
  std::function<void(const Rows*, Planes&)> run;
};

const std::vector<Workload>& workloads();

}  // namespace rast::bench
