// How the command fails: a stable exit code and one sentence.
#ifndef RAST_TOOL_ERROR_H
#define RAST_TOOL_ERROR_H

#include <sstream>
#include <string>

enum class ExitCode {
  done = 0,
  runTime = 1,
  different = 1,  // of compare alone, which says nothing on standard error then
  usage = 2,
  damaged = 3,
  output = 4,
  unsupported = 5,
  memory = 6,
};

struct Failure {
  ExitCode code;
  std::string text;
};

template <class... Parts>
std::string join(const Parts&... parts) {
  std::ostringstream stream;
  (stream << ... << parts);
  return stream.str();
}

// One line whatever is in it: names of files may hold line ends, terminal commands and bytes that
// are no text.
std::string printable(const std::string& text);

template <class... Parts>
[[noreturn]] void fail(ExitCode code, const Parts&... parts) {
  throw Failure{code, join(parts...)};
}

#endif
