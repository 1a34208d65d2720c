#pragma once

#include "frame/rows.h"
#include "rast.h"

namespace rast {

/// rastExpGamma with the row kernels of `rows`, or by the definition alone where `rows` is null.
uint32_t expGamma(const Rows* rows, const RastArea* pArea, const RastPlaneSet* pPlanes,
                  const RastExpGammaParam* pParam, uint8_t* pLut);

}  // namespace rast
