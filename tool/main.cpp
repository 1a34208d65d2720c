// rast: applies the library's filters to page images, and looks into those.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <new>

#include "error.h"
#include "options.h"
#include "output.h"

namespace {

// A closed standard descriptor would be handed to the next file opened. Each is filled with one
// that fails when used: write-only for input, read-only for output.
void fillStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

// One line whatever is in it: names of files may hold line ends and terminal commands.
int report(ExitCode code, std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < ' ' || c == 127) c = '?';
  }
  std::fprintf(stderr, "rast: %s\n", text.c_str());
  return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
  fillStandardDescriptors();
  // Writing to a closed pipe, or beyond the file size limit, fails like any other write.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  removeTemporaryOnSignals();
  try {
    const CommandLine command = parseCommandLine(argc, argv);
    if (command.text.empty()) return static_cast<int>(command.job.carryOut(command.job));
    print(command.text);
    return 0;
  } catch (const Failure& failure) {
    return report(failure.code, failure.text);
  } catch (const std::bad_alloc&) {
    return report(ExitCode::memory, "not enough memory for a band; try a smaller --band");
  } catch (const std::exception& error) {
    return report(ExitCode::runTime, error.what());
  }
}
