#include "steps/step.h"

PageHead StepContext::outputHead(const PageHead& from, std::uint64_t width,
                                 std::uint64_t height) const {
  PageHead head = checkedHead(in, width, height, from.colour, "output page");
  head.resolution = from.resolution;
  head.turned = from.turned;
  return head;
}

PageHead resizedHead(const StepContext& context, const PageHead& page,
                     const std::optional<Size>& size) {
  const Size output = size.value_or(Size{page.width, page.height});
  return context.outputHead(page, output.width, output.height);
}

void checkEnd(const StepContext& context, const char* what, std::int64_t start,
              std::uint32_t length) {
  if (start + length > INT32_MAX) {
    context.refuse(ExitCode::usage, what, " reaches beyond column or line ", INT32_MAX);
  }
}
