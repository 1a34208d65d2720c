#include <rast.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "steps/file_page.h"
#include "steps/page_store.h"
#include "steps/step.h"

namespace {

// Half open, of columns or lines.
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

  Rectangle(const Position& at, const PageHead& head)
      : columns{at.x, std::int64_t{at.x} + head.width},
        lines{at.y, std::int64_t{at.y} + head.height} {}
  Rectangle(const Span& c, const Span& l) : columns(c), lines(l) {}
  Rectangle within(const Rectangle& other) const {
    return {columns.within(other.columns), lines.within(other.lines)};
  }
  std::uint64_t pixels() const {
    return static_cast<std::uint64_t>(columns.length()) *
           static_cast<std::uint64_t>(lines.length());
  }
};

// Drawn from a store.
class ComposedPage final : public PageSource {
 public:
  explicit ComposedPage(StoredPage page) : page_(std::move(page)) {}

  const PageHead& head() const override { return page_.head(); }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    page_.copyLines(done_, lines, planes);
    done_ += lines;
    return lines;
  }

  StoredPage page_;
  std::uint32_t done_ = 0;
};

class OverlayStep final : public Step {
 public:
  OverlayStep(const OverlaySettings& settings, bool interleaved)
      : settings_(settings), interleaved_(interleaved) {}

  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page,
                                 const StepContext& context) override {
    if (!overlay_) overlay_ = load(context.in.memory());
    const PageHead head = outputHead(context, page->head());
    StoredPage under(context.in, page->head(), interleaved_);
    StoredPage output(context.in, head, interleaved_);
    under.fill(context.in, *page, context.bandLines(page->head()));
    output.clear();
    context.call(0, [&] { return compose(under, output); });
    return std::make_unique<ComposedPage>(std::move(output));
  }

 private:
  PageHead outputHead(const StepContext& context, const PageHead& page) const {
    const PageHead& overlay = overlay_->head();
    if (overlay.colour != page.colour) {
      context.refuse(ExitCode::unsupported, "the page is ", page.colour ? "colour" : "gray",
                     " and the overlay ", settings_.path, " is not; give one of the same kind");
    }
    const PageHead output = resizedHead(context, page, settings_.size);
    const auto [at, base] = std::pair(settings_.at, settings_.base);
    checkEnd(context, "the overlay", at.x, overlay.width);
    checkEnd(context, "the overlay", at.y, overlay.height);
    checkEnd(context, "the page", base.x, page.width);
    checkEnd(context, "the page", base.y, page.height);
    if (std::int64_t{left()} >= output.width) {
      context.refuse(ExitCode::usage, "the leftmost image begins at column ", left(),
                     " and the output page has only ", output.width, " columns");
    }
    if (std::int64_t{top()} >= output.height) {
      context.refuse(ExitCode::usage, "composition starts at line ", top(),
                     ", the smaller of --base X and --at Y, and the output page has only ",
                     output.height, " lines");
    }
    return output;
  }

  std::uint32_t compose(StoredPage& page, StoredPage& output) {
    if (interleaved_) padSources(page, output);
    const Planes in = page.planesFrom(0);
    const Planes out = output.planesFrom(0);
    const RastArea area = page.area();
    const RastOverlayParam param = parameters(output);
    if (interleaved_) {
      constexpr std::uint32_t leastDensity = 1;  // the library checks it and does not use it
      std::uint8_t* const images[] = {in.at[0], out.at[0]};
      return rastOverlayRGB24bpp(&area, images, &param, 0, 0, 0, leastDensity, settings_.white);
    }
    const RastPlaneSet planes = planeSet(in, out, 0);
    const std::uint32_t planeMode = in.layout == Layout::planar ? 0 : 2;
    return rastOverlay(&area, &planes, &param, planeMode, 0, settings_.mode, settings_.density,
                       settings_.white);
  }

  std::int32_t left() const { return std::min(settings_.base.x, settings_.at.x); }
  // The base's column, as the library has it.
  std::int32_t top() const { return std::min(settings_.base.x, settings_.at.y); }

  StoredPage load(std::uint64_t memory) const {
    if (settings_.path == "-") {
      fail(ExitCode::usage, "--with: standard input is for pages; expected a file");
    }
    Input in(settings_.path, memory);
    const Transparency transparency{"give --flatten black or --flatten white", settings_.flatten};
    const std::unique_ptr<PageStream> pages = openPages(in, transparency);
    StoredPage stored = loadPage(in, *pages);
    if (pages->next()) {
      fail(ExitCode::unsupported, settings_.path, ": holds several pages; expected one to overlay");
    }
    return stored;
  }

  StoredPage loadPage(const Input& in, PageStream& pages) const {
    Meter unseen(ProgressMode::never, in, {});
    const std::unique_ptr<PageReader> reader = pages.next();
    FilePage page(in, *reader, unseen);
    StoredPage stored(in, page.head(), interleaved_);
    stored.fill(in, page, page.bandLines());
    return stored;
  }

  RastOverlayParam parameters(const StoredPage& output) const {
    RastOverlayParam param = {};
    const RastArea overlay = overlay_->area();
    std::ranges::copy(overlay_->planesFrom(0).at, param.pOvl);
    param.nOvlLineWidth = overlay.nLineWidth;
    param.nOvlWidth = overlay.nWidth;
    param.nOvlHeight = overlay.nHeight;
    param.nBaseX = settings_.base.x;
    param.nBaseY = settings_.base.y;
    param.nOvlX = settings_.at.x;
    param.nOvlY = settings_.at.y;
    param.nOutWidth = output.area().nWidth;
    param.nOutHeight = output.area().nHeight;
    return param;
  }

  // Interleaved sources are consumed as runs of pixels, the overlay's where the page alone lies and
  // the page's where the overlay lies, whatever their sizes: both are made to hold that many. Where
  // both lie, the overlay's next pixel is looked at.
  void padSources(StoredPage& page, const StoredPage& output) {
    const PageHead& head = output.head();
    const Rectangle composed(Span{left(), head.width}, Span{top(), head.height});
    const Rectangle base = Rectangle(settings_.base, page.head()).within(composed);
    const Rectangle overlay = Rectangle(settings_.at, overlay_->head()).within(composed);
    const std::uint64_t both = base.within(overlay).pixels();
    const auto background = static_cast<std::uint8_t>(settings_.white != 0 ? 255 : 0);
    page.pad(overlay.pixels(), background);
    overlay_->pad(base.pixels() - both + (both != 0 ? 1 : 0), background);
  }

  OverlaySettings settings_;
  bool interleaved_;
  std::optional<StoredPage> overlay_;  // once there is a page
};

}  // namespace

std::unique_ptr<Step> overlayStep(const OverlaySettings& settings) {
  return std::make_unique<OverlayStep>(settings, false);
}

std::unique_ptr<Step> overlayRgbStep(const OverlaySettings& settings) {
  return std::make_unique<OverlayStep>(settings, true);
}
