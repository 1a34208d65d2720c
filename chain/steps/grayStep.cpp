#include "steps/step.h"

namespace rast::chain {

namespace {

class GrayPage final : public LineSource {
 public:
  GrayPage(LineSource& before, const Plan& plan, Context& context)
      : LineSource(plan.page, context),
        before_(before),
        most_(plan.lines),
        color_(page().nWidth, before.page().nComponents, most_) {}

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    const std::uint32_t count = before_.draw(color_.planes(), std::min(lines, most_));
    convert(planes.at[0], std::size_t{count} * page().nWidth);
    return count;
  }

  // ITU-R BT.601 luma: 0.299 R + 0.587 G + 0.114 B, rounded to nearest.
  void convert(std::uint8_t* __restrict gray, std::size_t samples) const {
    const std::uint8_t* const red = color_.planes().at[0];
    const std::uint8_t* const green = color_.planes().at[1];
    const std::uint8_t* const blue = color_.planes().at[2];
    for (std::size_t i = 0; i < samples; ++i) {
      gray[i] = static_cast<std::uint8_t>((299U * red[i] + 587U * green[i] + 114U * blue[i] + 500) /
                                          1000);
    }
  }

  LineSource& before_;
  std::uint32_t most_;
  PackedLines color_;
};

// A page that is gray already.
class SamePage final : public LineSource {
 public:
  SamePage(LineSource& before, Context& context)
      : LineSource(before.page(), context), before_(before) {}

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override {
    return before_.draw(planes, lines);
  }

  LineSource& before_;
};

class GrayStep final : public Step {
 public:
  Plan plan(const Page& page, Context& context) override {
    Plan plan;
    plan.page = page;
    plan.page.nComponents = 1;
    if (page.nComponents == 1) return plan;
    plan.lineBytes = lineSamples(page);
    plan.wantedLines = context.bandLines(page, quickLines(page));
    return plan;
  }

  std::unique_ptr<LineSource> open(LineSource& before, const Plan& plan,
                                   Context& context) override {
    if (before.page().nComponents == 1) return std::make_unique<SamePage>(before, context);
    return std::make_unique<GrayPage>(before, plan, context);
  }
};

}  // namespace

std::unique_ptr<Step> grayStep() { return std::make_unique<GrayStep>(); }

}  // namespace rast::chain
