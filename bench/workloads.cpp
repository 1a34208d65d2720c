#include "workloads.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "frame/operations.h"
#include "lines/lines.h"
#include "support/levels.h"
#include "support/random.h"

namespace rast::bench {

namespace {

constexpr RastColBalanceParam kBalance{3, {6, 4, 7, 5}};

RastHueParam hueParam(int16_t mirror) {
  return {{{200, 80, -24, 3, -2}, {-30, 290, -4, 0, 5}, {10, -60, 306, -7, 0}}, 0, mirror};
}

/// A buffer whose tables are no straight lines, which only table look-ups can serve.
RastHueLut bentHueLut() {
  RastHueLut lut{};
  test::Random random(2);
  for (RastHueLutRow& row : lut.row) {
    for (auto& table : row.nProd) {
      for (int32_t& product : table) product = static_cast<int32_t>(random.pick(-30000, 60000));
    }
  }
  lut.nBuilt = 1;
  return lut;
}

/// An overlay of the given size at the middle of an output as large as its base.
RastOverlayParam overlayOn(int32_t width, int32_t height, int32_t overlayWidth,
                           int32_t overlayHeight) {
  RastOverlayParam param{};
  param.nOvlLineWidth = param.nOvlWidth = overlayWidth;
  param.nOvlHeight = overlayHeight;
  param.nOvlX = (width - overlayWidth) / 2;
  param.nOvlY = (height - overlayHeight) / 2;
  param.nOutWidth = width;
  param.nOutHeight = height;
  return param;
}

/// The level that an exported function would use; none for the definition.
template <class Argument>
const Rows* levelFor(const Rows* rows, const Argument* argument) {
  return rows ? rast::repaid(rows, argument) : nullptr;
}

/// A stamp of a third each way, on an interleaved page as wide as a line of samples is long.
void overlayInterleaved(const Rows* rows, Planes& p) {
  const int32_t width = p.area.nWidth / 3;
  const RastArea base{width, 0, width, 0, p.area.nHeight};
  uint8_t* const rgb[] = {p.in[0].data(), p.out[0].data()};
  RastOverlayParam param = overlayOn(width, p.area.nHeight, width / 3, (p.area.nHeight + 2) / 3);
  param.pOvl[0] = p.in[1].data();
  rast::overlayRGB24bpp(levelFor(rows, &param), &base, rgb, &param, 0, 0, 1, 1);
}

/// An overlay as large as the page, so that every sample is blended.
void overlayPlanes(const Rows* rows, Planes& p, uint32_t planeMode, uint32_t blendMode) {
  const RastPlaneSet set = p.color();
  RastOverlayParam param = overlayOn(p.area.nWidth, p.area.nHeight, p.area.nWidth, p.area.nHeight);
  for (size_t k = 0; k < 3; ++k) param.pOvl[k] = p.in[(k + 1) % 3].data();
  rast::overlay(rows, &p.area, &set, &param, planeMode, blendMode, 60, 1);
}

/// A page in bands of 128 lines, turned into bands of 124.
void rotate(const Rows* rows, Planes& p, int32_t planes) {
  auto ctx = std::make_unique<RastRotateCtx>();
  RastRotateBand band{};
  band.nPlaneNum = planes;
  band.nOutLineWidth = p.area.nHeight;
  band.nOutHeight = p.area.nWidth;
  for (int32_t y = 0; y < p.area.nHeight; y += 128) {
    band.nLines = std::min(128, p.area.nHeight - y);
    for (int32_t k = 0; k < planes; ++k) {
      band.pIn[k] = p.in[k].data() + static_cast<ptrdiff_t>(y) * p.area.nWidth;
    }
    rastRotateInputAccumulate(&p.area, &band, ctx.get(), RAST_ROTATE_CW90);
  }
  for (int32_t y = 0; y < p.area.nWidth; y += 124) {
    band.nLines = 124;
    for (int32_t k = 0; k < planes; ++k) {
      band.pOut[k] = p.out[k].data() + static_cast<ptrdiff_t>(y) * p.area.nHeight;
    }
    rast::rotateSockOutput(rows, &band, ctx.get());
  }
}

void reduce(const Rows* rows, Planes& p, uint32_t ratio) {
  const RastPlaneSet set = p.color();
  const RastZoomParam param{3, ratio, ratio};
  rast::zoom(rows, &p.area, &set, &param);
}

/// Moved to the right on a white page of the same size.
void shift(const Rows* rows, Planes& p, int32_t samples) {
  const RastPlaneSet set = p.color();
  const RastShiftParam param{samples, 0, p.area.nWidth, p.area.nHeight, 2};
  rast::imageShift(rows, &p.area, &set, &param, 0);
}

/// The kernels for lines of the level that has these for operations; the definition of none.
const chain::Lines& linesBeside(const Rows* rows) {
  static const auto levels = test::levels();
  static const auto lines = test::levelsOf<chain::Lines>();
  for (size_t i = 0; i < levels.size(); ++i) {
    if (levels[i].rows == rows) return *lines[i].rows;
  }
  return *chain::definition::lines();
}

/// Lines as wide as the planes, the last one perhaps shorter.
template <size_t N, class Work>
void eachLine(Planes& p, Work work) {
  const Pixels pixels(p, N);
  const auto width = static_cast<size_t>(p.area.nWidth);
  for (size_t x = 0; x < pixels.count; x += width) work(x, std::min(width, pixels.count - x));
}

template <size_t N>
void split(void (*kernel)(const Row<1, N>&), Planes& p) {
  eachLine<N>(p, [&](size_t x, size_t width) {
    Row<1, N> row{{p.in[0].data() + N * x}, {}, width};
    for (size_t k = 0; k < N; ++k) row.out[k] = p.out[0].data() + k * Pixels(p, N).count + x;
    kernel(row);
  });
}

template <size_t N>
void join(void (*kernel)(const Row<N, 1>&), Planes& p) {
  eachLine<N>(p, [&](size_t x, size_t width) {
    Row<N, 1> row{{}, {p.out[0].data() + N * x}, width};
    for (size_t k = 0; k < N; ++k) row.in[k] = p.in[0].data() + k * Pixels(p, N).count + x;
    kernel(row);
  });
}

/// The parts of a chain's work: bands of interleaved lines are split into planes, go through three
/// operations and are joined again.
void chainParts(const Rows* rows, Planes& p) {
  constexpr int32_t bandSamples = 1 << 15;  // as many as the engine takes at a time
  static const std::vector<uint8_t> inverted = [] {
    std::vector<uint8_t> curve(256);
    for (size_t i = 0; i < curve.size(); ++i) curve[i] = static_cast<uint8_t>(255 - i);
    return curve;
  }();
  static uint8_t lut[1025];
  const ChainPage page(p);
  const chain::Lines& kernels = linesBeside(rows);
  const int32_t most = std::max(1, bandSamples / (3 * page.width));
  const auto width = static_cast<size_t>(page.width);
  std::vector<uint8_t> planes[3];
  RastPlaneSet set{};
  for (size_t k = 0; k < 3; ++k) {
    planes[k].resize(width * static_cast<size_t>(most));
    set.pIn[k] = set.pOut[k] = planes[k].data();
  }
  set.nSize = 1;
  for (int32_t y = 0; y < page.height; y += most) {
    const RastArea area{page.width, 0, page.width, 0, std::min(most, page.height - y)};
    for (size_t i = 0; i < static_cast<size_t>(area.nHeight); ++i) {
      const uint8_t* const line = p.in[0].data() + (static_cast<size_t>(y) + i) * 3 * width;
      const size_t at = i * width;
      kernels.split3({{line}, {&planes[0][at], &planes[1][at], &planes[2][at]}, width});
    }
    rast::satAdjust(rows, &area, &set, 1);
    rast::colGamma(levelFor(rows, &area), &area, &set, inverted.data());
    rast::colBalance(rows, &area, &set, &kBalance, lut);
    for (size_t i = 0; i < static_cast<size_t>(area.nHeight); ++i) {
      uint8_t* const line = p.out[0].data() + (static_cast<size_t>(y) + i) * 3 * width;
      const size_t at = i * width;
      kernels.join3({{&planes[0][at], &planes[1][at], &planes[2][at]}, {line}, width});
    }
  }
}

/// The planes of a portable pixmap of the size, and its luma by the weights of ITU-R BT.601.
void readDocument(const Size& size, std::vector<uint8_t> (&color)[3], std::vector<uint8_t>& gray) {
  std::ifstream file(size.document, std::ios::binary);
  std::string magic;
  int32_t width = 0;
  int32_t height = 0;
  int32_t maximum = 0;
  file >> magic >> width >> height >> maximum;
  file.get();
  std::vector<char> pixels(3 * gray.size());
  file.read(pixels.data(), static_cast<std::streamsize>(pixels.size()));
  if (!file || magic != "P6" || width != size.width || height != size.height || maximum != 255) {
    std::cerr << size.document << ": expected a pixmap of " << size.width << " x " << size.height
              << " pixels of three bytes\n";
    exit(1);
  }
  for (size_t i = 0; i < gray.size(); ++i) {
    for (size_t k = 0; k < 3; ++k) color[k][i] = static_cast<uint8_t>(pixels[3 * i + k]);
    gray[i] =
        static_cast<uint8_t>((299 * color[0][i] + 587 * color[1][i] + 114 * color[2][i]) / 1000);
  }
}

}  // namespace

Planes::Planes(const Size& size) : area{size.width, 0, size.width, 0, size.height} {
  test::Random random(1);
  random.fill(curve, sizeof curve);
  const auto bytes = static_cast<size_t>(size.width) * static_cast<size_t>(size.height);
  for (auto* plane : {&in[0], &in[1], &in[2], &gray, &out[0], &out[1], &out[2]}) {
    plane->resize(bytes);
    random.fill(plane->data(), bytes);
  }
  if (size.document) readDocument(size, in, gray);
}

RastPlaneSet Planes::mono() {
  RastPlaneSet set{};
  set.pIn[3] = gray.data();
  set.pOut[3] = out[0].data();
  set.nSize = 1;
  return set;
}

RastPlaneSet Planes::color() {
  RastPlaneSet set{};
  for (size_t k = 0; k < 3; ++k) {
    set.pIn[k] = in[k].data();
    set.pOut[k] = out[k].data();
  }
  set.nSize = 1;
  return set;
}

const std::vector<Workload>& workloads() {
  static const RastExpGammaParam expGammaParam{20, 4, 300};
  static const std::vector<Workload> all = {
      {"expgamma", 1,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.mono();
         rast::expGamma(levelFor(rows, &p.area), &p.area, &set, &expGammaParam, nullptr);
       }},
      {"expgamma-table", 1,
       [](const Rows* rows, Planes& p) {
         static uint8_t table[257];
         const RastPlaneSet set = p.mono();
         rast::expGamma(levelFor(rows, &p.area), &p.area, &set, &expGammaParam, table);
         table[256] = 1;
       }},
      {"colgamma", 3,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.color();
         rast::colGamma(levelFor(rows, &p.area), &p.area, &set, p.curve);
       }},
      {"colgamma-mono", 1,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.mono();
         rast::colGamma(levelFor(rows, &p.area), &p.area, &set, p.curve);
       }},
      {"binconv", 3,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.color();
         rast::binConv(rows, &p.area, &set, 3);
       }},
      {"satadjust", 3,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.color();
         rast::satAdjust(rows, &p.area, &set, 1);
       }},
      {"hueadjust", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         const RastPlaneSet set = p.color();
         rast::hueAdjust(levelFor(rows, &p.area), &p.area, &set, &param, nullptr);
       }},
      {"hueadjust-mirrored", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(1);
         const RastPlaneSet set = p.color();
         rast::hueAdjust(levelFor(rows, &p.area), &p.area, &set, &param, nullptr);
       }},
      {"hueadjust-mono", 1,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         const RastPlaneSet set = p.mono();
         rast::hueAdjust(levelFor(rows, &p.area), &p.area, &set, &param, nullptr);
       }},
      {"hueadjust-buffer", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         static RastHueLut lut{};
         const RastPlaneSet set = p.color();
         rast::hueAdjust(levelFor(rows, &p.area), &p.area, &set, &param, &lut);
       }},
      {"hueadjust-any-buffer", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         static RastHueLut lut = bentHueLut();
         const RastPlaneSet set = p.color();
         rast::hueAdjust(levelFor(rows, &p.area), &p.area, &set, &param, &lut);
       }},
      {"colbalance", 3,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.color();
         rast::colBalance(rows, &p.area, &set, &kBalance, nullptr);
       }},
      {"colbalance-buffer", 3,
       [](const Rows* rows, Planes& p) {
         static uint8_t lut[1025];
         const RastPlaneSet set = p.color();
         rast::colBalance(rows, &p.area, &set, &kBalance, lut);
       }},
      {"overlayrgb", 1, overlayInterleaved},
      {"overlay-replace", 4.5, [](const Rows* rows, Planes& p) { overlayPlanes(rows, p, 0, 0); }},
      {"overlay-maximum", 4.5, [](const Rows* rows, Planes& p) { overlayPlanes(rows, p, 0, 1); }},
      {"overlay-single", 1.5, [](const Rows* rows, Planes& p) { overlayPlanes(rows, p, 2, 0); }},
      {"rotate-one-plane", 1, [](const Rows* rows, Planes& p) { rotate(rows, p, 1); }},
      {"rotate-three-planes", 3, [](const Rows* rows, Planes& p) { rotate(rows, p, 3); }},
      {"zoom-1000", 3, [](const Rows* rows, Planes& p) { reduce(rows, p, 1000); }},
      {"zoom-500", 3 * (1 + 0.25) / 2, [](const Rows* rows, Planes& p) { reduce(rows, p, 500); }},
      {"zoom-333", 3 * (1 + 0.111) / 2, [](const Rows* rows, Planes& p) { reduce(rows, p, 333); }},
      {"zoom-700", 3 * (1 + 0.49) / 2, [](const Rows* rows, Planes& p) { reduce(rows, p, 700); }},
      {"shift", 3, [](const Rows* rows, Planes& p) { shift(rows, p, p.area.nWidth / 124); }},
      {"shift-few", 3, [](const Rows* rows, Planes& p) { shift(rows, p, 5); }},
      {"split-3", 1, [](const Rows* rows, Planes& p) { split(linesBeside(rows).split3, p); }},
      {"split-4", 1, [](const Rows* rows, Planes& p) { split(linesBeside(rows).split4, p); }},
      {"join-3", 1, [](const Rows* rows, Planes& p) { join(linesBeside(rows).join3, p); }},
      {"join-4", 1, [](const Rows* rows, Planes& p) { join(linesBeside(rows).join4, p); }},
      {"chain", 1, chainParts},
  };
  return all;
}

}  // namespace rast::bench
