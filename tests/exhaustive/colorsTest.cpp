// All 16,777,216 colors through the color operations: every level against the definition.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/levels.h"
#include "support/random.h"

namespace rast::test {
namespace {

constexpr int32_t kColors = 256 * 256;  // of one red; the planes hold them as 64 lines

/// Runs `operation` over every color at every level and compares with its definition.
void expectAllColors(
    const std::function<uint32_t(const Rows*, const RastArea&, const RastPlaneSet&)>& operation) {
  std::vector<uint8_t> in[3];
  std::vector<uint8_t> expected[3];
  std::vector<uint8_t> out[3];
  for (size_t k = 0; k < 3; ++k) {
    in[k].resize(kColors);
    expected[k].resize(kColors);
    out[k].resize(kColors);
  }
  for (size_t i = 0; i < kColors; ++i) {
    in[1][i] = static_cast<uint8_t>(i >> 8);
    in[2][i] = static_cast<uint8_t>(i);
  }
  const RastArea area{1024, 0, 1024, 0, kColors / 1024};
  const auto planesTo = [&](std::vector<uint8_t>(&to)[3]) {
    RastPlaneSet planes{};
    for (size_t k = 0; k < 3; ++k) {
      planes.pIn[k] = in[k].data();
      planes.pOut[k] = to[k].data();
    }
    planes.nSize = 1;
    return planes;
  };
  for (int red = 0; red < 256; ++red) {
    std::fill(in[0].begin(), in[0].end(), static_cast<uint8_t>(red));
    ASSERT_EQ(operation(nullptr, area, planesTo(expected)), RAST_OK);
    for (const Level& level : levels()) {
      ASSERT_EQ(operation(level.rows, area, planesTo(out)), RAST_OK);
      for (size_t k = 0; k < 3; ++k) {
        ASSERT_EQ(out[k], expected[k]) << level.name << ", red " << red << ", output " << k;
      }
    }
  }
}

TEST(AllColors, Saturation) {
  for (const uint32_t mode : {0U, 1U}) {
    SCOPED_TRACE(mode);
    expectAllColors([mode](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
      return satAdjust(rows, &area, &planes, mode);
    });
  }
}

TEST(AllColors, TwoColorConversion) {
  for (uint32_t color = 0; color < 6; ++color) {
    SCOPED_TRACE(color);
    expectAllColors([color](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
      return binConv(rows, &area, &planes, color);
    });
  }
}

const RastHueParam kMatrices[] = {
    {{{256, 0, 0, 0, 0}, {0, 256, 0, 0, 0}, {0, 0, 256, 0, 0}}, 0, 0},
    {{{-128, 77, 300, -5, 10}, {511, -400, 3, 9, -3}, {-90, -91, -92, 255, 255}}, 1, 0},
    {{{32767, 32767, 32767, 32767, -32768},
      {-32768, -32768, -32768, 32767, 32767},
      {32767, -32768, 1, 32767, 0}},
     0,
     1},
    {{{85, 85, 86, 0, 0}, {170, -60, 20, -128, 128}, {1, 1, 1, -32768, -1}}, 2, 1},
};

TEST(AllColors, HueDirectAndThroughABuffer) {
  for (const RastHueParam& param : kMatrices) {
    SCOPED_TRACE(&param - kMatrices);
    testing::internal::CaptureStdout();
    expectAllColors([&param](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
      return hueAdjust(rows, &area, &planes, &param, nullptr);
    });
    fflush(stdout);
    testing::internal::GetCapturedStdout();
    RastHueLut lut{};
    lut.nReverse = param.nReverse;
    expectAllColors([&](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
      return hueAdjust(rows, &area, &planes, &param, &lut);
    });
  }
}

TEST(AllColors, HueThroughABufferOfAnyContent) {
  RastHueLut lut;
  Random(1).fill(&lut, sizeof lut);
  lut.nReverse = 0;
  lut.nBuilt = 1;
  expectAllColors([&](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
    return hueAdjust(rows, &area, &planes, &kMatrices[0], &lut);
  });
}

const RastColBalanceParam kBalances[] = {
    {4, {5, 5, 5, 5}}, {0, {0, 10, 5, 3}},  {1, {11, 6, 7, 8}},
    {2, {9, 1, 2, 0}}, {3, {4, 10, 0, 11}},
};

TEST(AllColors, BalanceDirectAndThroughABuffer) {
  for (const RastColBalanceParam& param : kBalances) {
    SCOPED_TRACE(&param - kBalances);
    expectAllColors([&param](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
      return colBalance(rows, &area, &planes, &param, nullptr);
    });
    uint8_t lut[1025] = {};
    expectAllColors([&](const Rows* rows, const RastArea& area, const RastPlaneSet& planes) {
      return colBalance(rows, &area, &planes, &param, lut);
    });
  }
}

}  // namespace
}  // namespace rast::test
