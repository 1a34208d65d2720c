#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/heap.h"
#include "support/levels.h"
#include "support/memory.h"
#include "support/nowhere.h"

namespace rast::test {
namespace {

using Bytes = std::vector<uint8_t>;

/// Plane 0 of a packed source reduced into a plane of `room` samples of 7.
Bytes reduced(const Bytes& source, int32_t width, int32_t height, uint32_t ratioX, uint32_t ratioY,
              size_t room) {
  Bytes out(room, 7);
  RastPlaneSet planes{};
  planes.pIn[0] = source.data();
  planes.pOut[0] = out.data();
  planes.nSize = 1;
  const RastArea area{width, 0, width, 0, height};
  const RastZoomParam param{1, ratioX, ratioY};
  EXPECT_EQ(rastZoom(&area, &planes, &param), RAST_OK);
  return out;
}

TEST(Zoom, WorkedLines) {
  EXPECT_EQ(reduced({10, 20, 30}, 3, 1, 1000, 1000, 4), (Bytes{10, 20, 30, 7}));
  EXPECT_EQ(reduced({10, 20, 30}, 3, 1, 500, 1000, 3), (Bytes{15, 30, 7}));
  EXPECT_EQ(reduced({10, 20, 30, 40, 50}, 5, 1, 600, 1000, 4), (Bytes{15, 35, 80, 7}));
}

TEST(Zoom, AGroupOfOneLineAddsTheSumBefore) {
  EXPECT_EQ(reduced(Bytes(5, 200), 1, 5, 1000, 600, 4), (Bytes{200, 200, 144, 7}));
}

TEST(Zoom, RatiosAboveOneWriteNothing) {
  EXPECT_EQ(reduced(Bytes(4, 1), 2, 2, 1, 1001, 4), Bytes(4, 7));
  EXPECT_EQ(reduced(Bytes(4, 1), 2, 2, 25399, 25399, 4), Bytes(4, 7));
  EXPECT_EQ(reduced(Bytes(4, 1), 2, 2, 2000, 1000, 4), Bytes(4, 7));
}

TEST(Zoom, TheHeightIsAnEndLine) {
  Bytes source(4 * 12);
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i);
  for (const auto& [start, end] : {std::pair{10, 10}, {11, 10}, {2, 6}}) {
    Bytes out(16, 7);
    RastPlaneSet planes{};
    planes.pIn[0] = source.data();
    planes.pOut[0] = out.data();
    planes.nSize = 1;
    const RastArea area{4, 0, 4, start, end};
    const RastZoomParam param{1, 1000, 1000};
    ASSERT_EQ(rastZoom(&area, &planes, &param), RAST_OK);
    EXPECT_EQ(out, start == 2 ? Bytes(source.begin() + 8, source.begin() + 24) : Bytes(16, 7));
  }
}

TEST(Zoom, PlanesOfWhichNothingIsTouchedNeedNotBeThere) {
  const Bytes source(100 * 40);
  const auto run = [](const Rows* rows, const RastArea& area, const uint8_t* in, uint8_t* out,
                      uint32_t ratioX, uint32_t ratioY) {
    RastPlaneSet planes{};
    planes.pIn[0] = in;
    planes.pOut[0] = out;
    planes.nSize = 1;
    const RastZoomParam param{1, ratioX, ratioY};
    EXPECT_EQ(zoom(rows, &area, &planes, &param), RAST_OK);
  };
  for (const Rows* rows : levelsAndDefinition()) {
    for (uint8_t* out : kSetButNowhere) {
      for (const uint32_t ratioY : {1U, 300U, 600U, 1000U}) {
        for (const uint8_t* in : kNowhere) {
          for (const uint32_t ratioX : {1U, 500U, 1000U, 2000U}) {
            run(rows, {100, 20, 80, 3, 3}, in, out, ratioX, ratioY);
            run(rows, {100, -600, 80, 5, 5}, in, out, ratioX, ratioY);
          }
        }
        run(rows, {100, 20, 80, 0, 40}, source.data(), out, 1001, ratioY);
      }
    }
  }
}

TEST(Zoom, ThePitchIsNotInTheResult) {
  Bytes source(10 * 3);
  for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i);
  Bytes out(6, 7);
  RastPlaneSet planes{};
  planes.pIn[0] = source.data();
  planes.pOut[0] = out.data();
  planes.nSize = 1;
  const RastArea area{10, 4, 2, 0, 3};
  const RastZoomParam param{1, 1000, 1000};
  ASSERT_EQ(rastZoom(&area, &planes, &param), RAST_OK);
  EXPECT_EQ(out, (Bytes{4, 5, 14, 15, 24, 25}));
}

TEST(Zoom, StoredSumsWrapAndTheLastOneDoesNot) {
  // Ratio 2: a group of 500; 499 stored samples of 255 wrap once, the last one is added on top.
  const uint32_t stored = (499 * 255) & 0xFFFF;
  EXPECT_EQ(reduced(Bytes(500, 255), 500, 1, 2, 1000, 1)[0],
            static_cast<uint8_t>((stored + 255) / 500));
  EXPECT_EQ(reduced(Bytes(500, 255), 1, 500, 1000, 2, 1)[0],
            static_cast<uint8_t>((stored + 255) / 500));
  // Ratio 3 of 334 samples: 258 of them reach 65,790, of which 254 are stored.
  EXPECT_EQ(reduced(Bytes(300, 255), 300, 1, 3, 1000, 1)[0],
            static_cast<uint8_t>(((300 * 255) & 0xFFFF) / 300));
}

struct Call : Planes {
  RastZoomParam param{3, 1000, 1000};
  bool useArea = true;
  bool usePlanes = true;
  bool useParam = true;

  Call() : Planes(8) {
    useColor();
    useMono();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  uint32_t run() {
    return rastZoom(useArea ? &area : nullptr, usePlanes ? &set : nullptr,
                    useParam ? &param : nullptr);
  }
};

TEST(Zoom, OnlyTheNamedPlanesAreWritten) {
  Call call;
  call.param.nPlaneNum = 2;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.out[0], call.in[0]);
  EXPECT_EQ(call.out[1], call.in[1]);
  EXPECT_EQ(call.out[2], Bytes(8, Planes::kUntouched));
  EXPECT_EQ(call.out[3], Bytes(8, Planes::kUntouched));
}

TEST(Zoom, EachCheckAloneAndBeforeTheLaterOnes) {
  expectChecksInOrder<Call>(
      {
          {"param null", [](Call& c) { c.useParam = false; }},
          {"no planes", [](Call& c) { c.param.nPlaneNum = 0; }},
          {"four planes", [](Call& c) { c.param.nPlaneNum = 4; }},
          {"area null", [](Call& c) { c.useArea = false; }},
          {"pitch 0",
           [](Call& c) {
             c.area = {0, -8, 8, 0, 1};
           }},
          {"width 0", [](Call& c) { c.area.nWidth = 0; }},
          {"height 0", [](Call& c) { c.area.nHeight = 0; }},
          {"line fit", [](Call& c) { c.area.nStartX = 1; }},
          {"planes null", [](Call& c) { c.usePlanes = false; }},
          {"pOut[0] null", [](Call& c) { c.set.pOut[0] = nullptr; }},
          {"pOut[3] null", [](Call& c) { c.set.pOut[3] = nullptr; }},
          {"size 0", [](Call& c) { c.set.nSize = 0; }},
          {"ratio x 0", [](Call& c) { c.param.nRatioX = 0; }},
          {"ratio x high", [](Call& c) { c.param.nRatioX = 25400; }},
          {"ratio y 0", [](Call& c) { c.param.nRatioY = 0; }},
          {"ratio y high", [](Call& c) { c.param.nRatioY = 25400; }},
      },
      [](Call& c) { return c.run(); }, [](const Call& c) { return c.untouched(); });
}

/// Runs a good call with allocation `failing` failed; returns the sizes of what is left allocated.
std::vector<size_t> leftAfter(Call& call, int failing, uint32_t& result) {
  heap.watch(failing);
  result = call.run();
  return heap.release();
}

TEST(Zoom, EveryAllocationFailedInTurn) {
  constexpr size_t pointers = 3 * sizeof(void*);
  for (int failing = 0; failing < 9; ++failing) {
    Call call;
    uint32_t result = RAST_OK;
    const auto left = leftAfter(call, failing, result);
    EXPECT_EQ(result, uint32_t{RAST_ERR_NO_MEMORY}) << failing;
    EXPECT_TRUE(call.untouched());
    // The cursors, then the averaged lines, then the sums, each a pointer array and three buffers.
    EXPECT_EQ(left, failing < 5 ? std::vector<size_t>{} : (std::vector<size_t>{pointers, 8, 8, 8}))
        << failing;
  }
  Call call;
  uint32_t result = RAST_OK;
  EXPECT_EQ(leftAfter(call, -1, result), std::vector<size_t>{});
  EXPECT_EQ(result, RAST_OK);
  EXPECT_EQ(heap.requested.size(), 9U);
  call.area.nStartY = 1;
  EXPECT_EQ(leftAfter(call, -1, result), std::vector<size_t>{});
  EXPECT_EQ(heap.requested.size(), 9U) << "a call that reads no line allocates all the same";
  call.param.nRatioY = 1001;
  leftAfter(call, -1, result);
  EXPECT_EQ(heap.requested.size(), 0U);
}

class ZoomLevels : public testing::TestWithParam<Level> {};

INSTANTIATE_TEST_SUITE_P(, ZoomLevels, testing::ValuesIn(levels()),
                         [](const auto& info) { return info.param.name; });

struct Spot {
  size_t slot;
  ptrdiff_t at;
};

/// Where outputs lie: in memory of their own, in the same memory, or in that of their own or the
/// next plane's input, which is then the middle.
enum class Outs { apart, together, overSource, overNext };

class TwoMemories {
 public:
  explicit TwoMemories(size_t slotSize) : expected_(6, slotSize), result_(6, slotSize) {}

  void refill(Random& random) {
    expected_.fill(random);
    result_.copyFrom(expected_);
  }
  /// Leaves one bit of each sample above `least`.
  void flatten(uint8_t least) {
    for (size_t i = 0; i < expected_.slots(); ++i) {
      uint8_t* const samples = expected_.slot(i);
      for (size_t k = 0; k < expected_.slotSize(); ++k) {
        samples[k] = static_cast<uint8_t>(least + samples[k] % 2);
      }
    }
    result_.copyFrom(expected_);
  }
  bool same(const Rows* rows, const RastArea& area, const RastZoomParam& param,
            const ptrdiff_t (&outAt)[3], Outs outs) {
    return run(expected_, nullptr, area, param, outAt, outs) ==
               run(result_, rows, area, param, outAt, outs) &&
           expected_ == result_;
  }

 private:
  static uint32_t run(const Memory& memory, const Rows* rows, const RastArea& area,
                      const RastZoomParam& param, const ptrdiff_t (&outAt)[3], Outs outs) {
    const ptrdiff_t size = static_cast<ptrdiff_t>(area.nHeight) * area.nLineWidth;
    RastPlaneSet planes{};
    const bool inTheMiddle = outs == Outs::overSource || outs == Outs::overNext;
    for (size_t k = 0; k < 3; ++k) {
      const size_t slots[] = {3 + k, 3, k, (k + 1) % 3};  // by Outs
      const auto room = static_cast<ptrdiff_t>(memory.slotSize()) - size;
      planes.pIn[k] = memory.slot(k) + (inTheMiddle ? room / 2 : room);
      planes.pOut[k] = memory.slot(slots[static_cast<size_t>(outs)]) + outAt[k];
    }
    planes.nSize = 1;
    return zoom(rows, &area, &planes, &param);
  }

  Memory expected_;
  Memory result_;
};

TEST_P(ZoomLevels, EveryRatioInBothDirections) {
  Random random(50);
  TwoMemories memories(16384);
  const ptrdiff_t apart[3] = {0, 5, 11};
  for (uint32_t ratio = 1; ratio <= 1000; ++ratio) {
    if (ratio % 50 == 1) memories.refill(random);
    const auto width = static_cast<int32_t>(random.pick(1, 200));
    const auto height = static_cast<int32_t>(random.pick(1, 40));
    const auto other = static_cast<uint32_t>(random.oneIn(3) ? 1000 : random.pick(1, 1000));
    const RastArea area{width + 3, 2, width, 0, height};
    ASSERT_TRUE(memories.same(GetParam().rows, area, {3, ratio, other}, apart, Outs::apart))
        << ratio << ' ' << other;
    ASSERT_TRUE(memories.same(GetParam().rows, area, {3, other, ratio}, apart, Outs::apart))
        << other << ' ' << ratio;
  }
}

/// Sums of every count of lines that are a multiple of it, or one less than the next one.
TEST_P(ZoomLevels, MeansNextToAWholeSample) {
  constexpr size_t width = 256;
  constexpr size_t most = 255;
  Bytes equal(most * width);
  for (size_t i = 0; i < equal.size(); ++i) equal[i] = static_cast<uint8_t>(i % width);
  Bytes greater(equal.begin(), equal.begin() + width);
  for (size_t i = width; i < equal.size(); ++i)
    greater.push_back(static_cast<uint8_t>(std::min(equal[i] + 1, 255)));
  for (size_t count = 2; count <= most; ++count) {
    for (const Bytes* lines : {&equal, &greater}) {
      Bytes mean(width);
      GetParam().rows->mean(mean.data(), lines->data(), width, count, width);
      EXPECT_EQ(mean, Bytes(equal.begin(), equal.begin() + width)) << count;
    }
  }
}

TEST_P(ZoomLevels, RatiosAboveOneOfWideLines) {
  Random random(58);
  TwoMemories memories(16384);
  memories.refill(random);
  const ptrdiff_t apart[3] = {0, 5, 11};
  for (const uint32_t ratio : {1001U, 2000U, 25399U}) {
    EXPECT_TRUE(
        memories.same(GetParam().rows, {200, 0, 200, 0, 9}, {3, ratio, 500}, apart, Outs::apart));
  }
}

/// Lines wide enough to be reduced by a table that was made for the call.
TEST_P(ZoomLevels, EveryRatioOfWideLines) {
  Random random(53);
  TwoMemories memories(65536);
  const ptrdiff_t apart[3] = {0, 5, 11};
  for (uint32_t ratio = 240; ratio <= 1000; ++ratio) {
    if (ratio % 20 == 0) memories.refill(random);
    const auto width = static_cast<int32_t>(random.pick(500, random.oneIn(4) ? 3000 : 1100));
    const auto height = static_cast<int32_t>(random.pick(15, 18));
    const auto other = static_cast<uint32_t>(random.oneIn(2) ? 1000 : random.pick(4, 1000));
    const RastArea area{width + 3, 2, width, 0, height};
    ASSERT_TRUE(memories.same(GetParam().rows, area, {3, ratio, other}, apart, Outs::apart))
        << ratio << ' ' << other << ' ' << width;
  }
}

/// So that an offset that is left unset leads behind the working memory of 512 to 1280 columns.
[[gnu::noinline]] void fillUnusedStack() {
  volatile uint8_t unused[32768];
  for (volatile uint8_t& byte : unused) byte = 0x0A;
}

TEST_P(ZoomLevels, WorkingMemoryIsNotLeft) {
  Random random(57);
  TwoMemories memories(16384);
  memories.refill(random);
  const ptrdiff_t apart[3] = {0, 5, 11};
  for (uint32_t ratio = 250; ratio <= 1000; ratio += 2) {
    const auto width = static_cast<int32_t>(random.pick(512, random.oneIn(2) ? 520 : 1020));
    heap.fenced = true;
    fillUnusedStack();
    const bool same = memories.same(GetParam().rows, {width, 0, width, 0, 16}, {1, ratio, 1000},
                                    apart, Outs::apart);
    heap.fenced = false;
    ASSERT_TRUE(same) << ratio << ' ' << width;
  }
}

TEST_P(ZoomLevels, InPlaceAndOverTheSource) {
  Random random(54);
  TwoMemories memories(65536);
  for (int round = 0; round < 200; ++round) {
    memories.refill(random);
    const auto width = static_cast<int32_t>(random.pick(1, 1100));
    const auto height = static_cast<int32_t>(random.pick(1, 40));
    const ptrdiff_t room = 65536 - static_cast<ptrdiff_t>(width) * height;
    const auto at = [&] {
      return random.oneIn(3) ? room / 2 : random.pick(room / 3, room * 2 / 3);
    };
    const ptrdiff_t outAt[3] = {at(), at(), at()};
    const auto ratio = [&] {
      return static_cast<uint32_t>(random.pick(random.oneIn(2) ? 4 : 500, 1000));
    };
    const auto ratioX = random.oneIn(3) ? 1000 : ratio();
    const RastZoomParam param{3, ratioX, random.oneIn(3) ? 1000 : ratio()};
    ASSERT_TRUE(memories.same(GetParam().rows, {width, 0, width, 0, height}, param, outAt,
                              Outs::overSource))
        << param.nRatioX << ' ' << param.nRatioY << ' ' << width;
  }
}

/// Each plane's output over a source of any plane, in lines that lie apart or over one another: where
/// planes touch, the order of groups and of planes tells.
TEST_P(ZoomLevels, OverSourcesOfAnyPlane) {
  Random random(59);
  constexpr ptrdiff_t middle = 16384;
  Memory expected(3, 3 * middle);
  Memory result(3, 3 * middle);
  for (int round = 0; round < 1500; ++round) {
    if (round % 8 == 0) {
      expected.fill(random);
      result.copyFrom(expected);
    }
    const auto width = static_cast<int32_t>(random.pick(1, random.oneIn(4) ? 600 : 200));
    const auto height = static_cast<int32_t>(random.pick(1, 20));
    const int32_t left = random.oneIn(4) ? static_cast<int32_t>(-random.pick(1, width)) : 0;
    const RastArea area{std::max(1, left + width) + static_cast<int32_t>(random.pick(0, 9)), left,
                        width, 0, height};
    const uint32_t ratios[] = {1000, 500, static_cast<uint32_t>(random.pick(4, 1000)),
                               static_cast<uint32_t>(random.pick(501, 999))};
    const RastZoomParam param{static_cast<uint32_t>(random.pick(1, 3)), ratios[random.pick(0, 3)],
                              ratios[random.pick(0, 3)]};
    Spot from[3];
    Spot to[3];
    for (size_t k = 0; k < 3; ++k) from[k] = {k, middle};
    for (size_t k = 0; k < 3; ++k) {
      const ptrdiff_t reach = random.oneIn(2) ? 4 : area.nLineWidth * ptrdiff_t{height};
      const ptrdiff_t distance = random.oneIn(3) ? 0 : random.pick(-reach, reach);
      to[k] = {random.oneIn(2) ? k : static_cast<size_t>(random.pick(0, 2)), middle + distance};
    }
    for (const Memory* memory : {&expected, &result}) {
      RastPlaneSet planes{};
      for (size_t k = 0; k < 3; ++k) {
        planes.pIn[k] = memory->slot(from[k].slot) + from[k].at - left;
        planes.pOut[k] = memory->slot(to[k].slot) + to[k].at;
      }
      planes.nSize = 1;
      const Rows* const rows = memory == &result ? GetParam().rows : nullptr;
      ASSERT_EQ(zoom(rows, &area, &planes, &param), RAST_OK);
    }
    ASSERT_TRUE(expected == result) << round << ": " << param.nPlaneNum << ' ' << param.nRatioX
                                    << ' ' << param.nRatioY << ' ' << width;
  }
}

TEST_P(ZoomLevels, HalvesOfEveryWidth) {
  Random random(61);
  const Rows& rows = *GetParam().rows;
  Memory memory(2, 4096);
  for (size_t outputs = rows.registerBytes; outputs <= 400; ++outputs) {
    uint8_t* const line = memory.slot(0) + (outputs % 2 ? 0 : memory.slotSize() - 2 * outputs);
    random.fill(line, 2 * outputs);
    for (size_t x = 0; x < outputs; x += 3) line[2 * x] = line[2 * x + 1] |= 0xFE;
    uint8_t* const out = memory.slot(1) + (outputs % 2 ? 0 : memory.slotSize() - outputs);
    rows.halve(out, line, outputs);
    for (size_t x = 0; x < outputs; ++x) {
      ASSERT_EQ(out[x], (line[2 * x] + line[2 * x + 1]) / 2) << outputs << ' ' << x;
    }
  }
}

/// One output over or right beside a source, the others far from any.
TEST_P(ZoomLevels, CopiesOverAndBesideASource) {
  Random random(56);
  TwoMemories memories(8192);
  for (int round = 0; round < 1000; ++round) {
    if (round % 20 == 0) memories.refill(random);
    const auto width = static_cast<int32_t>(random.pick(1, 60));
    const auto height = static_cast<int32_t>(random.pick(1, 20));
    const int32_t pitch = width + static_cast<int32_t>(random.oneIn(2) ? 0 : random.pick(1, 9));
    const ptrdiff_t size = static_cast<ptrdiff_t>(pitch) * height;
    ptrdiff_t outAt[3] = {0, 0, 0};
    const ptrdiff_t reach = random.oneIn(2) ? size + 3 : width + 3;
    const ptrdiff_t at = (8192 - size) / 2 + random.pick(-reach, reach);
    const auto planes = static_cast<uint32_t>(random.pick(1, 3));
    outAt[random.pick(0, planes - 1)] =
        random.oneIn(4) ? (8192 - size) / 2 - size + random.pick(0, 9) : at;
    ASSERT_TRUE(memories.same(GetParam().rows, {pitch, 0, width, 0, height}, {planes, 1000, 1000},
                              outAt, random.oneIn(2) ? Outs::overSource : Outs::overNext))
        << round;
  }
}

TEST_P(ZoomLevels, LongGroupsWrap) {
  Random random(51);
  TwoMemories memories(65536);
  const ptrdiff_t apart[3] = {0, 5, 11};
  for (uint32_t ratio = 1; ratio <= 6; ++ratio) {
    memories.refill(random);
    ASSERT_TRUE(
        memories.same(GetParam().rows, {1200, 0, 1200, 0, 40}, {3, ratio, 300}, apart, Outs::apart))
        << ratio;
    ASSERT_TRUE(
        memories.same(GetParam().rows, {40, 0, 40, 0, 1200}, {3, 300, ratio}, apart, Outs::apart))
        << ratio;
  }
}

/// Sums that reach 16 bits with the last sample or line of a group.
TEST_P(ZoomLevels, LongGroupsAtTheWrap) {
  Random random(55);
  TwoMemories memories(65536);
  const ptrdiff_t apart[3] = {0, 5, 11};
  for (uint32_t ratio = 1; ratio <= 6; ++ratio) {
    const uint32_t longest = (1000 + ratio - 1) / ratio;
    memories.refill(random);
    memories.flatten(static_cast<uint8_t>(std::min(65535 / longest, 254U)));
    ASSERT_TRUE(memories.same(GetParam().rows, {1200, 0, 1200, 0, 40}, {3, ratio, 1000}, apart,
                              Outs::apart))
        << ratio;
    ASSERT_TRUE(
        memories.same(GetParam().rows, {64, 0, 64, 0, 1000}, {3, 1000, ratio}, apart, Outs::apart))
        << ratio;
  }
}

TEST_P(ZoomLevels, OutputsOverEachOther) {
  Random random(52);
  TwoMemories memories(16384);
  for (int round = 0; round < 1500; ++round) {
    if (round % 50 == 0) memories.refill(random);
    const auto width = static_cast<int32_t>(random.pick(1, 150));
    const ptrdiff_t outAt[3] = {random.pick(0, 160), random.pick(0, 160), random.pick(0, 160)};
    const RastZoomParam param{
        static_cast<uint32_t>(random.pick(1, 3)),
        static_cast<uint32_t>(random.oneIn(3) ? 1000 : random.pick(1, 1000)),
        static_cast<uint32_t>(random.oneIn(2) ? 1000 : random.pick(300, 1000))};
    ASSERT_TRUE(memories.same(GetParam().rows,
                              {width, 0, width, 0, static_cast<int32_t>(random.pick(1, 9))}, param,
                              outAt, Outs::together));
  }
}

}  // namespace
}  // namespace rast::test
