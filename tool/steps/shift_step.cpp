#include <rast.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "steps/step.h"

namespace {

constexpr std::uint32_t fillWithNothing = 0;
constexpr std::uint32_t fillWithWhite = 2;

// Lines only move up or down, so that each band of the output is made of a band of the page, if
// of any.
class ShiftedPage final : public PageSource {
 public:
  ShiftedPage(std::unique_ptr<PageSource> page, const StepContext& context, const PageHead& head,
              Position by, std::uint32_t fill)
      : page_(std::move(page)),
        context_(context),
        head_(head),
        by_(by),
        fill_(fill),
        shown_(linesShown()),
        most_(context.bandLines(enclosing(page_->head(), head))),
        drawn_(page_->head().width, head.colour, most_) {}

  const PageHead& head() const override { return head_; }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    const std::uint32_t top = by_.y > 0 ? static_cast<std::uint32_t>(by_.y) : 0;
    std::uint32_t count = std::min(lines, most_);
    if (done_ < top) {
      count = std::min(count, top - done_);
      fillBlank(planes, count);
    } else if (done_ - top < shown_) {
      count = std::min(count, shown_ - (done_ - top));
      shiftBand(planes, count);
    } else {
      fillBlank(planes, count);
    }
    done_ += count;
    if (done_ == head_.height) drawRest();
    return count;
  }

  // What is as wide and as high as both.
  static PageHead enclosing(const PageHead& a, const PageHead& b) {
    PageHead head = a;
    head.width = std::max(a.width, b.width);
    head.height = std::max(a.height, b.height);
    return head;
  }

  // With a negative offset as many of the last lines are dropped.
  std::uint32_t linesShown() const {
    const std::int64_t height = page_->head().height;
    const std::int64_t room = head_.height;
    return static_cast<std::uint32_t>(by_.y < 0 ? height + by_.y : std::min(height, room - by_.y));
  }

  void fillBlank(const Planes& planes, std::uint32_t lines) const {
    const int sample = fill_ == fillWithWhite ? 255 : 0;
    for (std::size_t c = 0; c < planeCount(planes.layout); ++c) {
      std::memset(planes.at[c], sample, std::size_t{lines} * head_.width);
    }
  }

  void shiftBand(const Planes& planes, std::uint32_t lines) {
    const std::uint32_t width = page_->head().width;
    page_->draw(drawn_.planes(), lines);
    read_ += lines;
    if (fill_ == fillWithNothing) fillBlank(planes, lines);
    const RastArea area = wholeArea(width, lines);
    const RastPlaneSet set = planeSet(drawn_.planes(), planes, 3);
    const RastShiftParam param{by_.x, 0, static_cast<std::int32_t>(head_.width),
                               static_cast<std::int32_t>(lines), fill_};
    context_.call(std::uint64_t{done_} + 1, [&] {
      return rastImageShift(&area, &set, &param, planes.layout == Layout::planar ? 0 : 1);
    });
  }

  // The lines that are not shown.
  void drawRest() {
    while (read_ < page_->head().height) {
      const std::uint32_t count = std::min(most_, page_->head().height - read_);
      page_->draw(drawn_.planes(), count);
      read_ += count;
    }
  }

  std::unique_ptr<PageSource> page_;
  StepContext context_;
  PageHead head_;
  Position by_;
  std::uint32_t fill_;
  std::uint32_t shown_;
  std::uint32_t most_;
  Lines drawn_;
  std::uint32_t read_ = 0;
  std::uint32_t done_ = 0;
};

class ShiftStep final : public Step {
 public:
  ShiftStep(Position by, std::optional<Size> size, std::uint32_t fill)
      : by_(by), size_(size), fill_(fill) {}

  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page,
                                 const StepContext& context) override {
    const PageHead head = outputHead(context, page->head());
    return std::make_unique<ShiftedPage>(std::move(page), context, head, by_, fill_);
  }

 private:
  PageHead outputHead(const StepContext& context, const PageHead& page) const {
    const PageHead output = resizedHead(context, page, size_);
    checkEnd(context, "the page", by_.x, page.width);
    checkEnd(context, "the page", by_.y, page.height);
    const std::int64_t columns = std::int64_t{page.width} + by_.x;
    const std::int64_t lines = std::int64_t{page.height} + by_.y;
    const auto refuse = [&context](const auto&... parts) {
      context.refuse(ExitCode::usage, parts...);
    };
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

  Position by_;
  std::optional<Size> size_;
  std::uint32_t fill_;
};

}  // namespace

std::unique_ptr<Step> shiftStep(Position by, std::optional<Size> size, std::uint32_t fill) {
  return std::make_unique<ShiftStep>(by, size, fill);
}
