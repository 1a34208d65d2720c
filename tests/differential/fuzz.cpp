// libFuzzer target for the operations of one family.
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string_view>

#include "engine.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::cerr << "Levels: " << rast::test::levelNames() << '\n';
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace rast::test;
  const auto inFamily = [](const Operation& o) { return o.family == Family::RAST_FAMILY; };
  const auto first = std::ranges::find_if(kOperations, inFamily) - kOperations.begin();
  const auto count = std::ranges::count_if(kOperations, inFamily);
  // The first byte as it is where it names one of the family.
  Bytes bytes(data, data + size);
  if (bytes.empty()) bytes.push_back(0);
  const auto all = std::ssize(kOperations);
  bytes[0] = static_cast<uint8_t>(first + (bytes[0] + all - first) % all % count);
  // Coverage says little of distances and values: every other string stands for a random one.
  if (size % 2 == 1) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    bytes.resize(400);
    Random(std::hash<std::string_view>{}(text)).fill(&bytes[1], bytes.size() - 1);
  }
  if (deviation(bytes)) {
    std::cerr << report(bytes);
    abort();
  }
  return 0;
}
