// Calls of the operations that work on one rectangle of all planes.
#include <algorithm>

#include "draft.h"
#include "frame/frame.h"
#include "frame/operations.h"
#include "rast.h"
#include "support/geometry.h"
#include "tone/rastBinConv.h"

namespace rast::test {

namespace {

enum class Checks { fitAndExtent, extent, none };

RastArea rectangle(Draft& draft, Checks checks) {
  RastArea area{};
  area.nWidth = draft.pick(1, draft.oneIn(16) ? 5000 : 300);
  area.nHeight = draft.pick(1, 5);
  if (draft.oneIn(8)) {  // one line anywhere in the address arithmetic
    area.nHeight = 1;
    area.nStartX = draft.any<int32_t>();
    area.nStartY = draft.any<int32_t>();
    area.nLineWidth = draft.pick(std::max(1, wrappingAdd(area.nStartX, area.nWidth)), INT32_MAX);
    return area;
  }
  area.nStartX = draft.pick(draft.oneIn(8) ? -2 * area.nWidth : 0, 20);
  area.nStartY = draft.pick(-3, 3);
  area.nLineWidth = std::max(1, area.nStartX + area.nWidth) + draft.pick(0, 80);
  if (checks != Checks::fitAndExtent && draft.oneIn(4))
    area.nLineWidth = draft.pick(checks == Checks::none ? -area.nWidth : 1, area.nWidth);
  if (checks == Checks::none && draft.oneIn(16)) area.nWidth = draft.pick(INT32_MIN, 0);
  if (checks == Checks::none && draft.oneIn(16)) area.nHeight = draft.pick(INT32_MIN, 0);
  return area;
}

/// The rectangle and its planes. What is not read holds garbage.
class PlaneCall {
 public:
  PlaneCall(Draft& draft, bool mono, Checks checks)
      : area(rectangle(draft, checks)), draft_(draft), checks_(checks) {
    const Geometry geometry(area);
    const size_t first = mono ? 3 : 0;
    std::vector<Region> in;
    std::vector<Region> out;
    for (size_t k = first; k < (mono ? 4 : 3); ++k) {
      in.push_back({"pIn", k, geometry.lowest, static_cast<size_t>(geometry.extent)});
      out.push_back({"pOut", k, geometry.lowest, static_cast<size_t>(geometry.extent)});
    }
    draft.arrange(in, out, area.nLineWidth, std::max(0, area.nWidth));
    for (size_t k = 0; k < in.size(); ++k) {
      set.pIn[first + k] = draft.needed(in[k].pointer());
      set.pOut[first + k] = draft.needed(out[k].pointer());
    }
    set.nSize = draft.valid<int32_t>(1, INT32_MAX);
  }

  /// What a mono call does not look at.
  void garbageColors() {
    for (const size_t k : {1U, 2U}) set.pIn[k] = draft_.garbage();
    for (const size_t k : {0U, 1U, 2U}) set.pOut[k] = draft_.garbage();
  }

  const RastArea* pArea() {
    if (checks_ != Checks::none) {
      const bool fits = checks_ == Checks::fitAndExtent;
      const int32_t right = fits ? wrappingAdd(area.nStartX, area.nWidth) : 1;
      area.nLineWidth = draft_.within(area.nLineWidth, std::max(1, right));
      area.nWidth = draft_.within(area.nWidth, 1);
      area.nHeight = draft_.within(area.nHeight, 1);
    }
    return draft_.record<int32_t>("RastArea", area);
  }
  const RastPlaneSet* pPlanes() { return draft_.record<int32_t>("RastPlaneSet", set, sizeof set); }

  RastArea area{};
  RastPlaneSet set{};

 private:
  Draft& draft_;
  Checks checks_;
};

/// A 16-bit value that is often small, often at the ends of its range.
int16_t word(Draft& draft) {
  if (draft.oneIn(8)) return draft.oneIn(2) ? INT16_MIN : INT16_MAX;
  return draft.oneIn(3) ? draft.any<int16_t>() : draft.pick<int16_t>(-600, 600);
}

/// A lookup buffer of bytes with its built flag behind them, or none.
uint8_t* lookupBuffer(Draft& draft, size_t size) {
  if (!draft.oneIn(2)) return nullptr;
  uint8_t* const buffer = draft.block("pLut", size + 1, 1);
  buffer[size] = draft.oneIn(2) ? draft.pick<uint8_t>(1, 255) : uint8_t{0};
  return buffer;
}

/// A buffer to be filled, one filled by hand with anything, or one filled from a matrix and perhaps
/// changed in one product.
void prepare(Draft& draft, RastHueLut& lut, const RastHueParam& param) {
  enum { unbuilt, random, straight, bent };
  const int32_t kind = draft.pick(unbuilt, bent);
  if (kind >= straight) {
    const int32_t scale = draft.oneIn(4) ? draft.any<int16_t>() : 1;
    for (size_t k = 0; k < 3; ++k) {
      for (size_t j = 0; j < 3; ++j) {
        const int32_t slope = wrappingMultiply(param.nMatrix[k][j], scale);
        for (int32_t i = 0; i < 256; ++i)
          lut.row[k].nProd[j][i] = wrappingMultiply(i + param.nMatrix[j][3], slope);
      }
      lut.row[k].nOutOffset = draft.oneIn(4) ? draft.any<int32_t>() : param.nMatrix[k][4];
    }
  }
  if (kind == bent) {
    auto& products = lut.row[draft.pick<size_t>(0, 2)].nProd[draft.pick<size_t>(0, 2)];
    products[draft.oneIn(2)   ? draft.any<uint8_t>()
             : draft.oneIn(2) ? 255
                              : 0] ^= draft.pick(1, 65535);
  }
  lut.nReverse = param.nReverse;
  lut.nBuilt = kind == unbuilt ? int16_t{0} : draft.pick<int16_t>(1, INT16_MAX);
}

template <class Param>
const Param* unread() {
  return reinterpret_cast<const Param*>(uintptr_t{16});
}

}  // namespace

Run drawExpGamma(Draft& draft) {
  PlaneCall call(draft, true, Checks::fitAndExtent);
  for (size_t k = 0; k < 3; ++k) {
    call.set.pIn[k] = draft.refusedUnlessNull(call.set.pIn[3]);
    call.set.pOut[k] = draft.refusedUnlessNull(call.set.pOut[3]);
  }
  uint8_t* const lut = lookupBuffer(draft, 256);
  RastExpGammaParam param{};
  param.nThreshold = draft.any<uint8_t>();
  param.nOffset = draft.any<uint8_t>();
  param.nGain = draft.pick<uint16_t>(0, draft.oneIn(2) ? 65535 : 600);
  const auto* pParam = lut && lut[256] ? unread<RastExpGammaParam>()
                                       : draft.record<int16_t>("RastExpGammaParam", param);
  return draft.call(expGamma, rastExpGamma, call.pArea(), call.pPlanes(), pParam, lut);
}

Run drawColGamma(Draft& draft) {
  const bool mono = draft.oneIn(3);
  PlaneCall call(draft, mono, Checks::fitAndExtent);
  uint8_t* const curve = draft.block("pCurve", 256, 1);
  if (mono) call.garbageColors();
  call.set.pIn[mono ? 0 : 3] = draft.refusedUnlessNull(curve);
  if (!mono) call.set.pOut[3] = draft.refusedUnlessNull(curve);
  return draft.call(colGamma, rastColGamma, call.pArea(), call.pPlanes(), draft.needed(curve));
}

Run drawBinConv(Draft& draft) {
  PlaneCall call(draft, false, Checks::extent);
  call.set.pIn[3] = draft.refusedUnlessNull(call.set.pOut[0]);
  call.set.pOut[3] = draft.garbage();
  const auto color = draft.oneIn(8) ? draft.any<uint32_t>() : draft.pick<uint32_t>(0, 5);
  return draft.call(binConv, rastBinConv, call.pArea(), call.pPlanes(), color);
}

/// Records other than those built in, which no exported function takes.
Run drawBinConvRecord(Draft& draft) {
  draft.keepWhole();
  PlaneCall call(draft, false, Checks::extent);
  RastBinConvColor record{};
  record.bMaxA = draft.oneIn(3);
  record.bMaxB = draft.oneIn(8);
  const int32_t even = draft.pick(0, 85);
  for (size_t k = 0; k < 3; ++k) {
    record.nCoefA[k] = word(draft);
    record.nCoefB[k] = draft.oneIn(8) ? word(draft) : draft.pick<int16_t>(0, even);
    record.nInkA[k] = draft.oneIn(4) ? draft.any<uint16_t>() : uint16_t{0};
    record.nInkB[k] = draft.oneIn(8) ? draft.any<uint16_t>() : draft.oneIn(2) ? 256 : 0;
  }
  record.nOffsetA = word(draft);
  record.nOffsetB = word(draft);
  draft.put<int16_t>("record", record);
  return [area = call.area, set = call.set, record](const Way& way) {
    convertWithRecord(way.rows, area, set, record);
    return Answers{RAST_OK};
  };
}

Run drawSatAdjust(Draft& draft) {
  PlaneCall call(draft, false, Checks::none);
  call.set.pIn[3] = draft.refusedUnlessNull(call.set.pOut[0]);
  call.set.pOut[3] = draft.garbage();
  return draft.call(satAdjust, rastSatAdjust, call.pArea(), call.pPlanes(),
                    draft.valid<uint32_t>(0, 1));
}

Run drawHueAdjust(Draft& draft) {
  const bool mono = draft.oneIn(3);
  PlaneCall call(draft, mono, Checks::fitAndExtent);
  RastHueParam param{};
  const bool mild = draft.oneIn(2);  // results between the limits
  for (auto& row : param.nMatrix) {
    for (int16_t& entry : row) entry = mild ? draft.pick<int16_t>(-99, 99) : word(draft);
  }
  param.nReverse = draft.pick<int16_t>(-1, 2);
  param.nMirror = draft.oneIn(2) ? draft.any<int16_t>() : int16_t{0};
  RastHueLut* lut = nullptr;
  if (draft.oneIn(2)) {
    lut = reinterpret_cast<RastHueLut*>(draft.block("pLut", sizeof *lut, alignof(RastHueLut)));
    prepare(draft, *lut, param);
  }
  const auto* const pParam = draft.needed(
      lut && lut->nBuilt ? unread<RastHueParam>() : draft.put<int16_t>("RastHueParam", param));
  const RastArea* const pArea = call.pArea();
  if (mono) {
    call.garbageColors();
  } else if (!draft.refused() && draft.oneIn(2)) {
    // A mono plane that is set as well decides which planes are checked and nothing else.
    call.set.pIn[3] = call.set.pOut[3] = reinterpret_cast<uint8_t*>(uintptr_t{16});
  }
  return draft.call(hueAdjust, rastHueAdjust, pArea, call.pPlanes(), pParam, lut);
}

Run drawColBalance(Draft& draft) {
  PlaneCall call(draft, false, Checks::fitAndExtent);
  call.set.pIn[3] = draft.refusedUnlessNull(call.set.pOut[0]);
  call.set.pOut[3] = draft.refusedUnlessNull(call.set.pOut[0]);
  uint8_t* const lut = lookupBuffer(draft, 1024);
  RastColBalanceParam param{};
  param.nCurve = draft.valid<uint8_t>(0, 4);
  for (int16_t& level : param.nLevel) level = draft.valid<int16_t>(0, 11);
  const auto* const pParam = draft.record<int16_t>("RastColBalanceParam", param);
  return draft.call(colBalance, rastColBalance, call.pArea(), call.pPlanes(), pParam, lut);
}

}  // namespace rast::test
