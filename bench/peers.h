// The nearest operation of other libraries, where those are installed, and the chain library beside
// the parts of its work.
#pragma once

#include <functional>
#include <vector>

#include "workloads.h"

namespace rast::bench {

struct Peer {
  const char* library;
  const char* workload;
  /// Prepares the library's own pictures of the planes' size; what it returns is timed.
  std::function<std::function<void()>(Planes&)> prepare;
};

const std::vector<Peer>& peers();

}  // namespace rast::bench
