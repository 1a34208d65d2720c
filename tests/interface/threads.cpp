// Threads that share source planes and built buffers, each with outputs of its own, all get what one
// thread alone gets. Under the thread sanitizer this shows that calls share nothing that is written.
#include <array>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "rast.h"

namespace {

constexpr int32_t kWidth = 203;
constexpr int32_t kHeight = 40;
using Plane = std::vector<uint8_t>;

struct Shared {
  std::array<Plane, 3> in;
  RastExpGammaParam curve{40, 5, 512};
  RastHueParam matrix{{{200, 30, 26, 2, 3}, {20, 220, 16, -4, 5}, {10, 46, 200, 6, -7}}, 0, 0};
  RastColBalanceParam balance{2, {3, 5, 7, 6}};
  std::array<uint8_t, 257> curveTable{};
  RastHueLut products{};
  std::array<uint8_t, 1025> balanceTable{};
};

/// One call after the other on the shared planes and buffers; the outputs of all of them.
std::vector<Plane> callAll(Shared& shared) {
  const RastArea area{kWidth, 0, kWidth, 0, kHeight};
  std::vector<Plane> outputs;
  outputs.reserve(48);
  const auto planes = [&](size_t count, size_t first) {
    RastPlaneSet set{};
    set.nSize = kWidth * kHeight;
    for (size_t k = 0; k < count; ++k) {
      set.pIn[first + k] = shared.in[k].data();
      set.pOut[first + k] = outputs.emplace_back(shared.in[k].size()).data();
    }
    return set;
  };
  const auto record = [&](uint32_t code) {
    outputs.emplace_back(1, static_cast<uint8_t>(code == RAST_OK));
  };
  RastPlaneSet set = planes(1, 3);
  record(rastExpGamma(&area, &set, &shared.curve, shared.curveTable.data()));
  set = planes(3, 0);
  record(rastColGamma(&area, &set, shared.curveTable.data()));
  set = planes(3, 0);
  record(rastBinConv(&area, &set, 3));
  set = planes(3, 0);
  record(rastSatAdjust(&area, &set, 1));
  set = planes(3, 0);
  record(rastHueAdjust(&area, &set, &shared.matrix, &shared.products));
  set = planes(3, 0);
  record(rastColBalance(&area, &set, &shared.balance, shared.balanceTable.data()));
  set = planes(3, 0);
  const RastZoomParam ratios{3, 700, 600};
  record(rastZoom(&area, &set, &ratios));
  set = planes(3, 0);
  const RastShiftParam shift{5, 3, kWidth, kHeight, 2};
  record(rastImageShift(&area, &set, &shift, 0));

  RastOverlayParam overlay{};
  overlay.nOvlLineWidth = overlay.nOutWidth = kWidth;
  overlay.nOutHeight = kHeight;
  overlay.nOvlWidth = overlay.nOvlHeight = overlay.nOvlX = overlay.nOvlY = kHeight / 2;
  for (size_t k = 0; k < 3; ++k) overlay.pOvl[k] = shared.in[2 - k].data();
  set = planes(3, 0);
  record(rastOverlay(&area, &set, &overlay, 0, 0, 0, 70, 1));

  const RastArea pixels{kWidth / 3, 0, kWidth / 3, 0, kHeight};
  overlay.nOvlLineWidth = overlay.nOvlWidth = overlay.nOutWidth = kWidth / 3;
  overlay.nOvlX = 0;
  // The base is only read.
  uint8_t* const rgb[] = {shared.in[0].data(), outputs.emplace_back(shared.in[0].size()).data()};
  record(rastOverlayRGB24bpp(&pixels, rgb, &overlay, 0, 0, 0, 1, 1));

  const auto rotation = std::make_unique<RastRotateCtx>();
  RastRotateBand band{};
  band.nPlaneNum = 1;
  band.nLines = kHeight;
  band.nOutLineWidth = kHeight;
  band.nOutHeight = kWidth;
  band.pIn[0] = shared.in[0].data();
  band.pOut[0] = outputs.emplace_back(shared.in[0].size()).data();
  rastRotateInputAccumulate(&area, &band, rotation.get(), RAST_ROTATE_CW90);
  band.nLines = kWidth;
  outputs.emplace_back(
      1, static_cast<uint8_t>(rastRotateSockOutput(&band, rotation.get()) == RAST_COMPLETE));
  return outputs;
}

}  // namespace

int main() {
  Shared shared;
  uint32_t state = 1;
  for (Plane& plane : shared.in) {
    plane.resize(kWidth * kHeight);
    for (uint8_t& sample : plane) {
      state = state * 1664525 + 1013904223;
      sample = static_cast<uint8_t>(state >> 24);
    }
  }
  callAll(shared);
  shared.curveTable[256] = 1;
  const std::vector<Plane> expected = callAll(shared);
  for (const Plane& output : expected) {
    if (output.size() == 1 && output[0] == 0) {
      std::puts("a call failed");
      return 1;
    }
  }

  std::array<std::vector<Plane>, 4> results;
  std::vector<std::thread> threads;
  for (std::vector<Plane>& result : results) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) result = callAll(shared);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::vector<Plane>& result : results) {
    if (result != expected) {
      std::puts("a thread got other samples");
      return 1;
    }
  }
  return 0;
}
