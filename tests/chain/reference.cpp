#include "reference.h"

#include <gtest/gtest.h>
#include <rast.h>

#include <array>
#include <cmath>
#include <memory>
#include <numbers>

#include "support/call.h"

namespace rast::test {

namespace {

constexpr size_t kMono = 3;

RastArea areaOf(const Picture& picture) {
  const auto width = static_cast<int32_t>(picture.width);
  return {width, 0, width, 0, static_cast<int32_t>(picture.height)};
}

/// Three components at 0 .. 2, one at `mono`.
RastPlaneSet planesOf(const Picture& in, Picture& out, size_t mono = kMono) {
  RastPlaneSet set = {};
  set.nSize = 1;
  for (size_t c = 0; c < in.components(); ++c) {
    const size_t at = in.components() == 1 ? mono : c;
    set.pIn[at] = in.planes[c].data();
    set.pOut[at] = out.planes[c].data();
  }
  return set;
}

/// Each component as a page of its own.
std::optional<Picture> eachPlane(const Picture& in, const Reference& apply) {
  Picture result;
  for (const Plane& plane : in.planes) {
    Picture one(in.width, in.height, 1);
    one.planes[0] = plane;
    const std::optional<Picture> made = apply(one);
    if (!made) return {};
    result.width = made->width;
    result.height = made->height;
    result.planes.push_back(made->planes[0]);
  }
  return result;
}

template <class Call>
std::optional<Picture> called(const Picture& in, uint32_t width, uint32_t height, const Call& call,
                              size_t mono = kMono) {
  Picture out(width, height, in.components());
  const RastArea area = areaOf(in);
  const RastPlaneSet set = planesOf(in, out, mono);
  const uint32_t result = call(area, set);
  EXPECT_TRUE(result == RAST_OK || result == RAST_COMPLETE) << result;
  return out;
}

Reference expGamma(uint8_t threshold, uint8_t offset, uint16_t gain) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (in.components() == 3) return {};
    return eachPlane(in, [&](const Picture& plane) {
      const RastExpGammaParam param = {threshold, offset, gain};
      return called(plane, in.width, in.height, [&](const RastArea& area, const RastPlaneSet& set) {
        return rastExpGamma(&area, &set, &param, nullptr);
      });
    });
  };
}

using Curve = std::array<uint8_t, 256>;

Curve curveOf(const std::function<double(int)>& value) {
  Curve curve;
  for (int i = 0; i < 256; ++i) {
    curve[static_cast<size_t>(i)] = static_cast<uint8_t>(std::floor(value(i) + 0.5));
  }
  return curve;
}

Curve gammaCurve(double gamma) {
  return curveOf([=](int x) { return 255 * std::pow(x / 255.0, 1 / gamma); });
}

Reference colGamma(const Curve& curve) {
  return [=](const Picture& in) {
    return eachPlane(in, [&](const Picture& plane) {
      return called(plane, in.width, in.height, [&](const RastArea& area, const RastPlaneSet& set) {
        return rastColGamma(&area, &set, curve.data());
      });
    });
  };
}

Reference binConv(uint32_t color) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (in.components() != 3) return {};
    return called(in, in.width, in.height, [&](const RastArea& area, const RastPlaneSet& set) {
      return rastBinConv(&area, &set, color);
    });
  };
}

Reference satAdjust(uint32_t mode) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (in.components() != 3) return {};
    return called(in, in.width, in.height, [&](const RastArea& area, const RastPlaneSet& set) {
      return rastSatAdjust(&area, &set, mode);
    });
  };
}

/// Without a lookup buffer: what the library mirrors and prints itself.
Reference hueAdjust(const std::array<int, 9>& weights, bool reverse, bool mirror) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (in.components() == 4) return {};
    RastHueParam param = {};
    for (size_t i = 0; i < 9; ++i) param.nMatrix[i / 3][i % 3] = static_cast<int16_t>(weights[i]);
    param.nReverse = reverse;
    param.nMirror = mirror;
    std::optional<Picture> out;
    printedBy([&] {
      out = called(in, in.width, in.height, [&](const RastArea& area, const RastPlaneSet& set) {
        return rastHueAdjust(&area, &set, &param, nullptr);
      });
    });
    return out;
  };
}

std::array<int, 9> hueRotation(double degrees) {
  const double c = std::cos(degrees * std::numbers::pi / 180);
  const double s = std::sin(degrees * std::numbers::pi / 180);
  const double weights[9] = {
      0.213 + c * 0.787 - s * 0.213, 0.715 - c * 0.715 - s * 0.715, 0.072 - c * 0.072 + s * 0.928,
      0.213 - c * 0.213 + s * 0.143, 0.715 + c * 0.285 + s * 0.140, 0.072 - c * 0.072 - s * 0.283,
      0.213 - c * 0.213 - s * 0.787, 0.715 - c * 0.715 + s * 0.715, 0.072 + c * 0.928 + s * 0.072};
  std::array<int, 9> rounded;
  for (size_t i = 0; i < 9; ++i) rounded[i] = static_cast<int>(std::lround(weights[i] * 256));
  // Grays stay: what the rounding of the others leaves is the weight of the component itself.
  for (size_t k = 0; k < 3; ++k) {
    int others = 0;
    for (size_t j = 0; j < 3; ++j) others += j == k ? 0 : rounded[3 * k + j];
    rounded[4 * k] = 256 - others;
  }
  return rounded;
}

Reference colBalance(uint8_t curve, const std::array<int16_t, 4>& level) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (in.components() != 3) return {};
    RastColBalanceParam param = {curve, {level[0], level[1], level[2], level[3]}};
    return called(in, in.width, in.height, [&](const RastArea& area, const RastPlaneSet& set) {
      return rastColBalance(&area, &set, &param, nullptr);
    });
  };
}

Reference rotate(uint32_t mode) {
  return [=](const Picture& in) -> std::optional<Picture> {
    Picture out(in.height, in.width, in.components());
    const auto context = std::make_unique<RastRotateCtx>();
    const RastArea area = areaOf(in);
    RastRotateBand band = {};
    band.nPlaneNum = static_cast<int32_t>(in.components());
    band.nOutLineWidth = static_cast<int32_t>(out.width);
    band.nOutHeight = static_cast<int32_t>(out.height);
    for (size_t c = 0; c < in.components(); ++c) {
      band.pIn[c] = in.planes[c].data();
      band.pOut[c] = out.planes[c].data();
    }
    band.nLines = static_cast<int32_t>(in.height);
    EXPECT_EQ(rastRotateInputAccumulate(&area, &band, context.get(), mode), RAST_COMPLETE);
    band.nLines = static_cast<int32_t>(out.height);
    const uint32_t result = rastRotateSockOutput(&band, context.get());
    EXPECT_TRUE(result == RAST_OK || result == RAST_COMPLETE) << result;
    return out;
  };
}

/// The groups of so many samples, counted one by one.
uint32_t groups(uint32_t count, uint32_t ratio) {
  uint32_t made = 0;
  uint32_t sum = 0;
  bool open = false;
  for (uint32_t i = 0; i < count; ++i) {
    sum += ratio;
    open = sum < 1000;
    if (!open) {
      sum -= 1000;
      ++made;
    }
  }
  return made + (open ? 1 : 0);
}

Reference zoom(uint32_t x, uint32_t y) {
  return [=](const Picture& in) {
    return eachPlane(in, [&](const Picture& plane) {
      const RastZoomParam param = {1, x, y};
      return called(
          plane, groups(in.width, x), groups(in.height, y),
          [&](const RastArea& area, const RastPlaneSet& set) {
            return rastZoom(&area, &set, &param);
          },
          0);
    });
  };
}

struct Size {
  uint32_t width;
  uint32_t height;
};

Reference shift(int32_t x, int32_t y, std::optional<Size> size, uint32_t fill) {
  return [=](const Picture& in) -> std::optional<Picture> {
    const Size page = size.value_or(Size{in.width, in.height});
    const auto columns = static_cast<int32_t>(in.width) + x;
    const auto lines = static_cast<int32_t>(in.height) + y;
    const auto width = static_cast<int32_t>(page.width);
    const auto height = static_cast<int32_t>(page.height);
    if (columns < 1 || lines < 1 || x > width || y > height) return {};
    if (x >= 0 && y < 0) return {};
    if (x < 0 && (y > 0 || columns > width || lines > height)) return {};
    return eachPlane(in, [&](const Picture& plane) {
      const RastShiftParam param = {x, y, width, height, fill};
      return called(plane, page.width, page.height,
                    [&](const RastArea& area, const RastPlaneSet& set) {
                      return rastImageShift(&area, &set, &param, 1);
                    });
    });
  };
}

struct Placement {
  int32_t x = 0;
  int32_t y = 0;
  int32_t baseX = 0;
  int32_t baseY = 0;
  std::optional<Size> size = {};
  bool white = false;

  Size sizeFor(const Picture& page) const { return size.value_or(Size{page.width, page.height}); }
  bool fits(const Picture& page) const {
    const Size out = sizeFor(page);
    return std::min(x, baseX) < static_cast<int32_t>(out.width) &&
           std::min(baseX, y) < static_cast<int32_t>(out.height);
  }
  RastOverlayParam param(const Picture& page, const Picture& image) const {
    RastOverlayParam param = {};
    param.nOvlLineWidth = param.nOvlWidth = static_cast<int32_t>(image.width);
    param.nOvlHeight = static_cast<int32_t>(image.height);
    param.nBaseX = baseX;
    param.nBaseY = baseY;
    param.nOvlX = x;
    param.nOvlY = y;
    param.nOutWidth = static_cast<int32_t>(sizeFor(page).width);
    param.nOutHeight = static_cast<int32_t>(sizeFor(page).height);
    return param;
  }
};

Reference overlay(const Placement& at, uint32_t mode, uint32_t density) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (!at.fits(in)) return {};
    const Picture image = overlayImage(in.components());
    RastOverlayParam param = at.param(in, image);
    const Size size = at.sizeFor(in);
    Picture out(size.width, size.height, in.components());
    const RastArea area = areaOf(in);
    const bool single = in.components() != 3;
    for (size_t c = 0; c < (single ? in.components() : 1); ++c) {
      RastPlaneSet set = {};
      for (size_t i = 0; i < (single ? 1 : 3); ++i) {
        set.pIn[i] = in.planes[c + i].data();
        set.pOut[i] = out.planes[c + i].data();
        param.pOvl[i] = image.planes[c + i].data();
      }
      EXPECT_EQ(rastOverlay(&area, &set, &param, single ? 2 : 0, 0, mode, density, at.white),
                RAST_OK);
    }
    return out;
  };
}

Reference overlayRgb(const Placement& at) {
  return [=](const Picture& in) -> std::optional<Picture> {
    if (in.components() != 3 || !at.fits(in)) return {};
    const Picture image = overlayImage(3);
    RastOverlayParam param = at.param(in, image);
    const Size size = at.sizeFor(in);
    // Each run goes on with background as far as the other image or the output can make it.
    const size_t more = in.planes[0].size() + image.planes[0].size() + size.width * size.height;
    const auto joined = [&](const Picture& picture) {
      Plane pixels;
      for (size_t i = 0; i < picture.planes[0].size(); ++i) {
        for (const Plane& plane : picture.planes) pixels.push_back(plane[i]);
      }
      pixels.resize(pixels.size() + 3 * more, at.white ? 255 : 0);
      return pixels;
    };
    Plane base = joined(in);
    const Plane over = joined(image);
    Plane pixels(size_t{3} * size.width * size.height);
    uint8_t* const images[] = {base.data(), pixels.data()};
    param.pOvl[0] = over.data();
    const RastArea area = areaOf(in);
    EXPECT_EQ(rastOverlayRGB24bpp(&area, images, &param, 0, 0, 0, 5, at.white), RAST_OK);
    Picture out(size.width, size.height, 3);
    for (size_t i = 0; i < pixels.size(); ++i) out.planes[i % 3][i / 3] = pixels[i];
    return out;
  };
}

std::optional<Picture> gray(const Picture& in) {
  if (in.components() == 4) return {};
  if (in.components() == 1) return in;
  Picture out(in.width, in.height, 1);
  for (size_t i = 0; i < out.planes[0].size(); ++i) {
    const int thousandfold = 299 * in.planes[0][i] + 587 * in.planes[1][i] + 114 * in.planes[2][i];
    out.planes[0][i] = static_cast<uint8_t>((thousandfold + 500) / 1000);
  }
  return out;
}

}  // namespace

Picture overlayImage(uint32_t components) {
  Random random(components);
  Picture image = randomPicture(9, 6, components, random);
  // Transparent pixels of every threshold.
  for (Plane& plane : image.planes) {
    for (size_t i = 0; i < plane.size(); i += 3) plane[i] = static_cast<uint8_t>(i % 18);
    for (size_t i = 0; i < plane.size(); i += 5) plane[i] = 0;
  }
  return image;
}

std::vector<ReferenceStep> referenceSteps() {
  const Curve inverted = curveOf([](int x) { return 255 - x; });
  return {
      {"expgamma", expGamma(0, 0, 256)},
      {"expgamma threshold=40 gain=300", expGamma(40, 0, 300)},
      {"expgamma gain=65535 offset=255 threshold=254", expGamma(254, 255, 65535)},
      {"expgamma threshold=255", expGamma(255, 0, 256)},
      {"colgamma invert", colGamma(inverted)},
      {"colgamma gamma=1.8", colGamma(gammaCurve(1.8))},
      {"colgamma curve=gamma=0.1", colGamma(gammaCurve(0.1))},
      {"binconv", binConv(0)},
      {"binconv color=1", binConv(1)},
      {"binconv color=5", binConv(5)},
      {"satadjust lower", satAdjust(0)},
      {"satadjust mode=raise", satAdjust(1)},
      {"hueadjust", hueAdjust({256, 0, 0, 0, 256, 0, 0, 0, 256}, false, false)},
      {"hueadjust grayscale", hueAdjust({77, 150, 29, 77, 150, 29, 77, 150, 29}, false, false)},
      {"hueadjust swap-rb reverse", hueAdjust({0, 0, 256, 0, 256, 0, 256, 0, 0}, true, false)},
      {"hueadjust mirror", hueAdjust({256, 0, 0, 0, 256, 0, 0, 0, 256}, false, true)},
      {"hueadjust rotate=30 mirror reverse", hueAdjust(hueRotation(30), true, true)},
      {"hueadjust matrix=rotate=-123.5", hueAdjust(hueRotation(-123.5), false, false)},
      {"colbalance", colBalance(4, {5, 5, 5, 5})},
      {"colbalance level=6,5,4,5", colBalance(4, {6, 5, 4, 5})},
      {"colbalance curve=0 level=0,11,10,3", colBalance(0, {0, 11, 10, 3})},
      {"overlay logo.ppm", overlay({}, 0, 100)},
      {"overlay logo.ppm at=2,1 mode=ink density=80", overlay({2, 1}, 2, 80)},
      {"overlay with=logo.ppm at=1,3 base=2,2 size=31x23 mode=max white",
       overlay({1, 3, 2, 2, Size{31, 23}, true}, 1, 100)},
      {"overlay logo.ppm at=30,40 size=50x60", overlay({30, 40, 0, 0, Size{50, 60}}, 0, 100)},
      {"overlay logo.ppm size=4x3 white density=10",
       overlay({0, 0, 0, 0, Size{4, 3}, true}, 0, 10)},
      {"overlayrgb logo.ppm", overlayRgb({})},
      {"overlayrgb logo.ppm at=4,2 white", overlayRgb({4, 2, 0, 0, {}, true})},
      {"overlayrgb logo.ppm at=0,0 base=3,9 size=40x33", overlayRgb({0, 0, 3, 9, Size{40, 33}})},
      {"overlayrgb logo.ppm at=7,20 base=0,5 size=13x26 white",
       overlayRgb({7, 20, 0, 5, Size{13, 26}, true})},
      {"rotate cw", rotate(RAST_ROTATE_CW90)},
      {"rotate turn=ccw", rotate(RAST_ROTATE_CCW90)},
      {"zoom", zoom(1000, 1000)},
      {"zoom percent=50", zoom(500, 500)},
      {"zoom percent=33.3", zoom(333, 333)},
      {"zoom x=700", zoom(700, 1000)},
      {"zoom y=600", zoom(1000, 600)},
      {"zoom x=1 y=999", zoom(1, 999)},
      {"zoom x=999 y=1", zoom(999, 1)},
      {"zoom percent=12.5 x=250", zoom(250, 125)},
      {"shift", shift(0, 0, {}, 2)},
      {"shift x=2 y=1", shift(2, 1, {}, 2)},
      {"shift x=-1 y=-2 fill=black", shift(-1, -2, {}, 1)},
      {"shift x=3 y=5 size=40x30 fill=none", shift(3, 5, Size{40, 30}, 0)},
      {"shift x=-3 size=70x210 fill=none", shift(-3, 0, Size{70, 210}, 0)},
      {"shift x=5 y=6 size=5x6 fill=black", shift(5, 6, Size{5, 6}, 1)},
      {"shift size=3x2", shift(0, 0, Size{3, 2}, 2)},
      {"shift y=9 size=7x220", shift(0, 9, Size{7, 220}, 2)},
      {"gray", gray},
  };
}

}  // namespace rast::test
