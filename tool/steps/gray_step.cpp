#include <algorithm>
#include <utility>

#include "steps/step.h"

namespace {

class GrayPage final : public PageSource {
 public:
  GrayPage(std::unique_ptr<PageSource> page, const StepContext& context)
      : page_(std::move(page)),
        head_(page_->head()),
        most_(context.bandLines(head_)),
        colour_(head_.width, true, most_) {
    head_.colour = false;
  }

  const PageHead& head() const override { return head_; }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    const std::uint32_t count = std::min(lines, most_);
    page_->draw(colour_.planes(), count);
    convert(planes.at[0], std::size_t{count} * head_.width);
    return count;
  }

  // ITU-R BT.601 luma: 0.299 R + 0.587 G + 0.114 B, rounded to nearest.
  void convert(std::uint8_t* gray, std::size_t samples) const {
    const auto& [red, green, blue] = colour_.planes().at;
    for (std::size_t i = 0; i < samples; ++i) {
      gray[i] = static_cast<std::uint8_t>((299U * red[i] + 587U * green[i] + 114U * blue[i] + 500) /
                                          1000);
    }
  }

  std::unique_ptr<PageSource> page_;
  PageHead head_;
  std::uint32_t most_;
  Lines colour_;
};

class GrayStep final : public Step {
 public:
  std::unique_ptr<PageSource> on(std::unique_ptr<PageSource> page,
                                 const StepContext& context) override {
    if (!page->head().colour) return page;
    return std::make_unique<GrayPage>(std::move(page), context);
  }
};

}  // namespace

std::unique_ptr<Step> grayStep() { return std::make_unique<GrayStep>(); }
