#include "commands/printFilter.h"

#include <cups/cups.h>
#include <cups/ppd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "commands/run.h"
#include "text/error.h"
#include "formats/rasterPage.h"
#include "formats/sharedLibrary.h"
#include "commands/command.h"
#include "progress/progress.h"

namespace rast::tool {

namespace {

constexpr SharedLibrary libcups(RAST_CUPS_SONAME, "the print filter");
RAST_LIBRARY_FUNCTION(libcups, cupsFreeOptions);
RAST_LIBRARY_FUNCTION(libcups, cupsGetOption);
RAST_LIBRARY_FUNCTION(libcups, cupsMarkOptions);
RAST_LIBRARY_FUNCTION(libcups, cupsParseOptions);
RAST_LIBRARY_FUNCTION(libcups, cupsRasterInterpretPPD);
RAST_LIBRARY_FUNCTION(libcups, ppdClose);
RAST_LIBRARY_FUNCTION(libcups, ppdErrorString);
RAST_LIBRARY_FUNCTION(libcups, ppdFindChoice);
RAST_LIBRARY_FUNCTION(libcups, ppdFindOption);
RAST_LIBRARY_FUNCTION(libcups, ppdFirstOption);
RAST_LIBRARY_FUNCTION(libcups, ppdLastError);
RAST_LIBRARY_FUNCTION(libcups, ppdMarkDefaults);
RAST_LIBRARY_FUNCTION(libcups, ppdMarkOption);
RAST_LIBRARY_FUNCTION(libcups, ppdNextOption);
RAST_LIBRARY_FUNCTION(libcups, ppdOpenFile);

constexpr char kChainOption[] = "rast-chain";

class Options {
 public:
  explicit Options(const std::string& text)
      : text_(text), count_(cupsParseOptions(text_.c_str(), 0, &options_)) {}
  ~Options() { cupsFreeOptions(count_, options_); }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  // Empty if not given.
  std::string get(const char* name) const {
    const char* value = cupsGetOption(name, count_, options_);
    return value != nullptr ? value : "";
  }

  // The options of the job: "name=value", or "name" for a switch.
  std::vector<std::string> words() const {
    std::vector<std::string> words;
    for (const cups_option_t& option : std::span(options_, static_cast<std::size_t>(count_))) {
      const bool isSwitch = std::string_view(option.value) == "true";
      words.push_back(isSwitch ? option.name : join(option.name, '=', option.value));
    }
    return words;
  }

  // The words that follow the option where it stands with such a value, unquoted.
  std::vector<std::string> wordsAfter(const char* name, const std::string& value) const {
    std::string text = join(' ', text_, ' ');
    std::ranges::replace_if(
        text, [](char c) { return c >= '\t' && c <= '\r'; }, ' ');
    const std::string option = join(' ', name, '=', value, ' ');
    const std::size_t place = text.rfind(option);
    if (place == std::string::npos) return {};
    std::vector<std::string> words = split(text.substr(place + option.size()), ' ');
    std::erase(words, "");
    return words;
  }

  void mark(ppd_file_t* ppd) const {
    ppdMarkDefaults(ppd);
    cupsMarkOptions(ppd, count_, options_);
  }

  // The page that interpreters get from what is marked. False where they fail.
  bool interpret(ppd_file_t* ppd, cups_page_header2_t& page) const {
    return cupsRasterInterpretPPD(&page, ppd, count_, options_, nullptr) == 0;
  }

 private:
  std::string text_;
  cups_option_t* options_ = nullptr;
  int count_;
};

struct ClosesPpd {
  void operator()(ppd_file_t* ppd) const { ppdClose(ppd); }
};
using Ppd = std::unique_ptr<ppd_file_t, ClosesPpd>;

const char* environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// Null where the queue has none.
Ppd openPpd() {
  const char* const path = environment("PPD");
  if (*path == '\0') return nullptr;
  Ppd ppd(ppdOpenFile(path));
  if (!ppd) {
    int line = 0;
    const ppd_status_t status = ppdLastError(&line);
    fail(ExitCode::runTime, path, ", line ", line, ": ", ppdErrorString(status));
  }
  return ppd;
}

std::string_view codeOf(const ppd_choice_t& choice) {
  return choice.code != nullptr ? choice.code : "";
}

std::span<const ppd_choice_t> choicesOf(const ppd_option_t& option) {
  return {option.choices, static_cast<std::size_t>(option.num_choices)};
}

// The codes of choices are page-device code for interpreters. At a chain they fail, and drop what
// the PPD file says of the page.
void requireComments(ppd_file_t* ppd, const ppd_option_t& option, const Options& options) {
  const bool areComments = std::ranges::all_of(choicesOf(option), [](const ppd_choice_t& choice) {
    return codeOf(choice).empty() || codeOf(choice).starts_with('%');
  });
  cups_page_header2_t page;
  options.mark(ppd);
  if (areComments || options.interpret(ppd, page)) return;
  fail(ExitCode::runTime, environment("PPD"),
       ": interpreters fail at a chain and make other pages than the queue asks for; "
       "expected chains as comments, such as *",
       kChainOption, " Gray: \"% gray\"");
}

// The chain in the code of a choice, where % begins lines.
std::string withoutComments(std::string_view code) {
  std::string chain;
  for (const std::string& line : split(code, '\n')) {
    const std::size_t begin = std::min(line.find_first_not_of("% "), line.size());
    chain += join(chain.empty() ? "" : "\n", line.substr(begin));
  }
  return chain;
}

bool mayBeOf(const chain::Operation& operation, const std::string& word) {
  const auto& parameters = operation.parameters;
  const std::string name = word.substr(0, word.find('='));
  return std::ranges::find(parameters, name, &chain::Parameter::name) != parameters.end() ||
         (!parameters.empty() && parameters[0].mayBeUnnamed() &&
          chain::isKnownWord(parameters[0], word));
}

// The chain that begins with an operation and goes on with words, up to one that is of no chain.
// Spelled without blanks.
std::string joinedChain(const chain::Operation& first, const std::vector<std::string>& words) {
  std::string chain = first.name;
  const chain::Operation* operation = &first;
  for (const std::string& word : words) {
    if (word == ":") {
      operation = nullptr;
    } else if (operation != nullptr && mayBeOf(*operation, word)) {
      chain += ',' + word;
    } else if ((operation = chain::findOperation(word)) != nullptr) {
      chain += ':' + word;
    } else {
      break;
    }
  }
  return chain;
}

// A chain that was split at blanks begins with an operation alone, and goes on as options: mostly
// right behind it, otherwise as some that the PPD file does not have.
void rejectSplit(const std::string& chain, const Options& options, ppd_file_t* ppd) {
  const chain::Operation* const operation = chain::findOperation(chain);
  if (operation == nullptr) return;
  const auto isStray = [&](const std::string& word) {
    if (word == ":") return true;
    const std::string name = word.substr(0, word.find('='));
    return mayBeOf(*operation, word) && !(ppd != nullptr && ppdFindOption(ppd, name.c_str()));
  };
  std::vector<std::string> words = options.wordsAfter(kChainOption, chain);
  if (words.empty() || (!isStray(words[0]) && chain::findOperation(words[0]) == nullptr)) {
    words = options.words();
    std::erase_if(words, [&](const std::string& word) { return !isStray(word); });
    if (words.empty()) return;
  }
  fail(ExitCode::usage, "the chain was split at blanks on its way, and '", words[0],
       "' came as an option of its own; without blanks it is ", kChainOption, '=',
       joinedChain(*operation, words));
}

struct Given {
  std::string text;
  bool byJob;  // and not by the PPD file
};

// The chain of the job, which may be the name of a choice in the PPD file, or the default choice.
Given chainText(const Options& options) {
  const std::string given = options.get(kChainOption);
  const Ppd ppd = openPpd();
  if (ppd_option_t* const option = ppd ? ppdFindOption(ppd.get(), kChainOption) : nullptr) {
    requireComments(ppd.get(), *option, options);
    const ppd_choice_t* choice =
        ppdFindChoice(option, given.empty() ? option->defchoice : given.c_str());
    // Libcups takes a chain that begins like a custom value for that.
    if (choice != nullptr && std::string_view(choice->choice) != "Custom") {
      return {withoutComments(codeOf(*choice)), false};
    }
  }
  rejectSplit(given, options, ppd.get());
  return {given, true};
}

// The type that the queue ends with, or else the one that the pages come in.
const Format& rasterFormat() {
  static constexpr Format asItComes = {"raster", "", makeRasterWriter};
  const std::string_view type = environment("FINAL_CONTENT_TYPE");
  if (type == "image/pwg-raster") return *findFormat("pwg");
  if (type == "application/vnd.cups-raster") return *findFormat("cups");
  return asItComes;
}

bool setsRaster(const ppd_choice_t& choice) {
  const std::string_view code = codeOf(choice);
  return std::ranges::any_of(
      std::to_array<std::string_view>({"cupsBitsPerColor", "cupsColorOrder", "cupsColorSpace"}),
      [code](std::string_view name) { return code.find(name) != std::string_view::npos; });
}

std::vector<ppd_option_t*> optionsOf(ppd_file_t* ppd) {
  std::vector<ppd_option_t*> options;  // because marking moves the place of ppdNextOption
  for (ppd_option_t* option = ppdFirstOption(ppd); option != nullptr; option = ppdNextOption(ppd)) {
    options.push_back(option);
  }
  return options;
}

// A choice of the PPD file that makes interpreters give raster which is read, in color if there is
// the choice: "ColorModel=RGB". Empty if none does.
std::string choiceFor(bool color, const Options& options) {
  std::string found;
  const Ppd ppd = openPpd();
  if (!ppd) return found;
  for (const ppd_option_t* option : optionsOf(ppd.get())) {
    for (const ppd_choice_t& choice : choicesOf(*option)) {
      if (!setsRaster(choice)) continue;
      cups_page_header2_t page;
      options.mark(ppd.get());
      ppdMarkOption(ppd.get(), option->keyword, choice.choice);
      if (!options.interpret(ppd.get(), page) || !unsupportedIn(page).empty()) continue;
      const bool isBest = hasColor(page) == color;
      if (found.empty() || isBest) found = join(option->keyword, '=', choice.choice);
      if (isBest) return found;
    }
  }
  return found;
}

ExitCode printPages(const Job& job) {
  try {
    return run(job);
  } catch (const UnsupportedRaster& failure) {
    const std::string choice = choiceFor(failure.isColor, Options(job.printOptions));
    fail(failure.code, failure.text, choice.empty() ? "" : join(": -o ", choice));
  }
}

}  // namespace

Job printJob(int argc, char** argv) {
  constexpr int withFile = 7;
  if (argc != withFile && argc != withFile - 1) {
    fail(ExitCode::usage, "expected the arguments job user title copies options [file]");
  }
  Job job;
  job.carryOut = printPages;
  job.printOptions = argv[5];
  const Options options(job.printOptions);
  const Given given = chainText(options);
  EngineSettings settings;
  settings.text = given.text;
  // The filter may be allowed to read files that whoever prints is not.
  settings.mayNameFiles = !given.byJob;
  job.engine = std::make_shared<Engine>(settings);
  if (argc == withFile) job.inPath = argv[6];
  job.mayBeEmpty = true;
  job.format = &rasterFormat();
  // Otherwise pdftopdf or the driver counts pages, and they would be counted twice.
  job.progress = options.get("page-logging") == "on" ? ProgressMode::printQueue
                                                     : ProgressMode::printQueueUncounted;
  printError(join("DEBUG: chain: ", given.text.empty() ? "none" : printable(given.text), '\n'));
  return job;
}

}  // namespace rast::tool
