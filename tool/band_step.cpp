#include <algorithm>
#include <utility>

#include "step.h"

namespace {

PageHead reducedHead(const Input& in, const PageHead& page, const Filter& filter) {
  PageHead head = checkedHead(in, reduced(page.width, filter.ratioX),
                              reduced(page.height, filter.ratioY), page.colour, "output page");
  head.resolution = {page.resolution.x * filter.ratioX / wholeRatio,
                     page.resolution.y * filter.ratioY / wholeRatio};
  return head;
}

// Whole units of the filter, unless the page has fewer lines.
std::uint32_t wholeUnits(const Place& place, const PageHead& page, std::uint32_t unit) {
  const std::uint32_t wanted = place.wantedLines != 0 ? place.wantedLines : quickLines(page);
  const std::uint32_t lines = place.bandLines(page, (wanted + unit - 1) / unit * unit);
  if (lines == page.height) return lines;
  if (lines < unit) {
    place.in.failMemory(0,
                        join("a band of ", unit, " lines, which these ratios take, in all steps"),
                        place.bands * unit * page.workBytes());
  }
  return lines / unit * unit;
}

class FilteredPage final : public PageSource {
 public:
  FilteredPage(std::unique_ptr<PageSource> page, const Place& place, const Filter& filter)
      : page_(std::move(page)),
        place_(place),
        filter_(filter),
        head_(reducedHead(place.in, page_->head(), filter)),
        most_(wholeUnits(place, page_->head(), filter.unitLines())),
        drawn_(page_->head().width, head_.colour, most_) {
    if (reducesLines()) made_.emplace(head_.width, head_.colour, reduced(most_, filter_.ratioY));
  }

  const PageHead& head() const override { return head_; }

  void draw(Planes planes, std::uint32_t lines) override {
    while (lines > 0) {
      const std::uint32_t count =
          reducesLines() ? drawMade(planes, lines) : filterBand(planes, std::min(lines, most_));
      planes.advance(std::size_t{count} * head_.width);
      lines -= count;
    }
  }

 private:
  bool reducesLines() const { return filter_.ratioY != wholeRatio; }

  std::uint32_t filterBand(const Planes& out, std::uint32_t lines) {
    const PageHead& from = page_->head();
    page_->draw(drawn_.planes(), lines);
    place_.call(std::uint64_t{done_} + 1, [&] {
      return filter_.apply(wholeArea(from.width, lines), planeSet(drawn_.planes(), out, 3));
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
  Place place_;
  const Filter& filter_;
  PageHead head_;
  std::uint32_t most_;  // lines of a band
  Lines drawn_;
  std::uint32_t done_ = 0;
  std::optional<LinesAhead> made_;  // where lines are reduced
};

class BandStep final : public Step {
 public:
  explicit BandStep(Filter filter) : filter_(std::move(filter)) {}

  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page, const Place& place) override {
    return std::make_unique<FilteredPage>(std::move(page), place, filter_);
  }

 private:
  Filter filter_;
};

}  // namespace

std::unique_ptr<Step> bandStep(const Filter& filter) { return std::make_unique<BandStep>(filter); }
