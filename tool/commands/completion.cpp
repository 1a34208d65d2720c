#include "commands/completion.h"

#include <algorithm>
#include <string>
#include <vector>

#include "commands/command.h"
#include "formats/format.h"
#include "text/printable.h"

namespace rast::tool {

namespace {

// The candidates that begin with the word.
class Candidates {
 public:
  explicit Candidates(const std::string& word) : word_(word) {}

  void add(const std::string& candidate, const std::string& meaning = "") {
    if (candidate.starts_with(word_)) lines_ += join(candidate, '\t', meaning, '\n');
  }
  void addFiles() { lines_ += "\t\n"; }

  const std::string& lines() const { return lines_; }

 private:
  std::string word_;
  std::string lines_;
};

// Up to the first semicolon or full stop, on one line.
std::string gist(std::string text) {
  text.resize(std::min({text.size(), text.find("; "), text.find(";\n")}));
  text.resize(std::min({text.size(), text.find(". "), text.find(".\n")}));
  std::ranges::replace(text, '\n', ' ');
  return text.substr(0, text.find_last_not_of(",:;.") + 1);
}

void addNames(Candidates& candidates) {
  for (const chain::Operation& o : chain::operations()) candidates.add(o.name, o.summary);
  for (const Command& c : commands()) candidates.add(c.name, c.summary);
}

void addValues(Candidates& candidates, const chain::Parameter& parameter,
               const std::string& before) {
  for (const std::string& word : chain::knownWords(parameter)) candidates.add(before + word);
}

const chain::Parameter* findParameter(const chain::Operation& operation, const std::string& name) {
  const auto found = std::ranges::find(operation.parameters, name, &chain::Parameter::name);
  return found != operation.parameters.end() ? &*found : nullptr;
}

// Only the last word of a chain's text changes.
void addChains(Candidates& candidates, const std::string& chain) {
  // A candidate is one line, and its meaning follows a tab.
  if (chain.find_first_of("\t\n") != std::string::npos) return;
  const bool hasBlanks = chain.find(' ') != std::string::npos;
  const std::string before = chain.substr(0, chain.find_last_of(hasBlanks ? " " : ",:") + 1);
  const std::string last = chain.substr(before.size());
  const std::string stepEnd = hasBlanks ? " : " : ":";
  const std::size_t end = before.rfind(stepEnd);
  std::vector<std::string> words = split(
      before.substr(end == std::string::npos ? 0 : end + stepEnd.size()), hasBlanks ? ' ' : ',');
  std::erase(words, "");
  if (words.empty()) {
    for (const chain::Operation& o : chain::operations())
      candidates.add(before + o.name, o.summary);
    return;
  }
  const chain::Operation* const operation = chain::findOperation(words[0]);
  if (operation == nullptr) return;
  const std::size_t equals = last.find('=');
  if (equals == std::string::npos) {
    for (const chain::Parameter& p : operation->parameters) {
      candidates.add(join(before, p.name, p.kind != chain::Kind::flag ? "=" : ""), gist(p.help));
    }
    if (!operation->parameters.empty() && operation->parameters[0].mayBeUnnamed()) {
      addValues(candidates, operation->parameters[0], before);
    }
  } else if (const chain::Parameter* parameter =
                 findParameter(*operation, last.substr(0, equals))) {
    addValues(candidates, *parameter, before + last.substr(0, equals + 1));
  }
}

// The values of an option, after a space or an equals sign; `before` is the text in front of them.
bool addOptionValues(Candidates& candidates, const chain::Operation* operation,
                     const std::string& letters, const std::string& option,
                     const std::string& before) {
  if (operation != nullptr && option.starts_with("--")) {
    const chain::Parameter* parameter = findParameter(*operation, option.substr(2));
    if (parameter != nullptr && parameter->kind != chain::Kind::flag) {
      addValues(candidates, *parameter, before);
      if (chain::takesFile(*parameter)) candidates.addFiles();
      return true;
    }
  }
  for (const CommonOption& o : commonOptions()) {
    const bool isMeant = option == join('-', o.letter) || option == join("--", o.name);
    if (!isMeant || !o.isAmong(letters)) continue;
    if (!o.takesWord()) {
      // An optional value follows an equals sign only.
      if (o.argument != nullptr && !before.empty()) candidates.add(before + (o.argument + 1));
      return false;
    }
    if (o.letter == 'f') {
      for (const Format& format : formats()) candidates.add(before + format.name, format.endings);
    } else if (o.letter == 'c') {
      candidates.addFiles();
    }
    return true;
  }
  return false;
}

// True where the last word is the first operand and no option replaces it.
bool isFirstOperand(std::span<char* const> words, const chain::Operation* operation,
                    const std::string& letters) {
  std::string instead = "--chain";
  if (operation != nullptr && !operation->parameters.empty()) {
    instead = join("--", operation->parameters[0].name);
  }
  for (std::size_t i = 1; i + 1 < words.size(); ++i) {
    const std::string word = words[i];
    Candidates values("");
    if (!word.starts_with('-') || word == "-") return false;
    if (word == "-c" || word.substr(0, word.find('=')) == instead) return false;
    if (addOptionValues(values, operation, letters, word, "")) ++i;
  }
  return true;
}

void addOptions(Candidates& candidates, const chain::Operation* operation,
                const std::string& letters) {
  if (operation != nullptr) {
    for (const chain::Parameter& p : operation->parameters) {
      candidates.add(join("--", p.name), gist(p.help));
    }
  }
  for (const CommonOption& o : commonOptions()) {
    if (o.isAmong(letters)) candidates.add(join("--", o.name), gist(o.help));
  }
}

}  // namespace

std::string completion(std::span<char* const> words) {
  if (words.empty()) return "";
  const std::string word = words.back();
  const std::string name = words.front();
  Candidates candidates(word);
  if (words.size() == 1) {
    addNames(candidates);
    candidates.add("help", "describes a command");
    return candidates.lines();
  }
  if (words.size() == 2 && name == "help") addNames(candidates);
  const chain::Operation* operation = chain::findOperation(name);
  const Command* command = findCommand(name);
  if (operation == nullptr && command == nullptr) return candidates.lines();

  const std::string letters = command != nullptr ? command->letters : optionLetters(*operation);
  const std::string previous = words[words.size() - 2];
  if (addOptionValues(candidates, operation, letters, previous, "")) return candidates.lines();
  const std::size_t equals = word.find('=');
  if (word.starts_with('-')) {
    if (equals == std::string::npos) {
      addOptions(candidates, operation, letters);
    } else {
      addOptionValues(candidates, operation, letters, word.substr(0, equals),
                      word.substr(0, equals + 1));
    }
    return candidates.lines();
  }
  const bool isFirst = isFirstOperand(words, operation, letters);
  if (isFirst && operation != nullptr && !operation->parameters.empty() &&
      operation->parameters[0].isRequired()) {
    addValues(candidates, operation->parameters[0], "");
  } else if (isFirst && name == "chain") {
    addChains(candidates, word);
  } else if (operation != nullptr || !command->paths.empty()) {
    candidates.addFiles();
  }
  return candidates.lines();
}

}  // namespace rast::tool
