// Reduction by averaging.
#include <stdlib.h>
#include <string.h>

#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

constexpr uint32_t kWhole = 1000;  // a ratio of 1.0
constexpr uint32_t kMaxRatio = 25399;
constexpr uint32_t kMaxPlanes = 3;

/// Gathers source samples or lines into groups.
struct Group {
  uint32_t ratio;
  uint32_t progress = 0;
  uint32_t count = 0;

  /// Takes one more; true when it completes the group, whose count then stands until begin().
  bool add() {
    ++count;
    progress += ratio;
    if (progress < kWhole) return false;
    progress -= kWhole;
    return true;
  }
  void begin() { count = 0; }
};

/// `count` buffers of `size` zero bytes, or null with nothing allocated.
uint8_t** allocateSet(uint32_t count, size_t size) {
  auto** set = static_cast<uint8_t**>(malloc(count * sizeof(uint8_t*)));
  if (!set) return nullptr;
  for (uint32_t i = 0; i < count; ++i) {
    set[i] = static_cast<uint8_t*>(malloc(size));
    if (!set[i]) {
      while (i > 0) free(set[--i]);
      free(set);
      return nullptr;
    }
    memset(set[i], 0, size);
  }
  return set;
}

void releaseSet(uint8_t** set, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) free(set[i]);
  free(set);
}

namespace definition {

/// Sums of 16 bits start with the group's first line, and wrap.
void sumLine(uint16_t* sums, const uint8_t* line, size_t width, bool first) {
  for (size_t x = 0; x < width; ++x)
    sums[x] = static_cast<uint16_t>(first ? line[x] : sums[x] + line[x]);
}

/// The sum formed with a group's last line does not wrap; 8 bits of the quotient are kept.
void meanLine(uint8_t* mean, const uint16_t* sums, const uint8_t* line, size_t width,
              uint32_t count) {
  for (size_t x = 0; x < width; ++x) {
    mean[x] = static_cast<uint8_t>((uint32_t{sums[x]} + (line ? line[x] : 0U)) / count);
  }
}

/// Reduces one averaged line of each plane; returns the samples written to each.
size_t reduce(const uint8_t* const* lines, size_t width, uint8_t* const* out,
              const RastZoomParam& param) {
  Group group{param.nRatioX};
  uint16_t sums[kMaxPlanes] = {};
  size_t written = 0;
  for (size_t x = 0; x < width; ++x) {
    if (group.add()) {
      for (uint32_t p = 0; p < param.nPlaneNum; ++p) {
        out[p][written] = static_cast<uint8_t>((uint32_t{sums[p]} + lines[p][x]) / group.count);
      }
      ++written;
      group.begin();
    } else {
      for (uint32_t p = 0; p < param.nPlaneNum; ++p) {
        sums[p] = static_cast<uint16_t>(group.count == 1 ? lines[p][x] : sums[p] + lines[p][x]);
      }
    }
  }
  if (group.count != 0) {
    for (uint32_t p = 0; p < param.nPlaneNum; ++p) {
      out[p][written] = static_cast<uint8_t>(sums[p] / group.count);
    }
    ++written;
  }
  return written;
}

}  // namespace definition

/// The lengths of the groups of a ratio up to 1.0 in turn, which are of two kinds.
struct GroupLengths {
  uint32_t ratio;
  uint32_t shorter = kWhole / ratio;
  uint32_t progress = 0;

  size_t next() {
    progress += shorter * ratio;
    const bool isShorter = progress >= kWhole;
    progress -= kWhole - (isShorter ? 0 : ratio);
    return isShorter ? shorter : shorter + 1;
  }
};

/// n / d, truncated, for n below 2^17.
class Divisor {
 public:
  explicit Divisor(uint32_t d) : reciprocal_((uint64_t{1} << 32) / d + 1) {}
  uint8_t quotient(uint32_t n) const { return static_cast<uint8_t>((n * reciprocal_) >> 32); }

 private:
  uint64_t reciprocal_;
};

/// The first `outputs` groups of a line of one plane.
void reduceGroups(uint32_t ratio, const uint8_t* line, size_t outputs, uint8_t* out) {
  GroupLengths groups{ratio};
  const Divisor byShorter(groups.shorter);
  const Divisor byLonger(groups.shorter + 1);
  // The sum of a group but for its last sample, which a group of one adds again.
  uint32_t before = 0;
  for (size_t i = 0; i < outputs; ++i) {
    const size_t length = groups.next();
    if (length > 1) {
      before = line[0];
      for (size_t k = 1; k + 1 < length; ++k) before += line[k];
      before &= 0xFFFF;
    }
    line += length;
    out[i] = (length == groups.shorter ? byShorter : byLonger).quotient(before + line[-1]);
  }
}

/// Fills the plan for lines of `outputs` groups, of a ratio that planned() admits.
void planLine(LinePlan& plan, uint32_t ratio, size_t outputs, size_t registerBytes) {
  constexpr size_t window = LinePlan::kWindow;
  constexpr size_t sums = window / sizeof(uint16_t);
  plan.terms = ratio >= kWhole / 2 ? 2 : 4;
  plan.recalls = false;
  const size_t lanes = registerBytes / window;
  const size_t windowOutputs = window / plan.terms;
  const size_t mostSamples = (windowOutputs * kWhole + ratio - 1) / ratio;  // of a window's outputs
  GroupLengths groups{ratio};
  size_t at = 0;
  size_t twin = 0;  // the first sample of the last group of two, which a group of one adds again
  if (outputs > ratio) outputs = ratio;
  for (size_t o = 0; o < outputs || o % registerBytes != 0; ++o) {
    const size_t block = o / registerBytes;
    const size_t lane = o % registerBytes / window;
    const size_t slot = (block * plan.terms + o % window / windowOutputs) * lanes + lane;
    const size_t length = o < outputs ? groups.next() : 0;
    if (o % windowOutputs == 0) {
      const bool reachesTwin = length == 1 && at + mostSamples - twin <= window;
      plan.start[slot] = static_cast<uint16_t>(reachesTwin ? twin : at);
      plan.recalled[slot] = static_cast<uint16_t>(plan.start[slot] + window - 1);
    }
    uint8_t* const place = plan.place[slot] + o % windowOutputs * plan.terms;
    for (size_t k = 0; k < plan.terms; ++k) {
      place[k] = k < length ? static_cast<uint8_t>(at - plan.start[slot] + k) : LinePlan::kNone;
    }
    if (length == 1 && twin >= plan.start[slot]) {
      place[1] = static_cast<uint8_t>(twin - plan.start[slot]);
    } else if (length == 1) {
      // A window that holds a group of one has its last place to spare.
      place[1] = window - 1;
      plan.recalled[slot] = static_cast<uint16_t>(twin);
      plan.recalls = true;
    }
    if (length == 2) twin = at;
    const size_t half = o % window / sums * lanes + lane;
    plan.multiplier[block * registerBytes + half * sums + o % sums] =
        static_cast<uint16_t>(length ? 32768 / length + 1 : 0);
    at += length;
  }
}

/// The working memory of a call, and the pass over it.
class Reduction {
 public:
  Reduction(const RastArea& area, const RastPlaneSet& planes, const RastZoomParam& param)
      : area_(area), param_(param), width_(static_cast<size_t>(area.nWidth)) {
    for (uint32_t p = 0; p < param.nPlaneNum; ++p) {
      in_[p] = planes.pIn[p];
      out_[p] = planes.pOut[p];
    }
  }

  uint32_t run(const Rows* rows) {
    if (!allocate()) return RAST_ERR_NO_MEMORY;
    // Ratios above 1.0 are admitted and produce nothing.
    const bool writes = param_.nRatioX <= kWhole && area_.nStartY < area_.nHeight;
    if (writes && !(rows && (copies(*rows) || reduces(*rows)))) reduceByDefinition();
    free(source_);
    releaseSet(means_, param_.nPlaneNum);
    releaseSet(sums_, param_.nPlaneNum);
    return RAST_OK;
  }

 private:
  bool allocate() {
    source_ = static_cast<const uint8_t**>(malloc(param_.nPlaneNum * sizeof(uint8_t*)));
    if (!source_) return false;
    means_ = allocateSet(param_.nPlaneNum, width_);
    if (means_) sums_ = allocateSet(param_.nPlaneNum, 2 * width_);
    if (sums_) return true;
    // If the sums fail, the means before them stay allocated: the interface is so.
    free(source_);
    return false;
  }

  /// Moves to a line that is there.
  void moveTo(int64_t y) {
    const auto below = static_cast<ptrdiff_t>((y - area_.nStartY) * area_.nLineWidth);
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
      source_[p] = in_[p] + lineOffset(area_, 0) + below;
    }
  }

  void reduceByDefinition() {
    Group group{param_.nRatioY};
    for (int32_t y = area_.nStartY; y < area_.nHeight; ++y) {
      const bool completes = group.add();
      moveTo(y);
      for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
        auto* const sums = reinterpret_cast<uint16_t*>(sums_[p]);
        if (completes) {
          definition::meanLine(means_[p], sums, source_[p], width_, group.count);
        } else {
          definition::sumLine(sums, source_[p], width_, group.count == 1);
        }
      }
      if (!completes) continue;
      emitByDefinition();
      group.begin();
    }
    if (group.count == 0) return;
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
      definition::meanLine(means_[p], reinterpret_cast<uint16_t*>(sums_[p]), nullptr, width_,
                           group.count);
    }
    emitByDefinition();
  }

  void emitByDefinition() {
    const size_t written = definition::reduce(means_, width_, out_, param_);
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) out_[p] += written;
  }

  /// True when kernels can be used and give the same to the byte: sums of lines do not wrap, and
  /// output lines of different planes share no byte. These are written one sample of each plane at
  /// a time, after all samples for them have been read.
  bool served(const Rows& rows) const {
    constexpr uint32_t leastRatioY = 4;
    if (param_.nRatioY < leastRatioY || width_ < rows.registerBytes) return false;
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
      for (uint32_t other = 0; other < p; ++other) {
        if (!apart(out_[p], width_, out_[other], width_)) return false;
      }
    }
    return true;
  }

  /// True when the level can follow a plan and enough is reduced to repay making one. The windows
  /// of a line's last block reach past its end, by less than the least width: a line's mean stands
  /// in a buffer of twice the width.
  bool planned(const Rows& rows) const {
    constexpr int32_t leastWidth = 512;
    constexpr int32_t leastLines = 16;
    return rows.reduce && param_.nRatioX >= kWhole / 4 && param_.nRatioX < kWhole &&
           area_.nWidth >= leastWidth && area_.nHeight - int64_t{area_.nStartY} >= leastLines;
  }

  /// Where kernels serve: one plane after the other if none touches another, because memory
  /// delivers few streams faster than many; otherwise group by group.
  bool reduces(const Rows& rows) {
    if (!served(rows)) return false;
    // The whole groups of a line, and the samples of a last, cut group.
    const uint64_t width = width_;
    const uint64_t ratio = param_.nRatioX;
    const auto outputs = static_cast<size_t>(width * ratio / kWhole);
    const auto rest = static_cast<size_t>(width - (outputs * uint64_t{kWhole} + ratio - 1) / ratio);
    const bool halves = ratio == kWhole / 2 && outputs >= rows.registerBytes;
    LinePlan plan;
    const bool plans = !halves && planned(rows);
    if (plans) planLine(plan, param_.nRatioX, outputs, rows.registerBytes);
    const auto emit = [&](const uint8_t* mean, uint8_t*& out) {
      if (ratio == kWhole) {
        rows.copy(out, mean, width_);
      } else if (halves) {
        rows.halve(out, mean, outputs);
      } else if (plans) {
        reduceByPlan(rows, plan, mean, outputs, out);
      } else {
        reduceGroups(param_.nRatioX, mean, outputs, out);
      }
      out += outputs;
      if (rest != 0) *out++ = meanOfRest(mean + width_ - rest, rest);
    };
    moveTo(area_.nStartY);
    const auto lines = static_cast<size_t>(area_.nHeight - int64_t{area_.nStartY});
    const auto written = static_cast<size_t>(lines * uint64_t{param_.nRatioY} / kWhole + 1);
    if (planesApart(lines, (outputs + (rest != 0)) * written)) {
      for (uint32_t p = 0; p < param_.nPlaneNum; ++p) reducePlanes(rows, p, p + 1, emit);
    } else {
      reducePlanes(rows, 0, param_.nPlaneNum, emit);
    }
    return true;
  }

  /// Group by group, the planes from `first` to the one before `end`. The definition's sums hold the
  /// mean, its means the first line of the last group of two, which a group of one adds again.
  template <class Emit>
  void reducePlanes(const Rows& rows, uint32_t first, uint32_t end, Emit emit) {
    GroupLengths groups{param_.nRatioY};
    for (int64_t y = area_.nStartY; y < area_.nHeight;) {
      const auto left = static_cast<size_t>(area_.nHeight - y);
      const size_t length = groups.next();
      const size_t lines = length < left ? length : left;
      moveTo(y);
      for (uint32_t p = first; p < end; ++p) {
        uint8_t* const mean = sums_[p];
        uint8_t* const carried = means_[p];
        if (lines > 1) {
          if (groups.shorter == 1) rows.copy(carried, source_[p], width_);
          rows.mean(mean, source_[p], area_.nLineWidth, lines, width_);
        } else if (length == 1 && param_.nRatioY < kWhole) {
          rows.add(mean, carried, source_[p], width_);
        } else {
          rows.copy(mean, source_[p], width_);
        }
      }
      for (uint32_t p = first; p < end; ++p) emit(sums_[p], out_[p]);
      y += static_cast<int64_t>(lines);
    }
  }

  /// A period at a time. The samples of the last register past the last output are not written.
  void reduceByPlan(const Rows& rows, const LinePlan& plan, const uint8_t* line, size_t outputs,
                    uint8_t* out) {
    for (size_t left = outputs; left != 0; line += LinePlan::kPeriod) {
      const size_t wanted = left < param_.nRatioX ? left : param_.nRatioX;
      const size_t blocks = (wanted + rows.registerBytes - 1) / rows.registerBytes;
      const bool fits = blocks * rows.registerBytes <= left;
      const size_t direct = fits ? blocks : blocks - 1;
      rows.reduce(out, line, plan, 0, direct);
      if (!fits) {
        uint8_t last[LinePlan::kMostRegisterBytes];
        rows.reduce(last, line, plan, direct, blocks);
        const size_t done = direct * rows.registerBytes;
        memcpy(out + done, last, wanted - done);
      }
      out += wanted;
      left -= wanted;
    }
  }

  static uint8_t meanOfRest(const uint8_t* samples, size_t count) {
    uint32_t sum = 0;
    for (size_t k = 0; k < count; ++k) sum += samples[k];
    return static_cast<uint8_t>((sum & 0xFFFF) / count);
  }

  /// True when no output, of `written` samples, touches another one or a source line of any plane.
  /// The current line is the first of `lines`.
  bool planesApart(size_t lines, size_t written) const {
    const size_t read = (lines - 1) * static_cast<size_t>(area_.nLineWidth) + width_;
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
      for (uint32_t other = 0; other < param_.nPlaneNum; ++other) {
        if (!apart(out_[p], written, source_[other], read)) return false;
        if (other < p && !apart(out_[p], written, out_[other], written)) return false;
      }
    }
    return true;
  }

  /// Copies, if neither direction is reduced and planes are apart: in one piece where lines follow
  /// one another.
  bool copies(const Rows& rows) {
    if (param_.nRatioX != kWhole || param_.nRatioY != kWhole) return false;
    moveTo(area_.nStartY);
    const auto lines = static_cast<size_t>(area_.nHeight - int64_t{area_.nStartY});
    const auto pitch = static_cast<size_t>(area_.nLineWidth);
    if (!planesApart(lines, lines * width_)) return false;
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
      if (pitch == width_) {
        memcpy(out_[p], source_[p], lines * width_);
        continue;
      }
      for (size_t y = 0; y < lines; ++y) {
        rows.copy(out_[p] + y * width_, source_[p] + y * pitch, width_);
      }
    }
    return true;
  }

  const RastArea area_;
  const RastZoomParam param_;
  const size_t width_;
  const uint8_t* in_[kMaxPlanes];
  uint8_t* out_[kMaxPlanes];
  const uint8_t** source_ = nullptr;  // the current source line of each plane
  uint8_t** means_ = nullptr;         // an averaged line of each
  uint8_t** sums_ = nullptr;          // 16-bit sums of a group of lines of each
};

bool isRatio(uint32_t ratio) { return ratio >= 1 && ratio <= kMaxRatio; }

}  // namespace

uint32_t zoom(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
              const RastZoomParam* pParam) {
  if (!pParam || pParam->nPlaneNum < 1 || pParam->nPlaneNum > kMaxPlanes)
    return RAST_ERR_INVALID_ARG;
  if (!pArea || !hasExtent(*pArea) || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes) return RAST_ERR_INVALID_ARG;
  for (size_t i = 0; i < 4; ++i) {
    if (pPlanes->pIn[i] && !pPlanes->pOut[i]) return RAST_ERR_INVALID_ARG;
  }
  if (pPlanes->nSize < 1) return RAST_ERR_INVALID_ARG;
  if (!isRatio(pParam->nRatioX) || !isRatio(pParam->nRatioY)) return RAST_ERR_INVALID_ARG;
  if (pParam->nRatioY > kWhole) return RAST_OK;
  return Reduction(*pArea, *pPlanes, *pParam).run(rows);
}

}  // namespace rast

uint32_t rastZoom(const RastArea* pArea, const RastPlaneSet* pPlanes, const RastZoomParam* pParam) {
  return rast::zoom(rast::rows(), pArea, pPlanes, pParam);
}
