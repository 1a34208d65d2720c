// Cases found before, each rerun in every way, as the differential tool prints them.
#include <gtest/gtest.h>

#include <string>

#include "engine.h"

namespace rast::test {
namespace {

void expectSame(const std::string& hex) {
  const Bytes bytes = bytesOf(hex);
  if (const auto found = deviation(bytes))
    ADD_FAILURE() << found->difference << '\n' << found->call;
}

TEST(Differential, NoBytesAtAll) { expectSame(""); }

TEST(Differential, EveryOperationAtItsSimplest) {
  for (size_t k = 0; k < kOperations.size(); ++k) {
    SCOPED_TRACE(kOperations[k].name);
    const auto first = static_cast<uint8_t>(k);
    expectSame(hexOf({&first, 1}));
  }
}

// SatAdjust of a row that is one sample short of whole registers.
TEST(Differential, LastRegisterButOne) { expectSame("040000006200010024f2"); }

// ColBalance with two outputs that share one byte.
TEST(Differential, LinesThatShareOneByte) {
  expectSame("060000000000a0b90000000000000b0000000000001000380000e9a6");
}

// ColGamma with its curve over the last line of an output.
TEST(Differential, CurveOverTheLastLine) {
  expectSame("01000000000000000d0000000000000000740000000000140000860000000000000000000000000003");
}

// Zoom of 512 x 16 at 637 thousandths, by a plan whose groups of one recall samples.
TEST(Differential, PlanWithRecall) { expectSame("0a000000000035000c0114000000000000885c25"); }

// Rotate counter-clockwise with lines of two planes that take turns and share a byte.
TEST(Differential, TurnsThatShareAByte) {
  expectSame(
      "090000000000000100ab000000000000000000000000000000000000000000000000000000000000000000000000"
      "0000000000000000000000000049000000000000000000362e6100000001");
}

}  // namespace
}  // namespace rast::test
