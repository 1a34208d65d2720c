// The operations with the choice of row kernels as an argument: the exported functions pass the
// best level's, tests and benchmarks any level's. Null stands for the sample-by-sample definition.
#pragma once

#include <stdint.h>

#include "frame/rows.h"
#include "rast.h"

namespace rast {

uint32_t expGamma(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                  const RastExpGammaParam* pParam, uint8_t* pLut);

uint32_t colGamma(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                  const uint8_t* pCurve);

uint32_t binConv(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                 uint32_t nColor);

uint32_t satAdjust(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                   uint32_t nMode);

uint32_t hueAdjust(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                   const RastHueParam* pParam, RastHueLut* pLut);

uint32_t colBalance(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                    const RastColBalanceParam* pParam, uint8_t* pLut);

uint32_t overlayRGB24bpp(const Rows* rows, const RastArea* pArea, uint8_t* const* ppRgb,
                         const RastOverlayParam* pOvlParam, uint32_t nPlaneMode,
                         uint32_t nBlendMode, uint32_t nDensity, uint32_t nBgWhite);

uint32_t overlay(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                 const RastOverlayParam* pOvlParam, uint32_t nPlaneMode, uint32_t nBlendMode,
                 uint32_t nDensity, uint32_t nBgWhite);

uint32_t rotateSockOutput(const Rows* rows, const RastRotateBand* pBand, RastRotateCtx* pCtx);

uint32_t zoom(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
              const RastZoomParam* pParam);

uint32_t imageShift(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                    const RastShiftParam* pParam, uint32_t nPlaneMode);

/// The level, or none where a rectangle is so narrow or small that the preparations of kernels for
/// a line or a call take longer than looking up its few samples one by one.
inline const Rows* repaid(const Rows* rows, const RastArea* pArea) {
  constexpr int64_t leastSamples = 1024;
  if (!pArea) return rows;
  const bool narrow = pArea->nWidth < static_cast<int64_t>(rows->registerBytes);
  return narrow || int64_t{pArea->nWidth} * pArea->nHeight < leastSamples ? nullptr : rows;
}

/// The level, or none where output lines of pixels are too short to be worth dividing into runs.
inline const Rows* repaid(const Rows* rows, const RastOverlayParam* pOvlParam) {
  constexpr int32_t leastWidth = 64;
  return pOvlParam && pOvlParam->nOutWidth < leastWidth ? nullptr : rows;
}

}  // namespace rast
