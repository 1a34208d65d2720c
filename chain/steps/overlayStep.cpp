#include <rast.h>

#include <utility>

#include "steps/image.h"
#include "steps/pageStore.h"
#include "steps/step.h"

namespace rast::chain {

namespace {

// Columns or lines, half open.
struct Span {
  std::int64_t begin;
  std::int64_t end;

  std::int64_t length() const { return std::max<std::int64_t>(0, end - begin); }
  Span within(const Span& other) const {
    return {std::max(begin, other.begin), std::min(end, other.end)};
  }
};

struct Rectangle {
  Span columns;
  Span lines;

  Rectangle(const Position& at, const Page& page)
      : columns{at.x, std::int64_t{at.x} + page.nWidth},
        lines{at.y, std::int64_t{at.y} + page.nHeight} {}
  Rectangle(const Span& c, const Span& l) : columns(c), lines(l) {}
  Rectangle within(const Rectangle& other) const {
    return {columns.within(other.columns), lines.within(other.lines)};
  }
  std::uint64_t pixels() const {
    return static_cast<std::uint64_t>(columns.length()) *
           static_cast<std::uint64_t>(lines.length());
  }
};

// The start of composition. The line is the smaller of the overlay's line and the page's column, as
// in the library.
Position originOf(const OverlaySettings& settings) {
  return {std::min(settings.base.x, settings.at.x), std::min(settings.base.x, settings.at.y)};
}

// The page lies in a store until it is complete; the composed page is drawn from another one.
class ComposedPage final : public LineSource {
 public:
  ComposedPage(LineSource& before, const Plan& plan, Context& context,
               const OverlaySettings& settings, StoredPage& overlay)
      : LineSource(plan.page, context),
        before_(before),
        settings_(settings),
        overlay_(overlay),
        entering_(before.page().nWidth, page().nComponents, quickLines(before.page())) {}

  bool open() {
    return under_.open(before_.page(), settings_.interleaved, context_) &&
           output_.open(page(), settings_.interleaved, context_);
  }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    if (!under_.isComplete() && !(gather() && compose())) return 0;
    output_.copyLines(done(), lines, planes);
    return lines;
  }

  bool gather() {
    while (!under_.isComplete()) {
      const std::uint32_t count = before_.draw(entering_.planes(), quickLines(before_.page()));
      if (count == 0 || !under_.append(entering_.planes(), count, context_)) return false;
    }
    return output_.clear(context_);
  }

  bool compose() {
    if (settings_.interleaved && !padSources()) return false;
    const Planes in = under_.planesFrom(0);
    const Planes out = output_.planesFrom(0);
    const Planes over = overlay_.planesFrom(0);
    const RastArea area = under_.area();
    if (settings_.interleaved) return composePixels(area, in, out, over);
    if (in.count == 3) return composePlanes(area, in, out, over, 0);
    constexpr std::uint32_t singlePlane = 2;
    for (std::size_t c = 0; c < in.count; ++c) {
      if (!composePlanes(area, Planes(1, in.at[c], 0), Planes(1, out.at[c], 0),
                         Planes(1, over.at[c], 0), singlePlane)) {
        return false;
      }
    }
    return true;
  }

  bool composePlanes(const RastArea& area, const Planes& in, const Planes& out, const Planes& over,
                     std::uint32_t planeMode) {
    const RastPlaneSet planes = planeSet(in, out, 0);
    const RastOverlayParam param = parameters(over);
    return succeeds([&] {
      return rastOverlay(&area, &planes, &param, planeMode, 0, settings_.mode, settings_.density,
                         settings_.white);
    });
  }

  bool composePixels(const RastArea& area, const Planes& in, const Planes& out,
                     const Planes& over) {
    constexpr std::uint32_t leastDensity = 1;  // the library checks it and does not use it
    std::uint8_t* const images[] = {in.at[0], out.at[0]};
    const RastOverlayParam param = parameters(over);
    return succeeds([&] {
      return rastOverlayRGB24bpp(&area, images, &param, 0, 0, 0, leastDensity, settings_.white);
    });
  }

  RastOverlayParam parameters(const Planes& over) const {
    RastOverlayParam param = {};
    const RastArea overlay = overlay_.area();
    for (std::size_t c = 0; c < std::min<std::size_t>(over.count, 3); ++c) {
      param.pOvl[c] = over.at[c];
    }
    param.nOvlLineWidth = overlay.nLineWidth;
    param.nOvlWidth = overlay.nWidth;
    param.nOvlHeight = overlay.nHeight;
    param.nBaseX = settings_.base.x;
    param.nBaseY = settings_.base.y;
    param.nOvlX = settings_.at.x;
    param.nOvlY = settings_.at.y;
    param.nOutWidth = output_.area().nWidth;
    param.nOutHeight = output_.area().nHeight;
    return param;
  }

  // Interleaved sources are consumed as runs of pixels: the overlay's where the page lies alone,
  // the page's where the overlay lies. Both must hold enough pixels, whatever their sizes. Where
  // both lie, the library reads the overlay's next pixel too.
  bool padSources() {
    const Position origin = originOf(settings_);
    const Rectangle composed(Span{origin.x, page().nWidth}, Span{origin.y, page().nHeight});
    const Rectangle base = Rectangle(settings_.base, under_.page()).within(composed);
    const Rectangle overlay = Rectangle(settings_.at, overlay_.page()).within(composed);
    const std::uint64_t both = base.within(overlay).pixels();
    const auto background = static_cast<std::uint8_t>(settings_.white != 0 ? 255 : 0);
    return under_.pad(overlay.pixels(), background, context_) &&
           overlay_.pad(base.pixels() - both + (both != 0 ? 1 : 0), background, context_);
  }

  LineSource& before_;
  const OverlaySettings& settings_;
  StoredPage& overlay_;
  PackedLines entering_;
  StoredPage under_;
  StoredPage output_;
};

class OverlayStep final : public Step {
 public:
  explicit OverlayStep(OverlaySettings settings) : settings_(std::move(settings)) {}

  Plan plan(const Page& page, Context& context) override {
    Plan plan;
    plan.page = page;
    if (!overlay_ && !load(context)) return plan;
    const Size size = settings_.size.value_or(Size{page.nWidth, page.nHeight});
    plan.page = resized(page, size.width, size.height, context);
    check(page, plan.page, context);
    checkStorable(page, context);
    checkStorable(plan.page, context);
    plan.fixedBytes = quickLines(page) * lineSamples(page) * (settings_.interleaved ? 2 : 1);
    return plan;
  }

  std::unique_ptr<LineSource> open(LineSource& before, const Plan& plan,
                                   Context& context) override {
    auto composed = std::make_unique<ComposedPage>(before, plan, context, settings_, *overlay_);
    return composed->open() ? std::move(composed) : nullptr;
  }

 private:
  bool load(Context& context) {
    RastChainImage image = {context, settings_.interleaved};
    const int result = settings_.readImage(settings_.name, settings_.background, &image);
    if (image.lacksMemory) {
      context.refuse(RAST_CHAIN_ERR_MEMORY, "not enough memory");
    } else if (result != 0) {
      context.refuse(RAST_CHAIN_ERR_CALLER, "the image '", settings_.name, "' cannot be read");
    } else if (!image.begun || !image.stored.isComplete()) {
      context.refuse(RAST_CHAIN_ERR_CALLER, "the image '", settings_.name, "' is not complete");
    }
    if (context.failed()) return false;
    overlay_ = std::move(image.stored);
    return true;
  }

  void check(const Page& page, const Page& output, Context& context) const {
    const Page& overlay = overlay_->page();
    const auto [at, base] = std::pair(settings_.at, settings_.base);
    if (overlay.nComponents != page.nComponents) {
      context.refuse(RAST_CHAIN_ERR_UNSUPPORTED, "the page is ", kindOf(page.nComponents),
                     " and the overlay ", settings_.name, " is not; give one of the same kind");
    }
    checkEnd(context, "the overlay", at.x, overlay.nWidth);
    checkEnd(context, "the overlay", at.y, overlay.nHeight);
    checkEnd(context, "the page", base.x, page.nWidth);
    checkEnd(context, "the page", base.y, page.nHeight);
    const Position origin = originOf(settings_);
    if (std::int64_t{origin.x} >= output.nWidth) {
      context.refuse(RAST_CHAIN_ERR_PAGE, "the leftmost image begins at column ", origin.x,
                     " and the output page has only ", output.nWidth, " columns");
    }
    if (std::int64_t{origin.y} >= output.nHeight) {
      context.refuse(RAST_CHAIN_ERR_PAGE, "composition starts at line ", origin.y,
                     ", the smaller of --base X and --at Y, and the output page has only ",
                     output.nHeight, " lines");
    }
  }

  OverlaySettings settings_;
  std::optional<StoredPage> overlay_;  // read for the first page
};

}  // namespace

std::unique_ptr<Step> overlayStep(OverlaySettings settings) {
  return std::make_unique<OverlayStep>(std::move(settings));
}

}  // namespace rast::chain
