#include "steps/step.h"

namespace rast::chain {

void Context::refuse(Refusal refusal) {
  if (refused) return;
  refusal.step = work.step;
  refusal.operation = work.operation;
  refused = std::move(refusal);
}

Page resized(const Page& page, std::uint64_t width, std::uint64_t height, Context& context) {
  Page output = page;
  if (width < 1 || width > INT32_MAX || height < 1 || height > INT32_MAX) {
    context.refuse(RAST_CHAIN_ERR_PAGE, "the output page size is out of range; expected 1 to ",
                   INT32_MAX, " columns and lines");
    return output;
  }
  output.nWidth = static_cast<std::uint32_t>(width);
  output.nHeight = static_cast<std::uint32_t>(height);
  return output;
}

void checkEnd(Context& context, const char* what, std::int64_t start, std::uint32_t length) {
  if (start + length > INT32_MAX) {
    context.refuse(RAST_CHAIN_ERR_PAGE, what, " reaches beyond column or line ", INT32_MAX);
  }
}

}  // namespace rast::chain
