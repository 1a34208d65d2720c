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
    {'g', "gray", nullptr,
     "convert color to gray first, by ITU-R BT.601 luma:\n"
     "0.299 R + 0.587 G + 0.114 B, rounded to nearest"},
    {'f', "format", "FORMAT", "output format; default by the ending of the output file:"},
    {'c', "chain", "FILE", "take the chain from a file, in which each line is a step too"},
    {'b', "band", "LINES",
     "lines in work at a time, 1..65536, limited by the memory cap;\n"
     "by default as many as fit the processor's cache. The result is\n"
     "always the same"},
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
     "at the end, report on standard error the pages and bytes, the\n"
     "time in the library and in files (these times overlap), and\n"
     "the peak memory"},
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
     "The command reads each page to its end, then prints a line with its number, format, size,\n"
     "kind and, where known, resolution. The last line reports the number of pages. An error\n"
     "leaves the JSON array without its end. IN is a file; '-', or leaving it out, means standard\n"
     "input.",
     "mPpqjh", "rast info in.ppm", info, kInfoPaths},
    {"compare", " A B [DIFFERENCE]", "the differences between two streams",
     "For each page, a line reports that it is equal in both streams; or its first sample that\n"
     "differs, with the value in A and in B, how many samples differ, by how much at most, and\n"
     "the peak signal-to-noise ratio for a peak of 255; or that sizes or kinds differ, or that\n"
     "one stream does not have the page. Lines and columns count from 1. DIFFERENCE gets a page\n"
     "of absolute differences for each page that has the same size and kind in both; it is not\n"
     "written if none has. A, B and DIFFERENCE are files; '-' for one of A and B means standard\n"
     "input. The exit status is 0 when all pages are equal, 1 when some are not and 2 when\n"
     "anything fails.",
     "fbmPpqh", "rast compare in.ppm out.ppm difference.ppm", compare, kComparePaths, 2},
    {"ops", "", "the operations there are",
     "A line for each reports its summary and the pages it takes; JSON also has its details\n"
     "and its parameters: help, kind, limits or values, what names stand for, default if there is\n"
     "one, and whether one is required.",
     "jh", "rast ops --json", listOperations},
};

}  // namespace

std::span<const CommonOption> commonOptions() { return kOptions; }

const char kOperationLetters[] = "gfbmPrpqsh";

std::string optionLetters(const chain::Operation& operation) {
  return operation.takes.gray ? kOperationLetters : kOperationLetters + 1;
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
  known.insert(known.begin(), "help");
  for (const Command& command : kCommands) known.emplace_back(command.name);
  fail(ExitCode::usage, "unknown command '", name, "'", advice(name, known, "; see 'rast help'"));
}

std::string advice(const std::string& given, const std::vector<std::string>& known,
                   const std::string& otherwise) {
  return chain::advice(chain::nearestName(given, known), otherwise);
}

}  // namespace rast::tool
