// The exported comparison tables. Each is made by the compiler as one object and exported through
// an alias, since no constant expression can return an array.
#include <stddef.h>
#include <stdint.h>

#include "rast.h"

namespace {

struct PairTable {
  uint8_t entry[65536];
};

template <class Entry>
constexpr PairTable makeTable(Entry entry) {
  PairTable table{};
  for (unsigned a = 0; a < 256; ++a) {
    for (unsigned b = 0; b < 256; ++b) table.entry[a * 256 + b] = static_cast<uint8_t>(entry(a, b));
  }
  return table;
}

}  // namespace

extern "C" {

[[gnu::used]] extern constexpr PairTable rastMinTable =
    makeTable([](unsigned a, unsigned b) { return a < b ? a : b; });
[[gnu::used]] extern constexpr PairTable rastMaxTable =
    makeTable([](unsigned a, unsigned b) { return a > b ? a : b; });
[[gnu::used]] extern constexpr PairTable rastRatioTable =
    makeTable([](unsigned a, unsigned b) { return a == 0 ? 0 : b * 255 / a; });

extern const uint8_t g_rastMinCompareTbl[65536] __attribute__((alias("rastMinTable")));
extern const uint8_t g_rastMaxCompareTbl[65536] __attribute__((alias("rastMaxTable")));
extern const uint8_t g_SatCompareTbl[65536] __attribute__((alias("rastRatioTable")));
}
