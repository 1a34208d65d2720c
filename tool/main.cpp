// rast: applies the library's filters to page images, and looks into those.
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "commands/options.h"
#include "files/descriptor.h"
#include "files/output.h"
#include "text/error.h"
#include "text/printable.h"
#ifdef RAST_HAS_RASTER
#include "commands/printFilter.h"
#endif

namespace rast::tool {

namespace {

// A closed standard descriptor would be handed to the next file opened. Each is filled with one
// that fails when used: write-only for input, read-only for output.
void fillStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

// In bytes, counted as the limit counts them; 0 where the kernel does not report it.
std::uint64_t dataInUse() {
  constexpr std::size_t place = 5;  // among the numbers, each of which counts pages
  char text[200] = "";
  const Descriptor status(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
  if (!status || status.read(text, sizeof text - 1) < 0) return 0;
  const std::vector<std::string> numbers = split(text, ' ');
  std::uint64_t pages = 0;
  if (numbers.size() > place) {
    const std::string& number = numbers[place];
    std::from_chars(number.data(), number.data() + number.size(), pages);
  }
  return pages * getauxval(AT_PAGESZ);
}

// Allocations beyond the cap fail in the libraries for page files too. Pages in temporary files are
// mapped, which does not count. A program that starts with more, as one with a sanitizer does, gets
// no limit.
void limitMemory(std::uint64_t bytes) {
  rlimit limit = {};
  if (dataInUse() > bytes / 2 || getrlimit(RLIMIT_DATA, &limit) != 0) return;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, bytes);
  setrlimit(RLIMIT_DATA, &limit);
}

#ifdef RAST_HAS_RASTER
// The name of this program's file or link. argv[0] would be the name of a printer in a queue.
std::string_view fileName() {
  const auto path = getauxval(AT_EXECFN);  // an address, or 0
  return path != 0 ? nameIn(reinterpret_cast<const char*>(path)) : "";
}
#endif

int carryOut(const Job& job) {
  limitMemory(job.memory.bytes());
  return static_cast<int>(job.carryOut(job));
}

// The label and the status with which failures are reported.
struct Reporter {
  const char* label = "rast";
  bool compares = false;

  int report(ExitCode code, const std::string& text) const {
    std::fprintf(stderr, "%s: %s\n", label, printable(text).c_str());
    return static_cast<int>(compares ? ExitCode::trouble : code);
  }
};

int runCommand(int argc, char** argv) {
  fillStandardDescriptors();
  // Writing to a closed pipe, or beyond the file size limit, fails like any other write.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  removeTemporaryOnSignals();
  Reporter reporter;
  try {
#ifdef RAST_HAS_RASTER
    if (fileName() == kPrintFilterName) {
      reporter.label = "ERROR";
      return carryOut(printJob(argc, argv));
    }
#endif
    reporter.compares = argc > 1 && std::string_view(argv[1]) == "compare";
    const CommandLine command = parseCommandLine(argc, argv);
    if (const Job* job = std::get_if<Job>(&command)) return carryOut(*job);
    print(std::get<std::string>(command));
    return 0;
  } catch (const Error& failure) {
    return reporter.report(failure.code, failure.text);
  } catch (const std::bad_alloc&) {
    return reporter.report(ExitCode::memory,
                           "not enough memory; try a smaller --band, or a larger --memory");
  } catch (const std::exception& error) {
    return reporter.report(ExitCode::runTime, error.what());
  }
}

}  // namespace

}  // namespace rast::tool

int main(int argc, char** argv) { return rast::tool::runCommand(argc, argv); }
