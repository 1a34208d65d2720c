#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
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

/// A base and an overlay of the given sizes, packed, and their places in an output.
struct Scene {
  RastArea area;
  RastOverlayParam param{};

  Scene(int32_t baseWidth, int32_t baseHeight, int32_t overlayWidth, int32_t overlayHeight,
        int32_t outWidth, int32_t outHeight)
      : area{baseWidth, 0, baseWidth, 0, baseHeight} {
    param.nOvlLineWidth = overlayWidth;
    param.nOvlWidth = overlayWidth;
    param.nOvlHeight = overlayHeight;
    param.nOutWidth = outWidth;
    param.nOutHeight = outHeight;
    param.nReserved0 = 0xDEADBEEF;
    param.nReserved1 = 0xDEADBEEF;
    param.pOvl[3] = reinterpret_cast<const uint8_t*>(16);
  }
  Scene& baseAt(int32_t x, int32_t y) {
    param.nBaseX = x;
    param.nBaseY = y;
    return *this;
  }
  Scene& overlayAt(int32_t x, int32_t y) {
    param.nOvlX = x;
    param.nOvlY = y;
    return *this;
  }
  size_t outSize() const {
    return static_cast<size_t>(param.nOutWidth) * static_cast<size_t>(param.nOutHeight);
  }
};

Bytes counted(size_t n, uint8_t first) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(first + i);
  return bytes;
}

/// Pixels numbered from `first`: three equal bytes each.
Bytes pixels(size_t n, uint8_t first) {
  Bytes bytes(3 * n);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(first + i / 3);
  return bytes;
}

/// The first byte of every pixel.
Bytes firstOf(const Bytes& rgb) {
  Bytes bytes;
  for (size_t i = 0; i < rgb.size(); i += 3) {
    EXPECT_EQ(rgb[i], rgb[i + 1]);
    EXPECT_EQ(rgb[i], rgb[i + 2]);
    bytes.push_back(rgb[i]);
  }
  return bytes;
}

Bytes interleaved(Scene scene, Bytes base, const Bytes& overlay, uint32_t white) {
  Bytes out(3 * scene.outSize(), 0xAA);
  uint8_t* const rgb[] = {base.data(), out.data()};
  scene.param.pOvl[0] = overlay.data();
  EXPECT_EQ(rastOverlayRGB24bpp(&scene.area, rgb, &scene.param, 0, 0xDEADBEEF, 0, 1, white),
            RAST_OK);
  return firstOf(out);
}

TEST(OverlayRgb, TheCursorsCross) {
  // One line: the base over columns 1 .. 4, the overlay over 3 .. 6.
  const Scene scene = Scene(4, 1, 4, 1, 8, 1).baseAt(1, 0).overlayAt(3, 0);
  EXPECT_EQ(interleaved(scene, pixels(8, 10), pixels(8, 50), 1),
            (Bytes{255, 50, 51, 52, 52, 12, 13, 255}));
}

TEST(OverlayRgb, SourcesRunOnFromLineToLine) {
  const Scene scene = Scene(2, 2, 2, 2, 4, 2).baseAt(0, 0).overlayAt(2, 0);
  EXPECT_EQ(interleaved(scene, pixels(8, 10), pixels(8, 50), 0),
            (Bytes{50, 51, 10, 11, 52, 53, 12, 13}));
}

TEST(OverlayRgb, FullyCoveredIsOneColor) {
  const Scene scene = Scene(5, 3, 5, 3, 5, 3);
  EXPECT_EQ(interleaved(scene, pixels(15, 10), pixels(15, 99), 0), Bytes(15, 99));
}

TEST(OverlayRgb, TheBaseColumnEntersTheTop) {
  // The base is placed at line 1 and column 3: composition begins at line 3.
  const Scene scene = Scene(2, 4, 1, 1, 6, 6).baseAt(3, 1).overlayAt(0, 5);
  Bytes expected(36, 0);
  expected[3 * 6 + 3] = 50;
  expected[3 * 6 + 4] = 51;
  expected[4 * 6 + 3] = 52;
  expected[4 * 6 + 4] = 53;
  expected[5 * 6 + 0] = 10;
  EXPECT_EQ(interleaved(scene, pixels(16, 10), pixels(16, 50), 0), expected);
}

TEST(OverlayRgb, WhatIsCutAtTheRightConsumesNothing) {
  const Scene scene = Scene(1, 2, 4, 2, 4, 2).baseAt(0, 0).overlayAt(2, 0);
  EXPECT_EQ(interleaved(scene, pixels(8, 10), pixels(8, 50), 1),
            (Bytes{50, 255, 10, 11, 51, 255, 12, 13}));
}

TEST(OverlayRgb, LinesBelowBothImagesAreBackground) {
  const Scene scene = Scene(1, 1, 1, 1, 2, 3).baseAt(0, 0).overlayAt(1, 0);
  EXPECT_EQ(interleaved(scene, pixels(1, 10), pixels(1, 50), 1),
            (Bytes{50, 10, 255, 255, 255, 255}));
}

TEST(OverlayRgb, EmptyRectanglesAreBackground) {
  const Scene scene = Scene(0, 2, 0, 2, 3, 2).baseAt(0, 0).overlayAt(2, 0);
  EXPECT_EQ(interleaved(scene, pixels(4, 10), pixels(4, 50), 1), Bytes(6, 255));
}

TEST(OverlayRgb, StartsAndPitchesCountPixels) {
  Scene scene = Scene(1, 1, 1, 1, 2, 1).baseAt(0, 0).overlayAt(1, 0);
  scene.area.nLineWidth = 4;
  scene.area.nStartX = 1;
  scene.area.nStartY = 1;
  scene.param.nOvlLineWidth = 3;
  scene.param.nOvlStartX = 2;
  scene.param.nOvlStartY = 1;
  EXPECT_EQ(interleaved(scene, pixels(8, 10), pixels(8, 50), 0), (Bytes{55, 15}));
}

/// A good call of either function, to be bent.
struct Call {
  Bytes base = Bytes(3 * 16, 1);
  Bytes overlay = Bytes(3 * 16, 2);
  Bytes out = Bytes(3 * 16, 0xAA);
  Scene scene = Scene(4, 4, 4, 4, 4, 4);
  uint8_t* rgb[2] = {base.data(), out.data()};
  RastPlaneSet planes{};
  bool useArea = true;
  bool useTarget = true;
  bool useParam = true;
  uint32_t planeMode = 0;
  uint32_t blendMode = 0;
  uint32_t density = 10;
  uint32_t white = 0;

  Call() {
    scene.param.pOvl[0] = overlay.data();
    for (size_t k = 0; k < 3; ++k) {
      planes.pIn[k] = base.data() + 16 * k;
      planes.pOut[k] = out.data() + 16 * k;
      scene.param.pOvl[k] = overlay.data() + 16 * k;
    }
    planes.pIn[3] = reinterpret_cast<const uint8_t*>(16);
    planes.pOut[3] = reinterpret_cast<uint8_t*>(16);
    planes.nSize = -1;
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  uint32_t runRgb() {
    return rastOverlayRGB24bpp(useArea ? &scene.area : nullptr, useTarget ? rgb : nullptr,
                               useParam ? &scene.param : nullptr, planeMode, 77, blendMode, density,
                               white);
  }
  uint32_t runPlanes() {
    return rastOverlay(useArea ? &scene.area : nullptr, useTarget ? &planes : nullptr,
                       useParam ? &scene.param : nullptr, planeMode, 77, blendMode, density, white);
  }
  bool untouched() const {
    return std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 0xAA; });
  }
};

std::vector<Check<Call>> sharedChecks(uint32_t lowDensity, uint32_t highDensity,
                                      uint32_t blendModes) {
  return {
      {"area null", [](Call& c) { c.useArea = false; }},
      {"target null", [](Call& c) { c.useTarget = false; }},
      {"param null", [](Call& c) { c.useParam = false; }},
      {"plane mode 3", [](Call& c) { c.planeMode = 3; }},
      {"plane mode -1", [](Call& c) { c.planeMode = 0xFFFFFFFF; }},
      {"blend mode", [=](Call& c) { c.blendMode = blendModes; }},
      {"density low", [=](Call& c) { c.density = lowDensity - 1; }},
      {"density high", [=](Call& c) { c.density = highDensity + 1; }},
      {"background", [](Call& c) { c.white = 2; }},
      {"overlay null", [](Call& c) { c.scene.param.pOvl[0] = nullptr; }},
      {"base null", [](Call& c) { c.rgb[0] = nullptr, c.planes.pIn[0] = nullptr; }},
      {"output null", [](Call& c) { c.rgb[1] = nullptr, c.planes.pOut[0] = nullptr; }},
  };
}

TEST(OverlayRgb, EachCheckAloneAndBeforeTheLaterOnes) {
  for (const uint32_t planeMode : {0U, 2U}) {
    expectChecksInOrder<Call>(
        sharedChecks(1, 10, 2),
        [planeMode](Call& c) {
          if (c.planeMode == 0) c.planeMode = planeMode;
          c.density = c.density == 10 ? 5 : c.density;
          return c.runRgb();
        },
        [](const Call& c) { return c.untouched(); });
  }
}

TEST(OverlayRgb, NarrowAndWideOutputsFollowTheSameRule) {
  for (const int32_t width : {63, 64, 200}) {
    const Scene scene = Scene(50, 3, 30, 2, width, 4).baseAt(5, 0).overlayAt(20, 1);
    Bytes base = counted(3 * 150, 1);
    const Bytes overlay = counted(3 * 60, 91);
    Bytes expected(3 * scene.outSize(), 0xAA);
    Bytes out = expected;
    RastOverlayParam param = scene.param;
    param.pOvl[0] = overlay.data();
    uint8_t* rgb[] = {base.data(), expected.data()};
    ASSERT_EQ(overlayRGB24bpp(nullptr, &scene.area, rgb, &param, 0, 0, 1, 1), RAST_OK);
    rgb[1] = out.data();
    ASSERT_EQ(rastOverlayRGB24bpp(&scene.area, rgb, &param, 0, 0, 0, 1, 1), RAST_OK);
    EXPECT_EQ(out, expected) << width;
  }
}

TEST(OverlayRgb, ASinglePlaneIsRefusedAfterAllChecks) {
  Call call;
  call.planeMode = 2;
  EXPECT_EQ(call.runRgb(), uint32_t{RAST_ERR_GENERIC});
  EXPECT_TRUE(call.untouched());
}

TEST(OverlayRgb, ModesAndDensityChangeNothing) {
  Call plain;
  ASSERT_EQ(plain.runRgb(), RAST_OK);
  for (uint32_t density = 1; density <= 10; ++density) {
    Call call;
    call.density = density;
    call.blendMode = density % 2;
    call.planeMode = density / 2 % 2;
    ASSERT_EQ(call.runRgb(), RAST_OK);
    EXPECT_EQ(call.out, plain.out);
  }
}

TEST(Overlay, EachCheckAloneAndBeforeTheLaterOnes) {
  expectChecksInOrder<Call>(
      sharedChecks(10, 100, 3), [](Call& c) { return c.runPlanes(); },
      [](const Call& c) { return c.untouched(); });
}

struct Modes {
  uint32_t plane = 0;
  uint32_t blend = 0;
  uint32_t density = 100;
  uint32_t white = 0;
};

/// Three planes each of base, overlay and output, the planes of a source given one after the other.
std::vector<Bytes> planar(Scene scene, const std::vector<Bytes>& base,
                          const std::vector<Bytes>& overlay, Modes modes) {
  std::vector<Bytes> out(3, Bytes(scene.outSize(), 0xAA));
  RastPlaneSet planes{};
  for (size_t k = 0; k < 3; ++k) {
    planes.pIn[k] = base[k].data();
    planes.pOut[k] = out[k].data();
    scene.param.pOvl[k] = overlay[k].data();
  }
  EXPECT_EQ(rastOverlay(&scene.area, &planes, &scene.param, modes.plane, 9, modes.blend,
                        modes.density, modes.white),
            RAST_OK);
  return out;
}

std::vector<Bytes> threeOf(const Bytes& plane) { return {plane, plane, plane}; }

/// One pixel of overlay on one of base.
std::vector<Bytes> onePixel(const Bytes& base, const Bytes& overlay, Modes modes) {
  return planar(Scene(1, 1, 1, 1, 1, 1), {{base[0]}, {base[1]}, {base[2]}},
                {{overlay[0]}, {overlay[1]}, {overlay[2]}}, modes);
}

using Pixel = std::vector<Bytes>;

TEST(Overlay, ThresholdOfModeZero) {
  const Modes modes{0, 0, 10, 0};
  EXPECT_EQ(onePixel({1, 2, 3}, {157, 0, 157}, modes), (Pixel{{1}, {2}, {3}}));
  EXPECT_EQ(onePixel({1, 2, 3}, {157, 0, 158}, modes), (Pixel{{15}, {0}, {16}}));
}

TEST(Overlay, ThresholdOfModeTwo) {
  const Modes modes{0, 2, 10, 0};
  EXPECT_EQ(onePixel({1, 2, 3}, {9, 9, 9}, modes), (Pixel{{1}, {2}, {3}}));
  EXPECT_EQ(onePixel({1, 2, 3}, {9, 10, 9}, modes), (Pixel{{0}, {1}, {0}}));
}

TEST(Overlay, ModeOneTakesTheLargerSample) {
  EXPECT_EQ(onePixel({10, 200, 30}, {50, 100, 30}, {0, 1, 100, 0}), (Pixel{{50}, {200}, {30}}));
  EXPECT_EQ(onePixel({0, 0, 0}, {0, 0, 0}, {0, 1, 100, 1}), (Pixel{{0}, {0}, {0}}));
}

TEST(Overlay, DensityScalesEverySample) {
  for (const auto& [density, scale] : {std::pair{10U, 26}, {50U, 128}, {99U, 253}, {100U, 256}}) {
    for (int v = 0; v < 256; ++v) {
      const auto sample = static_cast<uint8_t>(v);
      const auto out = onePixel({0, 0, 0}, {sample, sample, sample}, {0, 1, density, 0});
      ASSERT_EQ(out[1][0], v * scale >> 8) << density << ' ' << v;
    }
  }
}

TEST(Overlay, TransparentOutsideTheBaseIsZeroOnWhite) {
  const Scene scene = Scene(1, 1, 2, 1, 4, 1).baseAt(0, 0).overlayAt(1, 0);
  EXPECT_EQ(planar(scene, threeOf({7}), threeOf({15, 16}), {0, 0, 100, 1}),
            threeOf({7, 0, 16, 255}));
}

TEST(Overlay, SourcesBeginAtTheirStart) {
  Scene scene = Scene(2, 2, 1, 2, 3, 2).baseAt(0, 0).overlayAt(2, 0);
  scene.area.nLineWidth = 4;
  scene.area.nStartX = 1;
  scene.area.nStartY = 1;
  scene.param.nOvlLineWidth = 3;
  scene.param.nOvlStartX = 2;
  scene.param.nOvlStartY = 1;
  const auto base = threeOf(counted(12, 10));
  const auto overlay = threeOf(counted(9, 50));
  for (const uint32_t planeMode : {0U, 2U}) {
    EXPECT_EQ(planar(scene, base, overlay, {planeMode, 0, 100, 0})[0],
              (Bytes{15, 16, 55, 19, 20, 58}));
  }
}

TEST(Overlay, ThreePlanesSkipWhatIsCutAndASinglePlaneDrifts) {
  const Scene scene = Scene(6, 3, 0, 0, 4, 3).baseAt(1, 0).overlayAt(1, 0);
  const auto base = threeOf(counted(18, 1));
  const auto none = threeOf({0});
  EXPECT_EQ(planar(scene, base, none, {0, 0, 100, 0}),
            threeOf({0, 1, 2, 3, 0, 7, 8, 9, 0, 13, 14, 15}));
  const auto drifted = planar(scene, base, none, {2, 0, 100, 0});
  EXPECT_EQ(drifted[0], (Bytes{0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9}));
  EXPECT_EQ(drifted[1], Bytes(12, 0xAA));
  EXPECT_EQ(drifted[2], Bytes(12, 0xAA));
}

TEST(Overlay, TheBaseBeginsAtTheTopAndLosesItsLastLines) {
  const Scene scene = Scene(1, 4, 1, 1, 4, 6).baseAt(3, 1).overlayAt(0, 5);
  Bytes expected(24, 0);
  expected[3 * 4 + 3] = 11;
  expected[4 * 4 + 3] = 12;
  expected[5 * 4 + 0] = 99;
  EXPECT_EQ(planar(scene, threeOf(counted(4, 11)), threeOf({99}), {0, 0, 100, 0}),
            threeOf(expected));
}

TEST(Overlay, PlaneModesZeroAndOneAreTheSame) {
  const Scene scene = Scene(3, 3, 3, 3, 5, 5).baseAt(1, 1).overlayAt(2, 2);
  const auto base = threeOf(counted(9, 100));
  const auto overlay = threeOf(counted(9, 12));
  EXPECT_EQ(planar(scene, base, overlay, {0, 0, 80, 1}),
            planar(scene, base, overlay, {1, 0, 80, 1}));
}

/// The first plane of a set must not be null.
template <class Sample>
void takeAway(Sample* (&planes)[4], uint8_t* first, uint8_t* others) {
  planes[0] = first;
  planes[1] = planes[2] = planes[3] = others;
}

TEST(Overlay, ImagesOfWhichNothingIsTouchedNeedNotBeThere) {
  const Bytes image(100 * 20);
  Bytes out(3 * 100 * 20);
  const auto run = [&](const Rows* rows, uint32_t planeMode, const Scene& scene, bool base,
                       bool overlays, bool output, uint8_t* first, uint8_t* others) {
    RastOverlayParam param = scene.param;
    RastPlaneSet planes{};
    for (size_t k = 0; k < 3; ++k) {
      planes.pIn[k] = param.pOvl[k] = image.data();
      planes.pOut[k] = out.data() + 100 * 20 * k;
    }
    if (!base) takeAway(planes.pIn, first, others);
    if (!overlays) takeAway(param.pOvl, first, others);
    if (!output) takeAway(planes.pOut, first, others);
    RastArea area = scene.area;
    area.nLineWidth = param.nOvlLineWidth = 90;
    area.nStartX = param.nOvlStartX = 8;
    area.nStartY = param.nOvlStartY = -1;
    for (size_t k = 0; k < 3; ++k) {
      if (base) planes.pIn[k] += 90;
      if (overlays) param.pOvl[k] += 90;
    }
    EXPECT_EQ(overlay(rows, &area, &planes, &param, planeMode, 0, 100, 1), RAST_OK);
  };
  for (const Rows* rows : levelsAndDefinition()) {
    for (const uint32_t planeMode : {0U, 2U}) {
      for (uint8_t* first : kSetButNowhere) {
        for (uint8_t* others : kNowhere) {
          run(rows, planeMode, Scene(0, 9, 80, 9, 100, 12), false, true, true, first, others);
          run(rows, planeMode, Scene(80, 0, 80, 9, 100, 12), false, true, true, first, others);
          run(rows, planeMode, Scene(20, 9, 70, 9, 80, 12).baseAt(80, 0), false, true, true, first,
              others);
          run(rows, planeMode, Scene(80, 9, 0, 9, 100, 12), true, false, true, first, others);
          run(rows, planeMode, Scene(80, 9, 80, 0, 100, 12), true, false, true, first, others);
          run(rows, planeMode, Scene(80, 9, 80, 9, 100, 0), false, false, false, first, others);
          run(rows, planeMode, Scene(80, 9, 80, 9, 0, 12), false, false, false, first, others);
        }
      }
    }
  }
}

TEST(OverlayRgb, ImagesOfWhichNothingIsTouchedNeedNotBeThere) {
  Bytes image(3 * 100 * 20);
  Bytes out(3 * 100 * 20);
  const auto run = [&](const Rows* rows, const Scene& scene, uint8_t* base, uint8_t* over,
                       uint8_t* output) {
    RastOverlayParam param = scene.param;
    RastArea area = scene.area;
    uint8_t* const rgb[] = {base ? base : image.data(), output ? output : out.data()};
    param.pOvl[0] = over ? over : image.data();
    param.nOvlStartX = over ? -16 : 16;
    area.nStartX = base ? -16 : 16;
    EXPECT_EQ(overlayRGB24bpp(rows, &area, rgb, &param, 0, 0, 1, 1), RAST_OK);
    param.nOvlStartX = area.nStartX = 16;
    EXPECT_EQ(overlayRGB24bpp(rows, &area, rgb, &param, 0, 0, 1, 1), RAST_OK);
  };
  for (const Rows* rows : levelsAndDefinition()) {
    for (uint8_t* nowhere : kSetButNowhere) {
      run(rows, Scene(80, 9, 0, 9, 100, 12), nowhere, nullptr, nullptr);
      run(rows, Scene(80, 9, 80, 9, 100, 12), nowhere, nullptr, nullptr);
      run(rows, Scene(0, 9, 80, 9, 100, 12), nullptr, nowhere, nullptr);
      run(rows, Scene(80, 9, 80, 9, 100, 0), nowhere, nowhere, nowhere);
      run(rows, Scene(80, 9, 80, 9, 0, 12), nowhere, nowhere, nowhere);
    }
  }
}

class OverlayLevels : public testing::TestWithParam<Level> {};

INSTANTIATE_TEST_SUITE_P(, OverlayLevels, testing::ValuesIn(levels()),
                         [](const auto& info) { return info.param.name; });

constexpr size_t kSlotSize = 65536;

int32_t drawSize(Random& random) {
  return static_cast<int32_t>(random.oneIn(8) ? 0 : random.pick(1, 90));
}

/// Rectangles apart, nested, crossing, cut at right and bottom, empty or equal, as chance has it.
Scene drawScene(Random& random) {
  Scene scene(drawSize(random), drawSize(random), drawSize(random), drawSize(random),
              static_cast<int32_t>(random.pick(1, 150)), static_cast<int32_t>(random.pick(1, 60)));
  auto& p = scene.param;
  if (random.oneIn(6)) {
    p.nOvlWidth = p.nOvlLineWidth = scene.area.nWidth;
    p.nOvlHeight = scene.area.nHeight;
  }
  scene.baseAt(static_cast<int32_t>(random.pick(0, p.nOutWidth)),
               static_cast<int32_t>(random.pick(0, 50)));
  scene.overlayAt(static_cast<int32_t>(random.pick(0, p.nOutWidth)),
                  static_cast<int32_t>(random.pick(0, p.nOutHeight)));
  if (random.oneIn(6)) scene.overlayAt(p.nBaseX, p.nBaseY < p.nOutHeight ? p.nBaseY : 0);
  scene.area.nLineWidth += static_cast<int32_t>(random.pick(0, 9));
  scene.area.nStartX = static_cast<int32_t>(random.pick(0, 5));
  scene.area.nStartY = static_cast<int32_t>(random.pick(0, 2));
  p.nOvlLineWidth += static_cast<int32_t>(random.pick(0, 9));
  p.nOvlStartX = static_cast<int32_t>(random.pick(0, 5));
  p.nOvlStartY = static_cast<int32_t>(random.pick(0, 2));
  return scene;
}

using RunIn = std::function<uint32_t(const Rows*, const Memory&)>;

void expectSameAsDefinition(uint64_t seed, const std::function<RunIn(Random&)>& draw,
                            const Rows* rows) {
  Random random(seed);
  Memory definition(9, kSlotSize);
  Memory result(9, kSlotSize);
  for (int round = 0; round < 3000; ++round) {
    if (round % 50 == 0) {
      definition.fill(random);
      result.copyFrom(definition);
    }
    const auto run = draw(random);
    ASSERT_EQ(run(nullptr, definition), RAST_OK);
    ASSERT_EQ(run(rows, result), RAST_OK);
    ASSERT_TRUE(definition == result) << "round " << round;
  }
}

/// A place in `slot` that has room for a source in front and behind, or, close to it, one in its
/// slot.
struct Spot {
  size_t slot;
  size_t at;
  uint8_t* in(const Memory& memory) const { return memory.slot(slot) + at; }
};

using Spots = std::array<Spot, 3>;

RunIn interleavedRun(const Scene& scene, uint32_t white, const Spot& base, const Spot& overlay,
                     const Spot& out) {
  return [=](const Rows* rows, const Memory& memory) {
    uint8_t* const rgb[] = {base.in(memory), out.in(memory)};
    RastOverlayParam param = scene.param;
    param.pOvl[0] = overlay.in(memory);
    return overlayRGB24bpp(rows, &scene.area, rgb, &param, 0, 0, 1, white);
  };
}

RunIn planarRun(const Scene& scene, const Modes& modes, const Spots& base, const Spots& overlay,
                const Spots& out) {
  return [=](const Rows* rows, const Memory& memory) {
    RastPlaneSet planes{};
    RastOverlayParam param = scene.param;
    for (size_t k = 0; k < 3; ++k) {
      planes.pIn[k] = base[k].in(memory);
      planes.pOut[k] = out[k].in(memory);
      param.pOvl[k] = overlay[k].in(memory);
    }
    return rast::overlay(rows, &scene.area, &planes, &param, modes.plane, modes.blend,
                         modes.density, modes.white);
  };
}

TEST_P(OverlayLevels, InterleavedAnyPlacement) {
  expectSameAsDefinition(
      30,
      [](Random& random) {
        const Scene scene = drawScene(random);
        const auto white = static_cast<uint32_t>(random.pick(0, 1));
        const bool close = random.oneIn(4);
        const Spot base{close ? size_t{2} : 0,
                        static_cast<size_t>(close ? random.pick(0, 30000) : 0)};
        const Spot overlay{close ? size_t{2} : 1,
                           static_cast<size_t>(close ? random.pick(0, 30000) : 0)};
        const size_t size = 3 * scene.outSize();
        const Spot out{2, close ? static_cast<size_t>(random.pick(0, 30000)) : kSlotSize - size};
        return interleavedRun(scene, white, base, overlay, out);
      },
      GetParam().rows);
}

TEST_P(OverlayLevels, PlanesAnyPlacementAndMode) {
  expectSameAsDefinition(
      31,
      [](Random& random) {
        Scene scene = drawScene(random);
        // Sources whose lines run backwards through memory.
        if (random.oneIn(6)) scene.area.nLineWidth *= -1;
        if (random.oneIn(6)) scene.param.nOvlLineWidth *= -1;
        const Modes modes{
            static_cast<uint32_t>(random.pick(0, 2)), static_cast<uint32_t>(random.pick(0, 2)),
            static_cast<uint32_t>(random.pick(10, 100)), static_cast<uint32_t>(random.pick(0, 1))};
        const bool close = random.oneIn(4);
        Spots base;
        Spots overlay;
        Spots out;
        for (size_t k = 0; k < 3; ++k) {
          base[k] = {close ? size_t{6} : k,
                     static_cast<size_t>(close ? random.pick(9000, 20000) : 9000)};
          overlay[k] = {close ? size_t{6} : 3 + k,
                        static_cast<size_t>(close ? random.pick(9000, 20000) : 9000)};
          out[k] = {close ? size_t{6} : 6 + k, close ? static_cast<size_t>(random.pick(9000, 20000))
                                                     : kSlotSize - scene.outSize()};
        }
        return planarRun(scene, modes, base, overlay, out);
      },
      GetParam().rows);
}

/// Sources and outputs within a line of one another: there a line's order tells.
TEST_P(OverlayLevels, CloseTogether) {
  const auto near = [](Random& random) {
    const ptrdiff_t reach = random.oneIn(2) ? 8 : 130;
    return Spot{0, static_cast<size_t>(30000 + random.pick(-reach, reach))};
  };
  const auto anywhere = [](Random& random, size_t slot) {
    return Spot{slot, static_cast<size_t>(random.pick(9000, 20000))};
  };
  /// Whole lines of a page, mostly, so that the cursors keep abreast.
  const auto drawPage = [](Random& random) {
    Scene scene = drawScene(random);
    auto& p = scene.param;
    p.nOutWidth = static_cast<int32_t>(random.pick(1, 90));
    scene.area = {p.nOutWidth, 0, p.nOutWidth, 0, p.nOutHeight};
    scene.baseAt(0, 0).overlayAt(static_cast<int32_t>(random.pick(0, 3)), 0);
    p.nOvlLineWidth = p.nOutWidth;
    p.nOvlWidth = p.nOutWidth - p.nOvlX;
    p.nOvlHeight = static_cast<int32_t>(random.pick(0, p.nOutHeight));
    const auto part = static_cast<int32_t>(random.pick(0, p.nOutWidth));
    if (random.oneIn(3)) scene.area.nWidth = random.oneIn(2) ? 0 : part;
    return scene;
  };
  expectSameAsDefinition(
      32,
      [&](Random& random) {
        const Scene scene = drawPage(random);
        const Spot base = random.oneIn(2) ? near(random) : anywhere(random, 1);
        const Spot overlay = random.oneIn(2) ? near(random) : anywhere(random, 2);
        const Spot out = near(random);
        return interleavedRun(scene, 0, base, overlay, out);
      },
      GetParam().rows);
  expectSameAsDefinition(
      33,
      [&](Random& random) {
        const Scene scene = drawPage(random);
        const Modes modes{random.oneIn(3) ? 2U : 0U, static_cast<uint32_t>(random.pick(0, 2)), 100,
                          0};
        Spots base;
        Spots overlay;
        Spots out;
        for (size_t k = 0; k < 3; ++k) {
          base[k] = anywhere(random, k);
          overlay[k] = anywhere(random, 3 + k);
          out[k] = anywhere(random, 6 + k);
        }
        const auto one = static_cast<size_t>(random.pick(0, 2));
        out[random.oneIn(3) ? 0 : one] = near(random);
        const auto another = static_cast<size_t>(random.pick(0, 2));
        (random.oneIn(2) ? base : random.oneIn(2) ? overlay : out)[another] = near(random);
        return planarRun(scene, modes, base, overlay, out);
      },
      GetParam().rows);
}

/// A plane of a source whose lines lie apart, overlap or run backwards: one of them, whichever, is
/// close to the output line that is made of it. Or the outputs lie together.
TEST_P(OverlayLevels, CloseInOneLine) {
  expectSameAsDefinition(
      34,
      [](Random& random) {
        const auto width = static_cast<int32_t>(random.pick(1, 90));
        const auto height = static_cast<int32_t>(random.pick(1, random.oneIn(2) ? 3 : 40));
        const auto column = static_cast<int32_t>(random.pick(0, 3));
        Scene scene = Scene(width, height, width - std::min(column, width), height, width, height)
                          .overlayAt(column, 0);
        const auto pitch = [&] {
          const ptrdiff_t apart =
              random.oneIn(3) ? random.pick(1, width) : width * random.pick(1, 4);
          return static_cast<int32_t>(random.oneIn(3) ? -apart : apart);
        };
        scene.area.nLineWidth = pitch();
        scene.param.nOvlLineWidth = pitch();
        if (random.oneIn(3)) scene.area.nWidth = static_cast<int32_t>(random.pick(0, width));
        const Modes modes{random.oneIn(3) ? 2U : 0U, static_cast<uint32_t>(random.pick(0, 2)), 100,
                          0};
        const bool ofBase = random.oneIn(2);
        const size_t from = modes.plane == 2 ? 0 : static_cast<size_t>(random.pick(0, 2));
        const size_t to = modes.plane == 2 ? 0 : static_cast<size_t>(random.pick(0, 2));
        const int32_t sourcePitch = ofBase ? scene.area.nLineWidth : scene.param.nOvlLineWidth;
        const ptrdiff_t reach = random.oneIn(2) ? 8 : 90;
        const ptrdiff_t distance =
            random.pick(0, height - 1) * (sourcePitch - width) + random.pick(-reach, reach);
        const bool together = random.oneIn(4);
        const std::array<ptrdiff_t, 3> shift{random.pick(0, 9), random.pick(0, 9),
                                             random.pick(0, 9)};
        return [=](const Rows* rows, const Memory& memory) {
          constexpr ptrdiff_t middle = 32768;
          RastPlaneSet planes{};
          RastOverlayParam param = scene.param;
          for (size_t k = 0; k < 3; ++k) {
            planes.pIn[k] = memory.slot(k) + middle;
            param.pOvl[k] = memory.slot(3 + k) + middle;
            planes.pOut[k] = memory.slot(6 + k) + middle;
          }
          if (together) {
            for (size_t k = 0; k < 3; ++k) planes.pOut[k] = memory.slot(6) + middle + shift[k];
          } else {
            planes.pOut[to] = memory.slot(ofBase ? from : 3 + from) + middle + distance;
          }
          return rast::overlay(rows, &scene.area, &planes, &param, modes.plane, modes.blend,
                               modes.density, modes.white);
        };
      },
      GetParam().rows);
}

/// Of the overlay little more is read than the pixel that is shown over and over.
TEST_P(OverlayLevels, InterleavedBesideTheFirstPixel) {
  expectSameAsDefinition(
      35,
      [](Random& random) {
        const auto width = static_cast<int32_t>(random.pick(1, 90));
        const auto height = static_cast<int32_t>(random.pick(1, 2));
        const Scene scene = Scene(width, height, width, height, width, height)
                                .overlayAt(static_cast<int32_t>(random.pick(0, 1)), 0);
        const ptrdiff_t distance = random.pick(-8, 8);
        return [=](const Rows* rows, const Memory& memory) {
          uint8_t* const rgb[] = {memory.slot(0), memory.slot(1) + 1000 + distance};
          RastOverlayParam param = scene.param;
          param.pOvl[0] = memory.slot(1) + 1000;
          return overlayRGB24bpp(rows, &scene.area, rgb, &param, 0, 0, 1, 0);
        };
      },
      GetParam().rows);
}

}  // namespace
}  // namespace rast::test
