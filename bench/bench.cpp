// Every operation at every level this machine has, on a line, a band and an A4 page at 600 dpi.
// Each round times the operation, memcpy of the same bytes and the definition in turn, and the
// ratios reported are medians over the rounds: what else the machine does hits all three alike.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/levels.h"
#include "support/random.h"

namespace {

using rast::Rows;
using rast::test::Level;
using rast::test::Random;

constexpr int32_t kWidth = 4960;

struct Size {
  const char* name;
  int32_t height;
};
constexpr Size kSizes[] = {{"line", 1}, {"band", 32}, {"page", 7016}};

/// Planes of a size, filled once: three in, three out, of which an operation uses what it needs.
struct Planes {
  explicit Planes(int32_t height) : area{kWidth, 0, kWidth, 0, height} {
    Random random(1);
    random.fill(curve, sizeof curve);
    for (auto* side : {&in, &out}) {
      for (auto& plane : *side) {
        plane.resize(bytes());
        random.fill(plane.data(), plane.size());
      }
    }
  }
  size_t bytes() const { return static_cast<size_t>(kWidth) * static_cast<size_t>(area.nHeight); }
  RastPlaneSet mono() {
    RastPlaneSet set{};
    set.pIn[3] = in[0].data();
    set.pOut[3] = out[0].data();
    set.nSize = 1;
    return set;
  }
  RastPlaneSet color() {
    RastPlaneSet set{};
    for (size_t k = 0; k < 3; ++k) {
      set.pIn[k] = in[k].data();
      set.pOut[k] = out[k].data();
    }
    set.nSize = 1;
    return set;
  }

  RastArea area;
  uint8_t curve[256];
  std::vector<uint8_t> in[3];
  std::vector<uint8_t> out[3];
};

struct Operation {
  const char* name;
  double copied;  // planes that memcpy moves in place of the operation
  std::function<void(const Rows*, Planes&)> run;
};

RastHueParam hueParam(int16_t mirror) {
  return {{{200, 80, -24, 3, -2}, {-30, 290, -4, 0, 5}, {10, -60, 306, -7, 0}}, 0, mirror};
}

/// A buffer whose tables are no straight lines, which only table look-ups can serve.
RastHueLut bentHueLut() {
  RastHueLut lut{};
  Random random(2);
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

/// A stamp of a third each way, on an interleaved page as wide as a line of samples is long.
void overlayInterleaved(const Rows* rows, Planes& p) {
  const int32_t width = kWidth / 3;
  const RastArea base{width, 0, width, 0, p.area.nHeight};
  uint8_t* const rgb[] = {p.in[0].data(), p.out[0].data()};
  RastOverlayParam param = overlayOn(width, p.area.nHeight, width / 3, (p.area.nHeight + 2) / 3);
  param.pOvl[0] = p.in[1].data();
  rast::overlayRGB24bpp(rows, &base, rgb, &param, 0, 0, 1, 1);
}

/// An overlay as large as the page, so that every sample is blended.
void overlayPlanes(const Rows* rows, Planes& p, uint32_t planeMode, uint32_t blendMode) {
  const RastPlaneSet set = p.color();
  RastOverlayParam param = overlayOn(kWidth, p.area.nHeight, kWidth, p.area.nHeight);
  for (size_t k = 0; k < 3; ++k) param.pOvl[k] = p.in[(k + 1) % 3].data();
  rast::overlay(rows, &p.area, &set, &param, planeMode, blendMode, 60, 1);
}

/// A page in bands of 128 lines, turned into bands of 124.
void rotate(const Rows* rows, Planes& p, int32_t planes) {
  auto ctx = std::make_unique<RastRotateCtx>();
  RastRotateBand band{};
  band.nPlaneNum = planes;
  band.nOutLineWidth = p.area.nHeight;
  band.nOutHeight = kWidth;
  for (int32_t y = 0; y < p.area.nHeight; y += 128) {
    band.nLines = std::min(128, p.area.nHeight - y);
    for (int32_t k = 0; k < planes; ++k) {
      band.pIn[k] = p.in[k].data() + static_cast<ptrdiff_t>(y) * kWidth;
    }
    rastRotateInputAccumulate(&p.area, &band, ctx.get(), RAST_ROTATE_CW90);
  }
  for (int32_t y = 0; y < kWidth; y += 124) {
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

const std::vector<Operation>& operations() {
  static const RastExpGammaParam expGammaParam{20, 4, 300};
  static const RastColBalanceParam balanceParam{3, {6, 4, 7, 5}};
  static const std::vector<Operation> all = {
      {"expgamma", 1,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.mono();
         rast::expGamma(rows, &p.area, &set, &expGammaParam, nullptr);
       }},
      {"expgamma-table", 1,
       [](const Rows* rows, Planes& p) {
         static uint8_t table[257];
         const RastPlaneSet set = p.mono();
         rast::expGamma(rows, &p.area, &set, &expGammaParam, table);
         table[256] = 1;
       }},
      {"colgamma", 3,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.color();
         rast::colGamma(rows, &p.area, &set, p.curve);
       }},
      {"colgamma-mono", 1,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.mono();
         rast::colGamma(rows, &p.area, &set, p.curve);
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
         rast::hueAdjust(rows, &p.area, &set, &param, nullptr);
       }},
      {"hueadjust-mirrored", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(1);
         const RastPlaneSet set = p.color();
         rast::hueAdjust(rows, &p.area, &set, &param, nullptr);
       }},
      {"hueadjust-mono", 1,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         const RastPlaneSet set = p.mono();
         rast::hueAdjust(rows, &p.area, &set, &param, nullptr);
       }},
      {"hueadjust-buffer", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         static RastHueLut lut{};
         const RastPlaneSet set = p.color();
         rast::hueAdjust(rows, &p.area, &set, &param, &lut);
       }},
      {"hueadjust-any-buffer", 3,
       [](const Rows* rows, Planes& p) {
         static const RastHueParam param = hueParam(0);
         static RastHueLut lut = bentHueLut();
         const RastPlaneSet set = p.color();
         rast::hueAdjust(rows, &p.area, &set, &param, &lut);
       }},
      {"colbalance", 3,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.color();
         rast::colBalance(rows, &p.area, &set, &balanceParam, nullptr);
       }},
      {"colbalance-buffer", 3,
       [](const Rows* rows, Planes& p) {
         static uint8_t lut[1025];
         const RastPlaneSet set = p.color();
         rast::colBalance(rows, &p.area, &set, &balanceParam, lut);
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
      {"shift", 3,
       [](const Rows*, Planes& p) {
         const RastPlaneSet set = p.color();
         const RastShiftParam param{40, 0, kWidth, p.area.nHeight, 2};
         rastImageShift(&p.area, &set, &param, 0);
       }},
  };
  return all;
}

/// Gives standard output to the reports alone: hue adjustment traces each direct call there.
class ReportsAlone {
 public:
  ReportsAlone()
      : reports_(dup(STDOUT_FILENO)), buffer_(reports_), previous_(std::cout.rdbuf(&buffer_)) {
    if (!freopen("/dev/null", "w", stdout)) abort();
  }
  ~ReportsAlone() {
    std::cout.rdbuf(previous_);
    close(reports_);
  }

 private:
  class DescriptorBuffer : public std::streambuf {
   public:
    explicit DescriptorBuffer(int descriptor) : descriptor_(descriptor) {}

   protected:
    std::streamsize xsputn(const char* text, std::streamsize n) override {
      return write(descriptor_, text, static_cast<size_t>(n));
    }
    int overflow(int c) override {
      const char character = static_cast<char>(c);
      return xsputn(&character, 1) == 1 ? c : EOF;
    }

   private:
    int descriptor_;
  };

  int reports_;
  DescriptorBuffer buffer_;
  std::streambuf* previous_;
};

double seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  benchmark::ClobberMemory();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void measure(benchmark::State& state, const Operation& operation, const Rows* rows, Size size) {
  // The definition of a whole page takes long and varies little: a few rounds of it are enough.
  constexpr size_t definitionRounds = 5;
  Planes planes(size.height);
  std::vector<double> toMemcpy;
  std::vector<double> toDefinition;
  operation.run(rows, planes);
  for (auto _ : state) {
    const double own = seconds([&] { operation.run(rows, planes); });
    const double copy = seconds([&] {
      double left = operation.copied;
      for (size_t k = 0; left > 0; k = (k + 1) % 3, left -= 1) {
        const auto part = static_cast<double>(planes.bytes()) * std::min(left, 1.0);
        memcpy(planes.out[k].data(), planes.in[k].data(), static_cast<size_t>(part));
      }
    });
    toMemcpy.push_back(copy / own);
    if (toDefinition.size() < definitionRounds) {
      toDefinition.push_back(seconds([&] { operation.run(nullptr, planes); }) / own);
    }
    state.SetIterationTime(own);
  }
  const double moved = 2 * static_cast<double>(planes.bytes()) * operation.copied;
  state.SetBytesProcessed(static_cast<int64_t>(moved) * static_cast<int64_t>(state.iterations()));
  state.counters["of_memcpy"] = median(toMemcpy);
  state.counters["definition_x"] = median(toDefinition);
}

}  // namespace

int main(int argc, char** argv) {
  for (const Operation& operation : operations()) {
    for (const Level& level : rast::test::levels()) {
      for (const Size& size : kSizes) {
        const std::string name = std::string(operation.name) + '/' + level.name + '/' + size.name;
        benchmark::RegisterBenchmark(name.c_str(), [&operation, level,
                                                    size](benchmark::State& state) {
          measure(state, operation, level.rows, size);
        })->UseManualTime();
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const ReportsAlone reportsAlone;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
