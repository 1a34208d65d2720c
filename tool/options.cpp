#include "options.h"

#include <getopt.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iomanip>
#include <numeric>
#include <optional>
#include <utility>

#include "error.h"

namespace {

struct CommonOption {
  char letter;
  const char *name;
  const char *argument;  // null for a switch
  const char *help;
};

constexpr CommonOption commonOptions[] = {
    {'g', "gray", nullptr,
     "convert colour to gray first, by ITU-R BT.601 luma:\n"
     "0.299 R + 0.587 G + 0.114 B, rounded to nearest"},
    {'f', "format", "pnm|png",
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

constexpr char exitHelp[] =
    "Exit status:\n"
    "  0  done\n"
    "  1  run-time failure\n"
    "  2  wrong usage\n"
    "  3  damaged or truncated input\n"
    "  4  output cannot be written\n"
    "  5  input or conversion not supported\n"
    "  6  memory cap exceeded (256 MiB for a band)\n";

// Two columns: a term, and help lines that start under each other.
std::string helpRow(const std::string &term, const std::string &help) {
  constexpr int column = 24;
  std::ostringstream row;
  row << "  " << std::left << std::setw(column) << term;
  for (const char c : help) {
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
      "Applies a raster filter to page images, band by band.\n\n"
      "Operations ('rast help OPERATION' describes one):\n";
  for (const Operation &operation : operations()) {
    text += helpRow(operation.name, join(operation.summary, " (", takenPages(operation), ")"));
  }
  return join(text, '\n', filesHelp, '\n', exitHelp);
}

std::string operationHelp(const Operation &operation) {
  std::string text = join("usage: rast ", operation.name, " [OPTION]... [IN [OUT]]\n\n",
                          operation.name, ": ", operation.summary, ", for ", takenPages(operation),
                          ".\n", operation.details, "\n\nParameters:\n");
  for (const Parameter &p : operation.parameters) {
    text += helpRow(join("    --", p.name, " N"),
                    join(p.help, "\n", p.low, "..", p.high, ", default ", p.preset));
  }
  text += "\nOptions:\n";
  for (const CommonOption &o : commonOptions) {
    const std::string argument = o.argument != nullptr ? join(' ', o.argument) : "";
    text += helpRow(join('-', o.letter, ", --", o.name, argument), o.help);
  }
  return join(text, "\nExample:\n  ", operation.example, "\n\n", filesHelp, '\n', exitHelp);
}

// Levenshtein distance.
std::size_t distance(const std::string &a, const std::string &b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// "; did you mean 'x'?" when a known name is close, else the way to the help.
std::string advice(const std::string &given, const std::vector<std::string> &known,
                   const std::string &help) {
  const auto far = [&given](const std::string &name) { return distance(given, name); };
  const auto best = std::ranges::min_element(known, {}, far);
  if (best != known.end() && far(*best) <= std::min<std::size_t>(3, best->size() / 2)) {
    return join("; did you mean '", *best, "'?");
  }
  return join("; see '", help, "'");
}

std::int64_t parseNumber(const std::string &option, const std::string &text, std::int64_t low,
                         std::int64_t high) {
  std::int64_t value = 0;
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  const bool whole = stop == end && error != std::errc::invalid_argument;
  if (!whole || error == std::errc::result_out_of_range || value < low || value > high) {
    fail(ExitCode::usage, option, ": '", text, whole ? "' is out of range" : "' is no whole number",
         "; expected ", low, "..", high);
  }
  return value;
}

Format parseFormat(const std::string &text) {
  if (text == "pnm") return Format::pnm;
  if (text == "png") return Format::png;
  fail(ExitCode::usage, "--format: '", text, "' is unknown; expected pnm or png");
}

Format formatOf(const std::string &path) {
  std::string ending = std::filesystem::path(path).extension();
  for (char &c : ending) {
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
  JobParser(const Operation &operation, int argc, char **argv) : argc_(argc), argv_(argv) {
    job_.operation = &operation;
    for (const CommonOption &o : commonOptions) {
      const int argument = o.argument != nullptr ? required_argument : no_argument;
      options_.push_back({o.name, argument, nullptr, o.letter});
    }
    for (const Parameter &p : operation.parameters) {
      const int code = firstParameterCode + static_cast<int>(job_.values.size());
      options_.push_back({p.name, required_argument, nullptr, code});
      job_.values.push_back(p.preset);
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
    takePaths();
    job_.format = format_ ? *format_ : formatOf(job_.outPath);
    return {"", std::move(job_)};
  }

 private:
  void take(int code) {
    switch (code) {
      case 'g':
        job_.toGray = true;
        break;
      case 'f':
        format_ = parseFormat(optarg);
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
        const Parameter &p = job_.operation->parameters[index];
        job_.values[index] = parseNumber(join("--", p.name), optarg, p.low, p.high);
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
    for (const option &o : options_) {
      if (o.name != nullptr) known.push_back(join("--", o.name));
    }
    fail(ExitCode::usage, "unknown or ambiguous option '", given, "'",
         advice(given.substr(0, given.find('=')), known, helpCommand()));
  }

  void takePaths() {
    if (optind < argc_) job_.inPath = argv_[optind++];
    if (optind < argc_) job_.outPath = argv_[optind++];
    if (optind < argc_) {
      fail(ExitCode::usage, "'", argv_[optind], "' is too much after IN and OUT", seeHelp());
    }
  }

  std::string helpCommand() const { return join("rast help ", job_.operation->name); }
  std::string seeHelp() const { return join("; see '", helpCommand(), "'"); }

  int argc_;
  char **argv_;
  Job job_;
  std::optional<Format> format_;
  std::vector<option> options_;
};

const Operation &requireOperation(const std::string &name) {
  if (const Operation *found = findOperation(name)) return *found;
  std::vector<std::string> known = {"help"};
  for (const Operation &operation : operations()) known.emplace_back(operation.name);
  fail(ExitCode::usage, "unknown operation '", name, "'", advice(name, known, "rast help"));
}

}  // namespace

CommandLine parseCommandLine(int argc, char **argv) {
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
