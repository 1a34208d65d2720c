#include "commands/command.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "commands/compare.h"
#include "commands/info.h"
#include "commands/listing.h"
#include "commands/run.h"
#include "operations/advice.h"
#include "operations/chainText.h"

namespace rast::tool {

namespace {

constexpr CommonOption kOptions[] = {
    {'g', "gray", nullptr, "convert color to gray first, as the operation gray does"},
    {'f', "format", "FORMAT", "output format; default by the ending of the output file:"},
    {'c', "chain", "FILE", "take the chain from a file, in which each line is a step too"},
    {'b', "band", "LINES",
     "lines worked on at a time, 1..65536, as far as memory allows;\n"
     "default what is quick. The result is always the same"},
    {'m', "memory", "SIZE",
     "memory to keep within, such as 64M, at least 20M; default 256M.\n"
     "Pages that are kept in temporary files do not count"},
    {'P', "pages", "LIST",
     "only these pages, such as 1-10,15,20-, each once and in the\n"
     "order of the stream; the others are read past and have to be\n"
     "sound all the same"},
    {'r', "resolution", "DPI",
     "pixels per inch of the pages that come in, such as 600, 203.2\n"
     "or 600x300, in place of what the pages say. Steps change it\n"
     "as they change the page. PNG, TIFF and raster store it, raster\n"
     "in whole numbers; raster pages without one get 300"},
    {'p', "progress", "=json",
     "show progress even when standard error is no terminal, or\n"
     "print it as lines of JSON"},
    {'q', "quiet", nullptr, "show neither progress nor notes"},
    {'s', "stats", nullptr,
     "at the end, tell on standard error how many pages and bytes\n"
     "there were, the time in the library and in files, which pass\n"
     "partly at once, and the most memory that was in use"},
    {'j', "json", nullptr, "print a JSON array"},
    {'h', "help", nullptr, "print this help"},
};

constexpr Path kInfoPaths[] = {&Job::inPath};
constexpr Path kChainPaths[] = {&Job::chainText, &Job::inPath, &Job::outPath};
constexpr Path kComparePaths[] = {&Job::inPath, &Job::otherPath, &Job::outPath};

constexpr Command kCommands[] = {
    {"chain", " CHAIN [IN [OUT]]", "several operations, one after the other", chain::kChainDetails,
     "gcfbmPrpqsh", chain::kChainExample, run, kChainPaths, 1},
    {"info", " [IN]", "the pages of a stream",
     "Each page is read to its end before a line tells its number, format, size, kind and, where\n"
     "it is known, resolution; a last line tells how many pages there were. An error leaves the\n"
     "JSON array without its end. IN is a file; '-', or leaving it out, means standard input.",
     "mPpqjh", "rast info in.ppm", info, kInfoPaths},
    {"compare", " A B [DIFFERENCE]", "the differences between two streams",
     "For each page a line tells that it is equal in both; or its first sample that differs, with\n"
     "the value in A and in B, how many samples differ, by how much at most, and the peak\n"
     "signal-to-noise ratio for a peak of 255; or that sizes or kinds differ, or that one stream\n"
     "does not have the page. Lines and columns count from 1. DIFFERENCE gets a page of absolute\n"
     "differences for each page that has the same size and kind in both; it is not written if "
     "none\n"
     "has. A, B and DIFFERENCE are files; '-' for one of A and B means standard input. The exit\n"
     "status is 0 when all pages are equal, 1 when some are not and 2 when anything fails.",
     "fbmPpqh", "rast compare in.ppm out.ppm difference.ppm", compare, kComparePaths, 2},
    {"ops", "", "the operations there are",
     "A line for each tells its summary and the pages it takes; JSON also tells its details\n"
     "and its parameters: help, kind, limits or values, what names stand for, default if there is\n"
     "one, and whether one is required.",
     "jh", "rast ops --json", listOperations},
};

}  // namespace

std::span<const CommonOption> commonOptions() { return kOptions; }

const char operationLetters[] = "gfbmPrpqsh";

std::string optionLetters(const chain::Operation& operation) {
  return operation.takes.gray ? operationLetters : operationLetters + 1;
}

std::span<const Path> operationPaths() { return std::span(kChainPaths).subspan(1); }

std::span<const Command> commands() { return kCommands; }

const Command* findCommand(const std::string& name) {
  const auto found = std::ranges::find(kCommands, name, &Command::name);
  return found != std::end(kCommands) ? found : nullptr;
}

const chain::Operation& operationNamed(const std::string& name) {
  if (const chain::Operation* found = chain::findOperation(name)) return *found;
  std::vector<std::string> known = chain::operationNames();
  known.insert(known.begin(), {"help", "manual"});
  for (const Command& command : kCommands) known.emplace_back(command.name);
  fail(ExitCode::usage, "unknown command '", name, "'", advice(name, known, "; see 'rast help'"));
}

std::string advice(const std::string& given, const std::vector<std::string>& known,
                   const std::string& otherwise) {
  return chain::advice(chain::nearestName(given, known), otherwise);
}

}  // namespace rast::tool
