// The shared parts of the tests of operations on color planes: calls on several lines, the planes that
// they must leave, and argument checks.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "rast.h"
#include "support/call.h"
#include "support/random.h"

namespace rast::test {

using Pixel = std::array<int, 3>;
using Samples = std::vector<uint8_t>;
using Words = std::vector<int16_t>;

/// Set, and fatal to follow.
inline uint8_t* const kWild = reinterpret_cast<uint8_t*>(16);

inline int clamped(int64_t v) { return static_cast<int>(v < 0 ? 0 : v > 255 ? 255 : v); }

/// The common reflected CRC-32.
inline uint32_t crc32(std::span<const uint8_t> bytes) {
  uint32_t crc = ~uint32_t{0};
  for (const uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

/// Holds the exported pointers at a wild address and sees that nothing changes them.
class WildGlobals {
 public:
  WildGlobals() { setAll(kWild); }
  WildGlobals(const WildGlobals&) = delete;
  WildGlobals& operator=(const WildGlobals&) = delete;
  ~WildGlobals() {
    for (void** global : all_) EXPECT_EQ(*global, kWild);
    setAll(nullptr);
  }

 private:
  void setAll(void* value) {
    for (void** global : all_) *global = value;
  }

  void** const all_[11] = {&fp_prm, &fpo_c, &fpo_m,   &fpo_y,   &fpo_k,  &fpi_c,
                           &fpi_m,  &fpi_y, &fp_tbl1, &fp_tbl2, &fp_tbl3};
};

/// A call on planes of several lines. Color planes are set at first; `mono()` changes that.
struct ColorCall : Planes {
  explicit ColorCall(int32_t width, int32_t height = 1) : Planes(width * height) {
    area = {width, 0, width, 0, height};
    useColor();
  }
  explicit ColorCall(const std::vector<Pixel>& pixels)
      : ColorCall(static_cast<int32_t>(pixels.size())) {
    for (size_t i = 0; i < pixels.size(); ++i) setPixel(i, pixels[i]);
  }
  // Copies would leave the pointers of the plane set behind.
  ColorCall(const ColorCall&) = delete;
  ColorCall& operator=(const ColorCall&) = delete;

  /// Random, nearly gray and extreme pixels and such with two equal components, in every order.
  void randomize(uint64_t seed) {
    Random random(seed);
    random.fill(in[3].data(), in[3].size());
    for (size_t i = 0; i < in[0].size(); ++i) {
      const ptrdiff_t kind = random.pick(0, 3);
      const ptrdiff_t lowest = kind == 1 ? random.pick(0, 255) : 0;
      const ptrdiff_t highest =
          kind == 1 ? std::min<ptrdiff_t>(255, lowest + random.pick(0, 60)) : 255;
      for (size_t k = 0; k < 3; ++k) {
        in[k][i] = static_cast<uint8_t>(random.pick(lowest, highest));
        if (kind == 2) in[k][i] = std::array<uint8_t, 6>{0, 1, 127, 128, 254, 255}[in[k][i] % 6];
      }
      if (kind == 3) in[random.pick(0, 2)][i] = in[random.pick(0, 2)][i];
    }
  }

  void setPixel(size_t i, const Pixel& pixel) {
    for (size_t k = 0; k < 3; ++k) in[k][i] = static_cast<uint8_t>(pixel[k]);
  }
  void mono() {
    set = {};
    set.nSize = 1;
    useMono();
  }
  /// The color pointers that a mono call may hold.
  void monoAmongWildPointers() {
    mono();
    for (const size_t k : {1U, 2U}) set.pIn[k] = kWild;
    for (const size_t k : {0U, 1U, 2U}) set.pOut[k] = kWild;
  }
  void inPlace() {
    for (size_t k = 0; k < 4; ++k) {
      if (set.pOut[k] == out[k].data()) set.pOut[k] = in[k].data();
    }
  }
  void cross() {
    for (size_t k = 0; k < 3; ++k) set.pOut[k] = in[(k + 1) % 3].data();
  }
  /// A rectangle with unwritten samples on all four sides.
  void useRectangleWithin() { area = {area.nLineWidth, 3, area.nWidth - 5, 2, area.nHeight - 3}; }

  Pixel input(size_t i) const { return {in[0][i], in[1][i], in[2][i]}; }
  Pixel output(size_t i) const { return {out[0][i], out[1][i], out[2][i]}; }

  const RastArea* areaOrNull() const { return useArea ? &area : nullptr; }
  const RastPlaneSet* planesOrNull() const { return usePlanes ? &set : nullptr; }

  bool useArea = true;
  bool usePlanes = true;
};

/// Column j of the input at column j of the output.
inline int32_t straight(int32_t j, int32_t) { return j; }

inline int32_t mirrored(int32_t j, int32_t width) { return width - 1 - j; }

/// The output planes must be untouched but for what `work(from, to, expected)` sets, given the
/// offsets that each sample of the rectangle is read from and written to.
template <class Work>
void expectPlanes(const ColorCall& call, Work work, int32_t (*column)(int32_t, int32_t)) {
  Samples expected[4];
  for (auto& plane : expected) plane.assign(call.out[0].size(), Planes::kUntouched);
  const RastArea& area = call.area;
  for (int32_t r = 0; r < area.nHeight; ++r) {
    const int32_t line = (area.nStartY + r) * area.nLineWidth + area.nStartX;
    for (int32_t j = 0; j < area.nWidth; ++j) {
      work(static_cast<size_t>(line + j), static_cast<size_t>(line + column(j, area.nWidth)),
           expected);
    }
  }
  for (size_t k = 0; k < 4; ++k) EXPECT_EQ(call.out[k], expected[k]) << "plane " << k;
}

/// `model` maps a Pixel to a Pixel.
template <class Model>
void expectColor(const ColorCall& call, Model model,
                 int32_t (*column)(int32_t, int32_t) = straight) {
  const auto work = [&](size_t from, size_t to, Samples(&expected)[4]) {
    const Pixel pixel = model(call.input(from));
    for (size_t k = 0; k < 3; ++k) expected[k][to] = static_cast<uint8_t>(pixel[k]);
  };
  expectPlanes(call, work, column);
}

/// `model` maps a sample to a sample.
template <class Model>
void expectMono(const ColorCall& call, Model model,
                int32_t (*column)(int32_t, int32_t) = straight) {
  const auto work = [&](size_t from, size_t to, Samples(&expected)[4]) {
    expected[3][to] = static_cast<uint8_t>(model(call.in[3][from]));
  };
  expectPlanes(call, work, column);
}

/// `run(call)` must leave in place, and in place of the next component, what it writes apart.
template <class Run>
void expectSameInPlaceAndCrossed(Run run) {
  for (const int32_t width : {1, 2, 3, 4, 5, 8, 16, 67, 801}) {
    SCOPED_TRACE(width);
    ColorCall apart(width, 3);
    ColorCall inPlace(width, 3);
    ColorCall crossed(width, 3);
    for (ColorCall* call : {&apart, &inPlace, &crossed}) call->randomize(1);
    inPlace.inPlace();
    crossed.cross();
    for (ColorCall* call : {&apart, &inPlace, &crossed}) ASSERT_EQ(run(*call), RAST_OK);
    for (size_t k = 0; k < 3; ++k) {
      EXPECT_EQ(inPlace.in[k], apart.out[k]);
      EXPECT_EQ(crossed.in[(k + 1) % 3], apart.out[k]);
    }
    EXPECT_TRUE(inPlace.untouched());
    EXPECT_TRUE(crossed.untouched());
  }
}

/// With any output plane over the rectangle, the planes and the parameters of the call itself,
/// `run(area, planes, param)` must write what it writes with all of them apart.
template <class Param, class Run>
void expectArgumentsReadOnce(const Param& param, Run run) {
  struct Arguments {
    RastArea area;
    RastPlaneSet set;
    Param param;
  };
  for (size_t k = 0; k < 3; ++k) {
    ColorCall call(16, 16);
    call.randomize(k);
    ASSERT_EQ(run(&call.area, &call.set, &param), RAST_OK);
    const Samples expected = call.out[k];

    alignas(Arguments) uint8_t memory[256] = {};
    static_assert(sizeof(Arguments) < sizeof memory);
    auto* arguments = new (memory) Arguments{call.area, call.set, param};
    arguments->set.pOut[k] = memory;
    ASSERT_EQ(run(&arguments->area, &arguments->set, &arguments->param), RAST_OK);
    EXPECT_EQ(Samples(memory, memory + sizeof memory), expected) << "plane " << k;
  }
}

template <class Call>
using Checks = std::vector<Check<Call>>;

template <class Call>
Checks<Call> operator+(Checks<Call> all, const Checks<Call>& more) {
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

template <class Call>
Checks<Call> lineFitChecks() {
  return {{"area null", [](Call& c) { c.useArea = false; }},
          {"line fit", [](Call& c) { c.area.nStartX = 1 << 20; }}};
}

template <class Call>
Checks<Call> colorPlaneChecks() {
  return {{"planes null", [](Call& c) { c.usePlanes = false; }},
          {"pIn[0] null", [](Call& c) { c.set.pIn[0] = nullptr; }},
          {"pIn[1] null", [](Call& c) { c.set.pIn[1] = nullptr; }},
          {"pIn[2] null", [](Call& c) { c.set.pIn[2] = nullptr; }},
          {"pOut[0] null", [](Call& c) { c.set.pOut[0] = nullptr; }},
          {"pOut[1] null", [](Call& c) { c.set.pOut[1] = nullptr; }},
          {"pOut[2] null", [](Call& c) { c.set.pOut[2] = nullptr; }}};
}

template <class Call>
Checks<Call> sizeChecks(const std::string& message = "") {
  return {{"size 0", [](Call& c) { c.set.nSize = 0; }, message},
          {"size lowest", [](Call& c) { c.set.nSize = INT32_MIN; }, message}};
}

/// The start keeps a pitch below 1 from failing the line fit.
template <class Call>
Checks<Call> extentChecks() {
  return {{"pitch 0", [](Call& c) { c.area.nLineWidth = 0, c.area.nStartX = -c.area.nWidth; }},
          {"pitch negative", [](Call& c) { c.area.nLineWidth = -8, c.area.nStartX = -1000; }},
          {"width 0", [](Call& c) { c.area.nWidth = 0; }},
          {"width negative", [](Call& c) { c.area.nWidth = -5; }},
          {"height 0", [](Call& c) { c.area.nHeight = 0; }},
          {"height lowest", [](Call& c) { c.area.nHeight = INT32_MIN; }}};
}

}  // namespace rast::test
