// Every operation at every level this machine has, its definition, memcpy of as many bytes and the
// nearest operation of other libraries, on a page, a band and a tile. Each repetition runs every
// row once, in random order; ratios are taken within a repetition, where all rows meet the same
// machine.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <streambuf>
#include <string>

#include "peers.h"
#include "support/levels.h"
#include "workloads.h"

namespace {

using rast::bench::Peer;
using rast::bench::Planes;
using rast::bench::Size;
using rast::bench::Workload;
using rast::test::Level;
using Work = std::function<void()>;

/// Gives standard output to the reports alone: hue adjustment traces each direct call there.
class ReportsAlone {
 public:
  ReportsAlone()
      : reports_(dup(STDOUT_FILENO)), buffer_(reports_), previous_(std::cout.rdbuf(&buffer_)) {
    if (!freopen("/dev/null", "w", stdout)) abort();
  }
  ~ReportsAlone() {
    std::cout.rdbuf(previous_);
    close(reports_);
  }

 private:
  class DescriptorBuffer : public std::streambuf {
   public:
    explicit DescriptorBuffer(int descriptor) : descriptor_(descriptor) {}

   protected:
    std::streamsize xsputn(const char* text, std::streamsize n) override {
      return write(descriptor_, text, static_cast<size_t>(n));
    }
    int overflow(int c) override {
      const char character = static_cast<char>(c);
      return xsputn(&character, 1) == 1 ? c : EOF;
    }

   private:
    int descriptor_;
  };

  int reports_;
  DescriptorBuffer buffer_;
  std::streambuf* previous_;
};

Planes& planesOf(const Size& size) {
  static std::map<const char*, Planes> all;
  return all.try_emplace(size.name, size).first->second;
}

void copyPlanes(Planes& planes, double count) {
  for (size_t k = 0; count > 0; k = (k + 1) % 3, count -= 1) {
    const auto part = static_cast<double>(planes.bytes()) * std::min(count, 1.0);
    memcpy(planes.out[k].data(), planes.in[k].data(), static_cast<size_t>(part));
  }
}

/// Rows, and how many of their repetitions are done, on standard error.
class Rows {
 public:
  void add(const Workload& workload, const std::string& row, const Size& size,
           const std::function<Work(Planes&)>& prepare) {
    const std::string name = std::string(workload.name) + '/' + row + '/' + size.name;
    const double copied = workload.copied;
    auto* const added = benchmark::RegisterBenchmark(
        name.c_str(), [this, size, copied, prepare](benchmark::State& state) {
          Planes& planes = planesOf(size);
          measure(state, size, prepare(planes));
          state.counters["bytes"] = 2 * static_cast<double>(planes.bytes()) * copied;
          report();
        });
    added->UseManualTime()->Iterations(1)->Unit(benchmark::kMicrosecond);
    ++rows_;
  }

 private:
  static void measure(benchmark::State& state, const Size& size, const Work& work) {
    work();
    for (auto _ : state) {
      const auto start = std::chrono::steady_clock::now();
      for (int32_t i = 0; i < size.calls; ++i) {
        work();
        benchmark::ClobberMemory();
      }
      const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
      state.SetIterationTime(taken.count() / size.calls);
    }
  }

  void report() {
    ++done_;
    if (done_ % rows_ == 0) {
      fprintf(stderr, "%zu rows, repetition %zu done\n", rows_, done_ / rows_);
    }
  }

  size_t rows_ = 0;
  size_t done_ = 0;
};

void addRows(Rows& rows) {
  for (const Size& size : rast::bench::kSizes) {
    for (const Workload& workload : rast::bench::workloads()) {
      const auto at = [&workload](const rast::Rows* level) {
        return [&workload, level](Planes& planes) -> Work {
          return [&workload, level, &planes] { workload.run(level, planes); };
        };
      };
      for (const Level& level : rast::test::levels()) {
        rows.add(workload, level.name, size, at(level.rows));
      }
      rows.add(workload, "definition", size, at(nullptr));
      rows.add(workload, "memcpy", size, [&workload](Planes& planes) -> Work {
        return [&workload, &planes] { copyPlanes(planes, workload.copied); };
      });
      for (const Peer& peer : rast::bench::peers()) {
        if (std::string(peer.workload) != workload.name) continue;
        rows.add(workload, peer.library, size, peer.prepare);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Rows rows;
  addRows(rows);
  const ReportsAlone reportsAlone;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
