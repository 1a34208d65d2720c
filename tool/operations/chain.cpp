#include "operations/chain.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "formats/error.h"
#include "formats/file.h"
#include "operations/advice.h"
#include "operations/tables.h"

namespace {

struct Word {
  std::string text;
  bool quoted = false;

  bool endsStep() const { return !quoted && text == ":"; }
};

constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Ends of lines come as colons.
class Words {
 public:
  explicit Words(const std::string& text) : text_(text) {}

  // False at the end.
  bool next(Word& word) {
    word = {};
    while (at_ < text_.size() && (isSpace(text_[at_]) || text_[at_] == '#')) {
      if (text_[at_] == '#') at_ = std::min(text_.find('\n', at_), text_.size());
      if (at_ < text_.size() && text_[at_++] == '\n') {
        word.text += ':';
        return true;
      }
    }
    if (at_ == text_.size()) return false;
    while (at_ < text_.size() && !isSpace(text_[at_])) take(word);
    return true;
  }

 private:
  void take(Word& word) {
    const char c = text_[at_++];
    if (c != '"' && c != '\'') {
      word.text += c;
      return;
    }
    const std::size_t end = text_.find(c, at_);
    if (end == std::string::npos) fail(ExitCode::usage, "a quotation mark is not closed");
    word.text += text_.substr(at_, end - at_);
    word.quoted = true;
    at_ = end + 1;
  }

  const std::string& text_;
  std::size_t at_ = 0;
};

// A step while its words come in.
class StepParser {
 public:
  StepParser(const Operation& operation, Files files)
      : link_(operation), given_(operation.parameters.size()), files_(files) {}

  const char* name() const { return link_.operation->name; }

  void take(const std::string& word) {
    const auto& parameters = link_.operation->parameters;
    const bool mayBeUnnamed = !parameters.empty() && parameters[0].mayBeUnnamed();
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const auto parameter = std::ranges::find(parameters, name, &Parameter::name);
    if (parameter != parameters.end()) {
      const bool takesValue = parameter->argument != nullptr;
      if (takesValue != (equals != std::string::npos)) {
        fail(ExitCode::usage, "'", name, takesValue ? "' needs a value" : "' takes no value");
      }
      const auto index = static_cast<std::size_t>(parameter - parameters.begin());
      give(index, takesValue ? word.substr(equals + 1) : "1");
      return;
    }
    std::vector<std::string> names;
    for (const Parameter& p : parameters) names.emplace_back(p.name);
    const std::string hint = advice(name, names, "");
    if (mayBeUnnamed && hint.empty()) {
      give(0, word);
    } else {
      fail(ExitCode::usage, "there is no parameter '", name, "'",
           hint.empty() ? join("; see 'rast help ", link_.operation->name, "'") : hint);
    }
  }

  Link end() {
    link_.requireParameters();
    return std::move(link_);
  }

 private:
  void give(std::size_t index, const std::string& text) {
    const Parameter& parameter = link_.operation->parameters[index];
    if (given_[index]) fail(ExitCode::usage, "'", parameter.name, "' is given twice");
    given_[index] = true;
    if (files_ == Files::refused && namesFile(parameter, text)) {
      fail(ExitCode::usage, "'", parameter.name, "' names a file, which only the queue may do");
    }
    link_.values[index] = parameter.read(parameter, text);
  }

  Link link_;
  std::vector<bool> given_;  // for each parameter
  Files files_;
};

const Operation& operationOf(const std::string& word) {
  if (word.find(':') != std::string::npos) {
    fail(ExitCode::usage, "unknown operation '", word, "'; a colon between steps stands alone");
  }
  return requireOperation(word);
}

}  // namespace

Link::Link(const Operation& linked) : operation(&linked) {
  for (const Parameter& p : operation->parameters) {
    const bool hasPreset = p.preset != nullptr && *p.preset != '\0';
    values.push_back(hasPreset ? p.read(p, p.preset) : Value());
  }
}

void Link::requireParameters() const {
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Parameter& p = operation->parameters[i];
    if (p.preset == nullptr && values[i].empty()) {
      fail(ExitCode::usage, optionName(p), ' ', p.argument, " is missing; see 'rast help ",
           operation->name, "'");
    }
  }
}

const Operation& requireOperation(const std::string& name,
                                  const std::vector<std::string>& otherNames) {
  if (const Operation* found = findOperation(name)) return *found;
  std::vector<std::string> known = otherNames;
  for (const Operation& operation : operations()) known.emplace_back(operation.name);
  fail(ExitCode::usage, "unknown ", otherNames.empty() ? "operation" : "command", " '", name, "'",
       advice(name, known, "; see 'rast help'"));
}

Chain parseChain(const std::string& text, Files files) {
  constexpr std::size_t mostSteps = 100;  // each takes room on the stack
  Chain chain;
  Words words(text);
  Word word;
  std::optional<StepParser> step;
  try {
    for (bool isWord = words.next(word); isWord || step; isWord = words.next(word)) {
      if (!isWord || word.endsStep()) {
        if (step) chain.push_back(step->end());
        step.reset();
      } else if (step) {
        step->take(word.text);
      } else {
        if (chain.size() == mostSteps)
          fail(ExitCode::usage, "there are more than ", mostSteps, " steps");
        step.emplace(operationOf(word.text), files);
      }
    }
  } catch (const Failure& failure) {
    fail(failure.code, "chain, step ", chain.size() + 1, step ? join(", ", step->name()) : "", ": ",
         failure.text);
  }
  if (chain.empty()) fail(ExitCode::usage, "the chain holds no step; see 'rast help chain'");
  return chain;
}

Chain readChain(const std::string& path) {
  constexpr std::size_t longest = 1 << 20;
  const File file(std::fopen(path.c_str(), "rbe"));
  if (!file) {
    fail(ExitCode::usage, "--chain: '", path, "' cannot be opened: ", std::strerror(errno));
  }
  std::string text(longest, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0) {
    fail(ExitCode::usage, "--chain: ", path, ": cannot be read: ", std::strerror(errno));
  }
  if (text.size() == longest) {
    fail(ExitCode::usage, "--chain: ", path, ": is too long; expected less than a megabyte");
  }
  return parseChain(text);
}
