// A 256-entry curve on the three color planes or on the mono plane.
#include <stdio.h>

#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

constexpr size_t kCurveSize = 256;

namespace definition {

template <size_t N>
void colGamma(const RastArea& area, const uint8_t* const (&in)[N], uint8_t* const (&out)[N],
              const uint8_t* curve) {
  eachLine(area, [&](ptrdiff_t line) {
    for (ptrdiff_t x = line; x < line + area.nWidth; ++x) {
      uint8_t samples[N];
      for (size_t k = 0; k < N; ++k) samples[k] = in[k][x];
      for (size_t k = 0; k < N; ++k) out[k][x] = curve[samples[k]];
    }
  });
}

}  // namespace definition

template <size_t N>
void process(const Rows* rows, const RastArea& area, const uint8_t* const (&in)[N],
             uint8_t* const (&out)[N], const uint8_t* curve) {
  const bool served =
      rows && planesApart(in, out, area.nWidth) && linesApart(area, out, curve, kCurveSize);
  if (!served) {
    definition::colGamma(area, in, out, curve);
    return;
  }
  eachLine(area, [&](ptrdiff_t line) {
    for (size_t k = 0; k < N; ++k) {
      rows->curve(rowOf<1>({in[k]}, {out[k]}, line, area.nWidth), curve, false);
    }
  });
}

}  // namespace

uint32_t colGamma(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                  const uint8_t* pCurve) {
  if (!pCurve) return RAST_ERR_INVALID_ARG;
  if (!pArea || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes || !pPlanes->pIn[0] == !pPlanes->pIn[3]) return RAST_ERR_INVALID_ARG;
  const bool mono = pPlanes->pIn[3] != nullptr;
  if (mono && !pPlanes->pOut[3]) return RAST_ERR_INVALID_ARG;
  if (!mono && (pPlanes->pOut[3] || !hasColorPlanes(*pPlanes))) return RAST_ERR_INVALID_ARG;
  if (pPlanes->nSize < 1) {
    printf("[RAST GOLGAMMA ERROR] size <= 0!!! [%s : %d]\n", "../rastColGamma", 189);
    return RAST_ERR_INVALID_ARG;
  }
  if (!hasExtent(*pArea)) return RAST_ERR_INVALID_ARG;

  const RastArea area = *pArea;
  if (mono) {
    process<1>(rows, area, {pPlanes->pIn[3]}, {pPlanes->pOut[3]}, pCurve);
  } else {
    const ColorPlanes planes(*pPlanes);
    process<3>(rows, area, planes.in, planes.out, pCurve);
  }
  return RAST_OK;
}

}  // namespace rast

uint32_t rastColGamma(const RastArea* pArea, const RastPlaneSet* pPlanes, const uint8_t* pCurve) {
  return rast::colGamma(rast::repaid(rast::rows(), pArea), pArea, pPlanes, pCurve);
}
