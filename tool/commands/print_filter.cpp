#include "commands/print_filter.h"

#include <cups/cups.h>
#include <cups/ppd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "commands/run.h"
#include "formats/error.h"
#include "formats/shared_library.h"
#include "progress/progress.h"

namespace {

constexpr SharedLibrary libcups(RAST_CUPS_SONAME, "the print filter");
RAST_LIBRARY_FUNCTION(libcups, cupsFreeOptions);
RAST_LIBRARY_FUNCTION(libcups, cupsGetOption);
RAST_LIBRARY_FUNCTION(libcups, cupsParseOptions);
RAST_LIBRARY_FUNCTION(libcups, ppdClose);
RAST_LIBRARY_FUNCTION(libcups, ppdErrorString);
RAST_LIBRARY_FUNCTION(libcups, ppdFindChoice);
RAST_LIBRARY_FUNCTION(libcups, ppdFindOption);
RAST_LIBRARY_FUNCTION(libcups, ppdLastError);
RAST_LIBRARY_FUNCTION(libcups, ppdOpenFile);

constexpr char chainOption[] = "rast-chain";

class Options {
 public:
  explicit Options(const char* text) : count_(cupsParseOptions(text, 0, &options_)) {}
  ~Options() { cupsFreeOptions(count_, options_); }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  // Empty if not given.
  std::string get(const char* name) const {
    const char* value = cupsGetOption(name, count_, options_);
    return value != nullptr ? value : "";
  }

 private:
  cups_option_t* options_ = nullptr;
  int count_;
};

struct ClosesPpd {
  void operator()(ppd_file_t* ppd) const { ppdClose(ppd); }
};
using Ppd = std::unique_ptr<ppd_file_t, ClosesPpd>;

// Null where the queue has none.
Ppd openPpd() {
  const char* path = std::getenv("PPD");
  if (path == nullptr || *path == '\0') return nullptr;
  Ppd ppd(ppdOpenFile(path));
  if (!ppd) {
    int line = 0;
    const ppd_status_t status = ppdLastError(&line);
    fail(ExitCode::runTime, path, ", line ", line, ": ", ppdErrorString(status));
  }
  return ppd;
}

struct Given {
  std::string text;
  bool byJob;  // and not by the PPD file
};

// What the job gives, which may be the name of a choice in the PPD file, or the default choice.
Given chainText(const Options& options) {
  const std::string given = options.get(chainOption);
  const Ppd ppd = openPpd();
  ppd_option_t* const option = ppd ? ppdFindOption(ppd.get(), chainOption) : nullptr;
  if (option == nullptr) return {given, true};
  const ppd_choice_t* choice =
      ppdFindChoice(option, given.empty() ? option->defchoice : given.c_str());
  // Libcups takes a chain that begins like a custom value for that.
  if (choice == nullptr || std::string_view(choice->choice) == "Custom") return {given, true};
  return {choice->code != nullptr ? choice->code : "", false};
}

}  // namespace

Job printJob(int argc, char** argv) {
  constexpr int withFile = 7;
  if (argc != withFile && argc != withFile - 1) {
    fail(ExitCode::usage, "expected the arguments job user title copies options [file]");
  }
  const Options options(argv[5]);
  Job job;
  job.carryOut = run;
  const Given given = chainText(options);
  EngineSettings settings;
  settings.text = given.text;
  // The filter may be allowed to read files that whoever prints is not.
  settings.mayNameFiles = !given.byJob;
  job.engine = std::make_shared<Engine>(settings);
  if (argc == withFile) job.inPath = argv[6];
  job.format = findFormat("cups");
  job.progress = options.get("page-logging") == "off" ? ProgressMode::printQueueUncounted
                                                      : ProgressMode::printQueue;
  printError(join("DEBUG: chain: ", given.text.empty() ? "none" : printable(given.text), '\n'));
  return job;
}
