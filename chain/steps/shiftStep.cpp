#include <rast.h>

#include <cstring>

#include "steps/step.h"

namespace rast::chain {

namespace {

constexpr std::uint32_t kFillNothing = 0;
constexpr std::uint32_t kFillWhite = 2;

// Lines only move up or down, so each band of the output is made of one band of the page, or of
// none.
class ShiftedPage final : public LineSource {
 public:
  ShiftedPage(LineSource& before, const Plan& plan, Context& context, Position by,
              std::uint32_t fill)
      : LineSource(plan.page, context),
        before_(before),
        by_(by),
        fill_(fill),
        top_(by.y > 0 ? static_cast<std::uint32_t>(by.y) : 0),
        shown_(linesShown()),
        most_(plan.lines),
        drawn_(before.page().nWidth, page().nComponents, most_) {}

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    if (done() < top_) return fillBlank(planes, std::min(lines, top_ - done()));
    const std::uint32_t rest = top_ + shown_ - std::min(top_ + shown_, done());
    if (rest == 0) return fillBlank(planes, lines);
    return shiftBand(planes, std::min({lines, rest, most_}));
  }

  // With a negative offset, as many of the last lines are dropped.
  std::uint32_t linesShown() const {
    const std::int64_t height = before_.page().nHeight;
    const std::int64_t room = page().nHeight;
    const std::int64_t shown = by_.y < 0 ? height + by_.y : std::min(height, room - by_.y);
    return static_cast<std::uint32_t>(std::max<std::int64_t>(shown, 0));
  }

  std::uint32_t fillBlank(const Planes& planes, std::uint32_t lines) const {
    const int sample = fill_ == kFillWhite ? 255 : 0;
    for (std::size_t c = 0; c < planes.count; ++c) {
      std::memset(planes.at[c], sample, std::size_t{lines} * page().nWidth);
    }
    return lines;
  }

  std::uint32_t shiftBand(const Planes& planes, std::uint32_t lines) {
    const std::uint32_t count = before_.draw(drawn_.planes(), lines);
    if (count == 0) return 0;
    if (fill_ == kFillNothing) fillBlank(planes, count);
    const RastArea area = wholeArea(before_.page().nWidth, count);
    const RastShiftParam param{by_.x, 0, static_cast<std::int32_t>(page().nWidth),
                               static_cast<std::int32_t>(count), fill_};
    const bool shifted = planes.count == 3 ? call(area, param, drawn_.planes(), planes, 0)
                                           : callForEach(area, param, planes);
    return shifted ? count : 0;
  }

  bool callForEach(const RastArea& area, const RastShiftParam& param, const Planes& planes) {
    for (std::size_t c = 0; c < planes.count; ++c) {
      if (!call(area, param, Planes(1, drawn_.planes().at[c], 0), Planes(1, planes.at[c], 0), 1)) {
        return false;
      }
    }
    return true;
  }

  bool call(const RastArea& area, const RastShiftParam& param, const Planes& in, const Planes& out,
            std::uint32_t planeMode) {
    const RastPlaneSet set = planeSet(in, out, 3);
    return succeeds([&] { return rastImageShift(&area, &set, &param, planeMode); });
  }

  LineSource& before_;
  Position by_;
  std::uint32_t fill_;
  std::uint32_t top_;
  std::uint32_t shown_;
  std::uint32_t most_;
  PackedLines drawn_;
};

class ShiftStep final : public Step {
 public:
  ShiftStep(Position by, std::optional<Size> size, std::uint32_t fill)
      : by_(by), size_(size), fill_(fill) {}

  Plan plan(const Page& page, Context& context) override {
    const Size size = size_.value_or(Size{page.nWidth, page.nHeight});
    Plan plan;
    plan.page = resized(page, size.width, size.height, context);
    check(page, plan.page, context);
    plan.lineBytes = lineSamples(page);
    plan.columnsIn = page.nWidth;
    const Page& wider = page.nWidth > plan.page.nWidth ? page : plan.page;
    plan.wantedLines = context.bandLines(page, quickLines(wider));
    return plan;
  }

  std::unique_ptr<LineSource> open(LineSource& before, const Plan& plan,
                                   Context& context) override {
    return std::make_unique<ShiftedPage>(before, plan, context, by_, fill_);
  }

 private:
  void check(const Page& page, const Page& output, Context& context) const {
    checkEnd(context, "the page", by_.x, page.nWidth);
    checkEnd(context, "the page", by_.y, page.nHeight);
    const std::int64_t columns = std::int64_t{page.nWidth} + by_.x;
    const std::int64_t lines = std::int64_t{page.nHeight} + by_.y;
    const auto refuse = [&context](const auto&... parts) {
      context.refuse(RAST_CHAIN_ERR_PAGE, parts...);
    };
    if (columns < 1) refuse("--x ", by_.x, " leaves none of the ", page.nWidth, " columns");
    if (lines < 1) refuse("--y ", by_.y, " leaves none of the ", page.nHeight, " lines");
    if (by_.x >= 0) {
      if (by_.x > std::int64_t{output.nWidth}) {
        refuse("--x ", by_.x, " lies beyond the ", output.nWidth, " columns of the output page");
      }
      if (by_.y > std::int64_t{output.nHeight}) {
        refuse("--y ", by_.y, " lies beyond the ", output.nHeight, " lines of the output page");
      }
      if (by_.y < 0) refuse("--y ", by_.y, " is only possible together with a negative --x");
    } else {
      if (by_.y > 0) refuse("--y ", by_.y, " is not possible together with a negative --x");
      if (columns > output.nWidth) {
        refuse(columns, " columns are left, more than the ", output.nWidth, " of the output page");
      }
      if (lines > output.nHeight) {
        refuse(lines, " lines are left, more than the ", output.nHeight, " of the output page");
      }
    }
  }

  Position by_;
  std::optional<Size> size_;
  std::uint32_t fill_;
};

}  // namespace

std::unique_ptr<Step> shiftStep(Position by, std::optional<Size> size, std::uint32_t fill) {
  return std::make_unique<ShiftStep>(by, size, fill);
}

}  // namespace rast::chain
