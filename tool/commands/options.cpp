#include "commands/options.h"

#include <getopt.h>

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "commands/command.h"
#include "commands/completion.h"
#include "commands/help.h"
#include "commands/manual.h"
#include "commands/run.h"
#include "formats/error.h"
#include "operations/advice.h"

namespace {

constexpr int firstParameterCode = 256;

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
      : JobParser(operationLetters, operationPaths(), 0, argc, argv) {
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
        link_->give(index, optarg != nullptr ? optarg : "1");
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
      if (link_->operation->parameters[0].operand) link_->give(0, argv_[optind++]);
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

}  // namespace

CommandLine parseCommandLine(int argc, char** argv) {
  if (argc < 2) fail(ExitCode::usage, "no operation given; see 'rast help'");
  const std::string first = argv[1];
  const bool takesOne = first == "help" || first == "manual";
  if (takesOne && argc > 3) fail(ExitCode::usage, "'", argv[3], "' is too much; see 'rast help'");
  if (first == "--version" || first == "-V") return "rast " RAST_TOOL_VERSION "\n";
  if (first == "--help" || first == "-h" || first == "help") {
    return argc < 3 ? help() : help(argv[2]);
  }
  if (first == "manual") return manual(argc < 3 ? "" : argv[2]);
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
