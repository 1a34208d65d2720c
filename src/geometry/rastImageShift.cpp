// A rectangle moved within an output page.
#include <string.h>

#include "frame/frame.h"
#include "frame/operations.h"

namespace rast {

namespace {

/// The parts of one output page: margins around `lines` lines of `copied` copied samples.
struct Segments {
  int32_t left;
  int32_t copied;
  int32_t right;
  int32_t top;
  int32_t lines;
  int32_t bottom;

  /// The lines are chosen by the sign of the horizontal offset, as the columns are: the interface
  /// is so.
  Segments(const RastArea& area, const RastShiftParam& param) {
    const int32_t width = wrappingAdd(area.nWidth, param.nShiftX);
    const int32_t height = wrappingAdd(area.nHeight, param.nShiftY);
    if (param.nShiftX < 0) {
      left = 0;
      copied = width;
      right = wrappingSubtract(param.nOutLineWidth, width);
      top = 0;
      lines = height;
    } else {
      left = param.nShiftX;
      const bool widthFits = unsignedAtMost(width, param.nOutLineWidth);
      copied = widthFits ? area.nWidth : wrappingSubtract(param.nOutLineWidth, param.nShiftX);
      right = widthFits ? wrappingSubtract(param.nOutLineWidth, width) : 0;
      top = param.nShiftY;
      const bool heightFits = unsignedAtMost(height, param.nOutHeight);
      lines = heightFits ? area.nHeight : wrappingSubtract(param.nOutHeight, param.nShiftY);
    }
    bottom = wrappingSubtract(param.nOutHeight, wrappingAdd(top, lines));
  }

 private:
  static bool unsignedAtMost(int32_t a, int32_t b) {
    return static_cast<uint32_t>(a) <= static_cast<uint32_t>(b);
  }
};

namespace definition {

void copy(uint8_t* out, const uint8_t* in, size_t size) { memcpy(out, in, size); }

}  // namespace definition

}  // namespace

uint32_t imageShift(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                    const RastShiftParam* pParam, uint32_t nPlaneMode) {
  if (!pArea || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes || (!pPlanes->pIn[0] && !pPlanes->pIn[3])) return RAST_ERR_INVALID_ARG;
  if (pPlanes->nSize < 1 || !pParam) return RAST_ERR_INVALID_ARG;
  if (!hasExtent(*pArea)) return RAST_ERR_INVALID_ARG;
  if (wrappingAdd(pArea->nWidth, pParam->nShiftX) < 1) return RAST_ERR_INVALID_ARG;
  if (wrappingAdd(pArea->nHeight, pParam->nShiftY) < 1) return RAST_ERR_INVALID_ARG;
  if (nPlaneMode > 1 || pParam->nFillMode > 2) return RAST_ERR_INVALID_ARG;

  const RastArea area = *pArea;
  const RastPlaneSet planes = *pPlanes;
  const RastShiftParam param = *pParam;
  const Segments segments(area, param);
  const size_t first = nPlaneMode == 0 ? 0 : 3;
  const size_t end = nPlaneMode == 0 ? 3 : 4;
  const bool fills = param.nFillMode != 0;
  const int value = param.nFillMode == 2 ? 255 : 0;
  const int32_t pitch = param.nOutLineWidth;
  constexpr int32_t leastCopied = 256;  // for a kernel to be faster
  const auto copy = rows && segments.copied >= leastCopied ? rows->copy : definition::copy;
  const auto fill = [&](ptrdiff_t at, int32_t length) {
    for (size_t p = first; fills && length > 0 && p < end; ++p) {
      memset(planes.pOut[p] + at, value, static_cast<size_t>(length));
    }
  };

  fill(0, wrappingMultiply(pitch, segments.top));
  for (int32_t r = 0; r < segments.lines; ++r) {
    const ptrdiff_t source = lineOffset(area, r);
    const ptrdiff_t target = wrappingMultiply(wrappingAdd(segments.top, r), pitch);
    fill(target, segments.left);
    for (size_t p = first; segments.copied > 0 && p < end; ++p) {
      copy(planes.pOut[p] + target + segments.left, planes.pIn[p] + source,
           static_cast<size_t>(segments.copied));
    }
    fill(target + segments.left + segments.copied, segments.right);
  }
  fill(wrappingMultiply(wrappingAdd(segments.top, segments.lines), pitch),
       wrappingMultiply(pitch, segments.bottom));
  return RAST_OK;
}

}  // namespace rast

uint32_t rastImageShift(const RastArea* pArea, const RastPlaneSet* pPlanes,
                        const RastShiftParam* pParam, uint32_t nPlaneMode) {
  return rast::imageShift(rast::rows(), pArea, pPlanes, pParam, nPlaneMode);
}
