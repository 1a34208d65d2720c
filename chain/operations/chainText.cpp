#include "operations/chainText.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "operations/advice.h"

namespace rast::chain {

namespace {

struct Word {
  std::string text;
  std::size_t begin = 0;
  std::size_t end = 0;
  bool endsStep = false;
};

constexpr bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool isQuote(char c) { return c == '"' || c == '\''; }

// A number, or what continues a list of numbers.
bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("-.0123456789") == std::string::npos;
}

class Words {
 public:
  explicit Words(const std::string& text) : text_(text) {}

  Result<std::vector<Word>> all() {
    isCompact_ = !hasBlanks();
    while (skip()) {
      if (Refusal* fault = take()) return std::move(*fault);
    }
    if (isCompact_) joinNumbers();
    return std::move(words_);
  }

 private:
  bool hasBlanks() const {
    char quote = '\0';
    for (const char c : text_) {
      if (quote == '\0' && isBlank(c)) return true;
      if (quote == '\0' && isQuote(c)) {
        quote = c;
      } else if (c == quote) {
        quote = '\0';
      }
    }
    return false;
  }

  // To the next word; false at the end of the text.
  bool skip() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '\n' || (isCompact_ && c == ':')) {
        words_.push_back({":", at_, at_ + 1, true});
        ++at_;
      } else if (c == '#' && !isCompact_) {
        at_ = std::min(text_.find('\n', at_), text_.size());
      } else if (isBlank(c) || (isCompact_ && c == ',')) {
        ++at_;
      } else {
        return true;
      }
    }
    return false;
  }

  bool endsWord(char c) const { return isCompact_ ? c == ',' || c == ':' : isBlank(c); }

  // Null unless something is wrong.
  Refusal* take() {
    Word word;
    word.begin = at_;
    bool quoted = false;
    while (at_ < text_.size() && !endsWord(text_[at_])) {
      const char c = text_[at_++];
      if (!isQuote(c)) {
        word.text += c;
        continue;
      }
      const std::size_t end = text_.find(c, at_);
      if (end == std::string::npos) {
        fault_ = wrongText("a quotation mark is not closed");
        fault_.begin = at_ - 1;
        fault_.end = text_.size();
        fault_.step = stepNumber();
        return &fault_;
      }
      word.text += text_.substr(at_, end - at_);
      quoted = true;
      at_ = end + 1;
    }
    word.end = at_;
    word.endsStep = !quoted && word.text == ":";
    words_.push_back(std::move(word));
    return nullptr;
  }

  std::size_t stepNumber() const {
    std::size_t step = 1;
    bool isFirst = true;
    for (const Word& word : words_) {
      if (word.endsStep && !isFirst) ++step;
      isFirst = word.endsStep;
    }
    return step;
  }

  // Commas also stand between the numbers of a value: a number belongs to the value before it.
  void joinNumbers() {
    std::vector<Word> joined;
    for (Word& word : words_) {
      if (!joined.empty() && isNumber(word.text) &&
          joined.back().text.find('=') != std::string::npos) {
        joined.back().text += ',' + word.text;
        joined.back().end = word.end;
      } else {
        joined.push_back(std::move(word));
      }
    }
    words_ = std::move(joined);
  }

  const std::string& text_;
  std::size_t at_ = 0;
  bool isCompact_ = false;
  std::vector<Word> words_;
  Refusal fault_ = {};
};

// One step, while its words come in.
class StepParser {
 public:
  StepParser(const Operation& operation, Files files)
      : operation_(operation),
        files_(files),
        values_(operation.parameters.size()),
        given_(operation.parameters.size()) {}

  const char* name() const { return operation_.name; }

  std::optional<Refusal> take(const std::string& word) {
    const auto& parameters = operation_.parameters;
    const bool mayBeUnnamed = !parameters.empty() && parameters[0].mayBeUnnamed();
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const auto parameter = std::ranges::find(parameters, name, &Parameter::name);
    if (parameter != parameters.end()) {
      const bool takesValue = parameter->kind != Kind::flag;
      if (takesValue != (equals != std::string::npos)) {
        return wrongText("'", name, takesValue ? "' needs a value" : "' takes no value");
      }
      const auto index = static_cast<std::size_t>(parameter - parameters.begin());
      return give(index, takesValue ? word.substr(equals + 1) : "1");
    }
    std::vector<std::string> names;
    for (const Parameter& p : parameters) names.emplace_back(p.name);
    const std::string nearest = nearestName(name, names);
    if (mayBeUnnamed && nearest.empty()) return give(0, word);
    Refusal refused = wrongText("there is no parameter ", quoted(name),
                                advice(nearest, join("; see 'rast help ", operation_.name, "'")));
    refused.suggestion = nearest;
    return refused;
  }

  // The presets of what was not given.
  Result<Link> end() {
    for (std::size_t i = 0; i < values_.size(); ++i) {
      const Parameter& parameter = operation_.parameters[i];
      if (given_[i]) continue;
      if (parameter.isRequired()) {
        return wrongText(optionName(parameter), ' ', parameter.argument,
                         " is missing; see 'rast help ", operation_.name, "'");
      }
      if (!parameter.hasPreset()) continue;
      Result<Value> preset = readValue(parameter, parameter.preset, files_);
      if (!preset) return std::move(preset.refusal());
      values_[i] = std::move(*preset);
    }
    return Link{&operation_, std::move(values_)};
  }

 private:
  std::optional<Refusal> give(std::size_t index, const std::string& text) {
    const Parameter& parameter = operation_.parameters[index];
    if (given_[index]) return wrongText("'", parameter.name, "' is given twice");
    given_[index] = true;
    Result<Value> value = readValue(parameter, text, files_);
    if (!value) return std::move(value.refusal());
    values_[index] = std::move(*value);
    return {};
  }

  const Operation& operation_;
  Files files_;
  Values values_;
  std::vector<bool> given_;  // for each parameter
};

Result<const Operation*> operationOf(const std::string& name) {
  if (name.find(':') != std::string::npos) {
    return wrongText("unknown operation ", quoted(name), "; a colon between steps stands alone");
  }
  if (const Operation* found = findOperation(name)) return found;
  const std::string nearest = nearestName(name, operationNames());
  Refusal refused =
      wrongText("unknown operation ", quoted(name), advice(nearest, "; see 'rast help'"));
  refused.suggestion = nearest;
  return refused;
}

class ChainParser {
 public:
  explicit ChainParser(Files files) : files_(files) {}

  Result<Chain> parse(const std::vector<Word>& words) {
    for (const Word& word : words) {
      if (std::optional<Refusal> refused = take(word)) return placed(std::move(*refused), word);
    }
    if (std::optional<Refusal> refused = endStep()) return placed(std::move(*refused), Word());
    return std::move(chain_);
  }

 private:
  std::optional<Refusal> take(const Word& word) {
    constexpr std::size_t mostSteps = 100;  // each takes room on the stack
    if (word.endsStep) return endStep();
    if (step_) return step_->take(word.text);
    if (chain_.size() == mostSteps) return wrongText("there are more than ", mostSteps, " steps");
    Result<const Operation*> operation = operationOf(word.text);
    if (!operation) return std::move(operation.refusal());
    step_.emplace(**operation, files_);
    return {};
  }

  std::optional<Refusal> endStep() {
    if (!step_) return {};
    Result<Link> link = step_->end();
    if (!link) return std::move(link.refusal());
    chain_.push_back(std::move(*link));
    step_.reset();
    return {};
  }

  Refusal placed(Refusal refused, const Word& word) const {
    refused.step = chain_.size() + 1;
    if (step_) refused.operation = step_->name();
    refused.begin = word.begin;
    refused.end = word.endsStep ? word.begin : word.end;
    return refused;
  }

  Files files_;
  Chain chain_;
  std::optional<StepParser> step_;
};

}  // namespace

Result<Chain> parseChain(const std::string& text, Files files) {
  Result<std::vector<Word>> words = Words(text).all();
  if (!words) return std::move(words.refusal());
  return ChainParser(files).parse(*words);
}

}  // namespace rast::chain
