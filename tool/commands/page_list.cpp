#include "commands/page_list.h"

#include <algorithm>
#include <charconv>

#include "formats/error.h"

namespace {

[[noreturn]] void refuse(const std::string& item, const char* fault) {
  fail(ExitCode::usage, "--pages: '", item, "' ", fault,
       "; expected pages and ranges from 1 on, such as 1-10,15,20-");
}

std::uint64_t pageNumber(const std::string& item, const std::string& text) {
  std::int64_t page = 0;  // leaves numbers above for an open end
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, page);
  if (stop != end || error == std::errc::invalid_argument) refuse(item, "is no page or range");
  if (error != std::errc() || page < 1) refuse(item, "is out of range");
  return static_cast<std::uint64_t>(page);
}

}  // namespace

PageList::PageList(const std::string& text) {
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    const std::string item = text.substr(start, end - start);
    const std::size_t dash = item.find('-');
    Range range{pageNumber(item, item.substr(0, dash)), open};
    if (dash == std::string::npos) {
      range.last = range.first;
    } else if (dash + 1 < item.size()) {
      range.last = pageNumber(item, item.substr(dash + 1));
      if (range.last < range.first) refuse(item, "runs backwards");
    }
    ranges_.push_back(range);
    start = end + 1;
  }
}

bool PageList::holds(std::uint64_t page) const {
  return std::ranges::any_of(
      ranges_, [page](const Range& range) { return page >= range.first && page <= range.last; });
}

std::optional<std::uint64_t> PageList::count() const {
  std::vector<Range> ranges = ranges_;
  std::ranges::sort(ranges, {}, &Range::first);
  std::uint64_t counted = 0;
  std::uint64_t last = 0;  // of those counted
  for (const Range& range : ranges) {
    if (range.last == open) return {};
    if (range.last <= last) continue;
    counted += range.last - std::max(range.first - 1, last);
    last = range.last;
  }
  return counted;
}

void PageList::checkEnd(const Input& in) const {
  if (in.page() == 0) return;
  std::uint64_t missing = open;
  for (const Range& range : ranges_) {
    const std::uint64_t named = range.last == open ? range.first : range.last;
    if (named > in.page()) missing = std::min(missing, std::max(range.first, in.page() + 1));
  }
  if (missing == open) return;
  in.fail(ExitCode::usage, 0, "is the last one; --pages names page ", missing);
}
