#include "formats/page.h"

#include <algorithm>

#include "steps/planes.h"

namespace rast::tool {

PageHead checkedHead(const PageInput& in, std::uint64_t width, std::uint64_t height, bool color) {
  if (width < 1 || width > INT32_MAX || height < 1 || height > INT32_MAX) {
    in.fail(ExitCode::damaged, 0, "the page size is out of range; expected 1 to ", INT32_MAX,
            " columns and lines");
  }
  PageHead head{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), color};
  if (head.workBytes() > in.memory().forLines()) {
    in.failMemory(0, join("a line of the page, ", width, " columns,"), head.workBytes());
  }
  if (head.workBytes() > chain::kLongestBand) {
    in.fail(ExitCode::unsupported, 0, "a line of ", width, " columns is too long; expected up to ",
            chain::kLongestBand * width / head.workBytes());
  }
  return head;
}

std::uint32_t bandLines(const PageInput& in, const PageHead& head, std::uint32_t wanted) {
  const std::uint64_t share = std::min(in.memory().forLines(), chain::kLongestBand);
  const std::uint64_t most = std::min<std::uint64_t>(head.height, share / head.workBytes());
  if (wanted == 0) wanted = chain::quickLines(head.lineBytes());
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(wanted, most));
}

void readPast(const PageInput& in, PageReader& page,
              const std::function<void(std::uint32_t lines, std::uint64_t bytes)>& onLines) {
  const PageHead& head = page.head();
  const std::uint32_t most = bandLines(in, head);
  const auto lines = std::make_unique_for_overwrite<std::uint8_t[]>(most * head.lineBytes());
  for (std::uint32_t done = 0; done < head.height;) {
    const std::uint32_t count = std::min(most, head.height - done);
    page.readLines(lines.get(), count);
    if (onLines) onLines(count, count * head.lineBytes());
    done += count;
  }
}

}  // namespace rast::tool
