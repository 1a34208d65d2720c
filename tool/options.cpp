#include "options.h"

#include <getopt.h>
#include <sys/stat.h>

#include <filesystem>
#include <iomanip>
#include <optional>
#include <utility>

#include "advice.h"
#include "error.h"

namespace {

struct CommonOption {
  char letter;
  const char* name;
  const char* argument;  // null for a switch
  const char* help;
};

constexpr char formats[] = "pnm|png";  // in the order of Format

constexpr CommonOption commonOptions[] = {
    {'g', "gray", nullptr,
     "convert colour to gray first, by ITU-R BT.601 luma:\n"
     "0.299 R + 0.587 G + 0.114 B, rounded to nearest"},
    {'f', "format", formats,
     "output format; default by the ending of OUT (.pgm .ppm\n"
     ".pnm .png), pnm when there is none"},
    {'b', "band", "LINES", "lines worked on at a time, 1..65536; default 64"},
    {'p', "progress", nullptr, "show progress even when standard error is no terminal"},
    {'q', "quiet", nullptr, "never show progress"},
    {'h', "help", nullptr, "print this help"},
};

constexpr char shortOptions[] = ":gf:b:pqh";
constexpr int firstParameterCode = 256;

constexpr char filesHelp[] =
    "IN and OUT are files; '-', or leaving them out, means standard input and output. Input is\n"
    "recognised by its content: binary PGM and PPM with maximum value 255, one image or several\n"
    "in a row, and PNG of up to 8 bits, neither interlaced nor transparent. Palettes become RGB.\n"
    "PNG output holds one page. Colour profiles and resolution are not carried over. A file is\n"
    "replaced only once its new content is complete.\n";

constexpr char wholePageHelp[] =
    "Whole pages are kept in unlinked temporary files, in the folder that TMPDIR names, or /tmp.\n";

constexpr char exitHelp[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  run-time failure\n"
    "  2  wrong usage, or a wrong curve or matrix file\n"
    "  3  damaged or truncated input\n"
    "  4  output cannot be written\n"
    "  5  input or conversion not supported\n"
    "  6  memory cap exceeded (256 MiB for a band)\n";

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
  std::string text =
      "usage: rast OPERATION [OPTION]... [IN [OUT]]\n"
      "       rast help [OPERATION]\n"
      "       rast --help | --version\n\n"
      "Applies a raster filter to page images.\n\n"
      "Operations ('rast help OPERATION' describes one):\n";
  for (const Operation& operation : operations()) {
    text += helpRow(operation.name, join(operation.summary, " (", takenPages(operation), ")"));
  }
  return join(text, '\n', filesHelp, '\n', exitHelp);
}

std::string operationHelp(const Operation& operation) {
  const Parameter& first = operation.parameters[0];
  const std::string operand = first.operand ? join(' ', first.argument) : "";
  std::string text = join("usage: rast ", operation.name, operand, " [OPTION]... [IN [OUT]]\n\n",
                          operation.name, ": ", operation.summary, ", for ", takenPages(operation),
                          ".\n", operation.details, '\n');
  if (operation.makePageFilter != nullptr) text += wholePageHelp;
  text += "\nParameters:\n";
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
  text += "\nOptions:\n";
  for (const CommonOption& o : commonOptions) {
    if (o.letter == 'g' && !takesPage(operation, false)) continue;
    const std::string argument = o.argument != nullptr ? join(' ', o.argument) : "";
    text += helpRow(join('-', o.letter, ", --", o.name, argument), o.help);
  }
  return join(text, "\nExample:\n  ", operation.example, "\n\n", filesHelp, '\n', exitHelp);
}

Format formatOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension();
  for (char& c : ending) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  if (ending == ".png") return Format::png;
  if (ending.empty() || ending == ".pgm" || ending == ".ppm" || ending == ".pnm") {
    return Format::pnm;
  }
  fail(ExitCode::usage, path, ": no format is known for '", ending,
       "'; expected .pgm, .ppm, .pnm or .png, or --format");
}

class JobParser {
 public:
  JobParser(const Operation& operation, int argc, char** argv) : argc_(argc), argv_(argv) {
    job_.operation = &operation;
    for (const CommonOption& o : commonOptions) {
      const int argument = o.argument != nullptr ? required_argument : no_argument;
      options_.push_back({o.name, argument, nullptr, o.letter});
    }
    for (const Parameter& p : operation.parameters) {
      const int code = firstParameterCode + static_cast<int>(job_.values.size());
      const int argument = p.argument != nullptr ? required_argument : no_argument;
      options_.push_back({p.name, argument, nullptr, code});
      const bool hasPreset = p.preset != nullptr && *p.preset != '\0';
      job_.values.push_back(hasPreset ? p.read(p, p.preset) : Value());
    }
    options_.push_back({});
  }

  CommandLine parse() {
    opterr = 0;
    int code = 0;
    while ((code = getopt_long(argc_, argv_, shortOptions, options_.data(), nullptr)) != -1) {
      if (code == 'h') return {operationHelp(*job_.operation), {}};
      take(code);
    }
    takeOperands();
    requireParameters();
    job_.format = format_ ? *format_ : formatOf(job_.outPath);
    return {"", std::move(job_)};
  }

 private:
  void take(int code) {
    switch (code) {
      case 'g':
        if (!takesPage(*job_.operation, false)) {
          fail(ExitCode::usage, "--gray: ", job_.operation->name, " works on colour pages only");
        }
        job_.toGray = true;
        break;
      case 'f':
        format_ = static_cast<Format>(parseChoice("--format", optarg, formats));
        break;
      case 'b':
        job_.bandLines = static_cast<std::uint32_t>(parseNumber("--band", optarg, 1, 65536));
        break;
      case 'p':
        job_.progress = ProgressMode::always;
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
        const Parameter& p = job_.operation->parameters[index];
        job_.values[index] = p.read(p, optarg != nullptr ? optarg : "1");
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
    const Parameter& first = job_.operation->parameters[0];
    if (first.operand && job_.values[0].empty() && optind < argc_) {
      job_.values[0] = first.read(first, argv_[optind++]);
    }
    if (optind < argc_) job_.inPath = argv_[optind++];
    if (optind < argc_) job_.outPath = argv_[optind++];
    if (optind < argc_) {
      fail(ExitCode::usage, "'", argv_[optind], "' is too much after IN and OUT", seeHelp());
    }
  }

  void requireParameters() const {
    for (std::size_t i = 0; i < job_.values.size(); ++i) {
      const Parameter& p = job_.operation->parameters[i];
      if (p.preset == nullptr && job_.values[i].empty()) {
        fail(ExitCode::usage, optionName(p), ' ', p.argument, " is missing", seeHelp());
      }
    }
  }

  std::string seeHelp() const { return join("; see 'rast help ", job_.operation->name, "'"); }

  int argc_;
  char** argv_;
  Job job_;
  std::optional<Format> format_;
  std::vector<option> options_;
};

const Operation& requireOperation(const std::string& name) {
  if (const Operation* found = findOperation(name)) return *found;
  std::vector<std::string> known = {"help"};
  for (const Operation& operation : operations()) known.emplace_back(operation.name);
  fail(ExitCode::usage, "unknown operation '", name, "'", advice(name, known, "; see 'rast help'"));
}

}  // namespace

CommandLine parseCommandLine(int argc, char** argv) {
  if (argc < 2) fail(ExitCode::usage, "no operation given; see 'rast help'");
  const std::string first = argv[1];
  if (first == "--version" || first == "-V") return {"rast " RAST_TOOL_VERSION "\n", {}};
  if (first == "--help" || first == "-h" || first == "help") {
    return {argc < 3 ? generalHelp() : operationHelp(requireOperation(argv[2])), {}};
  }
  if (first.starts_with('-')) {
    fail(ExitCode::usage, "'", first, "' before the operation; see 'rast help'");
  }
  return JobParser(requireOperation(first), argc - 1, argv + 1).parse();
}
