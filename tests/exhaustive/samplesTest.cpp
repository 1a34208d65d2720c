// Every sample through every threshold, offset and kind of gain, and every pair of samples through
// every density and blend mode of the overlay: every level against the definition.
#include <gtest/gtest.h>

#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/levels.h"

namespace rast::test {
namespace {

constexpr int32_t kSamples = 256;
using Plane = std::vector<uint8_t>;

TEST(AllSamples, ThresholdGain) {
  // Falling, level, rising; results that just reach 255; the steps of the high byte.
  constexpr uint16_t gains[] = {0,   1,   127, 128,  255,  256,  257,   300,   511,   512,
                                600, 768, 999, 1024, 4096, 8191, 32767, 32768, 65280, 65535};
  Plane in(kSamples);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(i);
  Plane expected(kSamples);
  Plane out(kSamples);
  const RastArea area{kSamples, 0, kSamples, 0, 1};
  RastPlaneSet planes{};
  planes.pIn[3] = in.data();
  planes.nSize = 1;
  RastExpGammaParam param{};
  for (const uint16_t gain : gains) {
    param.nGain = gain;
    for (int threshold = 0; threshold < 256; ++threshold) {
      param.nThreshold = static_cast<uint8_t>(threshold);
      for (int offset = 0; offset < 256; ++offset) {
        param.nOffset = static_cast<uint8_t>(offset);
        planes.pOut[3] = expected.data();
        ASSERT_EQ(expGamma(nullptr, &area, &planes, &param, nullptr), RAST_OK);
        planes.pOut[3] = out.data();
        for (const Level& level : levels()) {
          ASSERT_EQ(expGamma(level.rows, &area, &planes, &param, nullptr), RAST_OK);
          ASSERT_EQ(out, expected) << level << ' ' << gain << ' ' << threshold << ' ' << offset;
        }
      }
    }
  }
}

/// Line by line one sample of the overlay on every sample of the base.
TEST(AllSamples, OverlayOnBase) {
  constexpr size_t pairs = size_t{kSamples} * kSamples;
  Plane over(pairs);
  Plane under(pairs);
  for (size_t i = 0; i < pairs; ++i) {
    over[i] = static_cast<uint8_t>(i >> 8);
    under[i] = static_cast<uint8_t>(i);
  }
  const Plane none(pairs, 0);
  Plane expected[3] = {none, none, none};
  Plane out[3] = {none, none, none};
  const RastArea area{kSamples, 0, kSamples, 0, kSamples};
  RastOverlayParam param{};
  param.nOvlLineWidth = param.nOvlWidth = param.nOvlHeight = kSamples;
  param.nOutWidth = param.nOutHeight = kSamples;
  RastPlaneSet planes{};
  for (size_t k = 0; k < 3; ++k) {
    planes.pIn[k] = k == 1 ? over.data() : under.data();
    param.pOvl[k] = k == 2 ? none.data() : k == 1 ? under.data() : over.data();
  }
  for (const uint32_t planeMode : {0U, 2U}) {
    for (uint32_t blendMode = 0; blendMode <= 2; ++blendMode) {
      for (uint32_t density = 10; density <= 100; ++density) {
        const auto run = [&](const Rows* rows, Plane(&to)[3]) {
          for (size_t k = 0; k < 3; ++k) planes.pOut[k] = to[k].data();
          return overlay(rows, &area, &planes, &param, planeMode, blendMode, density, 1);
        };
        ASSERT_EQ(run(nullptr, expected), RAST_OK);
        for (const Level& level : levels()) {
          ASSERT_EQ(run(level.rows, out), RAST_OK);
          for (size_t k = 0; k < 3; ++k) {
            ASSERT_EQ(out[k], expected[k])
                << level << ' ' << planeMode << ' ' << blendMode << ' ' << density;
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace rast::test
