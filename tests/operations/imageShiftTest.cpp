#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/levels.h"
#include "support/memory.h"
#include "support/nowhere.h"

namespace rast::test {
namespace {

using Bytes = std::vector<uint8_t>;

/// The mono plane of a source of 20 x 12, each sample its own number, shifted into a page of
/// sevens, behind which nothing may be written.
Bytes shifted(const RastArea& area, const RastShiftParam& param, size_t pageSize) {
  Bytes source(20 * 12);
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i);
  constexpr size_t behind = 64;
  Bytes page(pageSize + behind, 7);
  RastPlaneSet planes{};
  planes.pIn[3] = source.data();
  planes.pOut[3] = page.data();
  planes.nSize = 1;
  EXPECT_EQ(rastImageShift(&area, &planes, &param, 1), RAST_OK);
  EXPECT_EQ(Bytes(page.end() - behind, page.end()), Bytes(behind, 7));
  page.resize(pageSize);
  return page;
}

TEST(ImageShift, InsideThePage) {
  EXPECT_EQ(shifted({20, 0, 3, 0, 2}, {2, 1, 6, 4, 2}, 24),
            (Bytes{255, 255, 255, 255, 255, 255, 255, 255, 0,   1,   2,   255,
                   255, 255, 20,  21,  22,  255, 255, 255, 255, 255, 255, 255}));
}

TEST(ImageShift, CutAtTheRight) {
  EXPECT_EQ(shifted({20, 0, 3, 0, 2}, {5, 1, 6, 4, 1}, 24),
            (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 20, 0, 0, 0, 0, 0, 0}));
}

TEST(ImageShift, NegativeOffsetsKeepTheFirstSamples) {
  EXPECT_EQ(shifted({20, 4, 3, 1, 2}, {-1, -1, 4, 2, 2}, 8),
            (Bytes{24, 25, 255, 255, 255, 255, 255, 255}));
}

TEST(ImageShift, OneSampleOfOneLineIsLeft) {
  EXPECT_EQ(shifted({20, 4, 3, 1, 2}, {-2, -1, 4, 2, 2}, 8),
            (Bytes{24, 255, 255, 255, 255, 255, 255, 255}));
}

TEST(ImageShift, NegativeColumnAndPositiveLineReadOn) {
  EXPECT_EQ(shifted({20, 0, 3, 0, 2}, {-1, 1, 3, 4, 2}, 12),
            (Bytes{0, 1, 255, 20, 21, 255, 40, 41, 255, 255, 255, 255}));
}

TEST(ImageShift, WithoutFillTheRestStays) {
  EXPECT_EQ(shifted({20, 0, 3, 0, 2}, {2, 1, 6, 4, 0}, 24),
            (Bytes{7, 7, 7, 7, 7, 7, 7, 7, 0, 1, 2, 7, 7, 7, 20, 21, 22, 7, 7, 7, 7, 7, 7, 7}));
}

TEST(ImageShift, ALineLongerThanThePageIsOverwrittenByTheNext) {
  EXPECT_EQ(shifted({20, 0, 5, 0, 2}, {-1, 0, 3, 2, 0}, 8), (Bytes{0, 1, 2, 20, 21, 22, 23, 7}));
}

TEST(ImageShift, EveryOffsetThatFitsGivesTheWholePage) {
  const RastArea area{20, 2, 5, 1, 4};
  for (int32_t x = 0; x <= 9; ++x) {
    for (int32_t y = 0; y <= 7; ++y) {
      for (const uint32_t fill : {0U, 1U, 2U}) {
        Bytes expected(9 * 7, fill == 0 ? 7 : fill == 1 ? 0 : 255);
        for (int32_t r = 0; r < 4 && y + r < 7; ++r) {
          for (int32_t c = 0; c < 5 && x + c < 9; ++c) {
            expected[static_cast<size_t>((y + r) * 9 + x + c)] =
                static_cast<uint8_t>((1 + r) * 20 + 2 + c);
          }
        }
        EXPECT_EQ(shifted(area, {x, y, 9, 7, fill}, 9 * 7), expected)
            << x << ' ' << y << ' ' << fill;
      }
    }
  }
}

TEST(ImageShift, ColorPlanesTogether) {
  Bytes source(3 * 12);
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i);
  Bytes page(3 * 6, 7);
  RastPlaneSet planes{};
  for (size_t k = 0; k < 3; ++k) {
    planes.pIn[k] = source.data() + 12 * k;
    planes.pOut[k] = page.data() + 6 * k;
  }
  planes.pIn[3] = reinterpret_cast<const uint8_t*>(16);
  planes.pOut[3] = reinterpret_cast<uint8_t*>(16);
  planes.nSize = 1;
  const RastArea area{4, 1, 2, 1, 1};
  const RastShiftParam param{1, 0, 3, 2, 1};
  ASSERT_EQ(rastImageShift(&area, &planes, &param, 0), RAST_OK);
  EXPECT_EQ(page, (Bytes{0, 5, 6, 0, 0, 0, 0, 17, 18, 0, 0, 0, 0, 29, 30, 0, 0, 0}));
}

TEST(ImageShift, PlanesOfWhichNothingIsTouchedNeedNotBeThere) {
  const uint8_t checked[1] = {};
  const auto run = [&](const RastShiftParam& param, const uint8_t* in, uint8_t* out) {
    const RastArea area{40, 5, 3, 2, 2};
    RastPlaneSet planes{};
    planes.pIn[3] = checked;  // either source will do for the check
    for (size_t k = 0; k < 3; ++k) {
      planes.pIn[k] = in;
      planes.pOut[k] = out;
    }
    planes.nSize = 1;
    EXPECT_EQ(rastImageShift(&area, &planes, &param, 0), RAST_OK);
  };
  for (const uint8_t* in : kNowhere) {
    for (const uint32_t fill : {1U, 2U}) {
      Bytes page(6 * 4, 7);
      run({6, 1, 6, 4, fill}, in, page.data());
      EXPECT_EQ(page, Bytes(6 * 4, fill == 1 ? 0 : 255)) << "the rectangle lies right of the page";
    }
    for (uint8_t* out : kNowhere) {
      run({6, 1, 6, 4, 0}, in, out);
      for (const uint32_t fill : {0U, 1U, 2U}) {
        run({6, 0, 6, 0, fill}, in, out);
        run({0, 2, 0, 3, fill}, in, out);
      }
    }
  }
}

TEST(ImageShift, EveryLevelCopiesTheSame) {
  Random random(60);
  Memory source(1, 16384);
  source.fill(random);
  for (const Level& level : levels()) {
    SCOPED_TRACE(level.name);
    for (int round = 0; round < 1500; ++round) {
      const auto width = static_cast<int32_t>(random.pick(1, random.oneIn(3) ? 1500 : 300));
      const auto height = static_cast<int32_t>(random.pick(1, 4));
      const RastArea area{width + static_cast<int32_t>(random.pick(0, 9)), 0, width, 0, height};
      const auto x = static_cast<int32_t>(random.pick(-3, 20));
      const RastShiftParam param{std::max(x, 1 - width), 0,
                                 width + static_cast<int32_t>(random.pick(20, 40)), height,
                                 static_cast<uint32_t>(random.pick(0, 2))};
      // The last line of both ends at a protected page.
      const auto read = static_cast<size_t>(area.nLineWidth * (height - 1) + width);
      const auto written = static_cast<size_t>(param.nOutLineWidth * height);
      RastPlaneSet planes{};
      planes.pIn[3] = source.slot(0) + source.slotSize() - read;
      planes.nSize = 1;
      Memory pages(2, written);
      for (size_t i = 0; i < 2; ++i) {
        planes.pOut[3] = pages.slot(i) + pages.slotSize() - written;
        ASSERT_EQ(imageShift(i ? level.rows : nullptr, &area, &planes, &param, 1), RAST_OK);
      }
      ASSERT_EQ(memcmp(pages.slot(0), pages.slot(1), pages.slotSize()), 0)
          << width << ' ' << param.nShiftX;
    }
  }
}

struct Call : Planes {
  RastShiftParam param{0, 0, 8, 1, 2};
  uint32_t planeMode = 1;
  bool useArea = true;
  bool usePlanes = true;
  bool useParam = true;

  Call() : Planes(8) { useMono(); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  uint32_t run() {
    return rastImageShift(useArea ? &area : nullptr, usePlanes ? &set : nullptr,
                          useParam ? &param : nullptr, planeMode);
  }
};

TEST(ImageShift, EachCheckAloneAndBeforeTheLaterOnes) {
  expectChecksInOrder<Call>(
      {
          {"area null", [](Call& c) { c.useArea = false; }},
          {"line fit", [](Call& c) { c.area.nStartX = 1 << 20; }},
          {"planes null", [](Call& c) { c.usePlanes = false; }},
          {"no source", [](Call& c) { c.set.pIn[3] = nullptr; }},
          {"a second source alone",
           [](Call& c) { c.set.pIn[3] = nullptr, c.set.pIn[1] = c.in[1].data(); }},
          {"size 0", [](Call& c) { c.set.nSize = 0; }},
          {"param null", [](Call& c) { c.useParam = false; }},
          {"pitch 0",
           [](Call& c) {
             c.area = {0, -8, 8, 0, 1};
           }},
          {"width 0", [](Call& c) { c.area.nWidth = 0; }},
          {"height 0", [](Call& c) { c.area.nHeight = 0; }},
          {"nothing left of a line", [](Call& c) { c.param.nShiftX = -8; }},
          {"no line left", [](Call& c) { c.param.nShiftY = -1; }},
          {"plane mode 2", [](Call& c) { c.planeMode = 2; }},
          {"fill mode 3", [](Call& c) { c.param.nFillMode = 3; }},
      },
      [](Call& c) { return c.run(); }, [](const Call& c) { return c.untouched(); });
}

TEST(ImageShift, EitherSourceWillDoForTheCheck) {
  Call call;
  call.set.pIn[0] = call.in[3].data();
  EXPECT_EQ(call.run(), RAST_OK);
}

}  // namespace
}  // namespace rast::test
