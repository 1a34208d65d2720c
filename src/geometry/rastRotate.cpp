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

uint32_t accumulate(const RastArea* pArea, const RastRotateBand* pBand, RastRotateCtx* pCtx,
                    uint32_t nRotate) {
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

  void next() {
    ++passed_;
    if (int64_t{left_} + entry_->nLines > passed_) {
      offset_ += pitch_;
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
    if (i + 1 < target.columns) source.next();
  }
}

}  // namespace definition

/// True when the output lines overlap neither each other nor another plane's, and touch no source
/// line.
bool served(const Target& target, const SourceLines& source) {
  const ptrdiff_t width = target.columns;
  const ptrdiff_t pitch = target.pitch < 0 ? -target.pitch : target.pitch;
  if (target.lines < 1 || width < 1 || pitch < width) return false;
  const auto size = static_cast<size_t>((target.lines - 1) * pitch + width);
  const uint8_t* lowest[kMaxPlanes];
  for (int32_t p = 0; p < target.planes; ++p) {
    const ptrdiff_t byLines = target.pitch < 0 ? (target.lines - 1) * target.pitch : 0;
    const ptrdiff_t byColumns = target.columnStep < 0 ? (width - 1) * target.columnStep : 0;
    lowest[p] = target.first[p] + byLines + byColumns;
    for (int32_t other = 0; other < p; ++other) {
      if (!apart(lowest[p], size, lowest[other], size)) return false;
    }
  }
  SourceLines line = source;
  for (int32_t i = 0; i < target.columns; ++i) {
    if (!line.present()) return false;
    for (int32_t p = 0; p < target.planes; ++p) {
      const uint8_t* const read = line.plane(p) - (target.sourceStep < 0 ? target.lines - 1 : 0);
      for (int32_t other = 0; other < target.planes; ++other) {
        if (!apart(lowest[other], size, read, static_cast<size_t>(target.lines))) return false;
      }
    }
    if (i + 1 < target.columns) line.next();
  }
  return true;
}

/// Up to kTransposeLines source lines, as pointers to the leftmost sample that is wanted of each.
struct LineGroup {
  const uint8_t* lines[kMaxPlanes][kTransposeLines];
  int32_t count;

  /// Takes the next lines of `left`, backwards where output columns run from right to left. They
  /// lie pages apart, where no hardware expects the next one, so they are asked for while the group
  /// before is turned.
  void take(const Target& target, SourceLines& source, int32_t left) {
    constexpr ptrdiff_t cacheLine = 64;
    constexpr auto most = static_cast<int32_t>(kTransposeLines);
    count = left < most ? left : most;
    for (int32_t k = 0; k < count; ++k) {
      const int32_t place = target.columnStep < 0 ? count - 1 - k : k;
      for (int32_t p = 0; p < target.planes; ++p) {
        const uint8_t* const line =
            source.plane(p) - (target.sourceStep < 0 ? target.lines - 1 : 0);
        lines[p][place] = line;
        for (ptrdiff_t x = 0; x < target.lines; x += cacheLine) __builtin_prefetch(line + x);
      }
      if (k + 1 < left) source.next();
    }
  }
};

/// Turns a group of source lines at a time. Counter-clockwise the output lines are taken from the
/// last one up and clockwise the source lines from the last one back: both are then a plain
/// transposition.
void rotate(const Rows& rows, const Target& target, SourceLines source) {
  const bool upwards = target.sourceStep < 0;
  const ptrdiff_t firstLine = upwards ? (target.lines - 1) * target.pitch : 0;
  LineGroup groups[2];
  groups[0].take(target, source, target.columns);
  for (int32_t i = 0, turn = 0; i < target.columns; turn = 1 - turn) {
    const LineGroup& group = groups[turn];
    const int32_t next = i + group.count;
    if (next < target.columns) groups[1 - turn].take(target, source, target.columns - next);
    const ptrdiff_t column = target.columnStep < 0 ? -(next - 1) : i;
    for (int32_t p = 0; p < target.planes; ++p) {
      rows.transpose(target.first[p] + firstLine + column, upwards ? -target.pitch : target.pitch,
                     group.lines[p], static_cast<size_t>(group.count),
                     static_cast<size_t>(target.lines));
    }
    i = next;
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
  for (int32_t p = 0; p < ctx.nPlaneNum; ++p) target.first[p] = pBand->pOut[p] + start;
  const SourceLines source(ctx);
  if (rows && served(target, source)) {
    rotate(*rows, target, source);
  } else {
    definition::rotate(target, source);
  }

  ctx.nSrcX = clockwise ? wrappingAdd(ctx.nSrcX, lines) : wrappingSubtract(ctx.nSrcX, lines);
  ctx.nOutPos = end;
  const int32_t sourceEnd = wrappingAdd(ctx.stArea.nStartX, ctx.stArea.nWidth);
  return ctx.nSrcX >= sourceEnd ? RAST_COMPLETE : RAST_OK;
}

}  // namespace rast

uint32_t rastRotateInputAccumulate(const RastArea* pArea, const RastRotateBand* pBand,
                                   RastRotateCtx* pCtx, uint32_t nRotate) {
  return rast::accumulate(pArea, pBand, pCtx, nRotate);
}

uint32_t rastRotateSockOutput(const RastRotateBand* pBand, RastRotateCtx* pCtx) {
  return rast::rotateSockOutput(rast::rows(), pBand, pCtx);
}
