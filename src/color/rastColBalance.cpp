// Color balance: gray part and scaled chroma, each through its own curve.
#include "color/colBalanceCurves.h"
#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

constexpr size_t kChannels = 4;
constexpr size_t kGray = 3;
constexpr size_t kCurvesSize = kChannels * 256;
constexpr size_t kBuiltFlag = kCurvesSize;

/// The curves of a call without a buffer, looked up through both tables.
struct BuiltInCurves {
  RastColBalanceParam param;

  uint8_t operator()(size_t channel, uint8_t i) const {
    const auto level = static_cast<size_t>(param.nLevel[channel]);
    return g_ColBalanceLevelTbl[level][g_ColBalanceToneTbl[param.nCurve][i]];
  }
};

/// The curves of a filled buffer.
struct BufferedCurves {
  const uint8_t* curves;

  uint8_t operator()(size_t channel, uint8_t i) const { return curves[channel * 256 + i]; }
};

void fill(const BuiltInCurves& curves, uint8_t* lut) {
  for (size_t i = 0; i < 256; ++i) {
    for (size_t channel = 0; channel < kChannels; ++channel) {
      lut[channel * 256 + i] = curves(channel, static_cast<uint8_t>(i));
    }
  }
}

namespace definition {

struct Pixel {
  uint8_t component[3];
};

Pixel read(const ColorPlanes& planes, ptrdiff_t x) {
  return {{planes.in[0][x], planes.in[1][x], planes.in[2][x]}};
}

template <class Curves>
Pixel balance(const Pixel& in, const Curves& curves) {
  const auto& [r, g, b] = in.component;
  const uint8_t mn = g_rastMinCompareTbl[r * 256 + g_rastMinCompareTbl[g * 256 + b]];
  const uint32_t room = 255U - mn;
  const uint8_t k = curves(kGray, mn);
  Pixel out;
  for (size_t ch = 0; ch < 3; ++ch) {
    uint32_t chroma = 255;
    if (mn < 255) {
      chroma = in.component[ch] == mn ? 0 : (in.component[ch] - uint32_t{mn}) * 256 / room;
    }
    const uint8_t curved = curves(ch, static_cast<uint8_t>(chroma > 255 ? 255 : chroma));
    out.component[ch] = clampToSample((((255 - k) * curved) >> 8) + k);
  }
  return out;
}

/// `Step` pixels at a time, all read before any is written, and those left at the end of a line
/// alone.
template <ptrdiff_t Step, class Curves>
void colBalance(const RastArea& area, const ColorPlanes& planes, const Curves& curves) {
  eachLine(area, [&](ptrdiff_t line) {
    const ptrdiff_t end = line + area.nWidth;
    for (ptrdiff_t x = line; x < end;) {
      const ptrdiff_t n = end - x < Step ? 1 : Step;
      Pixel pixels[Step];
      for (ptrdiff_t j = 0; j < n; ++j) pixels[j] = read(planes, x + j);
      for (ptrdiff_t j = 0; j < n; ++j) pixels[j] = balance(pixels[j], curves);
      for (size_t ch = 0; ch < 3; ++ch) {
        for (ptrdiff_t j = 0; j < n; ++j) planes.out[ch][x + j] = pixels[j].component[ch];
      }
      x += n;
    }
  });
}

}  // namespace definition

}  // namespace

uint32_t colBalance(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                    const RastColBalanceParam* pParam, uint8_t* pLut) {
  if (!pArea || !fitsLine(*pArea)) return RAST_ERR_INVALID_ARG;
  if (!pPlanes || !hasColorPlanes(*pPlanes)) return RAST_ERR_INVALID_ARG;
  if (pPlanes->pIn[3] || pPlanes->pOut[3]) return RAST_ERR_INVALID_ARG;
  if (pPlanes->nSize < 1) return RAST_ERR_INVALID_ARG;
  if (!pParam) return RAST_ERR_INVALID_ARG;
  if (!hasExtent(*pArea)) return RAST_ERR_INVALID_ARG;
  if (pParam->nCurve >= kToneCurves) return RAST_ERR_INVALID_ARG;
  for (const int16_t level : pParam->nLevel) {
    if (level < 0 || level >= static_cast<int16_t>(kLevelCurves)) return RAST_ERR_INVALID_ARG;
  }

  const RastArea area = *pArea;
  const ColorPlanes planes(*pPlanes);
  const BuiltInCurves builtIn{*pParam};
  if (pLut && pLut[kBuiltFlag] == 0) {
    fill(builtIn, pLut);
    pLut[kBuiltFlag] = 1;
  }

  const bool served = rows && rows->balance && planesApart(planes.in, planes.out, area.nWidth) &&
                      (!pLut || linesApart(area, planes.out, pLut, kCurvesSize));
  if (served) {
    uint8_t own[kCurvesSize];
    if (!pLut) fill(builtIn, own);
    const uint8_t* const curves = pLut ? pLut : own;
    eachLine(area,
             [&](ptrdiff_t line) { rows->balance(rowOf(planes, line, area.nWidth), curves); });
  } else if (pLut) {
    definition::colBalance<1>(area, planes, BufferedCurves{pLut});
  } else {
    definition::colBalance<2>(area, planes, builtIn);
  }
  return RAST_OK;
}

}  // namespace rast

uint32_t rastColBalance(const RastArea* pArea, const RastPlaneSet* pPlanes,
                        const RastColBalanceParam* pParam, uint8_t* pLut) {
  return rast::colBalance(rast::rows(), pArea, pPlanes, pParam, pLut);
}
