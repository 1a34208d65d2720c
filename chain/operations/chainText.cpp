#include "operations/chainText.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "operations/advice.h"

namespace rast::chain {

const char kChainDetails[] =
    "A chain is a list of steps with colons between blanks: an operation, then its\n"
    "parameters as name=value, or as a name alone where there is no value. The value of the first\n"
    "parameter, if it is no number, may be given alone: 'rotate cw', 'colgamma gamma=1.8'.\n"
    "Quotation marks of both kinds keep spaces together; # begins a comment up to the end of the\n"
    "line. Without blanks, commas separate words and colons end steps; a number continues the\n"
    "value before it: 'satadjust,raise:colbalance,level=6,5,4,5:shift,x=2,y=1'.\n"
    "Lines pass from step to step: only the operations that say so store pages.";

const char kChainExample[] =
    "rast chain 'satadjust raise : colgamma gamma=1.8 : shift x=2 y=1' in.ppm out.ppm";

namespace {

struct Word {
  std::string text = {};
  std::size_t begin = 0;
  std::size_t end = 0;
  bool quoted = false;

  bool endsStep() const { return !quoted && text == ":"; }
  bool isMissing() const { return !quoted && text.empty(); }  // beside a comma
};

constexpr bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool beginsNumber(char c) { return c == '-' || (c >= '0' && c <= '9'); }

// Ends of lines become colons. A line that is one word is split at its commas and colons.
class Words {
 public:
  explicit Words(const std::string& text) : text_(text) {}

  // The next word; nothing at the end, and after a failure.
  std::optional<Word> next() {
    while (words_.empty()) {
      if (!read()) return {};
    }
    Word word = std::move(words_.front());
    words_.pop_front();
    return word;
  }

  // The quotation mark that is not closed.
  const std::optional<Word>& fault() const { return fault_; }

 private:
  // False at the end. A line of colons alone has no words.
  bool read() {
    skipBlanks();
    if (at_ == text_.size() || fault_) return false;
    if (text_[at_] == '\n') {
      words_.push_back({":", at_, at_});
      ++at_;
      startsLine_ = true;
      return true;
    }
    const std::size_t start = at_;
    words_.push_back(take(""));
    skipBlanks();
    const bool endsLine = at_ == text_.size() || text_[at_] == '\n';
    if (std::exchange(startsLine_, false) && endsLine && !fault_) {
      at_ = start;
      words_.clear();
      splitWord();
    }
    return !fault_;
  }

  // Skips blanks and comments up to the end of the line.
  void skipBlanks() {
    while (at_ < text_.size() && text_[at_] != '\n' && (isBlank(text_[at_]) || text_[at_] == '#')) {
      at_ = text_[at_] == '#' ? std::min(text_.find('\n', at_), text_.size()) : at_ + 1;
    }
  }

  bool atEnd(const char* separators) const {
    return at_ == text_.size() || isBlank(text_[at_]) ||
           std::string_view(separators).find(text_[at_]) != std::string_view::npos;
  }

  // The text before a blank or a separator.
  Word take(const char* separators) {
    Word word;
    word.begin = at_;
    while (!atEnd(separators)) {
      const char c = text_[at_++];
      if (c != '"' && c != '\'') {
        word.text += c;
        continue;
      }
      const std::size_t end = text_.find(c, at_);
      if (end == std::string::npos) {
        fault_ = {"", at_ - 1, text_.size()};
        at_ = text_.size();
        break;
      }
      word.text += text_.substr(at_, end - at_);
      word.quoted = true;
      at_ = end + 1;
    }
    word.end = at_;
    return word;
  }

  void splitWord() {
    for (char before = ':';; before = text_[at_++]) {
      if (before == ':' && !words_.empty()) words_.push_back({":", at_, at_});
      const Word word = take(",:");
      const bool isNumber = !word.quoted && !word.text.empty() && beginsNumber(word.text[0]);
      if (isNumber && before == ',' && words_.back().text.find('=') != std::string::npos) {
        words_.back().text += ',' + word.text;
        words_.back().end = word.end;
      } else if (!word.isMissing() || before == ',' || !atEnd(":")) {
        words_.push_back(word);
      }
      if (atEnd("")) return;
    }
  }

  const std::string& text_;
  std::size_t at_ = 0;
  bool startsLine_ = true;
  std::deque<Word> words_;  // read and not taken yet
  std::optional<Word> fault_;
};

// Makes one step from its words.
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
    // A word that may be a value has no '=' and so is no misspelled name that needs one.
    const bool mayBeValue = mayBeUnnamed && equals == std::string::npos;
    std::vector<std::string> names;
    for (const Parameter& p : parameters) {
      if (!mayBeValue || p.kind == Kind::flag) names.emplace_back(p.name);
    }
    const std::string nearest = nearestName(name, names);
    if (mayBeUnnamed && nearest.empty()) return give(0, word);
    Refusal refused = wrongText("there is no parameter ", quoted(name),
                                advice(nearest, join("; see 'rast help ", operation_.name, "'")));
    refused.suggestion = nearest;
    return refused;
  }

  // Completes the step with the presets of the other parameters.
  Result<Link> end() {
    if (operation_.needsParameter && std::ranges::none_of(given_, std::identity())) {
      std::string names;
      for (const Parameter& p : operation_.parameters) {
        const bool isLast = &p == &operation_.parameters.back();
        names += join(names.empty() ? "" : isLast ? " or " : ", ", optionName(p));
      }
      return wrongText("nothing is given for ", name(), " to do; expected ", names,
                       "; see 'rast help ", name(), "'");
    }
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
  if (name.find(',') != std::string::npos) {
    return wrongText("unknown operation ", quoted(name),
                     "; commas stand between words only in a chain without blanks");
  }
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

  Result<Chain> parse(const std::string& text) {
    Words words(text);
    Word end;  // of the step, where a word is missing
    while (std::optional<Word> word = words.next()) {
      if (std::optional<Refusal> refused = take(*word)) {
        return placed(std::move(*refused), word->endsStep() ? end : *word);
      }
      end.begin = end.end = word->end;
    }
    if (words.fault()) return placed(wrongText("a quotation mark is not closed"), *words.fault());
    if (std::optional<Refusal> refused = endStep()) return placed(std::move(*refused), end);
    return std::move(chain_);
  }

 private:
  std::optional<Refusal> take(const Word& word) {
    constexpr std::size_t mostSteps = 100;  // each takes room on the stack
    if (word.endsStep()) return endStep();
    if (word.isMissing()) return wrongText("a word is missing beside a comma");
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
    refused.end = word.end;
    return refused;
  }

  Files files_;
  Chain chain_;
  std::optional<StepParser> step_;
};

}  // namespace

Result<Chain> parseChain(const std::string& text, Files files) {
  return ChainParser(files).parse(text);
}

}  // namespace rast::chain
