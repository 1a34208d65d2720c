#include "operations/chain.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>
#include <string_view>
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
  bool isMissing() const { return !quoted && text.empty(); }  // beside a comma
};

constexpr bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool beginsNumber(char c) { return c == '-' || (c >= '0' && c <= '9'); }

// Ends of lines come as colons. A line that is one word is taken apart.
class Words {
 public:
  explicit Words(const std::string& text) : text_(text) {}

  // False at the end.
  bool next(Word& word) {
    while (words_.empty()) {
      if (!read()) return false;
    }
    word = std::move(words_.front());
    words_.pop_front();
    return true;
  }

 private:
  // False at the end. A line of colons alone has no words.
  bool read() {
    skipSpace();
    if (at_ == text_.size()) return false;
    if (text_[at_] == '\n') {
      ++at_;
      startsLine_ = true;
      words_.push_back({":"});
      return true;
    }
    const std::size_t start = at_;
    words_.push_back(take(""));
    skipSpace();
    const bool endsLine = at_ == text_.size() || text_[at_] == '\n';
    if (std::exchange(startsLine_, false) && endsLine) {
      at_ = start;
      words_.clear();
      takeApart();
    }
    return true;
  }

  // Up to the end of the line, which comments go on to.
  void skipSpace() {
    while (at_ < text_.size() && text_[at_] != '\n' && (isSpace(text_[at_]) || text_[at_] == '#')) {
      at_ = text_[at_] == '#' ? std::min(text_.find('\n', at_), text_.size()) : at_ + 1;
    }
  }

  bool atEnd(const char* separators) const {
    return at_ == text_.size() || isSpace(text_[at_]) ||
           std::string_view(separators).find(text_[at_]) != std::string_view::npos;
  }

  // What stands before white space or a separator.
  Word take(const char* separators) {
    Word word;
    while (!atEnd(separators)) {
      const char c = text_[at_++];
      if (c != '"' && c != '\'') {
        word.text += c;
        continue;
      }
      const std::size_t end = text_.find(c, at_);
      if (end == std::string::npos) fail(ExitCode::usage, "a quotation mark is not closed");
      word.text += text_.substr(at_, end - at_);
      word.quoted = true;
      at_ = end + 1;
    }
    return word;
  }

  void takeApart() {
    for (char before = ':';; before = text_[at_++]) {
      if (before == ':' && !words_.empty()) words_.push_back({":"});
      const Word word = take(",:");
      const bool isNumber = !word.quoted && !word.text.empty() && beginsNumber(word.text[0]);
      if (isNumber && before == ',' && words_.back().text.find('=') != std::string::npos) {
        words_.back().text += ',' + word.text;
      } else if (!word.isMissing() || before == ',' || !atEnd(":")) {
        words_.push_back(word);
      }
      if (atEnd("")) return;
    }
  }

  const std::string& text_;
  std::size_t at_ = 0;
  bool startsLine_ = true;
  std::deque<Word> words_;  // that are read and not taken yet
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
    link_.give(index, text);
  }

  Link link_;
  std::vector<bool> given_;  // for each parameter
  Files files_;
};

const Operation& operationOf(const std::string& word) {
  if (word.find(',') != std::string::npos) {
    fail(ExitCode::usage, "unknown operation '", word,
         "'; commas stand between words only in a chain without blanks");
  }
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

void Link::give(std::size_t index, const std::string& text) {
  const Parameter& p = operation->parameters[index];
  values[index] = p.read(p, text);
  isGiven = true;
}

void Link::requireParameters() const {
  if (operation->needsParameter && !isGiven) {
    std::string names;
    for (const Parameter& p : operation->parameters) {
      const bool isLast = &p == &operation->parameters.back();
      names += join(names.empty() ? "" : isLast ? " or " : ", ", optionName(p));
    }
    fail(ExitCode::usage, "nothing is given for ", operation->name, " to do; expected ", names,
         "; see 'rast help ", operation->name, "'");
  }
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
      } else if (word.isMissing()) {
        fail(ExitCode::usage, "a word is missing beside a comma");
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
