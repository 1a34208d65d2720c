#include <rast.h>

#include <algorithm>
#include <iterator>

#include "steps/page_store.h"
#include "steps/step.h"

namespace {

// The page lies in a store; the turned one is drawn from there band by band.
class TurnedPage final : public PageSource {
 public:
  TurnedPage(PageSource& page, const StepContext& context, std::uint32_t mode)
      : context_(context),
        stored_(context.in, page.head(), false),
        head_(context.outputHead(page.head(), page.head().height, page.head().width)) {
    head_.turned = true;
    head_.resolution = {page.head().resolution.y, page.head().resolution.x};
    stored_.fill(context.in, page, context.bandLines(page.head()));
    accumulate(mode);
    most_ = bandLines(context.in, head_, std::max(context.wantedLines, quickColumns));
  }

  const PageHead& head() const override { return head_; }
  std::uint32_t quickLines() const override { return quickColumns; }

 private:
  // A column of the stored page takes a cache line at the least, so that many are turned together.
  static constexpr std::uint32_t quickColumns = 64;

  std::uint32_t turnBand(const Planes& planes) {
    const std::uint32_t count = std::min(most_, head_.height - done_);
    const RastRotateBand band = bandOf(planes, count);
    context_.call(0, [&] { return unlessComplete(rastRotateSockOutput(&band, &bands_)); });
    done_ += count;
    return count;
  }

  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    const bool isEmpty = !turned_ || turned_->isEmpty();
    if (isEmpty && lines >= std::min(most_, head_.height - done_)) return turnBand(planes);
    if (!turned_) turned_.emplace(head_.width, head_.colour, most_);
    if (isEmpty) turned_->made(turnBand(turned_->planes()));
    return turned_->draw(planes, lines);
  }

  static std::uint32_t unlessComplete(std::uint32_t result) {
    return result == RAST_COMPLETE ? std::uint32_t{RAST_OK} : result;
  }

  void accumulate(std::uint32_t mode) {
    constexpr auto mostBands = static_cast<std::uint32_t>(std::size(decltype(bands_.stBand){}));
    const std::uint32_t height = stored_.head().height;
    const std::uint32_t bandHeight = (height - 1) / mostBands + 1;
    const RastArea area = stored_.area();
    for (std::uint32_t done = 0; done < height; done += bandHeight) {
      const std::uint32_t lines = std::min(bandHeight, height - done);
      const RastRotateBand band = bandOf(stored_.planesFrom(done), lines);
      context_.call(std::uint64_t{done} + 1, [&] {
        return unlessComplete(rastRotateInputAccumulate(&area, &band, &bands_, mode));
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

  StepContext context_;
  StoredPage stored_;
  PageHead head_;
  RastRotateCtx bands_ = {};
  std::uint32_t most_ = 0;  // lines of a band
  std::uint32_t done_ = 0;
  std::optional<LinesAhead> turned_;
};

class RotateStep final : public Step {
 public:
  explicit RotateStep(std::uint32_t mode) : mode_(mode) {}

  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page,
                                 const StepContext& context) override {
    return std::make_unique<TurnedPage>(*page, context, mode_);
  }

 private:
  std::uint32_t mode_;
};

}  // namespace

std::unique_ptr<Step> rotateStep(std::uint32_t mode) { return std::make_unique<RotateStep>(mode); }
