#include "commands/engine.h"

#include <algorithm>
#include <utility>

#include "formats/format.h"
#include "operations/operations.h"
#include "steps/planes.h"
#include "text/error.h"

namespace rast::tool {

namespace {

ExitCode exitCodeOf(std::uint32_t result) {
  switch (result) {
    case RAST_CHAIN_ERR_TEXT:
    case RAST_CHAIN_ERR_PAGE:
      return ExitCode::usage;
    case RAST_CHAIN_ERR_UNSUPPORTED:
      return ExitCode::unsupported;
    case RAST_CHAIN_ERR_MEMORY:
      return ExitCode::memory;
    default:
      return ExitCode::runTime;
  }
}

RastChainPage pageOf(const PageHead& head) {
  RastChainPage page = {};
  page.nWidth = head.width;
  page.nHeight = head.height;
  page.nComponents = head.color ? 3 : 1;
  page.nResolutionX = head.resolution.x;
  page.nResolutionY = head.resolution.y;
  return page;
}

PageHead headOf(const RastChainPage& page) {
  return {page.nWidth,
          page.nHeight,
          page.nComponents == 3,
          {page.nResolutionX, page.nResolutionY},
          page.nTurns % 4 != 0};
}

// False after an error of the chain library, which reports it.
bool readLines(PageReader& reader, RastChainImage* image) {
  const PageHead& head = reader.head();
  const RastChainPage page = pageOf(head);
  if (rastChainImageBegin(image, &page) != RAST_CHAIN_OK) return false;
  const std::uint32_t most = chain::quickLines(head.lineBytes());
  const auto lines = std::make_unique_for_overwrite<std::uint8_t[]>(most * head.lineBytes());
  for (std::uint32_t done = 0; done < head.height;) {
    const std::uint32_t count = std::min(most, head.height - done);
    reader.readLines(lines.get(), count);
    const RastChainLines entering = linesAt(head, lines.get(), count);
    if (rastChainImageLines(image, &entering) > RAST_CHAIN_DONE) return false;
    done += count;
  }
  return true;
}

void readOneImage(const std::string& name, int background, const MemoryCap& memory,
                  RastChainImage* image) {
  if (name == "-") {
    fail(ExitCode::usage, chain::kImageFromStandardInput);
  }
  PageInput in(name, memory);
  Transparency transparency{chain::kBackgroundRemedy, {}};
  if (background != RAST_CHAIN_NO_BACKGROUND) {
    transparency.background = static_cast<std::uint8_t>(background);
  }
  const std::unique_ptr<PageStream> pages = openPages(in, transparency);
  if (!readLines(*pages->next(), image)) return;
  if (pages->next()) {
    fail(ExitCode::unsupported, name, ": holds several pages; expected one to overlay");
  }
}

}  // namespace

RastChainLines linesAt(const PageHead& page, std::uint8_t* lines, std::uint32_t count) {
  RastChainLines record = {};
  record.pPlane[0] = lines;
  record.nPitch = static_cast<std::ptrdiff_t>(page.lineBytes());
  record.nCount = count;
  return record;
}

Engine::Engine(const EngineSettings& settings) : settings_(settings) {
  RastChainSettings engine = {};
  engine.nSize = sizeof engine;
  engine.nLines = settings.lines;
  engine.nGray = settings.toGray ? 1 : 0;
  engine.nFiles = settings.mayNameFiles ? 1 : 0;
  engine.pUser = this;
  if (settings.mayNameFiles) engine.pReadImage = readImage;
  RastChain* chain = nullptr;
  RastChainError error = {};
  const std::uint32_t result = rastChainOpen(settings.text.c_str(), &engine, &chain, &error);
  chain_.reset(chain);
  if (result == RAST_CHAIN_OK) return;
  std::string place;
  if (settings.isChain && error.nStep != 0) {
    place = join("chain, step ", error.nStep);
    if (error.sOperation[0] != '\0') place += join(", ", error.sOperation);
    place += ": ";
  }
  fail(exitCodeOf(result), place, error.sMessage);
}

int Engine::readImage(void* self, const char* name, int background, RastChainImage* image) {
  auto& engine = *static_cast<Engine*>(self);
  try {
    readOneImage(name, background, engine.settings_.memory, image);
    return 0;
  } catch (...) {
    engine.fault_ = std::current_exception();
    return 1;
  }
}

void Engine::require(const PageInput& in, std::uint32_t result, const RastChainError& error) {
  if (fault_) std::rethrow_exception(std::exchange(fault_, nullptr));
  if (result <= RAST_CHAIN_DONE) return;
  std::string label;
  if (steps() > 1 && error.nStep != 0) {
    label = join("step ", error.nStep, ", ", error.sOperation, ": ");
  }
  if (result == RAST_CHAIN_ERR_FILE) fail(ExitCode::runTime, label, error.sMessage);
  std::string hint;
  if (result == RAST_CHAIN_ERR_MEMORY && error.nNeeded != 0) {
    hint = join("; --memory ", MemoryCap::megabytesFor(error.nNeeded), "M or more is needed");
  }
  if (result == RAST_CHAIN_ERR_UNSUPPORTED && error.sSuggestion[0] != '\0') {
    hint = settings_.isChain ? join("; the step '", error.sSuggestion, "' converts it")
                             : join("; --", error.sSuggestion, " converts it first");
  }
  in.fail(exitCodeOf(result), error.nLine, label, error.sMessage, hint);
}

Engine::Plan Engine::plan(const PageInput& in, const PageHead& page) {
  const RastChainPage entering = pageOf(page);
  RastChainPage leaving = {};
  RastChainError error = {};
  require(in, rastChainPlan(chain_.get(), &entering, &leaving, &error), error);
  Plan plan = {headOf(leaving), leaving.nMemory, leaving.nLines};
  plan.page.details = page.details;
  return plan;
}

void Engine::begin(const PageInput& in, const PageHead& page, std::uint64_t memory,
                   std::uint64_t taken) {
  RastChainPage entering = pageOf(page);
  entering.nMemory = memory;
  entering.nTaken = taken;
  RastChainError error = {};
  require(in, rastChainBegin(chain_.get(), &entering, nullptr, &error), error);
}

bool Engine::run(const PageInput& in, RastChainLines& entering, RastChainLines& leaving) {
  RastChainError error = {};
  const std::uint32_t result = rastChainRun(chain_.get(), &entering, &leaving, &error);
  require(in, result, error);
  return result == RAST_CHAIN_DONE;
}

}  // namespace rast::tool
