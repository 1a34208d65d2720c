// How the command fails: a stable exit code and one sentence.
#pragma once

#include <string>

#include "text/printable.h"

namespace rast::tool {

enum class ExitCode {
  done = 0,
  runTime = 1,
  different = 1,  // of compare alone, which says nothing on standard error then
  usage = 2,
  trouble = 2,  // of compare alone, for every failure
  damaged = 3,
  output = 4,
  unsupported = 5,
  memory = 6,
};

struct Error {
  ExitCode code;
  std::string text;
};

template <class... Parts>
[[noreturn]] void fail(ExitCode code, const Parts&... parts) {
  throw Error{code, join(parts...)};
}

}  // namespace rast::tool
