// Two-color conversion.
#include "tone/rastBinConv.h"

#include <stdio.h>

#include "frame/frame.h"
#include "frame/operations.h"
#include "frame/overlap.h"

namespace rast {

namespace {

/// A record whose first ink feeds the unwritten component alone and whose second ink is luma, with
/// the weights of ITU-R BT.601 (0.299, 0.587, 0.114) in 1/256, less 30.
constexpr RastBinConvColor lumaInk(uint16_t ink0, uint16_t ink1, uint16_t ink2) {
  return {
      .bMaxA = 0,
      .bMaxB = 0,
      .nCoefA = {77, 150, 29},
      .nOffsetA = -30,
      .nCoefB = {77, 150, 29},
      .nOffsetB = -30,
      .nInkA = {0, 0, 0, 256},
      .nInkB = {ink0, ink1, ink2, 0},
  };
}

constexpr RastBinConvColor g_BinConvColorTbl[] = {
    lumaInk(256, 0, 0),   lumaInk(0, 256, 0),   lumaInk(0, 0, 256),
    lumaInk(0, 256, 256), lumaInk(256, 0, 256), lumaInk(256, 256, 0),
};
constexpr uint32_t kColors = sizeof g_BinConvColorTbl / sizeof g_BinConvColorTbl[0];

// The saturation at and above which a pixel counts fully as color, by hue.
constexpr uint8_t g_BinConvSatLimitTbl[256] = {
    136, 136, 136, 137, 137, 137, 137, 137, 137, 138, 138, 138, 138, 138, 138, 139, 139, 139, 139,
    139, 139, 140, 140, 140, 140, 140, 140, 141, 141, 141, 141, 141, 141, 142, 142, 142, 142, 142,
    142, 143, 143, 143, 143, 143, 144, 146, 147, 149, 150, 151, 153, 154, 155, 157, 158, 160, 161,
    162, 164, 165, 166, 168, 169, 171, 172, 173, 175, 176, 178, 179, 180, 182, 183, 184, 186, 187,
    189, 190, 191, 193, 194, 195, 197, 198, 200, 201, 198, 195, 193, 190, 187, 184, 182, 179, 176,
    173, 170, 168, 165, 162, 159, 156, 154, 151, 148, 145, 143, 140, 137, 134, 131, 129, 126, 123,
    120, 117, 115, 112, 109, 106, 104, 101, 98,  95,  92,  90,  87,  84,  84,  85,  87,  88,  89,
    91,  92,  93,  95,  96,  97,  99,  100, 101, 103, 104, 105, 107, 108, 109, 111, 112, 113, 115,
    116, 117, 119, 120, 121, 123, 124, 125, 127, 128, 129, 131, 132, 133, 135, 136, 137, 139, 140,
    140, 140, 139, 139, 138, 138, 137, 137, 136, 136, 135, 135, 134, 134, 133, 133, 132, 132, 131,
    131, 130, 130, 129, 129, 128, 128, 127, 127, 126, 126, 125, 125, 124, 124, 123, 123, 122, 122,
    121, 121, 120, 120, 119, 119, 119, 120, 120, 121, 121, 121, 122, 122, 123, 123, 123, 124, 124,
    125, 125, 125, 126, 126, 127, 127, 128, 128, 128, 129, 129, 130, 130, 130, 131, 131, 132, 132,
    132, 133, 133, 134, 134, 134, 135, 135, 136};

constexpr int32_t kGrayFloor = 15;  // saturations up to here count as neutral

// The hue circle: a base per smallest component and 42 steps to either side of it.
constexpr int32_t kHueOfLeastRed = 42;
constexpr int32_t kHueOfLeastGreen = 127;
constexpr int32_t kHueOfLeastBlue = 212;
constexpr int32_t kHueSector = 42;

namespace definition {

/// Hue within the sector of the smallest component: back from the base as `ahead` exceeds `behind`.
int32_t hueInSector(int32_t base, int32_t behind, int32_t ahead, int32_t chroma) {
  if (chroma == 0) return base;
  if (behind <= ahead) return base - (ahead - behind) * kHueSector / chroma;
  return base + (behind - ahead) * kHueSector / chroma;
}

uint8_t hue(uint8_t r, uint8_t g, uint8_t b, uint8_t least, uint8_t chroma) {
  int32_t h = 0;
  if (r == least) {
    h = hueInSector(kHueOfLeastRed, b, g, chroma);
  } else if (g == least) {
    h = hueInSector(kHueOfLeastGreen, r, b, chroma);
  } else {
    h = hueInSector(kHueOfLeastBlue, g, r, chroma);
  }
  return static_cast<uint8_t>(h);
}

/// How far the pixel counts as color, 0 .. 256.
int32_t colorWeight(uint8_t saturation, uint8_t limit) {
  if (saturation <= kGrayFloor) return 0;
  if (limit < saturation) return 256;
  return (saturation * 256 - kGrayFloor * 256) / (limit - kGrayFloor);
}

uint8_t inkAmount(bool largest, const int16_t (&coef)[3], int32_t offset, const uint8_t (&c)[3],
                  uint8_t most) {
  if (largest) return most;
  return clampToSample(((coef[0] * c[0] + coef[1] * c[1] + coef[2] * c[2]) >> 8) + offset);
}

void binConv(const RastArea& area, const ColorPlanes& planes, const RastBinConvColor& rec) {
  eachLine(area, [&](ptrdiff_t line) {
    for (ptrdiff_t x = line; x < line + area.nWidth; ++x) {
      const uint8_t c[3] = {planes.in[0][x], planes.in[1][x], planes.in[2][x]};
      const uint8_t least =
          g_rastMinCompareTbl[c[0] * 256 + g_rastMinCompareTbl[c[1] * 256 + c[2]]];
      const uint8_t most = g_rastMaxCompareTbl[c[0] * 256 + g_rastMaxCompareTbl[c[1] * 256 + c[2]]];
      const auto chroma = static_cast<uint8_t>(most - least);
      const uint8_t limit = g_BinConvSatLimitTbl[hue(c[0], c[1], c[2], least, chroma)];
      const int32_t w = colorWeight(g_SatCompareTbl[most * 256 + chroma], limit);
      const int32_t a = inkAmount(rec.bMaxA != 0, rec.nCoefA, rec.nOffsetA, c, most);
      const int32_t b = inkAmount(rec.bMaxB != 0, rec.nCoefB, rec.nOffsetB, c, most);
      const uint8_t first = clampToSample((65536 - 256 * w) * a / 65536);
      const uint8_t second = clampToSample(w * b / 256);
      for (size_t k = 0; k < 3; ++k) {
        planes.out[k][x] = clampToSample((rec.nInkA[k] * first + rec.nInkB[k] * second) / 256);
      }
    }
  });
}

}  // namespace definition

/// True for records like the built-in ones: the row kernel makes all that they write.
bool isSingleInk(const RastBinConvColor& rec) {
  int32_t sum = 0;
  for (size_t k = 0; k < 3; ++k) {
    if (rec.nCoefB[k] < 0 || rec.nCoefB[k] > 255 || rec.nInkA[k] != 0) return false;
    if (rec.nInkB[k] != 0 && rec.nInkB[k] != 256) return false;
    sum += rec.nCoefB[k];
  }
  return rec.bMaxB == 0 && sum <= 256;
}

}  // namespace

void convertWithRecord(const Rows* rows, const RastArea& area, const RastPlaneSet& set,
                       const RastBinConvColor& record) {
  const ColorPlanes planes(set);
  if (!rows || !rows->ink || !isSingleInk(record) ||
      !planesApart(planes.in, planes.out, area.nWidth)) {
    definition::binConv(area, planes, record);
    return;
  }
  // Beyond 255 either way an offset changes nothing more: the sum it is added to is a sample.
  const int32_t offset = record.nOffsetB < -255  ? -255
                         : record.nOffsetB > 255 ? 255
                                                 : record.nOffsetB;
  Ink ink{{}, static_cast<int16_t>(offset), {}, g_BinConvSatLimitTbl};
  for (size_t k = 0; k < 3; ++k) {
    ink.weight[k] = static_cast<uint8_t>(record.nCoefB[k]);
    ink.feeds[k] = record.nInkB[k] != 0;
  }
  eachLine(area, [&](ptrdiff_t line) { rows->ink(rowOf(planes, line, area.nWidth), ink); });
}

uint32_t binConv(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                 uint32_t nColor) {
  if (!pPlanes || !hasColorPlanes(*pPlanes)) return RAST_ERR_INVALID_ARG;
  if (pPlanes->pIn[3]) return RAST_ERR_INVALID_ARG;
  if (pPlanes->nSize < 1) {
    printf("[RAST BCONV ERROR] size <= 0!!! [%s : %d]\n", "../rastBinConv", 2150);
    return RAST_ERR_INVALID_ARG;
  }
  if (!pArea || !hasExtent(*pArea)) return RAST_ERR_INVALID_ARG;

  const RastArea area = *pArea;
  convertWithRecord(rows, area, *pPlanes, g_BinConvColorTbl[nColor < kColors ? nColor : 0]);
  return RAST_OK;
}

}  // namespace rast

uint32_t rastBinConv(const RastArea* pArea, const RastPlaneSet* pPlanes, uint32_t nColor) {
  return rast::binConv(rast::rows(), pArea, pPlanes, nColor);
}
