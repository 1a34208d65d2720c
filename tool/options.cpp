#include "options.h"

#include <getopt.h>
#include <sys/stat.h>

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <optional>
#include <span>
#include <utility>

#include "advice.h"
#include "compare.h"
#include "error.h"
#include "info.h"
#include "listing.h"
#include "run.h"

namespace {

struct CommonOption {
  char letter;
  const char* name;
  const char* argument;  // null for a switch; with an equals sign in front, it may be left out
  const char* help;
};

constexpr CommonOption commonOptions[] = {
    {'g', "gray", nullptr,
     "convert colour to gray first, by ITU-R BT.601 luma:\n"
     "0.299 R + 0.587 G + 0.114 B, rounded to nearest"},
    {'f', "format", "FORMAT", "output format; default by the ending of the output file:\n"},
    {'c', "chain", "FILE", "take the chain from a file, in which each line is a step too"},
    {'b', "band", "LINES",
     "lines worked on at a time, 1..65536, as far as memory allows;\n"
     "default what 256 KiB hold. The result is always the same"},
    {'m', "memory", "SIZE",
     "memory to keep within, such as 64M, at least 20M; default 256M.\n"
     "Pages that are kept in temporary files do not count"},
    {'P', "pages", "LIST",
     "only these pages, such as 1-10,15,20-; the others are\n"
     "read past and have to be sound all the same"},
    {'p', "progress", "=json",
     "show progress even when standard error is no terminal, or\n"
     "print it as lines of JSON"},
    {'q', "quiet", nullptr, "never show progress"},
    {'s', "stats", nullptr,
     "at the end, tell on standard error how many pages and bytes\n"
     "there were, the time in the library and in files, and the\n"
     "most memory that was in use"},
    {'j', "json", nullptr, "print a JSON array"},
    {'h', "help", nullptr, "print this help"},
};

constexpr char operationLetters[] = "gfbmPpqsh";  // first the one for those that take gray pages
constexpr int firstParameterCode = 256;

using Path = std::string Job::*;

// A command that is no operation.
struct Command {
  const char* name;
  const char* operands;
  const char* summary;
  const char* details;
  const char* letters;  // of the common options that it takes
  const char* example;
  ExitCode (*carryOut)(const Job& job);
  std::span<const Path> paths = {};  // in the order of operands
  std::size_t requiredPaths = 0;
};

constexpr Path infoPaths[] = {&Job::inPath};
constexpr Path chainPaths[] = {&Job::chainText, &Job::inPath, &Job::outPath};
constexpr std::span<const Path> operationPaths(chainPaths + 1, 2);
constexpr Path comparePaths[] = {&Job::inPath, &Job::otherPath, &Job::outPath};

constexpr Command commands[] = {
    {"chain", " CHAIN [IN [OUT]]", "several operations, one after the other",
     "A chain is a list of steps between colons that stand alone: an operation, then its\n"
     "parameters as name=value, or as a name alone where there is no value. The value of the "
     "first\n"
     "parameter, if it is no number, may be given alone: 'rotate cw', 'colgamma gamma=1.8'.\n"
     "Quotation marks of both kinds keep spaces together; # begins a comment up to the end of the\n"
     "line. Lines pass from step to step: no page is stored but by the operations that say so.",
     "gcfbmPpqsh",
     "rast chain 'satadjust raise : colgamma gamma=1.8 : shift x=2 y=1' in.ppm out.ppm", run,
     chainPaths, 1},
    {"info", " [IN]", "the pages of a stream",
     "Each page is read to its end before a line tells its number, format, size and kind; a last\n"
     "line tells how many pages there were. An error leaves the JSON array without its end. IN is\n"
     "a file; '-', or leaving it out, means standard input.",
     "mPjh", "rast info in.ppm", info, infoPaths},
    {"compare", " A B [DIFFERENCE]", "the differences between two streams",
     "For each page a line tells that it is equal in both; or its first sample that differs, with\n"
     "the value in A and in B, how many samples differ, by how much at most, and the peak\n"
     "signal-to-noise ratio for a peak of 255; or that sizes or kinds differ, or that one stream\n"
     "does not have the page. Lines and columns count from 1. DIFFERENCE gets a page of absolute\n"
     "differences for each page that has the same size and kind in both; it is not written if "
     "none\n"
     "has. A, B and DIFFERENCE are files; '-' for one of A and B means standard input. The exit\n"
     "status is 0 when all pages are equal and 1 when some are not.",
     "fbmPh", "rast compare in.ppm out.ppm difference.ppm", compare, comparePaths, 2},
    {"ops", "", "the operations there are",
     "A line for each tells its summary and the pages it takes; JSON also tells its parameters:\n"
     "kind, limits or values, default if there is one, and whether one is required.",
     "jh", "rast ops --json", listOperations},
};

const Command* findCommand(const std::string& name) {
  const auto found = std::ranges::find(commands, name, &Command::name);
  return found != std::end(commands) ? found : nullptr;
}

constexpr char operandsHelp[] =
    "IN and OUT are files; '-', or leaving them out, means standard input and output.\n";

constexpr char filesHelp[] =
    "Input is recognised by its content: binary PBM, PGM, PPM and PAM with maximum value 255, and\n"
    "PNG of up to 8 bits, neither interlaced nor transparent, one image or several in a row"
#ifdef RAST_HAS_TIFF
    ";\n"
    "TIFF of one page or several, gray, RGB, bilevel or with a palette"
#endif
#ifdef RAST_HAS_RASTER
    ";\n"
    "CUPS and PWG raster, gray or RGB of 8 bits"
#endif
    ".\n"
    "Palettes become RGB. PNG output holds one page, PBM output black and white only. Colour\n"
    "profiles are not carried over; resolution is, between TIFF and raster. A file is replaced "
    "only\n"
    "once its new content is complete.\n";

constexpr char wholePageHelp[] =
    "Whole pages are kept in unlinked temporary files, in the folder that TMPDIR names, or /tmp.\n";

constexpr char exitHelp[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  run-time failure; or, without a message, pages that compare found to differ\n"
    "  2  wrong usage, a wrong curve or matrix file, or a page of --pages that is not there\n"
    "  3  damaged or truncated input\n"
    "  4  output cannot be written\n"
    "  5  input or conversion not supported\n"
    "  6  more memory needed than --memory allows\n";

// Two columns: a term, and help lines that start under each other; below a term that is too long.
std::string helpRow(const std::string& term, const std::string& help) {
  constexpr int column = 24;
  std::ostringstream row;
  row << "  " << std::left << std::setw(column) << term;
  for (const char c : (term.size() < column ? "" : "\n") + help) {
    row << c;
    if (c == '\n') row << std::string(column + 2, ' ');
  }
  return row.str() + '\n';
}

std::string generalHelp() {
  std::string text = "usage: rast OPERATION [OPTION]... [IN [OUT]]\n";
  for (const Command& command : commands) {
    text += join("       rast ", command.name, " [OPTION]...", command.operands, '\n');
  }
  text +=
      "       rast help [COMMAND]\n"
      "       rast --help | --version\n\n"
      "Applies a raster filter to page images, or looks into them.\n\n"
      "Operations ('rast help OPERATION' describes one):\n";
  for (const Operation& operation : operations()) {
    text += helpRow(operation.name, join(operation.summary, " (", takenPages(operation), ")"));
  }
  text += "\nOther commands, which 'rast help' describes too:\n";
  for (const Command& command : commands) text += helpRow(command.name, command.summary);
  return join(text, '\n', operandsHelp, filesHelp, '\n', exitHelp);
}

bool isOptional(const CommonOption& option) {
  return option.argument != nullptr && *option.argument == '=';
}

std::string formatsHelp() {
  std::string text;
  for (const Format& format : formats()) {
    text += join(text.empty() ? "" : "\n", format.name, " (", format.endings, ')');
  }
  return text;
}

std::string optionsHelp(const std::string& letters) {
  std::string text = "\nOptions:\n";
  for (const CommonOption& o : commonOptions) {
    if (letters.find(o.letter) == std::string::npos) continue;
    std::string argument = o.argument != nullptr ? o.argument : "";
    if (!argument.empty())
      argument = isOptional(o) ? join('[', argument, ']') : join(' ', argument);
    text += helpRow(join('-', o.letter, ", --", o.name, argument),
                    o.letter == 'f' ? o.help + formatsHelp() : o.help);
  }
  return text;
}

std::string commandHelp(const Command& command) {
  return join("usage: rast ", command.name, " [OPTION]...", command.operands, "\n\n", command.name,
              ": ", command.summary, ".\n", command.details, '\n', optionsHelp(command.letters),
              "\nExample:\n  ", command.example, "\n\n",
              command.paths.empty() ? "" : join(filesHelp, '\n'), exitHelp);
}

std::string operationHelp(const Operation& operation) {
  const bool hasOperand = !operation.parameters.empty() && operation.parameters[0].operand;
  const std::string operand = hasOperand ? join(' ', operation.parameters[0].argument) : "";
  std::string text = join("usage: rast ", operation.name, operand, " [OPTION]... [IN [OUT]]\n\n",
                          headline(operation), ".\n", operation.details, '\n');
  if (operation.storesPages) text += wholePageHelp;
  if (!operation.parameters.empty()) text += "\nParameters:\n";
  for (const Parameter& p : operation.parameters) {
    if (p.argument == nullptr) {
      text += helpRow(join("    --", p.name), p.help);
      continue;
    }
    const std::string range = p.read == readNumbers ? join(p.low, "..", p.high) : "";
    const std::string preset = p.preset == nullptr ? "required"
                               : *p.preset != '\0' ? join("default ", p.preset)
                                                   : "";
    const std::string line = join(range, range.empty() || preset.empty() ? "" : ", ", preset);
    text += helpRow(join("    --", p.name, ' ', p.argument),
                    join(p.help, line.empty() ? "" : "\n", line));
  }
  text += optionsHelp(takesPage(operation, false) ? operationLetters : operationLetters + 1);
  return join(text, "\nExample:\n  ", operation.example, "\n\n", operandsHelp, filesHelp, '\n',
              exitHelp);
}

const Format& formatFor(const std::string& path) {
  if (const Format* found = formatOfFile(path)) return *found;
  std::string endings;
  for (const Format& format : formats()) endings += join(' ', format.endings);
  fail(ExitCode::usage, path, ": no format is known for this ending; expected one of", endings,
       ", or --format");
}

const Format& requireFormat(const std::string& name) {
  if (const Format* found = findFormat(name)) return *found;
  std::string names;
  for (const Format& format : formats()) names += join(names.empty() ? "" : ", ", format.name);
  fail(ExitCode::usage, "--format: '", name, "' is unknown; expected one of ", names);
}

class JobParser {
 public:
  JobParser(const Operation& operation, int argc, char** argv)
      : JobParser(operationLetters, operationPaths, 0, argc, argv) {
    job_.carryOut = run;
    link_.emplace(operation);
    int code = firstParameterCode;
    for (const Parameter& p : operation.parameters) {
      const int argument = p.argument != nullptr ? required_argument : no_argument;
      options_.push_back({p.name, argument, nullptr, code++});
    }
  }

  JobParser(const Command& command, int argc, char** argv)
      : JobParser(command.letters, command.paths, command.requiredPaths, argc, argv) {
    job_.carryOut = command.carryOut;
    operands_ = command.operands;
    if (job_.carryOut != run) job_.outPath.clear();
  }

  // Without a job where help is asked for.
  std::optional<Job> parse() {
    opterr = 0;
    options_.push_back({});
    int code = 0;
    while ((code = getopt_long(argc_, argv_, letters_.c_str(), options_.data(), nullptr)) != -1) {
      if (code == 'h') return {};
      take(code);
    }
    takeOperands();
    if (job_.carryOut == run) makeChain();
    if (job_.format == nullptr) job_.format = &formatFor(job_.outPath);
    return std::move(job_);
  }

 private:
  JobParser(const std::string& letters, std::span<const Path> paths, std::size_t requiredPaths,
            int argc, char** argv)
      : argc_(argc), argv_(argv), paths_(paths), requiredPaths_(requiredPaths) {
    for (const CommonOption& o : commonOptions) {
      if (letters.find(o.letter) == std::string::npos) continue;
      const bool takesWord = o.argument != nullptr && !isOptional(o);
      letters_ += join(o.letter, takesWord ? ":" : "");
      const int argument = takesWord       ? required_argument
                           : isOptional(o) ? optional_argument
                                           : no_argument;
      options_.push_back({o.name, argument, nullptr, o.letter});
    }
  }

  void take(int code) {
    switch (code) {
      case 'g':
        if (link_ && !takesPage(*link_->operation, false)) {
          fail(ExitCode::usage, "--gray: ", link_->operation->name, " works on colour pages only");
        }
        job_.toGray = true;
        break;
      case 'f':
        job_.format = &requireFormat(optarg);
        break;
      case 'c':
        if (!chain_) {
          paths_ = paths_.subspan(1);
          requiredPaths_ = 0;
        }
        chain_ = readChain(optarg);
        break;
      case 'b':
        job_.bandLines = static_cast<std::uint32_t>(parseNumber("--band", optarg, 1, 65536));
        break;
      case 'm':
        job_.memory = parseBytes("--memory", optarg, std::uint64_t{20} << 20);
        break;
      case 'P':
        job_.pages = PageList(optarg);
        break;
      case 'j':
        job_.json = true;
        break;
      case 's':
        job_.stats = true;
        break;
      case 'p':
        job_.progress = ProgressMode::always;
        if (optarg != nullptr) {
          parseChoice("--progress", optarg, "json");
          job_.progress = ProgressMode::json;
        }
        break;
      case 'q':
        job_.progress = ProgressMode::never;
        break;
      case ':':
        fail(ExitCode::usage, "option '", argv_[optind - 1], "' needs a value", seeHelp());
      case '?':
        refuseOption();
      default: {
        const auto index = static_cast<std::size_t>(code - firstParameterCode);
        const Parameter& p = link_->operation->parameters[index];
        link_->values[index] = p.read(p, optarg != nullptr ? optarg : "1");
      }
    }
  }

  [[noreturn]] void refuseOption() const {
    // A long option is already passed over; a letter may sit inside a cluster.
    const std::string given = argv_[optind - 1];
    if (!given.starts_with("--")) {
      const bool isLetter = optopt > ' ' && optopt < 127;
      fail(ExitCode::usage, "unknown option '",
           isLetter ? join('-', static_cast<char>(optopt)) : given, "'", seeHelp());
    }
    if (optopt != 0) fail(ExitCode::usage, "option '", given, "' takes no value", seeHelp());
    std::vector<std::string> known;
    for (const option& o : options_) {
      if (o.name != nullptr) known.push_back(join("--", o.name));
    }
    fail(ExitCode::usage, "unknown or ambiguous option '", given, "'",
         advice(given.substr(0, given.find('=')), known, seeHelp()));
  }

  void takeOperands() {
    if (link_ && !link_->values.empty() && link_->values[0].empty() && optind < argc_) {
      const Parameter& first = link_->operation->parameters[0];
      if (first.operand) link_->values[0] = first.read(first, argv_[optind++]);
    }
    std::size_t taken = 0;
    for (; taken < paths_.size() && optind < argc_; ++taken) job_.*paths_[taken] = argv_[optind++];
    if (optind < argc_) fail(ExitCode::usage, "'", argv_[optind], "' is too much", seeHelp());
    if (taken < requiredPaths_) {
      fail(ExitCode::usage, "operands are missing; expected", operands_, seeHelp());
    }
  }

  void makeChain() {
    if (link_) {
      link_->requireParameters();
      job_.chain = {*std::move(link_)};
    } else {
      job_.chain = chain_ ? *std::move(chain_) : parseChain(job_.chainText);
    }
  }

  std::string seeHelp() const { return join("; see 'rast help ", argv_[0], "'"); }

  int argc_;
  char** argv_;
  std::span<const Path> paths_;
  std::size_t requiredPaths_;
  const char* operands_ = "";
  std::string letters_ = ":";
  Job job_;
  std::optional<Link> link_;    // the operation, if it is one alone
  std::optional<Chain> chain_;  // from a file
  std::vector<option> options_;
};

const Operation& operationNamed(const std::string& name) {
  std::vector<std::string> others = {"help"};
  for (const Command& command : commands) others.emplace_back(command.name);
  return requireOperation(name, others);
}

std::string help(const std::string& name) {
  const Command* command = findCommand(name);
  return command != nullptr ? commandHelp(*command) : operationHelp(operationNamed(name));
}

}  // namespace

CommandLine parseCommandLine(int argc, char** argv) {
  if (argc < 2) fail(ExitCode::usage, "no operation given; see 'rast help'");
  const std::string first = argv[1];
  if (first == "--version" || first == "-V") return {"rast " RAST_TOOL_VERSION "\n", {}};
  if (first == "--help" || first == "-h" || first == "help") {
    return {argc < 3 ? generalHelp() : help(argv[2]), {}};
  }
  if (first.starts_with('-')) {
    fail(ExitCode::usage, "'", first, "' before the operation; see 'rast help'");
  }
  const Command* command = findCommand(first);
  JobParser parser = command != nullptr ? JobParser(*command, argc - 1, argv + 1)
                                        : JobParser(operationNamed(first), argc - 1, argv + 1);
  std::optional<Job> job = parser.parse();
  if (!job) return {help(first), {}};
  return {"", *std::move(job)};
}
