// The operations as JSON.
#include <iterator>
#include <utility>

#include "operations/operations.h"
#include "operations/tables.h"
#include "text/json.h"

namespace rast::chain {

namespace {

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::flag:
      return "switch";
    case Kind::numbers:
      return "number";
    case Kind::size:
      return "size";
    case Kind::decimal:
      return "decimal";
    case Kind::choice:
      return "choice";
    case Kind::curve:
      return "curve";
    case Kind::matrix:
      return "matrix";
    case Kind::image:
      break;
  }
  return "file";
}

// A limit of a parameter; decimals are held as tenths.
std::string limit(const Parameter& parameter, std::int64_t value) {
  if (parameter.kind != Kind::decimal) return join(value);
  return join(value / 10, value % 10 != 0 ? join('.', value % 10) : "");
}

std::string presetsJson(const Parameter& parameter) {
  JsonObject presets;
  for (const Preset& preset : presetsOf(parameter)) {
    JsonArray numbers(",");
    for (const std::int64_t number : preset.numbers) numbers.addRaw(join(number));
    presets.addRaw(preset.name, numbers.text());
  }
  return presets.text();
}

std::string formulaJson(const Formula& formula) {
  return JsonObject()
      .add("name", formula.name)
      .addRaw("low", join(formula.low))
      .addRaw("high", join(formula.high))
      .addRaw("neutral", join(formula.neutral))
      .text();
}

std::string parameterJson(const Parameter& parameter) {
  JsonObject json;
  json.add("name", parameter.name).add("help", parameter.help);
  if (parameter.kind == Kind::flag) {
    return json.add("kind", nameOf(parameter.kind)).add("required", false).text();
  }
  const bool isTuple = std::string(parameter.argument).find(',') != std::string::npos;
  json.add("kind", join(nameOf(parameter.kind), isTuple ? "s" : ""));
  json.add("argument", parameter.argument);
  if (parameter.kind == Kind::choice) {
    JsonArray words;
    for (const std::string& word : wordsOf(parameter.argument)) words.add(word);
    json.addRaw("values", words.text());
  } else if (parameter.kind != Kind::image) {
    json.addRaw("low", limit(parameter, parameter.low));
    json.addRaw("high", limit(parameter, parameter.high));
  }
  if (isTable(parameter)) {
    const auto& [count, formula] = tableOf(parameter);
    json.add("count", count).addRaw("formula", formulaJson(formula));
    json.addRaw("presets", presetsJson(parameter));
  }
  if (parameter.hasPreset()) json.add("default", parameter.preset);
  return json.add("required", parameter.isRequired()).text();
}

std::string operationJson(const Operation& operation) {
  JsonArray pages;
  if (operation.takes.gray) pages.add("gray");
  if (operation.takes.color) pages.add("color");
  if (operation.takes.cmyk) pages.add("cmyk");
  JsonArray parameters(",\n  ");
  for (const Parameter& parameter : operation.parameters) {
    parameters.addRaw(parameterJson(parameter));
  }
  return JsonObject()
      .add("name", operation.name)
      .add("summary", operation.summary)
      .add("details", operation.details)
      .add("example", operation.example)
      .addRaw("pages", pages.text())
      .add("needs_parameter", operation.needsParameter)
      .addRaw("parameters", parameters.text())
      .text();
}

}  // namespace

std::string describeOperations() {
  JsonArray json(",\n");
  for (const Operation& operation : operations()) json.addRaw(operationJson(operation));
  return json.text();
}

}  // namespace rast::chain
