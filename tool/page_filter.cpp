#include "page_filter.h"

#include <rast.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

PageHead sizedHead(const Input& in, const PageHead& page, const std::optional<Size>& size) {
  const Size output = size.value_or(Size{page.width, page.height});
  return checkedHead(in, output.width, output.height, page.colour, "output page");
}

// The library's columns and lines are 32-bit.
void checkEnd(const Input& in, const char* what, std::int64_t start, std::uint32_t length) {
  if (start + length > INT32_MAX) {
    in.fail(ExitCode::usage, 0, what, " reaches beyond column or line ", INT32_MAX);
  }
}

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

class Overlay final : public PageFilter {
 public:
  Overlay(const OverlaySettings& settings, bool interleaved)
      : settings_(settings), interleaved_(interleaved), overlay_(load()) {}

  bool interleaved() const override { return interleaved_; }

  PageHead outputHead(const Input& in, const PageHead& page) const override {
    const PageHead& overlay = overlay_.head();
    if (overlay.colour != page.colour) {
      in.fail(ExitCode::unsupported, 0, "the page is ", page.colour ? "colour" : "gray",
              " and the overlay ", settings_.path, " is not; give one of the same kind");
    }
    const PageHead output = sizedHead(in, page, settings_.size);
    const auto [at, base] = std::pair(settings_.at, settings_.base);
    checkEnd(in, "the overlay", at.x, overlay.width);
    checkEnd(in, "the overlay", at.y, overlay.height);
    checkEnd(in, "the page", base.x, page.width);
    checkEnd(in, "the page", base.y, page.height);
    if (std::int64_t{left()} >= output.width) {
      in.fail(ExitCode::usage, 0, "the leftmost image begins at column ", left(),
              " and the output page has only ", output.width, " columns");
    }
    if (std::int64_t{top()} >= output.height) {
      in.fail(ExitCode::usage, 0, "composition starts at line ", top(),
              ", the smaller of --base X and --at Y, and the output page has only ", output.height,
              " lines");
    }
    return output;
  }

  std::uint32_t apply(StoredPage& page, StoredPage& output, std::uint32_t) override {
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

 private:
  std::int32_t left() const { return std::min(settings_.base.x, settings_.at.x); }
  // The base's column, as the library has it.
  std::int32_t top() const { return std::min(settings_.base.x, settings_.at.y); }

  StoredPage load() const {
    if (settings_.path == "-") {
      fail(ExitCode::usage, "--with: standard input is for pages; expected a file");
    }
    Input in(settings_.path);
    const Transparency transparency{"give --flatten black or --flatten white", settings_.flatten};
    const std::unique_ptr<PageReader> reader = nextPage(in, transparency);
    StoredPage page(in, reader->head(), interleaved_);
    constexpr std::uint32_t linesAtATime = 64;
    page.read(*reader, linesAtATime, [](std::uint32_t) {});
    if (nextPage(in, transparency)) {
      fail(ExitCode::unsupported, settings_.path, ": holds several pages; expected one to overlay");
    }
    return page;
  }

  RastOverlayParam parameters(const StoredPage& output) const {
    RastOverlayParam param = {};
    const RastArea overlay = overlay_.area();
    std::ranges::copy(overlay_.planesFrom(0).at, param.pOvl);
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
    const Rectangle overlay = Rectangle(settings_.at, overlay_.head()).within(composed);
    const std::uint64_t both = base.within(overlay).pixels();
    const auto background = static_cast<std::uint8_t>(settings_.white != 0 ? 255 : 0);
    page.pad(overlay.pixels(), background);
    overlay_.pad(base.pixels() - both + (both != 0 ? 1 : 0), background);
  }

  OverlaySettings settings_;
  bool interleaved_;
  StoredPage overlay_;
};

class Rotation final : public PageFilter {
 public:
  explicit Rotation(std::uint32_t mode) : mode_(mode) {}

  PageHead outputHead(const Input& in, const PageHead& page) const override {
    return checkedHead(in, page.height, page.width, page.colour, "output page");
  }

  std::uint32_t apply(StoredPage& page, StoredPage& output, std::uint32_t bandLines) override {
    RastRotateCtx context = {};
    constexpr auto mostBands = static_cast<std::uint32_t>(std::size(decltype(context.stBand){}));
    const std::uint32_t height = page.head().height;
    const std::uint32_t inputLines = std::max(bandLines, (height - 1) / mostBands + 1);
    const RastArea area = page.area();
    std::uint32_t result = RAST_OK;
    for (std::uint32_t done = 0; result == RAST_OK && done < height; done += inputLines) {
      const std::uint32_t lines = std::min(inputLines, height - done);
      const RastRotateBand band = bandOf(page.planesFrom(done), output, lines);
      result = rastRotateInputAccumulate(&area, &band, &context, mode_);
    }
    if (result != RAST_COMPLETE) return result;

    const std::uint32_t outputHeight = output.head().height;
    for (std::uint32_t done = 0; done < outputHeight;) {
      const std::uint32_t lines = std::min(bandLines, outputHeight - done);
      const RastRotateBand band = bandOf(output.planesFrom(done), output, lines);
      result = rastRotateSockOutput(&band, &context);
      if (result != RAST_OK && result != RAST_COMPLETE) return result;
      done += lines;
    }
    return RAST_OK;
  }

 private:
  static RastRotateBand bandOf(const Planes& planes, const StoredPage& output,
                               std::uint32_t lines) {
    RastRotateBand band = {};
    band.nPlaneNum = static_cast<std::int32_t>(planeCount(planes.layout));
    std::ranges::copy(planes.at, band.pIn);
    std::ranges::copy(planes.at, band.pOut);
    band.nLines = static_cast<std::int32_t>(lines);
    band.nOutLineWidth = output.area().nWidth;
    band.nOutHeight = output.area().nHeight;
    return band;
  }

  std::uint32_t mode_;
};

class Shift final : public PageFilter {
 public:
  Shift(Position by, std::optional<Size> size, std::uint32_t fill)
      : by_(by), size_(size), fill_(fill) {}

  PageHead outputHead(const Input& in, const PageHead& page) const override {
    const PageHead output = sizedHead(in, page, size_);
    checkEnd(in, "the page", by_.x, page.width);
    checkEnd(in, "the page", by_.y, page.height);
    const std::int64_t columns = std::int64_t{page.width} + by_.x;
    const std::int64_t lines = std::int64_t{page.height} + by_.y;
    const auto refuse = [&in](const auto&... parts) { in.fail(ExitCode::usage, 0, parts...); };
    if (columns < 1) refuse("--x ", by_.x, " leaves none of the ", page.width, " columns");
    if (lines < 1) refuse("--y ", by_.y, " leaves none of the ", page.height, " lines");
    if (by_.x >= 0) {
      if (by_.x >= std::int64_t{output.width}) {
        refuse("--x ", by_.x, " lies beyond the ", output.width, " columns of the output page");
      }
      if (by_.y >= std::int64_t{output.height}) {
        refuse("--y ", by_.y, " lies beyond the ", output.height, " lines of the output page");
      }
      if (by_.y < 0) refuse("--y ", by_.y, " is only possible together with a negative --x");
    } else {
      if (by_.y > 0) refuse("--y ", by_.y, " is not possible together with a negative --x");
      if (columns > output.width) {
        refuse(columns, " columns are left, more than the ", output.width, " of the output page");
      }
      if (lines > output.height) {
        refuse(lines, " lines are left, more than the ", output.height, " of the output page");
      }
    }
    return output;
  }

  std::uint32_t apply(StoredPage& page, StoredPage& output, std::uint32_t) override {
    const Planes in = page.planesFrom(0);
    const RastArea area = page.area();
    const RastPlaneSet planes = planeSet(in, output.planesFrom(0), 3);
    const RastShiftParam param{by_.x, by_.y, output.area().nWidth, output.area().nHeight, fill_};
    return rastImageShift(&area, &planes, &param, in.layout == Layout::planar ? 0 : 1);
  }

 private:
  Position by_;
  std::optional<Size> size_;
  std::uint32_t fill_;
};

}  // namespace

std::unique_ptr<PageFilter> planesOverlay(const OverlaySettings& settings) {
  return std::make_unique<Overlay>(settings, false);
}

std::unique_ptr<PageFilter> pixelsOverlay(const OverlaySettings& settings) {
  return std::make_unique<Overlay>(settings, true);
}

std::unique_ptr<PageFilter> rotation(std::uint32_t mode) {
  return std::make_unique<Rotation>(mode);
}

std::unique_ptr<PageFilter> shift(Position by, std::optional<Size> size, std::uint32_t fill) {
  return std::make_unique<Shift>(by, size, fill);
}
