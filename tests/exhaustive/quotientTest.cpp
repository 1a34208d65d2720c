#include <gtest/gtest.h>

#include <map>
#include <string>

#include "support/levels.h"

namespace rast {

namespace baseline {
uint32_t wrongQuotients();
}
namespace avx2 {
uint32_t wrongQuotients();
}
namespace avx512 {
uint32_t wrongQuotients();
}
namespace neon {
uint32_t wrongQuotients();
}

namespace test {
namespace {

TEST(Quotient, EveryNumberByEverySample) {
  const std::map<std::string, uint32_t (*)()> counts = {
#if RAST_HAS_BASELINE
    {"baseline", baseline::wrongQuotients},
#endif
#if RAST_HAS_AVX2
    {"avx2", avx2::wrongQuotients},
#endif
#if RAST_HAS_AVX512
    {"avx512", avx512::wrongQuotients},
#endif
#if RAST_HAS_NEON
    {"neon", neon::wrongQuotients},
#endif
  };
  for (const Level& level : levels()) EXPECT_EQ(counts.at(level.name)(), 0U) << level.name;
}

}  // namespace
}  // namespace test
}  // namespace rast
