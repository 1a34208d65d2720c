#include "commands/manual.h"

#include <cctype>

#include "commands/command.h"
#include "commands/help.h"
#include "text/error.h"

namespace rast::tool {

namespace {

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '\\':
        result += "\\e";
        break;
      case '-':
        result += "\\-";
        break;
      case '\'':
        result += "\\(aq";
        break;
      case '^':
        result += "\\(ha";
        break;
      case '~':
        result += "\\(ti";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string bold(const std::string& text) { return join("\\fB", escaped(text), "\\fR"); }
std::string italic(const std::string& text) { return join("\\fI", escaped(text), "\\fR"); }

// "replace: a pixel whose": a word with its meaning keeps a line of its own.
bool explainsWord(const std::string& line) {
  const std::size_t end = line.find_first_of(" :");
  return end != std::string::npos && line.substr(end, 2) == ": ";
}

std::string paragraph(const std::string& text) {
  std::string result;
  for (const std::string& line : split(text, '\n')) {
    if (explainsWord(line) && !result.empty()) result += ".br\n";
    // A line that begins with a full stop would be taken for a request.
    result += join(line.starts_with('.') ? "\\&" : "", escaped(line), '\n');
  }
  return result;
}

std::string example(const std::string& line) {
  return join(".PP\nExample:\n.PP\n.EX\n", escaped(line), "\n.EE\n");
}

std::string items(const std::vector<HelpItem>& items) {
  std::string text;
  for (const HelpItem& item : items) {
    text += join(".TP\n", bold(item.names), italic(item.argument), '\n', paragraph(item.text));
    if (!item.limits.empty()) text += join(".br\n", escaped(item.limits), '\n');
  }
  return text;
}

std::string capitals(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string heading(const std::string& name, int section, const std::string& summary) {
  return join(".TH ", capitals(name), ' ', section, " \"\" \"rast " RAST_TOOL_VERSION "\"\n",
              ".SH NAME\n", escaped(name), " \\- ", escaped(summary), '\n');
}

std::string commandPage() {
  std::string text = heading("rast", 1, "raster filters for page images") + ".SH SYNOPSIS\n.nf\n";
  for (const std::string& line : usageLines()) text += escaped(line) + '\n';
  text += join(".fi\n.SH DESCRIPTION\n", paragraph(kPurpose), ".PP\n", paragraph(kOperandsText),
               paragraph(kFilesText), ".SH OPERATIONS\n",
               "They are described in\n.BR rast\\-ops (7).\n");
  for (const chain::Operation& operation : chain::operations()) {
    text += join(".TP\n", bold(operation.name), '\n', escaped(operation.summary), " (",
                 chain::takenPages(operation), ")\n");
  }
  text += ".SH COMMANDS\n";
  for (const Command& command : commands()) {
    text += join(".SS ", escaped(command.name), "\n.B rast ", escaped(command.name),
                 "\n[OPTION]...", escaped(command.operands), "\n.PP\n", bold(command.summary),
                 ".\n.PP\n", paragraph(command.details), ".PP\nOptions:\n.B ");
    for (const char* letter = command.letters; *letter != '\0'; ++letter) {
      text += join(letter != command.letters ? " " : "", "\\-", *letter);
    }
    text += '\n' + example(command.example);
  }
  std::string letters;
  for (const CommonOption& option : commonOptions()) letters += option.letter;
  text += ".SH OPTIONS\n" + items(optionItems(letters)) + ".SH EXIT STATUS\n";
  for (const ExitStatus& exit : exitStatuses()) {
    text += join(".TP\n.B ", exit.status, '\n', escaped(exit.meaning), '\n');
  }
  return text + ".SH ENVIRONMENT\n.TP\n.B TMPDIR\n" + paragraph(kStoredPagesText) +
         ".SH SEE ALSO\n.BR rast\\-ops (7)"
#ifdef RAST_HAS_RASTER
         ",\n.BR rasttoraster (8)"
#endif
         "\n";
}

std::string operationsPage() {
  std::string text = join(
      heading("rast-ops", 7, "the operations of rast"), ".SH DESCRIPTION\n",
      "Each may be given to\n.BR rast (1)\nalone, or as a step of a chain, where ",
      bold("--name value"), " is\n", bold("name=value"), " and ", bold("--name"), " alone is\n",
      bold("name"), ".\nResults are in integer arithmetic and the same on every machine.\n");
  for (const chain::Operation& operation : chain::operations()) {
    text += join(".SH ", capitals(operation.name), "\n.B ", escaped(usageOf(operation)), "\n.PP\n",
                 bold(operation.summary), ", for ", chain::takenPages(operation), ".\n.PP\n",
                 paragraph(operation.details));
    if (operation.keepsPages) text += paragraph(kStoredPagesText);
    text += items(parameterItems(operation)) + example(operation.example);
  }
  return text + ".SH SEE ALSO\n.BR rast (1),\n.BR rast.h (3)\n";
}

}  // namespace

std::string manual(const std::string& page) {
  if (page == "rast") return commandPage();
  if (page == "rast-ops") return operationsPage();
  fail(ExitCode::usage, "there is no manual page '", page, "'",
       advice(page, {"rast", "rast-ops"}, "; expected rast or rast-ops"));
}

}  // namespace rast::tool
