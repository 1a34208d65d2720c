// One call of an operation on small planes of its own, which a test bends as it needs, and the
// check of argument checks: alone, in pairs, in order.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "rast.h"

namespace rast::test {

/// Runs `work` and returns what it printed to standard output.
inline std::string printedBy(const std::function<void()>& work) {
  testing::internal::CaptureStdout();
  work();
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

/// Four source and four destination planes of one line, the destinations filled with `kUntouched`.
struct Planes {
  static constexpr uint8_t kUntouched = 0xAA;

  explicit Planes(int32_t width) : area{width, 0, width, 0, 1} {
    for (auto& plane : in) plane.resize(static_cast<size_t>(width));
    for (auto& plane : out) plane.assign(static_cast<size_t>(width), kUntouched);
    set.nSize = width;
  }

  void useColor() {
    for (size_t k = 0; k < 3; ++k) use(k);
  }
  void useMono() { use(3); }

  bool untouched() const {
    for (const auto& plane : out) {
      for (const uint8_t sample : plane) {
        if (sample != kUntouched) return false;
      }
    }
    return true;
  }

  std::vector<uint8_t> in[4];
  std::vector<uint8_t> out[4];
  RastArea area;
  RastPlaneSet set{};

 private:
  void use(size_t k) {
    set.pIn[k] = in[k].data();
    set.pOut[k] = out[k].data();
  }
};

/// One argument check: how to make a good call fail it, and what it prints.
template <class Call>
struct Check {
  const char* name;
  std::function<void(Call&)> fail;
  std::string message = "";
};

/// `checks` in the order of the operation. Each fails alone, and before each later one: the first
/// of a pair alone decides what is printed. A default Call is good; `run(call)` makes it;
/// `unchanged(call)` tells whether all that it could have written is as it was.
template <class Call>
void expectChecksInOrder(const std::vector<Check<Call>>& checks,
                         const std::function<uint32_t(Call&)>& run,
                         const std::function<bool(const Call&)>& unchanged) {
  for (size_t first = 0; first < checks.size(); ++first) {
    for (size_t second = first; second < checks.size(); ++second) {
      SCOPED_TRACE(std::string(checks[first].name) + " + " + checks[second].name);
      Call call;
      checks[second].fail(call);
      checks[first].fail(call);
      uint32_t result = RAST_OK;
      EXPECT_EQ(printedBy([&] { result = run(call); }), checks[first].message);
      EXPECT_EQ(result, uint32_t{RAST_ERR_INVALID_ARG});
      EXPECT_TRUE(unchanged(call));
    }
  }
}

}  // namespace rast::test
