// Every operation at every level this machine has, on a line, a band and an A4 page at 600 dpi. Each
// round times the operation, memcpy of the same bytes and the definition in turn, and the ratios
// reported are medians over the rounds: what else the machine does hits all three alike.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "rast.h"
#include "support/levels.h"
#include "support/random.h"
#include "frame/operations.h"

namespace {

using rast::Rows;
using rast::test::Level;
using rast::test::Random;

constexpr int32_t kWidth = 4960;

struct Size {
  const char* name;
  int32_t height;
};
constexpr Size kSizes[] = {{"line", 1}, {"band", 32}, {"page", 7016}};

/// Planes of a size, filled once: three in, three out, of which an operation uses what it needs.
struct Planes {
  explicit Planes(int32_t height) : area{kWidth, 0, kWidth, 0, height} {
    Random random(1);
    for (auto* side : {&in, &out}) {
      for (auto& plane : *side) {
        plane.resize(bytes());
        random.fill(plane.data(), plane.size());
      }
    }
  }
  size_t bytes() const { return static_cast<size_t>(kWidth) * static_cast<size_t>(area.nHeight); }
  RastPlaneSet mono() {
    RastPlaneSet set{};
    set.pIn[3] = in[0].data();
    set.pOut[3] = out[0].data();
    set.nSize = 1;
    return set;
  }

  RastArea area;
  std::vector<uint8_t> in[3];
  std::vector<uint8_t> out[3];
};

struct Operation {
  const char* name;
  int planes;
  std::function<void(const Rows*, Planes&)> run;
};

const std::vector<Operation>& operations() {
  static const RastExpGammaParam expGammaParam{20, 4, 300};
  static const std::vector<Operation> all = {
      {"expgamma", 1,
       [](const Rows* rows, Planes& p) {
         const RastPlaneSet set = p.mono();
         rast::expGamma(rows, &p.area, &set, &expGammaParam, nullptr);
       }},
      {"expgamma-table", 1,
       [](const Rows* rows, Planes& p) {
         static uint8_t table[257];
         const RastPlaneSet set = p.mono();
         rast::expGamma(rows, &p.area, &set, &expGammaParam, table);
         table[256] = 1;
       }},
  };
  return all;
}

double seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  benchmark::ClobberMemory();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void measure(benchmark::State& state, const Operation& operation, const Rows* rows, Size size) {
  // The definition of a whole page takes long and varies little: a few rounds of it are enough.
  constexpr size_t definitionRounds = 5;
  Planes planes(size.height);
  std::vector<double> toMemcpy;
  std::vector<double> toDefinition;
  operation.run(rows, planes);
  for (auto _ : state) {
    const double own = seconds([&] { operation.run(rows, planes); });
    const double copy = seconds([&] {
      for (int i = 0; i < operation.planes; ++i) {
        memcpy(planes.out[i].data(), planes.in[i].data(), planes.bytes());
      }
    });
    toMemcpy.push_back(copy / own);
    if (toDefinition.size() < definitionRounds) {
      toDefinition.push_back(seconds([&] { operation.run(nullptr, planes); }) / own);
    }
    state.SetIterationTime(own);
  }
  const auto moved = 2 * static_cast<int64_t>(planes.bytes()) * operation.planes;
  state.SetBytesProcessed(moved * static_cast<int64_t>(state.iterations()));
  state.counters["of_memcpy"] = median(toMemcpy);
  state.counters["definition_x"] = median(toDefinition);
}

}  // namespace

int main(int argc, char** argv) {
  for (const Operation& operation : operations()) {
    for (const Level& level : rast::test::levels()) {
      for (const Size& size : kSizes) {
        const std::string name = std::string(operation.name) + '/' + level.name + '/' + size.name;
        benchmark::RegisterBenchmark(name.c_str(), [&operation, level, size](benchmark::State& state) {
          measure(state, operation, level.rows, size);
        })->UseManualTime();
      }
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
