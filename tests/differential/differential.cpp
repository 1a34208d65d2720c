// Random calls through the engine until there are enough of them or one deviates.
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "engine.h"

// Of sanitizers alone: called before one of their reports ends the program.
extern "C" [[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());

namespace rast::test {
namespace {

constexpr const char* kUsage =
    "usage: differential [--seed N] [--calls N | --seconds N] [--operation NAME] [--bytes HEX]\n";

struct Options {
  uint64_t seed = std::random_device{}();
  uint64_t calls = 100000;
  std::optional<double> seconds;
  std::optional<size_t> operation;
  std::optional<Bytes> bytes;
};

std::optional<Options> parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; i += 2) {
    const std::string name = argv[i];
    if (i + 1 == argc) return {};
    const std::string value = argv[i + 1];
    if (name == "--seed") {
      options.seed = std::stoull(value);
    } else if (name == "--calls") {
      options.calls = std::stoull(value);
    } else if (name == "--seconds") {
      options.seconds = std::stod(value);
    } else if (name == "--bytes") {
      options.bytes = bytesOf(value);
    } else if (name == "--operation") {
      for (size_t k = 0; k < kOperations.size(); ++k) {
        if (value == kOperations[k].name) options.operation = k;
      }
      if (!options.operation) return {};
    } else {
      return {};
    }
  }
  return options;
}

Bytes current;

int fail(const Bytes& bytes) {
  std::cout << report(bytes);
  return 1;
}

int run(const Options& options) {
  if (__sanitizer_set_death_callback) {
    __sanitizer_set_death_callback([] { std::cerr << "--bytes " << hexOf(current) << '\n'; });
  }
  if (options.bytes) {
    current = *options.bytes;
    if (deviation(current)) return fail(current);
    std::cout << operationOf(current).name << ": the same in every way\n";
    return 0;
  }
  std::cout << "seed " << options.seed << std::endl;
  Random random(options.seed);
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const bool progress = isatty(STDERR_FILENO);
  std::vector<uint64_t> counts(kOperations.size());
  uint64_t calls = 0;
  const auto more = [&] {
    return options.seconds ? elapsed() < *options.seconds : calls < options.calls;
  };
  for (; more(); ++calls) {
    current.resize(400);
    random.fill(current.data(), current.size());
    if (options.operation) current[0] = static_cast<uint8_t>(*options.operation);
    if (deviation(current)) {
      std::cout << "call " << calls + 1 << " deviates\n";
      return fail(current);
    }
    ++counts[current[0] % counts.size()];
    if (progress && calls % 1000 == 0) std::cerr << calls << " calls\r";
  }
  for (size_t k = 0; k < counts.size(); ++k) {
    if (counts[k]) std::cout << kOperations[k].name << ": " << counts[k] << '\n';
  }
  std::cout << calls << " calls in " << elapsed() << " s, each the definition, " << levelNames()
            << " and the exported function\n";
  return 0;
}

}  // namespace
}  // namespace rast::test

int main(int argc, char** argv) {
  const auto options = rast::test::parse(argc, argv);
  if (!options) {
    std::cerr << rast::test::kUsage;
    return 2;
  }
  return rast::test::run(*options);
}
