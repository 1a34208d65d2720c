// Splitting and joining lines: the definition against worked numbers, and every level against the
// definition, with all memory compared and protected pages on both sides of each plane and line.
#include "lines/lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/levels.h"
#include "support/memory.h"
#include "support/random.h"

namespace rast::chain {

namespace {

using test::LevelOf;
using test::Memory;
using test::Random;
using Samples = std::vector<uint8_t>;

template <size_t N>
void split(const Lines& lines, const Row<1, N>& row) {
  if constexpr (N == 3) lines.split3(row);
  if constexpr (N == 4) lines.split4(row);
}

template <size_t N>
void join(const Lines& lines, const Row<N, 1>& row) {
  if constexpr (N == 3) lines.join3(row);
  if constexpr (N == 4) lines.join4(row);
}

TEST(LinesDefinition, SplitsPixelsOfThreeSamples) {
  const Samples line = {1, 2, 3, 4, 5, 6, 7, 8, 9, 250, 251, 252};
  Samples r(5, 0xAA), g(5, 0xAA), b(5, 0xAA);
  definition::lines()->split3({{line.data()}, {r.data(), g.data(), b.data()}, 4});
  EXPECT_EQ(r, (Samples{1, 4, 7, 250, 0xAA}));
  EXPECT_EQ(g, (Samples{2, 5, 8, 251, 0xAA}));
  EXPECT_EQ(b, (Samples{3, 6, 9, 252, 0xAA}));
}

TEST(LinesDefinition, SplitsPixelsOfFourSamples) {
  const Samples line = {1, 2, 3, 4, 5, 6, 7, 8, 252, 253, 254, 255};
  Samples c(4, 0xAA), m(4, 0xAA), y(4, 0xAA), k(4, 0xAA);
  definition::lines()->split4({{line.data()}, {c.data(), m.data(), y.data(), k.data()}, 3});
  EXPECT_EQ(c, (Samples{1, 5, 252, 0xAA}));
  EXPECT_EQ(m, (Samples{2, 6, 253, 0xAA}));
  EXPECT_EQ(y, (Samples{3, 7, 254, 0xAA}));
  EXPECT_EQ(k, (Samples{4, 8, 255, 0xAA}));
}

TEST(LinesDefinition, JoinsThreePlanes) {
  const Samples r = {1, 4, 255}, g = {2, 5, 0}, b = {3, 6, 128};
  Samples line(10, 0xAA);
  definition::lines()->join3({{r.data(), g.data(), b.data()}, {line.data()}, 3});
  EXPECT_EQ(line, (Samples{1, 2, 3, 4, 5, 6, 255, 0, 128, 0xAA}));
}

TEST(LinesDefinition, JoinsFourPlanes) {
  const Samples c = {1, 5}, m = {2, 6}, y = {3, 7}, k = {4, 255};
  Samples line(9, 0xAA);
  definition::lines()->join4({{c.data(), m.data(), y.data(), k.data()}, {line.data()}, 2});
  EXPECT_EQ(line, (Samples{1, 2, 3, 4, 5, 6, 7, 255, 0xAA}));
}

TEST(LinesChoice, IsTheBestLevel) {
  ASSERT_FALSE(test::levelsOf<Lines>().empty());
  EXPECT_EQ(lines(), test::levelsOf<Lines>().back().rows);
}

constexpr size_t kMostWidth = 300;
constexpr size_t kAlignments = 64;

/// Two memories of the same content, for the definition and for a level, with a slot for a line of
/// pixels of N samples and one for each plane.
template <size_t N>
class Pair {
 public:
  static constexpr size_t kSlots = N + 1;
  /// Where in their slots the line and the planes start.
  using Starts = size_t[kSlots];

  explicit Pair(size_t mostWidth)
      : definition_(kSlots, slotSize(mostWidth)), result_(kSlots, slotSize(mostWidth)) {
    Random random(mostWidth);
    definition_.fill(random);
    result_.copyFrom(definition_);
  }

  /// The last place for the start of a line (0) or of a plane.
  size_t last(size_t slot, size_t width) const { return result_.slotSize() - rowSize(slot, width); }

  bool isSameEverywhere() const { return definition_ == result_; }

  /// Splits the line, then joins the planes in another order, so that the line changes too.
  testing::AssertionResult isSame(const Lines& lines, const Starts& starts, size_t width) {
    splitIn(definition_, *definition::lines(), starts, width);
    splitIn(result_, lines, starts, width);
    if (!isSameThere(starts, width)) return testing::AssertionFailure() << "split";
    joinIn(definition_, *definition::lines(), starts, width);
    joinIn(result_, lines, starts, width);
    if (!isSameThere(starts, width)) return testing::AssertionFailure() << "join";
    return testing::AssertionSuccess();
  }

 private:
  static size_t rowSize(size_t slot, size_t width) { return slot == 0 ? N * width : width; }

  /// Compares the rows, what is before them, and what the widest register may reach after them.
  bool isSameThere(const Starts& starts, size_t width) const {
    for (size_t slot = 0; slot < kSlots; ++slot) {
      const size_t end = starts[slot] + rowSize(slot, width) + kAlignments;
      if (memcmp(definition_.slot(slot), result_.slot(slot), std::min(end, result_.slotSize())) !=
          0)
        return false;
    }
    return true;
  }

  static size_t slotSize(size_t mostWidth) { return N * mostWidth + kAlignments; }

  static void splitIn(const Memory& memory, const Lines& lines, const Starts& starts,
                      size_t width) {
    Row<1, N> row{{memory.slot(0) + starts[0]}, {}, width};
    for (size_t k = 0; k < N; ++k) row.out[k] = memory.slot(k + 1) + starts[k + 1];
    split(lines, row);
  }

  static void joinIn(const Memory& memory, const Lines& lines, const Starts& starts, size_t width) {
    Row<N, 1> row{{}, {memory.slot(0) + starts[0]}, width};
    for (size_t k = 0; k < N; ++k) row.in[N - 1 - k] = memory.slot(k + 1) + starts[k + 1];
    join(lines, row);
  }

  Memory definition_;
  Memory result_;
};

template <size_t N>
void expectSameAtEveryAlignment(const Lines& lines) {
  Pair<N> pair(kMostWidth);
  for (size_t width = 0; width <= kMostWidth; ++width) {
    for (size_t at = 0; at < kAlignments; ++at) {
      for (size_t slot = 0; slot <= N; ++slot) {
        typename Pair<N>::Starts starts{};
        starts[slot] = at;
        ASSERT_TRUE(pair.isSame(lines, starts, width)) << width << ' ' << at << ' ' << slot;
      }
    }
    ASSERT_TRUE(pair.isSameEverywhere()) << width;
  }
}

template <size_t N>
void expectSameBeforeAProtectedPage(const Lines& lines) {
  Pair<N> pair(kMostWidth);
  for (size_t width = 0; width <= kMostWidth; ++width) {
    typename Pair<N>::Starts starts;
    for (size_t slot = 0; slot <= N; ++slot) starts[slot] = pair.last(slot, width);
    ASSERT_TRUE(pair.isSame(lines, starts, width) && pair.isSameEverywhere()) << width;
  }
}

template <size_t N>
void expectSameOfLongLines(const Lines& lines) {
  constexpr size_t kLongest = 100003;
  Pair<N> pair(kLongest);
  Random random(N);
  for (const size_t width : {size_t{2480}, size_t{4960}, size_t{7016}, size_t{65536}, kLongest}) {
    for (int round = 0; round < 8; ++round) {
      typename Pair<N>::Starts starts;
      for (size_t slot = 0; slot <= N; ++slot) {
        starts[slot] =
            static_cast<size_t>(random.pick(0, static_cast<ptrdiff_t>(pair.last(slot, width))));
      }
      ASSERT_TRUE(pair.isSame(lines, starts, width) && pair.isSameEverywhere()) << width;
    }
  }
}

template <size_t N>
void expectJoinedAsBefore(const Lines& lines) {
  Random random(N);
  for (size_t width = 0; width <= kMostWidth; ++width) {
    Samples line(N * width);
    random.fill(line.data(), line.size());
    Samples planes[N];
    Samples joined(line.size());
    Row<1, N> apart{{line.data()}, {}, width};
    Row<N, 1> together{{}, {joined.data()}, width};
    for (size_t k = 0; k < N; ++k) {
      planes[k].resize(width);
      together.in[k] = apart.out[k] = planes[k].data();
    }
    split(lines, apart);
    join(lines, together);
    ASSERT_EQ(joined, line);
  }
}

class LinesLevels : public testing::TestWithParam<LevelOf<Lines>> {
 protected:
  const Lines& lines_ = *GetParam().rows;
};

INSTANTIATE_TEST_SUITE_P(, LinesLevels, testing::ValuesIn(test::levelsOf<Lines>()),
                         [](const auto& info) { return info.param.name; });

TEST_P(LinesLevels, ThreeComponentsAtEveryWidthAndAlignment) {
  expectSameAtEveryAlignment<3>(lines_);
}
TEST_P(LinesLevels, FourComponentsAtEveryWidthAndAlignment) {
  expectSameAtEveryAlignment<4>(lines_);
}

TEST_P(LinesLevels, NothingIsReadOrWrittenBehindARow) {
  expectSameBeforeAProtectedPage<3>(lines_);
  expectSameBeforeAProtectedPage<4>(lines_);
}

TEST_P(LinesLevels, LongLines) {
  expectSameOfLongLines<3>(lines_);
  expectSameOfLongLines<4>(lines_);
}

TEST_P(LinesLevels, WhatIsSplitAndJoinedIsAsBefore) {
  expectJoinedAsBefore<3>(lines_);
  expectJoinedAsBefore<4>(lines_);
}

}  // namespace
}  // namespace rast::chain
