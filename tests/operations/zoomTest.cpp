#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/levels.h"
#include "support/memory.h"

namespace {

/// Allocations of a call under test: which one fails, and what is still allocated.
struct Heap {
  bool watched = false;
  int failing = -1;
  int calls = 0;
  std::vector<std::pair<void*, size_t>> blocks;
};
Heap heap;

}  // namespace

// The linker sends the library's allocations here (--wrap).
extern "C" void* __real_malloc(size_t size);
extern "C" void __real_free(void* block);

extern "C" void* __wrap_malloc(size_t size) {
  if (!heap.watched) return __real_malloc(size);
  if (heap.calls++ == heap.failing) return nullptr;
  heap.blocks.emplace_back(__real_malloc(size), size);
  return heap.blocks.back().first;
}

extern "C" void __wrap_free(void* block) {
  std::erase_if(heap.blocks, [block](const auto& b) { return b.first == block; });
  __real_free(block);
}

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
  heap = Heap{};
  heap.blocks.reserve(64);
  heap.failing = failing;
  heap.watched = true;
  result = call.run();
  heap.watched = false;
  std::vector<size_t> sizes;
  for (const auto& [block, size] : heap.blocks) {
    sizes.push_back(size);
    __real_free(block);
  }
  return sizes;
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
  EXPECT_EQ(heap.calls, 9);
  call.area.nStartY = 1;
  EXPECT_EQ(leftAfter(call, -1, result), std::vector<size_t>{});
  EXPECT_EQ(heap.calls, 9) << "a call that reads no line allocates all the same";
  call.param.nRatioY = 1001;
  leftAfter(call, -1, result);
  EXPECT_EQ(heap.calls, 0);
}

class ZoomLevels : public testing::TestWithParam<Level> {};

INSTANTIATE_TEST_SUITE_P(, ZoomLevels, testing::ValuesIn(levels()),
                         [](const auto& info) { return info.param.name; });

/// Where outputs lie: in memory of their own, in the same memory, or in that of their own input,
/// which is then the middle.
enum class Outs { apart, together, overSource };

class TwoMemories {
 public:
  explicit TwoMemories(size_t slotSize) : expected_(6, slotSize), result_(6, slotSize) {}

  void refill(Random& random) {
    expected_.fill(random);
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
    for (size_t k = 0; k < 3; ++k) {
      const auto room = static_cast<ptrdiff_t>(memory.slotSize()) - size;
      planes.pIn[k] = memory.slot(k) + (outs == Outs::overSource ? room / 2 : room);
      planes.pOut[k] = memory.slot(outs == Outs::overSource ? k
                                   : outs == Outs::together ? 3
                                                            : 3 + k) +
                       outAt[k];
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
