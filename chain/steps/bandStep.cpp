// Operations that work on bands: tone curves, color adjustment, reduction.
#include <numeric>
#include <utility>

#include "steps/step.h"

namespace rast::chain {

namespace {

// The groups of `count` samples or lines: an accumulator grows by the ratio with each one, a group
// ends at 1000, and the rest is a group too.
constexpr std::uint32_t reduced(std::uint32_t count, std::uint32_t ratio) {
  return static_cast<std::uint32_t>((count - 1) * std::uint64_t{ratio} / kWholeRatio) + 1;
}

constexpr std::uint32_t roundedUp(std::uint32_t lines, std::uint32_t unit) {
  return (lines + unit - 1) / unit * unit;
}

class FilteredPage : public LineSource {
 public:
  FilteredPage(LineSource& before, const Filter& filter, const Plan& plan, Context& context)
      : LineSource(plan.page, context), before_(before), filter_(filter), most_(plan.lines) {
    if (!filter.inPlace) drawn_.emplace(before.page().nWidth, before.page().nComponents, most_);
  }

 protected:
  bool apply(const Planes& in, const Planes& out, std::uint32_t lines) {
    return succeeds(
        [&] { return filter_.apply(wholeArea(before_.page().nWidth, lines), in, out); });
  }

  LineSource& before_;
  const Filter& filter_;
  std::uint32_t most_;
  std::optional<PackedLines> drawn_;

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    const Planes& in = drawn_ ? drawn_->planes() : planes;
    const std::uint32_t count = before_.draw(in, std::min(lines, most_));
    return count > 0 && apply(in, planes, count) ? count : 0;
  }
};

// A page with fewer lines. The accumulator is back at 0 after a unit of lines, so that bands of
// whole units give the result of the whole page.
class ReducedPage final : public FilteredPage {
 public:
  ReducedPage(LineSource& before, const Filter& filter, const Plan& plan, Context& context)
      : FilteredPage(before, filter, plan, context),
        made_(page().nWidth, page().nComponents, reduced(most_, filter.ratioY)) {}

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    if (ready_.count == 0 && !makeBand()) return 0;
    return ready_.draw(planes, lines, page().nWidth);
  }

  // False where lines of the band are still to come.
  bool makeBand() {
    const std::uint32_t wanted = std::min(most_, before_.page().nHeight - read_);
    if (!before_.gather(drawn_->planes(), gathered_, wanted)) return false;
    if (!apply(drawn_->planes(), made_.planes(), wanted)) return false;
    read_ += wanted;
    gathered_ = 0;
    ready_ = {made_.planes(), reduced(wanted, filter_.ratioY)};
    return true;
  }

  PackedLines made_;
  ReadyLines ready_;
  std::uint32_t gathered_ = 0;
  std::uint32_t read_ = 0;
};

class BandStep final : public Step {
 public:
  explicit BandStep(Filter filter) : filter_(std::move(filter)) {}

  Plan plan(const Page& page, Context& context) override {
    Plan plan;
    plan.page = resized(page, reduced(page.nWidth, filter_.ratioX),
                        reduced(page.nHeight, filter_.ratioY), context);
    plan.page.nResolutionX = page.nResolutionX * filter_.ratioX / kWholeRatio;
    plan.page.nResolutionY = page.nResolutionY * filter_.ratioY / kWholeRatio;
    plan.wantedLines = context.bandLines(page, quickLines(page));
    if (!filter_.inPlace) plan.lineBytes = lineSamples(page);
    plan.columnsIn = page.nWidth;
    plan.fixedBytes = lineSamples(page) * filter_.workingBytes;
    if (reducesLines()) planUnits(page, plan, context);
    return plan;
  }

  std::unique_ptr<LineSource> open(LineSource& before, const Plan& plan,
                                   Context& context) override {
    if (reducesLines()) return std::make_unique<ReducedPage>(before, filter_, plan, context);
    return std::make_unique<FilteredPage>(before, filter_, plan, context);
  }

 private:
  bool reducesLines() const { return filter_.ratioY != kWholeRatio; }

  void planUnits(const Page& page, Plan& plan, Context& context) const {
    // A call prepares for all its lines at once.
    constexpr std::uint32_t callLines = 16;
    plan.unitLines = kWholeRatio / std::gcd(kWholeRatio, filter_.ratioY);
    plan.leastLines = std::min(plan.unitLines, page.nHeight);
    const std::uint32_t lines = context.bandLines(page, std::max(quickLines(page), callLines));
    plan.wantedLines = std::min(roundedUp(lines, plan.unitLines), page.nHeight);
    const std::uint64_t made = lineSamples(plan.page);
    plan.lineBytes += (made * filter_.ratioY + kWholeRatio - 1) / kWholeRatio;
    plan.fixedBytes += made;
    if (plan.leastLines * std::uint64_t{page.nWidth} > kLongestBand) {
      context.refuse(RAST_CHAIN_ERR_UNSUPPORTED, "a band of ", plan.leastLines,
                     " lines, which these ratios need, is too large for a page of ", page.nWidth,
                     " columns; other ratios need less");
    }
  }

  Filter filter_;
};

}  // namespace

std::unique_ptr<Step> bandStep(const Filter& filter) { return std::make_unique<BandStep>(filter); }

}  // namespace rast::chain
