// The color records of the two-color conversion.
#pragma once

#include <stdint.h>

#include "frame/rows.h"
#include "rast.h"

namespace rast {

/// How two inks are made from a pixel and which output components they feed.
struct RastBinConvColor {
  uint8_t bMaxA;  // not 0: the first ink's amount is the largest component, not the weighted sum
  uint8_t bMaxB;  // the same for the second ink
  int16_t nCoefA[3];  // weights of the components in the first ink's amount, in 1/256
  int16_t nOffsetA;   // added to the weighted sum
  int16_t nCoefB[3];
  int16_t nOffsetB;
  uint16_t
      nInkA[4];  // share of the first ink in the output components, in 1/256; [3] is not written
  uint16_t nInkB[4];
};

/// rastBinConv, after its checks, with any color record.
void convertWithRecord(const Rows* rows, const RastArea& area, const RastPlaneSet& planes,
                       const RastBinConvColor& record);

}  // namespace rast
