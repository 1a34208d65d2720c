// Every sum of every number of lines that a mean is taken of.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "support/levels.h"

namespace rast::test {
namespace {

TEST(Mean, EverySumOfEveryCount) {
  for (const Level& level : levels()) {
    for (size_t count = 2; count <= 250; ++count) {
      // Column x sums up to x.
      const size_t width = 255 * count + 1;
      std::vector<uint8_t> lines(count * width);
      for (size_t k = 0; k < count; ++k) {
        for (size_t x = 255 * k; x < width; ++x) {
          lines[k * width + x] = static_cast<uint8_t>(std::min<size_t>(x - 255 * k, 255));
        }
      }
      std::vector<uint8_t> mean(width);
      level.rows->mean(mean.data(), lines.data(), static_cast<ptrdiff_t>(width), count, width);
      size_t wrong = 0;
      for (size_t x = 0; x < width; ++x) wrong += mean[x] != x / count;
      EXPECT_EQ(wrong, 0U) << level.name << ", " << count << " lines";
    }
  }
}

}  // namespace
}  // namespace rast::test
