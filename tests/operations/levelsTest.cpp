// Every operation at every level against its definition: random rectangles and parameters, planes
// apart, in place, crossed and overlapping at every distance up to two registers, outputs over the
// lookup buffer. All memory is compared, and protected pages stand on both sides of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/geometry.h"
#include "support/levels.h"
#include "support/memory.h"
#include "tone/rastBinConv.h"

namespace rast::test {
namespace {

using Invocation =
    std::function<uint32_t(const Rows*, const RastArea&, const RastPlaneSet&, uint8_t* buffer)>;

struct Operation {
  const char* name;
  bool mono;
  bool checksPitch;  // false: the rectangle may be wider than the pitch
  size_t bufferSize;
  std::function<Invocation(Random&)> draw;  // a call with random parameters
};

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
  return stream << operation.name;
}

/// A 16-bit value that is often small, often at the ends of its range.
int16_t drawWord(Random& random) {
  const ptrdiff_t span = random.oneIn(3) ? 32768 : 600;
  if (random.oneIn(8)) return random.oneIn(2) ? INT16_MIN : INT16_MAX;
  return static_cast<int16_t>(random.pick(-span, span - 1));
}

RastHueParam drawHueParam(Random& random) {
  RastHueParam param;
  for (auto& row : param.nMatrix) {
    for (int16_t& word : row) word = drawWord(random);
  }
  param.nReverse = static_cast<int16_t>(random.pick(-1, 2));
  param.nMirror = static_cast<int16_t>(random.oneIn(2) ? random.pick(-3, 3) : 0);
  return param;
}

Invocation drawExpGamma(Random& random) {
  RastExpGammaParam param;
  random.fill(&param, sizeof param);
  if (random.oneIn(2)) param.nGain %= 600;
  const bool rebuild = random.oneIn(2);
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t* buffer) {
    if (buffer && rebuild) buffer[256] = 0;
    return expGamma(rows, &area, &set, &param, buffer);
  };
}

Invocation drawColGamma(Random&) {
  return [](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t* buffer) {
    return colGamma(rows, &area, &set, buffer);
  };
}

Invocation drawBinConv(Random& random) {
  const auto color = static_cast<uint32_t>(random.pick(0, 6));
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t*) {
    return binConv(rows, &area, &set, color);
  };
}

Invocation drawRecord(Random& random) {
  RastBinConvColor record{};
  record.bMaxA = random.oneIn(3);
  record.bMaxB = random.oneIn(8);
  const ptrdiff_t even = random.pick(0, 85);
  for (size_t k = 0; k < 3; ++k) {
    record.nCoefA[k] = drawWord(random);
    record.nCoefB[k] =
        static_cast<int16_t>(random.oneIn(8) ? drawWord(random) : random.pick(0, even));
    record.nInkA[k] = static_cast<uint16_t>(random.oneIn(4) ? random.pick(0, 65535) : 0);
    record.nInkB[k] =
        static_cast<uint16_t>(random.oneIn(8) ? random.pick(0, 65535) : random.pick(0, 1) * 256);
  }
  record.nOffsetA = drawWord(random);
  record.nOffsetB =
      random.oneIn(2) ? drawWord(random) : static_cast<int16_t>(random.pick(-300, 300));
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t*) {
    convertWithRecord(rows, area, set, record);
    return uint32_t{RAST_OK};
  };
}

Invocation drawSatAdjust(Random& random) {
  const auto mode = static_cast<uint32_t>(random.pick(0, 1));
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t*) {
    return satAdjust(rows, &area, &set, mode);
  };
}

Invocation drawHueDirect(Random& random) {
  const RastHueParam param = drawHueParam(random);
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t*) {
    return hueAdjust(rows, &area, &set, &param, nullptr);
  };
}

Invocation drawHueLut(Random& random) {
  const RastHueParam param = drawHueParam(random);
  const bool rebuild = random.oneIn(2);
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t* buffer) {
    auto* lut = reinterpret_cast<RastHueLut*>(buffer);
    if (rebuild) lut->nBuilt = 0;
    lut->nReverse = param.nReverse;
    return hueAdjust(rows, &area, &set, &param, lut);
  };
}

Invocation drawColBalance(Random& random) {
  RastColBalanceParam param;
  param.nCurve = static_cast<uint8_t>(random.pick(0, 4));
  for (int16_t& level : param.nLevel) level = static_cast<int16_t>(random.pick(0, 11));
  const bool rebuild = random.oneIn(2);
  return [=](const Rows* rows, const RastArea& area, const RastPlaneSet& set, uint8_t* buffer) {
    if (buffer && rebuild) buffer[1024] = 0;
    return colBalance(rows, &area, &set, &param, buffer);
  };
}

const Operation kOperations[] = {
    {"ExpGamma", true, true, 0, drawExpGamma},
    {"ExpGammaTable", true, true, 257, drawExpGamma},
    {"ColGamma", false, true, 256, drawColGamma},
    {"ColGammaMono", true, true, 256, drawColGamma},
    {"BinConv", false, false, 0, drawBinConv},
    {"BinConvRecord", false, false, 0, drawRecord},
    {"SatAdjust", false, false, 0, drawSatAdjust},
    {"HueAdjust", false, true, 0, drawHueDirect},
    {"HueAdjustMono", true, true, 0, drawHueDirect},
    {"HueAdjustLut", false, true, sizeof(RastHueLut), drawHueLut},
    {"HueAdjustLutMono", true, true, sizeof(RastHueLut), drawHueLut},
    {"ColBalance", false, true, 0, drawColBalance},
    {"ColBalanceLut", false, true, 1025, drawColBalance},
};

/// Where a plane's lowest used byte, or a buffer, lies.
struct Place {
  size_t slot;
  ptrdiff_t at;
};

struct Layout {
  Place in[3];
  Place out[3];
  Place buffer;
};

constexpr size_t kSlots = 7;
constexpr size_t kSlotSize = 12288;  // a RastHueLut and a rectangle beside it
constexpr ptrdiff_t kReach = 130;    // two registers of the widest level, and a little

/// Planes of random arrangement; what lies close to something else does so in its slot.
Layout drawLayout(Random& random, const Geometry& geometry, const Memory& memory,
                  size_t bufferSize) {
  const auto slotSize = static_cast<ptrdiff_t>(memory.slotSize());
  const ptrdiff_t last = slotSize - geometry.extent;
  const auto near = [&](const Place& place, ptrdiff_t reach) {
    return Place{place.slot, std::clamp<ptrdiff_t>(place.at + random.pick(-reach, reach), 0, last)};
  };
  Layout layout;
  for (size_t k = 0; k < 3; ++k) {
    layout.in[k] = {k, randomPlace(random, geometry, memory.slotSize())};
    layout.out[k] = {3 + k, randomPlace(random, geometry, memory.slotSize())};
  }
  const auto one = static_cast<size_t>(random.pick(0, 2));
  const auto other = static_cast<size_t>(random.pick(0, 2));
  switch (random.pick(0, 6)) {
    case 0:  // apart
      break;
    case 1:  // in place
      std::copy(layout.in, layout.in + 3, layout.out);
      break;
    case 2:  // outputs on other components' inputs
      for (size_t k = 0; k < 3; ++k) layout.out[k] = layout.in[(k + one) % 3];
      break;
    case 3:  // one output close to an input
      layout.out[one] = near(layout.in[other], kReach);
      break;
    case 4:  // two outputs close to one another
      layout.out[one] = near(layout.out[other], random.oneIn(3) ? 1 : kReach);
      break;
    case 5:  // all close together
      for (size_t k = 0; k < 3; ++k) {
        layout.in[k] = near(layout.in[0], kReach);
        layout.out[k] = near(layout.in[0], random.oneIn(2) ? 3 : kReach);
      }
      break;
    default:  // all in place, one moved by a little
      std::copy(layout.in, layout.in + 3, layout.out);
      layout.out[one] = near(layout.in[one], 4);
  }
  const auto lastBuffer = slotSize - static_cast<ptrdiff_t>(bufferSize);
  layout.buffer = {6, random.oneIn(2) ? lastBuffer : random.pick(0, lastBuffer)};
  if (random.oneIn(3)) {
    const Place& over = layout.out[one];
    const auto reach = static_cast<ptrdiff_t>(bufferSize) + 8;
    layout.buffer = {over.slot, over.at + random.pick(-reach, geometry.extent + 8)};
  }
  // A RastHueLut needs its alignment.
  layout.buffer.at = std::clamp<ptrdiff_t>(layout.buffer.at, 0, lastBuffer) / 4 * 4;
  if (bufferSize % 4 != 0 && layout.buffer.at + 3 <= lastBuffer)
    layout.buffer.at += random.pick(0, 3);
  return layout;
}

uint32_t runIn(const Memory& memory, const Operation& operation, const Geometry& geometry,
               const Layout& layout, const Invocation& run, const Rows* rows) {
  RastPlaneSet set{};
  const auto plane = [&](const Place& place) {
    return memory.slot(place.slot) + place.at - geometry.lowest;
  };
  for (size_t k = 0; k < (operation.mono ? 1 : 3); ++k) {
    set.pIn[operation.mono ? 3 : k] = plane(layout.in[k]);
    set.pOut[operation.mono ? 3 : k] = plane(layout.out[k]);
  }
  set.nSize = 1;
  uint8_t* const buffer =
      operation.bufferSize ? memory.slot(layout.buffer.slot) + layout.buffer.at : nullptr;
  return run(rows, geometry.area, set, buffer);
}

class Levels : public testing::TestWithParam<std::tuple<Operation, Level>> {
 protected:
  /// Two memories of the same content: one for the definition, one for the level.
  Memory definition_{kSlots, kSlotSize};
  Memory result_{kSlots, kSlotSize};
  const Operation& operation_ = std::get<0>(GetParam());
  const Rows* rows_ = std::get<1>(GetParam()).rows;

  void refill(Random& random) {
    definition_.fill(random);
    result_.copyFrom(definition_);
  }

  bool sameResult(const Geometry& geometry, const Layout& layout, const Invocation& run) {
    return runIn(definition_, operation_, geometry, layout, run, nullptr) == RAST_OK &&
           runIn(result_, operation_, geometry, layout, run, rows_) == RAST_OK &&
           definition_ == result_;
  }
};

/// The tests of lookup buffers, for the operations that take one.
class BufferLevels : public Levels {};

std::vector<Operation> operationsWithBuffer() {
  std::vector<Operation> all(std::begin(kOperations), std::end(kOperations));
  std::erase_if(all, [](const Operation& operation) { return operation.bufferSize == 0; });
  return all;
}

/// The levels and, as one more, what is left of one without the kernels that a level may lack.
std::vector<Level> levelsAndPartialOne() {
  static const Rows partial = [] {
    Rows rows = *levels().front().rows;
    rows.thresholdGain = nullptr;
    rows.monoMatrix = nullptr;
    rows.saturation = nullptr;
    rows.matrix = nullptr;
    rows.products = nullptr;
    rows.balance = nullptr;
    rows.ink = nullptr;
    return rows;
  }();
  std::vector<Level> all = levels();
  all.push_back({"partial", &partial});
  return all;
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Operation, Level>>& info) {
  return std::get<0>(info.param).name + ("_" + std::get<1>(info.param).name);
}

INSTANTIATE_TEST_SUITE_P(, Levels,
                         testing::Combine(testing::ValuesIn(kOperations),
                                          testing::ValuesIn(levelsAndPartialOne())),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(, BufferLevels,
                         testing::Combine(testing::ValuesIn(operationsWithBuffer()),
                                          testing::ValuesIn(levelsAndPartialOne())),
                         nameOf);

std::string describe(const RastArea& a) {
  return std::to_string(a.nLineWidth) + ", " + std::to_string(a.nStartX) + ", " +
         std::to_string(a.nWidth) + ", " + std::to_string(a.nStartY) + ", " +
         std::to_string(a.nHeight);
}

TEST_P(Levels, RandomCalls) {
  Random random(20);
  printedBy([&] {
    for (int round = 0; round < 4000; ++round) {
      if (round % 40 == 0) refill(random);
      Geometry geometry = randomGeometry(random, random.oneIn(8) ? 700 : 220);
      if (!operation_.checksPitch && random.oneIn(4)) {
        geometry.area.nLineWidth = static_cast<int32_t>(random.pick(1, geometry.area.nWidth + 40));
        geometry = Geometry(geometry.area);
      }
      const Layout layout = drawLayout(random, geometry, definition_, operation_.bufferSize);
      ASSERT_TRUE(sameResult(geometry, layout, operation_.draw(random)))
          << "round " << round << ", area " << describe(geometry.area);
    }
  });
}

TEST_P(Levels, EveryWidthAtEveryAlignment) {
  Random random(21);
  printedBy([&] {
    for (int32_t width = 1; width <= 3 * 64 + 1; ++width) {
      refill(random);
      const Geometry geometry(RastArea{width, 0, width, 0, 1});
      for (ptrdiff_t at = 0; at < 64; ++at) {
        Layout layout;
        for (size_t k = 0; k < 3; ++k) {
          layout.in[k] = {k, at};
          layout.out[k] =
              at % 2 ? layout.in[k] : Place{3 + k, static_cast<ptrdiff_t>(kSlotSize) - width - at};
        }
        layout.buffer = {6, 0};
        ASSERT_TRUE(sameResult(geometry, layout, operation_.draw(random))) << width << ' ' << at;
      }
    }
  });
}

TEST_P(Levels, OverlapAtEveryDistance) {
  Random random(22);
  printedBy([&] {
    for (ptrdiff_t distance = -kReach; distance <= kReach; ++distance) {
      refill(random);
      for (const int32_t width : {3, 63, 64, 130, 200, 300}) {
        const Geometry geometry(RastArea{width + 1, 0, width, 0, 2});
        Layout layout;
        const auto one = static_cast<size_t>(random.pick(0, 2));
        for (size_t k = 0; k < 3; ++k) {
          layout.in[k] = {k, 1000};
          layout.out[k] = {operation_.mono || k == one ? k : 3 + k, 1000 + distance};
        }
        layout.buffer = {6, 0};
        ASSERT_TRUE(sameResult(geometry, layout, operation_.draw(random)))
            << width << ' ' << distance;
      }
    }
  });
}

/// Samples with a period of a register of the widest level, so that registers of each level repeat.
void fillWithPaper(Memory& memory, Random& random) {
  uint8_t period[64];
  random.fill(period, sizeof period);
  if (random.oneIn(2)) memset(period, period[0], sizeof period);
  for (size_t slot = 0; slot < memory.slots(); ++slot) {
    for (size_t i = 0; i < memory.slotSize(); i += sizeof period) {
      memcpy(memory.slot(slot) + i, period, sizeof period);
    }
  }
}

TEST_P(Levels, OneSampleDiffersFromPaper) {
  Random random(24);
  constexpr int32_t width = 700;
  constexpr ptrdiff_t start = 128;
  const Geometry geometry(RastArea{width, 0, width, 0, 1});
  printedBy([&] {
    for (ptrdiff_t at = 0; at < width; ++at) {
      fillWithPaper(definition_, random);
      definition_.slot(6)[random.pick(0, kSlotSize - 1)] ^= 0xFF;
      const auto one = static_cast<size_t>(random.pick(0, operation_.mono ? 0 : 2));
      definition_.slot(one)[start + at] ^= static_cast<uint8_t>(random.pick(1, 255));
      result_.copyFrom(definition_);
      Layout layout;
      for (size_t k = 0; k < 3; ++k) {
        layout.in[k] = {k, start};
        layout.out[k] = {at % 2 ? k : 3 + k, start};
      }
      layout.buffer = {6, 0};
      ASSERT_TRUE(sameResult(geometry, layout, operation_.draw(random))) << at;
    }
  });
}

/// Fills the input planes of a layout of one line with samples that repeat after `period`.
void fillWithRepeats(Random& random, const Memory& memory, const Layout& layout, int32_t width,
                     size_t period) {
  uint8_t pattern[64];
  for (const Place& place : layout.in) {
    random.fill(pattern, period);
    uint8_t* const line = memory.slot(place.slot) + place.at;
    for (size_t x = 0; x < static_cast<size_t>(width); ++x) line[x] = pattern[x % period];
  }
}

/// Runs that begin and end anywhere, and lines of periods that no register has.
TEST_P(Levels, RunsAndPeriods) {
  Random random(25);
  printedBy([&] {
    for (int round = 0; round < 1500; ++round) {
      if (round % 50 == 0) refill(random);
      const auto width = static_cast<int32_t>(random.pick(1, random.oneIn(8) ? 1500 : 700));
      const Geometry geometry(RastArea{width, 0, width, 0, 1});
      const Layout layout = drawLayout(random, geometry, definition_, operation_.bufferSize);
      const size_t periods[] = {1, 2, 8, 15, 16, 17, 31, 32, 33, 63, 64};
      fillWithRepeats(random, definition_, layout, width,
                      periods[random.pick(0, std::size(periods) - 1)]);
      for (const Place& place : layout.in) {
        if (random.oneIn(2)) continue;
        const ptrdiff_t from = random.pick(0, width);
        const ptrdiff_t to = random.pick(from, width);
        random.fill(definition_.slot(place.slot) + place.at + from, static_cast<size_t>(to - from));
      }
      result_.copyFrom(definition_);
      ASSERT_TRUE(sameResult(geometry, layout, operation_.draw(random)))
          << "round " << round << ", width " << width;
    }
  });
}

TEST_P(BufferLevels, OutputsAtTheEndsOfTheBuffer) {
  Random random(23);
  const auto size = static_cast<ptrdiff_t>(operation_.bufferSize);
  printedBy([&] {
    for (ptrdiff_t shared = -1; shared <= 8; ++shared) {
      for (int round = 0; round < 40; ++round) {
        refill(random);
        const Geometry geometry(RastArea{200, 0, 200, 0, 3});
        Layout layout;
        for (size_t k = 0; k < 3; ++k) {
          layout.in[k] = {k, 0};
          layout.out[k] = {3 + k, 0};
        }
        layout.buffer = {6, 1000};
        const auto one = static_cast<size_t>(random.pick(0, 2));
        layout.out[one] = {6, round % 2 ? 1000 + size - shared : 1000 + shared - geometry.extent};
        ASSERT_TRUE(sameResult(geometry, layout, operation_.draw(random)))
            << shared << ' ' << round;
      }
    }
  });
}

class Kernels : public testing::TestWithParam<Level> {};

INSTANTIATE_TEST_SUITE_P(, Kernels, testing::ValuesIn(builtLevels()),
                         [](const auto& info) { return info.param.name; });

TEST_P(Kernels, OfNoWidthTouchNoPlane) {
  if (!GetParam().rows) GTEST_SKIP() << "this processor does not run " << GetParam().name;
  const Rows& rows = *GetParam().rows;
  const uint8_t table[4 * 256] = {};
  const RastHueLut lut{};
  const ColorMatrix matrix{};
  rows.curve(MonoRow{}, table, false);
  rows.curve(MonoRow{}, table, true);
  if (rows.thresholdGain) rows.thresholdGain(MonoRow{}, ThresholdGain{});
  if (rows.monoMatrix) rows.monoMatrix(MonoRow{}, MonoMatrix{}, true);
  if (rows.saturation) rows.saturation(ColorRow{}, 0);
  if (rows.matrix) rows.matrix(ColorRow{}, matrix, true);
  if (rows.products) rows.products(ColorRow{}, lut);
  if (rows.balance) rows.balance(ColorRow{}, table);
  if (rows.ink) rows.ink(ColorRow{}, Ink{{}, 0, {}, table});
  rows.overlay(ColorRow{}, Blend{});
  rows.overlayMono(MonoRow{}, Blend{});
  rows.overlayOnBase(Row<6, 3>{}, Blend{});
  rows.overlayOnBaseMono(Row<2, 1>{}, Blend{});
  rows.transpose(nullptr, 0, LineGroup{}, LineGroup{}, 0);
  if (rows.reduce) rows.reduce(nullptr, nullptr, LinePlan{}, 0, 0);
}

/// Copies to each place of a register and of a page, against either protected page.
TEST_P(Kernels, CopiesOfEveryWidth) {
  if (!GetParam().rows) GTEST_SKIP() << "this processor does not run " << GetParam().name;
  Random random(26);
  Memory expected(2, 8192);
  Memory result(2, 8192);
  expected.fill(random);
  result.copyFrom(expected);
  const auto last = static_cast<ptrdiff_t>(expected.slotSize());
  for (ptrdiff_t width = 0; width <= 400; ++width) {
    for (ptrdiff_t k = 0; k < 64; ++k) {
      const ptrdiff_t places[] = {k, 4096 + k, last - width - k};
      const ptrdiff_t from = k % 3 ? random.pick(0, 64) : last - width;
      const ptrdiff_t to = places[random.pick(0, 2)];
      const auto size = static_cast<size_t>(width);
      memcpy(expected.slot(1) + to, expected.slot(0) + from, size);
      GetParam().rows->copy(result.slot(1) + to, result.slot(0) + from, size);
    }
    ASSERT_TRUE(expected == result) << width;
    random.fill(expected.slot(0), expected.slotSize());
    result.copyFrom(expected);
  }
}

}  // namespace
}  // namespace rast::test
