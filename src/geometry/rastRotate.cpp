// A quarter turn of a page that arrives and leaves in bands.
#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

constexpr int32_t kMaxPlanes = 4;
constexpr int32_t kMaxBands = sizeof RastRotateCtx{}.stBand / sizeof(RastRotateBandEntry);

bool isQuarterTurn(uint32_t nRotate) {
  return nRotate == RAST_ROTATE_CCW90 || nRotate == RAST_ROTATE_CW90;
}

bool hasPlanes(int32_t nPlaneNum) { return nPlaneNum >= 1 && nPlaneNum <= kMaxPlanes; }

bool fitsPage(const RastArea& area, const RastRotateBand& band, uint32_t nRotate) {
  const int32_t columns = wrappingSubtract(band.nOutLineWidth, band.nOutStartX);
  const int32_t lines = wrappingSubtract(band.nOutHeight, band.nOutStartY);
  if (isQuarterTurn(nRotate)) return area.nWidth <= lines && area.nHeight <= columns;
  if (nRotate == RAST_ROTATE_SAME_SIZE) return area.nWidth <= columns && area.nHeight <= lines;
  return true;
}

void begin(RastRotateCtx& ctx, const RastArea& area, const RastRotateBand& band, uint32_t nRotate) {
  ctx.nPlaneNum = band.nPlaneNum;
  ctx.nOutStartX = band.nOutStartX;
  ctx.nOutStartY = band.nOutStartY;
  ctx.nOutLineWidth = band.nOutLineWidth;
  ctx.nOutHeight = band.nOutHeight;
  ctx.nReserved = band.nReserved;
  ctx.stArea = area;
  ctx.nRotate = static_cast<int32_t>(nRotate);
  if (isQuarterTurn(nRotate)) {
    ctx.nRotWidth = area.nHeight;
    ctx.nRotHeight = area.nWidth;
    ctx.nSrcX = area.nStartX;
    if (nRotate == RAST_ROTATE_CCW90) {
      ctx.nSrcX = wrappingSubtract(wrappingAdd(area.nStartX, area.nWidth), 1);
    }
  } else {
    ctx.nRotWidth = area.nWidth;
    ctx.nRotHeight = area.nHeight;
  }
  ctx.nBandNum = 0;
  ctx.nTotalLines = 0;
  ctx.nOutPos = 0;
}

/// Finds the band of the first source line. The offset takes off the lines of one band only, and a
/// line on a border belongs to the band before it: the interface is so.
void locateFirstLine(RastRotateCtx& ctx) {
  const int32_t first = ctx.stArea.nStartY;
  int32_t k = 0;
  int32_t lines = ctx.stBand[0].nLines;
  while (lines < first && ++k < ctx.nBandNum) lines = wrappingAdd(lines, ctx.stBand[k].nLines);
  ctx.pCurBand = ctx.stBand + k;
  ctx.nCurLine = k == 0 ? first : wrappingSubtract(first, ctx.stBand[k - 1].nLines);
}

uint32_t rotateInputAccumulate(const RastArea* pArea, const RastRotateBand* pBand,
                               RastRotateCtx* pCtx, uint32_t nRotate) {
  if (!pArea || !pBand) return RAST_ERR_INVALID_ARG;
  if (!pCtx || nRotate > 3) return RAST_ERR_INVALID_ARG;
  if (!pBand->pIn[0]) return RAST_ERR_INVALID_ARG;
  if (!hasPlanes(pBand->nPlaneNum)) return RAST_ERR_INVALID_ARG;
  RastRotateCtx& ctx = *pCtx;
  if (ctx.nPlaneNum == 0) {
    if (!fitsPage(*pArea, *pBand, nRotate)) return RAST_ERR_INVALID_ARG;
    begin(ctx, *pArea, *pBand, nRotate);
  } else if (!hasPlanes(ctx.nPlaneNum) || ctx.nBandNum < 0 || ctx.nBandNum >= kMaxBands) {
    return RAST_ERR_INVALID_ARG;
  }

  RastRotateBandEntry& entry = ctx.stBand[ctx.nBandNum];
  for (int32_t p = 0; p < ctx.nPlaneNum; ++p) entry.pPlane[p] = pBand->pIn[p];
  entry.nLines = pBand->nLines;
  ++ctx.nBandNum;
  ctx.nTotalLines = wrappingAdd(ctx.nTotalLines, pBand->nLines);
  locateFirstLine(ctx);
  const int32_t end = wrappingAdd(ctx.stArea.nStartY, ctx.stArea.nHeight);
  return ctx.nTotalLines < end ? RAST_OK : RAST_COMPLETE;
}

/// The source lines of a rotation in order, each as the offset of its column cursor from its
/// plane's pointer.
class SourceLines {
 public:
  explicit SourceLines(const RastRotateCtx& ctx)
      : entry_(ctx.pCurBand),
        end_(ctx.stBand + kMaxBands),
        pitch_(ctx.stArea.nLineWidth),
        column_(ctx.nSrcX),
        passed_(ctx.nCurLine),
        offset_(wrappingAdd(wrappingMultiply(ctx.nCurLine, ctx.stArea.nLineWidth), ctx.nSrcX)) {}

  /// False past the bands that the table holds.
  bool present() const { return entry_ < end_ && entry_->pPlane[0]; }
  const uint8_t* plane(int32_t p) const { return entry_->pPlane[p] + offset_; }
  ptrdiff_t pitch() const { return pitch_; }

  /// How many of the next `most` lines follow one another in the same band.
  int32_t run(int32_t most) const {
    const int64_t rest = left_ + entry_->nLines - passed_;
    return rest < 1 ? 1 : rest < most ? static_cast<int32_t>(rest) : most;
  }

  /// Goes on by at most the lines of a run.
  void advance(int32_t lines) {
    passed_ += lines;
    if (left_ + entry_->nLines > passed_) {
      offset_ += lines * pitch_;
      return;
    }
    left_ += entry_->nLines;
    ++entry_;
    offset_ = column_;
  }

 private:
  const RastRotateBandEntry* entry_;
  const RastRotateBandEntry* end_;
  ptrdiff_t pitch_;
  ptrdiff_t column_;
  int64_t passed_;    // source lines behind the next one, counted from the first band's line 0
  int64_t left_ = 0;  // lines of the bands already left
  ptrdiff_t offset_;
};

/// One output band's share of the turned image.
struct Target {
  uint8_t* first[kMaxPlanes];  // where the first source line's first sample goes
  ptrdiff_t pitch;
  ptrdiff_t columnStep;  // from one source line to the next
  ptrdiff_t sourceStep;  // from one output line to the next, in the source line
  int32_t planes;
  int32_t lines;    // to write
  int32_t columns;  // source lines
};

namespace definition {

void rotate(const Target& target, SourceLines source) {
  for (int32_t i = 0; i < target.columns && source.present(); ++i) {
    for (int32_t j = 0; j < target.lines; ++j) {
      const ptrdiff_t to = j * target.pitch + i * target.columnStep;
      for (int32_t p = 0; p < target.planes; ++p) {
        target.first[p][to] = source.plane(p)[j * target.sourceStep];
      }
    }
    if (i + 1 < target.columns) source.advance(1);
  }
}

}  // namespace definition

/// The bytes from the first to the last of equally spaced lines.
struct Block {
  const void* first;
  size_t size;

  Block(const void* start, ptrdiff_t step, int32_t count, int32_t length)
      : first(addressAt(start, step < 0 ? (count - 1) * step : 0)),
        size(static_cast<size_t>((count - 1) * (step < 0 ? -step : step) + length)) {}

  bool apartFrom(const Block& other) const { return apart(first, size, other.first, other.size); }
};

/// The leftmost wanted sample of the source line that `at` points into.
const uint8_t* lineStart(const Target& target, const uint8_t* at) {
  return target.sourceStep < 0 ? at - (target.lines - 1) : at;
}

/// True when kernels are faster and to the byte the same: the output lines overlap neither each
/// other nor another plane's, and touch no source line. Lines of planes may take turns in memory.
bool served(const Target& target, SourceLines source) {
  const ptrdiff_t width = target.columns;
  const ptrdiff_t pitch = target.pitch < 0 ? -target.pitch : target.pitch;
  constexpr auto least = static_cast<int32_t>(LineGroup::kLeast);
  if (target.lines < least || width < least || pitch < width) return false;
  const auto output = [&](int32_t p) {
    const ptrdiff_t left = target.columnStep < 0 ? width - 1 : 0;
    return Block(addressAt(target.first[p], -left), target.pitch, target.lines, target.columns);
  };
  for (int32_t p = 0; p < target.planes; ++p) {
    for (int32_t other = 0; other < p; ++other) {
      const Block a = output(p);
      const Block b = output(other);
      const auto atA = reinterpret_cast<uintptr_t>(a.first);
      const auto atB = reinterpret_cast<uintptr_t>(b.first);
      const uintptr_t distance = atA > atB ? atA - atB : atB - atA;
      const auto shift = static_cast<ptrdiff_t>(distance % static_cast<size_t>(pitch));
      const bool takeTurns = shift >= width && pitch - shift >= width;
      if (!takeTurns && !a.apartFrom(b)) return false;
    }
  }
  for (int32_t i = 0; i < target.columns;) {
    if (!source.present()) return false;
    const int32_t run = source.run(target.columns - i);
    for (int32_t p = 0; p < target.planes; ++p) {
      const Block read(lineStart(target, source.plane(p)), source.pitch(), run, target.lines);
      for (int32_t other = 0; other < target.planes; ++other) {
        if (!read.apartFrom(output(other))) return false;
      }
    }
    i += run;
    if (i < target.columns) source.advance(run);
  }
  return true;
}

/// The next of `left` lines of plane `p`, from their sample `column` on: backwards where output
/// columns run from right to left.
void take(LineGroup& group, const Target& target, SourceLines& source, int32_t p, int32_t column,
          int32_t left) {
  constexpr auto most = static_cast<int32_t>(LineGroup::kMost);
  const int32_t count = left < most ? left : most;
  group.count = static_cast<size_t>(count);
  for (int32_t k = 0; k < count; ++k) {
    group.lines[target.columnStep < 0 ? count - 1 - k : k] =
        lineStart(target, source.plane(p)) + column;
    if (k + 1 < left) source.advance(1);
  }
}

/// Turns `columns` samples from `column` on of all source lines of plane `p`, a group at a time.
/// Counter-clockwise the output lines are taken from the last one up and clockwise the source lines
/// from the last one back: both are then a plain transposition.
void rotateStrip(const Rows& rows, const Target& target, SourceLines source, int32_t p,
                 int32_t column, int32_t columns) {
  const bool upwards = target.sourceStep < 0;
  const ptrdiff_t pitch = upwards ? -target.pitch : target.pitch;
  uint8_t* const out =
      target.first[p] + (upwards ? (target.lines - 1) * target.pitch : 0) + column * pitch;
  LineGroup groups[2];
  take(groups[0], target, source, p, column, target.columns);
  for (int32_t i = 0, turn = 0; i < target.columns; turn = 1 - turn) {
    const LineGroup& group = groups[turn];
    LineGroup& following = groups[1 - turn];
    const int32_t next = i + static_cast<int32_t>(group.count);
    following.count = 0;
    if (next < target.columns) take(following, target, source, p, column, target.columns - next);
    rows.transpose(out + (target.columnStep < 0 ? -(next - 1) : i), pitch, group, following,
                   static_cast<size_t>(columns));
    i = next;
  }
}

void rotate(const Rows& rows, const Target& target, const SourceLines& source) {
  // Two groups of lines of this many samples stay in the first-level cache.
  constexpr int32_t mostColumns = 128;
  const int32_t strips = (target.lines + mostColumns - 1) / mostColumns;
  for (int32_t p = 0; p < target.planes; ++p) {
    for (int32_t s = 0; s < strips; ++s) {
      const auto column = static_cast<int32_t>(int64_t{target.lines} * s / strips);
      const auto end = static_cast<int32_t>(int64_t{target.lines} * (s + 1) / strips);
      rotateStrip(rows, target, source, p, column, end - column);
    }
  }
}

}  // namespace

uint32_t rotateSockOutput(const Rows* rows, const RastRotateBand* pBand, RastRotateCtx* pCtx) {
  if (!pBand || !pCtx) return RAST_ERR_INVALID_ARG;
  if (!pBand->pOut[0]) return RAST_ERR_INVALID_ARG;
  RastRotateCtx& ctx = *pCtx;
  if (!hasPlanes(ctx.nPlaneNum)) return RAST_ERR_INVALID_ARG;
  if (ctx.nBandNum < 0 || ctx.nBandNum > kMaxBands) return RAST_ERR_INVALID_ARG;
  const auto nRotate = static_cast<uint32_t>(ctx.nRotate);
  if (nRotate == RAST_ROTATE_SAME_SIZE) return RAST_ERR_NOT_SUPPORTED;
  if (!isQuarterTurn(nRotate)) return RAST_ERR_INVALID_ARG;

  const int32_t position = ctx.nOutPos;
  const int32_t end = wrappingAdd(position, pBand->nLines);
  const int32_t imageTop = ctx.nOutStartY;
  const int32_t imageEnd = wrappingAdd(imageTop, ctx.nRotHeight);
  if (end < imageTop) {
    ctx.nOutPos = end;
    return RAST_OK;
  }
  if (position > imageEnd) return RAST_OK;
  int32_t lines = pBand->nLines;
  if (position >= imageTop) {
    if (end > imageEnd) lines = wrappingSubtract(imageEnd, position);
  } else {
    if (end <= imageTop) return RAST_ERR_INVALID_ARG;
    lines = wrappingSubtract(end, imageTop);  // past the image's end too, where the band is longer
  }

  const bool clockwise = nRotate == RAST_ROTATE_CW90;
  int32_t start = ctx.nOutStartX;
  if (position <= imageTop) {
    const int32_t above = wrappingSubtract(imageTop, position);
    start = wrappingAdd(start, wrappingMultiply(pBand->nOutLineWidth, above));
  }
  if (clockwise) start = wrappingAdd(start, wrappingSubtract(ctx.nRotWidth, 1));
  Target target{{},    ctx.nOutLineWidth, clockwise ? -1 : 1, clockwise ? 1 : -1, ctx.nPlaneNum,
                lines, ctx.nRotWidth};
  const SourceLines source(ctx);
  if (lines > 0 && ctx.nRotWidth > 0 && source.present()) {
    for (int32_t p = 0; p < ctx.nPlaneNum; ++p) target.first[p] = pBand->pOut[p] + start;
    if (rows && served(target, source)) {
      rotate(*rows, target, source);
    } else {
      definition::rotate(target, source);
    }
  }

  ctx.nSrcX = clockwise ? wrappingAdd(ctx.nSrcX, lines) : wrappingSubtract(ctx.nSrcX, lines);
  ctx.nOutPos = end;
  const int32_t sourceEnd = wrappingAdd(ctx.stArea.nStartX, ctx.stArea.nWidth);
  return ctx.nSrcX >= sourceEnd ? RAST_COMPLETE : RAST_OK;
}

}  // namespace rast

uint32_t rastRotateInputAccumulate(const RastArea* pArea, const RastRotateBand* pBand,
                                   RastRotateCtx* pCtx, uint32_t nRotate) {
  return rast::rotateInputAccumulate(pArea, pBand, pCtx, nRotate);
}

uint32_t rastRotateSockOutput(const RastRotateBand* pBand, RastRotateCtx* pCtx) {
  return rast::rotateSockOutput(rast::rows(), pBand, pCtx);
}
