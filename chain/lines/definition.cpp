// The definition of splitting and joining lines: pixel by pixel, sample by sample.
#include "lines/lines.h"

namespace rast::chain::definition {

namespace {

template <size_t N>
void split(const Row<1, N>& row) {
  const uint8_t* sample = row.in[0];
  for (size_t x = 0; x < row.width; ++x) {
    for (uint8_t* plane : row.out) plane[x] = *sample++;
  }
}

template <size_t N>
void join(const Row<N, 1>& row) {
  uint8_t* sample = row.out[0];
  for (size_t x = 0; x < row.width; ++x) {
    for (const uint8_t* plane : row.in) *sample++ = plane[x];
  }
}

constexpr Lines table{
    .split3 = split<3>,
    .split4 = split<4>,
    .join3 = join<3>,
    .join4 = join<4>,
};

}  // namespace

const Lines* lines() { return &table; }

}  // namespace rast::chain::definition
