// Calls of the operations that move samples: rotation through bands, reduction, shift.
#include <algorithm>
#include <cstddef>

#include "draft.h"
#include "frame/frame.h"
#include "frame/operations.h"
#include "rast.h"
#include "support/heap.h"

namespace rast::test {

namespace {

/// The lowest and the highest of some whole numbers.
struct Range {
  ptrdiff_t low = 0;
  ptrdiff_t high = -1;

  bool empty() const { return high < low; }
  void hold(ptrdiff_t value) {
    low = empty() ? value : std::min(low, value);
    high = std::max(empty() ? value : high, value);
  }
};

/// Lines first .. last of `columns`, `pitch` apart.
Region linesOf(const char* name, size_t k, const Range& lines, const Range& columns,
               ptrdiff_t pitch) {
  if (lines.empty() || columns.empty()) return {name, k, 0, 0};
  const ptrdiff_t lowest = std::min(lines.low * pitch, lines.high * pitch) + columns.low;
  const ptrdiff_t highest = std::max(lines.low * pitch, lines.high * pitch) + columns.high;
  return {name, k, lowest, static_cast<size_t>(highest - lowest + 1)};
}

/// A page turned through bands.
class Rotation {
 public:
  explicit Rotation(Draft& draft) : draft_(draft), clockwise_(draft.oneIn(2)) {
    drawSource();
    drawPage();
    drawOutput();
    placeInput();
    placeOutput();
    constexpr size_t size = sizeof(RastRotateCtx);
    uint8_t* const at = draft.placeIn(draft.take(size), size, alignof(RastRotateCtx));
    draft.tell({"RastRotateCtx", 0, 0, size, at});
    ctx_ = reinterpret_cast<RastRotateCtx*>(at);
    if (!everyLineThere_ || draft.oneIn(2)) memset(at, 0, size);
    ctx_->nPlaneNum = 0;
    draft.mayCover(outRegions_);
    pArea_ = draft.put<int32_t>("RastArea", area_);
    pBand_ = draft.put<int32_t>("RastRotateBand", page_, offsetof(RastRotateBand, nLines));
    draft.tell(mode());
    draft.tell(page_.nPlaneNum);
    for (const RastRotateBand& band : inBands_) draft.tell(band.nLines);
    for (const RastRotateBand& band : outBands_) draft.tell(band.nLines);
  }

  Run run() {
    if (draft_.oneIn(8)) return firstInput();
    if (draft_.oneIn(8)) return firstOutput();
    return [rotation = *this](const Way& way) {
      Answers answers = rotation.takeIn();
      for (const RastRotateBand& band : rotation.outBands_) {
        *rotation.pBand_ = band;
        answers.push_back(output(way, rotation.pBand_, rotation.ctx_));
      }
      return answers;
    };
  }

 private:
  static constexpr size_t kBands = 128;
  static constexpr int32_t kMostBytes = 60000;

  void drawSource() {
    const bool wide = draft_.oneIn(16);
    area_.nWidth = draft_.pick(1, wide ? 5000 : 300);
    area_.nHeight = draft_.pick(1, wide ? 9 : 150);
    area_.nStartX = draft_.pick(-5, 10);
    area_.nStartY = draft_.pick(0, wide ? 5 : 60);
    area_.nLineWidth = draft_.oneIn(8) ? draft_.pick(-area_.nWidth, area_.nWidth)
                                       : area_.nWidth + draft_.pick(0, 40);
    // Bands of unequal height, some without lines or even less.
    const int32_t lines = area_.nStartY + area_.nHeight;
    const int32_t tallest = draft_.oneIn(2) ? 9 : 100;
    for (int32_t total = 0; total < lines; total += heights_.back()) {
      heights_.push_back(draft_.oneIn(6) ? draft_.pick(-2, 0) : draft_.pick(1, tallest));
      if (heights_.size() == kBands) heights_.back() = lines - total;
    }
  }

  /// The output page, sometimes with lines of the planes that take turns or lie close together.
  void drawPage() {
    const int32_t planes = draft_.pick(1, 4);
    page_.nPlaneNum = planes;
    page_.nOutStartX = draft_.pick(-20, 20);
    page_.nOutStartY = draft_.pick(-3, 9);
    page_.nOutLineWidth = page_.nOutStartX + area_.nHeight + draft_.pick(0, 9);
    page_.nOutHeight = page_.nOutStartY + area_.nWidth + draft_.pick(0, 3);
    page_.nReserved = draft_.any<int32_t>();
    planeStep_ = draft_.oneIn(8) ? draft_.pick(0, 40) : 0;
    if (!draft_.oneIn(5)) return;
    planeStep_ = std::max(1, area_.nHeight + draft_.pick(-2, 9));
    page_.nOutLineWidth = std::max(page_.nOutLineWidth, planes * planeStep_ + draft_.pick(-2, 9));
  }

  /// The output bands, followed to what each writes and to the source columns that it reads.
  void drawOutput() {
    const int32_t pitch = page_.nOutLineWidth;
    const int32_t top = page_.nOutStartY;
    const int32_t end = top + area_.nWidth;
    const int32_t step = clockwise_ ? 1 : -1;
    const int32_t most =
        std::max(1, std::min(draft_.oneIn(2) ? 70 : 5000, kMostBytes / (std::abs(pitch) + 1)));
    const int32_t past = draft_.oneIn(8) ? draft_.pick(0, 20) : 0;
    int32_t column = area_.nStartX + (clockwise_ ? 0 : area_.nWidth - 1);
    int32_t position = 0;
    for (int32_t i = draft_.pick(1, 12); i > 0; --i) {
      RastRotateBand band{};
      band.nLines = draft_.pick(0, most);
      // A band from above may reach past the image, and then reads beyond the rectangle.
      if (position < top) band.nLines = std::min(band.nLines, end + past - position);
      band.nOutLineWidth = draft_.oneIn(8) ? draft_.pick(0, 50) : pitch;
      const int32_t next = position + band.nLines;
      const int32_t above = std::max(0, top - position);
      const bool refused = next == top && position < top;
      int32_t written = 0;
      if (next > top && position <= end)
        written = above ? next - top : std::min(next, end) - position;
      if (written > 0) {
        columns_.hold(column);
        columns_.hold(column + step * (written - 1));
      }
      column += step * written;
      const ptrdiff_t left = page_.nOutStartX + ptrdiff_t{above} * band.nOutLineWidth;
      outRegions_.push_back(linesOf("pOut", outBands_.size(), {0, written - 1},
                                    {left, left + area_.nHeight - 1}, pitch));
      outBands_.push_back(band);
      if (!refused && position <= end) position = next;
    }
  }

  /// The lines of each band that are read, as the interface finds them.
  std::vector<Range> linesRead() {
    std::vector<Range> read(heights_.size());
    size_t k = 0;
    ptrdiff_t total = heights_[0];
    while (total < area_.nStartY && ++k < heights_.size()) total += heights_[k];
    ptrdiff_t line = k == 0 ? area_.nStartY : area_.nStartY - heights_[k - 1];
    ptrdiff_t passed = line;
    ptrdiff_t left = 0;
    for (int32_t i = 0; i < area_.nHeight && k < heights_.size(); ++i) {
      read[k].hold(line++);
      if (left + heights_[k] > ++passed) continue;
      left += heights_[k++];
      line = 0;
      everyLineThere_ = k < heights_.size() || i + 1 == area_.nHeight;
    }
    return read;
  }

  /// Each plane's bands lie in one slot, where they may overlap one another: they are only read.
  void placeInput() {
    const std::vector<Range> read = linesRead();
    std::vector<Region> regions;
    size_t room = 1;
    for (size_t k = 0; k < read.size(); ++k) {
      regions.push_back(linesOf("pIn", k, read[k], columns_, area_.nLineWidth));
      room = std::max(room, regions[k].size);
    }
    for (int32_t p = 0; p < page_.nPlaneNum; ++p) inSlots_.push_back(draft_.take(room + 12000));
    for (size_t k = 0; k < read.size(); ++k) {
      RastRotateBand band = page_;
      band.nLines = heights_[k];
      for (size_t p = 0; p < 4; ++p) {
        band.pIn[p] = draft_.garbage();
        band.pOut[p] = draft_.garbage();
        if (p >= inSlots_.size()) continue;
        regions[k].at = draft_.placeIn(inSlots_[p], regions[k].size);
        band.pIn[p] = p == 0 ? draft_.checkedPointerTo(regions[k]) : draft_.pointerTo(regions[k]);
        draft_.tell(regions[k]);
      }
      inBands_.push_back(band);
    }
  }

  /// Outputs in memory of their own, or over the sources.
  void placeOutput() {
    const bool over = draft_.oneIn(6);
    const auto planes = static_cast<size_t>(page_.nPlaneNum);
    const auto step = static_cast<size_t>(planeStep_);
    const size_t behind = (planes - 1) * step;
    size_t room = 1;
    for (const Region& region : outRegions_) room = std::max(room, region.size + behind);
    std::vector<Arena::Slot> slots;
    const auto turn = draft_.pick<size_t>(0, 3);
    for (size_t p = 0; p < (step ? 1 : planes); ++p) {
      const Arena::Slot source = inSlots_[(p + turn) % planes];
      slots.push_back(over && room <= source.size() ? source : draft_.take(room));
    }
    for (size_t i = 0; i < outBands_.size(); ++i) {
      Region& region = outRegions_[i];
      for (size_t p = 0; p < 4; ++p) {
        outBands_[i].pOut[p] = draft_.garbage();
        if (p >= planes) continue;
        const bool follows = step && p > 0;
        region.at = follows ? region.at + step : draft_.placeIn(slots[p], region.size + behind);
        outBands_[i].pOut[p] = p == 0 ? draft_.checkedPointerTo(region) : draft_.pointerTo(region);
        draft_.tell(region);
      }
    }
  }

  uint32_t mode() const { return clockwise_ ? RAST_ROTATE_CW90 : RAST_ROTATE_CCW90; }

  Answers takeIn() const {
    Answers answers;
    for (const RastRotateBand& band : inBands_) {
      assign(*pBand_, band);
      answers.push_back(rastRotateInputAccumulate(pArea_, pBand_, ctx_, mode()));
    }
    return answers;
  }

  static uint32_t output(const Way& way, const RastRotateBand* band, RastRotateCtx* ctx) {
    return way.exported ? rastRotateSockOutput(band, ctx) : rotateSockOutput(way.rows, band, ctx);
  }

  /// The first band alone, with an argument that may be broken; of a rotation under way it may be
  /// the context.
  Run firstInput() {
    assign(*pBand_, inBands_[0]);
    pBand_->pIn[0] = draft_.needed(pBand_->pIn[0]);
    pBand_->nPlaneNum = draft_.within(pBand_->nPlaneNum, 1, 4);
    pBand_->nOutHeight = draft_.within(pBand_->nOutHeight, page_.nOutStartY + area_.nWidth);
    pBand_->nOutLineWidth = draft_.within(pBand_->nOutLineWidth, page_.nOutStartX + area_.nHeight);
    ctx_->nPlaneNum = draft_.oneIn(2) ? draft_.within(0, 0, 4) : 0;
    if (draft_.oneIn(4) && !draft_.refused()) {
      ctx_->nPlaneNum = 1;
      ctx_->nBandNum = draft_.within(0, 0, kBands - 1);
    }
    const auto call = [](const Rows*, const RastArea* area, const RastRotateBand* band,
                         RastRotateCtx* ctx, uint32_t mode) {
      return rastRotateInputAccumulate(area, band, ctx, mode);
    };
    return draft_.call(call, rastRotateInputAccumulate, draft_.needed(pArea_),
                       draft_.needed(pBand_), draft_.needed(ctx_), draft_.within(mode(), 0, 3));
  }

  Run firstOutput() {
    takeIn();
    assign(*pBand_, outBands_[0]);
    pBand_->pOut[0] = draft_.needed(pBand_->pOut[0]);
    ctx_->nPlaneNum = draft_.within(ctx_->nPlaneNum, 1, 4);
    ctx_->nBandNum = draft_.within(ctx_->nBandNum, 0, kBands);
    ctx_->nRotate = draft_.within(ctx_->nRotate, 0, 2);
    return draft_.call(rotateSockOutput, rastRotateSockOutput, draft_.needed(pBand_),
                       draft_.needed(ctx_));
  }

  Draft& draft_;
  bool clockwise_;
  RastArea area_{};
  RastRotateBand page_{};
  std::vector<int32_t> heights_;
  std::vector<RastRotateBand> inBands_;
  std::vector<RastRotateBand> outBands_;
  std::vector<Region> outRegions_;
  std::vector<Arena::Slot> inSlots_;
  Range columns_;  // read of the source
  bool everyLineThere_ = true;
  int32_t planeStep_ = 0;  // from one output plane to the next; 0 where each has its own memory
  RastRotateCtx* ctx_ = nullptr;
  const RastArea* pArea_ = nullptr;
  RastRotateBand* pBand_ = nullptr;
};

/// The groups of a ratio up to 1000 among `count` lines or samples.
int32_t groupsOf(int32_t count, uint32_t ratio) {
  uint32_t progress = 0;
  int32_t groups = 0;
  for (int32_t i = 0; i < count; ++i) {
    progress += ratio;
    if (progress < 1000 && i + 1 < count) continue;
    progress -= std::min(progress, 1000U);
    ++groups;
  }
  return groups;
}

/// A ratio in thousandths, of every kind that reduces differently.
uint32_t ratio(Draft& draft) {
  static constexpr uint32_t ends[][2] = {
      {1000, 1000}, {501, 999}, {1, 1000}, {1, 6}, {1001, 25399}};
  const auto& [lowest, highest] = ends[draft.pick<size_t>(0, draft.oneIn(8) ? 4 : 2)];
  return draft.pick<uint32_t>(lowest, highest);
}

/// Source lines in every proportion: few and wide ones, many and narrow ones, and those that are
/// just worth a plan.
RastArea zoomedArea(Draft& draft) {
  static constexpr int32_t widths[][2] = {{1, 300}, {500, 1100}, {1, 40}, {1000, 3000}, {1, 5000}};
  static constexpr int32_t heights[][2] = {{1, 12}, {15, 18}, {1, 1200}, {14, 18}, {1, 6}};
  const auto kind = draft.pick<size_t>(0, draft.oneIn(4) ? 4 : 1);
  RastArea area{};
  area.nWidth = draft.pick(widths[kind][0], widths[kind][1]);
  const int32_t lines = draft.pick(heights[kind][0], heights[kind][1]);
  const int32_t beside = draft.oneIn(3) ? 0 : 40;  // or lines that follow one another
  area.nStartX = draft.pick(draft.oneIn(8) ? -area.nWidth : 0, beside / 4);
  area.nLineWidth = std::max(1, area.nStartX + area.nWidth) + draft.pick(0, beside);
  area.nStartY = draft.oneIn(8) ? draft.pick(0, INT32_MAX - lines) : draft.pick(1 - lines, 3);
  area.nHeight = area.nStartY + lines;
  if (draft.oneIn(16)) area.nStartY = draft.pick(area.nHeight, INT32_MAX);
  return area;
}

/// What a shift copies: from the source's first column and line on, `columns` of `lines`.
struct Shifted {
  bool kept;  // a negative offset keeps first columns and lines, without a margin
  int32_t left, top, columns, lines, outLines;

  Shifted(const RastArea& area, const RastShiftParam& param)
      : kept(param.nShiftX < 0),
        left(kept ? 0 : param.nShiftX),
        top(kept ? 0 : param.nShiftY),
        columns(kept ? area.nWidth + param.nShiftX
                     : std::min(area.nWidth, param.nOutLineWidth - left)),
        lines(kept ? area.nHeight + param.nShiftY : std::min(area.nHeight, param.nOutHeight - top)),
        outLines(std::max(param.nOutHeight, top + lines)) {}
};

/// The output page of a shift, sample by sample.
void shift(const RastArea& area, const uint8_t* in, uint8_t* out, const RastShiftParam& param) {
  const Shifted shifted(area, param);
  for (int32_t y = 0; y < shifted.outLines; ++y) {
    for (int32_t x = 0; x < param.nOutLineWidth; ++x, ++out) {
      const int32_t column = x - shifted.left;
      const int32_t line = y - shifted.top;
      if (column >= 0 && column < shifted.columns && line >= 0 && line < shifted.lines) {
        *out = in[lineOffset(area, line) + column];
      } else if (param.nFillMode != 0) {
        *out = param.nFillMode == 1 ? 0 : 255;
      }
    }
  }
}

/// The area with a field that may be broken.
const RastArea* checkedArea(Draft& draft, RastArea area) {
  area.nLineWidth = draft.within(area.nLineWidth, std::max(1, area.nStartX + area.nWidth));
  area.nWidth = draft.within(area.nWidth, 1);
  area.nHeight = draft.within(area.nHeight, 1);
  return draft.record<int32_t>("RastArea", area);
}

}  // namespace

Run drawRotate(Draft& draft) { return Rotation(draft).run(); }

Run drawZoom(Draft& draft) {
  const RastArea area = zoomedArea(draft);
  RastZoomParam param{draft.pick<uint32_t>(1, 3), ratio(draft), ratio(draft)};
  const int32_t lines = std::max(0, area.nHeight - area.nStartY);
  const bool writes = lines != 0 && param.nRatioX <= 1000 && param.nRatioY <= 1000;
  const ptrdiff_t read = writes ? ptrdiff_t{lines - 1} * area.nLineWidth + area.nWidth : 0;
  const ptrdiff_t written =
      writes ? ptrdiff_t{groupsOf(area.nWidth, param.nRatioX)} * groupsOf(lines, param.nRatioY) : 0;
  std::vector<Region> in;
  std::vector<Region> out;
  for (size_t k = 0; k < param.nPlaneNum; ++k) {
    in.push_back({"pIn", k, lineOffset(area, 0), static_cast<size_t>(read)});
    out.push_back({"pOut", k, 0, static_cast<size_t>(written)});
  }
  draft.arrange(in, out, area.nLineWidth, area.nWidth);
  RastPlaneSet set{};
  for (size_t k = 0; k < 4; ++k) {
    const bool used = k < in.size();
    set.pIn[k] = used ? draft.pointerTo(in[k]) : draft.garbage();
    set.pOut[k] = used ? draft.pointerTo(out[k]) : draft.garbage();
    if (set.pIn[k]) set.pOut[k] = draft.needed(set.pOut[k] ? set.pOut[k] : out[0].at);
  }
  set.nSize = draft.valid<int32_t>(1, INT32_MAX);
  param.nPlaneNum = draft.within(param.nPlaneNum, 1, 3);
  param.nRatioX = draft.within(param.nRatioX, 1, 25399);
  param.nRatioY = draft.within(param.nRatioY, 1, 25399);
  const RastArea* const pArea = checkedArea(draft, area);
  const auto* const pPlanes = draft.record<int32_t>("RastPlaneSet", set, sizeof set);
  const auto* const pParam = draft.record<int32_t>("RastZoomParam", param);
  const int failing = draft.oneIn(8) ? draft.pick(0, 9) : -1;
  return [failing, call = draft.call(zoom, rastZoom, pArea, pPlanes, pParam)](const Way& way) {
    heap.watch(failing);
    Answers answers = call(way);
    for (const size_t size : heap.requested) answers.push_back(static_cast<uint32_t>(size));
    for (const size_t size : heap.release()) answers.push_back(static_cast<uint32_t>(size));
    return answers;
  };
}

Run drawImageShift(Draft& draft) {
  RastArea area{};
  area.nWidth = draft.pick(1, draft.oneIn(16) ? 5000 : 300);
  area.nHeight = draft.pick(1, 9);
  area.nStartX = draft.pick(-5, 20);
  area.nStartY = draft.pick(-3, 3);
  area.nLineWidth = std::max(1, area.nStartX + area.nWidth) + draft.pick(0, 40);
  RastShiftParam param{};
  const bool kept = area.nWidth > 1 && draft.oneIn(3);
  param.nShiftX = kept ? draft.pick(1 - area.nWidth, -1) : draft.pick(0, 300);
  param.nShiftY = draft.pick(kept ? 1 - area.nHeight : 0, 9);
  // Lines are no longer than the page is wide, and offsets lie within it.
  param.nOutLineWidth = std::max(1, param.nShiftX + (kept ? area.nWidth : 0)) + draft.pick(0, 300);
  param.nOutHeight = std::max(kept ? 0 : param.nShiftY, 1) + draft.pick(0, 9);
  param.nFillMode = draft.pick<uint32_t>(0, 2);
  const auto planeMode = draft.pick<uint32_t>(0, 1);

  const Shifted shifted(area, param);
  std::vector<Region> in;
  std::vector<Region> out;
  RastPlaneSet set{};
  for (size_t k = 0; k < 4; ++k) {
    set.pIn[k] = draft.garbage();
    set.pOut[k] = draft.garbage();
    if ((k == 3) != (planeMode == 1)) continue;
    in.push_back(
        linesOf("pIn", k, {0, shifted.lines - 1}, {0, shifted.columns - 1}, area.nLineWidth));
    if (in.back().size) in.back().lowest += lineOffset(area, 0);
    out.push_back(linesOf("pOut", k, {0, shifted.outLines - 1}, {0, param.nOutLineWidth - 1},
                          param.nOutLineWidth));
    for (Region* region : {&in.back(), &out.back()}) {
      region->at = draft.placeIn(draft.take(region->size), region->size);
      draft.tell(*region);
    }
    // Either the first or the mono source must be set.
    set.pIn[k] = k == 1 || k == 2 ? draft.pointerTo(in.back()) : draft.checkedPointerTo(in.back());
    set.pOut[k] = draft.pointerTo(out.back());
  }
  draft.mayCover(out);
  set.nSize = draft.valid<int32_t>(1, INT32_MAX);
  RastShiftParam checked = param;
  checked.nFillMode = draft.within(param.nFillMode, 0, 2);
  checked.nShiftX = draft.within(param.nShiftX, 1 - area.nWidth);
  checked.nShiftY = draft.within(param.nShiftY, 1 - area.nHeight);
  const RastArea* const pArea = checkedArea(draft, area);
  const auto* const pPlanes = draft.record<int32_t>("RastPlaneSet", set, sizeof set);
  const auto* const pParam = draft.record<int32_t>("RastShiftParam", checked);
  const auto defined = [=, refused = draft.refused()](const Rows* rows, const RastArea* pA,
                                                      const RastPlaneSet* pS,
                                                      const RastShiftParam* pP, uint32_t mode) {
    if (rows || refused || mode > 1) return imageShift(rows, pA, pS, pP, mode);
    for (size_t k = 0; k < in.size(); ++k) shift(area, in[k].pointer(), out[k].pointer(), param);
    return uint32_t{RAST_OK};
  };
  return draft.call(defined, rastImageShift, pArea, pPlanes, pParam, draft.within(planeMode, 0, 1));
}

}  // namespace rast::test
