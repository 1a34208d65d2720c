#include "commands/completion.h"

#include <algorithm>
#include <vector>

#include "commands/command.h"
#include "formats/error.h"
#include "formats/format.h"
#include "operations/tables.h"

namespace {

// Those that begin with the word as it stands.
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

std::string firstLine(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  return line.substr(0, line.find_last_not_of(",:;.") + 1);
}

void addNames(Candidates& candidates) {
  for (const Operation& o : operations()) candidates.add(o.name, o.summary);
  for (const Command& c : commands()) candidates.add(c.name, c.summary);
}

void addValues(Candidates& candidates, const Parameter& parameter, const std::string& before) {
  for (const std::string& word : knownWords(parameter)) candidates.add(before + word);
}

const Parameter* findParameter(const Operation& operation, const std::string& name) {
  const auto found = std::ranges::find(operation.parameters, name, &Parameter::name);
  return found != operation.parameters.end() ? &*found : nullptr;
}

// Of the text of a chain only the last word changes.
void addChains(Candidates& candidates, const std::string& chain) {
  const std::size_t space = chain.find_last_of(" \n");
  const std::string before = space != std::string::npos ? chain.substr(0, space + 1) : "";
  const std::string last = chain.substr(before.size());
  std::istringstream words(before);
  const Operation* operation = nullptr;
  bool isFirst = true;
  for (std::string word; words >> word; isFirst = word == ":") {
    if (isFirst) operation = findOperation(word);
  }
  if (isFirst) {
    for (const Operation& o : operations()) candidates.add(before + o.name, o.summary);
    return;
  }
  if (operation == nullptr) return;
  const std::size_t equals = last.find('=');
  if (equals == std::string::npos) {
    for (const Parameter& p : operation->parameters) {
      candidates.add(join(before, p.name, p.argument != nullptr ? "=" : ""), firstLine(p.help));
    }
  } else if (const Parameter* parameter = findParameter(*operation, last.substr(0, equals))) {
    addValues(candidates, *parameter, before + last.substr(0, equals + 1));
  }
}

// What an option takes, given behind a space or an equals sign: before it stands `before`.
bool addOptionValues(Candidates& candidates, const Operation* operation, const std::string& letters,
                     const std::string& option, const std::string& before) {
  if (operation != nullptr && option.starts_with("--")) {
    const Parameter* parameter = findParameter(*operation, option.substr(2));
    if (parameter != nullptr && parameter->argument != nullptr) {
      addValues(candidates, *parameter, before);
      if (takesFile(*parameter)) candidates.addFiles();
      return true;
    }
  }
  for (const CommonOption& o : commonOptions()) {
    const bool isMeant = option == join('-', o.letter) || option == join("--", o.name);
    if (!isMeant || !o.takesWord() || letters.find(o.letter) == std::string::npos) continue;
    if (o.letter == 'f') {
      for (const Format& format : formats()) candidates.add(before + format.name, format.endings);
    } else if (o.letter == 'c') {
      candidates.addFiles();
    }
    return true;
  }
  return false;
}

void addOptions(Candidates& candidates, const Operation* operation, const std::string& letters) {
  if (operation != nullptr) {
    for (const Parameter& p : operation->parameters) {
      candidates.add(join("--", p.name), firstLine(p.help));
    }
  }
  for (const CommonOption& o : commonOptions()) {
    if (letters.find(o.letter) != std::string::npos) {
      candidates.add(join("--", o.name), firstLine(o.help));
    }
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
    candidates.add("manual", "a manual page, in the language of man");
    return candidates.lines();
  }
  if (name == "help") addNames(candidates);
  if (name == "manual") {
    candidates.add("rast", "the command");
    candidates.add("rast-ops", "the operations");
  }
  const Operation* operation = findOperation(name);
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
  const bool isFirst = words.size() == 2;
  if (isFirst && operation != nullptr && !operation->parameters.empty() &&
      operation->parameters[0].operand) {
    addValues(candidates, operation->parameters[0], "");
  } else if (isFirst && name == "chain") {
    addChains(candidates, word);
  } else if (operation != nullptr || !command->paths.empty()) {
    candidates.addFiles();
  }
  return candidates.lines();
}
