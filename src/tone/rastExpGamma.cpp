// Threshold-gain curve on the mono plane.
#include "tone/rastExpGamma.h"

#include <stdio.h>

#include "frame/frame.h"
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

void direct(const RastArea& area, uint8_t* out, const uint8_t* in, const RastExpGammaParam& param) {
  for (int32_t r = 0; r < area.nHeight; ++r) {
    const ptrdiff_t line = lineOffset(area, r);
    for (int32_t x = 0; x < area.nWidth; ++x) out[line + x] = curveSample(param, in[line + x]);
  }
}

void applyTable(const RastArea& area, uint8_t* out, const uint8_t* in, const uint8_t* table) {
  for (int32_t r = 0; r < area.nHeight; ++r) {
    const ptrdiff_t line = lineOffset(area, r);
    for (int32_t x = 0; x < area.nWidth; ++x) out[line + x] = table[in[line + x]];
  }
}

}  // namespace definition

}  // namespace

uint32_t expGamma(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                  const RastExpGammaParam* pParam, uint8_t* pLut) {
  if (!pArea || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes || pPlanes->pIn[0] || pPlanes->pIn[1] || pPlanes->pIn[2]) return RAST_ERR_INVALID_ARG;
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

  if (pLut && !built) fillTable(*pParam, pLut);

  // Without a buffer the curve is read from pParam at every sample, so the kernel's own table stands for
  // it as long as no output touches pParam.
  const void* const source = pLut ? static_cast<const void*>(pLut) : pParam;
  const size_t sourceSize = pLut ? kTableSize : sizeof *pParam;
  if (!rows || !planesApart(in, out, area.nWidth) || !linesApart(area, out[0], source, sourceSize)) {
    if (pLut) {
      definition::applyTable(area, out[0], in[0], pLut);
    } else {
      definition::direct(area, out[0], in[0], *pParam);
    }
    return RAST_OK;
  }

  uint8_t own[kTableSize];
  if (!pLut) fillTable(*pParam, own);
  const uint8_t* const table = pLut ? pLut : own;
  for (int32_t r = 0; r < area.nHeight; ++r) {
    const ptrdiff_t line = lineOffset(area, r);
    rows->curve(out[0] + line, in[0] + line, static_cast<size_t>(area.nWidth), table);
  }
  return RAST_OK;
}

}  // namespace rast

uint32_t rastExpGamma(const RastArea* pArea, const RastPlaneSet* pPlanes,
                      const RastExpGammaParam* pParam, uint8_t* pLut) {
  return rast::expGamma(rast::rows(), pArea, pPlanes, pParam, pLut);
}
