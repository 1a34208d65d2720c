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

/// The sum formed with a group's last line does not wrap; of the quotient 8 bits are kept.
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

/// Ratios above 1.0 are admitted and produce nothing; the driver moves on by this count all the
/// same.
size_t enlarge(const uint8_t* const*, size_t, uint8_t* const*, const RastZoomParam&) {
  return RAST_ERR_NOT_SUPPORTED;
}

/// The lengths of the groups of a ratio, which repeat after at most 1,000 samples.
struct GroupLengths {
  uint32_t ratio;
  uint16_t length[kWhole];
  size_t count = 0;

  /// Of no use, but harmless, for ratios above 1.0.
  explicit GroupLengths(uint32_t perThousand) : ratio(perThousand < kWhole ? perThousand : kWhole) {
    Group group{ratio};
    do {
      while (!group.add()) {
      }
      length[count++] = static_cast<uint16_t>(group.count);
      group.begin();
    } while (group.progress != 0);
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

/// definition::reduce for one plane, group by group. A ratio's groups have one of two lengths.
size_t reducePlane(const GroupLengths& groups, const uint8_t* line, size_t width, uint8_t* out) {
  const size_t shorter = kWhole / groups.ratio;
  const Divisor byShorter(static_cast<uint32_t>(shorter));
  const Divisor byLonger(static_cast<uint32_t>(shorter + 1));
  size_t written = 0;
  size_t at = 0;
  uint32_t before =
      0;  // the sum of a group but for its last sample, which a group of one adds again
  for (size_t i = 0;; i = i + 1 == groups.count ? 0 : i + 1) {
    const size_t length = groups.length[i];
    if (width - at < length) break;
    if (length > 1) {
      before = line[at];
      for (size_t k = 1; k + 1 < length; ++k) before += line[at + k];
      before &= 0xFFFF;
    }
    at += length;
    out[written++] = (length == shorter ? byShorter : byLonger).quotient(before + line[at - 1]);
  }
  if (at < width) {
    before = 0;
    for (size_t k = at; k < width; ++k) before += line[k];
    out[written++] = static_cast<uint8_t>((before & 0xFFFF) / (width - at));
  }
  return written;
}

/// The working memory of a call, and the pass over it.
class Reduction {
 public:
  Reduction(const Rows* rows, const RastArea& area, const RastPlaneSet& planes,
            const RastZoomParam& param)
      : area_(area),
        param_(param),
        width_(static_cast<size_t>(area.nWidth)),
        groups_(param.nRatioX) {
    for (uint32_t p = 0; p < param.nPlaneNum; ++p) {
      line_[p] = planes.pIn[p] + lineOffset(area, 0);
      out_[p] = planes.pOut[p];
    }
    // Sums in kernels do not wrap where a group's lines are at most 257.
    constexpr uint32_t leastRatioOfKernels = 4;
    if (param.nRatioY >= leastRatioOfKernels) rows_ = rows;
    planewise_ = rows && param.nRatioX <= kWhole && outputsApart();
  }

  uint32_t run() {
    if (!allocate()) return RAST_ERR_NO_MEMORY;
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) source_[p] = line_[p];
    Group group{param_.nRatioY};
    for (int32_t y = area_.nStartY; y < area_.nHeight; ++y) {
      if (group.add()) {
        for (uint32_t p = 0; p < param_.nPlaneNum; ++p) mean(p, source_[p], group.count);
        emit();
        group.begin();
      } else {
        for (uint32_t p = 0; p < param_.nPlaneNum; ++p) sum(p, group.count == 1);
      }
      for (uint32_t p = 0; p < param_.nPlaneNum; ++p) source_[p] += area_.nLineWidth;
    }
    if (group.count != 0) {
      for (uint32_t p = 0; p < param_.nPlaneNum; ++p) mean(p, nullptr, group.count);
      emit();
    }
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
    // Where it is the sums that failed, the means before them stay allocated: the interface is so.
    free(source_);
    return false;
  }

  /// True when output lines of different planes share no byte. They are written one sample of each
  /// plane at a time, after all that is read for them has been read.
  bool outputsApart() const {
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
      for (uint32_t other = 0; other < p; ++other) {
        if (!apart(out_[p], width_, out_[other], width_)) return false;
      }
    }
    return true;
  }

  uint16_t* sumsOf(uint32_t p) { return reinterpret_cast<uint16_t*>(sums_[p]); }

  void sum(uint32_t p, bool first) {
    if (rows_) {
      rows_->sum(sumsOf(p), source_[p], width_, first);
    } else {
      definition::sumLine(sumsOf(p), source_[p], width_, first);
    }
  }

  void mean(uint32_t p, const uint8_t* line, uint32_t count) {
    if (rows_ && line && param_.nRatioY == kWhole) {
      memcpy(means_[p], line, width_);
    } else if (rows_) {
      rows_->mean(means_[p], sumsOf(p), line, width_, static_cast<uint16_t>(count));
    } else {
      definition::meanLine(means_[p], sumsOf(p), line, width_, count);
    }
  }

  void emit() {
    size_t written = 0;
    if (planewise_) {
      for (uint32_t p = 0; p < param_.nPlaneNum; ++p) {
        if (param_.nRatioX == kWhole) {
          memcpy(out_[p], means_[p], width_);
          written = width_;
        } else {
          written = reducePlane(groups_, means_[p], width_, out_[p]);
        }
      }
    } else {
      const auto step = param_.nRatioX <= kWhole ? definition::reduce : enlarge;
      written = step(means_, width_, out_, param_);
    }
    for (uint32_t p = 0; p < param_.nPlaneNum; ++p) out_[p] += written;
  }

  const RastArea area_;
  const RastZoomParam param_;
  const size_t width_;
  const GroupLengths groups_;
  const Rows* rows_ = nullptr;
  bool planewise_;
  const uint8_t* line_[kMaxPlanes];  // the first source line of each plane
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
  return Reduction(rows, *pArea, *pPlanes, *pParam).run();
}

}  // namespace rast

uint32_t rastZoom(const RastArea* pArea, const RastPlaneSet* pPlanes, const RastZoomParam* pParam) {
  return rast::zoom(rast::rows(), pArea, pPlanes, pParam);
}
