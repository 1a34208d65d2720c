// The C interface: chains, their pages, and the lines that pass through the steps.
#include <rast_chain.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "operations/chainText.h"
#include "operations/operations.h"
#include "steps/image.h"
#include "steps/interleave.h"
#include "steps/pageStore.h"
#include "steps/step.h"

namespace rast::chain {

namespace {

constexpr std::uint64_t kDefaultMemory = std::uint64_t{240} << 20;

std::size_t pixelStep(const RastChainLines& lines, std::uint32_t components) {
  return lines.nPlanar != 0 ? 1 : components;
}

std::size_t planesOf(const RastChainLines& lines, std::uint32_t components) {
  return lines.nPlanar != 0 ? components : 1;
}

void advance(RastChainLines& lines, std::uint32_t components, std::uint32_t count) {
  if (count == 0) return;
  for (std::size_t c = 0; c < planesOf(lines, components); ++c) {
    lines.pPlane[c] += static_cast<std::ptrdiff_t>(count) * lines.nPitch;
  }
  lines.nCount -= count;
}

// Lines that follow one another without a gap can be handled as one.
bool isPacked(const RastChainLines& lines, std::size_t lineBytes) {
  return lines.nPitch == static_cast<std::ptrdiff_t>(lineBytes);
}

// Lines of a page between the caller's memory and planes.
template <class Move>
void moveLines(const RastChainLines& lines, const Page& page, std::uint32_t count,
               const Planes& planes, const Move& move) {
  const bool planar = lines.nPlanar != 0 || page.nComponents == 1;
  const std::size_t width = page.nWidth;
  const bool packed = isPacked(lines, width * pixelStep(lines, page.nComponents));
  const std::uint32_t pieces = packed ? 1 : count;
  const std::size_t samples = packed ? width * count : width;
  for (std::uint32_t i = 0; i < pieces; ++i) {
    const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(i) * lines.nPitch;
    const Planes target = planes.from(i * width);
    if (!planar) {
      move.pixels(lines.pPlane[0] + offset, target, samples);
      continue;
    }
    for (std::size_t c = 0; c < planes.count; ++c) {
      move.plane(lines.pPlane[c] + offset, target.at[c], samples);
    }
  }
}

struct MoveIn {
  static void pixels(const std::uint8_t* caller, const Planes& planes, std::size_t count) {
    splitLines(caller, planes, count);
  }
  static void plane(const std::uint8_t* caller, std::uint8_t* plane, std::size_t count) {
    std::memcpy(plane, caller, count);
  }
};

struct MoveOut {
  static void pixels(std::uint8_t* caller, const Planes& planes, std::size_t count) {
    joinLines(planes, caller, count);
  }
  static void plane(std::uint8_t* caller, const std::uint8_t* plane, std::size_t count) {
    std::memcpy(caller, plane, count);
  }
};

// The lines that the caller has handed in.
class EnteringLines final : public LineSource {
 public:
  EnteringLines(const Page& page, Context& context) : LineSource(page, context) {}

  void lend(RastChainLines* lines) { lines_ = lines; }
  bool isComplete() const { return left() == 0; }
  // Takes lines that no step asks for.
  void drop() {
    if (lines_ == nullptr) return;
    dropped_ = true;
    draw({}, lines_->nCount);
  }
  std::uint32_t missing() const { return left(); }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    if (lines_ == nullptr) return 0;
    const std::uint32_t count = std::min(lines, lines_->nCount);
    if (count > 0 && !dropped_) moveLines(*lines_, page(), count, planes, MoveIn());
    advance(*lines_, page().nComponents, count);
    return count;
  }

  RastChainLines* lines_ = nullptr;
  bool dropped_ = false;
};

bool isSound(const Page& page) {
  return page.nWidth >= 1 && page.nWidth <= INT32_MAX && page.nHeight >= 1 &&
         page.nHeight <= INT32_MAX &&
         (page.nComponents == 1 || page.nComponents == 3 || page.nComponents == 4);
}

// The lines can be those of the page: no plane is missing, and the pitch is one that memory can
// have.
bool fits(const RastChainLines& lines, const Page& page) {
  if (lines.nCount == 0) return true;
  const std::size_t planes = planesOf(lines, page.nComponents);
  const std::uint64_t bytes = std::uint64_t{page.nWidth} * pixelStep(lines, page.nComponents);
  const auto pitch = static_cast<std::uint64_t>(lines.nPitch);
  const std::uint64_t distance = lines.nPitch < 0 ? 0 - pitch : pitch;
  return std::all_of(lines.pPlane, lines.pPlane + planes,
                     [](const std::uint8_t* plane) { return plane != nullptr; }) &&
         (distance >= bytes || lines.nCount == 1) &&
         distance <= PTRDIFF_MAX / std::min(lines.nCount, page.nHeight);
}

struct Stage {
  std::size_t number;  // of the step, from 1; 0: before the first step
  const char* operation;
  Takes takes;
  const char* taken;  // the pages that it takes, in words
  std::unique_ptr<Step> step;
};

// A page in work.
class PageRun {
 public:
  PageRun(const Page& page, Context& context) : context_(context), entering_(page, context) {}

  // Decides the output page and the memory of each step. False after a failure.
  bool plan(const std::vector<Stage>& stages, bool writes);
  const Page& planned() const { return plans_.back().page; }
  std::uint64_t leastMemory() const;
  // Opens the steps as planned, within the memory. False after a failure.
  bool open(const std::vector<Stage>& stages, std::uint64_t memory, std::uint64_t taken);

  const Page& output() const { return last_->page(); }
  const Page& input() const { return entering_.page(); }

  // Moves lines until no line or no room is left. False after a failure.
  bool run(RastChainLines* in, RastChainLines* out);
  bool isDone() const { return entering_.isComplete() && made_ == output().nHeight; }
  std::uint32_t missing() const { return entering_.missing(); }
  // Room for the lines that the caller's function receives.
  RastChainLines leaving();
  bool needsRoom() const { return made_ < output().nHeight; }

 private:
  void share(std::uint64_t memory);
  std::uint32_t drawTo(RastChainLines& out);

  Context& context_;
  EnteringLines entering_;
  std::vector<Plan> plans_;  // of the steps, then of the output page
  std::vector<std::unique_ptr<LineSource>> sources_;
  LineSource* last_ = &entering_;
  std::optional<PackedLines> joined_;  // planes of output lines that are interleaved or have gaps
  bool writes_ = false;
  Bytes leaving_;
  std::uint32_t made_ = 0;
};

bool PageRun::plan(const std::vector<Stage>& stages, bool writes) {
  writes_ = writes;
  Page page = entering_.page();
  for (const Stage& stage : stages) {
    context_.work = {stage.number, stage.operation};
    if (!stage.takes.holds(page.nComponents)) {
      Refusal refused = refusal(RAST_CHAIN_ERR_UNSUPPORTED, stage.operation, " works on ",
                                stage.taken, " only and this page is ", kindOf(page.nComponents));
      if (stage.takes.gray && page.nComponents == 3) refused.suggestion = "gray";
      context_.refuse(std::move(refused));
    }
    if (context_.failed()) return false;
    plans_.push_back(stage.step->plan(page, context_));
    page = plans_.back().page;
  }
  context_.work = {};
  Plan output;
  output.page = page;
  const std::uint32_t quick = plans_.empty() ? 0 : plans_.back().quickLines;
  output.page.nLines = quick != 0 ? quick : quickLines(page);
  output.wantedLines = context_.bandLines(page, output.page.nLines);
  output.lineBytes = lineSamples(page) * (writes ? 2 : 1);
  plans_.push_back(output);
  return !context_.failed();
}

std::uint64_t PageRun::leastMemory() const {
  std::uint64_t least = 0;
  for (const Plan& plan : plans_) least += plan.leastBytes();
  return least;
}

// The bands share the rest of the memory, in whole units.
void PageRun::share(std::uint64_t memory) {
  const std::uint64_t share = memory / plans_.size();
  for (Plan& plan : plans_) {
    const std::uint64_t more = plan.lineBytes == 0 ? UINT32_MAX : share / plan.lineBytes;
    const std::uint32_t columns = std::max(plan.page.nWidth, plan.columnsIn);
    const std::uint64_t reach = kLongestBand / columns;
    const std::uint64_t most = std::min(plan.leastLines + more, reach);
    const std::uint64_t lines =
        most < plan.wantedLines ? most - most % plan.unitLines : plan.wantedLines;
    plan.lines = static_cast<std::uint32_t>(std::max<std::uint64_t>(lines, plan.leastLines));
  }
}

bool PageRun::open(const std::vector<Stage>& stages, std::uint64_t memory, std::uint64_t taken) {
  memory = std::min<std::uint64_t>(memory, PTRDIFF_MAX);  // no allocation is larger
  const std::uint64_t own = leastMemory();
  const std::uint64_t least = own + std::min(taken, UINT64_MAX - own);
  if (least > memory) {
    const Plan& largest = *std::ranges::max_element(plans_, {}, &Plan::leastBytes);
    const bool isBand = largest.leastLines > 1;
    const bool isOutput = largest.page.nWidth > entering_.page().nWidth;
    const std::uint32_t columns = isOutput ? largest.page.nWidth : entering_.page().nWidth;
    Refusal refused = refusal(
        RAST_CHAIN_ERR_MEMORY, isBand ? join("a band of ", largest.leastLines, " lines") : "a line",
        isOutput ? " of the output page, " : " of ", columns, " columns, takes too much: ", least,
        " bytes are needed in all steps and ", memory, " are allowed");
    refused.needed = least;
    context_.refuse(std::move(refused));
    return false;
  }
  share(memory - least);
  for (std::size_t i = 0; i < stages.size(); ++i) {
    context_.work = {stages[i].number, stages[i].operation};
    std::unique_ptr<LineSource> source = stages[i].step->open(*last_, plans_[i], context_);
    if (!source) return false;
    sources_.push_back(std::move(source));
    last_ = sources_.back().get();
  }
  context_.work = {};
  if (writes_) {
    leaving_ = makeBytes(static_cast<std::size_t>(plans_.back().lines * lineSamples(output())));
  }
  return true;
}

RastChainLines PageRun::leaving() {
  RastChainLines lines = {};
  lines.pPlane[0] = leaving_.get();
  lines.nPitch = static_cast<std::ptrdiff_t>(lineSamples(output()));
  lines.nCount = plans_.back().lines;
  return lines;
}

std::uint32_t PageRun::drawTo(RastChainLines& out) {
  const Page& page = output();
  const bool planar = out.nPlanar != 0 || page.nComponents == 1;
  if (planar && isPacked(out, page.nWidth)) {
    Planes planes;
    planes.count = page.nComponents;
    std::copy_n(out.pPlane, planes.count, planes.at);
    return last_->draw(planes, out.nCount);
  }
  const std::uint32_t most = plans_.back().lines;
  if (!joined_) joined_.emplace(page.nWidth, page.nComponents, most);
  const std::uint32_t count = last_->draw(joined_->planes(), std::min(out.nCount, most));
  if (count > 0) moveLines(out, page, count, joined_->planes(), MoveOut());
  return count;
}

bool PageRun::run(RastChainLines* in, RastChainLines* out) {
  entering_.lend(in);
  while (out != nullptr && out->nCount > 0 && needsRoom()) {
    const std::uint32_t count = drawTo(*out);
    if (count == 0) break;
    made_ += count;
    advance(*out, output().nComponents, count);
  }
  if (!needsRoom()) entering_.drop();
  entering_.lend(nullptr);
  return !context_.failed();
}

}  // namespace

}  // namespace rast::chain

using rast::chain::Context;
using rast::chain::Refusal;

struct RastChain {
  RastChainSettings settings = {};
  Context context;
  std::vector<rast::chain::Stage> stages;
  std::size_t steps = 0;  // of the chain's text
  std::optional<rast::chain::PageRun> page;
};

namespace {

// Cuts between characters of UTF-8.
template <std::size_t size>
void copyText(const std::string& text, char (&to)[size]) {
  std::size_t length = std::min(text.size(), size - 1);
  while (length > 0 && length < text.size() && (text[length] & 0xC0) == 0x80) --length;
  to[text.copy(to, length)] = '\0';
}

std::uint32_t report(const Refusal& refused, RastChainError* error) {
  if (error != nullptr) {
    *error = {};
    error->nCode = refused.code;
    error->nLine = refused.line;
    error->nStep = static_cast<std::uint32_t>(refused.step);
    error->nBegin = static_cast<std::uint32_t>(refused.begin);
    error->nEnd = static_cast<std::uint32_t>(refused.end);
    error->nNeeded = refused.needed;
    copyText(refused.operation, error->sOperation);
    copyText(refused.suggestion, error->sSuggestion);
    copyText(refused.message, error->sMessage);
  }
  return refused.code;
}

// Makes no allocation.
std::uint32_t report(std::uint32_t code, const char* message, RastChainError* error) {
  if (error != nullptr) {
    *error = {};
    error->nCode = code;
    std::snprintf(error->sMessage, sizeof error->sMessage, "%s", message);
  }
  return code;
}

std::uint32_t reportUse(const char* message, RastChainError* error) {
  return report(RAST_CHAIN_ERR_USE, message, error);
}

// The engine throws only where memory is lacking.
template <class Call>
std::uint32_t withoutExceptions(RastChainError* error, const Call& call) {
#ifdef __cpp_exceptions
  try {
    return call();
  } catch (const std::bad_alloc&) {
    return report(RAST_CHAIN_ERR_MEMORY, rast::chain::kNoMemory, error);
  }
#else
  (void)error;
  return call();
#endif
}

std::uint32_t reportFailure(RastChain& chain, RastChainError* error) {
  return report(*std::exchange(chain.context.refused, {}), error);
}

// A call that begins the page or belongs to it. The page ends with its last line or any error.
template <class Call>
std::uint32_t insidePage(RastChain& chain, RastChainError* error, const Call& call) {
  const std::uint32_t result = withoutExceptions(error, call);
  if (result != RAST_CHAIN_OK) {
    chain.page.reset();
    chain.context.refused.reset();
  }
  return result;
}

// A call of the function that reads an image. An error is kept for the page that needs the image.
template <class Call>
std::uint32_t insideImage(RastChainImage* image, const Call& call) {
  if (image == nullptr) return RAST_CHAIN_ERR_USE;
  if (image->lacksMemory) return RAST_CHAIN_ERR_MEMORY;
  if (image->context.failed()) return image->context.refused->code;
  const std::uint32_t result = withoutExceptions(nullptr, [&]() -> std::uint32_t {
    call();
    if (image->context.failed()) return image->context.refused->code;
    return image->stored.isComplete() ? RAST_CHAIN_DONE : RAST_CHAIN_OK;
  });
  image->lacksMemory |= result == RAST_CHAIN_ERR_MEMORY;
  return result;
}

std::uint32_t open(const char* text, const RastChainSettings& settings,
                   std::unique_ptr<RastChain>& chain, RastChainError* error) {
  const rast::chain::Files files = {settings.nFiles != 0, settings.pReadImage != nullptr};
  rast::chain::Result<rast::chain::Chain> links = rast::chain::parseChain(text, files);
  if (!links) return report(links.refusal(), error);
  chain = std::make_unique<RastChain>();
  chain->settings = settings;
  chain->context.wantedLines = settings.nLines;
  chain->context.folder = rast::chain::temporaryFolder(settings.pFolder);
  chain->settings.pFolder = nullptr;
  const rast::chain::ReadImage readImage = [settings](const std::string& name, int background,
                                                      RastChainImage* image) {
    return settings.pReadImage(settings.pUser, name.c_str(), background, image);
  };
  const auto add = [&](std::size_t number, const rast::chain::Operation& operation,
                       const rast::chain::Values& values) {
    chain->stages.push_back({number, operation.name, operation.takes, takenPages(operation),
                             operation.makeStep(values, readImage)});
  };
  if (settings.nGray != 0) add(0, *rast::chain::findOperation("gray"), {});
  for (const rast::chain::Link& link : *links) add(++chain->steps, *link.operation, link.values);
  return RAST_CHAIN_OK;
}

std::uint32_t run(RastChain& chain, RastChainLines* in, RastChainLines* out,
                  RastChainError* error) {
  rast::chain::PageRun& page = *chain.page;
  if (in != nullptr && in->nCount > page.missing()) {
    return reportUse("more lines are handed in than the page has", error);
  }
  if ((in != nullptr && !rast::chain::fits(*in, page.input())) ||
      (out != nullptr && !rast::chain::fits(*out, page.output()))) {
    return reportUse("a plane is missing, or the pitch is shorter than a line or too long", error);
  }
  if (!page.run(in, out)) return reportFailure(chain, error);
  return page.isDone() ? RAST_CHAIN_DONE : RAST_CHAIN_OK;
}

std::uint32_t write(RastChain& chain, const RastChainLines& lines, RastChainError* error) {
  RastChainLines in = lines;
  for (;;) {
    RastChainLines room = chain.page->leaving();
    RastChainLines made = room;
    const std::uint32_t result = run(chain, &in, &room, error);
    if (result != RAST_CHAIN_OK && result != RAST_CHAIN_DONE) return result;
    made.nCount -= room.nCount;
    if (made.nCount > 0 && chain.settings.pWriteLines(chain.settings.pUser, &made) != 0) {
      return report(RAST_CHAIN_ERR_CALLER, "the lines cannot be written", error);
    }
    if (result == RAST_CHAIN_DONE || room.nCount > 0) return result;
  }
}

}  // namespace

uint32_t rastChainOpen(const char* pText, const RastChainSettings* pSettings, RastChain** ppChain,
                       RastChainError* pError) {
  if (ppChain != nullptr) *ppChain = nullptr;
  if (pText == nullptr || ppChain == nullptr) return reportUse("a pointer is null", pError);
  RastChainSettings settings = {};
  if (pSettings != nullptr) {
    const std::size_t known = pSettings->nSize != 0 ? pSettings->nSize : sizeof settings;
    std::memcpy(&settings, pSettings, std::min(known, sizeof settings));
  }
  return withoutExceptions(pError, [&] {
    std::unique_ptr<RastChain> chain;
    const std::uint32_t result = open(pText, settings, chain, pError);
    *ppChain = chain.release();
    return result;
  });
}

uint32_t rastChainPlan(RastChain* pChain, const RastChainPage* pIn, RastChainPage* pOut,
                       RastChainError* pError) {
  if (pChain == nullptr || pIn == nullptr || pOut == nullptr) {
    return reportUse("a pointer is null", pError);
  }
  if (!rast::chain::isSound(*pIn)) return reportUse("a page has no such size or kind", pError);
  return withoutExceptions(pError, [&]() -> std::uint32_t {
    Context context = pChain->context;
    rast::chain::PageRun page(*pIn, context);
    if (!page.plan(pChain->stages, pChain->settings.pWriteLines != nullptr)) {
      return report(*context.refused, pError);
    }
    *pOut = page.planned();
    pOut->nMemory = page.leastMemory();
    return RAST_CHAIN_OK;
  });
}

uint32_t rastChainBegin(RastChain* pChain, const RastChainPage* pIn, RastChainPage* pOut,
                        RastChainError* pError) {
  if (pChain == nullptr) return reportUse("a pointer is null", pError);
  return insidePage(*pChain, pError, [&]() -> std::uint32_t {
    if (pIn == nullptr) return reportUse("a pointer is null", pError);
    if (!rast::chain::isSound(*pIn)) return reportUse("a page has no such size or kind", pError);
    const RastChainSettings& settings = pChain->settings;
    const std::uint64_t memory = pIn->nMemory != 0       ? pIn->nMemory
                                 : settings.nMemory != 0 ? settings.nMemory
                                                         : rast::chain::kDefaultMemory;
    rast::chain::PageRun& page = pChain->page.emplace(*pIn, pChain->context);
    if (!page.plan(pChain->stages, settings.pWriteLines != nullptr) ||
        !page.open(pChain->stages, memory, pIn->nTaken)) {
      return reportFailure(*pChain, pError);
    }
    if (pOut != nullptr) {
      *pOut = page.planned();
      pOut->nMemory = page.leastMemory();
    }
    return RAST_CHAIN_OK;
  });
}

uint32_t rastChainRun(RastChain* pChain, RastChainLines* pIn, RastChainLines* pOut,
                      RastChainError* pError) {
  if (pChain == nullptr || !pChain->page) return reportUse("there is no page", pError);
  return insidePage(*pChain, pError, [&] { return run(*pChain, pIn, pOut, pError); });
}

uint32_t rastChainWrite(RastChain* pChain, const RastChainLines* pIn, RastChainError* pError) {
  if (pChain == nullptr || !pChain->page) return reportUse("there is no page", pError);
  return insidePage(*pChain, pError, [&] {
    if (pIn == nullptr) return reportUse("a pointer is null", pError);
    if (pChain->settings.pWriteLines == nullptr) {
      return reportUse("the settings name no function that receives lines", pError);
    }
    return write(*pChain, *pIn, pError);
  });
}

void rastChainAbandon(RastChain* pChain) {
  if (pChain != nullptr) pChain->page.reset();
}

uint32_t rastChainSteps(const RastChain* pChain) {
  return pChain != nullptr ? static_cast<std::uint32_t>(pChain->steps) : 0;
}

void rastChainClose(RastChain* pChain) { delete pChain; }

uint32_t rastChainImageBegin(RastChainImage* pImage, const RastChainPage* pPage) {
  return insideImage(pImage, [&] {
    if (pPage == nullptr || pImage->begun || !rast::chain::isSound(*pPage)) {
      return pImage->context.refuse(RAST_CHAIN_ERR_USE, "an image has no such size, or two sizes");
    }
    pImage->begun = true;
    const bool interleaved = pImage->interleaved && pPage->nComponents > 1;
    rast::chain::checkStorable(*pPage, pImage->context);
    if (!pImage->context.failed()) pImage->stored.open(*pPage, interleaved, pImage->context);
  });
}

uint32_t rastChainImageLines(RastChainImage* pImage, const RastChainLines* pLines) {
  using namespace rast::chain;
  return insideImage(pImage, [&] {
    StoredPage& stored = pImage->stored;
    const Page& page = stored.page();
    if (pLines == nullptr || !pImage->begun || pLines->nCount > stored.missing() ||
        !fits(*pLines, page)) {
      return pImage->context.refuse(RAST_CHAIN_ERR_USE, "an image has no such lines");
    }
    RastChainLines lines = *pLines;
    const std::uint32_t most = quickLines(page);
    const PackedLines planes(page.nWidth, page.nComponents, most);
    while (lines.nCount > 0) {
      const std::uint32_t count = std::min(lines.nCount, most);
      moveLines(lines, page, count, planes.planes(), MoveIn());
      if (!stored.append(planes.planes(), count, pImage->context)) return;
      advance(lines, page.nComponents, count);
    }
  });
}

size_t rastChainDescribe(char* pBuffer, size_t nSize) {
  std::size_t length = 0;
  if (pBuffer != nullptr && nSize > 0) *pBuffer = '\0';
  withoutExceptions(nullptr, [&]() -> std::uint32_t {
    const std::string text = rast::chain::describeOperations();
    length = text.size();
    if (pBuffer != nullptr && nSize > 0) pBuffer[text.copy(pBuffer, nSize - 1)] = '\0';
    return RAST_CHAIN_OK;
  });
  return length;
}
