#include <rast.h>

#include <iterator>

#include "steps/pageStore.h"
#include "steps/step.h"

namespace rast::chain {

namespace {

// A column of the stored page takes a cache line at the least, so many are turned together.
constexpr std::uint32_t kQuickColumns = 64;

// The page lies in a store; the turned page is drawn from there band by band.
class TurnedPage final : public LineSource {
 public:
  TurnedPage(LineSource& before, const Plan& plan, Context& context, std::uint32_t mode)
      : LineSource(plan.page, context),
        before_(before),
        mode_(mode),
        most_(plan.lines),
        storedTogether_(linesToStore(before.page(), plan)) {
    entering_.emplace(before.page().nWidth, page().nComponents, storedTogether_);
  }

  bool open() { return stored_.open(before_.page(), false, context_); }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    if (!stored_.isComplete() && !(store() && accumulate())) return 0;
    if (ready_.count == 0) {
      if (lines >= std::min(most_, page().nHeight - turned_)) return turnBand(planes);
      if (!leaving_) leaving_.emplace(page().nWidth, page().nComponents, most_);
      ready_ = {leaving_->planes(), turnBand(leaving_->planes())};
    }
    return ready_.draw(planes, lines, page().nWidth);
  }

  // A system call serves many samples. The lines take the memory of the band, which is needed later.
  static std::uint32_t linesToStore(const Page& before, const Plan& plan) {
    const std::uint64_t room = plan.lines * lineSamples(plan.page) / lineSamples(before);
    return static_cast<std::uint32_t>(
        std::clamp<std::uint64_t>(room, 1, std::uint64_t{4} * quickLines(before)));
  }

  // False while lines are still to come.
  bool store() {
    while (!stored_.isComplete()) {
      const std::uint32_t wanted = std::min(storedTogether_, stored_.missing());
      if (!before_.gather(entering_->planes(), gathered_, wanted)) return false;
      if (!stored_.append(entering_->planes(), wanted, context_)) return false;
      gathered_ = 0;
    }
    entering_.reset();
    return true;
  }

  bool accumulate() {
    constexpr auto mostBands = static_cast<std::uint32_t>(std::size(decltype(bands_.stBand){}));
    const std::uint32_t height = stored_.page().nHeight;
    const std::uint32_t bandHeight = (height - 1) / mostBands + 1;
    const RastArea area = stored_.area();
    for (std::uint32_t done = 0; done < height; done += bandHeight) {
      const std::uint32_t lines = std::min(bandHeight, height - done);
      const RastRotateBand band = bandOf(stored_.planesFrom(done), lines);
      if (!succeeds([&] { return rastRotateInputAccumulate(&area, &band, &bands_, mode_); })) {
        return false;
      }
    }
    return true;
  }

  std::uint32_t turnBand(const Planes& planes) {
    const std::uint32_t count = std::min(most_, page().nHeight - turned_);
    const RastRotateBand band = bandOf(planes, count);
    if (!succeeds([&] { return rastRotateSockOutput(&band, &bands_); })) return 0;
    turned_ += count;
    return count;
  }

  RastRotateBand bandOf(const Planes& planes, std::uint32_t lines) const {
    RastRotateBand band = {};
    band.nPlaneNum = static_cast<std::int32_t>(planes.count);
    std::ranges::copy(planes.at, band.pIn);
    std::ranges::copy(planes.at, band.pOut);
    band.nLines = static_cast<std::int32_t>(lines);
    band.nOutLineWidth = static_cast<std::int32_t>(page().nWidth);
    band.nOutHeight = static_cast<std::int32_t>(page().nHeight);
    return band;
  }

  LineSource& before_;
  std::uint32_t mode_;
  std::uint32_t most_;            // lines of a band
  std::uint32_t storedTogether_;  // lines
  std::uint32_t gathered_ = 0;
  std::optional<PackedLines> entering_;  // until the page is stored
  StoredPage stored_;
  RastRotateCtx bands_ = {};
  std::uint32_t turned_ = 0;
  std::optional<PackedLines> leaving_;  // a band that is larger than the room
  ReadyLines ready_;
};

class RotateStep final : public Step {
 public:
  explicit RotateStep(std::uint32_t mode) : mode_(mode) {}

  Plan plan(const Page& page, Context& context) override {
    Plan plan;
    checkStorable(page, context);
    plan.page = resized(page, page.nHeight, page.nWidth, context);
    plan.page.nResolutionX = page.nResolutionY;
    plan.page.nResolutionY = page.nResolutionX;
    plan.page.nTurns = (page.nTurns + (mode_ == RAST_ROTATE_CW90 ? 1 : 3)) % 4;
    plan.fixedBytes = lineSamples(page);
    plan.lineBytes = lineSamples(plan.page);
    plan.wantedLines = std::min(std::max(context.wantedLines, kQuickColumns), plan.page.nHeight);
    plan.quickLines = kQuickColumns;
    return plan;
  }

  std::unique_ptr<LineSource> open(LineSource& before, const Plan& plan,
                                   Context& context) override {
    auto turned = std::make_unique<TurnedPage>(before, plan, context, mode_);
    return turned->open() ? std::move(turned) : nullptr;
  }

 private:
  std::uint32_t mode_;
};

}  // namespace

std::unique_ptr<Step> rotateStep(std::uint32_t mode) { return std::make_unique<RotateStep>(mode); }

}  // namespace rast::chain
