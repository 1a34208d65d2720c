#include <rast.h>

#include <algorithm>
#include <iterator>

#include "page_store.h"
#include "step.h"

namespace {

// The page lies in a store; the turned one is drawn from there band by band.
class TurnedPage final : public PageSource {
 public:
  TurnedPage(PageSource& page, const Place& place, std::uint32_t mode)
      : place_(place),
        stored_(place.in, page.head(), false),
        head_(checkedHead(place.in, page.head().height, page.head().width, page.head().colour,
                          "output page")) {
    head_.resolution = {page.head().resolution.y, page.head().resolution.x};
    stored_.fill(page, place.bandLines(page.head(), place.wantedLines));
    accumulate(mode);
    most_ = place.bandLines(head_, std::max(place.wantedLines, quickColumns));
    turned_.emplace(head_.width, head_.colour, most_);
  }

  const PageHead& head() const override { return head_; }

  void draw(Planes planes, std::uint32_t lines) override {
    while (lines > 0) {
      if (turned_->isEmpty()) turnBand();
      const std::uint32_t count = turned_->draw(planes, lines);
      planes.advance(std::size_t{count} * head_.width);
      lines -= count;
    }
  }

 private:
  // A column of the stored page takes a cache line at the least, so that many are turned together.
  static constexpr std::uint32_t quickColumns = 64;

  void turnBand() {
    const std::uint32_t count = std::min(most_, head_.height - done_);
    const RastRotateBand band = bandOf(turned_->planes(), count);
    place_.call(0, [&] { return unlessComplete(rastRotateSockOutput(&band, &context_)); });
    turned_->made(count);
    done_ += count;
  }

  static std::uint32_t unlessComplete(std::uint32_t result) {
    return result == RAST_COMPLETE ? std::uint32_t{RAST_OK} : result;
  }

  void accumulate(std::uint32_t mode) {
    constexpr auto mostBands = static_cast<std::uint32_t>(std::size(decltype(context_.stBand){}));
    const std::uint32_t height = stored_.head().height;
    const std::uint32_t bandLines = (height - 1) / mostBands + 1;
    const RastArea area = stored_.area();
    for (std::uint32_t done = 0; done < height; done += bandLines) {
      const std::uint32_t lines = std::min(bandLines, height - done);
      const RastRotateBand band = bandOf(stored_.planesFrom(done), lines);
      place_.call(std::uint64_t{done} + 1, [&] {
        return unlessComplete(rastRotateInputAccumulate(&area, &band, &context_, mode));
      });
    }
  }

  RastRotateBand bandOf(const Planes& planes, std::uint32_t lines) const {
    RastRotateBand band = {};
    band.nPlaneNum = static_cast<std::int32_t>(planeCount(planes.layout));
    std::ranges::copy(planes.at, band.pIn);
    std::ranges::copy(planes.at, band.pOut);
    band.nLines = static_cast<std::int32_t>(lines);
    band.nOutLineWidth = static_cast<std::int32_t>(head_.width);
    band.nOutHeight = static_cast<std::int32_t>(head_.height);
    return band;
  }

  Place place_;
  StoredPage stored_;
  PageHead head_;
  RastRotateCtx context_ = {};
  std::uint32_t most_ = 0;  // lines of a band
  std::uint32_t done_ = 0;
  std::optional<LinesAhead> turned_;
};

class RotateStep final : public Step {
 public:
  explicit RotateStep(std::uint32_t mode) : mode_(mode) {}

  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page, const Place& place) override {
    return std::make_unique<TurnedPage>(*page, place, mode_);
  }

 private:
  std::uint32_t mode_;
};

}  // namespace

std::unique_ptr<Step> rotateStep(std::uint32_t mode) { return std::make_unique<RotateStep>(mode); }
