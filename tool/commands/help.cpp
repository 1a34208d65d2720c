#include "commands/help.h"

#include "commands/command.h"
#include "commands/compare.h"
#include "commands/listing.h"
#include "formats/format.h"
#include "text/json.h"
#include "text/printable.h"

namespace rast::tool {

namespace {

constexpr char kPurpose[] = "Applies raster filters to page images, or looks into them.";

constexpr char kOperandsText[] =
    "IN and OUT are files; '-', or leaving them out, means standard input and output.";

constexpr char kFilesText[] =
    "Input is recognized by its content: binary PBM, PGM, PPM and PAM with maximum value 255, and\n"
    "PNG of up to 8 bits, neither interlaced nor transparent, one image or several in a row"
#ifdef RAST_HAS_TIFF
    ";\n"
    "TIFF of one page or several, gray, RGB, bilevel or with a palette"
#endif
#ifdef RAST_HAS_RASTER
    ";\n"
    "CUPS and PWG raster, gray or RGB of 8 bits"
#endif
    ".\n"
    "Palettes become RGB. PNG output holds one page, PBM output black and white only.\n"
#ifdef RAST_HAS_TIFF
    "TIFF output becomes BigTIFF where the pages may exceed 4 GiB, as those of a pipe or of "
    "compressed\n"
    "raster may unless --pages counts them; --format bigtiff writes nothing else.\n"
#endif
    "Color profiles are not carried over; resolution is, between PNG, TIFF and raster. A file is\n"
    "replaced only once its new content is complete.";

constexpr char kStoredPagesText[] =
    "Whole pages are kept in unlinked temporary files, in the folder that TMPDIR names, or /tmp.";

// An option or a parameter.
struct HelpItem {
  std::string names;     // "-b, --band"
  std::string argument;  // " LINES", "[=json]"
  std::string text;
  std::string limits;  // "0..255, default 0"
};

struct ExitStatus {
  int status;
  const char* meaning;
};

std::vector<HelpItem> parameterItems(const chain::Operation& operation) {
  std::vector<HelpItem> items;
  for (const chain::Parameter& p : operation.parameters) {
    HelpItem item = {join("--", p.name), "", p.help, ""};
    if (p.kind != chain::Kind::flag) {
      item.argument = join(' ', p.argument);
      const std::string range = p.kind == chain::Kind::numbers ? join(p.low, "..", p.high) : "";
      const std::string preset = p.isRequired()  ? "required"
                                 : p.hasPreset() ? join("default ", p.preset)
                                                 : "";
      item.limits = join(range, range.empty() || preset.empty() ? "" : ", ", preset);
    }
    items.push_back(item);
  }
  return items;
}

std::vector<HelpItem> optionItems(const std::string& letters) {
  std::vector<HelpItem> items;
  for (const CommonOption& o : commonOptions()) {
    if (!o.isAmong(letters)) continue;
    HelpItem item = {join('-', o.letter, ", --", o.name), "", o.help, ""};
    if (o.argument != nullptr) {
      item.argument = o.takesWord() ? join(' ', o.argument) : join('[', o.argument, ']');
    }
    if (o.letter == 'f') {
      for (const Format& format : formats()) {
        item.text += join('\n', format.name, ": ", format.endings);
      }
    }
    items.push_back(item);
  }
  return items;
}

std::vector<std::string> usageLines() {
  std::vector<std::string> lines = {"rast OPERATION [OPTION]... [IN [OUT]]"};
  for (const Command& command : commands()) {
    lines.push_back(join("rast ", command.name, " [OPTION]...", command.operands));
  }
  lines.insert(lines.end(), {"rast help [COMMAND | --json]", "rast --help | --version"});
  return lines;
}

std::string usageOf(const chain::Operation& operation) {
  const bool hasOperand = !operation.parameters.empty() && operation.parameters[0].operand;
  const std::string operand = hasOperand ? join(' ', operation.parameters[0].argument) : "";
  return join("rast ", operation.name, operand, " [OPTION]... [IN [OUT]]");
}

std::span<const ExitStatus> exitStatuses() {
  static constexpr ExitStatus statuses[] = {
      {0, "done"},
      {1, "run-time failure; of compare, pages that differ"},
      {2, "wrong usage, a wrong chain, curve or matrix, a missing page; of compare, any failure"},
      {3, "damaged or truncated input"},
      {4, "output cannot be written"},
      {5, "input or conversion not supported"},
      {6, "more memory needed than --memory allows"},
  };
  return statuses;
}

// Two columns: a term, and help lines that start under each other; below a term that is too long.
std::string row(const std::string& term, const std::string& text) {
  constexpr std::size_t column = 24;
  std::string lines = "  " + alignedLeft(term, column);
  for (const char c : (term.size() < column ? "" : "\n") + text) {
    lines += c;
    if (c == '\n') lines.append(column + 2, ' ');
  }
  return lines + '\n';
}

std::string rows(const std::vector<HelpItem>& items) {
  std::string text;
  for (const HelpItem& item : items) {
    // Long names stand below each other, whether there is a letter or not.
    text += row(join(item.names.starts_with("--") ? "    " : "", item.names, item.argument),
                item.text + (item.limits.empty() ? "" : "\n") + item.limits);
  }
  return text;
}

std::string options(const std::string& letters) {
  return join("\nOptions:\n", rows(optionItems(letters)));
}

constexpr ExitStatus kComparisonStatuses[] = {
    {0, "all pages are equal"},
    {1, "some pages differ"},
    {2, "trouble: anything that fails, from wrong usage to damaged input"},
};

std::string exits(std::span<const ExitStatus> statuses) {
  std::string text = "Exit status:\n";
  for (const ExitStatus& exit : statuses) {
    text += join("  ", exit.status, "  ", exit.meaning, '\n');
  }
  return text;
}

std::string helpOf(const Command& command) {
  return join("usage: rast ", command.name, " [OPTION]...", command.operands, "\n\n", command.name,
              ": ", command.summary, ".\n", command.details, '\n', options(command.letters),
              "\nExample:\n  ", command.example, "\n\n",
              command.paths.empty() ? "" : join(kFilesText, "\n\n"),
              exits(command.carryOut == compare ? kComparisonStatuses : exitStatuses()));
}

std::string helpOf(const chain::Operation& operation) {
  std::string text = join("usage: ", usageOf(operation), "\n\n", headline(operation), ".\n",
                          operation.details, '\n');
  if (operation.keepsPages) text += join(kStoredPagesText, '\n');
  if (!operation.parameters.empty()) text += "\nParameters:\n" + rows(parameterItems(operation));
  return join(text, options(optionLetters(operation)), "\nExample:\n  ", operation.example, "\n\n",
              kOperandsText, '\n', kFilesText, "\n\n", exits(exitStatuses()));
}

JsonObject jsonOf(const HelpItem& item) {
  return JsonObject()
      .add("names", item.names)
      .add("argument", item.argument)
      .add("text", item.text)
      .add("limits", item.limits);
}

JsonObject jsonOf(const Command& command) {
  std::string options;
  for (const char* letter = command.letters; *letter != '\0'; ++letter) {
    options += join(options.empty() ? "-" : " -", *letter);
  }
  return JsonObject()
      .add("name", command.name)
      .add("operands", command.operands)
      .add("summary", command.summary)
      .add("details", command.details)
      .add("options", options)
      .add("example", command.example);
}

JsonObject jsonOf(const ExitStatus& exit) {
  return JsonObject().add("status", exit.status).add("meaning", exit.meaning);
}

JsonObject jsonOf(const chain::Operation& operation);

template <class Items>
std::string arrayOf(const Items& items) {
  JsonArray array(",\n");
  for (const auto& item : items) array.addRaw(jsonOf(item).text());
  return array.text();
}

JsonObject jsonOf(const chain::Operation& operation) {
  return JsonObject()
      .add("name", operation.name)
      .add("usage", usageOf(operation))
      .add("summary", operation.summary)
      .add("pages", chain::takenPages(operation))
      .add("details", operation.details)
      .add("keeps_pages", operation.keepsPages)
      .addRaw("parameters", arrayOf(parameterItems(operation)))
      .add("example", operation.example);
}

}  // namespace

std::string help() {
  std::string text;
  for (const std::string& line : usageLines()) {
    text += join(text.empty() ? "usage: " : "       ", line, '\n');
  }
  text += join('\n', kPurpose, "\n\nOperations ('rast help OPERATION' describes one):\n");
  for (const chain::Operation& operation : chain::operations()) {
    text += row(operation.name, join(operation.summary, " (", chain::takenPages(operation), ")"));
  }
  text += "\nOther commands, which 'rast help' describes too:\n";
  for (const Command& command : commands()) text += row(command.name, command.summary);
  return join(text, '\n', kOperandsText, '\n', kFilesText, "\n\n", exits(exitStatuses()));
}

std::string help(const std::string& name) {
  if (name == "help") return help();
  const Command* command = findCommand(name);
  return command != nullptr ? helpOf(*command) : helpOf(operationNamed(name));
}

std::string helpJson() {
  std::string letters;
  for (const CommonOption& option : commonOptions()) letters += option.letter;
  JsonArray usage;
  for (const std::string& line : usageLines()) usage.add(line);
  return JsonObject()
             .add("purpose", kPurpose)
             .addRaw("usage", usage.text())
             .add("operands", kOperandsText)
             .add("files", kFilesText)
             .add("stored_pages", kStoredPagesText)
             .addRaw("operations", arrayOf(chain::operations()))
             .addRaw("commands", arrayOf(commands()))
             .addRaw("options", arrayOf(optionItems(letters)))
             .addRaw("exit_statuses", arrayOf(exitStatuses()))
             .text() +
         '\n';
}

}  // namespace rast::tool
