#include "commands/listing.h"

#include <algorithm>
#include <utility>

#include "formats/output.h"
#include "operations/tables.h"

namespace {

// What a parameter is, by its reader. Every reader that operations use has an entry.
struct Kind {
  Value (*read)(const Parameter& parameter, const std::string& text);
  const char* name;
  std::int64_t scale;  // what limits are multiplied by; 0: they limit nothing that is given
};

constexpr Kind kinds[] = {
    {readNumbers, "number", 1}, {readSize, "size", 1},     {readTenths, "decimal", 10},
    {readText, "file", 0},      {readChoice, "choice", 0}, {readCurve, "curve", 1},
    {readMatrix, "matrix", 1},
};

// Texts hold line ends, and nothing else that JSON would not take as it stands.
std::string quoted(std::string text) {
  for (std::size_t end = 0; (end = text.find('\n', end)) != std::string::npos; ++end) {
    text.replace(end, 1, "\\n");
  }
  return '"' + text + '"';
}

std::string quotedChoices(const std::string& list) {
  std::string text;
  for (const std::string& word : wordsOf(list)) text += (text.empty() ? "" : ", ") + quoted(word);
  return '[' + text + ']';
}

std::string presetsJson(const Parameter& p) {
  std::string text;
  for (const Preset& preset : presetsOf(p)) {
    text += join(text.empty() ? ", \"presets\": {" : ", ", quoted(preset.name), ": ");
    for (char before = '['; const std::int64_t number : preset.numbers) {
      text += join(std::exchange(before, ','), number);
    }
    text += ']';
  }
  return text.empty() ? text : text + '}';
}

std::string parameterJson(const Parameter& p) {
  std::string text = join("{\"name\": ", quoted(p.name), ", \"help\": ", quoted(p.help));
  if (p.argument == nullptr) return text + R"(, "kind": "switch", "required": false})";
  const Kind& kind = *std::ranges::find(kinds, p.read, &Kind::read);
  const bool isTuple = std::string(p.argument).find(',') != std::string::npos;
  text += join(", \"kind\": ", quoted(join(kind.name, isTuple ? "s" : "")),
               ", \"argument\": ", quoted(p.argument));
  if (p.read == readChoice) text += ", \"values\": " + quotedChoices(p.argument);
  if (kind.scale != 0) {
    const auto limit = [&kind](std::int64_t v) {
      return join(v / kind.scale, v % kind.scale != 0 ? join('.', v % kind.scale) : "");
    };
    text += join(", \"low\": ", limit(p.low), ", \"high\": ", limit(p.high));
  }
  text += presetsJson(p);
  const bool required = p.preset == nullptr;
  if (!required && *p.preset != '\0') text += ", \"default\": " + quoted(p.preset);
  return text + join(", \"required\": ", required ? "true" : "false", '}');
}

std::string operationJson(const Operation& operation) {
  std::string pages;
  for (const bool colour : {false, true}) {
    if (!takesPage(operation, colour)) continue;
    pages += (pages.empty() ? "" : ", ") + quoted(colour ? "colour" : "gray");
  }
  std::string text =
      join("{\"name\": ", quoted(operation.name), ", \"summary\": ", quoted(operation.summary),
           ", \"details\": ", quoted(operation.details), ", \"pages\": [", pages,
           "], \"needs_parameter\": ", operation.needsParameter ? "true" : "false",
           ",\n \"parameters\": [");
  for (const Parameter& p : operation.parameters) {
    text += (&p == operation.parameters.data() ? "\n  " : ",\n  ") + parameterJson(p);
  }
  return text + "]}";
}

}  // namespace

std::string headline(const Operation& operation) {
  return join(operation.name, ": ", operation.summary, ", for ", takenPages(operation));
}

ExitCode listOperations(const Job& job) {
  std::string text;
  for (const Operation& operation : operations()) {
    if (job.json) {
      text += (text.empty() ? "[\n" : ",\n") + operationJson(operation);
    } else {
      text += headline(operation) + '\n';
    }
  }
  print(job.json ? text + "\n]\n" : text);
  return ExitCode::done;
}
