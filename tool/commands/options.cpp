#include "commands/options.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "commands/command.h"
#include "commands/completion.h"
#include "commands/help.h"
#include "commands/run.h"
#include "text/error.h"
#include "files/file.h"
#include "operations/parameters.h"

namespace rast::tool {

namespace {

constexpr int kFirstParameterCode = 256;

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

// A number of bytes, with K, M or G for powers of 1024.
std::uint64_t parseBytes(const std::string& option, const std::string& text, std::uint64_t low) {
  const std::string units = "KMG";
  std::uint64_t count = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, count);
  const std::size_t unit = stop == end ? 0 : units.find(*stop) + 1;  // 0 for no unit, or none known
  const unsigned shift = static_cast<unsigned>(unit) * 10;
  const bool isSize = error == std::errc() && stop + (unit == 0 ? 0 : 1) == end;
  if (!isSize || count > std::uint64_t{INT64_MAX} >> shift || count << shift < low) {
    fail(ExitCode::usage, option, ": '", text,
         "' is no possible size; expected bytes, or a number with ", "K, M or G, at least ",
         low >> 20, 'M');
  }
  return count << shift;
}

std::string readChain(const std::string& path) {
  constexpr std::size_t longest = 1 << 20;
  const File file(std::fopen(path.c_str(), "rbe"));
  if (!file) {
    fail(ExitCode::usage, "--chain: ", path, ": cannot be opened: ", std::strerror(errno));
  }
  std::string text(longest, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0) {
    fail(ExitCode::usage, "--chain: ", path, ": cannot be read: ", std::strerror(errno));
  }
  if (text.size() == longest) {
    fail(ExitCode::usage, "--chain: ", path, ": is too long; expected less than a megabyte");
  }
  if (text.find('\0') != std::string::npos) {
    fail(ExitCode::usage, "--chain: ", path, ": is no text; it holds null bytes");
  }
  return text;
}

Resolution parseResolution(const std::string& text) {
  const std::size_t times = std::min(text.find('x'), text.size());
  const auto number = [](const std::string& part) {
    return valueOf(chain::parseDecimal("--resolution", part, 1, UINT16_MAX));
  };
  const double x = number(text.substr(0, times));
  return {x, times == text.size() ? x : number(text.substr(times + 1))};
}

class JobParser {
 public:
  JobParser(const chain::Operation& operation, int argc, char** argv)
      : JobParser(kOperationLetters, operationPaths(), 0, argc, argv) {
    job_.carryOut = run;
    operation_ = &operation;
    texts_.resize(operation.parameters.size());
    int code = kFirstParameterCode;
    for (const chain::Parameter& p : operation.parameters) {
      const int argument = p.kind != chain::Kind::flag ? required_argument : no_argument;
      options_.push_back({p.name, argument, nullptr, code++});
    }
  }

  JobParser(const Command& command, int argc, char** argv)
      : JobParser(command.letters, command.paths, command.requiredPaths, argc, argv) {
    job_.carryOut = command.carryOut;
    operands_ = command.operands;
    if (job_.carryOut != run) job_.outPath.clear();
  }

  // None where help is asked for.
  std::optional<Job> parse() {
    opterr = 0;
    options_.push_back({});
    int code = 0;
    while ((code = getopt_long(argc_, argv_, letters_.c_str(), options_.data(), nullptr)) != -1) {
      if (code == 'h') return {};
      take(code);
    }
    takeOperands();
    if (job_.carryOut == run) openChain();
    if (job_.format == nullptr) job_.format = &formatFor(job_.outPath);
    return std::move(job_);
  }

 private:
  JobParser(const std::string& letters, std::span<const Path> paths, std::size_t requiredPaths,
            int argc, char** argv)
      : argc_(argc), argv_(argv), paths_(paths), requiredPaths_(requiredPaths) {
    for (const CommonOption& o : commonOptions()) {
      if (!o.isAmong(letters)) continue;
      letters_ += join(o.letter, o.takesWord() ? ":" : "");
      const int argument = o.takesWord()           ? required_argument
                           : o.argument != nullptr ? optional_argument
                                                   : no_argument;
      options_.push_back({o.name, argument, nullptr, o.letter});
    }
  }

  void take(int code) {
    switch (code) {
      case 'g':
        if (operation_ != nullptr && !operation_->takes.gray) {
          fail(ExitCode::usage, "--gray: ", operation_->name, " works on color pages only");
        }
        engine_.toGray = true;
        break;
      case 'f':
        job_.format = &requireFormat(optarg);
        break;
      case 'c':
        if (!fileText_) {
          paths_ = paths_.subspan(1);
          requiredPaths_ = 0;
        }
        fileText_ = readChain(optarg);
        break;
      case 'b':
        job_.bandLines =
            static_cast<std::uint32_t>(valueOf(chain::parseNumber("--band", optarg, 1, 65536)));
        break;
      case 'm':
        job_.memory = MemoryCap(parseBytes("--memory", optarg, MemoryCap::kLeast));
        break;
      case 'P':
        job_.pages = PageList(optarg);
        break;
      case 'r':
        job_.resolution = parseResolution(optarg);
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
          valueOf(chain::parseChoice("--progress", optarg, "json"));
          job_.progress = ProgressMode::json;
        }
        break;
      case 'q':
        job_.progress = ProgressMode::never;
        break;
      case ':':
        fail(ExitCode::usage, "option '", argv_[optind - 1], "' needs a value", seeHelp());
      case '?':
        rejectOption();
      default: {
        const auto index = static_cast<std::size_t>(code - kFirstParameterCode);
        texts_[index] = optarg != nullptr ? optarg : "";
      }
    }
  }

  [[noreturn]] void rejectOption() const {
    // A long option is already passed over; a letter may sit inside a cluster.
    const std::string given = argv_[optind - 1];
    if (!given.starts_with("--")) {
      const bool isLetter = optopt > ' ' && optopt < 127;
      fail(ExitCode::usage, "unknown option '",
           isLetter ? join('-', static_cast<char>(optopt)) : given, "'", seeHelp());
    }
    if (optopt != 0) fail(ExitCode::usage, "option '", given, "' takes no value", seeHelp());
    const std::string name = given.substr(0, given.find('='));
    std::vector<std::string> known;
    std::string meant;
    for (const option& o : options_) {
      if (o.name == nullptr) continue;
      known.push_back(join("--", o.name));
      if (known.back().starts_with(name)) meant += join(meant.empty() ? "" : " or ", known.back());
    }
    if (!meant.empty()) {
      fail(ExitCode::usage, "ambiguous option '", given, "'; it may be ", meant);
    }
    fail(ExitCode::usage, "unknown option '", given, "'", advice(name, known, seeHelp()));
  }

  void takeOperands() {
    if (optind < argc_ && takesValue(argv_[optind])) texts_[0] = argv_[optind++];
    std::size_t taken = 0;
    for (; taken < paths_.size() && optind < argc_; ++taken) job_.*paths_[taken] = argv_[optind++];
    if (optind < argc_) fail(ExitCode::usage, "'", argv_[optind], "' is too much", seeHelp());
    if (taken < requiredPaths_) {
      fail(ExitCode::usage, "operands are missing; expected", operands_, seeHelp());
    }
  }

  // True where the operand is the value of the first parameter, as in a chain.
  bool takesValue(const std::string& operand) const {
    if (texts_.empty() || texts_[0]) return false;
    const chain::Parameter& first = operation_->parameters[0];
    return first.mayBeUnnamed() &&
           (first.isRequired() || (chain::takesFile(first) && !namesFile(first, operand)));
  }

  void openChain() {
    engine_.isChain = operation_ == nullptr;
    engine_.text = engine_.isChain ? fileText_.value_or(job_.chainText) : textOfOperation();
    engine_.memory = job_.memory;
    engine_.lines = job_.bandLines;
    job_.engine = std::make_shared<Engine>(engine_);
    if (job_.engine->steps() == 0) {
      fail(ExitCode::usage, "the chain holds no step; see 'rast help chain'");
    }
  }

  std::string textOfOperation() const {
    std::string text = operation_->name;
    for (std::size_t i = 0; i < texts_.size(); ++i) {
      if (!texts_[i]) continue;
      const chain::Parameter& parameter = operation_->parameters[i];
      text += join(' ', parameter.name);
      if (parameter.kind != chain::Kind::flag) text += '=' + quoted(*texts_[i]);
    }
    return text;
  }

  // One word of a chain, whatever characters it has.
  static std::string quoted(const std::string& value) {
    std::string text;
    for (const char c : value) text += c == '"' ? "'\"'" : join('"', c, '"');
    return text.empty() ? "\"\"" : text;
  }

  std::string seeHelp() const { return join("; see 'rast help ", argv_[0], "'"); }

  int argc_;
  char** argv_;
  std::span<const Path> paths_;
  std::size_t requiredPaths_;
  const char* operands_ = "";
  std::string letters_ = ":";
  Job job_;
  const chain::Operation* operation_ = nullptr;    // if it is one alone
  std::vector<std::optional<std::string>> texts_;  // given for its parameters
  std::optional<std::string> fileText_;            // a chain from a file
  EngineSettings engine_;
  std::vector<option> options_;
};

}  // namespace

CommandLine parseCommandLine(int argc, char** argv) {
  if (argc < 2) fail(ExitCode::usage, "no operation given; see 'rast help'");
  const std::string first = argv[1];
  if (first == "help" && argc > 3)
    fail(ExitCode::usage, "'", argv[3], "' is too much; see 'rast help'");
  if (first == "--version" || first == "-V") return "rast " RAST_TOOL_VERSION "\n";
  if (first == "--help" || first == "-h" || first == "help") {
    if (argc < 3) return help();
    return std::string_view(argv[2]) == "--json" ? helpJson() : help(argv[2]);
  }
  if (first == "complete") {
    return completion(std::span(argv, static_cast<std::size_t>(argc)).subspan(2));
  }
  if (first.starts_with('-')) {
    fail(ExitCode::usage, "'", first, "' before the operation; see 'rast help'");
  }
  const Command* command = findCommand(first);
  JobParser parser = command != nullptr ? JobParser(*command, argc - 1, argv + 1)
                                        : JobParser(operationNamed(first), argc - 1, argv + 1);
  std::optional<Job> job = parser.parse();
  if (!job) return help(first);
  return *std::move(job);
}

}  // namespace rast::tool
