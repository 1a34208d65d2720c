#include <algorithm>
#include <utility>

#include "steps/step.h"

namespace {

PageHead reducedHead(const StepContext& context, const PageHead& page, const Filter& filter) {
  PageHead head = context.outputHead(page, reduced(page.width, filter.ratioX),
                                     reduced(page.height, filter.ratioY));
  head.resolution.x = head.resolution.x * filter.ratioX / wholeRatio;
  head.resolution.y = head.resolution.y * filter.ratioY / wholeRatio;
  return head;
}

// Whole units of the filter, unless the page has fewer lines.
std::uint32_t wholeUnits(const StepContext& context, const PageHead& page, std::uint32_t unit) {
  // A call prepares for all its lines at once.
  constexpr std::uint32_t callLines = 16;
  const std::uint32_t wanted =
      context.wantedLines != 0 ? context.wantedLines : std::max(quickLines(page), callLines);
  const std::uint32_t lines = bandLines(context.in, page, (wanted + unit - 1) / unit * unit);
  if (lines == page.height) return lines;
  if (lines < unit) {
    const std::uint32_t least = std::min(unit, page.height);
    if (least * page.workBytes() > longestBand) {
      context.refuse(ExitCode::unsupported, "a band of ", least,
                     " lines, which these ratios take, ", "is too large for a page of ", page.width,
                     " columns; other ratios take less");
    }
    context.in.failMemory(0, join("a band of ", least, " lines, which these ratios take,"),
                          least * page.workBytes());
  }
  return lines / unit * unit;
}

class FilteredPage final : public PageSource {
 public:
  FilteredPage(std::unique_ptr<PageSource> page, const StepContext& context, const Filter& filter)
      : page_(std::move(page)),
        context_(context),
        filter_(filter),
        head_(reducedHead(context, page_->head(), filter)),
        most_(wholeUnits(context, page_->head(), filter.unitLines())) {
    if (!filter_.inPlace) drawn_.emplace(page_->head().width, head_.colour, most_);
    if (reducesLines()) made_.emplace(head_.width, head_.colour, reduced(most_, filter_.ratioY));
  }

  const PageHead& head() const override { return head_; }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    return reducesLines() ? drawMade(planes, lines) : filterBand(planes, std::min(lines, most_));
  }

  bool reducesLines() const { return filter_.ratioY != wholeRatio; }

  std::uint32_t filterBand(const Planes& out, std::uint32_t lines) {
    const Planes& in = drawn_ ? drawn_->planes() : out;
    page_->draw(in, lines);
    context_.call(std::uint64_t{done_} + 1, [&] {
      return filter_.apply(wholeArea(page_->head().width, lines), planeSet(in, out, 3));
    });
    done_ += lines;
    return lines;
  }

  std::uint32_t drawMade(const Planes& planes, std::uint32_t lines) {
    if (made_->isEmpty()) {
      const std::uint32_t count = std::min(most_, page_->head().height - done_);
      filterBand(made_->planes(), count);
      made_->made(reduced(count, filter_.ratioY));
    }
    return made_->draw(planes, lines);
  }

  std::unique_ptr<PageSource> page_;
  StepContext context_;
  const Filter& filter_;
  PageHead head_;
  std::uint32_t most_;  // lines of a band
  std::optional<Lines> drawn_;
  std::uint32_t done_ = 0;
  std::optional<LinesAhead> made_;  // where lines are reduced
};

class BandStep final : public Step {
 public:
  explicit BandStep(Filter filter) : filter_(std::move(filter)) {}

  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page,
                                 const StepContext& context) override {
    return std::make_unique<FilteredPage>(std::move(page), context, filter_);
  }

 private:
  Filter filter_;
};

}  // namespace

std::unique_ptr<Step> bandStep(const Filter& filter) { return std::make_unique<BandStep>(filter); }
