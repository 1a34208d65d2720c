// The row kernels of one instruction-set level, and the choice of the level that calls use.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "rast.h"

namespace rast {

/// A row of N planes in and M planes out.
template <size_t N, size_t M = N>
struct Row {
  const uint8_t* in[N];
  uint8_t* out[M];
  size_t width;
};
using MonoRow = Row<1>;
using ColorRow = Row<3>;

/// out = min(((in - threshold) * gain / 256) + offset, 255) above the threshold, otherwise 0.
struct ThresholdGain {
  uint8_t threshold;
  uint8_t offset;
  uint16_t gain;
};

/// out_k = clamp((sum over j of in_j * weight[k][j] + constant[k]) / 256 + offset[k]) ^ invert, the
/// sum and the last addition wrapping at 32 bits, the division truncating towards zero.
template <size_t N>
struct Matrix {
  int16_t weight[N][N];
  int32_t constant[N];
  int32_t offset[N];
  uint8_t invert;
};
using MonoMatrix = Matrix<1>;
using ColorMatrix = Matrix<3>;

/// The second ink of the two-color conversion, where no other ink is written: its amount, a sum of
/// the components weighted in 1/256 (at most 256 together) plus an offset in -255 .. 255, and the
/// outputs it feeds, the others being 0.
struct Ink {
  uint8_t weight[3];
  int16_t offset;
  bool feeds[3];
  const uint8_t* saturationLimit;  // 256 bytes by hue, each above 15
};

/// How an overlay is weakened and put over a base: v * scale / 256, transparent where the largest
/// of a pixel's weakened samples is below the threshold.
struct Blend {
  uint16_t scale;  // at most 256
  uint8_t threshold;
  bool maximum;  // the larger of overlay and base instead of the overlay
};

/// Lines that are turned together: at most as many as there are samples in a cache line of the
/// output. No kernel turns fewer lines or columns than kLeast faster than one sample at a time.
struct LineGroup {
  static constexpr size_t kLeast = 16;
  static constexpr size_t kMost = 64;
  const uint8_t* lines[kMost];
  size_t count;
};

/// How a line is reduced by groups of at most four samples, for up to one period of its groups. A
/// kernel makes a register of outputs, a block, at a time: it shuffles windows of 16 samples, one
/// in each 16-byte lane of `terms` registers. Window (block * terms + k) * lanes + i feeds lane i
/// of shuffle k; outputs are in memory order, 16 to a lane.
struct LinePlan {
  static constexpr size_t kPeriod = 1000;  // samples
  static constexpr size_t kWindow = 16;
  static constexpr size_t kMostWindows = 128;
  static constexpr size_t kMostOutputs = 1024;
  static constexpr size_t kMostRegisterBytes = 64;
  static constexpr uint8_t kNone = 0x80;

  size_t terms;                          // places that an output has in its window: 2 or 4
  bool recalls;                          // samples far behind their window are needed
  uint16_t start[kMostWindows];          // of a window in the period
  uint16_t recalled[kMostWindows];       // the sample that stands in for the window's last one
  uint8_t place[kMostWindows][kWindow];  // of each term in the window, or kNone
  uint16_t multiplier[kMostOutputs];     // 32768 / divisor + 1, low halves of all lanes first
};

/// One function per row kernel. A kernel reads and writes nothing outside the `width` bytes of its
/// row in each plane. An output may be its own input, except where mirrored, and overlaps nothing
/// else. The kernels from thresholdGain to ink are null where a level has nothing faster than the
/// definition or, for mono samples, than a curve.
struct Rows {
  /// Copies; the output does not overlap the input.
  void (*copy)(uint8_t* out, const uint8_t* in, size_t width);

  /// out[x] = table[in[x]] for a table of 256 bytes; mirrored, out[width - 1 - x].
  void (*curve)(const MonoRow& row, const uint8_t* table, bool mirrored);

  void (*thresholdGain)(const MonoRow& row, const ThresholdGain& curve);
  void (*monoMatrix)(const MonoRow& row, const MonoMatrix& matrix, bool mirrored);

  /// Saturation lowered (0) or raised (1) by a quarter, whole groups of four pixels mirrored.
  void (*saturation)(const ColorRow& row, uint32_t mode);

  void (*matrix)(const ColorRow& row, const ColorMatrix& matrix, bool mirrored);

  /// Hue adjustment through a built buffer of any content.
  void (*products)(const ColorRow& row, const RastHueLut& lut);

  /// Color balance with the curves of the three components and of the gray part.
  void (*balance)(const ColorRow& row, const uint8_t* curves);

  void (*ink)(const ColorRow& row, const Ink& ink);

  /// An overlay alone: weakened, 0 where transparent. And an overlay (first inputs) on a base (last
  /// inputs), which shows where it is transparent.
  void (*overlay)(const ColorRow& row, const Blend& blend);
  void (*overlayMono)(const MonoRow& row, const Blend& blend);
  void (*overlayOnBase)(const Row<6, 3>& row, const Blend& blend);
  void (*overlayOnBaseMono)(const Row<2, 1>& row, const Blend& blend);

  /// out[j * pitch + i] = group.lines[i][j] for i < group.count, j < columns, of which there are
  /// kLeast or more. The lines of the output do not overlap one another or the input. Prefetches
  /// the same columns of `next`: lines lie pages apart, where no hardware expects them.
  void (*transpose)(uint8_t* out, ptrdiff_t pitch, const LineGroup& group, const LineGroup& next,
                    size_t columns);

  /// out[x] = a[x] + b[x], and mean[x] = (sum over k < count of lines[k * pitch + x]) / count, both
  /// in 8 bits. A line has a register of samples at least; 2 to 255 lines make a mean.
  void (*add)(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t width);
  void (*mean)(uint8_t* mean, const uint8_t* lines, ptrdiff_t pitch, size_t count, size_t width);

  /// out[x] = (line[2 * x] + line[2 * x + 1]) / 2, for a register of outputs at least.
  void (*halve)(uint8_t* out, const uint8_t* line, size_t outputs);

  /// Blocks [block, end) of a period of outputs. Reads windows past the last output's samples. Null
  /// where a level cannot pick samples by table.
  void (*reduce)(uint8_t* out, const uint8_t* period, const LinePlan& plan, size_t block,
                 size_t end);

  size_t registerBytes;
};

/// Each level has a function for each table of kernels, also for the table of another library.
namespace baseline {
template <class Table>
const Table* kernels();
template <>
const Rows* kernels<Rows>();
}  // namespace baseline
namespace avx2 {
template <class Table>
const Table* kernels();
template <>
const Rows* kernels<Rows>();
}  // namespace avx2
namespace avx512 {
template <class Table>
const Table* kernels();
template <>
const Rows* kernels<Rows>();
}  // namespace avx512
namespace neon {
template <class Table>
const Table* kernels();
template <>
const Rows* kernels<Rows>();
}  // namespace neon

/// The best level that was built and that this machine runs.
const Rows* rows();

}  // namespace rast
