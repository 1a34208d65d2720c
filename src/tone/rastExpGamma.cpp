// Threshold-gain curve on the mono plane.
#include <stdio.h>

#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

constexpr size_t kTableSize = 256;
constexpr size_t kBuiltFlag = kTableSize;

uint8_t curveSample(const RastExpGammaParam& param, uint8_t x) {
  if (x <= param.nThreshold) return 0;
  const uint32_t excess = x - uint32_t{param.nThreshold};
  const uint32_t v = ((excess * param.nGain) >> 8) + param.nOffset;
  return static_cast<uint8_t>(v > 255 ? 255 : v);
}

void fillTable(const RastExpGammaParam& param, uint8_t* table) {
  for (size_t i = 0; i < kTableSize; ++i) table[i] = curveSample(param, static_cast<uint8_t>(i));
}

namespace definition {

template <class Curve>
void expGamma(const RastArea& area, const uint8_t* in, uint8_t* out, Curve curve) {
  eachLine(area, [&](ptrdiff_t line) {
    for (ptrdiff_t x = line; x < line + area.nWidth; ++x) out[x] = curve(in[x]);
  });
}

}  // namespace definition

}  // namespace

uint32_t expGamma(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                  const RastExpGammaParam* pParam, uint8_t* pLut) {
  if (!pArea || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes || pPlanes->pIn[0] || pPlanes->pIn[1] || pPlanes->pIn[2])
    return RAST_ERR_INVALID_ARG;
  if (pPlanes->pOut[0] || pPlanes->pOut[1] || pPlanes->pOut[2]) return RAST_ERR_INVALID_ARG;
  if (!pPlanes->pIn[3] || !pPlanes->pOut[3]) return RAST_ERR_INVALID_ARG;
  if (pPlanes->nSize < 1) {
    printf("[RAST EXPGAMMA ERROR] size <= 0!!! [%s : %d]\n", "../rastExpGamma", 316);
    return RAST_ERR_INVALID_ARG;
  }
  if (!hasExtent(*pArea)) return RAST_ERR_INVALID_ARG;
  const bool built = pLut && pLut[kBuiltFlag] != 0;
  if (!built && !pParam) return RAST_ERR_INVALID_ARG;

  const RastArea area = *pArea;
  const uint8_t* const in[] = {pPlanes->pIn[3]};
  uint8_t* const out[] = {pPlanes->pOut[3]};
  const RastExpGammaParam param = built ? RastExpGammaParam{} : *pParam;
  if (pLut && !built) fillTable(param, pLut);

  const bool served = rows && planesApart(in, out, area.nWidth) &&
                      (!pLut || linesApart(area, out, pLut, kTableSize));
  if (served && rows->thresholdGain && !pLut) {
    const ThresholdGain curve{param.nThreshold, param.nOffset, param.nGain};
    eachLine(area, [&](ptrdiff_t line) {
      rows->thresholdGain(rowOf(in, out, line, area.nWidth), curve);
    });
  } else if (served) {
    uint8_t own[kTableSize];
    if (!pLut) fillTable(param, own);
    const uint8_t* const table = pLut ? pLut : own;
    eachLine(area,
             [&](ptrdiff_t line) { rows->curve(rowOf(in, out, line, area.nWidth), table, false); });
  } else if (pLut) {
    definition::expGamma(area, in[0], out[0], [pLut](uint8_t x) { return pLut[x]; });
  } else {
    definition::expGamma(area, in[0], out[0],
                         [&param](uint8_t x) { return curveSample(param, x); });
  }
  return RAST_OK;
}

}  // namespace rast

uint32_t rastExpGamma(const RastArea* pArea, const RastPlaneSet* pPlanes,
                      const RastExpGammaParam* pParam, uint8_t* pLut) {
  return rast::expGamma(rast::repaid(rast::rows(), pArea), pArea, pPlanes, pParam, pLut);
}
