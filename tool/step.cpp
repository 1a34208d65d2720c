#include "step.h"

void Place::call(std::uint64_t line, const std::function<std::uint32_t()>& function) const {
  const std::uint32_t result = meter.inLibrary(function);
  if (result == RAST_OK) return;
  in.fail(ExitCode::runTime, line, operation, " failed with result 0x", std::hex, result);
}

PageHead resizedHead(const Input& in, const PageHead& page, const std::optional<Size>& size) {
  const Size output = size.value_or(Size{page.width, page.height});
  PageHead head = checkedHead(in, output.width, output.height, page.colour, "output page");
  head.resolution = page.resolution;
  return head;
}

void checkEnd(const Input& in, const char* what, std::int64_t start, std::uint32_t length) {
  if (start + length > INT32_MAX) {
    in.fail(ExitCode::usage, 0, what, " reaches beyond column or line ", INT32_MAX);
  }
}
